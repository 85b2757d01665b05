#include "loownership.h"

#include <cstdio>

#include "doclayout.h"
#include "docvalue.h"
#include "largeobject.h"
#include "module.h"

extern "C" {
#include "access/genam.h"
#include "access/htup_details.h"
#include "access/stratnum.h"
#include "access/table.h"
#include "catalog/indexing.h"
#include "catalog/pg_authid.h"
#include "catalog/pg_extension.h"
#include "catalog/pg_largeobject.h"
#include "catalog/pg_type.h"
#include "catalog/pg_trigger.h"
#include "commands/trigger.h"
#include "executor/spi.h"
#include "utils/builtins.h"
#include "utils/fmgroids.h"
#include "utils/lsyscache.h"
#include "utils/rel.h"
#include "utils/syscache.h"
}

namespace dt::pg {

ModuleOwnerScope::ModuleOwnerScope() {
    GetUserIdAndSecContext(&saved_user, &saved_context);
    SetUserIdAndSecContext(BOOTSTRAP_SUPERUSERID, saved_context | SECURITY_LOCAL_USERID_CHANGE);
}

ModuleOwnerScope::~ModuleOwnerScope() { SetUserIdAndSecContext(saved_user, saved_context); }

namespace {


// A registry statement, planned once per schema of the extension and kept
// for the life of the process (the plan cache replans it when the registry
// table changes).
struct RegistryPlan {
    const char *templ;
    Oid nsp;
    SPIPlanPtr plan;
};

RegistryPlan insert_plan = {"INSERT INTO %s (loid, refs) VALUES ($1, 0)", InvalidOid, nullptr};
RegistryPlan addref_plan = {"UPDATE %s SET refs = refs + 1 WHERE loid = $1 RETURNING refs", InvalidOid,
                            nullptr};
RegistryPlan dropref_plan = {"UPDATE %s SET refs = refs - 1 WHERE loid = $1 RETURNING refs", InvalidOid,
                             nullptr};
RegistryPlan delete_plan = {"DELETE FROM %s WHERE loid = $1", InvalidOid, nullptr};

// Runs one statement on the registry with $1 = oid, as the module's owner.
// "%s" in the statement is replaced by the registry's qualified name.
// Returns the int4 first column of the first row, or fallback.
int RegistryStatement(RegistryPlan &p, Oid oid, int fallback) {
    ModuleOwnerScope owner;
    return ServerCall([&] {
        int result = fallback;
        Oid nsp = dt::pg::ExtensionSchemaC();
        if (!OidIsValid(nsp)) elog(ERROR, "extension \"document\" is not installed in this database");
        if (SPI_connect() != SPI_OK_CONNECT) elog(ERROR, "SPI_connect failed");
        if (!p.plan || p.nsp != nsp) {
            if (p.plan) {
                SPI_freeplan(p.plan);
                p.plan = nullptr;
            }
            const char *schema = get_namespace_name(nsp);
            if (!schema) elog(ERROR, "extension \"document\" is not installed in this database");
            char table[256];
            char sql[512];
            snprintf(table, sizeof table, "%s.dt_large_objects", quote_identifier(schema));
            snprintf(sql, sizeof sql, p.templ, table);
            Oid argtypes[1] = {OIDOID};
            SPIPlanPtr plan = SPI_prepare(sql, 1, argtypes);
            if (!plan) elog(ERROR, "registry statement failed: %s", sql);
            if (SPI_keepplan(plan) != 0) elog(ERROR, "registry statement failed: %s", sql);
            p.plan = plan;
            p.nsp = nsp;
        }
        Datum args[1] = {ObjectIdGetDatum(oid)};
        int rc = SPI_execute_plan(p.plan, args, nullptr, false, 1);
        if (rc < 0) elog(ERROR, "registry statement failed: %s", p.templ);
        if (SPI_tuptable && SPI_processed > 0) {
            bool isnull;
            Datum d = SPI_getbinval(SPI_tuptable->vals[0], SPI_tuptable->tupdesc, 1, &isnull);
            if (!isnull) result = DatumGetInt32(d);
        }
        SPI_finish();
        return result;
    });
}

}  // namespace

void RegisterLargeObject(Oid oid) {
    RegistryStatement(insert_plan, oid, 0);
}

namespace {
// Whether the large object exists for the running statement's snapshot
// (not the latest state of the catalog).
bool ExistsForStatement(Oid oid) {
    ModuleOwnerScope owner;
    return ServerCall([&] {
        bool found = false;
        if (SPI_connect() != SPI_OK_CONNECT) elog(ERROR, "SPI_connect failed");
        Oid argtypes[1] = {OIDOID};
        Datum args[1] = {ObjectIdGetDatum(oid)};
        int rc = SPI_execute_with_args("SELECT 1 FROM pg_catalog.pg_largeobject_metadata WHERE oid = $1", 1,
                                       argtypes, args, nullptr, true, 1);
        if (rc < 0) elog(ERROR, "large object lookup failed");
        found = SPI_processed > 0;
        SPI_finish();
        return found;
    });
}
}  // namespace

int AddLargeObjectReference(Oid oid) {
    int refs = RegistryStatement(addref_plan, oid, 0);
    // A value read by this statement whose last other holder a concurrent
    // transaction has removed since: its object is gone, and storing the
    // value would name nothing.  The statement must run again.
    if (refs == 0 && !ServerCall([&] { return LargeObjectExists(oid); }) && ExistsForStatement(oid))
        throw dt::Error::User("could not keep the document's large object " + std::to_string(oid) +
                                  ": a concurrent transaction removed it",
                              "40001",
                              "The value was read before another transaction dropped its last reference. "
                              "Run the statement again.");
    return refs;
}

int DropLargeObjectReference(Oid oid) {
    int left = RegistryStatement(dropref_plan, oid, -1);
    if (left == 0 || left < -1) {
        {
            ModuleOwnerScope owner;
            UnlinkLargeObject(oid);
        }
        RegistryStatement(delete_plan, oid, 0);
        return 0;
    }
    return left;
}

}  // namespace dt::pg

