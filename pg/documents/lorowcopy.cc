// dt_CopyRowLargeObjects(rel): gives the rows a table already holds large
// objects of their own once its large-object triggers are attached (rows
// of CREATE TABLE AS, a doc column added with a default, triggers that were
// dropped and are put back).  It does so by updating every doc column that
// names a large object to a copy of itself, which the triggers register.
//
// The update fires the table's own row triggers, which are the owner's
// code.  The event trigger that calls this runs with the rights of whoever
// issued the DDL, possibly a superuser altering another role's table, so
// the update runs as the table's owner in a security-restricted operation
// (as the server runs REFRESH MATERIALIZED VIEW and ANALYZE): the owner's
// triggers get the owner's rights and nothing more, and cannot change role.
#include <cstdint>

#include "boundary.h"
#include "module.h"

extern "C" {
#include "access/htup_details.h"
#include "access/relation.h"
#include "catalog/pg_class.h"
#include "catalog/pg_type.h"
#include "executor/spi.h"
#include "lib/stringinfo.h"
#include "miscadmin.h"
#include "utils/acl.h"
#include "utils/builtins.h"
#include "utils/guc.h"
#include "utils/lsyscache.h"
#include "utils/rel.h"
#include "utils/syscache.h"

PG_FUNCTION_INFO_V1(pgdoc_dt_CopyRowLargeObjects);
}

namespace {

using dt::pg::ServerCall;

// The update of one doc column, every name qualified.
char *ColumnUpdateC(Oid rel, const char *schema, const char *column) {
    StringInfoData sql;
    initStringInfo(&sql);
    const char *table = quote_qualified_identifier(get_namespace_name(get_rel_namespace(rel)), get_rel_name(rel));
    const char *col = quote_identifier(column);
    appendStringInfo(&sql, "UPDATE ONLY %s SET %s = %s.assign(%s) WHERE %s.dt_LOOid(%s) IS NOT NULL", table, col,
                     schema, col, schema, col);
    return sql.data;
}

// Runs the updates of the doc columns of rel as its owner; returns the
// number of rows updated.  C-level: call inside ServerCall.
int64 CopyRowsAsOwnerC(Oid rel) {
    HeapTuple tp = SearchSysCache1(RELOID, ObjectIdGetDatum(rel));
    if (!HeapTupleIsValid(tp))
        ereport(ERROR, (errcode(ERRCODE_UNDEFINED_TABLE), errmsg("relation with OID %u does not exist", rel)));
    Form_pg_class cls = (Form_pg_class)GETSTRUCT(tp);
    Oid owner = cls->relowner;
    char kind = cls->relkind;
    ReleaseSysCache(tp);
    if (kind != RELKIND_RELATION) return 0;
    if (!has_privs_of_role(GetUserId(), owner))
        ereport(ERROR, (errcode(ERRCODE_INSUFFICIENT_PRIVILEGE),
                        errmsg("must be owner of table %s", get_rel_name(rel))));
    Oid nsp = dt::pg::ExtensionSchemaC();
    if (!OidIsValid(nsp)) elog(ERROR, "extension \"document\" is not installed in this database");
    Oid doctype = GetSysCacheOid2(TYPENAMENSP, Anum_pg_type_oid, CStringGetDatum("doc"), ObjectIdGetDatum(nsp));
    const char *schema = quote_identifier(get_namespace_name(nsp));

    List *updates = NIL;
    Relation r = relation_open(rel, AccessShareLock);
    TupleDesc td = RelationGetDescr(r);
    for (int i = 0; i < td->natts; i++) {
        Form_pg_attribute a = TupleDescAttr(td, i);
        if (!a->attisdropped && a->atttypid == doctype)
            updates = lappend(updates, ColumnUpdateC(rel, schema, NameStr(a->attname)));
    }
    relation_close(r, AccessShareLock);
    if (updates == NIL) return 0;

    // An error on the way is cleaned up by the abort, which restores the
    // user, the security context and the settings.
    Oid saved_user;
    int saved_context;
    GetUserIdAndSecContext(&saved_user, &saved_context);
    SetUserIdAndSecContext(owner, saved_context | SECURITY_LOCAL_USERID_CHANGE | SECURITY_RESTRICTED_OPERATION);
    int level = NewGUCNestLevel();
    (void)set_config_option("search_path", "pg_catalog, pg_temp", PGC_USERSET, PGC_S_SESSION, GUC_ACTION_SAVE, true,
                            0, false);
    if (SPI_connect() != SPI_OK_CONNECT) elog(ERROR, "SPI_connect failed");
    int64 n = 0;
    ListCell *lc;
    foreach (lc, updates) {
        int rc = SPI_execute((const char *)lfirst(lc), false, 0);
        if (rc != SPI_OK_UPDATE) elog(ERROR, "update of the table's documents failed: %s", (const char *)lfirst(lc));
        n += (int64)SPI_processed;
    }
    SPI_finish();
    AtEOXact_GUC(true, level);
    SetUserIdAndSecContext(saved_user, saved_context);
    return n;
}

}  // namespace

Datum pgdoc_dt_CopyRowLargeObjects(PG_FUNCTION_ARGS) {
    return dt::pg::Guard([&]() -> Datum {
        Oid rel = dt::pg::OidArg(fcinfo, 0);
        int64 n = ServerCall([&] { return CopyRowsAsOwnerC(rel); });
        PG_RETURN_INT64(n);
    });
}
