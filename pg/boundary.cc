#include "boundary.h"

#include <cstdio>
#include <cstring>

extern "C" {
#include "utils/elog.h"
#include "utils/memutils.h"
}

namespace dt::pg {

namespace {
void CopyField(char *dst, size_t size, const char *src) {
    std::snprintf(dst, size, "%s", src ? src : "");
}

bool ValidSqlstate(const char *s) {
    if (std::strlen(s) != 5) return false;
    for (int i = 0; i < 5; i++)
        if (!((s[i] >= '0' && s[i] <= '9') || (s[i] >= 'A' && s[i] <= 'Z'))) return false;
    return true;
}
}  // namespace

void FillPending(PendingError &pe, const dt::Error &e) {
    CopyField(pe.sqlstate, sizeof pe.sqlstate, e.code().c_str());
    if (!ValidSqlstate(pe.sqlstate)) CopyField(pe.sqlstate, sizeof pe.sqlstate, "XX000");
    CopyField(pe.message, sizeof pe.message, e.message().c_str());
    CopyField(pe.detail, sizeof pe.detail, e.detail().c_str());
    pe.hint[0] = '\0';
    if (const std::string *h = e.param("HINT")) CopyField(pe.hint, sizeof pe.hint, h->c_str());
}

void FillPending(PendingError &pe, const char *sqlstate, const char *message) {
    CopyField(pe.sqlstate, sizeof pe.sqlstate, sqlstate);
    CopyField(pe.message, sizeof pe.message, message);
    pe.detail[0] = '\0';
    pe.hint[0] = '\0';
}

void RaisePending(const PendingError &pe) {
    const char *s = pe.sqlstate;
    ereport(ERROR,
            (errcode(MAKE_SQLSTATE(s[0], s[1], s[2], s[3], s[4])),
             errmsg("%s", pe.message),
             pe.detail[0] ? errdetail("%s", pe.detail) : 0,
             pe.hint[0] ? errhint("%s", pe.hint) : 0));
    pg_unreachable();
}

dt::Error TakeServerError(MemoryContext cxt) {
    MemoryContextSwitchTo(cxt);
    ErrorData *edata = CopyErrorData();
    FlushErrorState();
    char state[6];
    const char *code = unpack_sql_state(edata->sqlerrcode);
    std::snprintf(state, sizeof state, "%s", code);
    std::string message = edata->message ? edata->message : "server error";
    std::string detail = edata->detail ? edata->detail : "";
    FreeErrorData(edata);
    return dt::Error::User(message, state, detail);
}

void CheckInterrupts() {
    if (INTERRUPTS_PENDING_CONDITION()) ServerCall([] { CHECK_FOR_INTERRUPTS(); });
}

std::string TextToString(const text *t) {
    return std::string(VARDATA_ANY(t), VARSIZE_ANY_EXHDR(t));
}

text *StringToText(const std::string &s) {
    return ServerCall([&] { return cstring_to_text_with_len(s.data(), (int)s.size()); });
}

std::string TextArg(FunctionCallInfo fcinfo, int n) {
    text *t = ServerCall([&] { return PG_GETARG_TEXT_PP(n); });
    return TextToString(t);
}

Datum TextResult(const std::string &s) { return PointerGetDatum(StringToText(s)); }

Datum NullResult(FunctionCallInfo fcinfo) {
    fcinfo->isnull = true;
    return (Datum)0;
}

}  // namespace dt::pg
