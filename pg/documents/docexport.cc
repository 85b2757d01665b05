// Documents to and from the client's machine: GetDoc, dt_Export, dt_Import
// and dt_ConvertTx, over the pushes of the client channel.
#include "docexport.h"

#include <unistd.h>

#include <cstdio>
#include <vector>

#include "boundary.h"
#include "clientchannel.h"
#include "conversion.h"
#include "docfunctions.h"
#include "docinput.h"
#include "docscan.h"
#include "doclayout.h"
#include "docvalue.h"
#include "formatspec.h"
#include "largeobject.h"
#include "module.h"
#include "tempfile.h"
#include "tempname.h"

namespace dt::pg {

namespace {

// A registered temporary file removed when the scope ends.
struct TempOwner {
    std::string path;
    ~TempOwner() {
        if (!path.empty()) TempFileRemove(path);
    }
};

// name cut at its last '.' unless that is its first character: the random
// suffix of _dt_MakeTempName goes.
std::string CutSuffix(const std::string &name) {
    size_t dot = name.rfind('.');
    if (dot == std::string::npos || dot == 0) return name;
    return name.substr(0, dot);
}

// The parameter list and path of an export text: split at the first ':'
// outside parentheses (values such as an external handle hold colons).
void SplitExport(const std::string &s, std::string &params, std::string &path, bool &hascolon) {
    int depth = 0;
    for (size_t i = 0; i < s.size(); i++) {
        char c = s[i];
        if (c == '(') depth++;
        else if (c == ')' && depth > 0) depth--;
        else if (c == ':' && depth == 0) {
            params = s.substr(0, i);
            path = s.substr(i + 1);
            hascolon = true;
            return;
        }
    }
    params.clear();
    path = s;
    hascolon = false;
}

void DeleteParam(std::string &list, const char *name) {
    std::vector<char> buf(list.begin(), list.end());
    buf.push_back('\0');
    if (!dt::deleteparam(name, buf.data()))
        dt::ErrorRaiseVA("22T02", "TYPE%s", "dt_Import", "STRING%s", list, "SYNTAX%s", "export description");
    list = buf.data();
}

void RequireDirectory(const std::string &dir, const char *func) {
    if (dir.empty())
        dt::ErrorRaiseVA("TL001", "NAME%s", "Directory error", "OPERATION%s", func, "REASON%s",
                         "no directory given (an empty name)");
}

}  // namespace

namespace {

// Sends the first ht_realoffset bytes of a large object to the client file name.
void PushLargeObject(const void *value, const std::string &lohandle, const std::string &name, LargeObject &lo) {
    int32 left = dt::DocView(value).ht_realoffset();
    PushBegin(name, left);
    std::vector<char> buf(8192);
    long long total = 0;
    while (left > 0) {
        CheckInterrupts();
        int want = left < 8192 ? left : 8192;
        int got = ReadLargeObject(lo, buf.data(), want);
        if (got == 0) break;
        PushData(buf.data(), (size_t)got);
        total += got;
        left -= got;
    }
    PushEnd(total);
    CloseLargeObject(lo);
    (void)lohandle;
}

void OpenForPush(LargeObject &lo, const std::string &lohandle) {
    if (lohandle.empty())
        dt::ErrorRaiseVA("22T02", "TYPE%s", "PutClientFile", "STRING%s", "NULL", "SYNTAX%s", "string");
    try {
        OpenLargeObject(lo, lohandle, false);
    } catch (const dt::Error &) {
        dt::ErrorRaiseVA("TL001", "NAME%s", "Large object error", "OPERATION%s", "Open of large object " + lohandle);
    }
}

}  // namespace

std::string PutClientLargeObject(const void *value, const std::string &lohandle, const std::string &filename) {
    LargeObject lo;
    OpenForPush(lo, lohandle);
    std::string name = filename + "." + std::to_string(lo.oid);
    PushLargeObject(value, lohandle, name, lo);
    return name;
}

void PutClientLargeObjectAs(const void *value, const std::string &lohandle, const std::string &name) {
    LargeObject lo;
    OpenForPush(lo, lohandle);
    PushLargeObject(value, lohandle, name, lo);
}

// Sends the stored text of a server-file document (its first ht_realoffset
// bytes, as GetDocText reads it) to the client file name.  A file that is
// gone or shorter now raises TL001 before anything is sent.
void PushExternalDocument(const void *value, const std::string &name) {
    dt::DocSource src = ExternalDocSource(value);
    long long size = dt::DocView(value).ht_realoffset();
    PushBegin(name, size);
    std::vector<char> buf(65536);
    long long total = 0;
    for (;;) {
        CheckInterrupts();
        int got = src.read(buf.data(), (int)buf.size());
        if (got == 0) break;
        PushData(buf.data(), (size_t)got);
        total += got;
    }
    src.close();
    PushEnd(total);
}

std::string SendClientSmallDocFile(const std::string &path, const void *value) {
    std::string name = dt::_dt_MakeTempName(path, dt::DocPath(value));
    std::string text = dt::DocSmallText(value);
    PushBegin(name, (long long)text.size());
    PushData(text.data(), text.size());
    PushEnd((long long)text.size());
    return name;
}

}  // namespace dt::pg


