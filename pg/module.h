// Settings of the module, defined when the library is loaded.
#pragma once

#include <string>

namespace dt::pg {
// document.home: the module's home when VX_HOME is not in the environment.
extern char *home_setting;
// document.tmpdir: the temporary directory ("" = /usr/tmp, else /tmp).
extern char *tmpdir_setting;

// The module's home: $VX_HOME of the server's environment, else the
// document.home setting; neither set raises a clear error.
std::string HomeDir();
// The directory for temporary files (document.tmpdir, /usr/tmp or /tmp).
std::string TempDir();
}  // namespace dt::pg
