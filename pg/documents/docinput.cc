#include "docinput.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <vector>

#include "boundary.h"
#include "clientchannel.h"
#include "conversion.h"
#include "docscan.h"
#include "formatspec.h"
#include "largeobject.h"
#include "loownership.h"
#include "tempfile.h"
#include "wordnet.h"

namespace dt::pg {

namespace {

bool HasParam(const std::string &spec, const char *name) {
    return dt::findparam(name, spec.c_str(), nullptr, 0) >= 0;
}

// A registered temporary file, removed when the owner is done.
struct TempFileOwner {
    std::string path;
    ~TempFileOwner() {
        if (!path.empty()) TempFileRemove(path);
    }
};

// An open descriptor closed at scope end.
struct FdOwner {
    int fd = -1;
    ~FdOwner() {
        if (fd >= 0) close(fd);
    }
};

// The small-document limit: 100, or the ExpandLimit parameter.
int SmallLimit(const std::string &spec) {
    auto limit = dt::FindParamValue("ExpandLimit", spec);
    if (!limit) return dt::kSmallDocLimit;
    // Only a plain decimal number from 0 to the largest limit: a sign,
    // letters, blanks or an empty value are refused like a number too large.
    bool digits = !limit->empty() && limit->size() <= 9;
    for (char c : *limit)
        if (c < '0' || c > '9') digits = false;
    int value = digits ? std::atoi(limit->c_str()) : dt::kMaxExpandLimit + 1;
    if (value > dt::kMaxExpandLimit)
        dt::User_ErrorRaise("ExpandLimit can be no larger than 2048, received " + *limit);
    return value;
}

std::string ReadSmallText(int fd, int32_t size, const std::string &orig) {
    std::string text(size, '\0');
    size_t off = 0;
    while (off < (size_t)size) {
        ssize_t got = read(fd, &text[off], size - off);
        if (got < 0 && errno == EINTR) continue;
        if (got <= 0)
            dt::ErrorRaiseVA("XD00P", "SIZE%d", 8084, "FILENAME%s", orig, "REASON%s",
                             got < 0 ? strerror(errno) : "the file ended early");
        off += (size_t)got;
    }
    return text;
}

}  // namespace

namespace {
// The rest of entering a document once its text is in the temporary file
// receivedpath (removed by the caller): conversion, scan, storage.
std::string FinishReceived(dt::DocHeader header, const std::string &spec, int smalllimit,
                           const std::string &receivedpath, const std::string &orig_filename);
}  // namespace

std::string _dt_ExtDoc(dt::DocHeader header, const std::string &filename) {
    if (filename.empty() || filename[0] != '/')
        dt::ErrorRaiseVA("22T02", "TYPE%s", "doc", "STRING%s", filename, "SYNTAX%s",
                         "absolute server path for an ExternalFile document");
    RequireServerFileRead(filename);
    struct stat st;
    if (stat(filename.c_str(), &st) != 0)
        dt::ErrorRaiseVA("XD00M", "FILENAME%s", filename, "REASON%s", strerror(errno));
    if (!S_ISREG(st.st_mode))
        dt::ErrorRaiseVA("XD00M", "FILENAME%s", filename, "REASON%s",
                         S_ISDIR(st.st_mode) ? "it is a directory, not a regular file" : "it is not a regular file");
    if (st.st_size > 0x7FFFFFFF) dt::ErrorRaiseVA("XD00P", "SIZE%d", 0x7FFFFFFF, "FILENAME%s", filename);
    return dt::MakeExternalDocValue(std::move(header), filename, (int32_t)st.st_size);
}

std::string _dt_FinishInput(dt::DocHeader header, const std::string &orig_filename) {
    std::string spec = dt::DocSpec(header.bytes.data());
    if (HasParam(spec, "ExternalFile")) return _dt_ExtDoc(std::move(header), orig_filename);
    if (orig_filename.empty())
        dt::ErrorRaiseVA("22T02", "TYPE%s", "doc", "STRING%s", "\"\"", "SYNTAX%s",
                         "document: name a file, optionally after a format specification and a colon "
                         "(format(ascii):/path/to/file)");
    // A bad ExpandLimit is refused before anything is fetched.
    int smalllimit = SmallLimit(spec);

    TempFileOwner received;
    received.path = TempFileName(orig_filename.empty() ? "doc" : orig_filename);
    GetClientFile(orig_filename.c_str(), received.path.c_str());
    return FinishReceived(std::move(header), spec, smalllimit, received.path, orig_filename);
}

std::string _dt_DocFromText(dt::DocHeader header, const std::string &text) {
    std::string spec = dt::DocSpec(header.bytes.data());
    std::string name = dt::DocPath(header.bytes.data());
    if (HasParam(spec, "ExternalFile"))
        dt::ErrorRaiseVA("22T02", "TYPE%s", "dt_FromText", "STRING%s", spec, "SYNTAX%s",
                         "specification for a text (ExternalFile names a server file)");
    int smalllimit = SmallLimit(spec);
    TempFileOwner received;
    received.path = TextToTempFile(text, name.empty() ? "text" : name);
    return FinishReceived(std::move(header), spec, smalllimit, received.path, name);
}

namespace {

std::string FinishReceived(dt::DocHeader header, const std::string &spec, int smalllimit,
                           const std::string &receivedpath, const std::string &orig_filename) {
    bool copy = !HasParam(spec, "NoCopyText");
    int32_t size = 0;
    if (copy) {
        struct stat st;
        if (stat(receivedpath.c_str(), &st) != 0)
            dt::ErrorRaiseVA("XD00M", "FILENAME%s", receivedpath, "REASON%s", strerror(errno));
        if (st.st_size > 0x7FFFFFFF)
            dt::ErrorRaiseVA("XD00P", "SIZE%d", 0x7FFFFFFF, "FILENAME%s", orig_filename);
        size = (int32_t)st.st_size;
    }

    // Text for scanning: ASCII documents are scanned as received, others
    // are converted to a temporary text file first.
    auto format = dt::FindParamValue("format", spec);
    TempFileOwner converted;
    std::string scanpath = receivedpath;
    if (format && *format != "ascii") {
        std::string target = TempFileName(receivedpath) + ".docinp";
        TempFileRegister(target);
        converted.path = target;
        auto result = formatconvert(spec + ":" + receivedpath, "format(ascii):" + target);
        if (!result) RaiseConversionFailed(spec, orig_filename);
        scanpath = dt::SpecPath(*result);
    }
    DocDescPtr desc;
    try {
        WordnetScope wn;
        desc = _dt_PrepareUnixDoc(scanpath.c_str(), ServerStemHooks());
    } catch (const dt::Error &e) {
        // The scan reads a temporary copy: name the document as entered.
        if (e.code() == "XD00L") dt::ErrorRaiseVA("XD00L", "FILENAME%s", orig_filename);
        throw;
    }

    FdOwner in;
    in.fd = open(receivedpath.c_str(), O_RDONLY | O_CLOEXEC);
    if (in.fd < 0)
        dt::ErrorRaiseVA("XD00O", "FILENAME%s", orig_filename, "MODE%o", 0, "PERM%o", 292, "ACCESS%s", "reading",
                         "REASON%s", strerror(errno));

    if (copy && size <= smalllimit)
        return dt::MakeSmallDocValue(std::move(header), ReadSmallText(in.fd, size, orig_filename));

    Oid oid = StoreDocumentLargeObject(in.fd, size, copy, desc->doc_wordhashtab, orig_filename);
    RegisterLargeObject(oid);
    return dt::MakeLODocValue(std::move(header), dt::MakeOwnedHandle(oid), size, copy,
                              desc->doc_wordcnt(), desc->doc_hashentries());
}

}  // namespace

}  // namespace dt::pg
