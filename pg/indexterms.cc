// A document's terms as text: IndexTerms, Occurrences, TopNTerms.
//
// Each lists "stem:count " items (a blank after every item, the last one
// too), the most frequent first; of terms with equal counts the one met
// later in the document's word hash comes first.
#include <algorithm>
#include <string>
#include <vector>

#include "boundary.h"
#include "docscan.h"
#include "docvalue.h"
#include "stripstem.h"
#include "wordnet.h"

namespace dt::pg {

namespace {

struct Item {
    std::string text;  // "stem:count "
    int cnt;
};

}  // namespace

// The terms of a document as "stem:count " items.  With input, only the
// terms that some stem of the input equals (counts written in the input,
// "dog:3", are ignored); with origtop >= 0, only the first origtop items.
std::string _dt_IndexTerms(const void *value, const std::string *input, int origtop) {
    std::vector<std::string> wanted;
    if (input) {
        int cnt = 0;
        {
            WordnetScope wn;
            wanted = dt::_dt_StripAndStemText(*input, &cnt, ServerStemHooks());
        }
        if (wanted.empty()) return "";
        if (origtop == -1)
            for (std::string &w : wanted) w = w.substr(0, w.find(':'));
    }
    DocScanPtr scan = _dt_MakeDocDesc(value, true);
    dt::WordHash &hash = scan->desc->doc_wordhashtab;
    dt::RewindTerms(hash);
    // Ordered by count, highest first; a new item goes before the first
    // item whose count is not greater than its own.
    std::vector<Item> list;
    size_t total = 0;
    while (dt::DtWordHash *t = dt::_dt_NextTerm(hash)) {
        if (input && std::find(wanted.begin(), wanted.end(), t->hashw_word) == wanted.end()) continue;
        Item it{t->hashw_word + ":" + std::to_string(t->hashw_cnt) + " ", t->hashw_cnt};
        total += it.text.size();
        auto pos = std::find_if(list.begin(), list.end(), [&](const Item &o) { return o.cnt <= it.cnt; });
        list.insert(pos, std::move(it));
    }
    std::string out;
    out.reserve(total);
    int allowance = origtop;
    for (const Item &it : list) {
        if (origtop != -1) {
            if (allowance <= 0) break;
            allowance--;
        }
        out += it.text;
    }
    return out;
}

}  // namespace dt::pg

extern "C" {
PG_FUNCTION_INFO_V1(pgdoc_IndexTerms);
PG_FUNCTION_INFO_V1(pgdoc_Occurrences);
PG_FUNCTION_INFO_V1(pgdoc_TopNTerms);
}

// IndexTerms(doc): every term with its count.
Datum pgdoc_IndexTerms(PG_FUNCTION_ARGS) {
    return dt::pg::Guard([&]() -> Datum {
        return dt::pg::TextResult(dt::pg::_dt_IndexTerms(dt::pg::DocArg(fcinfo, 0), nullptr, -1));
    });
}

// Occurrences(doc, text): the counts of the text's stems in the document.
Datum pgdoc_Occurrences(PG_FUNCTION_ARGS) {
    return dt::pg::Guard([&]() -> Datum {
        std::string input = dt::pg::TextArg(fcinfo, 1);
        if (input.empty()) return dt::pg::TextResult("");
        return dt::pg::TextResult(dt::pg::_dt_IndexTerms(dt::pg::DocArg(fcinfo, 0), &input, -1));
    });
}

// TopNTerms(doc, n): the n most frequent terms.
Datum pgdoc_TopNTerms(PG_FUNCTION_ARGS) {
    return dt::pg::Guard([&]() -> Datum {
        int n = dt::pg::Int32Arg(fcinfo, 1);
        if (n < 0) return dt::pg::TextResult("");
        return dt::pg::TextResult(dt::pg::_dt_IndexTerms(dt::pg::DocArg(fcinfo, 0), nullptr, n));
    });
}