extern "C" {
PG_FUNCTION_INFO_V1(pgdoc_GetDoc);
PG_FUNCTION_INFO_V1(pgdoc_dt_Export);
PG_FUNCTION_INFO_V1(pgdoc_dt_Import);
PG_FUNCTION_INFO_V1(pgdoc_dt_ConvertTx);
}

// GetDoc(doc, directory): "spec:file" of a new client file holding the text.
Datum pgdoc_GetDoc(PG_FUNCTION_ARGS) {
    return dt::pg::Guard([&]() -> Datum {
        const void *v = dt::pg::DocArg(fcinfo, 0);
        std::string dir = dt::pg::TextArg(fcinfo, 1);
        dt::pg::RequireDirectory(dir, "GetDoc");
        std::string spec = dt::DocSpec(v);
        auto handle = dt::DocLOHandleExternal(v);
        if (!handle) return dt::pg::TextResult(spec + ":" + dt::pg::SendClientSmallDocFile(dir, v));
        // The directory and the base of the stored path, without a suffix.
        std::string name = dt::pg::CutSuffix(dt::_dt_MakeTempName(dir, dt::DocPath(v)));
        if (dt::IsExternalHandle(*handle)) {
            dt::pg::PushExternalDocument(v, name);
        } else {
            dt::pg::PutClientLargeObjectAs(v, *handle, name);
        }
        return dt::pg::TextResult(spec + ":" + name);
    });
}

// dt_Export(doc, filename): sends the document to the client and describes
// the export in a text that dt_Import accepts.
Datum pgdoc_dt_Export(PG_FUNCTION_ARGS) {
    return dt::pg::Guard([&]() -> Datum {
        const void *v = dt::pg::DocArg(fcinfo, 0);
        std::string filename = dt::pg::TextArg(fcinfo, 1);
        dt::pg::RequireDirectory(filename, "dt_Export");
        std::string spec = dt::DocSpec(v);
        std::string path = dt::DocPath(v);
        auto handle = dt::DocLOHandleExternal(v);
        if (handle) {
            std::string name = dt::IsExternalHandle(*handle) ? path
                                                             : dt::pg::PutClientLargeObject(v, *handle, filename);
            return dt::pg::TextResult("handle(" + *handle + "),ImportName(" + name + ")," + spec + ":" + path);
        }
        std::string name = filename + "." + std::to_string(dt::_dt_random() % 100000);
        std::string text = dt::DocSmallText(v);
        dt::pg::PushBegin(name, (long long)text.size());
        dt::pg::PushData(text.data(), text.size());
        dt::pg::PushEnd((long long)text.size());
        return dt::pg::TextResult("ImportName(" + name + ")," + spec + ":" + path);
    });
}

