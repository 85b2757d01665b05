// Helpers shared by the query tests: a small stemmer with its own lexicon and
// a document whose terms are read lazily, counting what it reads.
#pragma once

#include <map>
#include <set>
#include <string>
#include <vector>

#include "exprtree.h"
#include "querydoc.h"
#include "queryeval.h"
#include "tokenizer.h"
#include "wordhash.h"

namespace qtest {

inline const std::set<std::string> &StopWords() {
    static const std::set<std::string> s = {"the", "of", "an", "is", "to", "in", "it"};
    return s;
}

// Irregular and plural forms of the little lexicon; other words are their
// own stems.
inline std::string TestStem(const std::string &w, bool *isStop) {
    static const std::map<std::string, std::string> forms = {
        {"dogs", "dog"},   {"cats", "cat"},     {"mice", "mouse"}, {"birds", "bird"},
        {"trees", "tree"}, {"running", "run"},  {"ran", "run"},    {"fishes", "fish"},
    };
    if (StopWords().count(w)) {
        *isStop = true;
        return w;
    }
    auto it = forms.find(w);
    return it == forms.end() ? w : it->second;
}

inline dt::QueryStemmer Stemmer() {
    dt::QueryStemmer s;
    s.stemWord = TestStem;
    s.isStopWord = [](const std::string &w) { return StopWords().count(w) > 0; };
    return s;
}

// The terms of a text, in order, as the document reader would produce them.
inline std::vector<std::string> TermsOf(const std::string &text) {
    std::vector<std::string> out;
    dt::QueryStemmer st = Stemmer();
    int idx = 0;
    for (;;) {
        std::string tok = dt::_dt_WordFromString(text.c_str(), &idx);
        if (tok.empty()) break;
        std::string term;
        if (dt::StemToken(st, tok, &term)) out.push_back(term);
    }
    return out;
}

// A document read lazily: opened on the first question, then term by term.
struct LazyDoc {
    std::vector<std::string> terms;
    size_t pos = 0;
    int opens = 0;
    dt::WordHash seen;

    explicit LazyDoc(const std::string &text) : terms(TermsOf(text)) {}

    dt::DocTermSource Source() {
        dt::DocTermSource s;
        s.isWordInDoc = [this](const std::string &w) {
            if (opens == 0) opens = 1;
            return dt::LazyWordLookup(
                seen,
                [this](std::string *t) {
                    if (pos >= terms.size()) return false;
                    *t = terms[pos++];
                    return true;
                },
                w);
        };
        return s;
    }
};

// A word hash holding every term of a text.
inline void FillHash(dt::WordHash &h, const std::string &text) {
    for (const auto &t : TermsOf(text)) dt::_dt_AddWordToHash(t.c_str(), h);
}

}  // namespace qtest
