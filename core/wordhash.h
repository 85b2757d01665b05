// The 97-bucket word hash: distinct terms with their counts.
//
// Documents being read, the stop-word set and the stored term tables all use
// this hash.  The hash function is a persisted format: h = h * 9 + c over the
// characters taken as signed bytes, 32-bit wraparound, bucket = h mod 97.
#pragma once

#include <cstddef>
#include <cstdint>
#include <deque>
#include <string>
#include <string_view>
#include <unordered_map>

namespace dt {

constexpr int kHashBuckets = 97;

// One term of a bucket chain.
struct DtWordHash {
    DtWordHash *hashw_next = nullptr;
    int hashw_cnt = 0;
    std::string hashw_word;
};

// A word hash with its counters.  Elements are owned by the table and keep
// their addresses for its lifetime.
struct WordHash {
    DtWordHash *heads[kHashBuckets] = {};
    std::deque<DtWordHash> elems;
    // Every element by its text, for lookups that do not walk the chains
    // (chains hold thousands of terms in large documents).
    std::unordered_map<std::string_view, DtWordHash *> index;
    int hashentries = 0;  // distinct terms
    int wordcnt = 0;      // terms added (occurrences)
    int strlen = 0;       // sum over distinct terms of (length + 1)
    // Iteration cursor of _dt_NextTerm.
    DtWordHash *curptr = nullptr;
    int curindex = 0;

    WordHash() = default;
    WordHash(const WordHash &) = delete;
    WordHash &operator=(const WordHash &) = delete;
    WordHash(WordHash &&) = default;
    WordHash &operator=(WordHash &&) = default;
};

// Bucket of a NUL-terminated word.
int _dt_HashWordVal(const char *word);
// Bucket of a counted text (a length-prefixed text's data bytes).
int _dt_HashTextVal(const char *data, size_t len);
inline int _dt_HashTextVal(const std::string &t) { return _dt_HashTextVal(t.data(), t.size()); }

// First element of the chain whose text equals the word, or nullptr.
DtWordHash *_dt_HashWordLookup(const char *word, DtWordHash *chain);
DtWordHash *_dt_HashTextLookup(const char *data, size_t len, DtWordHash *chain);

// Looks a word up in the whole hash (through the index: also after a sort).
DtWordHash *WordHashFind(const WordHash &h, const char *data, size_t len);

// Counts one occurrence of a word: 1 if it was present, 0 if it is new
// (then pushed at the head of its bucket's chain).
int _dt_AddWordToHash(const char *word, WordHash &h);
int _dt_AddWordToHash(const char *data, size_t len, WordHash &h);

// Joins all chains into one list sorted ascending (byte order of the "C"
// collation) and makes it the chain of bucket 0.  O(n log n).
void _dt_SortHash(WordHash &h);

// The next element of the hash in bucket order, or nullptr at the end.
DtWordHash *_dt_NextTerm(WordHash &h);
// Empties the hash (as a new one), keeping its allocations.
void WordHashReset(WordHash &h);

// Restarts _dt_NextTerm from the first bucket.
void RewindTerms(WordHash &h);

// Debug printing to standard output.
void _dt_PrintWordHash(const WordHash *h, bool printordered);
void _dt_PrintWordOrdered(const WordHash &h);

}  // namespace dt
