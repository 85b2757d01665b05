// The search operators on one row: Contains, ContainsWords, DocLike; the
// queries made from documents (MakeQueryFromDoc); and views of a query
// (PrintExprTree, dt_PrintWordList, dt_QueryTerms, dt_QueryOptions); and
// the restriction estimator of the search operators.
//
// A query is parsed once per call site: the rewritten tree is kept in
// fn_extra together with the query bytes and the state of the WordNet
// tables it was stemmed with, and is rebuilt when either differs.  The row's
// document is opened only when the evaluation first asks for a term, and
// read only as far as the answers need.
#include <cmath>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "boundary.h"
#include "docdesc.h"
#include "doclayout.h"
#include "docscan.h"
#include "docvalue.h"
#include "exprtree.h"
#include "queryeval.h"
#include "querydoc.h"
#include "queryoptions.h"
#include "queryprint.h"
#include "searchquery.h"
#include "snapkey.h"
#include "stopwords.h"
#include "wordnet.h"

extern "C" {
#include "catalog/pg_type.h"
#include "funcapi.h"
#include "nodes/pathnodes.h"
#include "nodes/supportnodes.h"
#include "nodes/makefuncs.h"
#include "nodes/nodeFuncs.h"
#include "optimizer/optimizer.h"
#include "utils/lsyscache.h"
#include "storage/proc.h"
#include "utils/snapmgr.h"
#include "utils/memutils.h"
#include "utils/selfuncs.h"
#include "utils/tuplestore.h"

PG_FUNCTION_INFO_V1(pgdoc_Contains);
PG_FUNCTION_INFO_V1(pgdoc_ContainsWords);
PG_FUNCTION_INFO_V1(pgdoc_DocLike);
PG_FUNCTION_INFO_V1(pgdoc_MakeQueryFromDoc);
PG_FUNCTION_INFO_V1(pgdoc_PrintExprTree);
PG_FUNCTION_INFO_V1(pgdoc_dt_PrintWordList);
PG_FUNCTION_INFO_V1(pgdoc_dt_QueryTerms);
PG_FUNCTION_INFO_V1(pgdoc_dt_QueryOptions);
PG_FUNCTION_INFO_V1(pgdoc_dt_querysel);
PG_FUNCTION_INFO_V1(pgdoc_dt_wordlistsel);
PG_FUNCTION_INFO_V1(pgdoc_dt_doclikesel);
PG_FUNCTION_INFO_V1(pgdoc_dt_search_support);
}

