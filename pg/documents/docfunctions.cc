// SQL functions on doc values: lengths, handles, text, server copies,
// display and print commands.
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <vector>

#include "boundary.h"
#include "doclayout.h"
#include "docfunctions.h"
#include "docscan.h"
#include "docvalue.h"
#include "largeobject.h"
#include "module.h"
#include "process.h"
#include "regularfile.h"
#include "tempname.h"

extern "C" {
#include "catalog/pg_authid.h"
#include "catalog/pg_type.h"
#include "mb/pg_wchar.h"
#include "utils/array.h"
}

namespace dt::pg {

namespace {

// A server file being written; removed unless kept.
struct OutputFile {
    std::string path;
    int fd = -1;
    bool keep = false;
    ~OutputFile() {
        if (fd >= 0) close(fd);
        if (!keep && !path.empty()) unlink(path.c_str());
    }
};

void WriteAll(OutputFile &f, const char *p, size_t n) {
    while (n > 0) {
        CheckInterrupts();
        ssize_t w = write(f.fd, p, n);
        if (w < 0 && errno == EINTR) continue;
        if (w < 1) dt::ErrorRaiseVA("XD00S", "SIZE%d", (int)n, "FILENAME%s", f.path);
        p += w;
        n -= (size_t)w;
    }
}


}  // namespace

std::string DocumentText(const void *value) {
    dt::DocView d(value);
    auto handle = dt::DocLOHandleExternal(value);
    if (!handle) return dt::DocSmallText(value);
    if (dt::IsExternalHandle(*handle)) return ExternalDocText(value);
    return ReadLargeObjectText(value);
}

std::string WriteDocToServerFile(const void *value, const std::string &directory) {
    OutputFile f;
    f.path = dt::_dt_MakeTempName(directory, dt::DocPath(value));
    f.fd = open(f.path.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0666);
    if (f.fd < 0) {
        std::string failed = f.path;
        f.path.clear();  // not ours to remove
        dt::ErrorRaiseVA("XD00O", "FILENAME%s", failed, "MODE%o", 769, "PERM%o", 438, "ACCESS%s", "writing",
                         "REASON%s", strerror(errno));
    }
    auto handle = dt::DocLOHandleExternal(value);
    if (handle && !dt::IsExternalHandle(*handle)) {
        LargeObject lo;
        try {
            OpenLargeObject(lo, *handle, false);
        } catch (const dt::Error &) {
            dt::ErrorRaiseVA("TL001", "NAME%s", "Large object error", "OPERATION%s",
                             "Open of large object " + *handle);
        }
        std::vector<char> buf(8084);
        int32 left = dt::DocView(value).ht_realoffset();
        while (left > 0) {
            CheckInterrupts();
            int want = left < 8084 ? left : 8084;
            int got = ReadLargeObject(lo, buf.data(), want);
            if (got == 0) break;
            WriteAll(f, buf.data(), got);
            left -= got;
        }
        CloseLargeObject(lo);
    } else {
        std::string text = DocumentText(value);
        WriteAll(f, text.data(), text.size());
    }
    if (close(f.fd) != 0) {
        f.fd = -1;
        dt::ErrorRaiseVA("XD00S", "SIZE%d", 0, "FILENAME%s", f.path);
    }
    f.fd = -1;
    f.keep = true;
    return f.path;
}

}  // namespace dt::pg


extern "C" {
PG_FUNCTION_INFO_V1(pgdoc_DocLength);
PG_FUNCTION_INFO_V1(pgdoc_DocLOHandle);
PG_FUNCTION_INFO_V1(pgdoc_DocLOHandleExternal);
PG_FUNCTION_INFO_V1(pgdoc_dt_LOhandles);
PG_FUNCTION_INFO_V1(pgdoc_GetDocText);
PG_FUNCTION_INFO_V1(pgdoc_GetDocInternal);
PG_FUNCTION_INFO_V1(pgdoc_DocDisplay);
PG_FUNCTION_INFO_V1(pgdoc_DocPrint);
}

// DocLength(doc): bytes of text; an external file's current size.
Datum pgdoc_DocLength(PG_FUNCTION_ARGS) {
    return dt::pg::Guard([&]() -> Datum {
        const void *v = dt::pg::DocArg(fcinfo, 0);
        auto handle = dt::DocLOHandleExternal(v);
        if (handle && dt::IsExternalHandle(*handle)) {
            std::string path = dt::ExternalHandlePath(*handle);
            struct stat st;
            if (stat(path.c_str(), &st) != 0)
                dt::ErrorRaiseVA("XD00M", "FILENAME%s", path, "REASON%s", strerror(errno));
            return Int32GetDatum((int32)st.st_size);
        }
        return Int32GetDatum(dt::DocView(v).ht_realoffset());
    });
}

// DocLOHandle(doc): the contents part as a handle (null for in-row text).
Datum pgdoc_DocLOHandle(PG_FUNCTION_ARGS) {
    return dt::pg::Guard([&]() -> Datum {
        auto handle = dt::DocLOHandleExternal(dt::pg::DocArg(fcinfo, 0));
        return handle ? dt::pg::TextResult(*handle) : dt::pg::NullResult(fcinfo);
    });
}

// DocLOHandleExternal(doc): the handle of a value with flag 1, else null.
Datum pgdoc_DocLOHandleExternal(PG_FUNCTION_ARGS) {
    return dt::pg::Guard([&]() -> Datum {
        auto handle = dt::DocLOHandleExternal(dt::pg::DocArg(fcinfo, 0));
        return handle ? dt::pg::TextResult(*handle) : dt::pg::NullResult(fcinfo);
    });
}

