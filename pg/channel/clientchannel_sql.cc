// SQL functions of the client channel:
//   PutClientFile(fromname, toname): sends a server file to the client.
//   dt_ClientFileInfo(clientpath): reads a client file into the server and
//     reports its size and MD5 as the server received it.
#include "boundary.h"
#include "clientchannel.h"
#include "tempfile.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

extern "C" {
#include "access/htup_details.h"
#include "common/cryptohash.h"
#include "funcapi.h"
}

extern "C" {
PG_FUNCTION_INFO_V1(pgdoc_PutClientFile);
PG_FUNCTION_INFO_V1(pgdoc_dt_ClientFileInfo);
}

namespace {

// The text argument into out; false when it is null or empty.
bool NonEmptyTextArg(FunctionCallInfo fcinfo, int n, std::string &out) {
    std::optional<std::string> s = dt::pg::TextArgOrNull(fcinfo, n);
    if (!s || s->empty()) return false;
    out = std::move(*s);
    return true;
}

struct Digest {
    long long size = 0;
    char hex[33] = {0};
};

// Size and MD5 of a server file, read back from the disk.
Digest DigestFile(const std::string &path) {
    int fd = open(path.c_str(), O_RDONLY | O_CLOEXEC);
    if (fd < 0) dt::ErrorRaiseVA("XD00M", "FILENAME%s", path);
    pg_cryptohash_ctx *ctx = dt::pg::ServerCall([] { return pg_cryptohash_create(PG_MD5); });
    Digest d;
    bool ok = pg_cryptohash_init(ctx) == 0;
    char buf[65536];
    while (ok) {
        try {
            dt::pg::CheckInterrupts();
        } catch (...) {
            pg_cryptohash_free(ctx);
            close(fd);
            throw;
        }
        ssize_t r = read(fd, buf, sizeof buf);
        if (r < 0 && errno == EINTR) continue;
        if (r < 0) {
            ok = false;
            break;
        }
        if (r == 0) break;
        d.size += r;
        ok = pg_cryptohash_update(ctx, (const uint8 *)buf, (size_t)r) == 0;
    }
    uint8 sum[16];
    if (ok) ok = pg_cryptohash_final(ctx, sum, sizeof sum) == 0;
    pg_cryptohash_free(ctx);
    close(fd);
    if (!ok) dt::ErrorRaiseVA("XD00P", "SIZE%d", (long long)sizeof buf, "FILENAME%s", path);
    static const char digits[] = "0123456789abcdef";
    for (int i = 0; i < 16; i++) {
        d.hex[2 * i] = digits[sum[i] >> 4];
        d.hex[2 * i + 1] = digits[sum[i] & 15];
    }
    return d;
}

}  // namespace

// PutClientFile(fromname text, toname text) returns text: toname.
Datum pgdoc_PutClientFile(PG_FUNCTION_ARGS) {
    return dt::pg::Guard([&]() -> Datum {
        std::string from, to;
        if (!NonEmptyTextArg(fcinfo, 0, from) || !NonEmptyTextArg(fcinfo, 1, to))
            dt::ErrorRaiseVA("22T02", "TYPE%s", "PutClientFile", "STRING%s", "NULL or ''", "SYNTAX%s", "string");
        dt::pg::RequireServerFileRead(from);
        dt::pg::PutClientFile(from, to);
        return PointerGetDatum(dt::pg::StringToText(to));
    });
}

// dt_ClientFileInfo(clientpath text, OUT size bigint, OUT md5 text).
// The pulled copy lives only for the call.
Datum pgdoc_dt_ClientFileInfo(PG_FUNCTION_ARGS) {
    return dt::pg::Guard([&]() -> Datum {
        std::string client;
        if (!NonEmptyTextArg(fcinfo, 0, client))
            dt::ErrorRaiseVA("22T02", "TYPE%s", "dt_ClientFileInfo", "STRING%s", "NULL or ''", "SYNTAX%s", "client file name");
        TupleDesc desc;
        dt::pg::ServerCall([&] {
            if (get_call_result_type(fcinfo, nullptr, &desc) != TYPEFUNC_COMPOSITE)
                elog(ERROR, "dt_ClientFileInfo must return a record");
            desc = BlessTupleDesc(desc);
        });
        std::string tmp = dt::pg::TempFileName("clientfile");
        dt::pg::GetClientFile(client.c_str(), tmp.c_str());
        Digest d;
        try {
            d = DigestFile(tmp);
        } catch (...) {
            dt::pg::TempFileRemove(tmp);
            throw;
        }
        dt::pg::TempFileRemove(tmp);
        const char *hex = d.hex;
        long long size = d.size;
        return dt::pg::ServerCall([&] {
            Datum values[2] = {Int64GetDatum(size), CStringGetTextDatum(hex)};
            bool nulls[2] = {false, false};
            return HeapTupleGetDatum(heap_form_tuple(desc, values, nulls));
        });
    });
}
