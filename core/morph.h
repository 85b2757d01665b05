// WordNet morphology: reducing a word to its base form.
//
// A word that is already a base form is kept; an irregular form ("mice") is
// mapped through the table of exceptions; otherwise detachment rules strip a
// suffix and add an ending ("ches" -> "ch", "ies" -> "y") until a known base
// form results.  The lexicon itself (base forms, exceptions, stop words) is
// reached through callbacks, so the rules run against the WordNet tables in
// the server and against a small word list in the unit tests alike.
#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

namespace dt {

struct MorphLexicon {
    // True when word is a base form.
    std::function<bool(const char *word)> isBaseForm;
    // The base form of an irregular form: true with `base` set, or false.
    std::function<bool(const char *word, std::string &base)> exception;
    // True when word is a stop word.
    std::function<bool(const char *word)> isStopWord;
};

// The detachment rules: suffix, ending to add, and the group of each part
// of speech (1 noun, 2 verb, 3 adjective; the "ly" rules are in group 3).
constexpr int kMorphRules = 24;
extern const char *const sufx[kMorphRules];
extern const char *const addr[kMorphRules];
extern const int offsets[4];
extern const int cnts[4];

// Applies rule `ender` to word: false when the word does not end with the
// rule's suffix or nothing would be left; else `copy` is the word without
// the suffix, plus the rule's ending.
bool wordbase(const char *word, int ender, std::string &copy);

// True when word is a base form or a stop word; *isStop is 0 for a base
// form, else whether it is a stop word.
bool _dt_StemLookup(const MorphLexicon &lex, const char *word, char *isStop);

// The morphological reduction: the exception's base form, else the first
// rule (nouns, verbs, adjectives, each in table order) that yields a base
// form or a stop word, else the word itself.  Words shorter than three
// characters and words ending in "ss" are not reduced by rules.  *isStop
// keeps the value written by the last lookup.
std::string _dt_MorphWord(const MorphLexicon &lex, const char *word, char *isStop);

// A base form or stop word as it is, else _dt_MorphWord.
std::string _dt_StemWord(const MorphLexicon &lex, const char *word, char *isStop);

// The full outcome of stemming one lower-case word, as cached.
struct StemResult {
    bool lookupHit = false;  // the word itself is a base form or stop word
    bool isStop = false;     // the stemmer reports a stop word
    std::string stem;        // the stem (the word itself on a lookup hit)
};
StemResult StemWordFull(const MorphLexicon &lex, const char *word);

// A per-process cache of stem results.  Its contents are valid for one
// state of the lexicon, named by a key; Validate with another key empties
// it.  An empty key means the state is unknown: nothing is kept.
//
// The entries sit in one array in the order they were stored; an
// open-addressing table of (hash, position) pairs finds them, so a lookup
// touches the table and one entry.
struct StemCache {
    struct Entry {
        std::string word;
        StemResult result;
    };
    std::vector<Entry> entries;
    std::vector<uint64_t> slots;  // hash << 32 | (position + 1); 0: empty
    std::string key;
    size_t maxEntries = 250000;
    uint64_t hits = 0;
    uint64_t misses = 0;
    uint64_t resets = 0;
};
void StemCacheValidate(StemCache &c, const std::string &key);
// The cached result of word, or nullptr; valid until the next store.
const StemResult *StemCacheFind(StemCache &c, const char *word, size_t len);
inline const StemResult *StemCacheFind(StemCache &c, const std::string &word) {
    return StemCacheFind(c, word.data(), word.size());
}
void StemCacheStore(StemCache &c, const char *word, size_t len, const StemResult &r);
inline void StemCacheStore(StemCache &c, const std::string &word, const StemResult &r) {
    StemCacheStore(c, word.data(), word.size(), r);
}
size_t StemCacheSize(const StemCache &c);
void StemCacheClear(StemCache &c);

}  // namespace dt
