#include "docvalue.h"

#include <cstring>

#include "doclayout.h"

namespace dt::pg {

const void *DocArg(FunctionCallInfo fcinfo, int n) {
    Datum d = fcinfo->args[n].value;
    struct varlena *v = ServerCall([&] { return PG_DETOAST_DATUM(d); });
    dt::ValidateDocValue(v, VARSIZE(v));
    return v;
}

Datum DocDatum(const std::string &bytes) {
    void *p = ServerCall([&] { return palloc(bytes.size()); });
    std::memcpy(p, bytes.data(), bytes.size());
    return PointerGetDatum(p);
}

}  // namespace dt::pg
