#include "docvalue.h"

#include <cstring>

#include "doclayout.h"

namespace dt::pg {

const void *DocArg(FunctionCallInfo fcinfo, int n) {
    struct varlena *v = VarlenaArg(fcinfo, n);
    dt::ValidateDocValue(v, VARSIZE(v));
    return v;
}

const void *DocFromDatum(Datum d) {
    struct varlena *v = ServerCall([&] { return pg_detoast_datum((struct varlena *)DatumGetPointer(d)); });
    dt::ValidateDocValue(v, VARSIZE(v));
    return v;
}

Datum DocDatum(const std::string &bytes) {
    void *p = ServerCall([&] { return palloc(bytes.size()); });
    std::memcpy(p, bytes.data(), bytes.size());
    return PointerGetDatum(p);
}

}  // namespace dt::pg
