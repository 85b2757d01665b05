#include "docscan.h"

#include "doclayout.h"
#include "conversion.h"
#include "formatspec.h"
#include "regularfile.h"
#include "boundary.h"
#include "tempfile.h"
#include "wordnet.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <exception>
#include <memory>
#include <vector>

namespace dt::pg {

DocScan::~DocScan() {
    desc.reset();
    if (!tempfile.empty()) TempFileRemove(tempfile);
}

WordnetScope::WordnetScope() : exceptions_(std::uncaught_exceptions()) { _dt_OpenWordnet(); }

WordnetScope::~WordnetScope() {
    // After a caught server error the scans must not be touched: the abort
    // that follows releases them.
    if (ServerErrorPending()) {
        _dt_ExcWordnet();
        return;
    }
    try {
        // Left by an error: the scans may be in the middle of a lookup, so
        // they are closed rather than kept.
        if (std::uncaught_exceptions() > exceptions_)
            _dt_ReleaseWordnet();
        else
            _dt_CloseWordnet();
    } catch (...) {
        // An abort closes the tables anyway.
        _dt_ExcWordnet();
    }
}

namespace {


// The open external file of a document and the stored bytes not yet read.
struct ExternalFile {
    int fd = -1;
    int32_t size = 0;  // the stored length
    int32_t left = 0;
    std::string handle, path;
    ~ExternalFile() {
        if (fd >= 0) close(fd);
    }
};

[[noreturn]] void RaiseExternal(const ExternalFile &f, const std::string &operation, const std::string &reason) {
    dt::ErrorRaiseVA("TL001", "NAME%s", "Large object error", "OPERATION%s", operation, "FILENAME%s", f.path,
                     "REASON%s", reason);
}

[[noreturn]] void RaiseShort(const ExternalFile &f) {
    RaiseExternal(f, "read of " + std::to_string(f.size) + " bytes from large object " + f.handle,
                  "the file is shorter than when the document was stored");
}

std::shared_ptr<ExternalFile> OpenExternal(const void *value) {
    auto f = std::make_shared<ExternalFile>();
    f->handle = *dt::DocLOHandleExternal(value);
    f->path = dt::ExternalHandlePath(f->handle);
    f->size = f->left = dt::DocView(value).ht_realoffset();
    long long size = 0;
    std::string why;
    f->fd = dt::OpenRegularFile(f->path, &size, &why);
    if (f->fd < 0) RaiseExternal(*f, "Open of large object " + f->handle, why);
    if (size < f->size) RaiseShort(*f);
    return f;
}

// Up to want bytes of what is left; 0 once the stored length was read.
int ReadExternal(ExternalFile &f, char *buf, int want) {
    if (want > f.left) want = f.left;
    int got = 0;
    while (got < want) {
        ssize_t r = read(f.fd, buf + got, (size_t)(want - got));
        if (r < 0 && errno == EINTR) continue;
        if (r <= 0) {
            if (r == 0) RaiseShort(f);
            RaiseExternal(f, "read of " + std::to_string(f.size) + " bytes from large object " + f.handle,
                          strerror(errno));
        }
        got += (int)r;
    }
    f.left -= got;
    return got;
}

void ReadAll(DocScan &scan) {
    WordnetScope wn;
    DocDesc &d = *scan.desc;
    d.doc_stem = &ServerStemHooks();
    while (const char *t = _dt_GetWordFromDoc(d)) _dt_AddWordToHash(t, d);
}

}  // namespace

// Writes text to a new registered temporary file; returns its name.
std::string TextToTempFile(const std::string &text, const std::string &base) {
    std::string path = TempFileName(base);
    int fd = TempFileCreate(path);
    if (fd < 0) dt::ErrorRaiseVA("XD00M", "FILENAME%s", path);
    size_t off = 0;
    while (off < text.size()) {
        ssize_t w = write(fd, text.data() + off, text.size() - off);
        if (w < 0 && errno == EINTR) continue;
        if (w <= 0) {
            close(fd);
            TempFileRemove(path);
            dt::ErrorRaiseVA("XD00S", "SIZE%d", (int)(text.size() - off), "FILENAME%s", path);
        }
        off += (size_t)w;
    }
    close(fd);
    return path;
}

// Copies the stored text of a server-file document to a new registered
// temporary file named after base; returns its name.
std::string ExternalToTempFile(const void *value, const std::string &base) {
    dt::DocSource src = ExternalDocSource(value);
    std::string path = TempFileName(base);
    int fd = TempFileCreate(path);
    if (fd < 0) dt::ErrorRaiseVA("XD00M", "FILENAME%s", path, "REASON%s", strerror(errno));
    std::vector<char> buf(65536);
    try {
        for (;;) {
            CheckInterrupts();
            int got = src.read(buf.data(), (int)buf.size());
            if (got == 0) break;
            for (int off = 0; off < got;) {
                ssize_t w = write(fd, buf.data() + off, (size_t)(got - off));
                if (w < 0 && errno == EINTR) continue;
                if (w <= 0)
                    dt::ErrorRaiseVA("XD00S", "SIZE%d", got - off, "FILENAME%s", path, "REASON%s",
                                     w < 0 ? strerror(errno) : "nothing written");
                off += (int)w;
            }
        }
    } catch (...) {
        close(fd);
        TempFileRemove(path);
        throw;
    }
    close(fd);
    src.close();
    return path;
}

void RaiseConversionFailed(const std::string &spec, const std::string &filename) {
    std::string from = dt::DocFormatName(spec);
    bool registered = dt::IsConvertible(spec, "ascii", [] { return DtReadConvTable(kConvTableName); });
    dt::ErrorRaiseVA("XD00N", "IN%s", spec, "FILENAME%s", filename, "REASON%s",
                     registered ? "a conversion step from " + from + " to ascii failed"
                                : "no conversion from " + from + " to ascii is registered in DocumentConversions");
}

dt::DocSource ExternalDocSource(const void *value) {
    std::shared_ptr<ExternalFile> f = OpenExternal(value);
    dt::DocSource src;
    src.name = f->path;
    src.fd = f->fd;
    src.read = [f](char *buf, int want) { return ReadExternal(*f, buf, want); };
    src.close = [f] {
        if (f->fd >= 0) close(f->fd);
        f->fd = -1;
    };
    return src;
}

std::string ExternalDocText(const void *value) {
    std::shared_ptr<ExternalFile> f = OpenExternal(value);
    std::string text((size_t)f->left, '\0');
    size_t off = 0;
    while (f->left > 0) {
        CheckInterrupts();
        off += (size_t)ReadExternal(*f, &text[off], f->left < 65536 ? f->left : 65536);
    }
    return text;
}

DocScanPtr _dt_MakeDocDesc(const void *value, bool scanAll) {
    auto scan = std::make_unique<DocScan>();
    if (!value) {
        scan->desc = _dt_MakeEmptyDoc();
        return scan;
    }
    dt::DocView v(value);
    if (v.ht_offset() == 0 && v.ht_realoffset() == 0) {
        scan->desc = _dt_MakeEmptyDoc();
        return scan;
    }
    if (v.ht_offset() != 0) {
        scan->desc = _dt_MakeEmptyDoc();
        ReadStoredTermTable(value, scan->desc->doc_wordhashtab);
        scan->desc->doc_wordhashtab.wordcnt = v.ht_wordcnt();
        return scan;
    }

    auto handle = dt::DocLOHandleExternal(value);
    bool external = handle && dt::IsExternalHandle(*handle);
    std::string spec = dt::DocSpec(value);
    auto format = dt::FindParamValue("format", spec);
    scan->desc = std::make_unique<DocDesc>();
    if (format && *format != "ascii") {
        // Convert the text first: the source is the external file, or the
        // in-row text written to a temporary file.
        std::string path = dt::DocPath(value);
        std::string source, smallfile;
        if (external) {
            // The stored bytes of the server file, not what it holds now.
            smallfile = ExternalToTempFile(value, path);
            source = smallfile;
        } else {
            smallfile = TextToTempFile(dt::DocSmallText(value), path);
            source = smallfile;
        }
        std::string target = TempFileName(path);
        TempFileRegister(target);
        scan->tempfile = target;
        std::optional<std::string> result;
        try {
            result = formatconvert(spec + ":" + source, "format(ascii):" + target);
        } catch (...) {
            if (!smallfile.empty()) TempFileRemove(smallfile);
            throw;
        }
        if (!smallfile.empty()) TempFileRemove(smallfile);
        if (!result) RaiseConversionFailed(spec, path);
        std::string converted = dt::SpecPath(*result);
        if (converted != target) {
            TempFileRemove(target);
            scan->tempfile.clear();
        }
        _dt_InitDocDesc(*scan->desc, converted.c_str(), UnixDocType, 0);
    } else if (external) {
        _dt_InitDocDesc(*scan->desc, nullptr, LODocType, 0, ExternalDocSource(value));
    } else {
        const char *text = reinterpret_cast<const char *>(dt::DocLOHandle(value));
        int len = v.ht_realoffset();
        if (len > kDocBufSize) {
            // Texts of up to 2048 bytes are kept in the row; read longer
            // ones (from other builds) through a file.
            scan->tempfile = TextToTempFile(std::string(text, len), dt::DocPath(value));
            _dt_InitDocDesc(*scan->desc, scan->tempfile.c_str(), UnixDocType, 0);
        } else {
            _dt_InitDocDesc(*scan->desc, text, SmallDocType, len);
        }
    }
    scan->desc->doc_stem = &ServerStemHooks();
    if (scanAll) ReadAll(*scan);
    return scan;
}

}  // namespace dt::pg
