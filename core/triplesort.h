// The (term, row, count) triples of an index build, and their order: terms
// in byte order (a shorter term before every longer one it begins), then
// rows.  Triples refer to their term's bytes in a caller-owned arena.
//
// Also the flat sort key that carries a triple through an external sort
// whose comparison is plain byte order (bytea): the term, one zero byte,
// then the row (6 bytes), the count and the word count (4 bytes each), all
// big-endian.  Terms never contain a zero byte.
#pragma once

#include <cstddef>
#include <cstdint>

namespace dt {

struct TermTriple {
    uint64_t tid;       // block << 16 | offset
    uint32_t termoff;   // offset of the term's bytes in the arena
    uint32_t termlen;
    uint32_t count;
    uint32_t wordcnt;
};

// Byte order of two terms: <0, 0, >0.
int CompareTerms(const char *a, size_t alen, const char *b, size_t blen) noexcept;
// Sorts triples by term bytes, then row, then count.
void SortTriples(TermTriple *t, size_t n, const char *arena) noexcept;

constexpr size_t kTripleKeyExtra = 1 + 6 + 4 + 4;
// Writes the sort key of a triple (term of termlen bytes) into out, which
// has room for termlen + kTripleKeyExtra bytes; returns the key's length.
size_t MakeTripleKey(const char *term, size_t termlen, uint64_t tid, uint32_t count, uint32_t wordcnt,
                     unsigned char *out) noexcept;
// Splits a sort key; false when it is malformed.
bool ParseTripleKey(const unsigned char *key, size_t len, const char **term, size_t *termlen, uint64_t *tid,
                    uint32_t *count, uint32_t *wordcnt) noexcept;

}  // namespace dt