namespace {

// The owned large object of a doc value, or InvalidOid.
Oid OwnedOid(const void *v) {
    auto handle = dt::DocLOHandleExternal(v);
    if (!handle || dt::IsExternalHandle(*handle)) return InvalidOid;
    return dt::OwnedHandleOid(*handle);
}

// Whether a column type is this module's doc type: its input function is
// dt_DocInputFunc of the schema that also holds the calling function.
bool IsDocType(Oid typid, Oid schema) {
    return dt::pg::ServerCall([&] {
        Oid input, ioparam;
        HeapTuple tp = SearchSysCache1(TYPEOID, ObjectIdGetDatum(typid));
        if (!HeapTupleIsValid(tp)) return false;
        input = ((Form_pg_type)GETSTRUCT(tp))->typinput;
        ReleaseSysCache(tp);
        (void)ioparam;
        char *name = get_func_name(input);
        return name && strcmp(name, "dt_docinputfunc") == 0 && get_func_namespace(input) == schema;
    });
}

}  // namespace

extern "C" {
PG_FUNCTION_INFO_V1(pgdoc_assign);
PG_FUNCTION_INFO_V1(pgdoc_destroy);
PG_FUNCTION_INFO_V1(pgdoc_dt_LOOid);
PG_FUNCTION_INFO_V1(pgdoc_dt_ManageLargeObjects);
}

// assign(doc): one more reference to the value's large object.
Datum pgdoc_assign(PG_FUNCTION_ARGS) {
    return dt::pg::Guard([&]() -> Datum {
        Oid oid = OwnedOid(dt::pg::DocArg(fcinfo, 0));
        if (oid != InvalidOid) dt::pg::AddLargeObjectReference(oid);
        return dt::pg::DatumArg(fcinfo, 0);
    });
}

// destroy(doc): one reference less; the large object goes with the last.
Datum pgdoc_destroy(PG_FUNCTION_ARGS) {
    return dt::pg::Guard([&]() -> Datum {
        Oid oid = OwnedOid(dt::pg::DocArg(fcinfo, 0));
        if (oid != InvalidOid) dt::pg::DropLargeObjectReference(oid);
        return Int32GetDatum(0);
    });
}

