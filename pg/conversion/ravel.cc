// The word-processor conversion steps and the engine behind them.
//
// ravelconv translates the format names of its two specifications through
// the alias table, takes their "version" parameters and hands everything to
// the SQL function "ravelcnvt" (seven text arguments, returning int),
// resolved on first use in the process; statuses 0 and 10 are success.
// raveldummy is the step that converts nothing.
//
// ravelcnvt is the engine the installation ships: it chooses converter
// programs by the short format names (see dt::RavelConverters), finds each
// in the directory of its first argument or on the server's search path and
// runs them, as the shell filters run theirs, until one succeeds.
extern "C" {
#include "postgres.h"
#include "fmgr.h"
#include "catalog/pg_proc.h"
#include "catalog/pg_type.h"
#include "nodes/makefuncs.h"
#include "nodes/pg_list.h"
#include "parser/parse_func.h"
#include "utils/builtins.h"
#include "utils/lsyscache.h"
#include "utils/syscache.h"
}

#include <unistd.h>

#include <string>

#include "boundary.h"
#include "commandline.h"
#include "convpath.h"
#include "filterrun.h"
#include "formatspec.h"
#include "module.h"
#include "ravel.h"

extern "C" {
PG_FUNCTION_INFO_V1(pgdoc_ravelconv);
PG_FUNCTION_INFO_V1(pgdoc_raveldummy);
PG_FUNCTION_INFO_V1(pgdoc_ravelcnvt);
}

