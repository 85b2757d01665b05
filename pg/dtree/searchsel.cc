// Restriction selectivity of the search operators and their function forms.
//
// A search whose other side is not a known constant (a parameter of a
// generic plan, a subquery) gets the model's figure: a query term matches
// one document in avg_term_cnt, the average number of terms per document
// that ANALYZE stored for the column (docstats.h); without it 0.1 with the
// column on the left and 0.01 with it on the right.  Two columns, or two
// constants, give 0.5.
//
// With a constant, the query is parsed, stemmed and rewritten as the
// search will do it, and each word gets a fraction of its own:
//   - from a dtree index on the column, when there is one: the word's
//     document frequency (its number of postings) over the index's number
//     of documents: exact up to rows VACUUM has not removed yet;
//   - else the model's figure above.
// The words combine as independent events (core/treeselectivity), so a
// query of stop words only (every document with a term) comes out 1 and
// the planner reads the table instead of the index.  The result is scaled
// by the column's non-null fraction (null documents match nothing).
//
// One planning reads each constant query once (PlanQuery): the parse, the
// words' figures per index and the index's counters serve the selectivity,
// the cost of a call and every index path's cost of that planning.
#include "searchsel.h"

#include <cstring>
#include <memory>
#include <string>
#include <unordered_map>
#include <vector>

#include "docscan.h"
#include "docstats.h"
#include "doclayout.h"
#include "docvalue.h"
#include "dtree_read.h"
#include "searchquery.h"
#include "treeselectivity.h"
#include "wordnet.h"

extern "C" {
#include "access/genam.h"
#include "catalog/pg_statistic.h"
#include "commands/defrem.h"
#include "access/htup_details.h"
#include "optimizer/planner.h"
#include "parser/parsetree.h"
#include "utils/selfuncs.h"
}

