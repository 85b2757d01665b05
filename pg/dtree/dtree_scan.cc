// Scans of a dtree index: the whole query is evaluated at the first fetch
// into a result set of row identifiers (each scan key's query tree leaf by
// leaf over the postings of its terms, the keys joined by AND), then handed
// out by amgettuple one row at a time or by amgetbitmap at once.  The index
// does not know visibility: the executor checks each row against the
// scan's snapshot, as it does for every index.
#include <algorithm>

#include "dtree_internal.h"
#include "dtree_read.h"
#include "resultset.h"
#include "searchquery.h"

extern "C" {
#include "access/relscan.h"
#include "nodes/tidbitmap.h"
#include "utils/memutils.h"
#include "utils/selfuncs.h"
}

namespace {

struct DtScanState {
    MemoryContext cxt;     // the result set lives here
    bool built;
    ItemPointerData *tids;
    int64 ntids;
    int64 pos;             // next row to hand out
};

struct KeyArray {
    uint64 *keys;
    int64 n, cap;
};

// Reads an iterator's rows into keys (C-level: may raise).
void CollectC(DtPostingIter *it, KeyArray *out) {
    DtPosting p;
    while (DtNextPosting(it, &p)) {
        CHECK_FOR_INTERRUPTS();
        uint64 key = dt::MakeRowKey(ItemPointerGetBlockNumberNoCheck(&p.tid), ItemPointerGetOffsetNumberNoCheck(&p.tid));
        if (out->n > 0 && out->keys[out->n - 1] == key) continue;  // repeats of a row are adjacent
        if (out->n == out->cap) {
            out->cap = out->cap ? out->cap * 2 : 1024;
            out->keys = out->keys ? (uint64 *)repalloc_huge(out->keys, out->cap * sizeof(uint64))
                                  : (uint64 *)palloc_extended(out->cap * sizeof(uint64), MCXT_ALLOC_HUGE);
        }
        out->keys[out->n++] = key;
    }
    DtEndPostings(it);
}

dt::RowSet Rows(Relation index, const std::string *term) {
    KeyArray ka{nullptr, 0, 0};
    dt::pg::ServerCall([&] {
        CollectC(term ? DtBeginTermPostings(index, term->data(), (int)term->size()) : DtBeginAllDocs(index), &ka);
    });
    dt::RowSet out(ka.keys, ka.keys + ka.n);
    if (ka.keys) dt::pg::ServerCall([&] { pfree(ka.keys); });
    std::sort(out.begin(), out.end());
    out.erase(std::unique(out.begin(), out.end()), out.end());
    return out;
}

// Evaluates every scan key and keeps the rows all of them match.
void BuildResult(IndexScanDesc scan, DtScanState *st) {
    Relation index = scan->indexRelation;
    dt::RowSet rows;
    for (int k = 0; k < scan->numberOfKeys; k++) {
        dt::pg::CheckInterrupts();
        ScanKey sk = &scan->keyData[k];
        if (sk->sk_flags & SK_ISNULL) {  // the search operators are strict
            rows.clear();
            break;
        }
        if (sk->sk_strategy < 1 || sk->sk_strategy > 3) dt::ErrorRaiseVA("XD003");
        dt::ExprArena arena;
        dt::DocExprNode *tree = dt::pg::SearchTree(arena, sk->sk_strategy, sk->sk_argument);
        dt::RowSource src;
        src.rowsWithTerm = [&](const std::string &term) { return Rows(index, &term); };
        src.allRows = [&] { return Rows(index, nullptr); };
        dt::RowSet r = dt::EvaluateRows(tree, src);
        rows = k == 0 ? std::move(r) : dt::RowSetAnd(rows, r);
        if (rows.empty()) break;
    }
    int64 n = (int64)rows.size();
    MemoryContext cxt = st->cxt;
    ItemPointerData *tids = dt::pg::ServerCall([&] {
        return (ItemPointerData *)MemoryContextAllocExtended(cxt, Max(n, 1) * sizeof(ItemPointerData), MCXT_ALLOC_HUGE);
    });
    for (int64 i = 0; i < n; i++)
        ItemPointerSet(&tids[i], dt::RowKeyBlock(rows[i]), dt::RowKeyOffset(rows[i]));
    st->tids = tids;
    st->ntids = n;
    st->pos = 0;
    st->built = true;
}

}  // namespace

IndexScanDesc dtbeginscan(Relation index, int nkeys, int norderbys) {
    return dt::pg::Guard([&]() -> IndexScanDesc {
        return dt::pg::ServerCall([&] {
            IndexScanDesc scan = RelationGetIndexScan(index, nkeys, norderbys);
            DtScanState *st = (DtScanState *)palloc0(sizeof(DtScanState));
            st->cxt = AllocSetContextCreate(CurrentMemoryContext, "dtree scan", ALLOCSET_DEFAULT_SIZES);
            scan->opaque = st;
            return scan;
        });
    });
}

void dtrescan(IndexScanDesc scan, ScanKey keys, int nkeys, ScanKey orderbys, int norderbys) {
    dt::pg::Guard([&]() -> int {
        DtScanState *st = (DtScanState *)scan->opaque;
        dt::pg::ServerCall([&] {
            if (keys && scan->numberOfKeys > 0) memmove(scan->keyData, keys, scan->numberOfKeys * sizeof(ScanKeyData));
            MemoryContextReset(st->cxt);
        });
        st->built = false;
        st->tids = nullptr;
        st->ntids = 0;
        st->pos = 0;
        return 0;
    });
}

bool dtgettuple(IndexScanDesc scan, ScanDirection dir) {
    return dt::pg::Guard([&]() -> bool {
        DtScanState *st = (DtScanState *)scan->opaque;
        if (!st->built) BuildResult(scan, st);
        if (st->pos >= st->ntids) return false;
        scan->xs_heaptid = st->tids[st->pos++];
        scan->xs_recheck = false;
        return true;
    });
}

int64 dtgetbitmap(IndexScanDesc scan, TIDBitmap *tbm) {
    return dt::pg::Guard([&]() -> int64 {
        DtScanState *st = (DtScanState *)scan->opaque;
        if (!st->built) BuildResult(scan, st);
        ItemPointerData *tids = st->tids;
        int64 n = st->ntids;
        dt::pg::ServerCall([&] {
            for (int64 i = 0; i < n; i += 4096) {
                CHECK_FOR_INTERRUPTS();
                tbm_add_tuples(tbm, tids + i, (int)Min((int64)4096, n - i), false);
            }
        });
        return n;
    });
}

void dtendscan(IndexScanDesc scan) {
    dt::pg::Guard([&]() -> int {
        DtScanState *st = (DtScanState *)scan->opaque;
        dt::pg::ServerCall([&] { MemoryContextDelete(st->cxt); });
        return 0;
    });
}

// The planner's cost of a scan: the server's generic estimate from the
// conditions' selectivity, the index's size and its rows.
void DtScanCostEstimate(PlannerInfo *root, IndexPath *path, double loop_count, Cost *indexStartupCost,
                        Cost *indexTotalCost, Selectivity *indexSelectivity, double *indexCorrelation,
                        double *indexPages) {
    GenericCosts costs;
    MemSet(&costs, 0, sizeof(costs));
    genericcostestimate(root, path, loop_count, &costs);
    // The whole result is built before the first row comes out.
    *indexStartupCost = costs.indexTotalCost;
    *indexTotalCost = costs.indexTotalCost;
    *indexSelectivity = costs.indexSelectivity;
    *indexCorrelation = costs.indexCorrelation;
    *indexPages = costs.numIndexPages;
}
