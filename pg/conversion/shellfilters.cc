// Conversion steps that run an external filter program: troff2ascii
// ("deroff"), tex2ascii ("detex") and qwertz_sgml2latex ("format").  The
// program is looked up in the module's filter directory, else under its
// bare name on the server's search path; it runs in the input file's
// directory with the input path as its only argument and the output file as
// its standard output, without a shell.  The step returns the output
// specification, or null when the program is missing, cannot be run or
// exits with a non-zero status (the output file it made is removed then).
extern "C" {
#include "postgres.h"
#include "fmgr.h"
}

#include <sys/stat.h>

#include <string>

#include "boundary.h"
#include "filterrun.h"
#include "formatspec.h"
#include "shellfilter.h"

extern "C" {
PG_FUNCTION_INFO_V1(pgdoc_troff2ascii);
PG_FUNCTION_INFO_V1(pgdoc_tex2ascii);
PG_FUNCTION_INFO_V1(pgdoc_qwertz_sgml2latex);
}

namespace {

bool IsDirectory(const std::string &p) {
    struct stat st;
    return stat(p.c_str(), &st) == 0 && S_ISDIR(st.st_mode);
}

// _shellcnvt: runs inside the entry point's guard.
Datum _shellcnvt(FunctionCallInfo fcinfo, const char *program) {
    std::string in = dt::pg::TextArg(fcinfo, 0);
    std::string out = dt::pg::TextArg(fcinfo, 1);
    const std::string &bin = dt::pg::GetDocBinPath();
    std::string prog = dt::pg::FindFilterProgram(program, bin);
    if (prog.empty()) {
        dt::pg::WarnFilterMissing(program, bin);
        fcinfo->isnull = true;
        return (Datum)0;
    }
    dt::ShellFilterRun plan = dt::ShellFilterPlan(in, out, prog);
    dt::pg::FilterProgramRun run;
    run.argv = plan.argv;
    // A directory that is not one (an input path without '/'): the program
    // runs where the server runs, as "cd" failing would leave it.
    run.dir = IsDirectory(plan.dir) ? plan.dir : std::string();
    run.stdout_path = run.dir.empty() ? dt::SpecPath(out) : plan.outpath;
    run.input_path = plan.argv[1];
    dt::pg::FilterScratch scratch;
    dt::ChildResult res = dt::pg::RunFilterProgram(run, scratch);
    if (!res.started) {
        dt::pg::WarnFilterNotRun(program, res);
        fcinfo->isnull = true;
        return (Datum)0;
    }
    if (res.status != 0) {
        fcinfo->isnull = true;
        return (Datum)0;
    }
    return PointerGetDatum(dt::pg::StringToText(out));
}

}  // namespace

extern "C" Datum pgdoc_troff2ascii(PG_FUNCTION_ARGS) {
    return dt::pg::Guard([&]() -> Datum { return _shellcnvt(fcinfo, "deroff"); });
}
extern "C" Datum pgdoc_tex2ascii(PG_FUNCTION_ARGS) {
    return dt::pg::Guard([&]() -> Datum { return _shellcnvt(fcinfo, "detex"); });
}
extern "C" Datum pgdoc_qwertz_sgml2latex(PG_FUNCTION_ARGS) {
    return dt::pg::Guard([&]() -> Datum { return _shellcnvt(fcinfo, "format"); });
}
