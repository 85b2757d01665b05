// The dtree access method's handler: its properties and callbacks.  Every
// callback runs its body under the module's error boundary.  The scan
// callbacks are not here yet, so the planner never chooses the index.
#include "dtree_internal.h"

extern "C" {
#include "access/amvalidate.h"
#include "commands/progress.h"
#include "commands/vacuum.h"
#include "utils/regproc.h"
#include "access/htup_details.h"
#include "catalog/pg_amop.h"
#include "catalog/pg_opclass.h"
#include "catalog/pg_type.h"
#include "optimizer/cost.h"
#include "utils/builtins.h"
#include "utils/catcache.h"
#include "utils/lsyscache.h"
#include "utils/selfuncs.h"
#include "utils/syscache.h"
}

#include "boundary.h"

// The strategies of the operator class.
#define DT_STRATEGY_CONTAINS 1
#define DT_STRATEGY_CONTAINSWORDS 2
#define DT_STRATEGY_DOCLIKE 3
#define DT_NSTRATEGIES 3

namespace {

IndexBuildResult *GuardedBuild(Relation heap, Relation index, IndexInfo *indexInfo) {
    return (IndexBuildResult *) DatumGetPointer(dt::pg::Guard([&]() -> Datum {
        return PointerGetDatum(dt::pg::ServerCall([&] { return dtbuild(heap, index, indexInfo); }));
    }));
}

void GuardedBuildEmpty(Relation index) {
    dt::pg::Guard([&]() -> Datum {
        dt::pg::ServerCall([&] { dtbuildempty(index); });
        return (Datum) 0;
    });
}

bool GuardedInsert(Relation index, Datum *values, bool *isnull, ItemPointer ht_ctid, Relation heapRel,
                   IndexUniqueCheck checkUnique, bool indexUnchanged, IndexInfo *indexInfo) {
    return DatumGetBool(dt::pg::Guard([&]() -> Datum {
        return BoolGetDatum(dt::pg::ServerCall(
            [&] { return dtinsert(index, values, isnull, ht_ctid, heapRel, checkUnique, indexUnchanged, indexInfo); }));
    }));
}

IndexBulkDeleteResult *GuardedBulkDelete(IndexVacuumInfo *info, IndexBulkDeleteResult *stats,
                                         IndexBulkDeleteCallback callback, void *callback_state) {
    return (IndexBulkDeleteResult *) DatumGetPointer(dt::pg::Guard([&]() -> Datum {
        return PointerGetDatum(dt::pg::ServerCall([&] { return dtbulkdelete(info, stats, callback, callback_state); }));
    }));
}

IndexBulkDeleteResult *GuardedVacuumCleanup(IndexVacuumInfo *info, IndexBulkDeleteResult *stats) {
    return (IndexBulkDeleteResult *) DatumGetPointer(dt::pg::Guard([&]() -> Datum {
        return PointerGetDatum(dt::pg::ServerCall([&] { return dtvacuumcleanup(info, stats); }));
    }));
}

bytea *DtOptions(Datum reloptions, bool validate) {
    if (validate && DatumGetPointer(reloptions) != NULL)
        dt::pg::Guard([&]() -> Datum {
            dt::pg::ServerCall([&] {
                ereport(ERROR, (errcode(ERRCODE_INVALID_PARAMETER_VALUE),
                                errmsg("dtree indexes take no storage parameters")));
            });
            return (Datum) 0;
        });
    return NULL;
}

char *DtBuildPhaseName(int64 phasenum) {
    switch (phasenum) {
        case PROGRESS_CREATEIDX_SUBPHASE_INITIALIZE:
            return (char *) "initializing";
        case 2:
            return (char *) "scanning table";
        case 3:
            return (char *) "sorting terms";
        case 4:
            return (char *) "writing term tree";
        default:
            return NULL;
    }
}

bool GuardedValidate(Oid opclassoid) {
    return DatumGetBool(dt::pg::Guard([&]() -> Datum {
        return BoolGetDatum(dt::pg::ServerCall([&] { return dtvalidate(opclassoid); }));
    }));
}

}  // namespace

