#include "loownership.h"

#include <cstdio>
#include <cstring>
#include <vector>

#include "doclayout.h"
#include "docvalue.h"
#include "largeobject.h"
#include "module.h"

extern "C" {
#include "access/htup_details.h"
#include "access/xact.h"
#include "catalog/pg_authid.h"
#include "catalog/pg_largeobject.h"
#include "catalog/pg_trigger.h"
#include "catalog/pg_largeobject_metadata.h"
#include "catalog/pg_type.h"
#include "commands/trigger.h"
#include "executor/spi.h"
#include "storage/large_object.h"
#include "utils/builtins.h"
#include "utils/guc.h"
#include "utils/lsyscache.h"
#include "utils/rel.h"
#include "utils/syscache.h"
}

namespace dt::pg {

RaisedRightsScope::RaisedRightsScope() : guc_level(-1) {
    GetUserIdAndSecContext(&saved_user, &saved_context);
    SetUserIdAndSecContext(BOOTSTRAP_SUPERUSERID,
                           saved_context | SECURITY_LOCAL_USERID_CHANGE | SECURITY_RESTRICTED_OPERATION);
    try {
        guc_level = ServerCall([] {
            int level = NewGUCNestLevel();
            (void)set_config_option("search_path", "pg_catalog, pg_temp", PGC_SUSET, PGC_S_SESSION,
                                    GUC_ACTION_SAVE, true, 0, false);
            return level;
        });
    } catch (...) {
        SetUserIdAndSecContext(saved_user, saved_context);
        throw;
    }
}

RaisedRightsScope::~RaisedRightsScope() {
    // After a caught server error the abort that follows restores the
    // settings; the server is not called again before it.
    if (guc_level >= 0 && !ServerErrorPending()) {
        int level = guc_level;
        try {
            ServerCall([&] { AtEOXact_GUC(true, level); });
        } catch (...) {
        }
    }
    SetUserIdAndSecContext(saved_user, saved_context);
}

namespace {

// ---- objects made in this transaction -----------------------------------

enum FreshState { kFresh = 0, kTaken = 1, kOwned = 2 };
struct FreshObject {
    Oid oid;
    int level;       // transaction nesting level that made it
    int state;       // FreshState
    int takenlevel;  // level at which a row took it
};
std::vector<FreshObject> fresh_objects;

FreshObject *FindFresh(Oid oid) {
    for (auto &f : fresh_objects)
        if (f.oid == oid) return &f;
    return nullptr;
}

// Removes the objects that no row took (C-level: runs in a callback).
void DropUntakenObjects() {
    for (size_t i = 0; i < fresh_objects.size(); i++) {
        const FreshObject &f = fresh_objects[i];
        if (f.state == kOwned) continue;
        if (!LargeObjectExists(f.oid)) continue;
        LargeObjectDrop(f.oid);
        CommandCounterIncrement();
    }
    fresh_objects.clear();
}

void OwnershipXactCallback(XactEvent event, void *) {
    switch (event) {
        case XACT_EVENT_PRE_COMMIT:
        case XACT_EVENT_PARALLEL_PRE_COMMIT:
        case XACT_EVENT_PRE_PREPARE:
            if (!fresh_objects.empty()) DropUntakenObjects();
            break;
        default:
            fresh_objects.clear();
            break;
    }
}

void OwnershipSubXactCallback(SubXactEvent event, SubTransactionId, SubTransactionId, void *) {
    int level = GetCurrentTransactionNestLevel();
    if (event == SUBXACT_EVENT_ABORT_SUB) {
        size_t keep = 0;
        for (size_t i = 0; i < fresh_objects.size(); i++) {
            FreshObject f = fresh_objects[i];
            if (f.level >= level) continue;  // made inside: rolled back with it
            if (f.state != kFresh && f.takenlevel >= level) f.state = kFresh;
            fresh_objects[keep++] = f;
        }
        fresh_objects.resize(keep);
    } else if (event == SUBXACT_EVENT_COMMIT_SUB) {
        for (auto &f : fresh_objects) {
            if (f.level >= level) f.level = level - 1;
            if (f.state != kFresh && f.takenlevel >= level) f.takenlevel = level - 1;
        }
    }
}

// ---- the registry ---------------------------------------------------------

// A registry statement, planned once per schema of the extension and kept
// for the life of the process.  Every name in it is schema-qualified, and
// it runs in a RaisedRightsScope.
struct RegistryPlan {
    const char *templ;
    int nargs;
    Oid argtypes[3];
    Oid nsp;
    SPIPlanPtr plan;
};

RegistryPlan own_plan = {"INSERT INTO %s (loid, relid, attnum) VALUES ($1, $2, $3)", 3,
                         {OIDOID, OIDOID, INT2OID}, InvalidOid, nullptr};
RegistryPlan release_plan = {"DELETE FROM %s WHERE loid OPERATOR(pg_catalog.=) $1 AND relid OPERATOR(pg_catalog.=) $2"
                             " AND attnum OPERATOR(pg_catalog.=) $3 RETURNING loid",
                             3, {OIDOID, OIDOID, INT2OID}, InvalidOid, nullptr};
RegistryPlan release_table_plan = {"DELETE FROM %s WHERE relid OPERATOR(pg_catalog.=) $1 RETURNING loid", 1,
                                   {OIDOID}, InvalidOid, nullptr};
RegistryPlan release_column_plan = {"DELETE FROM %s WHERE relid OPERATOR(pg_catalog.=) $1"
                                    " AND attnum OPERATOR(pg_catalog.=) $2 RETURNING loid",
                                    2, {OIDOID, INT2OID}, InvalidOid, nullptr};
RegistryPlan release_object_plan = {"DELETE FROM %s WHERE loid OPERATOR(pg_catalog.=) $1 RETURNING loid", 1,
                                    {OIDOID}, InvalidOid, nullptr};

// Runs one registry statement; with drop, removes the large object of
// every row it returns.  Returns the number of rows.  C-level: call inside
// ServerCall.
uint64 RunRegistryC(RegistryPlan *p, Datum *args, bool drop) {
    Oid nsp = ExtensionSchemaC();
    if (!OidIsValid(nsp)) elog(ERROR, "extension \"document\" is not installed in this database");
    if (SPI_connect() != SPI_OK_CONNECT) elog(ERROR, "SPI_connect failed");
    if (!p->plan || p->nsp != nsp) {
        if (p->plan) {
            SPI_freeplan(p->plan);
            p->plan = nullptr;
        }
        const char *schema = get_namespace_name(nsp);
        if (!schema) elog(ERROR, "extension \"document\" is not installed in this database");
        char table[256];
        char sql[512];
        snprintf(table, sizeof table, "%s.dt_large_objects", quote_identifier(schema));
        snprintf(sql, sizeof sql, p->templ, table);
        SPIPlanPtr plan = SPI_prepare(sql, p->nargs, p->argtypes);
        if (!plan || SPI_keepplan(plan) != 0) elog(ERROR, "registry statement failed: %s", sql);
        p->plan = plan;
        p->nsp = nsp;
    }
    int rc = SPI_execute_plan(p->plan, args, nullptr, false, 0);
    if (rc < 0) elog(ERROR, "registry statement failed: %s", p->templ);
    uint64 n = SPI_processed;
    if (drop && SPI_tuptable) {
        for (uint64 i = 0; i < n; i++) {
            CHECK_FOR_INTERRUPTS();
            bool isnull;
            Datum d = SPI_getbinval(SPI_tuptable->vals[i], SPI_tuptable->tupdesc, 1, &isnull);
            if (isnull) continue;
            Oid oid = DatumGetObjectId(d);
            if (LargeObjectExists(oid)) {
                LargeObjectDrop(oid);
                CommandCounterIncrement();
            }
        }
    }
    SPI_finish();
    return n;
}

uint64 RunRegistry(RegistryPlan &p, Datum *args, bool drop) {
    RaisedRightsScope raised;
    RegistryPlan *pp = &p;
    return ServerCall([&] { return RunRegistryC(pp, args, drop); });
}

// The owned large object of a doc value, or InvalidOid.
Oid OwnedOid(const void *v) {
    auto handle = dt::DocLOHandleExternal(v);
    if (!handle || dt::IsExternalHandle(*handle)) return InvalidOid;
    return dt::OwnedHandleOid(*handle);
}

// Whether a column type is this module's doc type: its input function is
// dt_DocInputFunc of the schema that also holds the calling function.
bool IsDocType(Oid typid, Oid schema) {
    return ServerCall([&] {
        HeapTuple tp = SearchSysCache1(TYPEOID, ObjectIdGetDatum(typid));
        if (!HeapTupleIsValid(tp)) return false;
        Oid input = ((Form_pg_type)GETSTRUCT(tp))->typinput;
        ReleaseSysCache(tp);
        char *name = get_func_name(input);
        return name && strcmp(name, "dt_docinputfunc") == 0 && get_func_namespace(input) == schema;
    });
}

// A copy of large object `from`, made fresh (taken by nobody yet).
Oid CopyLargeObject(Oid from) {
    Oid to = CreateLargeObject();
    RegisterLargeObject(to);
    LargeObject src, dst;
    try {
        OpenLargeObject(src, dt::MakeOwnedHandle(from), false);
    } catch (const dt::Error &e) {
        // The value was read under an earlier snapshot than this copy's
        // (CREATE TABLE ... AS: the rows get their copies in a statement of
        // their own), and the row that owned the object has been deleted
        // and committed since.  Storing the value would name nothing.
        if (e.code() != "XD00H") throw;
        throw dt::Error::User("could not copy the document's large object " + std::to_string(from) +
                                  ": a concurrent transaction removed it",
                              "40001",
                              "The value was read before another transaction deleted the row that owned "
                              "its large object. Run the statement again.");
    }
    OpenLargeObject(dst, dt::MakeOwnedHandle(to), true);
    std::vector<char> buf(64 * 1024);
    for (;;) {
        CheckInterrupts();
        int got = ReadLargeObject(src, buf.data(), (int)buf.size());
        if (got <= 0) break;
        WriteLargeObject(dst, buf.data(), got);
    }
    CloseLargeObject(dst);
    CloseLargeObject(src);
    return to;
}

// Several triggers of the same function on one table act once: only the
// first by name among those enabled for this event.
bool IsFirstOfItsKind(TriggerData *td, Oid fn) {
    TriggerEvent ev = td->tg_event;
    TriggerDesc *trigs = td->tg_relation->trigdesc;
    for (int t = 0; trigs && t < trigs->numtriggers; t++) {
        Trigger *other = &trigs->triggers[t];
        if (other->tgfoid == fn && other->tgenabled != TRIGGER_DISABLED &&
            TRIGGER_FOR_ROW(other->tgtype) == TRIGGER_FIRED_FOR_ROW(ev) &&
            strcmp(other->tgname, td->tg_trigger->tgname) < 0 &&
            (TRIGGER_FIRED_BY_INSERT(ev)     ? TRIGGER_FOR_INSERT(other->tgtype)
             : TRIGGER_FIRED_BY_DELETE(ev)   ? TRIGGER_FOR_DELETE(other->tgtype)
             : TRIGGER_FIRED_BY_TRUNCATE(ev) ? TRIGGER_FOR_TRUNCATE(other->tgtype)
                                             : TRIGGER_FOR_UPDATE(other->tgtype)))
            return false;
    }
    return true;
}

TriggerData *TriggerArg(FunctionCallInfo fcinfo, const char *name) {
    if (!CALLED_AS_TRIGGER(fcinfo))
        throw dt::Error::User(std::string(name) + "() must be called as a trigger", "39P01");
    return (TriggerData *)fcinfo->context;
}

// The owned large object in column i of a row (InvalidOid for null, in-row
// and server-file values).
Oid ColumnObject(HeapTuple tup, TupleDesc desc, int i) {
    if (!tup) return InvalidOid;
    bool isnull;
    Datum d = ServerCall([&] { return heap_getattr(tup, i + 1, desc, &isnull); });
    return isnull ? InvalidOid : OwnedOid(DocFromDatum(d));
}

}  // namespace

void RegisterLargeObject(Oid oid) {
    int level = ServerCall([] { return GetCurrentTransactionNestLevel(); });
    fresh_objects.push_back(FreshObject{oid, level, kFresh, 0});
}

void DropOwnedLargeObject(Oid oid) {
    ServerCall([&] {
        if (LargeObjectExists(oid)) {
            LargeObjectDrop(oid);
            CommandCounterIncrement();
        }
    });
}

void LargeObjectOwnershipInit() {
    RegisterXactCallback(OwnershipXactCallback, nullptr);
    RegisterSubXactCallback(OwnershipSubXactCallback, nullptr);
}

}  // namespace dt::pg