namespace {

using dt::pg::CurrentSnapKey;
using dt::pg::SameSnapshot;
using dt::pg::ServerCall;
using dt::pg::SnapKey;
using dt::pg::BoolArg;
using dt::pg::Int32Arg;
using dt::pg::InternalArg;
using dt::pg::TextArg;
using dt::pg::TextDatumString;

// Parsing stems with the server's WordNet tables (which must be open) and
// drops the words of the stop-word list.
const dt::QueryStemmer &ServerQueryStemmer() {
    static const dt::QueryStemmer stemmer = [] {
        dt::QueryStemmer s;
        s.stemWord = [](const std::string &word, bool *isStop) {
            dt::StemResult r = dt::pg::StemOneWord(word.c_str());
            *isStop = r.isStop;
            return r.stem;
        };
        s.isStopWord = [](const std::string &word) { return dt::_dt_IsStopWord(word.c_str()); };
        return s;
    }();
    return stemmer;
}

enum QueryKind { kContainsQuery, kWordListQuery, kDocQuery };

// The query of one call site.
struct QueryCache {
    std::string key;      // the query's bytes (the other document's, for DocLike)
    std::string version;  // WordNet state the words were stemmed with
    SnapKey snap;         // the snapshot the state was last confirmed under
    bool valid = false;
    std::unique_ptr<dt::ExprArena> arena;
    dt::DocExprNode *tree = nullptr;  // rewritten; null: nothing matches
};

// What fn_extra points at: the cache, deleted when fn_mcxt goes.
struct CacheSlot {
    MemoryContextCallback callback;
    QueryCache *cache;
};

void DeleteQueryCache(void *arg) {
    CacheSlot *slot = static_cast<CacheSlot *>(arg);
    delete slot->cache;
    slot->cache = nullptr;
}

QueryCache &CallSiteCache(FunctionCallInfo fcinfo) {
    FmgrInfo *flinfo = fcinfo->flinfo;
    if (flinfo->fn_extra) return *static_cast<CacheSlot *>(flinfo->fn_extra)->cache;
    auto cache = std::make_unique<QueryCache>();
    QueryCache *raw = cache.get();
    ServerCall([&] {
        CacheSlot *slot = (CacheSlot *)MemoryContextAllocZero(flinfo->fn_mcxt, sizeof(CacheSlot));
        slot->cache = raw;
        slot->callback.func = DeleteQueryCache;
        slot->callback.arg = slot;
        MemoryContextRegisterResetCallback(flinfo->fn_mcxt, &slot->callback);
        flinfo->fn_extra = slot;
    });
    cache.release();
    return *raw;
}

// Builds the tree of a query text.  Needs the WordNet tables open.
dt::DocExprNode *BuildTextQuery(dt::ExprArena &arena, QueryKind kind, const std::string &query) {
    if (kind == kContainsQuery) return dt::ContainsQuery(arena, ServerQueryStemmer(), query.c_str());
    return dt::ContainsWordsQuery(arena, ServerQueryStemmer(), query.c_str());
}

// The cached tree of a text query for this call site, rebuilt when the
// query or the WordNet state changed.  The WordNet tables are opened (in
// *wn) only when the state has to be read.
dt::DocExprNode *CachedTextQuery(FunctionCallInfo fcinfo, QueryKind kind, const std::string &query,
                                 std::optional<dt::pg::WordnetScope> &wn) {
    QueryCache &c = CallSiteCache(fcinfo);
    if (c.valid && c.key == query && SameSnapshot(c.snap)) return c.tree;
    SnapKey snap = CurrentSnapKey();
    if (!wn) wn.emplace();
    std::string version = dt::pg::WordnetVersionKey();
    if (c.valid && !version.empty() && c.version == version && c.key == query) {
        c.snap = snap;
        return c.tree;
    }
    c.valid = false;
    c.tree = nullptr;
    c.arena = std::make_unique<dt::ExprArena>();
    c.tree = BuildTextQuery(*c.arena, kind, query);
    c.key = query;
    c.version = version;
    c.snap = version.empty() ? SnapKey() : snap;
    c.valid = true;
    return c.tree;
}

// The row's document as evaluation sees it: opened on the first question.
// The WordNet tables are opened for the reading of a text (a stored term
// table needs no stemming).
struct LazyDoc {
    FunctionCallInfo fcinfo;
    int argno;
    std::optional<dt::pg::WordnetScope> *wn;
    dt::pg::DocScanPtr scan;