// dt_LOOid(doc): the identifier of the large object the value owns, or null.
Datum pgdoc_dt_LOOid(PG_FUNCTION_ARGS) {
    return dt::pg::Guard([&]() -> Datum {
        Oid oid = OwnedOid(dt::pg::DocArg(fcinfo, 0));
        if (oid == InvalidOid) {
            fcinfo->isnull = true;
            return (Datum)0;
        }
        return ObjectIdGetDatum(oid);
    });
}

// Row trigger: counts the references of doc values as rows come and go.
Datum pgdoc_dt_ManageLargeObjects(PG_FUNCTION_ARGS) {
    return dt::pg::Guard([&]() -> Datum {
        if (!CALLED_AS_TRIGGER(fcinfo))
            throw dt::Error::User("dt_ManageLargeObjects() must be called as a trigger", "39P01");
        TriggerData *td = (TriggerData *)fcinfo->context;
        TriggerEvent ev = td->tg_event;
        if (!TRIGGER_FIRED_FOR_ROW(ev) || !TRIGGER_FIRED_AFTER(ev))
            throw dt::Error::User("dt_ManageLargeObjects() must run AFTER ... FOR EACH ROW", "39P01");
        // Several such triggers on one table act once: only the first by
        // name among those enabled for this event.
        TriggerDesc *trigs = td->tg_relation->trigdesc;
        for (int t = 0; trigs && t < trigs->numtriggers; t++) {
            Trigger *other = &trigs->triggers[t];
            if (other->tgfoid == td->tg_trigger->tgfoid && other->tgenabled != TRIGGER_DISABLED &&
                TRIGGER_FOR_ROW(other->tgtype) && strcmp(other->tgname, td->tg_trigger->tgname) < 0 &&
                (TRIGGER_FIRED_BY_INSERT(ev) ? TRIGGER_FOR_INSERT(other->tgtype)
                 : TRIGGER_FIRED_BY_DELETE(ev) ? TRIGGER_FOR_DELETE(other->tgtype)
                                               : TRIGGER_FOR_UPDATE(other->tgtype)))
                return PointerGetDatum(nullptr);
        }
        TupleDesc desc = td->tg_relation->rd_att;
        Oid schema = dt::pg::ServerCall([&] { return get_func_namespace(fcinfo->flinfo->fn_oid); });
        HeapTuple oldtup = nullptr, newtup = nullptr;
        if (TRIGGER_FIRED_BY_INSERT(ev))
            newtup = td->tg_trigtuple;
        else if (TRIGGER_FIRED_BY_DELETE(ev))
            oldtup = td->tg_trigtuple;
        else if (TRIGGER_FIRED_BY_UPDATE(ev)) {
            oldtup = td->tg_trigtuple;
            newtup = td->tg_newtuple;
        }
        for (int i = 0; i < desc->natts; i++) {
            Form_pg_attribute att = TupleDescAttr(desc, i);
            if (att->attisdropped || !IsDocType(att->atttypid, schema)) continue;
            Oid newoid = InvalidOid, oldoid = InvalidOid;
            bool isnull;
            if (newtup) {
                Datum d = dt::pg::ServerCall([&] { return heap_getattr(newtup, i + 1, desc, &isnull); });
                if (!isnull) newoid = OwnedOid(dt::pg::DocFromDatum(d));
            }
            if (oldtup) {
                Datum d = dt::pg::ServerCall([&] { return heap_getattr(oldtup, i + 1, desc, &isnull); });
                if (!isnull) oldoid = OwnedOid(dt::pg::DocFromDatum(d));
            }
            if (newoid == oldoid) continue;
            if (newoid != InvalidOid) dt::pg::AddLargeObjectReference(newoid);
            if (oldoid != InvalidOid) dt::pg::DropLargeObjectReference(oldoid);
        }
        return PointerGetDatum(nullptr);
    });
}