// dt_Import(text): a new value from an export description; the client file
// (ImportName, else the path) is read and scanned again.
Datum pgdoc_dt_Import(PG_FUNCTION_ARGS) {
    return dt::pg::Guard([&]() -> Datum {
        std::string s = dt::pg::TextArg(fcinfo, 0);
        std::string params, path;
        bool hascolon;
        dt::pg::SplitExport(s, params, path, hascolon);
        std::string clientname;
        if (hascolon) {
            if (dt::findparam("handle", params.c_str(), nullptr, 0) >= 0) dt::pg::DeleteParam(params, "handle");
            if (auto name = dt::FindParamValue("ImportName", params)) {
                clientname = *name;
                dt::pg::DeleteParam(params, "ImportName");
            }
        }
        std::string literal = hascolon ? params + ":" + path : path;
        dt::DocHeader h = dt::filldtname(literal);
        if (clientname.empty()) clientname = dt::DocPath(h.bytes.data());
        return dt::pg::DocDatum(dt::pg::_dt_FinishInput(std::move(h), clientname));
    });
}

// dt_ConvertTx(doc, format, directory): converts the document to the format
// and sends the result to a client file in the directory; returns the
// converted document's specification with the client file's name.
Datum pgdoc_dt_ConvertTx(PG_FUNCTION_ARGS) {
    return dt::pg::Guard([&]() -> Datum {
        const void *v = dt::pg::DocArg(fcinfo, 0);
        std::string frmtstr = dt::pg::TextArg(fcinfo, 1);
        std::string dir = dt::pg::TextArg(fcinfo, 2);
        dt::pg::RequireDirectory(dir, "dt_ConvertTx");
        std::string path = dt::DocPath(v);
        std::string params = dt::DocSpec(v);

        // The document's text as a server file.
        dt::pg::TempOwner input;
        {
            std::string file = dt::pg::WriteDocToServerFile(v, dt::pg::TempDir());
            dt::pg::TempFileRegister(file);
            input.path = file;
        }
        std::string inspec = params + ":" + input.path;

        // The output specification: the document's parameters without its
        // format, then the requested format.
        std::string out;
        if (dt::findparam("format", params.c_str(), nullptr, 0) != -1) {
            out = params;
            std::vector<char> buf(out.begin(), out.end());
            buf.push_back('\0');
            dt::deleteparam("format", buf.data());
            out = buf.data();
            if (!out.empty()) out += ",";
        }
        if (dt::findparam("format", frmtstr.c_str(), nullptr, 0) == -1)
            out += "format(" + frmtstr + ")";
        else
            out += frmtstr;
        dt::pg::TempOwner converted;
        converted.path = dt::pg::TempFileName(path) + ".convert";
        dt::pg::TempFileRegister(converted.path);
        out += ":" + converted.path;

        auto result = dt::pg::formatconvert(inspec, out);
        if (!result) dt::ErrorRaiseVA("XD00T", "OUT%s", frmtstr, "IN%s", params);

        // The client file: the directory, the base of the stored path, and
        // the large object's identifier (or a random number).
        std::string last = dt::pg::CutSuffix(dt::_dt_MakeTempName(dir, path));
        auto handle = dt::DocLOHandleExternal(v);
        std::string clientname;
        if (handle && !dt::IsExternalHandle(*handle))
            clientname = last + "." + std::to_string(dt::OwnedHandleOid(*handle));
        else
            clientname = last + "." + std::to_string(dt::_dt_random() % 100000);
        // A step may name another file than the one asked for: the input
        // itself (a step that needs no conversion), or a file it made in the
        // module's temporary directory (the service refused any other, see
        // DtEngageConv); the latter is removed after the copy too.
        std::string convfile = dt::SpecPath(*result);
        dt::pg::TempOwner other;
        if (convfile != converted.path && convfile != input.path && dt::pg::IsOwnTempFile(convfile))
            other.path = convfile;
        dt::pg::PutClientFile(convfile, clientname);

        std::string head = out.substr(0, out.find(':'));
        return dt::pg::TextResult(head + ":" + clientname);
    });
}
