// The ranked and list functions of a dtree index, by index name: the
// weight of one row for a query (WeightContains, WeightContainsWords,
// WeightDocLike), the documents of the answer in rank order as one value
// (ListContains, ListContainsWords, ListDocLike) and as rows of (row,
// weight) (dt_RankContains, dt_RankContainsWords, dt_RankDocLike); the
// ranking coefficients (dt_SetDocParam, dt_DocParams); and the relevance
// distance of ORDER BY doc <=> query.
//
// A ranked function runs its index scan once per query and call site and
// then looks each row up in the answer: a row that is not in it weighs 0.
#include <algorithm>
#include <string>
#include <vector>

#include "boundary.h"
#include "docvalue.h"
#include "dtree_evaluate.h"
#include "dtree_internal.h"
#include "ranking.h"
#include "rankingsettings.h"

extern "C" {
#include "access/relation.h"
#include "access/table.h"
#include "access/tableam.h"
#include "catalog/index.h"
#include "executor/tuptable.h"
#include "fmgr.h"
#include "funcapi.h"
#include "lib/stringinfo.h"
#include "utils/acl.h"
#include "utils/builtins.h"
#include "utils/memutils.h"
#include "utils/snapmgr.h"
#include "utils/tuplestore.h"

PG_FUNCTION_INFO_V1(pgdoc_WeightContains);
PG_FUNCTION_INFO_V1(pgdoc_WeightContainsWords);
PG_FUNCTION_INFO_V1(pgdoc_WeightDocLike);
PG_FUNCTION_INFO_V1(pgdoc_ListContains);
PG_FUNCTION_INFO_V1(pgdoc_ListContainsWords);
PG_FUNCTION_INFO_V1(pgdoc_ListDocLike);
PG_FUNCTION_INFO_V1(pgdoc_dt_RankContains);
PG_FUNCTION_INFO_V1(pgdoc_dt_RankContainsWords);
PG_FUNCTION_INFO_V1(pgdoc_dt_RankDocLike);
PG_FUNCTION_INFO_V1(pgdoc_dt_SetDocParam);
PG_FUNCTION_INFO_V1(pgdoc_dt_DocParams);
PG_FUNCTION_INFO_V1(pgdoc_dt_RelevanceDistance);
}

