// Ownership of the large objects that documents are stored in.
//
// Each stored document owns its large object, as an ordinary value owns its
// bytes:
//  - A large object made by document input is "fresh" until a row takes it.
//    The first row (of any table with the module's triggers) that stores the
//    value takes it; any other row that stores a value naming an object it
//    does not own gets its own copy of the object, and the value stored in
//    that row names the copy.
//  - A row that takes an object records it in dt_large_objects as
//    (object, table, column).  Deleting the row, or updating the column to
//    another value, removes the object in the same transaction; MVCC keeps
//    its data readable to older snapshots.  TRUNCATE, DROP TABLE and DROP
//    COLUMN remove the objects recorded for that table or column.
//  - An object nobody took by the end of the transaction (a literal in a
//    SELECT, a row that a later trigger skipped) is removed at commit.
// Nothing ever scans the database to recount: every removal follows from a
// change of the one row that owns the object, under that row's lock.
//
// Large objects belong to the bootstrap superuser, so users cannot remove
// or change them behind the module's back.  The module works on them and on
// the registry with raised rights (RaisedRightsScope), pinned to a safe
// search_path and as a security-restricted operation.
#pragma once

#include "boundary.h"

namespace dt::pg {

// Runs module-internal large-object work as the bootstrap superuser: a
// security-restricted operation with search_path pinned to
// "pg_catalog, pg_temp".  The previous user and settings come back when
// the scope ends (and through the server's abort after an error).
struct RaisedRightsScope {
    Oid saved_user;
    int saved_context;
    int guc_level;
    RaisedRightsScope();
    ~RaisedRightsScope();
    RaisedRightsScope(const RaisedRightsScope &) = delete;
    RaisedRightsScope &operator=(const RaisedRightsScope &) = delete;
};

// Records a large object just made by document input: fresh until a row
// takes it, removed at commit otherwise.
void RegisterLargeObject(Oid oid);

// Removes a large object without taking a lock on it (a delete of a table
// of many documents must not fill the lock table).  Only the row that owns
// the object calls this, under that row's lock.
void DropOwnedLargeObject(Oid oid);

// Sets up the transaction callbacks (at library load).
void LargeObjectOwnershipInit();

}  // namespace dt::pg
