// ANALYZE of doc columns (dt_DocAnalyze, the type's typanalyze), the
// statistics figure it leaves, and dt_selectivity(table, column, side), the
// model's selectivity of a search over that column.
//
// ANALYZE computes the server's usual figures (null fraction, width) with
// its standard routine, then goes over the same sampled rows once more:
//   - every sampled row counts, a null one too;
//   - a value that names a large object (ht_flags bit 1) adds its number
//     of distinct terms (ht_hashentries; 0 for a server file, which stores
//     no term table);
//   - any other value adds (its length - 4) / 6: one term per six bytes of
//     the stored value, integer division;
// and the sum divided by the number of rows (integer division) is the
// figure.  An owned large object that no longer exists ends the pass with
// no figure stored for the column.
#include "docstats.h"

#include <cstdio>
#include <string>

#include "boundary.h"
#include "doclayout.h"

extern "C" {
#include "access/detoast.h"
#include "access/htup_details.h"
#include "catalog/pg_largeobject.h"
#include "catalog/pg_statistic.h"
#include "catalog/pg_type.h"
#include "commands/vacuum.h"
#include "miscadmin.h"
#include "utils/acl.h"
#include "utils/lsyscache.h"
#include "utils/memutils.h"
#include "utils/rls.h"
#include "utils/syscache.h"

PG_FUNCTION_INFO_V1(pgdoc_dt_DocAnalyze);
PG_FUNCTION_INFO_V1(pgdoc_dt_selectivity);
}

namespace {

using dt::pg::ServerCall;

// The standard routine's compute function and its data, while ours runs.
struct DocAnalyzeExtra {
    AnalyzeAttrComputeStatsFunc std_compute;
    void *std_extra;
};

// The sums over the sample.
struct TermSums {
    long long rows = 0;     // values seen, nulls included
    long long terms = 0;    // sum of the per-value term estimates
    bool invalid = false;   // a large object of a value is gone
};

void SumSample(VacAttrStats *stats, AnalyzeAttrFetchFunc fetchfunc, int samplerows, TermSums &s) {
    for (int i = 0; i < samplerows; i++) {
        s.rows++;
        bool isnull = false;
        Datum d = (Datum) 0;
        // The value, detoasted (a palloc'd copy or the value itself).
        struct varlena *v = ServerCall([&]() -> struct varlena * {
            vacuum_delay_point();
            d = fetchfunc(stats, i, &isnull);
            if (isnull) return nullptr;
            return PG_DETOAST_DATUM(d);
        });
        if (isnull) continue;
        dt::DocView doc(v);
        uint32 len = VARSIZE(v);
        if (len >= (uint32) dt::kDocHeaderSize && doc.isLO()) {
            auto handle = dt::DocLOHandleExternal(v);
            Oid oid = handle ? dt::OwnedHandleOid(*handle) : InvalidOid;
            if (oid != InvalidOid && !ServerCall([&] { return LargeObjectExists(oid); })) {
                s.invalid = true;
                return;
            }
            s.terms += doc.ht_hashentries();
        } else {
            s.terms += ((long long) len - 4) / 6;
        }
        if ((Pointer) v != DatumGetPointer(d)) ServerCall([&] { pfree(v); });
    }
}

// Stores the figure in the first free slot.
void StoreFigure(VacAttrStats *stats, int avg) {
    ServerCall([&] {
        int slot = 0;
        while (slot < STATISTIC_NUM_SLOTS && stats->stakind[slot] != 0) slot++;
        if (slot == STATISTIC_NUM_SLOTS) return;
        MemoryContext old = MemoryContextSwitchTo(stats->anl_context);
        char buf[16];
        snprintf(buf, sizeof(buf), "%d", avg);
        float4 *numbers = (float4 *) palloc(sizeof(float4));
        numbers[0] = (float4) avg;
        Datum *values = (Datum *) palloc(sizeof(Datum));
        values[0] = PointerGetDatum(cstring_to_text(buf));
        MemoryContextSwitchTo(old);
        stats->stakind[slot] = STATISTIC_KIND_DOC_TERMS;
        stats->staop[slot] = InvalidOid;
        stats->stacoll[slot] = InvalidOid;
        stats->stanumbers[slot] = numbers;
        stats->numnumbers[slot] = 1;
        stats->stavalues[slot] = values;
        stats->numvalues[slot] = 1;
        stats->statypid[slot] = TEXTOID;
        stats->statyplen[slot] = -1;
        stats->statypbyval[slot] = false;
        stats->statypalign[slot] = TYPALIGN_INT;
    });
}

void DocComputeStats(VacAttrStatsP stats, AnalyzeAttrFetchFunc fetchfunc, int samplerows, double totalrows) {
    dt::pg::Guard([&] {
        DocAnalyzeExtra *x = (DocAnalyzeExtra *) stats->extra_data;
        stats->extra_data = x->std_extra;
        ServerCall([&] { x->std_compute(stats, fetchfunc, samplerows, totalrows); });
        stats->extra_data = x;
        TermSums s;
        SumSample(stats, fetchfunc, samplerows, s);
        if (s.invalid || s.rows == 0) return;
        StoreFigure(stats, (int) (s.terms / s.rows));
        stats->stats_valid = true;
    });
}

}  // namespace

