// Posting lists of the dtree index: (heap row, occurrence count, document
// word count) entries sorted by row, stored as varbyte deltas.
//
// A heap row identifier is kept as one 48-bit integer, block << 16 | offset,
// so that integer order is row order.  Each posting is three varbytes: the
// row's distance from the previous row (from the list's base for the first
// one), the count, and the word count.  A varbyte holds 7 bits per byte, low
// bits first, the high bit set on every byte but the last.
//
// Everything here works on caller-supplied memory and never throws or
// allocates, so it may run while a buffer lock is held.
#pragma once

#include <cstddef>
#include <cstdint>

namespace dt {

struct Posting {
    uint64_t tid;      // block << 16 | offset
    uint32_t count;    // occurrences of the term in the row's document
    uint32_t wordcnt;  // the document's word count
};

constexpr uint64_t MakeTid48(uint32_t block, uint16_t offset) { return (uint64_t(block) << 16) | offset; }
constexpr uint32_t Tid48Block(uint64_t t) { return uint32_t(t >> 16); }
constexpr uint16_t Tid48Offset(uint64_t t) { return uint16_t(t & 0xFFFF); }

// Bytes of one varbyte.
size_t VarbyteSize(uint64_t v) noexcept;
// Writes v at out (room for 10 bytes needed); returns the bytes written.
size_t PutVarbyte(unsigned char *out, uint64_t v) noexcept;
// Reads a varbyte from [in, end); returns bytes read, 0 when malformed.
size_t GetVarbyte(const unsigned char *in, const unsigned char *end, uint64_t *v) noexcept;

// Bytes that posting p takes after a posting of row prev.
size_t PostingSize(const Posting &p, uint64_t prev) noexcept;
// Bytes that the list takes encoded from base (postings sorted by row).
size_t EncodedSize(const Posting *p, size_t n, uint64_t base) noexcept;
// Encodes n sorted postings into out (capacity cap).  Returns the bytes
// written, or SIZE_MAX when they do not fit or are not in row order.
size_t EncodePostings(const Posting *p, size_t n, uint64_t base, unsigned char *out, size_t cap) noexcept;
// Decodes exactly n postings from in[0, len).  Returns the bytes consumed,
// or SIZE_MAX when the bytes are malformed, run short, or go backwards.
size_t DecodePostings(const unsigned char *in, size_t len, uint64_t base, Posting *out, size_t n) noexcept;
// Passes over the postings of row below want, of at most n, in in[0, len)
// that follow a posting of row *prev, without storing them: *prev becomes
// the row of the last one passed and *skipped their number.  Returns the
// bytes passed (the next posting starts there), or SIZE_MAX when the
// bytes are malformed or run short.
size_t SkipPostingsBelow(const unsigned char *in, size_t len, uint64_t *prev, uint64_t want, size_t n,
                         size_t *skipped) noexcept;
// Decodes only the rows of exactly n postings from in[0, len), stepping
// over their counts.  Returns the bytes consumed, or SIZE_MAX when the
// bytes are malformed or run short.
size_t DecodeRows(const unsigned char *in, size_t len, uint64_t base, uint64_t *rows, size_t n) noexcept;
// Sorts postings by row, then count, then word count.
void SortPostings(Posting *p, size_t n) noexcept;
// Inserts p into a sorted array of n postings (room for n + 1); returns its
// position.  Equal rows keep the new one last.
size_t InsertPosting(Posting *arr, size_t n, const Posting &p) noexcept;

}  // namespace dt