namespace {

using dt::pg::ServerCall;

// The index of a ranked function, opened for reading by a user who may
// read its table.  The lock is kept to the end of the transaction.
// Runs inside ServerCall.
Relation OpenRankedIndexC(Datum name) {
    Relation index = DtOpenIndexByName(DatumGetTextPP(name), AccessShareLock);
    DtCheckTablePrivilege(index, ACL_SELECT);
    return index;
}

Snapshot StatementSnapshotC() { return ActiveSnapshotSet() ? GetActiveSnapshot() : GetTransactionSnapshot(); }

// The ranked answer of the named index for one condition.
dt::pg::ScanOutcome RankedScan(Datum indexName, int strategy, Datum argument, Relation *opened = nullptr) {
    Relation index = ServerCall([&] { return OpenRankedIndexC(indexName); });
    Snapshot snap = ServerCall([] { return StatementSnapshotC(); });
    dt::pg::ScanOutcome res = dt::pg::EvaluateScan(index, snap, {dt::pg::ScanCondition{strategy, argument}}, true);
    // The rows as SQL sees them (their ctid).
    dt::pg::CurrentRows(index, snap, &res.rows);
    if (opened)
        *opened = index;
    else
        ServerCall([&] { relation_close(index, NoLock); });
    return res;
}

// The bytes that identify a ranked function's question: the index name
// and the query (the other document's bytes for DocLike).
std::string QuestionKey(FunctionCallInfo fcinfo, int strategy) {
    std::string key = dt::pg::TextArg(fcinfo, 0);
    key.push_back('\0');
    if (strategy == 3) {
        const void *doc = dt::pg::DocArg(fcinfo, 2);
        key.append(static_cast<const char *>(doc), VARSIZE(doc));
    } else {
        key += dt::pg::TextArg(fcinfo, 2);
    }
    return key;
}

// The answer kept for a call site (in fn_mcxt): rows in row order with
// their weights.
struct WeightCache {
    char *key;
    Size keylen;
    int64 n;
    dt::RowKey *rows;
    double *weights;
};

Datum RowWeight(FunctionCallInfo fcinfo, int strategy) {
    std::string key = QuestionKey(fcinfo, strategy);
    ItemPointer tid = (ItemPointer)DatumGetPointer(dt::pg::DatumArg(fcinfo, 1));
    FmgrInfo *flinfo = fcinfo->flinfo;
    WeightCache *c = (WeightCache *)flinfo->fn_extra;
    if (!c || c->keylen != key.size() || memcmp(c->key, key.data(), key.size()) != 0) {
        dt::pg::ScanOutcome res = RankedScan(dt::pg::DatumArg(fcinfo, 0), strategy, dt::pg::DatumArg(fcinfo, 2));
        std::vector<size_t> perm(res.rows.size());
        for (size_t i = 0; i < perm.size(); i++) perm[i] = i;
        std::sort(perm.begin(), perm.end(), [&](size_t a, size_t b) { return res.rows[a] < res.rows[b]; });
        int64 n = (int64)perm.size();
        c = ServerCall([&] {
            MemoryContext cxt = flinfo->fn_mcxt;
            WeightCache *old = (WeightCache *)flinfo->fn_extra;
            if (old) {
                pfree(old->key);
                if (old->rows) pfree(old->rows);
                if (old->weights) pfree(old->weights);
                pfree(old);
                flinfo->fn_extra = NULL;
            }
            WeightCache *w = (WeightCache *)MemoryContextAllocZero(cxt, sizeof(WeightCache));
            w->key = (char *)MemoryContextAlloc(cxt, Max(key.size(), 1));
            w->rows = (dt::RowKey *)MemoryContextAllocExtended(cxt, Max(n, 1) * sizeof(dt::RowKey), MCXT_ALLOC_HUGE);
            w->weights = (double *)MemoryContextAllocExtended(cxt, Max(n, 1) * sizeof(double), MCXT_ALLOC_HUGE);
            return w;
        });
        memcpy(c->key, key.data(), key.size());
        c->keylen = key.size();
        for (int64 i = 0; i < n; i++) {
            c->rows[i] = res.rows[perm[i]];
            c->weights[i] = res.weights[perm[i]];
        }
        c->n = n;
        flinfo->fn_extra = c;
    }
    dt::RowKey row = dt::pg::RowKeyOf(tid);
    dt::RowKey *end = c->rows + c->n;
    dt::RowKey *it = std::lower_bound(c->rows, end, row);
    if (it == end || *it != row) return Float8GetDatum(0.0);
    return Float8GetDatum(c->weights[it - c->rows]);
}

// The documents of rows (their current identifiers), in the order given,
// as one value: each document whole (its length word first), starting at a
// multiple of 4 bytes; rows gone from the table are skipped.
// Runs inside ServerCall.
bytea *DocListC(Relation index, Snapshot snap, const dt::RowKey *rows, int64 n) {
    Relation heap = table_open(IndexGetRelation(RelationGetRelid(index), false), AccessShareLock);
    AttrNumber attno = index->rd_index->indkey.values[0];
    TupleTableSlot *slot = table_slot_create(heap, NULL);
    StringInfoData buf;
    initStringInfo(&buf);
    appendStringInfoSpaces(&buf, VARHDRSZ);
    for (int64 i = 0; i < n; i++) {
        CHECK_FOR_INTERRUPTS();
        ItemPointerData tid;
        dt::pg::SetItemPointer(&tid, rows[i]);
        if (!table_tuple_fetch_row_version(heap, &tid, snap, slot)) continue;
        bool isnull;
        Datum d = slot_getattr(slot, attno, &isnull);
        if (!isnull) {
            struct varlena *v = pg_detoast_datum_copy((struct varlena *)DatumGetPointer(d));
            Size len = VARSIZE(v);
            appendBinaryStringInfo(&buf, (const char *)v, (int)len);
            Size pad = ((len + 3) & ~(Size)3) - len;
            if (pad) appendStringInfoSpaces(&buf, (int)pad);
            pfree(v);
        }
        ExecClearTuple(slot);
    }
    ExecDropSingleTupleTableSlot(slot);
    table_close(heap, AccessShareLock);
    SET_VARSIZE(buf.data, buf.len);
    return (bytea *)buf.data;
}

Datum DocList(FunctionCallInfo fcinfo, int strategy) {
    if (strategy == 3) dt::pg::DocArg(fcinfo, 1);  // checks the argument
    Relation index;
    dt::pg::ScanOutcome res = RankedScan(dt::pg::DatumArg(fcinfo, 0), strategy, dt::pg::DatumArg(fcinfo, 1), &index);
    const dt::RowKey *rows = res.rows.data();
    int64 n = (int64)res.rows.size();
    return ServerCall([&] {
        bytea *out = DocListC(index, StatementSnapshotC(), rows, n);
        relation_close(index, NoLock);
        return PointerGetDatum(out);
    });
}

Datum RankRows(FunctionCallInfo fcinfo, int strategy) {
    if (strategy == 3) dt::pg::DocArg(fcinfo, 1);
    dt::pg::ScanOutcome res = RankedScan(dt::pg::DatumArg(fcinfo, 0), strategy, dt::pg::DatumArg(fcinfo, 1));
    const dt::pg::ScanOutcome *r = &res;
    ServerCall([&] {
        InitMaterializedSRF(fcinfo, 0);
        ReturnSetInfo *rsinfo = (ReturnSetInfo *)fcinfo->resultinfo;
        for (size_t i = 0; i < r->rows.size(); i++) {
            if ((i & 1023) == 0) CHECK_FOR_INTERRUPTS();
            ItemPointerData tid;
            dt::pg::SetItemPointer(&tid, r->rows[i]);
            Datum values[2] = {PointerGetDatum(&tid), Float8GetDatum(r->weights[i])};
            bool nulls[2] = {false, false};
            tuplestore_putvalues(rsinfo->setResult, rsinfo->setDesc, values, nulls);
        }
    });
    return (Datum)0;
}

}  // namespace

