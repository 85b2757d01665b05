// Scans of a dtree index.  The first fetch evaluates the whole query (the
// conditions' query trees joined by AND, rewritten once) into a result
// set; amgettuple then hands the rows out in rank order (falling weight,
// cut to the row count or weight threshold the query's options prefix
// asks for), forward and backward, with mark and restore; amgetbitmap adds
// them all to the bitmap at once.
//
// With ORDER BY doc <=> query, the rows of the conditions come out by
// rising distance, one minus the row's weight for that query (1 for a row
// the query does not match).  The executor computes doc <=> query again
// for rows the scan returned (to project them, or a merge join to compare
// them): the operator then finds the row among those the latest scan
// ordered by the same query has handed out, by its document, and reads its
// distance (DtRowDistance).
#include <algorithm>
#include <new>

#include "dtree_evaluate.h"
#include "dtree_internal.h"
#include "error.h"
#include "ranking.h"

extern "C" {
#include "access/heapam.h"
#include "access/htup_details.h"
#include "access/relscan.h"
#include "access/tableam.h"
#include "executor/tuptable.h"
#include "nodes/tidbitmap.h"
#include "utils/builtins.h"
#include "utils/memutils.h"
}

namespace {

using dt::pg::ServerCall;

struct DtScanState {
    MemoryContext cxt;  // the result lives here
    bool built;
    ItemPointerData *tids;
    double *distances;  // ranked scans with ORDER BY: norderbys per row
    int64 ntids;
    int64 current;      // the row last handed out, or -1
    int64 furthest;     // the furthest row handed out, or -1
    IndexScanDesc scan;
    dt::RankedCursor cursor;
    // Scans with ORDER BY are listed while they exist, so that
    // doc <=> query can find the distance of a row they handed out.
    int norderbys;
    text **orderQueries;  // in cxt
    uint64 stamp;         // when it last returned a row
    DtScanState *prev, *next;
    MemoryContext keeper;  // deleted with the scan: unlists it
    MemoryContextCallback unlist;
    // Reading back a row the scan handed out (DtRowDistance); in keeper.
    IndexFetchTableData *rowFetch;
    TupleTableSlot *rowSlot;
};

DtScanState *g_orderedScans = nullptr;
uint64 g_orderStamp = 0;

void Unlist(void *arg) {
    DtScanState *st = (DtScanState *)arg;
    if (st->prev) st->prev->next = st->next;
    else if (g_orderedScans == st) g_orderedScans = st->next;
    if (st->next) st->next->prev = st->prev;
    st->prev = st->next = nullptr;
}

// The scan's conditions (the caller has made sure none is null).
std::vector<dt::pg::ScanCondition> Conditions(IndexScanDesc scan) {
    std::vector<dt::pg::ScanCondition> conds;
    for (int k = 0; k < scan->numberOfKeys; k++) {
        ScanKey sk = &scan->keyData[k];
        if (sk->sk_strategy < 1 || sk->sk_strategy > 3) dt::ErrorRaiseVA("XD003");
        conds.push_back(dt::pg::ScanCondition{(int)sk->sk_strategy, sk->sk_argument});
    }
    return conds;
}

// A null condition matches nothing (the search operators are strict).
bool AnyNullKey(IndexScanDesc scan) {
    for (int k = 0; k < scan->numberOfKeys; k++)
        if (scan->keyData[k].sk_flags & SK_ISNULL) return true;
    return false;
}

// Whether the scan's only condition is Contains with the same text as the
// ordering query (its weights are then the ordering's).
bool SameQuery(IndexScanDesc scan, Datum orderQuery) {
    if (scan->numberOfKeys != 1 || scan->keyData[0].sk_strategy != 1) return false;
    std::string a = dt::pg::TextDatumString(scan->keyData[0].sk_argument);
    std::string b = dt::pg::TextDatumString(orderQuery);
    return a == b;
}

// The distances of the rows for every ORDER BY of the scan, then the rows
// sorted by them (rank order among equals).
void OrderByDistances(IndexScanDesc scan, dt::pg::ScanOutcome &res, std::vector<double> &dist) {
    int norder = scan->numberOfOrderBys;
    size_t n = res.rows.size();
    dist.assign(n * norder, 1.0);
    for (int o = 0; o < norder; o++) {
        ScanKey ok = &scan->orderByData[o];
        if (ok->sk_flags & SK_ISNULL) continue;
        if (SameQuery(scan, ok->sk_argument)) {
            for (size_t i = 0; i < n; i++) dist[i * norder + o] = 1.0 - res.weights[i];
            continue;
        }
        std::vector<dt::RowKey> rows;
        std::vector<double> weights;
        dt::pg::QueryWeights(scan->indexRelation, scan->xs_snapshot, ok->sk_argument, &rows, &weights);
        for (size_t i = 0; i < n; i++) {
            auto it = std::lower_bound(rows.begin(), rows.end(), res.rows[i]);
            if (it != rows.end() && *it == res.rows[i]) dist[i * norder + o] = 1.0 - weights[it - rows.begin()];
        }
    }
    auto before = [&](size_t a, size_t b) {
        for (int o = 0; o < norder; o++) {
            double da = dist[a * norder + o], db = dist[b * norder + o];
            if (da != db) return da < db;
        }
        return false;
    };
    std::vector<size_t> perm(n);
    for (size_t i = 0; i < n; i++) perm[i] = i;
    // Ordered by the scan's own query, the rank order already is.
    if (std::is_sorted(perm.begin(), perm.end(), before)) return;
    std::stable_sort(perm.begin(), perm.end(), before);
    std::vector<dt::RowKey> rows(n);
    std::vector<double> sorted(n * norder);
    for (size_t i = 0; i < n; i++) {
        rows[i] = res.rows[perm[i]];
        for (int o = 0; o < norder; o++) sorted[i * norder + o] = dist[perm[i] * norder + o];
    }
    res.rows.swap(rows);
    dist.swap(sorted);
}

void Build(IndexScanDesc scan, DtScanState *st, bool ranked) {
    dt::pg::ScanOutcome res;
    if (!AnyNullKey(scan))
        res = dt::pg::EvaluateScan(scan->indexRelation, scan->xs_snapshot, Conditions(scan), ranked);
    std::vector<double> dist;
    if (ranked && scan->numberOfOrderBys > 0) OrderByDistances(scan, res, dist);
    int64 n = (int64)res.rows.size();
    MemoryContext cxt = st->cxt;
    ItemPointerData *tids = ServerCall([&] {
        return (ItemPointerData *)MemoryContextAllocExtended(cxt, Max(n, 1) * sizeof(ItemPointerData), MCXT_ALLOC_HUGE);
    });
    for (int64 i = 0; i < n; i++) dt::pg::SetItemPointer(&tids[i], res.rows[i]);
    double *d = nullptr;
    if (!dist.empty()) {
        d = ServerCall([&] {
            return (double *)MemoryContextAllocExtended(cxt, dist.size() * sizeof(double), MCXT_ALLOC_HUGE);
        });
        std::copy(dist.begin(), dist.end(), d);
    }
    st->tids = tids;
    st->distances = d;
    st->ntids = n;
    st->cursor = dt::RankedCursor((uint32_t)n);
    st->built = true;
}

void Reset(DtScanState *st) {
    st->current = -1;
    st->furthest = -1;
    st->built = false;
    st->tids = nullptr;
    st->distances = nullptr;
    st->ntids = 0;
    st->cursor = dt::RankedCursor();
}

}  // namespace

