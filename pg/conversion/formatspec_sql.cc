// findparamtx and findparamdoc: parameter values of format specifications.
#include <vector>

#include "boundary.h"
#include "docvalue.h"
#include "doclayout.h"
#include "formatspec.h"

extern "C" {
PG_FUNCTION_INFO_V1(pgdoc_findparamtx);
PG_FUNCTION_INFO_V1(pgdoc_findparamdoc);
}

namespace {
// The value of param in list as text; SQL null when absent.
Datum FindParamDatum(FunctionCallInfo fcinfo, const std::string &param, const std::string &list) {
    std::vector<char> buf(list.size() + 1);
    int n = dt::findparam(param.c_str(), list.c_str(), buf.data(), (int)list.size());
    if (n < 0) {
        fcinfo->isnull = true;
        return (Datum)0;
    }
    return PointerGetDatum(dt::pg::StringToText(std::string(buf.data(), n)));
}
}  // namespace

Datum pgdoc_findparamtx(PG_FUNCTION_ARGS) {
    return dt::pg::Guard([&]() -> Datum {
        std::string param = dt::pg::TextArg(fcinfo, 0);
        std::string list = dt::pg::TextArg(fcinfo, 1);
        return FindParamDatum(fcinfo, param, list);
    });
}

Datum pgdoc_findparamdoc(PG_FUNCTION_ARGS) {
    return dt::pg::Guard([&]() -> Datum {
        std::string param = dt::pg::TextArg(fcinfo, 0);
        const void *v = dt::pg::DocArg(fcinfo, 1);
        return FindParamDatum(fcinfo, param, dt::DocSpec(v));
    });
}