extern "C" {
PG_FUNCTION_INFO_V1(pgdoc_assign);
PG_FUNCTION_INFO_V1(pgdoc_destroy);
PG_FUNCTION_INFO_V1(pgdoc_dt_LOOid);
PG_FUNCTION_INFO_V1(pgdoc_dt_ClaimLargeObjects);
PG_FUNCTION_INFO_V1(pgdoc_dt_ManageLargeObjects);
PG_FUNCTION_INFO_V1(pgdoc_dt_TruncateLargeObjects);
PG_FUNCTION_INFO_V1(pgdoc_dt_DropTableLargeObjects);
}

using dt::pg::FindFresh;
using dt::pg::OwnedOid;

// assign(doc): the value as a row may store it.  A value whose large object
// was made in this transaction and is taken by no row comes back as it is;
// any other names a fresh copy of the object (removed at commit unless a
// row takes it).
Datum pgdoc_assign(PG_FUNCTION_ARGS) {
    return dt::pg::Guard([&]() -> Datum {
        const void *v = dt::pg::DocArg(fcinfo, 0);
        Oid oid = OwnedOid(v);
        if (oid == InvalidOid) return dt::pg::DatumArg(fcinfo, 0);
        auto *f = FindFresh(oid);
        if (f && f->state == dt::pg::kFresh) return dt::pg::DatumArg(fcinfo, 0);
        Oid copy = dt::pg::CopyLargeObject(oid);
        return dt::pg::DocDatum(dt::DocWithHandle(v, dt::MakeOwnedHandle(copy)));
    });
}

