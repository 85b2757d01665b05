#include "release.h"

namespace dt {
const char *dt_ReleaseText() { return "Release 1.2.1 Fri Feb  3 15:18:40 PST 1995"; }
}  // namespace dt