Datum pgdoc_WeightContains(PG_FUNCTION_ARGS) {
    return dt::pg::Guard([&]() -> Datum { return RowWeight(fcinfo, 1); });
}
Datum pgdoc_WeightContainsWords(PG_FUNCTION_ARGS) {
    return dt::pg::Guard([&]() -> Datum { return RowWeight(fcinfo, 2); });
}
Datum pgdoc_WeightDocLike(PG_FUNCTION_ARGS) {
    return dt::pg::Guard([&]() -> Datum { return RowWeight(fcinfo, 3); });
}
Datum pgdoc_ListContains(PG_FUNCTION_ARGS) {
    return dt::pg::Guard([&]() -> Datum { return DocList(fcinfo, 1); });
}
Datum pgdoc_ListContainsWords(PG_FUNCTION_ARGS) {
    return dt::pg::Guard([&]() -> Datum { return DocList(fcinfo, 2); });
}
Datum pgdoc_ListDocLike(PG_FUNCTION_ARGS) {
    return dt::pg::Guard([&]() -> Datum { return DocList(fcinfo, 3); });
}
Datum pgdoc_dt_RankContains(PG_FUNCTION_ARGS) {
    return dt::pg::Guard([&]() -> Datum { return RankRows(fcinfo, 1); });
}
Datum pgdoc_dt_RankContainsWords(PG_FUNCTION_ARGS) {
    return dt::pg::Guard([&]() -> Datum { return RankRows(fcinfo, 2); });
}
Datum pgdoc_dt_RankDocLike(PG_FUNCTION_ARGS) {
    return dt::pg::Guard([&]() -> Datum { return RankRows(fcinfo, 3); });
}

// dt_SetDocParam(n, value): sets ranking coefficient n (0..11) for this
// session, as SET sets its setting; other numbers are ignored.
Datum pgdoc_dt_SetDocParam(PG_FUNCTION_ARGS) {
    return dt::pg::Guard([&]() -> Datum {
        int32 n = dt::pg::Int32Arg(fcinfo, 0);
        double v = dt::pg::Float8Arg(fcinfo, 1);
        dt::pg::SetRankingCoefficient(n, v);
        return (Datum)0;
    });
}

// dt_DocParams(): the twelve coefficients with their numbers, names,
// current values and defaults.
Datum pgdoc_dt_DocParams(PG_FUNCTION_ARGS) {
    return dt::pg::Guard([&]() -> Datum {
        const double *p = dt::DocParams();
        ServerCall([&] {
            InitMaterializedSRF(fcinfo, 0);
            ReturnSetInfo *rsinfo = (ReturnSetInfo *)fcinfo->resultinfo;
            for (int i = 0; i < dt::kDocParamCount; i++) {
                Datum values[4] = {Int32GetDatum(i), CStringGetTextDatum(dt::kDocParamInfo[i].name),
                                   Float8GetDatum(p[i]), Float8GetDatum(dt::kDocParamInfo[i].defaultValue)};
                bool nulls[4] = {false, false, false, false};
                tuplestore_putvalues(rsinfo->setResult, rsinfo->setDesc, values, nulls);
            }
        });
        return (Datum)0;
    });
}

// doc <=> query: the distance of ORDER BY relevance, 1 - weight.  A weight
// needs the counts of the whole collection, which only the index scan
// has: the operator gives the distance of a row that a dtree scan ordered
// by the same query has handed out (the executor evaluates the operator
// only for such rows when the plan orders through the index), and is an
// error anywhere else.
Datum pgdoc_dt_RelevanceDistance(PG_FUNCTION_ARGS) {
    return dt::pg::Guard([&]() -> Datum {
        const void *raw = DatumGetPointer(dt::pg::DatumArg(fcinfo, 0));
        const struct varlena *doc = (const struct varlena *)dt::pg::DocArg(fcinfo, 0);
        std::string query = dt::pg::TextArg(fcinfo, 1);
        double d;
        if (!ServerCall([&] { return DtRowDistance(doc, raw, query.data(), query.size(), &d); }))
            ServerCall([] {
                ereport(ERROR,
                        (errcode(ERRCODE_FEATURE_NOT_SUPPORTED),
                         errmsg("ordering by relevance (doc <=> query) needs a dtree index scan"),
                         errhint("Order the rows of a condition on the same column, such as WHERE body @@ q ORDER "
                                 "BY body <=> q, with a dtree index on it; WeightContains(index, ctid, q) gives "
                                 "the weight of any row.")));
            });
        return Float8GetDatum(d);
    });
}
