// Settings of the module, defined when the library is loaded.
#pragma once

#include <string>

namespace dt::pg {
// document.home: the module's home when VX_HOME is not in the environment.
extern char *home_setting;
// document.tmpdir: the temporary directory ("" = /usr/tmp, else /tmp).
extern char *tmpdir_setting;
}  // namespace dt::pg