IndexScanDesc dtbeginscan(Relation index, int nkeys, int norderbys) {
    return dt::pg::Guard([&]() -> IndexScanDesc {
        IndexScanDesc scan = ServerCall([&] {
            IndexScanDesc s = RelationGetIndexScan(index, nkeys, norderbys);
            DtScanState *st = (DtScanState *)palloc0(sizeof(DtScanState));
            st->cxt = AllocSetContextCreate(CurrentMemoryContext, "dtree scan", ALLOCSET_DEFAULT_SIZES);
            s->opaque = st;
            st->scan = s;
            st->norderbys = norderbys;
            if (norderbys > 0) {
                s->xs_orderbyvals = (Datum *)palloc0(sizeof(Datum) * norderbys);
                s->xs_orderbynulls = (bool *)palloc(sizeof(bool) * norderbys);
                st->keeper = AllocSetContextCreate(CurrentMemoryContext, "dtree ordered scan", ALLOCSET_SMALL_SIZES);
                st->unlist.func = Unlist;
                st->unlist.arg = st;
                MemoryContextRegisterResetCallback(st->keeper, &st->unlist);
                st->next = g_orderedScans;
                if (g_orderedScans) g_orderedScans->prev = st;
                g_orderedScans = st;
            }
            return s;
        });
        DtScanState *st = (DtScanState *)scan->opaque;
        new (&st->cursor) dt::RankedCursor();
        Reset(st);
        return scan;
    });
}

