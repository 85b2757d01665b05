// The search operators on one row: Contains, ContainsWords, DocLike; the
// queries made from documents (MakeQueryFromDoc); and views of a query
// (PrintExprTree, dt_PrintWordList, dt_QueryTerms, dt_QueryOptions); and
// the entry points of the search operators' estimators (searchsel.h).
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
#include "searchsel.h"
#include "snapkey.h"
#include "stopwords.h"
#include "wordnet.h"

extern "C" {
#include "catalog/pg_type.h"
#include "funcapi.h"
#include "nodes/pathnodes.h"
#include "optimizer/cost.h"
#include "nodes/supportnodes.h"
#include "nodes/makefuncs.h"
#include "nodes/nodeFuncs.h"
#include "optimizer/optimizer.h"
#include "parser/parse_oper.h"
#include "utils/lsyscache.h"
#include "utils/inval.h"
#include "utils/syscache.h"
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

// The strategy number of a kind of search (as the dtree operator class
// numbers them).
int KindStrategy(QueryKind kind) { return kind == kContainsQuery ? 1 : kind == kWordListQuery ? 2 : 3; }

Datum QuerySel(FunctionCallInfo fcinfo, QueryKind kind) {
    return Float8GetDatum(dt::pg::SearchSelectivity(InternalArg<PlannerInfo>(fcinfo, 0), InternalArg<List>(fcinfo, 2),
                                                    Int32Arg(fcinfo, 3), KindStrategy(kind)));
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

namespace {

// The operator a search function is the code of (@@ of Contains, @@@ of
// ContainsWords, % of DocLike), looked up in the function's own schema,
// never on the search path; InvalidOid when there is none.  The planner
// asks for every search it simplifies, operators included, so the answers
// are kept until operators, functions or schemas change.
struct SearchOperatorKey {
    Oid func, left, right;
};
struct SearchOperatorMemo {
    SearchOperatorKey key;
    Oid opno;
};
std::vector<SearchOperatorMemo> searchOperators;
bool searchOperatorsWatched = false;

void ForgetSearchOperators(Datum, int, uint32) { searchOperators.clear(); }

Oid SearchOperatorOf(const SearchOperatorKey &key) {
    if (!searchOperatorsWatched) {
        ServerCall([&] {
            CacheRegisterSyscacheCallback(OPEROID, ForgetSearchOperators, (Datum)0);
            CacheRegisterSyscacheCallback(PROCOID, ForgetSearchOperators, (Datum)0);
            CacheRegisterSyscacheCallback(NAMESPACEOID, ForgetSearchOperators, (Datum)0);
        });
        searchOperatorsWatched = true;
    }
    for (const SearchOperatorMemo &m : searchOperators)
        if (m.key.func == key.func && m.key.left == key.left && m.key.right == key.right) return m.opno;
    Oid opno = ServerCall([&]() -> Oid {
        char *fname = get_func_name(key.func);
        char *nsp = get_namespace_name(get_func_namespace(key.func));
        if (!fname || !nsp) return InvalidOid;
        const char *opname = strcmp(fname, "contains") == 0        ? "@@"
                             : strcmp(fname, "containswords") == 0 ? "@@@"
                             : strcmp(fname, "doclike") == 0       ? "%"
                                                                   : nullptr;
        if (!opname) return InvalidOid;
        Oid o = LookupOperName(NULL, list_make2(makeString(nsp), makeString(pstrdup(opname))), key.left, key.right,
                               true, -1);
        return OidIsValid(o) && get_opcode(o) == key.func ? o : InvalidOid;
    });
    searchOperators.push_back(SearchOperatorMemo{key, opno});
    return opno;
}

}  // namespace

// Restriction estimators of doc @@ text (a query), doc @@@ text (a word
// list) and doc % doc (another document's terms): see searchsel.h.
Datum pgdoc_dt_querysel(PG_FUNCTION_ARGS) {
    return dt::pg::Guard([&]() -> Datum { return QuerySel(fcinfo, kContainsQuery); });
}
Datum pgdoc_dt_wordlistsel(PG_FUNCTION_ARGS) {
    return dt::pg::Guard([&]() -> Datum { return QuerySel(fcinfo, kWordListQuery); });
}

Datum pgdoc_dt_doclikesel(PG_FUNCTION_ARGS) {
    return dt::pg::Guard([&]() -> Datum { return QuerySel(fcinfo, kDocQuery); });
}

// Planner support of Contains, ContainsWords and DocLike: a call in a
// WHERE clause is estimated exactly as the operator that spells it
// (@@, @@@, %), so both spellings get the same row count, and it becomes
// that operator's condition on a dtree index of the column.  The cost of a
// call (of both spellings) is the function's own, or one operator for a
// query that does not read the document.
Datum pgdoc_dt_search_support(PG_FUNCTION_ARGS) {
    return dt::pg::Guard([&]() -> Datum {
        Node *rawreq = InternalArg<Node>(fcinfo, 0);
        if (IsA(rawreq, SupportRequestSimplify)) {
            // Contains(body, q) is body @@ q (and ContainsWords @@@,
            // DocLike %): the planner then treats both spellings alike
            // everywhere, including the rows a bitmap scan returns, which
            // need no second evaluation.  The operator is looked up in the
            // function's own schema, never on the search path.
            auto *req = (SupportRequestSimplify *)rawreq;
            FuncExpr *fe = req->fcall;
            if (!fe || list_length(fe->args) != 2) return PointerGetDatum(nullptr);
            Node *left = (Node *)linitial(fe->args), *right = (Node *)lsecond(fe->args);
            SearchOperatorKey key{fe->funcid, InvalidOid, InvalidOid};
            ServerCall([&] {
                key.left = exprType(left);
                key.right = exprType(right);
            });
            Oid opno = SearchOperatorOf(key);
            if (!OidIsValid(opno)) return PointerGetDatum(nullptr);
            Node *op = ServerCall([&]() -> Node * {
                return (Node *)make_opclause(opno, BOOLOID, false, (Expr *)left, (Expr *)right, InvalidOid,
                                             fe->inputcollid);
            });
            return PointerGetDatum(op);
        }
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
        if (IsA(rawreq, SupportRequestCost)) {
            // A query that matches every document (stop words only) or
            // none never reads the row's document.
            auto *req = (SupportRequestCost *)rawreq;
            if (!req->node) return PointerGetDatum(nullptr);
            char *name = ServerCall([&] { return get_func_name(req->funcid); });
            if (!name) return PointerGetDatum(nullptr);
            std::string fn = name;
            QueryKind kind = fn == "contains" ? kContainsQuery : fn == "containswords" ? kWordListQuery : kDocQuery;
            List *args = IsA(req->node, FuncExpr) ? ((FuncExpr *)req->node)->args
                         : IsA(req->node, OpExpr) ? ((OpExpr *)req->node)->args
                                                  : NIL;
            if (!dt::pg::SearchSkipsDocument(args, KindStrategy(kind))) return PointerGetDatum(nullptr);
            req->startup = 0;
            req->per_tuple = cpu_operator_cost;
            return PointerGetDatum(req);
        }
        if (!IsA(rawreq, SupportRequestSelectivity)) return PointerGetDatum(nullptr);
        auto *req = (SupportRequestSelectivity *)rawreq;
        if (req->is_join) return PointerGetDatum(nullptr);
        char *name = ServerCall([&] { return get_func_name(req->funcid); });
        if (!name) return PointerGetDatum(nullptr);
        std::string fn = name;
        QueryKind kind = fn == "contains" ? kContainsQuery : fn == "containswords" ? kWordListQuery : kDocQuery;
        req->selectivity = dt::pg::SearchSelectivity(req->root, req->args, req->varRelid, KindStrategy(kind));
        return PointerGetDatum(req);
    });
}
