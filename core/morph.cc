#include "morph.h"

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

void StemCacheClear(StemCache &c) {
    c.map.clear();
    c.resets++;
}

void StemCacheValidate(StemCache &c, const std::string &key) {
    if (key != c.key) {
        if (!c.map.empty()) StemCacheClear(c);
        c.key = key;
    }
}

const StemResult *StemCacheFind(StemCache &c, const std::string &word) {
    if (c.key.empty()) return nullptr;
    auto it = c.map.find(word);
    if (it == c.map.end()) {
        c.misses++;
        return nullptr;
    }
    c.hits++;
    return &it->second;
}

void StemCacheStore(StemCache &c, const std::string &word, const StemResult &r) {
    if (c.key.empty()) return;
    if (c.map.size() >= c.maxEntries) StemCacheClear(c);
    c.map.emplace(word, r);
}

}  // namespace dt