// dt_LOhandles(doc): the owned large-object handles of the value.
Datum pgdoc_dt_LOhandles(PG_FUNCTION_ARGS) {
    return dt::pg::Guard([&]() -> Datum {
        auto handle = dt::DocLOHandleExternal(dt::pg::DocArg(fcinfo, 0));
        if (!handle || dt::IsExternalHandle(*handle)) return dt::pg::NullResult(fcinfo);
        text *t = dt::pg::StringToText(*handle);
        return dt::pg::ServerCall([&] {
            Datum elem = PointerGetDatum(t);
            return PointerGetDatum(construct_array(&elem, 1, TEXTOID, -1, false, TYPALIGN_INT));
        });
    });
}

// GetDocText(doc): the document text as a text value.
Datum pgdoc_GetDocText(PG_FUNCTION_ARGS) {
    return dt::pg::Guard([&]() -> Datum {
        std::string text = dt::pg::DocumentText(dt::pg::DocArg(fcinfo, 0));
        bool ok = memchr(text.data(), '\0', text.size()) == nullptr &&
                  dt::pg::ServerCall([&] { return pg_verifymbstr(text.data(), (int)text.size(), true); });
        if (!ok)
            throw dt::Error::User("document text is not valid text in the database encoding", "22021",
                                  "Use GetDocInternal or dt_Export to get binary documents as files.");
        return dt::pg::TextResult(text);
    });
}

// GetDocInternal(doc, directory): "spec:file" of a new server file holding
// the document text.
Datum pgdoc_GetDocInternal(PG_FUNCTION_ARGS) {
    return dt::pg::Guard([&]() -> Datum {
        const void *v = dt::pg::DocArg(fcinfo, 0);
        std::string dir = dt::pg::TextArg(fcinfo, 1);
        if (dir.empty())
            dt::ErrorRaiseVA("TL001", "NAME%s", "Directory error", "OPERATION%s", "GetDocInternal",
                             "REASON%s", "no directory given (an empty name)");
        dt::pg::RequireRole(ROLE_PG_WRITE_SERVER_FILES, "pg_write_server_files",
                            "write server files with GetDocInternal");
        std::string file = dt::pg::WriteDocToServerFile(v, dir);
        return dt::pg::TextResult(dt::DocSpec(v) + ":" + file);
    });
}

// DocDisplay(doc, command, display): runs the command on a server copy of the
// document with DISPLAY set; returns its exit status.
Datum pgdoc_DocDisplay(PG_FUNCTION_ARGS) {
    return dt::pg::Guard([&]() -> Datum {
        const void *v = dt::pg::DocArg(fcinfo, 0);
        std::string cmd = dt::pg::TextArg(fcinfo, 1);
        std::string display = dt::pg::TextArg(fcinfo, 2);
        dt::pg::RequireRole(ROLE_PG_EXECUTE_SERVER_PROGRAM, "pg_execute_server_program",
                            "run a program with DocDisplay");
        auto handle = dt::DocLOHandleExternal(v);
        std::string file;
        bool made = false;
        if (handle && dt::IsExternalHandle(*handle)) {
            file = dt::ExternalHandlePath(*handle);
        } else {
            file = dt::pg::WriteDocToServerFile(v, dt::pg::TempDir());
            made = true;
        }
        int status;
        try {
            status = dt::pg::RunCommandOnFile(cmd, file, "DISPLAY=" + display, "DocDisplay");
        } catch (...) {
            if (made) unlink(file.c_str());
            throw;
        }
        if (made) unlink(file.c_str());
        return Int32GetDatum(status);
    });
}

// DocPrint(doc, command): runs the print command on a server copy of the
// document, waits two seconds for a spooler to take it, removes the copy.
Datum pgdoc_DocPrint(PG_FUNCTION_ARGS) {
    return dt::pg::Guard([&]() -> Datum {
        const void *v = dt::pg::DocArg(fcinfo, 0);
        std::string cmd = dt::pg::TextArg(fcinfo, 1);
        dt::pg::RequireRole(ROLE_PG_EXECUTE_SERVER_PROGRAM, "pg_execute_server_program",
                            "run a program with DocPrint");
        std::string file = dt::pg::WriteDocToServerFile(v, dt::pg::TempDir());
        int status;
        try {
            status = dt::pg::RunCommandOnFile(cmd, file, "", "DocPrint");
            dt::pg::ServerCall([] { pg_usleep(2000000L); });
        } catch (...) {
            unlink(file.c_str());
            throw;
        }
        unlink(file.c_str());
        return Int32GetDatum(status);
    });
}

extern "C" {
PG_FUNCTION_INFO_V1(pgdoc_DocWordCnt);
PG_FUNCTION_INFO_V1(pgdoc_DocUWordCnt);
}

namespace {
// Word counts: an owned large object's header; otherwise a rescan.
Datum WordCount(FunctionCallInfo fcinfo, bool unique) {
    const void *v = dt::pg::DocArg(fcinfo, 0);
    auto handle = dt::DocLOHandleExternal(v);
    dt::DocView d(v);
    if (handle && !dt::IsExternalHandle(*handle))
        return Int32GetDatum(unique ? d.ht_hashentries() : d.ht_wordcnt());
    dt::pg::DocScanPtr scan = dt::pg::_dt_MakeDocDesc(v, true);
    return Int32GetDatum(unique ? scan->desc->doc_hashentries() : scan->desc->doc_wordcnt());
}
}  // namespace

// DocWordCnt(doc): term occurrences; DocUWordCnt(doc): distinct terms.
Datum pgdoc_DocWordCnt(PG_FUNCTION_ARGS) {
    return dt::pg::Guard([&]() -> Datum { return WordCount(fcinfo, false); });
}
Datum pgdoc_DocUWordCnt(PG_FUNCTION_ARGS) {
    return dt::pg::Guard([&]() -> Datum { return WordCount(fcinfo, true); });
}
