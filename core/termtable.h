// The per-document term table stored behind the text in a large object.
//
//   0   dtab_version     1
//   4   dtab_entries     97 (buckets)
//   8   dtab_entry_size  12
//  12   dtab_strlen      length of the string area
//  16   dtab_len         420
//  20   dtab_hashtab     97 x int: first entry of each bucket, or -1
//  408  dtab_wrdentries  n x {wrd_offset, wrd_cnt, wrd_next}
//  then the string area: each term and a NUL, in entry order.
// Integers are 4 bytes, native byte order.
#pragma once

#include <cstddef>
#include <string>

#include "wordhash.h"

namespace dt {

constexpr int kTermTableHeaderSize = 408;
constexpr int kWrdEntrySize = 12;
constexpr int kTermTableVersion = 1;
constexpr int kTermTableLen = 420;

struct TermTableBytes {
    std::string head;     // header and entries: 408 + 12 n bytes
    std::string strings;  // the string area: dtab_strlen bytes
};

// Writes the table of a word hash in bucket order, each bucket's entries in
// chain order.  Raises XD00Q when the string area's length differs from the
// hash's strlen, XD00R when the entry count differs from hashentries.
TermTableBytes WriteTermTable(const WordHash &h);

// dtab_strlen of a table header.
int TermTableStrlen(const char *head);

// Rebuilds the word hash of a stored table: head holds 408 + 12 n bytes
// (n = the value's ht_hashentries), strings the string area.  Each entry is
// added as a new word and given its stored count; wordcnt is set by the
// caller from the value's ht_wordcnt.  A table whose indices or offsets
// point outside itself raises TL001 "Large object error".
void ReadTermTable(const char *head, int hashentries, const char *strings, size_t strlen,
                   WordHash &out);

}  // namespace dt
