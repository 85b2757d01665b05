// The doc type's input and output functions.
#include <sys/stat.h>

#include <cerrno>
#include <cstring>

#include "boundary.h"
#include "docvalue.h"
#include "doclayout.h"
#include "formatspec.h"

extern "C" {
#include "catalog/pg_authid.h"
#include "utils/acl.h"
}

extern "C" {
PG_FUNCTION_INFO_V1(pgdoc_dt_DocInputFunc);
PG_FUNCTION_INFO_V1(pgdoc_dt_DocOutputFunc);
}

namespace {

// Naming a server file needs the rights COPY ... FROM 'file' needs.
void RequireReadServerFiles(const std::string &path) {
    bool ok = dt::pg::ServerCall(
        [] { return has_privs_of_role(GetUserId(), ROLE_PG_READ_SERVER_FILES); });
    if (!ok)
        throw dt::Error::User(
            "permission denied to refer to server file \"" + path + "\"", "42501",
            "Only superusers and members of pg_read_server_files may store ExternalFile documents.");
}

// An ExternalFile document: a handle to the server file, no copy, no table.
std::string MakeExternalDoc(dt::DocHeader h, const std::string &path) {
    if (path.empty() || path[0] != '/')
        dt::ErrorRaiseVA("22T02", "TYPE%s", "doc", "STRING%s", path, "SYNTAX%s",
                         "absolute server path for an ExternalFile document");
    RequireReadServerFiles(path);
    struct stat st;
    if (stat(path.c_str(), &st) != 0 || !S_ISREG(st.st_mode))
        dt::ErrorRaiseVA("XD00M", "FILENAME%s", path);
    if (st.st_size > 0x7FFFFFFF)
        dt::ErrorRaiseVA("XD00P", "SIZE%d", 0x7FFFFFFF, "FILENAME%s", path);
    return dt::MakeExternalDocValue(std::move(h), path, (int32_t)st.st_size);
}

}  // namespace

Datum pgdoc_dt_DocInputFunc(PG_FUNCTION_ARGS) {
    return dt::pg::Guard([&]() -> Datum {
        std::string literal = PG_GETARG_CSTRING(0);
        dt::DocHeader h = dt::filldtname(literal);
        std::string spec = dt::DocSpec(h.bytes.data());
        std::string path = dt::DocPath(h.bytes.data());
        if (dt::findparam("ExternalFile", spec.c_str(), nullptr, 0) >= 0)
            return dt::pg::DocDatum(MakeExternalDoc(std::move(h), path));
        throw dt::Error::User("documents from client files cannot be entered yet",
                              "0A000", "Only ExternalFile documents are supported by this build.");
    });
}

Datum pgdoc_dt_DocOutputFunc(PG_FUNCTION_ARGS) {
    return dt::pg::Guard([&]() -> Datum {
        const void *v = dt::pg::DocArg(fcinfo, 0);
        std::string out = dt::DocOutputText(v);
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
