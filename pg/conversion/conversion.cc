// The conversion service: the table "DocumentConversions", conversion steps
// called by name, file conversion, and the SQL functions that take doc
// values and specifications apart.
#include "conversion.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

#include "boundary.h"
#include "doclayout.h"
#include "docvalue.h"
#include "formatspec.h"
#include "module.h"
#include "regularfile.h"
#include "tempfile.h"

extern "C" {
#include "access/genam.h"
#include "access/htup_details.h"
#include "access/table.h"
#include "access/tableam.h"
#include "catalog/dependency.h"
#include "catalog/namespace.h"
#include "catalog/objectaccess.h"
#include "catalog/pg_authid.h"
#include "catalog/pg_collation.h"
#include "catalog/pg_extension.h"
#include "catalog/pg_proc.h"
#include "catalog/pg_type.h"
#include "executor/tuptable.h"
#include "nodes/pg_list.h"
#include "nodes/value.h"
#include "parser/parse_func.h"
#include "utils/acl.h"
#include "utils/array.h"
#include "utils/fmgroids.h"
#include "utils/lsyscache.h"
#include "utils/rel.h"
#include "utils/snapmgr.h"
#include "utils/syscache.h"
#include "commands/extension.h"
#include "miscadmin.h"
#include "utils/varlena.h"
}

namespace dt::pg {
const char *const kConvTableName = "DocumentConversions";
}

// ---- server calls (C style: no objects with destructors) ----------------------

