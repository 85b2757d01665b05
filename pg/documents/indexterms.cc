// A document's terms: as text (IndexTerms, Occurrences, TopNTerms) and as
// rows (dt_Terms, dt_TopTerms).
//
// The texts list "stem:count " items (a blank after every item, the last one
// too), the most frequent first; of terms with equal counts the one met
// later in the document's word hash comes first.
#include <algorithm>
#include <string>
#include <unordered_set>
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

namespace {

struct Item {
    const dt::DtWordHash *term;
    int cnt;
    size_t seq;  // place in the word hash
};

// The terms of a document, highest count first and of equal counts the
// term met later in the word hash first; the terms stay in the scan.  With
// input, only the terms that some stem of the input equals (counts written
// in the input, "dog:3", are ignored); with origtop >= 0, only the first
// origtop.  Empty, without a scan, when the input has no stems.
std::vector<Item> OrderedTerms(DocScanPtr &scan, const void *value, const std::string *input, int origtop) {
    std::unordered_set<std::string> wanted;
    if (input) {
        int cnt = 0;
        std::vector<std::string> stems;
        {
            WordnetScope wn;
            stems = dt::_dt_StripAndStemText(*input, &cnt, ServerStemHooks());
        }
        if (stems.empty()) return {};
        for (std::string &w : stems) {
            CheckInterrupts();
            wanted.insert(origtop == -1 ? w.substr(0, w.find(':')) : w);
        }
    }
    scan = _dt_MakeDocDesc(value, true);
    dt::WordHash &hash = scan->desc->doc_wordhashtab;
    dt::RewindTerms(hash);
    std::vector<Item> list;
    list.reserve((size_t)hash.hashentries);
    while (dt::DtWordHash *t = dt::_dt_NextTerm(hash)) {
        CheckInterrupts();
        if (input && !wanted.count(t->hashw_word)) continue;
        list.push_back({t, t->hashw_cnt, list.size()});
    }
    auto before = [](const Item &a, const Item &b) {
        if (a.cnt != b.cnt) return a.cnt > b.cnt;
        return a.seq > b.seq;
    };
    size_t keep = list.size();
    if (origtop >= 0 && (size_t)origtop < keep) keep = (size_t)origtop;
    if (keep < list.size()) {
        std::partial_sort(list.begin(), list.begin() + keep, list.end(), before);
        list.resize(keep);
    } else {
        std::sort(list.begin(), list.end(), before);
    }
    return list;
}

}  // namespace

// The terms of a document as "stem:count " items (see OrderedTerms).
std::string _dt_IndexTerms(const void *value, const std::string *input, int origtop) {
    DocScanPtr scan;
    std::vector<Item> list = OrderedTerms(scan, value, input, origtop);
    size_t total = 0;
    for (const Item &it : list) total += it.term->hashw_word.size() + 13;
    std::string out;
    out.reserve(total);
    for (const Item &it : list) {
        CheckInterrupts();
        out += it.term->hashw_word;
        out += ':';
        out += std::to_string(it.cnt);
        out += ' ';
    }
    return out;
}

// The same terms as the rows (term text, count integer) of a set result.
Datum TermRows(FunctionCallInfo fcinfo, const void *value, int origtop) {
    DocScanPtr scan;
    std::vector<Item> list;
    if (origtop != 0) list = OrderedTerms(scan, value, nullptr, origtop);
    ServerCall([&] { InitMaterializedSRF(fcinfo, 0); });
    ReturnSetInfo *rsinfo = (ReturnSetInfo *)fcinfo->resultinfo;
    for (const Item &it : list) {
        CheckInterrupts();
        const char *w = it.term->hashw_word.data();
        int len = (int)it.term->hashw_word.size();
        int count = it.cnt;
        ServerCall([&] {
            Datum values[2] = {PointerGetDatum(cstring_to_text_with_len(w, len)), Int32GetDatum(count)};
            bool nulls[2] = {false, false};
            tuplestore_putvalues(rsinfo->setResult, rsinfo->setDesc, values, nulls);
        });
    }
    return (Datum)0;
}

}  // namespace dt::pg

extern "C" {
PG_FUNCTION_INFO_V1(pgdoc_IndexTerms);
PG_FUNCTION_INFO_V1(pgdoc_Occurrences);
PG_FUNCTION_INFO_V1(pgdoc_TopNTerms);
PG_FUNCTION_INFO_V1(pgdoc_dt_Terms);
PG_FUNCTION_INFO_V1(pgdoc_dt_TopTerms);
}

// dt_Terms(doc): every term with its count, as rows, in IndexTerms' order.
Datum pgdoc_dt_Terms(PG_FUNCTION_ARGS) {
    return dt::pg::Guard([&]() -> Datum { return dt::pg::TermRows(fcinfo, dt::pg::DocArg(fcinfo, 0), -1); });
}

// dt_TopTerms(doc, n): the n most frequent terms as rows, in TopNTerms'
// order (none for n <= 0).
Datum pgdoc_dt_TopTerms(PG_FUNCTION_ARGS) {
    return dt::pg::Guard([&]() -> Datum {
        int n = dt::pg::Int32Arg(fcinfo, 1);
        return dt::pg::TermRows(fcinfo, dt::pg::DocArg(fcinfo, 0), n > 0 ? n : 0);
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