    dt::DocTermSource Source() {
        dt::DocTermSource src;
        src.isWordInDoc = [this](const std::string &term) {
            if (!scan) {
                const void *value = dt::pg::DocArg(fcinfo, argno);
                scan = dt::pg::_dt_MakeDocDesc(value, false);
            }
            if (!(scan->desc->doc_flags & dt::kDocExhausted) && !*wn) wn->emplace();
            dt::pg::CheckInterrupts();
            return dt::_dt_IsWordInDoc(term.data(), term.size(), *scan->desc) != 0;
        };
        return src;
    }
};

// Contains and ContainsWords: the query of argument 1 against the document
// of argument 0.
Datum TextSearch(FunctionCallInfo fcinfo, QueryKind kind) {
    std::string query = TextArg(fcinfo, 1);
    std::optional<dt::pg::WordnetScope> wn;
    dt::DocExprNode *tree = CachedTextQuery(fcinfo, kind, query, wn);
    LazyDoc doc{fcinfo, 0, &wn, nullptr};
    bool match = dt::QueryMatches(tree, doc.Source());
    return BoolGetDatum(match);
}

// DocLike: the terms of the document of argument 1, or'ed, against the
// document of argument 0.
Datum DocSearch(FunctionCallInfo fcinfo) {
    const void *other = dt::pg::DocArg(fcinfo, 1);
    std::string key(static_cast<const char *>(other), VARSIZE(other));
    auto handle = dt::DocLOHandleExternal(other);
    // A server file may change between calls: read it every time.
    bool keep = !(handle && dt::IsExternalHandle(*handle));
    std::optional<dt::pg::WordnetScope> wn;
    QueryCache &c = CallSiteCache(fcinfo);
    bool hit = keep && c.valid && c.key == key && SameSnapshot(c.snap);
    SnapKey snap;
    if (!hit) snap = CurrentSnapKey();
    if (!hit && keep && c.valid && c.key == key) {
        wn.emplace();
        std::string version = dt::pg::WordnetVersionKey();
        if (!version.empty() && c.version == version) {
            c.snap = std::move(snap);
            hit = true;
        }
    }
    if (!hit) {
        if (!wn) wn.emplace();
        std::string version = dt::pg::WordnetVersionKey();
        c.valid = false;
        c.tree = nullptr;
        c.arena = std::make_unique<dt::ExprArena>();
        dt::pg::DocScanPtr scan = dt::pg::_dt_MakeDocDesc(other, true);
        c.tree = dt::DocLikeQuery(*c.arena, scan->desc->doc_wordhashtab);
        c.key = std::move(key);
        c.version = version;
        c.snap = version.empty() ? SnapKey() : snap;
        c.valid = keep;
    }
    LazyDoc doc{fcinfo, 0, &wn, nullptr};
    return BoolGetDatum(dt::QueryMatches(c.tree, doc.Source()));
}

Datum TextResult(const std::string &s) { return PointerGetDatum(dt::pg::StringToText(s)); }

// The rewritten tree of a query text, built with the WordNet tables open.
dt::DocExprNode *OneQuery(dt::ExprArena &arena, QueryKind kind, const std::string &query) {
    dt::pg::WordnetScope wn;
    return BuildTextQuery(arena, kind, query);
}

// ---- selectivity -------------------------------------------------------------

// Without statistics of documents: a word is taken to occur in one row of
// 200, as the server assumes for its own text search.
constexpr double kWordSel = 0.005;
constexpr double kDefaultQuerySel = 0.005;
constexpr double kDocLikeSel = 0.05;

double TreeSel(const dt::DocExprNode *n, int depth) {
    if (!n) return 0.0;
    if (depth > dt::kMaxExprDepth) return kWordSel;
    switch (n->node_op) {
    case dt::EXPR_WORD:
        return kWordSel;
    case dt::EXPR_ALL:
        return 1.0;
    case dt::EXPR_AND:
        return TreeSel(n->node_left, depth + 1) * TreeSel(n->node_right, depth + 1);
    case dt::EXPR_OR: {
        double a = TreeSel(n->node_left, depth + 1), b = TreeSel(n->node_right, depth + 1);
        return a + b - a * b;
    }
    case dt::EXPR_ANDNOT:
        return TreeSel(n->node_left, depth + 1) * (1.0 - TreeSel(n->node_right, depth + 1));
    default:
        return kWordSel;
    }
}

// The constant on the other side of a search operator's restriction, or
// no constant: returns false.  *isnull tells a null constant.
bool RestrictionConst(PlannerInfo *root, List *args, int varRelid, Datum *value, bool *isnull) {
    bool found = false;
    ServerCall([&] {
        VariableStatData vardata;
        Node *other;
        bool varonleft;
        if (get_restriction_variable(root, args, varRelid, &vardata, &other, &varonleft)) {
            if (varonleft && IsA(other, Const)) {
                Const *c = (Const *)other;
                *isnull = c->constisnull;
                *value = c->constvalue;
                found = true;
            }
            ReleaseVariableStats(vardata);
        }
    });
    return found;
}

Datum ClampSel(double s) {
    if (std::isnan(s)) s = kDefaultQuerySel;
    if (s < 0.0) s = 0.0;
    if (s > 1.0) s = 1.0;
    return Float8GetDatum(s);
}

// The selectivity of a search over args (the document, then the query) as
// a restriction of relation varRelid.
Datum SearchSel(PlannerInfo *root, List *args, int varRelid, QueryKind kind) {
    if (kind == kDocQuery) return ClampSel(kDocLikeSel);
    Datum value;
    bool isnull = false;
    if (!RestrictionConst(root, args, varRelid, &value, &isnull)) return ClampSel(kDefaultQuerySel);
    if (isnull) return ClampSel(0.0);
    std::string query = TextDatumString(value);
    dt::ExprArena arena;
    dt::DocExprNode *tree;
    try {
        tree = OneQuery(arena, kind, query);
    } catch (const dt::Error &e) {
        // A query the parser refuses is reported when it runs, not while
        // planning.  (Errors of the server itself are not swallowed.)
        const std::string &c = e.code();
        if (c == "XD00I" || c == "XD00J" || c == "XD00K" || c == "XD00L" || c == "54001")
            return ClampSel(kDefaultQuerySel);
        throw;
    }
    return ClampSel(TreeSel(tree, 0));
}

Datum QuerySel(FunctionCallInfo fcinfo, QueryKind kind) {
    return SearchSel(InternalArg<PlannerInfo>(fcinfo, 0), InternalArg<List>(fcinfo, 2), Int32Arg(fcinfo, 3), kind);
}

}  // namespace