namespace {


enum OpenStatus { OPEN_OK, OPEN_MISSING, OPEN_BAD_SHAPE };

// Opens the conversion table of the extension's schema for reading by the
// current user.  *rel is NULL unless OPEN_OK.
OpenStatus OpenConvTable(const char *name, Relation *rel) {
    *rel = NULL;
    Oid nsp = dt::pg::ExtensionSchemaC();
    if (!OidIsValid(nsp)) return OPEN_MISSING;
    Oid relid = get_relname_relid(name, nsp);
    if (!OidIsValid(relid)) return OPEN_MISSING;
    if (pg_class_aclcheck(relid, GetUserId(), ACL_SELECT) != ACLCHECK_OK) return OPEN_MISSING;
    Relation r = try_table_open(relid, AccessShareLock);
    if (!r) return OPEN_MISSING;
    char kind = r->rd_rel->relkind;
    if (kind != RELKIND_RELATION && kind != RELKIND_MATVIEW) {
        table_close(r, AccessShareLock);
        return OPEN_MISSING;
    }
    TupleDesc td = RelationGetDescr(r);
    bool shape = td->natts >= 3;
    for (int i = 0; shape && i < 3; i++) {
        Form_pg_attribute a = TupleDescAttr(td, i);
        shape = !a->attisdropped && (a->atttypid == TEXTOID || a->atttypid == VARCHAROID);
    }
    if (!shape) {
        table_close(r, AccessShareLock);
        return OPEN_BAD_SHAPE;
    }
    *rel = r;
    return OPEN_OK;
}

struct ConvScan {
    Relation rel;
    TableScanDesc scan;
    TupleTableSlot *slot;
};

void BeginConvScan(ConvScan *cs) {
    Snapshot snap = ActiveSnapshotSet() ? GetActiveSnapshot() : GetTransactionSnapshot();
    cs->slot = table_slot_create(cs->rel, NULL);
    // Rows are read in physical order from the first block: no synchronized
    // scan, which could start in the middle of the table.
    cs->scan = table_beginscan_strat(cs->rel, snap, 0, NULL, true, false);
}

// The next row's three columns as palloc'd strings (NULL for a null column).
// Runs inside ServerCall.
bool NextConvRow(ConvScan *cs, char **vals) {
    if (!table_scan_getnextslot(cs->scan, ForwardScanDirection, cs->slot)) return false;
    for (int i = 0; i < 3; i++) {
        bool isnull;
        Datum d = slot_getattr(cs->slot, i + 1, &isnull);
        vals[i] = isnull ? NULL : text_to_cstring(DatumGetTextPP(d));
    }
    return true;
}

void EndConvScan(ConvScan *cs) {
    table_endscan(cs->scan);
    ExecDropSingleTupleTableSlot(cs->slot);
    // The lock is kept to the end of the transaction.
    table_close(cs->rel, NoLock);
}

enum StepStatus { STEP_OK, STEP_MISSING, STEP_NOT_TEXT, STEP_UNTRUSTED };

// Whether the function belongs to the extension "document".
bool IsModuleFunction(Oid f) {
    Oid ext = get_extension_oid("document", true);
    return OidIsValid(ext) && getExtensionOfObject(ProcedureRelationId, f) == ext;
}

// Looks up the step function (name, possibly schema-qualified, in SQL
// identifier syntax) taking (text, text); checks it returns text and that
// the user may run it as a step:
//  - the module's own steps run for everyone: they work only on the files
//    the service hands them (the temporary files it makes, and server files
//    the user was allowed to name), and the programs they run are fixed;
//    calling them directly is refused by their privileges;
//  - any other function needs EXECUTE, and must belong to a superuser or to
//    the user or a role the user is a member of (a superuser is not taken
//    for a member of every role here): the service never runs another
//    role's code with the user's rights (a row of the table, or a function
//    found first on the user's search_path, must not become a trojan).
// *owner is set to the function's owner for STEP_UNTRUSTED.
StepStatus LookupStep(const char *name, Oid *fn, Oid *owner) {
    *fn = InvalidOid;
    char *raw = pstrdup(name);
    List *parts = NIL;
    if (!SplitIdentifierString(raw, '.', &parts) || parts == NIL) return STEP_MISSING;
    List *names = NIL;
    // Never resolved on the caller's search_path: a bare name is one of the
    // module's own steps, in the extension's schema; any other step is named
    // with its schema in the table.
    if (list_length(parts) == 1) {
        Oid nsp = dt::pg::ExtensionSchemaC();
        if (!OidIsValid(nsp)) return STEP_MISSING;
        names = lappend(names, makeString(get_namespace_name(nsp)));
    }
    ListCell *lc;
    foreach (lc, parts)
        names = lappend(names, makeString((char *)lfirst(lc)));
    Oid argtypes[2] = {TEXTOID, TEXTOID};
    Oid f = LookupFuncName(names, 2, argtypes, true);
    if (!OidIsValid(f)) return STEP_MISSING;
    if (get_func_prokind(f) != PROKIND_FUNCTION || get_func_retset(f) ||
        get_func_rettype(f) != TEXTOID)
        return STEP_NOT_TEXT;
    if (!IsModuleFunction(f)) {
        AclResult acl = pg_proc_aclcheck(f, GetUserId(), ACL_EXECUTE);
        if (acl != ACLCHECK_OK) aclcheck_error(acl, OBJECT_FUNCTION, get_func_name(f));
        HeapTuple tup = SearchSysCache1(PROCOID, ObjectIdGetDatum(f));
        if (!HeapTupleIsValid(tup)) return STEP_MISSING;
        Oid own = ((Form_pg_proc)GETSTRUCT(tup))->proowner;
        ReleaseSysCache(tup);
        if (!superuser_arg(own) && !is_member_of_role_nosuper(GetUserId(), own)) {
            *owner = own;
            return STEP_UNTRUSTED;
        }
    }
    InvokeFunctionExecuteHook(f);
    *fn = f;
    return STEP_OK;
}

// Calls the step; a null result is reported through *isnull.
// Runs inside ServerCall.
text *CallStep(Oid fn, text *in, text *out, bool *isnull) {
    FmgrInfo flinfo;
    LOCAL_FCINFO(fcinfo, 2);
    fmgr_info(fn, &flinfo);
    InitFunctionCallInfoData(*fcinfo, &flinfo, 2, DEFAULT_COLLATION_OID, NULL, NULL);
    fcinfo->args[0].value = PointerGetDatum(in);
    fcinfo->args[0].isnull = false;
    fcinfo->args[1].value = PointerGetDatum(out);
    fcinfo->args[1].isnull = false;
    Datum r = FunctionCallInvoke(fcinfo);
    *isnull = fcinfo->isnull;
    return *isnull ? NULL : DatumGetTextPP(r);
}

// ---- files ---------------------------------------------------------------------

struct Fd {
    int fd = -1;
    ~Fd() {
        if (fd >= 0) close(fd);
    }
};

// Copies a server file with POSIX I/O.  False on any failure; an output
// file that the copy created is removed again then.
bool CopyServerFile(const std::string &from, const std::string &to) {
    Fd in;
    long long size = 0;
    std::string why;
    in.fd = dt::OpenRegularFile(from, &size, &why);
    if (in.fd < 0) return false;
    struct stat sin, sout;
    if (fstat(in.fd, &sin) != 0) return false;
    bool existed = stat(to.c_str(), &sout) == 0;
    // The same file: nothing to copy (truncating it would lose it).
    if (existed && sout.st_dev == sin.st_dev && sout.st_ino == sin.st_ino) return true;
    // Only into a regular file: a FIFO or a device is refused (the
    // non-blocking open does not wait for a FIFO's reader).
    if (existed && !S_ISREG(sout.st_mode)) return false;
    Fd out;
    out.fd = open(to.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC | O_NONBLOCK, 0666);
    if (out.fd < 0) return false;
    if (fstat(out.fd, &sout) != 0 || !S_ISREG(sout.st_mode)) {
        close(out.fd);
        out.fd = -1;
        return false;
    }
    bool ok = true;
    try {
        char buf[65536];
        for (;;) {
            dt::pg::CheckInterrupts();
            ssize_t n = read(in.fd, buf, sizeof buf);
            if (n < 0 && errno == EINTR) continue;
            if (n < 0) {
                ok = false;
                break;
            }
            if (n == 0) break;
            for (ssize_t done = 0; done < n;) {
                ssize_t w = write(out.fd, buf + done, n - done);
                if (w < 0 && errno == EINTR) continue;
                if (w <= 0) {
                    ok = false;
                    break;
                }
                done += w;
            }
            if (!ok) break;
        }
    } catch (...) {
        close(out.fd);
        out.fd = -1;
        if (!existed) unlink(to.c_str());
        throw;
    }
    if (close(out.fd) != 0) ok = false;
    out.fd = -1;
    if (!ok && !existed) unlink(to.c_str());
    return ok;
}

void RemoveTemp(const std::string &name) {
    // A temporary name has no parameter list: the whole text is the path.
    // Only a file of the module's own temporary directory is removed.
    if (dt::pg::IsOwnTempFile(name)) unlink(name.c_str());
}

dt::ConvertOps ServerConvertOps() {
    dt::ConvertOps ops;
    ops.readTable = [] { return dt::pg::DtReadConvTable(dt::pg::kConvTableName); };
    ops.copyFile = CopyServerFile;
    ops.flexec.engage = dt::pg::DtEngageConv;
    ops.flexec.tempname = [](const std::string &outspec) {
        return dt::_gettemptextname(dt::pg::TempDir(), outspec);
    };
    ops.flexec.remove = RemoveTemp;
    return ops;
}

}  // namespace

