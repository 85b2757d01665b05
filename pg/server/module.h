// Settings of the module, defined when the library is loaded.
#pragma once

#include <string>

extern "C" {
#include "postgres.h"
}

namespace dt::pg {
// document.home: the module's home when VX_HOME is not in the environment.
extern char *home_setting;
// document.tmpdir: the temporary directory ("" = /usr/tmp, else /tmp).
extern char *tmpdir_setting;
// document.dump_stored_form: the output function writes the complete
// stored value (superusers only; used by dumps).
extern bool dump_stored_form_setting;

// The module's home: $VX_HOME of the server's environment, else the
// document.home setting; neither set raises a clear error.
std::string HomeDir();
// The configured temporary directory (document.tmpdir, /usr/tmp or /tmp).
std::string TempBaseDir();
// This backend's own directory for temporary files: TempBaseDir() + "/"
// + "document." + the backend's process id, made (mode 0700) on first use
// and removed when the backend exits (pg/server/tempfile.cc).
std::string TempDir();

// The schema of the extension "document" in this database, or InvalidOid.
// Kept per process until pg_proc or pg_namespace change (a DROP EXTENSION
// drops the functions).  A C-level server call: run it inside ServerCall.
Oid ExtensionSchemaC();
}  // namespace dt::pg
