// Conversion steps that extract the text of PostScript files.  Each step
// takes the input and output specifications ("params:path"), writes the
// text of the input file to the output file and returns the output
// specification, or null when a file cannot be opened.
extern "C" {
#include "postgres.h"
#include "fmgr.h"
}

#include <string>

#include "boundary.h"
#include "formatspec.h"
#include "pstext.h"

extern "C" {
PG_FUNCTION_INFO_V1(pgdoc_ps2ascii);
PG_FUNCTION_INFO_V1(pgdoc_dvips2ascii);
}

namespace {

// Runs inside the entry point's guard.
Datum PsStep(FunctionCallInfo fcinfo, int dvi_file) {
    std::string in = dt::pg::TextArg(fcinfo, 0);
    std::string out = dt::pg::TextArg(fcinfo, 1);
    if (!dt::cvps2ascii(dt::SpecPath(in).c_str(), dt::SpecPath(out).c_str(), dvi_file)) {
        fcinfo->isnull = true;
        return (Datum)0;
    }
    return PointerGetDatum(dt::pg::StringToText(out));
}

}  // namespace

extern "C" Datum pgdoc_ps2ascii(PG_FUNCTION_ARGS) {
    return dt::pg::Guard([&]() -> Datum { return PsStep(fcinfo, 0); });
}
extern "C" Datum pgdoc_dvips2ascii(PG_FUNCTION_ARGS) {
    return dt::pg::Guard([&]() -> Datum { return PsStep(fcinfo, 1); });
}
