// A document's terms: as text (IndexTerms, Occurrences, TopNTerms) and as
// rows (dt_Terms, dt_TopTerms).
//
// The texts list "stem:count " items (a blank after every item, the last one
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

extern "C" {
#include "funcapi.h"
#include "utils/builtins.h"
}

namespace dt::pg {

struct TermCount {
    std::string term;
    int count;
};

// The terms of a document with their counts, most frequent first (of
// equal counts, the one met later in the word hash first).  With input,
// only the terms that some stem of the input equals (counts written in the
// input, "dog:3", are ignored); with origtop >= 0, only the first origtop.
std::vector<TermCount> _dt_OrderedTerms(const void *value, const std::string *input, int origtop) {
    std::vector<std::string> wanted;
    if (input) {
        int cnt = 0;
        {
            WordnetScope wn;
            wanted = dt::_dt_StripAndStemText(*input, &cnt, ServerStemHooks());
        }
        if (wanted.empty()) return {};
        if (origtop == -1)
            for (std::string &w : wanted) w = w.substr(0, w.find(':'));
    }
    DocScanPtr scan = _dt_MakeDocDesc(value, true);
    dt::WordHash &hash = scan->desc->doc_wordhashtab;
    dt::RewindTerms(hash);
    // A new item goes before the first item whose count is not greater
    // than its own.
    std::vector<TermCount> list;
    while (dt::DtWordHash *t = dt::_dt_NextTerm(hash)) {
        CheckInterrupts();
        if (input && std::find(wanted.begin(), wanted.end(), t->hashw_word) == wanted.end()) continue;
        auto pos = std::find_if(list.begin(), list.end(),
                                [&](const TermCount &o) { return o.count <= t->hashw_cnt; });
        list.insert(pos, TermCount{t->hashw_word, t->hashw_cnt});
    }
    if (origtop >= 0 && list.size() > (size_t)origtop) list.resize((size_t)origtop);
    return list;
}

// The same terms as "stem:count " items.
std::string _dt_IndexTerms(const void *value, const std::string *input, int origtop) {
    std::string out;
    for (const TermCount &t : _dt_OrderedTerms(value, input, origtop))
        out += t.term + ":" + std::to_string(t.count) + " ";
    return out;
}

}  // namespace dt::pg

extern "C" {
PG_FUNCTION_INFO_V1(pgdoc_IndexTerms);
PG_FUNCTION_INFO_V1(pgdoc_Occurrences);
PG_FUNCTION_INFO_V1(pgdoc_TopNTerms);
PG_FUNCTION_INFO_V1(pgdoc_dt_Terms);
PG_FUNCTION_INFO_V1(pgdoc_dt_TopTerms);
}

namespace {

// Returns terms as the rows (term text, count integer) of a set result.
Datum TermRows(FunctionCallInfo fcinfo, const std::vector<dt::pg::TermCount> &terms) {
    dt::pg::ServerCall([&] { InitMaterializedSRF(fcinfo, 0); });
    ReturnSetInfo *rsinfo = (ReturnSetInfo *)fcinfo->resultinfo;
    for (const dt::pg::TermCount &t : terms) {
        dt::pg::CheckInterrupts();
        const char *w = t.term.data();
        int len = (int)t.term.size();
        int count = t.count;
        dt::pg::ServerCall([&] {
            Datum values[2] = {PointerGetDatum(cstring_to_text_with_len(w, len)), Int32GetDatum(count)};
            bool nulls[2] = {false, false};
            tuplestore_putvalues(rsinfo->setResult, rsinfo->setDesc, values, nulls);
        });
    }
    return (Datum)0;
}

}  // namespace

// dt_Terms(doc): every term with its count, as rows, in IndexTerms' order.
Datum pgdoc_dt_Terms(PG_FUNCTION_ARGS) {
    return dt::pg::Guard([&]() -> Datum {
        return TermRows(fcinfo, dt::pg::_dt_OrderedTerms(dt::pg::DocArg(fcinfo, 0), nullptr, -1));
    });
}

// dt_TopTerms(doc, n): the n most frequent terms as rows, in TopNTerms' order.
Datum pgdoc_dt_TopTerms(PG_FUNCTION_ARGS) {
    return dt::pg::Guard([&]() -> Datum {
        int n = dt::pg::ServerCall([&] { return PG_GETARG_INT32(1); });
        std::vector<dt::pg::TermCount> terms;
        if (n > 0) terms = dt::pg::_dt_OrderedTerms(dt::pg::DocArg(fcinfo, 0), nullptr, n);
        return TermRows(fcinfo, terms);
    });
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
        text *t = dt::pg::ServerCall([&] { return PG_GETARG_TEXT_PP(1); });
        std::string input = dt::pg::TextToString(t);
        if (input.empty()) return dt::pg::TextResult("");
        return dt::pg::TextResult(dt::pg::_dt_IndexTerms(dt::pg::DocArg(fcinfo, 0), &input, -1));
    });
}

// TopNTerms(doc, n): the n most frequent terms.
Datum pgdoc_TopNTerms(PG_FUNCTION_ARGS) {
    return dt::pg::Guard([&]() -> Datum {
        int n = PG_GETARG_INT32(1);
        if (n < 0) return dt::pg::TextResult("");
        return dt::pg::TextResult(dt::pg::_dt_IndexTerms(dt::pg::DocArg(fcinfo, 0), nullptr, n));
    });
}
