// The doc type's input and output functions, and documents made from text.
#include <cstring>

#include "boundary.h"
#include "docvalue.h"
#include "doclayout.h"
#include "docinput.h"
#include "module.h"

extern "C" {
#include "utils/guc.h"
}

extern "C" {
PG_FUNCTION_INFO_V1(pgdoc_dt_DocInputFunc);
PG_FUNCTION_INFO_V1(pgdoc_dt_DocOutputFunc);
PG_FUNCTION_INFO_V1(pgdoc_dt_FromText);
}

// dt_FromText(contents text, literal text): a document whose text is
// contents, entered as a client file of that text would be; literal gives
// the format parameters and the name the document is shown with
// ("format(ascii):text" by default).
Datum pgdoc_dt_FromText(PG_FUNCTION_ARGS) {
    return dt::pg::Guard([&]() -> Datum {
        std::string contents = dt::pg::TextArg(fcinfo, 0);
        std::string literal = dt::pg::TextArg(fcinfo, 1);
        if (dt::IsStoredLiteral(literal))
            dt::ErrorRaiseVA("22T02", "TYPE%s", "dt_FromText", "STRING%s", literal, "SYNTAX%s",
                             "name for a text (a stored value is no name)");
        dt::DocHeader h = dt::filldtname(literal);
        return dt::pg::DocDatum(dt::pg::_dt_DocFromText(std::move(h), contents));
    });
}

Datum pgdoc_dt_DocInputFunc(PG_FUNCTION_ARGS) {
    return dt::pg::Guard([&]() -> Datum {
        std::string literal = dt::pg::CStringArg(fcinfo, 0);
        if (dt::IsStoredLiteral(literal)) {
            // A value as a dump wrote it: taken back as it stands.  It names
            // large objects and server files directly, so only superusers
            // may enter it (restores run as one).
            if (!dt::pg::ServerCall([] { return superuser(); }))
                throw dt::Error::User("permission denied to enter a stored document value", "42501",
                                      "Only superusers may restore doc values from a dump.");
            return dt::pg::DocDatum(dt::DocFromStoredLiteral(literal));
        }
        dt::DocHeader h = dt::filldtname(literal);
        std::string path = dt::DocPath(h.bytes.data());
        return dt::pg::DocDatum(dt::pg::_dt_FinishInput(std::move(h), path));
    });
}

Datum pgdoc_dt_DocOutputFunc(PG_FUNCTION_ARGS) {
    return dt::pg::Guard([&]() -> Datum {
        const void *v = dt::pg::DocArg(fcinfo, 0);
        // With document.dump_stored_form on (a superuser-only setting that
        // dumps turn on), the complete stored value, which a superuser's
        // input takes back without fetching any file.
        std::string out = dt::pg::dump_stored_form_setting ? dt::DocStoredLiteral(v) : dt::DocOutputText(v);
        char *p = (char *)dt::pg::ServerCall([&] { return palloc(out.size() + 1); });
        std::memcpy(p, out.c_str(), out.size() + 1);
        return CStringGetDatum(p);
    });
}

extern "C" {
PG_FUNCTION_INFO_V1(pgdoc_dt_DocBytes);
}

// The whole stored value, its length word included, as bytea: byte n of
// the result is byte n of the value.
Datum pgdoc_dt_DocBytes(PG_FUNCTION_ARGS) {
    return dt::pg::Guard([&]() -> Datum {
        const void *v = dt::pg::DocArg(fcinfo, 0);
        size_t len = VARSIZE(v);
        bytea *out = (bytea *)dt::pg::ServerCall([&] { return palloc(len + VARHDRSZ); });
        SET_VARSIZE(out, len + VARHDRSZ);
        memcpy(VARDATA(out), v, len);
        return PointerGetDatum(out);
    });
}