namespace {

using dt::pg::ServerCall;

// What the planner knows of the searched column and the other side.
struct SearchSide {
    bool found = false;      // one side is a column of the relation
    bool columnOnLeft = true;
    bool isConst = false;
    bool constNull = false;
    Datum value = (Datum) 0;
    bool figureRead = false;  // haveFigure and avgTerms were read
    bool haveFigure = false;
    int avgTerms = 0;
    double nullfrac = 0.0;
    Oid index = InvalidOid;  // a dtree index on the column
};

// A dtree index whose only key is column attno of rel.
Oid FindDtreeIndex(RelOptInfo *rel, AttrNumber attno) {
    Oid am = get_index_am_oid("dtree", true);
    if (!OidIsValid(am) || rel == NULL || !IS_SIMPLE_REL(rel)) return InvalidOid;
    ListCell *lc;
    foreach (lc, rel->indexlist) {
        IndexOptInfo *ix = (IndexOptInfo *) lfirst(lc);
        if (ix->relam == am && !ix->hypothetical && ix->nkeycolumns >= 1 && ix->indexkeys[0] == attno &&
            ix->indpred == NIL)
            return ix->indexoid;
    }
    return InvalidOid;
}

// The statistics' average number of terms is read only when the estimate
// may need it (wantFigure, or no index figures to take instead).
SearchSide ExamineSearch(PlannerInfo *root, List *args, int varRelid, bool wantFigure) {
    SearchSide s;
    ServerCall([&] {
        VariableStatData vardata;
        Node *other;
        bool varonleft;
        if (!get_restriction_variable(root, args, varRelid, &vardata, &other, &varonleft)) return;
        s.found = true;
        s.columnOnLeft = varonleft;
        if (IsA(other, Const)) {
            s.isConst = true;
            s.constNull = ((Const *) other)->constisnull;
            s.value = ((Const *) other)->constvalue;
        }
        Node *var = vardata.var;
        while (var && IsA(var, RelabelType)) var = (Node *) ((RelabelType *) var)->arg;
        // (A parent's index does not cover the rows of its children.)
        if (var && IsA(var, Var) && vardata.rel && ((Var *) var)->varno == (int) vardata.rel->relid &&
            !planner_rt_fetch(vardata.rel->relid, root)->inh)
            s.index = FindDtreeIndex(vardata.rel, ((Var *) var)->varattno);
        if (HeapTupleIsValid(vardata.statsTuple)) {
            s.nullfrac = ((Form_pg_statistic) GETSTRUCT(vardata.statsTuple))->stanullfrac;
            if (wantFigure || !s.isConst || !varonleft || !OidIsValid(s.index)) {
                s.haveFigure = DtStatsTupleTerms(vardata.statsTuple, &s.avgTerms);
                s.figureRead = true;
            }
        } else {
            s.figureRead = true;
        }
        ReleaseVariableStats(vardata);
    });
    return s;
}

// The document frequency of each word over the index's documents: the
// words' entries are looked up once per planning and kept for its scans.
dt::pg::PlannedQuery::Figures ReadIndexFigures(Oid indexoid, const std::vector<std::string> &words);

// The queries read by the current planning.  The planner hook counts
// plannings; a memo of an earlier count is dropped (its readings live on
// in whoever still holds them).
struct QueryMemo {
    int strategy = 0;
    std::string bytes;  // the query value's bytes as the planner holds it
    std::shared_ptr<dt::pg::PlannedQuery> q;
};

uint64 planning = 0;
uint64 memoPlanning = 0;
std::vector<QueryMemo> memo;
// The indexes read: their counters (read before any entry), and the
// entries looked up.
struct IndexMemo {
    Oid index = InvalidOid;
    DtMetaInfo meta{};
    std::shared_ptr<dt::pg::PlannedEntries> entries;
};
std::vector<IndexMemo> memoIndexes;
constexpr size_t kMemoQueries = 16;
// A larger query value (a whole document searched for as is) is read again
// each time rather than kept.
constexpr size_t kMemoValueBytes = 64 * 1024;
// The leaf entries one planning keeps for its scans, per index: beyond
// this (the words of a whole document), only their counts are kept.
constexpr size_t kMemoEntryBytes = 256 * 1024;
planner_hook_type previousPlanner = nullptr;

PlannedStmt *CountingPlanner(Query *parse, const char *query_string, int cursorOptions, ParamListInfo boundParams) {
    planning++;
    if (previousPlanner) return previousPlanner(parse, query_string, cursorOptions, boundParams);
    return standard_planner(parse, query_string, cursorOptions, boundParams);
}

// The size and bytes of a query value (a varlena, as the planner's
// constant holds it: not detoasted).
size_t ValueSize(Datum value) { return VARSIZE_ANY((const char *) DatumGetPointer(value)); }

std::string ValueBytes(Datum value) { return std::string((const char *) DatumGetPointer(value), ValueSize(value)); }

// The memo of the query value of a search of this strategy, if kept.
const QueryMemo *FindQueryMemo(int strategy, Datum value) {
    size_t size = ValueSize(value);
    if (size > kMemoValueBytes) return nullptr;
    const char *bytes = (const char *) DatumGetPointer(value);
    for (const QueryMemo &e : memo)
        if (e.strategy == strategy && e.bytes.size() == size && memcmp(e.bytes.data(), bytes, size) == 0) return &e;
    return nullptr;
}

// Drops the memo of an earlier planning.
void MemoForThisPlanning() {
    if (memoPlanning == planning) return;
    memo.clear();
    memoIndexes.clear();
    memoPlanning = planning;
}

}  // namespace

void dt::pg::InstallPlannerCount() {
    previousPlanner = planner_hook;
    planner_hook = CountingPlanner;
}