// Runs inside ServerCall.
bool DtStatsTupleTerms(HeapTuple statsTuple, int *avgTerms) {
    AttStatsSlot sslot;
    if (!HeapTupleIsValid(statsTuple) ||
        !get_attstatsslot(&sslot, statsTuple, STATISTIC_KIND_DOC_TERMS, InvalidOid, ATTSTATSSLOT_VALUES))
        return false;
    bool found = sslot.nvalues > 0;
    if (found) {
        char *s = TextDatumGetCString(sslot.values[0]);
        *avgTerms = atoi(s);
        pfree(s);
    }
    free_attstatsslot(&sslot);
    return found;
}

bool DtColumnStatsTerms(Oid relid, AttrNumber attnum, int *avgTerms, double *nullfrac) {
    *nullfrac = 0.0;
    if (attnum <= 0) return false;
    HeapTuple tup = SearchSysCache3(STATRELATTINH, ObjectIdGetDatum(relid), Int16GetDatum(attnum), BoolGetDatum(false));
    if (!HeapTupleIsValid(tup)) return false;
    *nullfrac = ((Form_pg_statistic) GETSTRUCT(tup))->stanullfrac;
    bool found = DtStatsTupleTerms(tup, avgTerms);
    ReleaseSysCache(tup);
    return found;
}

float4 DtModelSelectivity(bool haveFigure, int avgTerms, bool columnOnLeft) {
    if (haveFigure && avgTerms > 0) return (float4) (1.0 / avgTerms);
    return columnOnLeft ? (float4) 0.1 : (float4) 0.01;
}

// dt_DocAnalyze(internal): the typanalyze of doc.  The server's standard
// preparation (sample size, null fraction, width), with the compute step
// wrapped so that it also stores the average number of terms.
Datum pgdoc_dt_DocAnalyze(PG_FUNCTION_ARGS) {
    return dt::pg::Guard([&]() -> Datum {
        VacAttrStats *stats = dt::pg::InternalArg<VacAttrStats>(fcinfo, 0);
        bool ok = ServerCall([&] {
            if (!std_typanalyze(stats)) return false;
            DocAnalyzeExtra *x = (DocAnalyzeExtra *) MemoryContextAlloc(stats->anl_context, sizeof(DocAnalyzeExtra));
            x->std_compute = stats->compute_stats;
            x->std_extra = stats->extra_data;
            stats->extra_data = x;
            stats->compute_stats = DocComputeStats;
            return true;
        });
        return BoolGetDatum(ok);
    });
}

// dt_selectivity(tab, col, column_on_left): the model's selectivity of a
// search with the column on the left (col @@ constant) or on the right
// (constant % col).  Needs the right to read the column, as pg_stats does.
Datum pgdoc_dt_selectivity(PG_FUNCTION_ARGS) {
    return dt::pg::Guard([&]() -> Datum {
        Oid relid = dt::pg::OidArg(fcinfo, 0);
        std::string col = dt::pg::TextArg(fcinfo, 1);
        bool left = dt::pg::BoolArg(fcinfo, 2);
        const char *colname = col.c_str();
        int avg = 0;
        bool found = ServerCall([&] {
            char *relname = get_rel_name(relid);
            if (!relname)
                ereport(ERROR, (errcode(ERRCODE_UNDEFINED_TABLE), errmsg("relation with OID %u does not exist", relid)));
            AttrNumber attnum = get_attnum(relid, colname);
            if (attnum == InvalidAttrNumber)
                ereport(ERROR, (errcode(ERRCODE_UNDEFINED_COLUMN),
                                errmsg("column \"%s\" of relation \"%s\" does not exist", colname, relname)));
            if (pg_class_aclcheck(relid, GetUserId(), ACL_SELECT) != ACLCHECK_OK &&
                pg_attribute_aclcheck(relid, attnum, GetUserId(), ACL_SELECT) != ACLCHECK_OK)
                aclcheck_error_col(ACLCHECK_NO_PRIV, get_relkind_objtype(get_rel_relkind(relid)), relname, colname);
            // As pg_stats, which shows no figures of a table whose policies
            // apply to the caller.
            if (check_enable_rls(relid, InvalidOid, false) == RLS_ENABLED)
                ereport(ERROR, (errcode(ERRCODE_INSUFFICIENT_PRIVILEGE),
                                errmsg("table \"%s\" has row-level security: its column statistics are not shown", relname)));
            double nullfrac;
            return DtColumnStatsTerms(relid, attnum, &avg, &nullfrac);
        });
        return Float4GetDatum(DtModelSelectivity(found, avg, left));
    });
}
