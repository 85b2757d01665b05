#include "wordhash.h"
#include "interrupt.h"

#include <cstdio>
#include <algorithm>
#include <cstring>
#include <vector>

namespace dt {

namespace {
uint32_t HashBytes(const char *p, size_t n) {
    uint32_t h = 0;
    for (size_t i = 0; i < n; i++)
        h = h * 9u + static_cast<uint32_t>(static_cast<int32_t>(static_cast<signed char>(p[i])));
    return h % kHashBuckets;
}

bool SameText(const DtWordHash *e, const char *data, size_t len) {
    return e->hashw_word.size() == len && std::memcmp(e->hashw_word.data(), data, len) == 0;
}

// Byte order, shorter first on a common prefix: the "C" collation.
bool TextLess(const std::string &a, const std::string &b) {
    size_t n = a.size() < b.size() ? a.size() : b.size();
    int c = std::memcmp(a.data(), b.data(), n);
    if (c != 0) return c < 0;
    return a.size() < b.size();
}
}  // namespace

int _dt_HashWordVal(const char *word) { return (int)HashBytes(word, std::strlen(word)); }

int _dt_HashTextVal(const char *data, size_t len) { return (int)HashBytes(data, len); }

DtWordHash *_dt_HashTextLookup(const char *data, size_t len, DtWordHash *chain) {
    for (DtWordHash *e = chain; e; e = e->hashw_next)
        if (SameText(e, data, len)) return e;
    return nullptr;
}

DtWordHash *_dt_HashWordLookup(const char *word, DtWordHash *chain) {
    return _dt_HashTextLookup(word, std::strlen(word), chain);
}

DtWordHash *WordHashFind(const WordHash &h, const char *data, size_t len) {
    auto it = h.index.find(std::string_view(data, len));
    return it == h.index.end() ? nullptr : it->second;
}

int _dt_AddWordToHash(const char *data, size_t len, WordHash &h) {
    int bucket = (int)HashBytes(data, len);
    h.wordcnt++;
    if (DtWordHash *e = WordHashFind(h, data, len)) {
        e->hashw_cnt++;
        return 1;
    }
    h.elems.emplace_back();
    DtWordHash &n = h.elems.back();
    n.hashw_cnt = 1;
    n.hashw_word.assign(data, len);
    n.hashw_next = h.heads[bucket];
    h.heads[bucket] = &n;
    h.index.emplace(std::string_view(n.hashw_word), &n);
    h.hashentries++;
    h.strlen += (int)len + 1;
    return 0;
}

int _dt_AddWordToHash(const char *word, WordHash &h) {
    return _dt_AddWordToHash(word, std::strlen(word), h);
}

void _dt_SortHash(WordHash &h) {
    // Gathered as if each bucket's chain, in bucket order, went in front of
    // what was gathered so far: the last bucket's chain first.
    std::vector<DtWordHash *> all;
    all.reserve((size_t)h.hashentries);
    for (int i = kHashBuckets - 1; i >= 0; i--) {
        PollInterrupts();
        for (DtWordHash *e = h.heads[i]; e; e = e->hashw_next) all.push_back(e);
        h.heads[i] = nullptr;
    }
    // Stable: of equal texts (a hash holds none) the gathered order stays.
    std::stable_sort(all.begin(), all.end(), [](const DtWordHash *a, const DtWordHash *b) {
        return TextLess(a->hashw_word, b->hashw_word);
    });
    DtWordHash *sorted = nullptr;
    for (size_t i = all.size(); i-- > 0;) {
        all[i]->hashw_next = sorted;
        sorted = all[i];
    }
    h.heads[0] = sorted;
    RewindTerms(h);
}

DtWordHash *_dt_NextTerm(WordHash &h) {
    if (!h.curptr) {
        while (h.curindex < kHashBuckets && !h.heads[h.curindex]) h.curindex++;
        if (h.curindex >= kHashBuckets) return nullptr;
        h.curptr = h.heads[h.curindex++];
    }
    DtWordHash *e = h.curptr;
    h.curptr = e->hashw_next;
    return e;
}

void WordHashReset(WordHash &h) {
    for (DtWordHash *&head : h.heads) head = nullptr;
    h.index.clear();
    h.elems.clear();
    h.hashentries = 0;
    h.wordcnt = 0;
    h.strlen = 0;
    RewindTerms(h);
}

void RewindTerms(WordHash &h) {
    h.curptr = nullptr;
    h.curindex = 0;
}

void _dt_PrintWordHash(const WordHash *h, bool printordered) {
    std::printf("The document contains the following words: ");
    if (!h) {
        std::printf("no words!\n\n");
        return;
    }
    for (int i = 0; i < kHashBuckets; i++) {
        if (!h->heads[i]) continue;
        std::printf("hash[%d]: ", i);
        for (DtWordHash *e = h->heads[i]; e; e = e->hashw_next)
            std::printf("%s (%d) ", e->hashw_word.c_str(), e->hashw_cnt);
        std::printf("\n");
    }
    std::printf("\n\n");
    if (printordered) _dt_PrintWordOrdered(*h);
}

void _dt_PrintWordOrdered(const WordHash &h) {
    int printed = 0, maxcnt = 0;
    for (int i = 0; i < kHashBuckets; i++)
        for (DtWordHash *e = h.heads[i]; e; e = e->hashw_next)
            if (e->hashw_cnt > maxcnt) maxcnt = e->hashw_cnt;
    for (int cnt = 1; printed < h.hashentries && cnt <= maxcnt; cnt++) {
        std::printf("%d: ", cnt);
        for (int i = 0; i < kHashBuckets; i++)
            for (DtWordHash *e = h.heads[i]; e; e = e->hashw_next)
                if (e->hashw_cnt == cnt) {
                    std::printf("%s ", e->hashw_word.c_str());
                    printed++;
                }
        std::printf("\n");
    }
}

}  // namespace dt