dt::DocExprNode *dt::pg::ScanTree(dt::ExprArena &arena, const std::vector<ScanCondition> &conditions,
                                  dt::ScanCuts *cuts) {
    dt::pg::WordnetScope wn;
    std::vector<dt::DocExprNode *> trees;
    for (const ScanCondition &c : conditions) {
        if (c.strategy == 3) {
            const void *other = dt::pg::DocFromDatum(c.argument);
            dt::pg::DocScanPtr scan = dt::pg::_dt_MakeDocDesc(other, true);
            trees.push_back(dt::_dt_MakeExprFromDoc(arena, scan->desc->doc_wordhashtab));
            *cuts = dt::ScanCuts();
        } else {
            std::string text = TextDatumString(c.argument);
            trees.push_back(dt::ScanConditionTree(arena, ServerQueryStemmer(), c.strategy, text.c_str(), cuts));
        }
    }
    return dt::ScanQueryTree(arena, ServerQueryStemmer(), trees);
}

// Contains(doc, query): whether the document matches a query of the query
// language.
Datum pgdoc_Contains(PG_FUNCTION_ARGS) {
    return dt::pg::Guard([&]() -> Datum { return TextSearch(fcinfo, kContainsQuery); });
}

// ContainsWords(doc, words): whether the document holds any word of the
// list (an options prefix is skipped).
Datum pgdoc_ContainsWords(PG_FUNCTION_ARGS) {
    return dt::pg::Guard([&]() -> Datum { return TextSearch(fcinfo, kWordListQuery); });
}

// DocLike(doc, other): whether the document holds any term of the other.
Datum pgdoc_DocLike(PG_FUNCTION_ARGS) {
    return dt::pg::Guard([&]() -> Datum { return DocSearch(fcinfo); });
}

// MakeQueryFromDoc(doc): the document's terms as a query, "(dog:2 or cat:1)".
Datum pgdoc_MakeQueryFromDoc(PG_FUNCTION_ARGS) {
    return dt::pg::Guard([&]() -> Datum {
        const void *v = dt::pg::DocArg(fcinfo, 0);
        dt::pg::DocScanPtr scan = dt::pg::_dt_MakeDocDesc(v, true);
        return TextResult(dt::MakeQueryFromDoc(scan->desc->doc_wordhashtab));
    });
}