// destroy(doc): removes the value's large object.  Rows remove their own
// objects; this is for superusers repairing by hand.
Datum pgdoc_destroy(PG_FUNCTION_ARGS) {
    return dt::pg::Guard([&]() -> Datum {
        if (!dt::pg::ServerCall([] { return superuser(); }))
            throw dt::Error::User("permission denied for function destroy", "42501",
                                  "A document's large object is removed with the row that holds it; "
                                  "only superusers may remove one by hand.");
        Oid oid = OwnedOid(dt::pg::DocArg(fcinfo, 0));
        if (oid != InvalidOid) {
            Datum args[1] = {ObjectIdGetDatum(oid)};
            dt::pg::RunRegistry(dt::pg::release_object_plan, args, false);
            dt::pg::DropOwnedLargeObject(oid);
        }
        return Int32GetDatum(0);
    });
}

// dt_LOOid(doc): the identifier of the large object the value owns, or null.
Datum pgdoc_dt_LOOid(PG_FUNCTION_ARGS) {
    return dt::pg::Guard([&]() -> Datum {
        Oid oid = OwnedOid(dt::pg::DocArg(fcinfo, 0));
        if (oid == InvalidOid) return dt::pg::NullResult(fcinfo);
        return ObjectIdGetDatum(oid);
    });
}