namespace {

IndexMemo *FindIndexMemo(Oid indexoid) {
    MemoForThisPlanning();
    for (IndexMemo &m : memoIndexes)
        if (m.index == indexoid) return &m;
    return nullptr;
}

IndexMemo &AddIndexMemo(Oid indexoid, const DtMetaInfo &meta, Oid relfilenode) {
    IndexMemo m;
    m.index = indexoid;
    m.meta = meta;
    m.entries = std::make_shared<dt::pg::PlannedEntries>();
    m.entries->relfilenode = relfilenode;
    m.entries->changes = meta.changes;
    memoIndexes.push_back(std::move(m));
    return memoIndexes.back();
}

// The counters and relation file of an open index.  Runs inside ServerCall.
void ReadIndexHeadC(Relation index, DtMetaInfo *mi, Oid *node) {
    DtReadMeta(index, mi);
    *node = index->rd_node.relNode;
}

IndexMemo &IndexMemoOf(Oid indexoid) {
    if (IndexMemo *m = FindIndexMemo(indexoid)) return *m;
    DtMetaInfo mi;
    Oid node = InvalidOid;
    ServerCall([&] {
        Relation index = index_open(indexoid, AccessShareLock);
        ReadIndexHeadC(index, &mi, &node);
        index_close(index, AccessShareLock);
    });
    return AddIndexMemo(indexoid, mi, node);
}

dt::pg::PlannedQuery::Figures ReadIndexFigures(Oid indexoid, const std::vector<std::string> &words) {
    IndexMemo *m = FindIndexMemo(indexoid);
    std::vector<const std::string *> todo;
    for (const std::string &w : words)
        if (!m || !m->entries->words.count(w)) todo.push_back(&w);
    if (!m || !todo.empty()) {
        // The counters first, then the entries (whose copies hold while the
        // change count read here stays).
        bool readMeta = m == nullptr;
        DtMetaInfo mi;
        Oid node = InvalidOid;
        int n = (int) todo.size();
        const std::string *const *t = todo.data();
        DtTermEntry **found = nullptr;
        ServerCall([&] {
            Relation index = index_open(indexoid, AccessShareLock);
            if (readMeta) ReadIndexHeadC(index, &mi, &node);
            found = (DtTermEntry **) palloc0(sizeof(DtTermEntry *) * (n + 1));
            for (int i = 0; i < n; i++) {
                if ((i & 1023) == 1023) CHECK_FOR_INTERRUPTS();
                found[i] = DtLookupTerm(index, t[i]->data(), (int) t[i]->size());
            }
            index_close(index, AccessShareLock);
        });
        if (readMeta) m = &AddIndexMemo(indexoid, mi, node);
        // (Entries not freed after an exception go with the planner's memory.)
        for (int i = 0; i < n; i++) {
            const void *item = nullptr;
            Size len = DtTermEntryItem(found[i], &item);
            dt::pg::PlannedEntries::Entry e;
            e.count = DtTermEntryCount(found[i]);
            if (m->entries->keptBytes + len <= kMemoEntryBytes) {
                e.kept = true;
                e.item.assign((const char *) item, len);
                m->entries->keptBytes += len;
            }
            m->entries->words.emplace(*t[i], std::move(e));
        }
        ServerCall([&] {
            for (int i = 0; i < n; i++) DtFreeTermEntry(found[i]);
            pfree(found);
        });
    }
    dt::pg::PlannedQuery::Figures f;
    f.index = indexoid;
    f.numdocs = m->meta.numdocs;
    f.counts.reserve(words.size());
    for (const std::string &w : words) f.counts.push_back(m->entries->words.at(w).count);
    return f;
}

}  // namespace

DtMetaInfo dt::pg::PlannedIndexMeta(Oid indexoid) { return IndexMemoOf(indexoid).meta; }

std::shared_ptr<const dt::pg::PlannedEntries> dt::pg::PlannedEntriesOf(Relation index) {
    for (const IndexMemo &m : memoIndexes)
        if (m.index == RelationGetRelid(index))
            return m.entries->relfilenode == index->rd_node.relNode ? m.entries : nullptr;
    return nullptr;
}

std::shared_ptr<dt::pg::PlannedQuery> dt::pg::PlanQuery(int strategy, Datum value) {
    MemoForThisPlanning();
    if (const QueryMemo *e = FindQueryMemo(strategy, value)) return e->q;
    auto q = std::make_shared<PlannedQuery>();
    q->parsed = PlannerSearchTree(q->arena, strategy, value, &q->tree, &q->cuts);
    // (The parse's open of the WordNet tables is the last one.)
    if (q->parsed && strategy != 3) q->wordnetVersion = WordnetVersionKey();
    if (q->tree)
        dt::ForEachLeaf(q->tree, [&](const dt::DocExprNode &n) {
            if (n.node_op == dt::EXPR_WORD) q->words.push_back(n.node_word);
        });
    // (Parsing may have planned other statements: the memo is checked again.)
    MemoForThisPlanning();
    if (ValueSize(value) > kMemoValueBytes) return q;
    if (memo.size() >= kMemoQueries) memo.erase(memo.begin());
    memo.push_back(QueryMemo{strategy, ValueBytes(value), q});
    return q;
}