// PrintExprTree(query): the rewritten tree of a query as the printer
// writes it ("emptry tree" for a query nothing matches).
Datum pgdoc_PrintExprTree(PG_FUNCTION_ARGS) {
    return dt::pg::Guard([&]() -> Datum {
        std::string query = TextArg(fcinfo, 0);
        dt::ExprArena arena;
        dt::DocExprNode *tree = OneQuery(arena, kContainsQuery, query);
        return TextResult(dt::ExprTreeText(tree));
    });
}

// dt_PrintWordList(words): the same for the query of ContainsWords.
Datum pgdoc_dt_PrintWordList(PG_FUNCTION_ARGS) {
    return dt::pg::Guard([&]() -> Datum {
        std::string query = TextArg(fcinfo, 0);
        dt::ExprArena arena;
        dt::DocExprNode *tree = OneQuery(arena, kWordListQuery, query);
        return TextResult(dt::ExprTreeText(tree));
    });
}

// dt_QueryTerms(query, wordlist): the words of a rewritten query tree, left
// to right, with their weights in the query.
Datum pgdoc_dt_QueryTerms(PG_FUNCTION_ARGS) {
    return dt::pg::Guard([&]() -> Datum {
        std::string query = TextArg(fcinfo, 0);
        bool wordlist = BoolArg(fcinfo, 1);
        dt::ExprArena arena;
        dt::DocExprNode *tree = OneQuery(arena, wordlist ? kWordListQuery : kContainsQuery, query);
        ServerCall([&] { InitMaterializedSRF(fcinfo, 0); });
        ReturnSetInfo *rsinfo = (ReturnSetInfo *)fcinfo->resultinfo;
        // Left to right, without recursion: the left spines can be long.
        std::vector<const dt::DocExprNode *> stack;
        if (tree) stack.push_back(tree);
        while (!stack.empty()) {
            dt::pg::CheckInterrupts();
            const dt::DocExprNode *n = stack.back();
            stack.pop_back();
            if (n->node_op == dt::EXPR_AND || n->node_op == dt::EXPR_OR || n->node_op == dt::EXPR_ANDNOT) {
                if (n->node_right) stack.push_back(n->node_right);
                if (n->node_left) stack.push_back(n->node_left);
                continue;
            }
            if (n->node_op != dt::EXPR_WORD) continue;
            const char *w = n->node_word.data();
            int len = (int)n->node_word.size();
            int weight = n->node_querycnt;
            ServerCall([&] {
                Datum values[2] = {PointerGetDatum(cstring_to_text_with_len(w, len)), Int32GetDatum(weight)};
                bool nulls[2] = {false, false};
                tuplestore_putvalues(rsinfo->setResult, rsinfo->setDesc, values, nulls);
            });
        }
        return (Datum)0;
    });
}

// dt_QueryOptions(words): the options prefix of a word list: the row
// limit (-1: none), the percentage (as a fraction) and the words after it.
Datum pgdoc_dt_QueryOptions(PG_FUNCTION_ARGS) {
    return dt::pg::Guard([&]() -> Datum {
        std::string input = TextArg(fcinfo, 0);
        int tupcnt = 0;
        float percent = 0;
        const char *rest = dt::_dt_GetTupcntPercent(input.c_str(), &tupcnt, &percent);
        std::string words = rest ? rest : "";
        TupleDesc desc;
        ServerCall([&] {
            if (get_call_result_type(fcinfo, nullptr, &desc) != TYPEFUNC_COMPOSITE)
                elog(ERROR, "dt_QueryOptions must return a record");
            desc = BlessTupleDesc(desc);
        });
        const char *w = words.data();
        int len = (int)words.size();
        HeapTuple tup = ServerCall([&] {
            Datum values[3] = {Int32GetDatum(tupcnt), Float4GetDatum(percent),
                               PointerGetDatum(cstring_to_text_with_len(w, len))};
            bool nulls[3] = {false, false, false};
            return heap_form_tuple(desc, values, nulls);
        });
        return HeapTupleGetDatum(tup);
    });
}

