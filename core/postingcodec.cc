// Varbyte coding of posting lists.
#include "postingcodec.h"

#include <algorithm>

namespace dt {

size_t VarbyteSize(uint64_t v) noexcept {
    size_t n = 1;
    while (v >= 0x80) {
        v >>= 7;
        n++;
    }
    return n;
}

size_t PutVarbyte(unsigned char *out, uint64_t v) noexcept {
    size_t n = 0;
    while (v >= 0x80) {
        out[n++] = static_cast<unsigned char>(v | 0x80);
        v >>= 7;
    }
    out[n++] = static_cast<unsigned char>(v);
    return n;
}

namespace {
// GetVarbyte, inlined into the decoder, with the one-byte case first.
inline size_t ReadVarbyte(const unsigned char *in, const unsigned char *end, uint64_t *v) noexcept {
    if (in < end && !(*in & 0x80)) {
        *v = *in;
        return 1;
    }
    uint64_t r = 0;
    int shift = 0;
    const unsigned char *p = in;
    while (p < end) {
        unsigned char b = *p++;
        if (shift > 63 || (shift == 63 && (b & 0x7F) > 1)) return 0;
        r |= uint64_t(b & 0x7F) << shift;
        if (!(b & 0x80)) {
            *v = r;
            return size_t(p - in);
        }
        shift += 7;
    }
    return 0;
}
}  // namespace

size_t GetVarbyte(const unsigned char *in, const unsigned char *end, uint64_t *v) noexcept {
    return ReadVarbyte(in, end, v);
}

size_t PostingSize(const Posting &p, uint64_t prev) noexcept {
    return VarbyteSize(p.tid - prev) + VarbyteSize(p.count) + VarbyteSize(p.wordcnt);
}

size_t EncodedSize(const Posting *p, size_t n, uint64_t base) noexcept {
    size_t total = 0;
    uint64_t prev = base;
    for (size_t i = 0; i < n; i++) {
        total += PostingSize(p[i], prev);
        prev = p[i].tid;
    }
    return total;
}

size_t EncodePostings(const Posting *p, size_t n, uint64_t base, unsigned char *out, size_t cap) noexcept {
    size_t used = 0;
    uint64_t prev = base;
    unsigned char tmp[32];
    for (size_t i = 0; i < n; i++) {
        if (p[i].tid < prev) return SIZE_MAX;
        size_t k = PutVarbyte(tmp, p[i].tid - prev);
        k += PutVarbyte(tmp + k, p[i].count);
        k += PutVarbyte(tmp + k, p[i].wordcnt);
        if (used + k > cap) return SIZE_MAX;
        std::copy(tmp, tmp + k, out + used);
        used += k;
        prev = p[i].tid;
    }
    return used;
}

size_t DecodePostings(const unsigned char *in, size_t len, uint64_t base, Posting *out, size_t n) noexcept {
    const unsigned char *p = in, *end = in + len;
    uint64_t prev = base;
    for (size_t i = 0; i < n; i++) {
        uint64_t d, c, w;
        size_t k = ReadVarbyte(p, end, &d);
        if (!k) return SIZE_MAX;
        p += k;
        k = ReadVarbyte(p, end, &c);
        if (!k) return SIZE_MAX;
        p += k;
        k = ReadVarbyte(p, end, &w);
        if (!k) return SIZE_MAX;
        p += k;
        if (d > (uint64_t(1) << 48) - 1 - prev || c > UINT32_MAX || w > UINT32_MAX) return SIZE_MAX;
        prev += d;
        out[i] = Posting{prev, uint32_t(c), uint32_t(w)};
    }
    return size_t(p - in);
}

// The end of the varbyte at p, when it ends before end: its value is not
// needed.
static inline const unsigned char *PassVarbyte(const unsigned char *p, const unsigned char *end) noexcept {
    while (p < end && (*p & 0x80)) p++;
    return p < end ? p + 1 : nullptr;
}

size_t SkipPostingsBelow(const unsigned char *in, size_t len, uint64_t *prev, uint64_t want, size_t n,
                         size_t *skipped) noexcept {
    const unsigned char *p = in, *end = in + len;
    uint64_t at = *prev;
    size_t i = 0;
    for (; i < n; i++) {
        uint64_t d;
        size_t k = ReadVarbyte(p, end, &d);
        if (!k || d > (uint64_t(1) << 48) - 1 - at) return SIZE_MAX;
        if (at + d >= want) break;
        const unsigned char *q = PassVarbyte(p + k, end);  // the count
        if (q) q = PassVarbyte(q, end);                     // the word count
        if (!q) return SIZE_MAX;
        p = q;
        at += d;
    }
    *prev = at;
    *skipped = i;
    return size_t(p - in);
}

size_t DecodeRows(const unsigned char *in, size_t len, uint64_t base, uint64_t *rows, size_t n) noexcept {
    const unsigned char *p = in, *end = in + len;
    uint64_t prev = base;
    for (size_t i = 0; i < n; i++) {
        uint64_t d;
        size_t k = ReadVarbyte(p, end, &d);
        if (!k || d > (uint64_t(1) << 48) - 1 - prev) return SIZE_MAX;
        const unsigned char *q = PassVarbyte(p + k, end);  // the count
        if (q) q = PassVarbyte(q, end);                     // the word count
        if (!q) return SIZE_MAX;
        p = q;
        prev += d;
        rows[i] = prev;
    }
    return size_t(p - in);
}

static bool PostingLess(const Posting &a, const Posting &b) {
    if (a.tid != b.tid) return a.tid < b.tid;
    if (a.count != b.count) return a.count < b.count;
    return a.wordcnt < b.wordcnt;
}

void SortPostings(Posting *p, size_t n) noexcept { std::sort(p, p + n, PostingLess); }

size_t InsertPosting(Posting *arr, size_t n, const Posting &p) noexcept {
    size_t pos = n;
    while (pos > 0 && arr[pos - 1].tid > p.tid) {
        arr[pos] = arr[pos - 1];
        pos--;
    }
    arr[pos] = p;
    return pos;
}

}  // namespace dt
