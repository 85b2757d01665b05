#include "docscan.h"

#include "doclayout.h"
#include "conversion.h"
#include "formatspec.h"
#include "tempfile.h"
#include "wordnet.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <exception>

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

void ReadAll(DocScan &scan) {
    WordnetScope wn;
    DocDesc &d = *scan.desc;
    d.doc_stem = &ServerStemHooks();
    while (const char *t = _dt_GetWordFromDoc(d)) _dt_AddWordToHash(t, d);
}

}  // namespace

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
            source = dt::ExternalHandlePath(*handle);
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
        if (!result) dt::ErrorRaiseVA("XD00N", "IN%s", spec, "FILENAME%s", path);
        std::string converted = dt::SpecPath(*result);
        if (converted != target) {
            TempFileRemove(target);
            scan->tempfile.clear();
        }
        _dt_InitDocDesc(*scan->desc, converted.c_str(), UnixDocType, 0);
    } else if (external) {
        _dt_InitDocDesc(*scan->desc, dt::ExternalHandlePath(*handle).c_str(), UnixDocType, 0);
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
