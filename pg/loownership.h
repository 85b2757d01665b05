// Ownership of the large objects that documents are stored in.
//
// Every large object the module creates is recorded in the table
// dt_large_objects with a reference count.  The trigger function
// dt_ManageLargeObjects counts references as rows are inserted, updated and
// deleted (and truncated), and removes a large object when its last
// reference goes; dt_VacuumLargeObjects recounts the references of every
// doc column in the database and removes the objects nobody refers to (it
// also runs after DROP TABLE).  Large objects belong to the module's owner,
// so users cannot remove or change them behind the module's back; the
// module reads and writes them with that owner's rights (ModuleOwnerScope).
#pragma once

#include "boundary.h"

namespace dt::pg {

// Runs module-internal large-object work as the bootstrap superuser; the
// previous user is restored when the scope ends (and by the server on abort).
struct ModuleOwnerScope {
    Oid saved_user;
    int saved_context;
    ModuleOwnerScope();
    ~ModuleOwnerScope();
    ModuleOwnerScope(const ModuleOwnerScope &) = delete;
    ModuleOwnerScope &operator=(const ModuleOwnerScope &) = delete;
};

// Records a new large object with no references yet.
void RegisterLargeObject(Oid oid);
// Adds one reference; returns the new count (0 when not registered).
int AddLargeObjectReference(Oid oid);
// Drops one reference and removes the object at zero; returns the count
// left (-1 when the object was not registered).
int DropLargeObjectReference(Oid oid);

}  // namespace dt::pg