// ---- the service -------------------------------------------------------------------

namespace dt::pg {

dt::ConvTable DtReadConvTable(const char *ctabname) {
    ConvScan cs;
    OpenStatus st = ServerCall([&] { return OpenConvTable(ctabname, &cs.rel); });
    if (st == OPEN_MISSING)
        dt::ErrorRaiseVA("Z0002", "NAME%s", "Document Conversion System", "TABLE_NAME%s", ctabname);
    if (st == OPEN_BAD_SHAPE)
        throw dt::Error::User(std::string("table \"") + ctabname +
                                  "\" must begin with three text columns",
                              "42804",
                              "The columns are: source format, target format, name of the "
                              "conversion function.");
    ServerCall([&] { BeginConvScan(&cs); });
    dt::ConvTable tab;
    for (;;) {
        CheckInterrupts();
        char *vals[3];
        bool more = ServerCall([&] { return NextConvRow(&cs, vals); });
        if (!more) break;
        // A row with a null column names no conversion: it is skipped.
        if (vals[0] && vals[1] && vals[2]) tab.push_back(dt::Converter{vals[0], vals[1], 0, vals[2]});
        ServerCall([&] {
            for (char *v : vals)
                if (v) pfree(v);
        });
        CheckInterrupts();
    }
    ServerCall([&] { EndConvScan(&cs); });
    return tab;
}

std::optional<std::string> DtEngageConv(const std::string &funcname, const std::string &inspec,
                                        const std::string &outspec) {
    CheckInterrupts();
    Oid fn;
    Oid owner = InvalidOid;
    const char *name = funcname.c_str();
    StepStatus st = ServerCall([&] { return LookupStep(name, &fn, &owner); });
    if (st == STEP_UNTRUSTED) {
        char *ownername = ServerCall([&] { return GetUserNameFromId(owner, true); });
        std::string who = ownername ? ownername : "?";
        throw dt::Error::User("conversion step \"" + funcname + "\" belongs to role \"" + who +
                                  "\", whose code the conversion service does not run for other roles",
                              "42501",
                              "A conversion step is a function of the extension, of a superuser, or of the "
                              "current user or a role it is a member of.");
    }
    if (st == STEP_MISSING) dt::ErrorRaiseVA("P0016", "NAME%T", funcname);
    if (st == STEP_NOT_TEXT)
        throw dt::Error::User("conversion step \"" + funcname + "\" must be a function returning text",
                              "42P13",
                              "A conversion step is a function (input spec text, output spec text) "
                              "returning text.");
    text *in = StringToText(inspec);
    text *out = StringToText(outspec);
    bool isnull = false;
    text *res = ServerCall([&] { return CallStep(fn, in, out, &isnull); });
    if (isnull) return std::nullopt;
    std::string result = TextToString(res);
    // The service reads (and may remove) only the file it handed the step,
    // or a file the step made inside the backend's own temporary directory.
    std::string path = dt::SpecPath(result);
    if (path != dt::SpecPath(outspec) && !IsOwnTempFile(path))
        throw dt::Error::User("conversion step \"" + funcname + "\" returned \"" + result +
                                  "\", which names neither its output file nor a file of the module's "
                                  "temporary directory",
                              "42501",
                              "A conversion step writes the file named by its second argument and "
                              "returns that specification.");
    return result;
}

std::optional<std::string> formatconvert(const std::string &in, const std::string &out) {
    return dt::formatconvert(in, out, ServerConvertOps());
}

}  // namespace dt::pg