namespace {

// The resolved "ravelcnvt" of this process (checked again before each use:
// it may have been dropped and made anew).
Oid ravel_func = InvalidOid;

// ---- server calls (C style) ------------------------------------------------

// "ravelcnvt"(text x 7) returning int in the extension's schema, or
// InvalidOid.  Runs inside ServerCall.
Oid LookupRavelFunc() {
    if (OidIsValid(ravel_func) && SearchSysCacheExists1(PROCOID, ObjectIdGetDatum(ravel_func)))
        return ravel_func;
    ravel_func = InvalidOid;
    Oid nsp = dt::pg::ExtensionSchemaC();
    if (!OidIsValid(nsp)) return InvalidOid;
    List *names = list_make2(makeString(get_namespace_name(nsp)), makeString(pstrdup("ravelcnvt")));
    Oid argtypes[7];
    for (Oid &t : argtypes) t = TEXTOID;
    Oid f = LookupFuncName(names, 7, argtypes, true);
    if (!OidIsValid(f) || get_func_rettype(f) != INT4OID || get_func_retset(f)) return InvalidOid;
    ravel_func = f;
    return f;
}

// Calls it; a null result counts as a failure (-1).  Runs inside ServerCall.
int32 CallRavelFunc(Oid f, text **args) {
    FmgrInfo flinfo;
    LOCAL_FCINFO(fcinfo, 7);
    fmgr_info(f, &flinfo);
    InitFunctionCallInfoData(*fcinfo, &flinfo, 7, InvalidOid, NULL, NULL);
    for (int i = 0; i < 7; i++) {
        fcinfo->args[i].value = PointerGetDatum(args[i]);
        fcinfo->args[i].isnull = false;
    }
    Datum r = FunctionCallInvoke(fcinfo);
    if (fcinfo->isnull) return -1;
    return DatumGetInt32(r);
}

// ---- the step -----------------------------------------------------------------

std::string VersionOf(const std::string &spec) {
    char buf[256];
    if (dt::findparam("version", spec.c_str(), buf, sizeof buf) < 0) return std::string();
    return buf;
}

Datum RavelConv(FunctionCallInfo fcinfo) {
    std::string ifspec = dt::pg::TextArg(fcinfo, 0);
    std::string ofspec = dt::pg::TextArg(fcinfo, 1);
    std::string infmt = dt::getformat(ifspec);
    std::string outfmt = dt::getformat(ofspec);
    dt::fa_lookup(infmt);
    dt::fa_lookup(outfmt);
    std::string iver = VersionOf(ifspec);
    std::string over = VersionOf(ofspec);
    std::string binpath = dt::pg::GetDocBinPath();
    Oid f = dt::pg::ServerCall([] { return LookupRavelFunc(); });
    if (!OidIsValid(f))
        throw dt::Error::User("conversion function \"ravelcnvt\" was not found", "42883",
                              "The word-processor conversion engine is the function "
                              "ravelcnvt(text, text, text, text, text, text, text) returning integer "
                              "in the schema of the extension \"document\".");
    text *args[7] = {
        dt::pg::StringToText(binpath),          dt::pg::StringToText(infmt),
        dt::pg::StringToText(outfmt),           dt::pg::StringToText(iver),
        dt::pg::StringToText(over),             dt::pg::StringToText(dt::SpecPath(ifspec)),
        dt::pg::StringToText(dt::SpecPath(ofspec)),
    };
    int32 status = dt::pg::ServerCall([&] { return CallRavelFunc(f, args); });
    if (!dt::RavelSucceeded(status)) {
        fcinfo->isnull = true;
        return (Datum)0;
    }
    return PointerGetDatum(dt::pg::StringToText(ofspec));
}

// ---- the engine ---------------------------------------------------------------

Datum RavelCnvt(FunctionCallInfo fcinfo) {
    std::string binpath = dt::pg::TextArg(fcinfo, 0);
    std::string infmt = dt::pg::TextArg(fcinfo, 1);
    std::string outfmt = dt::pg::TextArg(fcinfo, 2);
    // Arguments 3 and 4 are the formats' versions: the converters find the
    // version of a document themselves.
    std::string ipath = dt::pg::TextArg(fcinfo, 5);
    std::string opath = dt::pg::TextArg(fcinfo, 6);
    std::vector<dt::RavelConverter> convs = dt::RavelConverters(infmt, outfmt);
    if (convs.empty()) return Int32GetDatum(dt::RAVEL_NO_CONVERTER);
    std::string dir = dt::path(ipath);
    if (dir.empty()) dir = "/";
    for (const dt::RavelConverter &c : convs) {
        std::string prog = dt::pg::FindFilterProgram(c.argv[0], binpath);
        if (prog.empty()) {
            dt::pg::WarnFilterMissing(c.argv[0], binpath);
            continue;
        }
        dt::pg::FilterScratch scratch;
        std::string input = dt::PathArgument(ipath);
        if (c.input == dt::RavelInput::FixedName) {
            // The link is made by the server: it may name any file the
            // service hands over; the program still reads only what the
            // sandbox allows.
            input = scratch.dir + "/" + dt::kRavelLinkName;
            std::string target = ipath;
            if (ipath.empty() || ipath[0] != '/') {
                char cwd[4096];
                if (!getcwd(cwd, sizeof cwd)) continue;
                target = std::string(cwd) + "/" + ipath;
            }
            if (symlink(target.c_str(), input.c_str()) != 0) continue;
        }
        dt::pg::FilterProgramRun run;
        run.argv = dt::RavelArgv(c, input);
        run.argv[0] = prog;
        run.dir = dir;
        if (c.input == dt::RavelInput::StandardInput) run.stdin_path = ipath;
        run.stdout_path = opath;
        run.input_path = ipath;
        dt::ChildResult res = dt::pg::RunFilterProgram(run, scratch);
        if (!res.started) {
            dt::pg::WarnFilterNotRun(c.argv[0], res);
            continue;
        }
        if (res.status == 0) return Int32GetDatum(dt::RAVEL_OK);
    }
    return Int32GetDatum(dt::RAVEL_FAILED);
}

}  // namespace

extern "C" Datum pgdoc_ravelconv(PG_FUNCTION_ARGS) {
    return dt::pg::Guard([&]() -> Datum { return RavelConv(fcinfo); });
}

// The input specification, unchanged; no file is touched.
extern "C" Datum pgdoc_raveldummy(PG_FUNCTION_ARGS) {
    return dt::pg::Guard([&]() -> Datum {
        std::string in = dt::pg::TextArg(fcinfo, 0);
        return PointerGetDatum(dt::pg::StringToText(in));
    });
}

extern "C" Datum pgdoc_ravelcnvt(PG_FUNCTION_ARGS) {
    return dt::pg::Guard([&]() -> Datum { return RavelCnvt(fcinfo); });
}
