// The letters of the database encoding for the tokenizer (core/charclass.h).
#pragma once

namespace dt::pg {

// Installs the word charset of this backend's database.  It is built on
// first use, from the database encoding and its LC_CTYPE:
//  - UTF8: characters are decoded to code points and classed and folded by
//    the database's LC_CTYPE locale (iswalpha_l, towlower_l); under the C
//    or POSIX locale, by C.UTF-8, which knows the letters of Unicode.
//  - a single-byte encoding under a real locale: the locale's byte tables,
//    as for ASCII (nothing to install).
//  - a single-byte encoding under C or POSIX: each byte is taken as the
//    Unicode character it stands for in the encoding and classed and folded
//    by C.UTF-8, so that the letters of LATIN1 are letters there too.
//  - other multibyte encodings: every non-ASCII character is a letter and
//    has no case.
//  - SQL_ASCII: bytes, as the C library classes them.
void InstallWordCharset();

// Puts in place a charset that calls InstallWordCharset when the first
// non-ASCII byte is met (the encoding is known only once the backend is
// connected to its database).  Called when the module is loaded.
void StartWordCharset();

}  // namespace dt::pg
