#include "morph.h"

#include <algorithm>
#include <cstring>

namespace dt {

const char *const sufx[kMorphRules] = {
    // nouns
    "s", "ses", "xes", "zes", "ches", "shes",
    // verbs
    "s", "ies", "es", "es", "ed", "ed", "ing", "ing",
    // adjectives, then the "ly" forms reduced by the same pass
    "er", "est", "er", "est", "ally", "ally", "ily", "ly", "ly", "ly"};
const char *const addr[kMorphRules] = {
    "", "s", "x", "z", "ch", "sh",
    "", "y", "e", "", "e", "", "e", "",
    "", "", "e", "e", "al", "", "y", "le", "e", ""};
const int offsets[4] = {0, 0, 6, 14};
const int cnts[4] = {0, 6, 8, 10};

bool wordbase(const char *word, int ender, std::string &copy) {
    size_t len1 = std::strlen(word);
    size_t len2 = std::strlen(sufx[ender]);
    if (len1 <= len2) return false;
    if (std::memcmp(word + len1 - len2, sufx[ender], len2) != 0) return false;
    copy.assign(word, len1 - len2);
    copy += addr[ender];
    return true;
}

bool _dt_StemLookup(const MorphLexicon &lex, const char *word, char *isStop) {
    if (lex.isBaseForm && lex.isBaseForm(word)) {
        *isStop = 0;
        return true;
    }
    *isStop = (lex.isStopWord && lex.isStopWord(word)) ? 1 : 0;
    return *isStop != 0;
}

std::string _dt_MorphWord(const MorphLexicon &lex, const char *word, char *isStop) {
    std::string ret;
    if (lex.exception && lex.exception(word, ret)) return ret;
    size_t len = std::strlen(word);
    if (len >= 3 && !(word[len - 2] == 's' && word[len - 1] == 's')) {
        for (int pos = 1; pos <= 3; pos++) {
            for (int i = 0; i < cnts[pos]; i++) {
                int ender = offsets[pos] + i;
                if (wordbase(word, ender, ret) && _dt_StemLookup(lex, ret.c_str(), isStop))
                    return ret;
            }
        }
    }
    return word;
}

std::string _dt_StemWord(const MorphLexicon &lex, const char *word, char *isStop) {
    if (_dt_StemLookup(lex, word, isStop)) return word;
    return _dt_MorphWord(lex, word, isStop);
}

StemResult StemWordFull(const MorphLexicon &lex, const char *word) {
    StemResult r;
    char isStop = 0;
    if (_dt_StemLookup(lex, word, &isStop)) {
        r.lookupHit = true;
        r.stem = word;
    } else {
        r.stem = _dt_MorphWord(lex, word, &isStop);
    }
    r.isStop = isStop != 0;
    return r;
}

namespace {

uint32_t WordHashCode(const char *p, size_t n) {
    // FNV-1a.
    uint32_t h = 2166136261u;
    for (size_t i = 0; i < n; i++) {
        h ^= (unsigned char)p[i];
        h *= 16777619u;
    }
    return h;
}

// Puts position pos (of hash h) into the table; the table has room.
void SlotInsert(std::vector<uint64_t> &slots, uint32_t h, size_t pos) {
    size_t mask = slots.size() - 1;
    size_t i = h & mask;
    while (slots[i] != 0) i = (i + 1) & mask;
    slots[i] = ((uint64_t)h << 32) | (uint64_t)(pos + 1);
}

// Keeps the table at most half full.
void SlotReserve(StemCache &c, size_t entries) {
    size_t want = 1024;
    while (want < entries * 2) want *= 2;
    if (c.slots.size() >= want) return;
    c.slots.assign(want, 0);
    for (size_t i = 0; i < c.entries.size(); i++) {
        const std::string &w = c.entries[i].word;
        SlotInsert(c.slots, WordHashCode(w.data(), w.size()), i);
    }
}

}  // namespace

void StemCacheClear(StemCache &c) {
    c.entries.clear();
    std::fill(c.slots.begin(), c.slots.end(), 0);
    c.resets++;
}

void StemCacheValidate(StemCache &c, const std::string &key) {
    if (key != c.key) {
        if (!c.entries.empty()) StemCacheClear(c);
        c.key = key;
    }
}

namespace {
StemResult *FindEntry(StemCache &c, const char *word, size_t len) {
    if (c.slots.empty()) return nullptr;
    uint32_t h = WordHashCode(word, len);
    size_t mask = c.slots.size() - 1;
    for (size_t i = h & mask; c.slots[i] != 0; i = (i + 1) & mask) {
        uint64_t s = c.slots[i];
        if ((uint32_t)(s >> 32) != h) continue;
        StemCache::Entry &e = c.entries[(size_t)(uint32_t)s - 1];
        if (e.word.size() == len && std::memcmp(e.word.data(), word, len) == 0) return &e.result;
    }
    return nullptr;
}
}  // namespace

const StemResult *StemCacheFind(StemCache &c, const char *word, size_t len) {
    if (c.key.empty()) return nullptr;
    const StemResult *r = FindEntry(c, word, len);
    if (r)
        c.hits++;
    else
        c.misses++;
    return r;
}

void StemCacheStore(StemCache &c, const char *word, size_t len, const StemResult &r) {
    if (c.key.empty()) return;
    if (FindEntry(c, word, len)) return;  // kept as first stored
    if (c.entries.size() >= c.maxEntries) StemCacheClear(c);
    SlotReserve(c, c.entries.size() + 1);
    c.entries.push_back(StemCache::Entry{std::string(word, len), r});
    SlotInsert(c.slots, WordHashCode(word, len), c.entries.size() - 1);
}

size_t StemCacheSize(const StemCache &c) { return c.entries.size(); }

}  // namespace dt
