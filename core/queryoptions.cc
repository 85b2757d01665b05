#include "queryoptions.h"

#include <cctype>
#include <climits>
#include <cstdlib>

namespace dt {

namespace {
const char *SkipSpace(const char *p) {
    while (*p && std::isspace((unsigned char)*p)) p++;
    return p;
}
}  // namespace

const char *_dt_GetTupcntPercent(const char *wordlist, int *tupcnt, float *percent) {
    if (!wordlist) return nullptr;
    *percent = 0.0f;
    *tupcnt = -1;
    const char *p = wordlist;
    for (;;) {
        p = SkipSpace(p);
        if (*p == '%') {
            // A number as "%f" reads it (strtof accepts the same forms);
            // without a number the percentage is 0 and only '%' is passed.
            char *end = nullptr;
            float v = std::strtof(p + 1, &end);
            *percent = (float)(v / 100.0);
            p = end == p + 1 ? p + 1 : end;
        } else if (*p == '=') {
            char *end = nullptr;
            long v = std::strtol(p + 1, &end, 10);
            if (v > INT_MAX) v = INT_MAX;
            if (v < INT_MIN) v = INT_MIN;
            *tupcnt = (int)v;
            p = end;
        } else {
            return p;
        }
        p = SkipSpace(p);
        if (*p != '|') return p;
        p++;
    }
}

}  // namespace dt