// BEFORE INSERT OR UPDATE row trigger: every doc column of the new row gets
// a large object of its own.  A value whose object was just made and is
// not yet taken takes it; a value naming another row's object (a copy from
// another row or table) is given a copy.
Datum pgdoc_dt_ClaimLargeObjects(PG_FUNCTION_ARGS) {
    return dt::pg::Guard([&]() -> Datum {
        TriggerData *td = dt::pg::TriggerArg(fcinfo, "dt_ClaimLargeObjects");
        TriggerEvent ev = td->tg_event;
        if (!TRIGGER_FIRED_FOR_ROW(ev) || !TRIGGER_FIRED_BEFORE(ev) || TRIGGER_FIRED_BY_DELETE(ev))
            throw dt::Error::User("dt_ClaimLargeObjects() must run BEFORE INSERT OR UPDATE ... FOR EACH ROW",
                                  "39P01");
        HeapTuple newtup = TRIGGER_FIRED_BY_UPDATE(ev) ? td->tg_newtuple : td->tg_trigtuple;
        HeapTuple oldtup = TRIGGER_FIRED_BY_UPDATE(ev) ? td->tg_trigtuple : nullptr;
        if (!dt::pg::IsFirstOfItsKind(td, fcinfo->flinfo->fn_oid)) return PointerGetDatum(newtup);
        TupleDesc desc = td->tg_relation->rd_att;
        Oid schema = dt::pg::ServerCall([&] { return get_func_namespace(fcinfo->flinfo->fn_oid); });
        std::vector<int> cols;
        std::vector<Datum> values;
        int level = dt::pg::ServerCall([] { return GetCurrentTransactionNestLevel(); });
        for (int i = 0; i < desc->natts; i++) {
            Form_pg_attribute att = TupleDescAttr(desc, i);
            if (att->attisdropped || !dt::pg::IsDocType(att->atttypid, schema)) continue;
            dt::pg::CheckInterrupts();
            Oid newoid = dt::pg::ColumnObject(newtup, desc, i);
            if (newoid == InvalidOid) continue;
            // A temporary table goes at the end of its session or
            // transaction without a DROP that the module sees, so its rows
            // could never give their objects back.
            if (td->tg_relation->rd_rel->relpersistence == RELPERSISTENCE_TEMP)
                throw dt::Error::User(std::string("a document stored as a large object cannot be kept in temporary table \"") +
                                          RelationGetRelationName(td->tg_relation) + "\"",
                                      "0A000",
                                      "Keep such documents in an ordinary or unlogged table, or keep the text in the row "
                                      "(dt_FromText).");
            // A fresh object is taken even when the update leaves the value
            // as it was: rows that CREATE TABLE ... AS wrote before the
            // triggers were attached hold fresh objects of their own.
            auto *f = FindFresh(newoid);
            if (f && f->state == dt::pg::kFresh) {
                f->state = dt::pg::kTaken;
                f->takenlevel = level;
                continue;
            }
            if (oldtup && dt::pg::ColumnObject(oldtup, desc, i) == newoid) continue;
            bool isnull;
            Datum d = dt::pg::ServerCall([&] { return heap_getattr(newtup, i + 1, desc, &isnull); });
            const void *v = dt::pg::DocFromDatum(d);
            Oid copy = dt::pg::CopyLargeObject(newoid);
            auto *c = FindFresh(copy);
            c->state = dt::pg::kTaken;
            c->takenlevel = level;
            cols.push_back(i + 1);
            values.push_back(dt::pg::DocDatum(dt::DocWithHandle(v, dt::MakeOwnedHandle(copy))));
        }
        if (cols.empty()) return PointerGetDatum(newtup);
        bool *nulls = (bool *)dt::pg::ServerCall([&] { return palloc0(sizeof(bool) * cols.size()); });
        int n = (int)cols.size();
        int *colp = cols.data();
        Datum *valp = values.data();
        HeapTuple out = dt::pg::ServerCall(
            [&] { return heap_modify_tuple_by_cols(newtup, desc, n, colp, valp, nulls); });
        return PointerGetDatum(out);
    });
}