void dtrescan(IndexScanDesc scan, ScanKey keys, int nkeys, ScanKey orderbys, int norderbys) {
    dt::pg::Guard([&]() -> int {
        DtScanState *st = (DtScanState *)scan->opaque;
        ServerCall([&] {
            if (keys && scan->numberOfKeys > 0) memmove(scan->keyData, keys, scan->numberOfKeys * sizeof(ScanKeyData));
            if (orderbys && scan->numberOfOrderBys > 0)
                memmove(scan->orderByData, orderbys, scan->numberOfOrderBys * sizeof(ScanKeyData));
            MemoryContextReset(st->cxt);
            st->orderQueries = NULL;
            if (scan->numberOfOrderBys > 0) {
                MemoryContext old = MemoryContextSwitchTo(st->cxt);
                st->orderQueries = (text **)palloc0(sizeof(text *) * scan->numberOfOrderBys);
                for (int o = 0; o < scan->numberOfOrderBys; o++)
                    if (!(scan->orderByData[o].sk_flags & SK_ISNULL))
                        st->orderQueries[o] = DatumGetTextPCopy(scan->orderByData[o].sk_argument);
                MemoryContextSwitchTo(old);
            }
        });
        Reset(st);
        return 0;
    });
}

bool dtgettuple(IndexScanDesc scan, ScanDirection dir) {
    return dt::pg::Guard([&]() -> bool {
        DtScanState *st = (DtScanState *)scan->opaque;
        if (!st->built) Build(scan, st, true);
        int64 pos = st->cursor.Step(ScanDirectionIsForward(dir));
        st->current = pos;
        if (pos < 0) return false;
        if (pos > st->furthest) st->furthest = pos;
        scan->xs_heaptid = st->tids[pos];
        scan->xs_recheck = false;
        int norder = scan->numberOfOrderBys;
        if (norder > 0) {
            for (int o = 0; o < norder; o++) {
                scan->xs_orderbyvals[o] = Float8GetDatum(st->distances[pos * norder + o]);
                scan->xs_orderbynulls[o] = false;
            }
            scan->xs_recheckorderby = false;
            st->stamp = ++g_orderStamp;
        }
        return true;
    });
}