// ---- SQL functions ---------------------------------------------------------------------

extern "C" {
PG_FUNCTION_INFO_V1(pgdoc_formatconvert);
PG_FUNCTION_INFO_V1(pgdoc_IsConvertible);
PG_FUNCTION_INFO_V1(pgdoc_dt_ConversionPath);
PG_FUNCTION_INFO_V1(pgdoc_dt_GetPathText);
PG_FUNCTION_INFO_V1(pgdoc_dt_GetPath);
PG_FUNCTION_INFO_V1(pgdoc_dt_GetParams);
PG_FUNCTION_INFO_V1(pgdoc_dt_GetFormat);
}

namespace {
// Naming server files to read and write needs what COPY needs for both.
void RequireServerFiles() {
    bool ok = dt::pg::ServerCall([] {
        return has_privs_of_role(GetUserId(), ROLE_PG_READ_SERVER_FILES) &&
               has_privs_of_role(GetUserId(), ROLE_PG_WRITE_SERVER_FILES);
    });
    if (!ok)
        throw dt::Error::User("permission denied to convert server files", "42501",
                              "Only superusers and roles that are members of both "
                              "pg_read_server_files and pg_write_server_files may call formatconvert.");
}

void RequireAbsolute(const std::string &spec) {
    std::string p = dt::SpecPath(spec);
    if (p.empty() || p[0] != '/')
        throw dt::Error::User("relative path not allowed for formatconvert: \"" + spec + "\"", "42602",
                              "Name server files by absolute paths.");
}

Datum TextDatum(const std::string &s) { return PointerGetDatum(dt::pg::StringToText(s)); }
}  // namespace

