// The options prefix of a word list or an indexed query string.
//
//   "=N"   at most N rows (tupcnt; default -1, no limit)
//   "%P"   a percentage, stored as P / 100 (percent; default 0.0)
//
// Options are separated by '|' and end at the first character that is not
// an option; "=10 | %50 | dog cat" gives 10, 0.5 and "dog cat".
#pragma once

namespace dt {

// Parses the prefix and returns where the words begin.  A null wordlist
// returns null and leaves both outputs untouched.  A later option overrides
// an earlier one of the same kind.
const char *_dt_GetTupcntPercent(const char *wordlist, int *tupcnt, float *percent);

}  // namespace dt
