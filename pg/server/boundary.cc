#include "boundary.h"

#include <cstdio>
#include <cstring>

extern "C" {
#include "catalog/pg_type.h"
#include "utils/array.h"
#include "utils/elog.h"
#include "utils/lsyscache.h"
#include "utils/memutils.h"
}

namespace dt::pg {

namespace {

// Copies src into dst (size bytes with the terminating NUL), cut at a
// character boundary when it is too long.
void CopyField(char *dst, size_t size, const char *src) {
    if (!src) src = "";
    size_t n = dt::Utf8PrefixLength(src, std::strlen(src), size - 1);
    std::memcpy(dst, src, n);
    dst[n] = '\0';
}

bool ValidSqlstate(const char *s) {
    if (std::strlen(s) != 5) return false;
    for (int i = 0; i < 5; i++)
        if (!((s[i] >= '0' && s[i] <= '9') || (s[i] >= 'A' && s[i] <= 'Z'))) return false;
    return true;
}

// The server error caught last, while it is pending (plain data).
bool pending = false;
PendingError caught;

void ClearPending(PendingError &pe) {
    std::memset(&pe, 0, sizeof pe);
    pe.output_to_server = true;
    pe.output_to_client = true;
}

}  // namespace

void FillPending(PendingError &pe, const dt::Error &e) {
    ClearPending(pe);
    CopyField(pe.sqlstate, sizeof pe.sqlstate, e.code().c_str());
    if (!ValidSqlstate(pe.sqlstate)) CopyField(pe.sqlstate, sizeof pe.sqlstate, "XX000");
    CopyField(pe.message, sizeof pe.message, e.message().c_str());
    // The server's own error (and not one the module made from it) is
    // raised again whole: location, object names, reporting choices.
    if (e.fromServer() && pending && std::strcmp(caught.sqlstate, pe.sqlstate) == 0 &&
        std::strcmp(caught.message, pe.message) == 0) {
        pe = caught;
        return;
    }
    CopyField(pe.detail, sizeof pe.detail, e.detail().c_str());
    CopyField(pe.hint, sizeof pe.hint, e.hint().c_str());
    CopyField(pe.context, sizeof pe.context, e.context().c_str());
    pe.server = e.fromServer();
}

void FillPending(PendingError &pe, const char *sqlstate, const char *message) {
    ClearPending(pe);
    CopyField(pe.sqlstate, sizeof pe.sqlstate, sqlstate);
    CopyField(pe.message, sizeof pe.message, message);
}

void RaisePending(const PendingError &pe) {
    pending = false;
    const char *s = pe.sqlstate;
    int code = MAKE_SQLSTATE(s[0], s[1], s[2], s[3], s[4]);
    if (pe.server) {
        // As the server gave it: its context lines already name every
        // frame, so the context callbacks do not run again.
        ErrorData ed;
        std::memset(&ed, 0, sizeof ed);
        ed.elevel = ERROR;
        ed.output_to_server = pe.output_to_server;
        ed.output_to_client = pe.output_to_client;
        ed.hide_stmt = pe.hide_stmt;
        ed.hide_ctx = pe.hide_ctx;
        ed.sqlerrcode = code;
        ed.message = const_cast<char *>(pe.message);
        ed.detail = pe.detail[0] ? const_cast<char *>(pe.detail) : nullptr;
        ed.hint = pe.hint[0] ? const_cast<char *>(pe.hint) : nullptr;
        ed.context = pe.context[0] ? const_cast<char *>(pe.context) : nullptr;
        ed.filename = pe.filename;
        ed.lineno = pe.lineno;
        ed.funcname = pe.funcname;
        ed.schema_name = pe.schema_name[0] ? const_cast<char *>(pe.schema_name) : nullptr;
        ed.table_name = pe.table_name[0] ? const_cast<char *>(pe.table_name) : nullptr;
        ed.column_name = pe.column_name[0] ? const_cast<char *>(pe.column_name) : nullptr;
        ed.datatype_name = pe.datatype_name[0] ? const_cast<char *>(pe.datatype_name) : nullptr;
        ed.constraint_name = pe.constraint_name[0] ? const_cast<char *>(pe.constraint_name) : nullptr;
        ed.internalquery = pe.internalquery[0] ? const_cast<char *>(pe.internalquery) : nullptr;
        ed.internalpos = pe.internalpos;
        ed.cursorpos = pe.cursorpos;
        ed.assoc_context = CurrentMemoryContext;
        ReThrowError(&ed);
    }
    ereport(ERROR, (errcode(code), errmsg("%s", pe.message), pe.detail[0] ? errdetail("%s", pe.detail) : 0,
                    pe.hint[0] ? errhint("%s", pe.hint) : 0));
    pg_unreachable();
}

bool ServerErrorPending() { return pending; }

dt::Error PendingServerError() {
    return dt::Error::Server(caught.sqlstate, caught.message, caught.detail, caught.hint, caught.context);
}

dt::Error TakeServerError(MemoryContext cxt) {
    MemoryContextSwitchTo(cxt);
    ErrorData *edata = CopyErrorData();
    FlushErrorState();
    ClearPending(caught);
    CopyField(caught.sqlstate, sizeof caught.sqlstate, unpack_sql_state(edata->sqlerrcode));
    CopyField(caught.message, sizeof caught.message, edata->message ? edata->message : "server error");
    CopyField(caught.detail, sizeof caught.detail, edata->detail);
    CopyField(caught.hint, sizeof caught.hint, edata->hint);
    CopyField(caught.context, sizeof caught.context, edata->context);
    caught.server = true;
    caught.output_to_server = edata->output_to_server;
    caught.output_to_client = edata->output_to_client;
    caught.hide_stmt = edata->hide_stmt;
    caught.hide_ctx = edata->hide_ctx;
    caught.filename = edata->filename;
    caught.lineno = edata->lineno;
    caught.funcname = edata->funcname;
    CopyField(caught.schema_name, sizeof caught.schema_name, edata->schema_name);
    CopyField(caught.table_name, sizeof caught.table_name, edata->table_name);
    CopyField(caught.column_name, sizeof caught.column_name, edata->column_name);
    CopyField(caught.datatype_name, sizeof caught.datatype_name, edata->datatype_name);
    CopyField(caught.constraint_name, sizeof caught.constraint_name, edata->constraint_name);
    // A query cut short would put the position in the wrong place.
    if (edata->internalquery && std::strlen(edata->internalquery) < sizeof caught.internalquery) {
        CopyField(caught.internalquery, sizeof caught.internalquery, edata->internalquery);
        caught.internalpos = edata->internalpos;
    }
    caught.cursorpos = edata->cursorpos;
    FreeErrorData(edata);
    pending = true;
    return PendingServerError();
}

void CheckInterrupts() {
    if (INTERRUPTS_PENDING_CONDITION()) ServerCall([] { CHECK_FOR_INTERRUPTS(); });
}

std::string TextToString(const text *t) { return std::string(VARDATA_ANY(t), VARSIZE_ANY_EXHDR(t)); }

text *StringToText(const std::string &s) {
    return ServerCall([&] { return cstring_to_text_with_len(s.data(), (int)s.size()); });
}

// ---- arguments ----------------------------------------------------------

bool ArgIsNull(FunctionCallInfo fcinfo, int n) { return n >= fcinfo->nargs || fcinfo->args[n].isnull; }

void RequireArg(FunctionCallInfo fcinfo, int n) {
    if (!ArgIsNull(fcinfo, n)) return;
    Oid fn = fcinfo->flinfo ? fcinfo->flinfo->fn_oid : InvalidOid;
    const char *name = fn != InvalidOid ? ServerCall([&] { return get_func_name(fn); }) : nullptr;
    throw dt::Error::User("null value not allowed for argument " + std::to_string(n + 1) + " of " +
                              (name ? name : "a function of the document module"),
                          "22004");
}

namespace {
// The Datum of a by-value argument that must not be null.
Datum RequiredValue(FunctionCallInfo fcinfo, int n) {
    RequireArg(fcinfo, n);
    return fcinfo->args[n].value;
}
}  // namespace

struct varlena *VarlenaArg(FunctionCallInfo fcinfo, int n) {
    Datum d = RequiredValue(fcinfo, n);
    return ServerCall([&] { return pg_detoast_datum((struct varlena *)DatumGetPointer(d)); });
}

std::string TextArg(FunctionCallInfo fcinfo, int n) { return TextToString((const text *)VarlenaArg(fcinfo, n)); }

std::optional<std::string> TextArgOrNull(FunctionCallInfo fcinfo, int n) {
    if (ArgIsNull(fcinfo, n)) return std::nullopt;
    return TextArg(fcinfo, n);
}

std::string CStringArg(FunctionCallInfo fcinfo, int n) {
    return std::string(DatumGetCString(RequiredValue(fcinfo, n)));
}

std::string ByteaArg(FunctionCallInfo fcinfo, int n) {
    struct varlena *v = VarlenaArg(fcinfo, n);
    return std::string(VARDATA_ANY(v), VARSIZE_ANY_EXHDR(v));
}

std::vector<std::optional<std::string>> TextArrayArg(FunctionCallInfo fcinfo, int n) {
    Datum d = RequiredValue(fcinfo, n);
    Datum *elems = nullptr;
    bool *nulls = nullptr;
    int count = 0;
    ServerCall([&] {
        ArrayType *arr = DatumGetArrayTypeP(d);
        if (ARR_ELEMTYPE(arr) != TEXTOID) elog(ERROR, "text array expected");
        deconstruct_array(arr, TEXTOID, -1, false, TYPALIGN_INT, &elems, &nulls, &count);
    });
    std::vector<std::optional<std::string>> out;
    out.reserve(count);
    for (int i = 0; i < count; i++) {
        if (nulls[i])
            out.emplace_back(std::nullopt);
        else
            out.emplace_back(TextDatumString(elems[i]));
    }
    return out;
}

int16 Int16Arg(FunctionCallInfo fcinfo, int n) { return DatumGetInt16(RequiredValue(fcinfo, n)); }
int32 Int32Arg(FunctionCallInfo fcinfo, int n) { return DatumGetInt32(RequiredValue(fcinfo, n)); }
int64 Int64Arg(FunctionCallInfo fcinfo, int n) { return DatumGetInt64(RequiredValue(fcinfo, n)); }
float4 Float4Arg(FunctionCallInfo fcinfo, int n) { return DatumGetFloat4(RequiredValue(fcinfo, n)); }
float8 Float8Arg(FunctionCallInfo fcinfo, int n) { return DatumGetFloat8(RequiredValue(fcinfo, n)); }
bool BoolArg(FunctionCallInfo fcinfo, int n) { return DatumGetBool(RequiredValue(fcinfo, n)); }
Oid OidArg(FunctionCallInfo fcinfo, int n) { return DatumGetObjectId(RequiredValue(fcinfo, n)); }

Datum DatumArg(FunctionCallInfo fcinfo, int n) { return ArgIsNull(fcinfo, n) ? (Datum)0 : fcinfo->args[n].value; }

std::string TextDatumString(Datum d) {
    const text *t = ServerCall([&] { return (const text *)pg_detoast_datum_packed((struct varlena *)DatumGetPointer(d)); });
    return TextToString(t);
}

Datum TextResult(const std::string &s) { return PointerGetDatum(StringToText(s)); }

Datum NullResult(FunctionCallInfo fcinfo) {
    fcinfo->isnull = true;
    return (Datum)0;
}

}  // namespace dt::pg
