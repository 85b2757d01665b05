// Split points of dtree pages.
#include "dtreelayout.h"

namespace dt::dtree {

size_t SplitPoint(const size_t *sizes, size_t n) noexcept {
    size_t total = 0;
    for (size_t i = 0; i < n; i++) total += sizes[i];
    size_t left = 0, k = 0;
    while (k < n - 1 && (left + sizes[k]) * 2 <= total) left += sizes[k++];
    if (k == 0) k = 1;
    return k;
}

}  // namespace dt::dtree
