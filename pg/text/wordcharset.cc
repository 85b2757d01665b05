#include "wordcharset.h"

#include <clocale>
#include <iconv.h>
#include <cstring>
#include <locale.h>
#include <string>
#include <wctype.h>

#include "boundary.h"
#include "charclass.h"

extern "C" {
#include "mb/pg_wchar.h"
}

namespace dt::pg {

namespace {

bool installed = false;
locale_t ctype_locale = (locale_t)0;

// ---- UTF-8 ------------------------------------------------------------------

// The code point of the well-formed UTF-8 character at s, and its length;
// 0 for a byte that does not begin one (it then stands alone).
int Utf8Decode(const unsigned char *s, unsigned *cp) {
    unsigned char c = s[0];
    int n;
    unsigned v;
    if (c >= 0xC2 && c <= 0xDF) {
        n = 2;
        v = c & 0x1F;
    } else if (c >= 0xE0 && c <= 0xEF) {
        n = 3;
        v = c & 0x0F;
    } else if (c >= 0xF0 && c <= 0xF4) {
        n = 4;
        v = c & 0x07;
    } else {
        return 0;
    }
    for (int i = 1; i < n; i++) {
        if ((s[i] & 0xC0) != 0x80) return 0;  // also stops at a NUL
        v = (v << 6) | (s[i] & 0x3F);
    }
    if ((n == 3 && v < 0x800) || (n == 4 && (v < 0x10000 || v > 0x10FFFF)) || (v >= 0xD800 && v <= 0xDFFF))
        return 0;
    *cp = v;
    return n;
}

void Utf8Append(unsigned cp, std::string &out) {
    if (cp < 0x80) {
        out += (char)cp;
    } else if (cp < 0x800) {
        out += (char)(0xC0 | (cp >> 6));
        out += (char)(0x80 | (cp & 0x3F));
    } else if (cp < 0x10000) {
        out += (char)(0xE0 | (cp >> 12));
        out += (char)(0x80 | ((cp >> 6) & 0x3F));
        out += (char)(0x80 | (cp & 0x3F));
    } else {
        out += (char)(0xF0 | (cp >> 18));
        out += (char)(0x80 | ((cp >> 12) & 0x3F));
        out += (char)(0x80 | ((cp >> 6) & 0x3F));
        out += (char)(0x80 | (cp & 0x3F));
    }
}

int ClassOf(unsigned cp) {
    if (iswalpha_l((wint_t)cp, ctype_locale)) return kCharAlpha | kCharAlnum;
    if (iswalnum_l((wint_t)cp, ctype_locale)) return kCharAlnum;
    return 0;
}

unsigned LowerOf(unsigned cp) {
    unsigned l = (unsigned)towlower_l((wint_t)cp, ctype_locale);
    bool valid = l <= 0x10FFFF && !(l >= 0xD800 && l <= 0xDFFF);
    return valid ? l : cp;
}

int Utf8Len(const unsigned char *s) {
    unsigned cp;
    int n = Utf8Decode(s, &cp);
    return n ? n : 1;
}

int Utf8Classify(const unsigned char *s, int len) {
    unsigned cp;
    if (len < 2 || Utf8Decode(s, &cp) != len) return 0;
    return ClassOf(cp);
}

void Utf8Lower(const unsigned char *s, int len, std::string &out) {
    unsigned cp;
    if (len < 2 || Utf8Decode(s, &cp) != len) {
        out.append((const char *)s, (size_t)len);
        return;
    }
    Utf8Append(LowerOf(cp), out);
}

const WordCharset kUtf8 = {Utf8Len, Utf8Classify, Utf8Lower};

// ---- single-byte encodings under the C locale -----------------------------

unsigned char byte_class[256];
unsigned char byte_lower[256];

int ByteLen(const unsigned char *) { return 1; }
int ByteClassify(const unsigned char *s, int) { return byte_class[s[0]]; }
void ByteLower(const unsigned char *s, int, std::string &out) { out += (char)byte_lower[s[0]]; }

const WordCharset kBytes = {ByteLen, ByteClassify, ByteLower};

// Converters between a single-byte encoding and UTF-8 (the C library's
// iconv, under the names PostgreSQL gives ICU), so that no server error can
// arise while the tables are built.
struct Iconv {
    iconv_t to_utf8 = (iconv_t)-1, from_utf8 = (iconv_t)-1;
    ~Iconv() {
        if (to_utf8 != (iconv_t)-1) iconv_close(to_utf8);
        if (from_utf8 != (iconv_t)-1) iconv_close(from_utf8);
    }
};

// One character through a converter; empty when the other side has none.
std::string Convert(iconv_t cd, const std::string &in) {
    if (cd == (iconv_t)-1) return "";
    iconv(cd, nullptr, nullptr, nullptr, nullptr);
    char out[8];
    char *ip = const_cast<char *>(in.data()), *op = out;
    size_t il = in.size(), ol = sizeof out;
    if (iconv(cd, &ip, &il, &op, &ol) == (size_t)-1 || il != 0) return "";
    return std::string(out, sizeof out - ol);
}

// The Unicode character a byte of encoding enc stands for (0: none).
unsigned CodePointOf(unsigned char b, int enc, const Iconv &cv) {
    if (enc == PG_LATIN1) return b;
    std::string u = Convert(cv.to_utf8, std::string(1, (char)b));
    unsigned cp;
    if (u.empty() || Utf8Decode((const unsigned char *)u.c_str(), &cp) != (int)u.size()) return 0;
    return cp;
}

// The byte of encoding enc for a Unicode character (0: none).
unsigned char ByteOf(unsigned cp, int enc, const Iconv &cv) {
    if (enc == PG_LATIN1) return cp <= 0xFF ? (unsigned char)cp : 0;
    std::string u;
    Utf8Append(cp, u);
    std::string b = Convert(cv.from_utf8, u);
    return b.size() == 1 ? (unsigned char)b[0] : 0;
}

void BuildByteTables(int enc) {
    for (int b = 0; b < 256; b++) {
        byte_class[b] = (unsigned char)((IsAlphaChar((unsigned char)b) ? kCharAlpha : 0) |
                                        (IsAlnumChar((unsigned char)b) ? kCharAlnum : 0));
        byte_lower[b] = (unsigned char)(IsUpperChar((unsigned char)b) ? ToLowerChar((unsigned char)b) : b);
    }
    Iconv cv;
    if (enc != PG_LATIN1) {
        const char *name = get_encoding_name_for_icu(enc);
        if (!name) return;
        cv.to_utf8 = iconv_open("UTF-8", name);
        cv.from_utf8 = iconv_open(name, "UTF-8");
    }
    for (int b = 0x80; b < 256; b++) {
        unsigned cp = CodePointOf((unsigned char)b, enc, cv);
        if (cp == 0) continue;
        byte_class[b] = (unsigned char)ClassOf(cp);
        unsigned char l = ByteOf(LowerOf(cp), enc, cv);
        if (l) byte_lower[b] = l;
    }
}

// ---- other multibyte encodings ---------------------------------------------

int MbLen(const unsigned char *s) {
    int n = pg_encoding_mblen(GetDatabaseEncoding(), (const char *)s);
    for (int i = 1; i < n; i++)
        if (s[i] == 0) return i;
    return n < 1 ? 1 : n;
}
int MbClassify(const unsigned char *, int len) { return len > 1 ? kCharAlpha | kCharAlnum : 0; }
void MbLower(const unsigned char *s, int len, std::string &out) { out.append((const char *)s, (size_t)len); }

const WordCharset kMultibyte = {MbLen, MbClassify, MbLower};

bool IsCLocale(const char *name) {
    return !name || std::strcmp(name, "C") == 0 || std::strcmp(name, "POSIX") == 0;
}

locale_t OpenLocale(const char *name) {
    locale_t l = (locale_t)0;
    if (!IsCLocale(name)) l = newlocale(LC_CTYPE_MASK, name, (locale_t)0);
    if (!l) l = newlocale(LC_CTYPE_MASK, "C.UTF-8", (locale_t)0);
    return l;
}


// Until the first non-ASCII byte is met, a charset that installs the real
// one and hands the call on to it (or to the byte tables when there is none).
int BootLen(const unsigned char *s) {
    InstallWordCharset();
    const WordCharset *cs = CurrentWordCharset();
    return cs ? cs->charLen(s) : 1;
}
int BootClassify(const unsigned char *s, int len) {
    InstallWordCharset();
    const WordCharset *cs = CurrentWordCharset();
    if (cs) return cs->classify(s, len);
    return (IsAlphaChar(s[0]) ? kCharAlpha : 0) | (IsAlnumChar(s[0]) ? kCharAlnum : 0);
}
void BootLower(const unsigned char *s, int len, std::string &out) {
    InstallWordCharset();
    const WordCharset *cs = CurrentWordCharset();
    if (cs)
        cs->appendLower(s, len, out);
    else
        out += IsUpperChar(s[0]) ? ToLowerChar(s[0]) : (char)s[0];
}

const WordCharset kBootstrap = {BootLen, BootClassify, BootLower};

}  // namespace

void StartWordCharset() { SetWordCharset(&kBootstrap); }

void InstallWordCharset() {
    if (installed) return;
    int enc = GetDatabaseEncoding();
    const char *ctype = setlocale(LC_CTYPE, nullptr);
    const WordCharset *cs = nullptr;
    if (enc == PG_UTF8) {
        ctype_locale = OpenLocale(ctype);
        cs = ctype_locale ? &kUtf8 : &kMultibyte;
    } else if (enc != PG_SQL_ASCII && pg_encoding_max_length(enc) > 1) {
        cs = &kMultibyte;
    } else if (enc != PG_SQL_ASCII && IsCLocale(ctype)) {
        ctype_locale = OpenLocale(nullptr);
        if (ctype_locale) {
            BuildByteTables(enc);
            cs = &kBytes;
        }
    }
    SetWordCharset(cs);
    installed = true;
}

}  // namespace dt::pg
