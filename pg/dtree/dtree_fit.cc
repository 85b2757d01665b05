// dt_FitDocParams: learns the twelve ranking coefficients from the user's
// judgments of a dtree index's answers (see core/rankfit.h for the model's
// two stages).  The judgments come from a query the caller names, run with
// the caller's rights, returning (query text, row tid, relevant boolean);
// every row of an answer that no judgment marks relevant counts as not
// relevant.
#include <map>
#include <set>
#include <string>
#include <vector>

#include "boundary.h"
#include "dtree_evaluate.h"
#include "dtree_internal.h"
#include "rankfit.h"
#include "ranking.h"
#include "rankingsettings.h"

extern "C" {
#include "access/relation.h"
#include "catalog/pg_type.h"
#include "executor/spi.h"
#include "funcapi.h"
#include "utils/acl.h"
#include "utils/builtins.h"
#include "utils/snapmgr.h"
#include "utils/tuplestore.h"

PG_FUNCTION_INFO_V1(pgdoc_dt_FitDocParams);
}

namespace {

using dt::pg::ServerCall;

struct JudgmentC {
    char *query;  // NUL-terminated
    ItemPointerData tid;
    bool relevant;
};

// Runs the judgments query (read-only, as the caller) and copies its rows
// into memory of the current context.
// Runs inside ServerCall.
JudgmentC *ReadJudgmentsC(const char *sql, int64 *count) {
    MemoryContext outer = CurrentMemoryContext;
    if (SPI_connect() != SPI_OK_CONNECT) elog(ERROR, "SPI_connect failed");
    int rc = SPI_execute(sql, true, 0);
    if (rc != SPI_OK_SELECT || SPI_tuptable == NULL)
        ereport(ERROR, (errcode(ERRCODE_INVALID_PARAMETER_VALUE),
                        errmsg("the judgments must be a query returning rows of (query text, row tid, relevant boolean)")));
    TupleDesc td = SPI_tuptable->tupdesc;
    if (td->natts != 3 || SPI_gettypeid(td, 1) != TEXTOID || SPI_gettypeid(td, 2) != TIDOID ||
        SPI_gettypeid(td, 3) != BOOLOID)
        ereport(ERROR, (errcode(ERRCODE_DATATYPE_MISMATCH),
                        errmsg("the judgments query must return three columns: query text, row tid, relevant boolean")));
    uint64 n = SPI_processed;
    JudgmentC *out = (JudgmentC *)MemoryContextAllocHuge(outer, Max(n, 1) * sizeof(JudgmentC));
    int64 k = 0;
    for (uint64 i = 0; i < n; i++) {
        CHECK_FOR_INTERRUPTS();
        HeapTuple tup = SPI_tuptable->vals[i];
        bool n1, n2, n3;
        Datum q = SPI_getbinval(tup, td, 1, &n1);
        Datum t = SPI_getbinval(tup, td, 2, &n2);
        Datum r = SPI_getbinval(tup, td, 3, &n3);
        if (n1 || n2 || n3) continue;  // a judgment with a null says nothing
        MemoryContext old = MemoryContextSwitchTo(outer);
        out[k].query = TextDatumGetCString(q);
        MemoryContextSwitchTo(old);
        out[k].tid = *(ItemPointer)DatumGetPointer(t);
        out[k].relevant = DatumGetBool(r);
        k++;
    }
    SPI_finish();
    *count = k;
    return out;
}

}  // namespace

Datum pgdoc_dt_FitDocParams(PG_FUNCTION_ARGS) {
    return dt::pg::Guard([&]() -> Datum {
        Datum name = dt::pg::DatumArg(fcinfo, 0);
        std::string sql = dt::pg::TextArg(fcinfo, 1);
        bool wordlist = dt::pg::BoolArg(fcinfo, 2);
        bool apply = dt::pg::BoolArg(fcinfo, 3);

        Relation index = ServerCall([&] {
            Relation r = DtOpenIndexByName(DatumGetTextPP(name), AccessShareLock);
            DtCheckTablePrivilege(r, ACL_SELECT);
            return r;
        });
        int64 nj = 0;
        JudgmentC *js = ServerCall([&] { return ReadJudgmentsC(sql.c_str(), &nj); });
        // query -> rows judged relevant (a later judgment of a row wins)
        std::map<std::string, std::map<dt::RowKey, bool>> judged;
        for (int64 i = 0; i < nj; i++) judged[js[i].query][dt::pg::RowKeyOf(&js[i].tid)] = js[i].relevant;

        Snapshot snap = ServerCall([] { return ActiveSnapshotSet() ? GetActiveSnapshot() : GetTransactionSnapshot(); });
        dt::FitData data;
        for (const auto &[query, rows] : judged) {
            dt::pg::CheckInterrupts();
            Datum q = ServerCall([&] { return PointerGetDatum(cstring_to_text_with_len(query.data(), (int)query.size())); });
            dt::pg::Answer ans;
            dt::pg::EvaluateAnswer(index, snap, {dt::pg::ScanCondition{wordlist ? 2 : 1, q}}, &ans);
            if (!ans.tree) continue;
            dt::AddAnswer(data, ans.table, ans.tree, ans.totalTerms, ans.totalDocs, [&rows = rows](dt::RowKey k) {
                auto it = rows.find(k);
                return it != rows.end() && it->second;
            });
        }
        ServerCall([&] { relation_close(index, NoLock); });

        dt::FitResult fit;
        std::string why;
        if (!dt::FitDocParams(data, &fit, &why))
            ServerCall([&] {
                ereport(ERROR, (errcode(ERRCODE_INVALID_PARAMETER_VALUE),
                                errmsg("cannot learn ranking coefficients: %s", why.c_str()),
                                errhint("Judge at least one relevant and one other document of the answers.")));
            });
        if (apply)
            for (int i = 0; i < dt::kDocParamCount; i++) dt::pg::SetRankingCoefficient(i, fit.params[i]);

        ServerCall([&] {
            InitMaterializedSRF(fcinfo, 0);
            ReturnSetInfo *rsinfo = (ReturnSetInfo *)fcinfo->resultinfo;
            for (int i = 0; i < dt::kDocParamCount; i++) {
                bool stage2 = i == dt::kDocLenCoef || i == dt::kQryLenCoef || i == dt::kStage2Intercept || i == dt::kZCoef;
                const dt::FitStage &st = stage2 ? fit.stage2 : fit.stage1;
                Datum v[9] = {Int32GetDatum(i),
                              CStringGetTextDatum(dt::kDocParamInfo[i].name),
                              Float8GetDatum(fit.params[i]),
                              Int32GetDatum(stage2 ? 2 : 1),
                              Int64GetDatum((int64)st.observations),
                              Int64GetDatum((int64)st.positives),
                              Float8GetDatum(st.logLikelihood),
                              Float8GetDatum(st.nullLogLikelihood),
                              BoolGetDatum(st.converged)};
                bool nulls[9] = {false, false, false, false, false, false, false, false, false};
                tuplestore_putvalues(rsinfo->setResult, rsinfo->setDesc, v, nulls);
            }
        });
        return (Datum)0;
    });
}