// AFTER INSERT OR UPDATE OR DELETE row trigger: records the objects the new
// row took, and removes the objects the old row owned and the new one no
// longer names.  Only objects recorded for this table and column are
// removed, so a value put in by other means (the triggers disabled) never
// removes another row's object.
Datum pgdoc_dt_ManageLargeObjects(PG_FUNCTION_ARGS) {
    return dt::pg::Guard([&]() -> Datum {
        TriggerData *td = dt::pg::TriggerArg(fcinfo, "dt_ManageLargeObjects");
        TriggerEvent ev = td->tg_event;
        if (!TRIGGER_FIRED_FOR_ROW(ev) || !TRIGGER_FIRED_AFTER(ev))
            throw dt::Error::User("dt_ManageLargeObjects() must run AFTER ... FOR EACH ROW", "39P01");
        if (!dt::pg::IsFirstOfItsKind(td, fcinfo->flinfo->fn_oid)) return PointerGetDatum(nullptr);
        TupleDesc desc = td->tg_relation->rd_att;
        Oid relid = RelationGetRelid(td->tg_relation);
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
            if (att->attisdropped || !dt::pg::IsDocType(att->atttypid, schema)) continue;
            dt::pg::CheckInterrupts();
            Oid newoid = dt::pg::ColumnObject(newtup, desc, i);
            Oid oldoid = dt::pg::ColumnObject(oldtup, desc, i);
            Datum args[3] = {0, ObjectIdGetDatum(relid), Int16GetDatum((int16)(i + 1))};
            if (newoid != InvalidOid) {
                auto *f = FindFresh(newoid);
                if (f && f->state == dt::pg::kTaken) {
                    args[0] = ObjectIdGetDatum(newoid);
                    dt::pg::RunRegistry(dt::pg::own_plan, args, false);
                    f->state = dt::pg::kOwned;
                }
            }
            if (newoid == oldoid) continue;
            if (oldoid != InvalidOid) {
                args[0] = ObjectIdGetDatum(oldoid);
                dt::pg::RunRegistry(dt::pg::release_plan, args, true);
            }
        }
        return PointerGetDatum(nullptr);
    });
}

