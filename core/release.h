#pragma once

namespace dt {
// The module's release string.
const char *dt_ReleaseText();
}  // namespace dt
