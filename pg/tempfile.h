// Temporary server files of the module.
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
// Number of files registered now (for tests and checks).
int TempFileCount();

// Installs the transaction callbacks; called once when the library loads.
void TempFileInit();

}  // namespace dt::pg