int64 dtgetbitmap(IndexScanDesc scan, TIDBitmap *tbm) {
    return dt::pg::Guard([&]() -> int64 {
        DtScanState *st = (DtScanState *)scan->opaque;
        if (!st->built) Build(scan, st, false);
        ItemPointerData *tids = st->tids;
        int64 n = st->ntids;
        ServerCall([&] {
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
        ServerCall([&] {
            if (st->rowFetch) table_index_fetch_end(st->rowFetch);
            if (st->rowSlot) ExecDropSingleTupleTableSlot(st->rowSlot);
            MemoryContextDelete(st->cxt);
            if (st->keeper) MemoryContextDelete(st->keeper);
        });
        return 0;
    });
}

// Whether row pos of a scan's result holds the document doc (compared by
// its bytes).
// Runs inside ServerCall.
static bool RowHoldsDocC(DtScanState *st, int64 pos, const struct varlena *doc) {
    IndexScanDesc scan = st->scan;
    Relation heap = scan->heapRelation;
    if (!heap) return false;
    AttrNumber attno = scan->indexRelation->rd_index->indkey.values[0];
    if (!st->rowFetch) {
        MemoryContext old = MemoryContextSwitchTo(st->keeper);
        st->rowSlot = table_slot_create(heap, NULL);
        st->rowFetch = table_index_fetch_begin(heap);
        MemoryContextSwitchTo(old);
    }
    IndexFetchTableData *fetch = st->rowFetch;
    TupleTableSlot *slot = st->rowSlot;
    ItemPointerData tid = st->tids[pos];
    bool call_again = false, all_dead = false, same = false;
    if (table_index_fetch_tuple(fetch, &tid, scan->xs_snapshot, slot, &call_again, &all_dead)) {
        bool isnull;
        Datum d = slot_getattr(slot, attno, &isnull);
        if (!isnull) {
            struct varlena *v = pg_detoast_datum_packed((struct varlena *)DatumGetPointer(d));
            same = VARSIZE_ANY_EXHDR(v) == VARSIZE_ANY_EXHDR(doc) &&
                   memcmp(VARDATA_ANY(v), VARDATA_ANY(doc), VARSIZE_ANY_EXHDR(doc)) == 0;
        }
    }
    // Keep no buffer pinned between calls.
    ExecClearTuple(slot);
    table_index_fetch_reset(fetch);
    return same;
}

// Whether raw, the operator's argument as the executor passed it (not
// detoasted), is the indexed column of the row the scan's executor fetched
// last: it points into that row's tuple, on the heap page the fetch keeps
// pinned (a pinned page's tuples do not move), at the place of the
// indexed column.  A row held elsewhere (a merge join's marked copy) is
// not, and is found by its bytes instead.
// Runs inside ServerCall.
static bool IsFetchedRowColumnC(DtScanState *st, const void *raw) {
    IndexScanDesc scan = st->scan;
    Relation heap = scan->heapRelation;
    if (!heap || !raw || !scan->xs_heapfetch || heap->rd_tableam != GetHeapamTableAmRoutine()) return false;
    AttrNumber attno = scan->indexRelation->rd_index->indkey.values[0];
    if (attno <= 0) return false;
    Buffer buf = ((IndexFetchHeapData *)scan->xs_heapfetch)->xs_cbuf;
    ItemPointer tid = &scan->xs_heaptid;
    if (!BufferIsValid(buf) || !ItemPointerIsValid(tid) || BufferGetBlockNumber(buf) != ItemPointerGetBlockNumber(tid))
        return false;
    Page page = BufferGetPage(buf);
    OffsetNumber off = ItemPointerGetOffsetNumber(tid);
    if (off < FirstOffsetNumber || off > PageGetMaxOffsetNumber(page)) return false;
    ItemId lp = PageGetItemId(page, off);
    if (!ItemIdIsNormal(lp)) return false;
    HeapTupleData tuple;
    tuple.t_data = (HeapTupleHeader)PageGetItem(page, lp);
    tuple.t_len = ItemIdGetLength(lp);
    tuple.t_tableOid = RelationGetRelid(heap);
    tuple.t_self = *tid;
    const char *start = (const char *)tuple.t_data;
    if ((const char *)raw < start || (const char *)raw >= start + tuple.t_len) return false;
    bool isnull;
    Datum d = heap_getattr(&tuple, attno, RelationGetDescr(heap), &isnull);
    return !isnull && DatumGetPointer(d) == (Pointer)raw;
}

bool DtRowDistance(const struct varlena *doc, const void *raw, const char *query, Size len, double *distance) {
    DtScanState *best = nullptr;
    int bestOrder = 0;
    for (DtScanState *st = g_orderedScans; st; st = st->next) {
        if (!st->built || st->furthest < 0 || !st->orderQueries || !st->distances) continue;
        for (int o = 0; o < st->norderbys; o++) {
            text *t = st->orderQueries[o];
            if (t && VARSIZE_ANY_EXHDR(t) == len && memcmp(VARDATA_ANY(t), query, len) == 0 &&
                (!best || st->stamp > best->stamp)) {
                best = st;
                bestOrder = o;
            }
        }
    }
    if (!best) return false;
    // Projecting the row just fetched: the common case, without a second
    // fetch.
    if (best->current >= 0 && IsFetchedRowColumnC(best, raw)) {
        *distance = best->distances[best->current * best->norderbys + bestOrder];
        return true;
    }
    // The row is one the scan has handed out: most likely the current
    // one, else the marked one (a merge join compares the marked row
    // again), else any other.  Rows with equal documents have equal
    // distances.
    int64 saved = best->cursor.Saved();
    int64 tries[2] = {best->current, saved};
    for (int64 pos : tries)
        if (pos >= 0 && pos <= best->furthest && RowHoldsDocC(best, pos, doc)) {
            *distance = best->distances[pos * best->norderbys + bestOrder];
            return true;
        }
    for (int64 pos = best->furthest; pos >= 0; pos--) {
        CHECK_FOR_INTERRUPTS();
        if (pos != best->current && pos != saved && RowHoldsDocC(best, pos, doc)) {
            *distance = best->distances[pos * best->norderbys + bestOrder];
            return true;
        }
    }
    return false;
}

void dtmarkpos(IndexScanDesc scan) {
    dt::pg::Guard([&]() -> int {
        ((DtScanState *)scan->opaque)->cursor.Mark();
        return 0;
    });
}

void dtrestrpos(IndexScanDesc scan) {
    dt::pg::Guard([&]() -> int {
        DtScanState *st = (DtScanState *)scan->opaque;
        st->cursor.Restore();
        st->current = st->cursor.Current();
        return 0;
    });
}
