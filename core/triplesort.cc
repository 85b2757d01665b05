// Sorting the triples of an index build.
#include "triplesort.h"

#include <algorithm>
#include <cstring>

namespace dt {

int CompareTerms(const char *a, size_t alen, const char *b, size_t blen) noexcept {
    size_t n = std::min(alen, blen);
    int c = n ? std::memcmp(a, b, n) : 0;
    if (c) return c;
    return alen < blen ? -1 : (alen > blen ? 1 : 0);
}

void SortTriples(TermTriple *t, size_t n, const char *arena) noexcept {
    std::sort(t, t + n, [arena](const TermTriple &x, const TermTriple &y) {
        int c = CompareTerms(arena + x.termoff, x.termlen, arena + y.termoff, y.termlen);
        if (c) return c < 0;
        if (x.tid != y.tid) return x.tid < y.tid;
        if (x.count != y.count) return x.count < y.count;
        return x.wordcnt < y.wordcnt;
    });
}

static void PutBE(unsigned char *out, uint64_t v, int bytes) {
    for (int i = bytes - 1; i >= 0; i--) {
        out[i] = static_cast<unsigned char>(v & 0xFF);
        v >>= 8;
    }
}

static uint64_t GetBE(const unsigned char *in, int bytes) {
    uint64_t v = 0;
    for (int i = 0; i < bytes; i++) v = (v << 8) | in[i];
    return v;
}

size_t MakeTripleKey(const char *term, size_t termlen, uint64_t tid, uint32_t count, uint32_t wordcnt,
                     unsigned char *out) noexcept {
    if (termlen) std::memcpy(out, term, termlen);
    out[termlen] = 0;
    PutBE(out + termlen + 1, tid, 6);
    PutBE(out + termlen + 7, count, 4);
    PutBE(out + termlen + 11, wordcnt, 4);
    return termlen + kTripleKeyExtra;
}

bool ParseTripleKey(const unsigned char *key, size_t len, const char **term, size_t *termlen, uint64_t *tid,
                    uint32_t *count, uint32_t *wordcnt) noexcept {
    if (len < kTripleKeyExtra) return false;
    size_t tl = len - kTripleKeyExtra;
    if (key[tl] != 0 || (tl && std::memchr(key, 0, tl))) return false;
    *term = reinterpret_cast<const char *>(key);
    *termlen = tl;
    *tid = GetBE(key + tl + 1, 6);
    *count = uint32_t(GetBE(key + tl + 7, 4));
    *wordcnt = uint32_t(GetBE(key + tl + 11, 4));
    return true;
}

}  // namespace dt