// BEFORE TRUNCATE statement trigger: removes the objects recorded for the
// table (TRUNCATE holds the table exclusively).
Datum pgdoc_dt_TruncateLargeObjects(PG_FUNCTION_ARGS) {
    return dt::pg::Guard([&]() -> Datum {
        TriggerData *td = dt::pg::TriggerArg(fcinfo, "dt_TruncateLargeObjects");
        if (!TRIGGER_FIRED_BY_TRUNCATE(td->tg_event))
            throw dt::Error::User("dt_TruncateLargeObjects() must run BEFORE TRUNCATE", "39P01");
        Datum args[1] = {ObjectIdGetDatum(RelationGetRelid(td->tg_relation))};
        dt::pg::RunRegistry(dt::pg::release_table_plan, args, true);
        return PointerGetDatum(nullptr);
    });
}

// dt_DropTableLargeObjects(relid, attnum): removes the objects recorded
// for a dropped table (attnum 0) or column.  Called by the sql_drop event
// trigger; superusers only.
Datum pgdoc_dt_DropTableLargeObjects(PG_FUNCTION_ARGS) {
    return dt::pg::Guard([&]() -> Datum {
        if (!dt::pg::ServerCall([] { return superuser(); }))
            throw dt::Error::User("permission denied for function dt_DropTableLargeObjects", "42501");
        Oid relid = dt::pg::OidArg(fcinfo, 0);
        int16 attnum = dt::pg::Int16Arg(fcinfo, 1);
        Datum args[2] = {ObjectIdGetDatum(relid), Int16GetDatum(attnum)};
        uint64 n = attnum == 0 ? dt::pg::RunRegistry(dt::pg::release_table_plan, args, true)
                               : dt::pg::RunRegistry(dt::pg::release_column_plan, args, true);
        return Int64GetDatum((int64)n);
    });
}