// Restriction estimators of doc @@ text (a query) and doc @@@ text (a word
// list): the query is parsed and rewritten; a query nothing matches gets 0,
// one everything matches 1, otherwise each word counts kWordSel, combined
// as independent events.
Datum pgdoc_dt_querysel(PG_FUNCTION_ARGS) {
    return dt::pg::Guard([&]() -> Datum { return QuerySel(fcinfo, kContainsQuery); });
}
Datum pgdoc_dt_wordlistsel(PG_FUNCTION_ARGS) {
    return dt::pg::Guard([&]() -> Datum { return QuerySel(fcinfo, kWordListQuery); });
}

// Restriction estimator of doc % doc: a fixed fraction (a document shares
// some term with many others).
Datum pgdoc_dt_doclikesel(PG_FUNCTION_ARGS) {
    return dt::pg::Guard([&]() -> Datum { return ClampSel(kDocLikeSel); });
}

// Planner support of Contains, ContainsWords and DocLike: a call in a
// WHERE clause is estimated exactly as the operator that spells it
// (@@, @@@, %), so both spellings get the same row count, and it becomes
// that operator's condition on a dtree index of the column.
Datum pgdoc_dt_search_support(PG_FUNCTION_ARGS) {
    return dt::pg::Guard([&]() -> Datum {
        Node *rawreq = InternalArg<Node>(fcinfo, 0);
        if (IsA(rawreq, SupportRequestIndexCondition)) {
            // Contains(body, q) on a column with a dtree index: the index
            // condition body @@ q (and @@@, % for the other two).
            auto *req = (SupportRequestIndexCondition *)rawreq;
            List *conds = ServerCall([&]() -> List * {
                if (req->indexarg != 0 || !is_funcclause(req->node)) return NIL;
                FuncExpr *fe = (FuncExpr *)req->node;
                if (list_length(fe->args) != 2) return NIL;
                char *fname = get_func_name(req->funcid);
                if (!fname) return NIL;
                int strategy = strcmp(fname, "contains") == 0        ? 1
                               : strcmp(fname, "containswords") == 0 ? 2
                               : strcmp(fname, "doclike") == 0       ? 3
                                                                     : 0;
                if (strategy == 0) return NIL;
                Node *left = (Node *)linitial(fe->args), *right = (Node *)lsecond(fe->args);
                // The other side must be known before the scan starts.
                if (bms_is_member(req->index->rel->relid, pull_varnos(req->root, right)) ||
                    contain_volatile_functions(right))
                    return NIL;
                Oid opno = get_opfamily_member(req->opfamily, exprType(left), exprType(right), strategy);
                if (!OidIsValid(opno)) return NIL;
                req->lossy = false;
                return list_make1(make_opclause(opno, BOOLOID, false, (Expr *)left, (Expr *)right, InvalidOid,
                                                fe->inputcollid));
            });
            return PointerGetDatum(conds);
        }
        if (!IsA(rawreq, SupportRequestSelectivity)) return PointerGetDatum(nullptr);
        auto *req = (SupportRequestSelectivity *)rawreq;
        if (req->is_join) return PointerGetDatum(nullptr);
        char *name = ServerCall([&] { return get_func_name(req->funcid); });
        if (!name) return PointerGetDatum(nullptr);
        std::string fn = name;
        QueryKind kind = fn == "contains" ? kContainsQuery : fn == "containswords" ? kWordListQuery : kDocQuery;
        req->selectivity = DatumGetFloat8(SearchSel(req->root, req->args, req->varRelid, kind));
        return PointerGetDatum(req);
    });
}
