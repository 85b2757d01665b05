// Reading `doc` arguments and returning `doc` values.
#pragma once

#include "boundary.h"

#include <string>

namespace dt::pg {

// The detoasted value of a doc argument (palloc'd or in place).
const void *DocArg(FunctionCallInfo fcinfo, int n);
// The same for a doc Datum that is not an argument (a column of a row).
const void *DocFromDatum(Datum d);
// A palloc'd copy of built value bytes, as a Datum.
Datum DocDatum(const std::string &bytes);

}  // namespace dt::pg
