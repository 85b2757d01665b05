// libFuzzer target for the parsers of user query text: the query language,
// the options prefix and word lists.  Any input must either give a tree or
// raise dt::Error; the tree must print and evaluate.
//
//   cmake --build build --target query_fuzz && build/fuzz/query_fuzz -max_total_time=60
#include <cstddef>
#include <cstdint>
#include <string>

#include "error.h"
#include "exprtree.h"
#include "queryeval.h"
#include "queryprint.h"

namespace {
std::string Stem(const std::string &w, bool *isStop) {
    if (w == "the" || w == "of") *isStop = true;
    if (w.size() > 3 && w.back() == 's') return w.substr(0, w.size() - 1);
    return w;
}
}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    std::string s(reinterpret_cast<const char *>(data), size);  // stops at a NUL, as C text does
    dt::QueryStemmer stemmer;
    stemmer.stemWord = Stem;
    stemmer.isStopWord = [](const std::string &w) { return w == "the" || w == "of"; };
    dt::DocTermSource doc;
    doc.isWordInDoc = [](const std::string &w) { return w.size() % 2 == 0; };
    for (int which = 0; which < 2; which++) {
        dt::ExprArena arena;
        try {
            dt::DocExprNode *t = which == 0 ? dt::ContainsQuery(arena, stemmer, s.c_str())
                                            : dt::ContainsWordsQuery(arena, stemmer, s.c_str());
            dt::ExprTreeText(t);
            dt::QueryMatches(t, doc);
        } catch (const dt::Error &) {
        }
    }
    return 0;
}