// formatconvert(inspec text, outspec text) returns text: the output spec,
// or null when there is no path, a step failed or the copy failed.
Datum pgdoc_formatconvert(PG_FUNCTION_ARGS) {
    return dt::pg::Guard([&]() -> Datum {
        std::string in = dt::pg::TextArg(fcinfo, 0);
        std::string out = dt::pg::TextArg(fcinfo, 1);
        RequireServerFiles();
        RequireAbsolute(in);
        RequireAbsolute(out);
        std::optional<std::string> res = dt::pg::formatconvert(in, out);
        if (!res) {
            fcinfo->isnull = true;
            return (Datum)0;
        }
        return TextDatum(*res);
    });
}

Datum pgdoc_IsConvertible(PG_FUNCTION_ARGS) {
    return dt::pg::Guard([&]() -> Datum {
        const void *v = dt::pg::DocArg(fcinfo, 0);
        std::string format = dt::pg::TextArg(fcinfo, 1);
        bool ok = dt::IsConvertible(dt::DocSpec(v), format, [] {
            return dt::pg::DtReadConvTable(dt::pg::kConvTableName);
        });
        return BoolGetDatum(ok);
    });
}

// dt_ConversionPath(from text, to text) returns text[]: the steps the
// service would run, or null when there is none.
Datum pgdoc_dt_ConversionPath(PG_FUNCTION_ARGS) {
    return dt::pg::Guard([&]() -> Datum {
        std::string from = dt::pg::TextArg(fcinfo, 0);
        std::string to = dt::pg::TextArg(fcinfo, 1);
        dt::ConvTable tab = dt::pg::DtReadConvTable(dt::pg::kConvTableName);
        std::optional<dt::Funclist> fl = dt::_formatlookup(tab, from, to);
        if (!fl) {
            fcinfo->isnull = true;
            return (Datum)0;
        }
        int n = (int)fl->size();
        Datum *elems = (Datum *)dt::pg::ServerCall([&] { return palloc(sizeof(Datum) * n); });
        for (int i = 0; i < n; i++) elems[i] = TextDatum((*fl)[i]);
        ArrayType *arr = dt::pg::ServerCall(
            [&] { return construct_array(elems, n, TEXTOID, -1, false, TYPALIGN_INT); });
        return PointerGetDatum(arr);
    });
}

// The path part of a specification; null for a specification without ':'.
Datum pgdoc_dt_GetPathText(PG_FUNCTION_ARGS) {
    return dt::pg::Guard([&]() -> Datum {
        std::string spec = dt::pg::TextArg(fcinfo, 0);
        std::optional<std::string> p = dt::GetPathText(spec);
        if (!p) {
            fcinfo->isnull = true;
            return (Datum)0;
        }
        return TextDatum(*p);
    });
}

Datum pgdoc_dt_GetPath(PG_FUNCTION_ARGS) {
    return dt::pg::Guard([&]() -> Datum { return TextDatum(dt::DocPath(dt::pg::DocArg(fcinfo, 0))); });
}

Datum pgdoc_dt_GetParams(PG_FUNCTION_ARGS) {
    return dt::pg::Guard([&]() -> Datum { return TextDatum(dt::DocSpec(dt::pg::DocArg(fcinfo, 0))); });
}

Datum pgdoc_dt_GetFormat(PG_FUNCTION_ARGS) {
    return dt::pg::Guard(
        [&]() -> Datum { return TextDatum(dt::DocFormatName(dt::DocSpec(dt::pg::DocArg(fcinfo, 0)))); });
}