bool dt::pg::PlannedScanTree(dt::ExprArena &arena, const ScanCondition &c, dt::DocExprNode **tree,
                             dt::ScanCuts *cuts) {
    if (c.strategy == 3) return false;
    const QueryMemo *e = FindQueryMemo(c.strategy, c.argument);
    std::shared_ptr<const PlannedQuery> q = e ? e->q : nullptr;
    if (!q || !q->parsed || q->wordnetVersion.empty()) return false;
    {
        WordnetScope wn;
        if (q->wordnetVersion != WordnetVersionKey()) return false;
    }
    *tree = dt::CopyExprTree(arena, q->tree);
    *cuts = q->cuts;
    return true;
}

dt::pg::PlannedQuery::Figures dt::pg::PlannedFigures(PlannedQuery &q, Oid indexoid) {
    for (const PlannedQuery::Figures &f : q.figures)
        if (f.index == indexoid) return f;
    q.figures.push_back(ReadIndexFigures(indexoid, q.words));
    return q.figures.back();
}

bool dt::pg::PlannerSearchTree(dt::ExprArena &arena, int strategy, Datum value, dt::DocExprNode **tree,
                               dt::ScanCuts *cuts) {
    *tree = nullptr;
    *cuts = dt::ScanCuts();
    if (strategy == 3) {
        const void *doc = dt::pg::DocFromDatum(value);
        auto handle = dt::DocLOHandleExternal(doc);
        if (handle && dt::IsExternalHandle(*handle)) return false;
    }
    try {
        *tree = dt::pg::ScanTree(arena, {dt::pg::ScanCondition{strategy, value}}, cuts);
    } catch (const dt::Error &e) {
        // The parser's own refusals; errors of the server are not swallowed.
        const std::string &c = e.code();
        if (!e.fromServer() && (c == "XD00I" || c == "XD00J" || c == "XD00K" || c == "XD00L" || c == "54001"))
            return false;
        throw;
    }
    return true;
}

bool dt::pg::SearchSkipsDocument(List *args, int strategy) {
    if (list_length(args) != 2) return false;
    Node *arg = (Node *) lsecond(args);
    if (!IsA(arg, Const)) return false;
    if (((Const *) arg)->constisnull) return true;
    std::shared_ptr<PlannedQuery> q = PlanQuery(strategy, ((Const *) arg)->constvalue);
    if (!q->parsed) return false;
    return q->tree == nullptr || q->tree->node_op == dt::EXPR_ALL || q->tree->node_op == dt::EXPR_NONE;
}

double dt::pg::SearchSelectivity(PlannerInfo *root, List *args, int varRelid, int strategy) {
    SearchSide s = ExamineSearch(root, args, varRelid, false);
    if (!s.found) return 0.5;
    if (s.isConst && s.constNull) return 0.0;
    double nonnull = 1.0 - s.nullfrac;
    auto model = [&] {
        if (!s.figureRead) s = ExamineSearch(root, args, varRelid, true);
        return DtModelSelectivity(s.haveFigure, s.avgTerms, s.columnOnLeft);
    };
    if (!s.isConst || !s.columnOnLeft) return model() * nonnull;
    std::shared_ptr<PlannedQuery> q = PlanQuery(strategy, s.value);
    if (!q->parsed) return model() * nonnull;
    const dt::DocExprNode *tree = q->tree;
    if (!OidIsValid(s.index)) {
        double m = model();
        return dt::TreeFraction(tree, [&](const dt::DocExprNode &) { return m; }) * nonnull;
    }
    PlannedQuery::Figures f = PlannedFigures(*q, s.index);
    auto fraction = [&](size_t i) { return f.numdocs > 0 ? (double) f.counts[i] / (double) f.numdocs : 0.0; };
    const std::vector<std::string> &words = q->words;
    double sel;
    if (words.size() <= 8) {
        // A few words: each found by a look along them.
        sel = dt::TreeFraction(tree, [&](const dt::DocExprNode &n) {
            for (size_t i = 0; i < words.size(); i++)
                if (words[i] == n.node_word) return fraction(i);
            return 0.0;
        });
    } else {
        std::unordered_map<std::string, double> byWord;
        for (size_t i = 0; i < words.size(); i++) byWord[words[i]] = fraction(i);
        sel = dt::TreeFraction(tree, [&](const dt::DocExprNode &n) { return byWord[n.node_word]; });
    }
    return sel * nonnull;
}
