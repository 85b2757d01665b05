// Temporary server files of the module.
//
// Every backend keeps its files in a directory of its own inside the
// configured temporary directory, "document." + its process id (see
// TempDir() in module.h), made with mode 0700 when the backend first needs
// it and removed with everything in it when the backend exits.  A backend
// that is killed (SIGKILL, a crash of the server) cannot clean up, so the
// directories of backends that no longer exist are removed whenever the
// library is loaded and whenever a backend makes its own directory.
//
// A file made for one operation is registered here when it is created.  The
// operation removes it when it is done (TempFileRemove); if the transaction
// or subtransaction aborts first, the file is removed then, so an error never
// leaves a temporary file behind.  A file still registered at commit is
// removed as well: temporary files never outlive the transaction that made
// them.
#pragma once

#include <string>

namespace dt::pg {

// A name for a new file in the module's temporary directory, made from the
// last component of `base` (see dt::_dt_MakeTempName), that does not exist yet.
std::string TempFileName(const std::string &base);

// Creates `path` exclusively (mode 0644, write-only) and registers it;
// returns the descriptor, or -1 with errno set (nothing is registered then).
int TempFileCreate(const std::string &path);

// Registers a file that the caller created.
void TempFileRegister(const std::string &path);
// Unlinks the file and forgets it.  Never throws.
void TempFileRemove(const std::string &path);
// Whether `path` is a regular file directly inside this backend's temporary
// directory, compared after resolving both to real paths (so "..", symbolic
// links and a look-alike prefix name no other file).  Never throws.
bool IsOwnTempFile(const std::string &path);
// Number of files registered now (for tests and checks).
int TempFileCount();

// Installs the transaction callbacks; called once when the library loads.
void TempFileInit();

// Removes the directories of temporary files of backends that no longer
// exist from the configured temporary directory (all of them when dir is
// empty: the current setting).  Only directories named "document." and a
// process id, owned by the server's user, whose process is gone, are
// touched.  Returns how many were removed; never throws.
int SweepDeadBackendDirs(const std::string &dir = std::string());

// The name prefix of the backends' directories.
extern const char *const kBackendDirPrefix;

}  // namespace dt::pg
