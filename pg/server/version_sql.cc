// dt_Release(): the module's release string.
#include "boundary.h"
#include "release.h"

extern "C" {
PG_FUNCTION_INFO_V1(pgdoc_dt_Release);
Datum pgdoc_dt_Release(PG_FUNCTION_ARGS) {
    return dt::pg::Guard([&]() -> Datum {
        return PointerGetDatum(dt::pg::StringToText(dt::dt_ReleaseText()));
    });
}
}