// Checks the operators of a dtree operator class: search operators of
// strategies 1 to 3 over (doc, text) or (doc, doc) returning boolean;
// ordering operators are allowed; no support functions are used.
bool dtvalidate(Oid opclassoid) {
    bool result = true;
    HeapTuple classtup = SearchSysCache1(CLAOID, ObjectIdGetDatum(opclassoid));
    if (!HeapTupleIsValid(classtup)) elog(ERROR, "cache lookup failed for operator class %u", opclassoid);
    Form_pg_opclass classform = (Form_pg_opclass) GETSTRUCT(classtup);
    Oid opfamilyoid = classform->opcfamily;
    char *opclassname = NameStr(classform->opcname);
    CatCList *oprlist = SearchSysCacheList1(AMOPSTRATEGY, ObjectIdGetDatum(opfamilyoid));
    for (int i = 0; i < oprlist->n_members; i++) {
        Form_pg_amop oprform = (Form_pg_amop) GETSTRUCT(&oprlist->members[i]->tuple);
        if (oprform->amoppurpose == AMOP_ORDER) continue;
        bool ok = oprform->amopstrategy >= 1 && oprform->amopstrategy <= DT_NSTRATEGIES;
        if (ok) {
            Oid right = oprform->amopstrategy == DT_STRATEGY_DOCLIKE ? oprform->amoplefttype : TEXTOID;
            ok = check_amop_signature(oprform->amopopr, BOOLOID, oprform->amoplefttype, right);
        }
        if (!ok) {
            ereport(INFO, (errcode(ERRCODE_INVALID_OBJECT_DEFINITION),
                           errmsg("dtree operator class \"%s\" has an invalid operator %s at strategy %d",
                                  opclassname, format_operator(oprform->amopopr), oprform->amopstrategy)));
            result = false;
        }
    }
    ReleaseCatCacheList(oprlist);
    ReleaseSysCache(classtup);
    return result;
}

extern "C" {
PG_FUNCTION_INFO_V1(pgdoc_dtree_handler);
}

Datum pgdoc_dtree_handler(PG_FUNCTION_ARGS) {
    return dt::pg::Guard([&]() -> Datum {
        IndexAmRoutine *am = dt::pg::ServerCall([] { return makeNode(IndexAmRoutine); });
        // Strategies 1 to 3 search; 4 orders by relevance (<=>).
        am->amstrategies = DT_NSTRATEGIES + 1;
        am->amsupport = 0;
        am->amoptsprocnum = 0;
        am->amcanorder = false;
        am->amcanorderbyop = true;
        am->amcanbackward = true;
        am->amcanunique = false;
        // Accepted so that the build can refuse more than one column with
        // its own error.
        am->amcanmulticol = true;
        am->amoptionalkey = false;
        am->amsearcharray = false;
        am->amsearchnulls = false;
        am->amstorage = false;
        am->amclusterable = false;
        am->ampredlocks = false;
        am->amcanparallel = false;
        am->amcaninclude = false;
        am->amusemaintenanceworkmem = false;
        am->amparallelvacuumoptions = VACUUM_OPTION_PARALLEL_BULKDEL;
        am->amkeytype = InvalidOid;

        am->ambuild = GuardedBuild;
        am->ambuildempty = GuardedBuildEmpty;
        am->aminsert = GuardedInsert;
        am->ambulkdelete = GuardedBulkDelete;
        am->amvacuumcleanup = GuardedVacuumCleanup;
        am->amcanreturn = NULL;
        am->amcostestimate = DtScanCostEstimate;
        am->amoptions = DtOptions;
        am->amproperty = NULL;
        am->ambuildphasename = DtBuildPhaseName;
        am->amvalidate = GuardedValidate;
        am->amadjustmembers = NULL;
        am->ambeginscan = dtbeginscan;
        am->amrescan = dtrescan;
        am->amgettuple = dtgettuple;
        am->amgetbitmap = dtgetbitmap;
        am->amendscan = dtendscan;
        am->ammarkpos = dtmarkpos;
        am->amrestrpos = dtrestrpos;
        am->amestimateparallelscan = NULL;
        am->aminitparallelscan = NULL;
        am->amparallelrescan = NULL;
        return PointerGetDatum(am);
    });
}
