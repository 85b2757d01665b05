#include "docdesc.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <cstring>

#include "charclass.h"
#include "doclayout.h"
#include "error.h"
#include "regularfile.h"
#include "tokenizer.h"
#include "interrupt.h"

namespace dt {

namespace {

// One read from the source: as many bytes as it gives, up to want, reading
// on over short reads; 0 at the end, negative on failure.
int ReadSource(DocDesc &doc, char *buf, int want) {
    int got = 0;
    while (got < want) {
        PollInterrupts();
        int n;
        if (doc.doc_flags & kDocUnixFile) {
            if (doc.doc_ahead_pos == doc.doc_ahead_len) {
                if (doc.doc_ahead.empty()) doc.doc_ahead.resize(kReadAhead);
                ssize_t r = ::read(doc.doc_fd, doc.doc_ahead.data(), doc.doc_ahead.size());
                if (r < 0 && errno == EINTR) continue;
                if (r < 0) return (int)r;
                if (r == 0) break;
                // A file that grew past the largest document while it is read.
                if ((doc.doc_filebytes += r) > doc.doc_maxbytes)
                    throw Error::User("server file \"" + doc.doc_name + "\" is longer than the largest document (" +
                                          std::to_string(doc.doc_maxbytes) + " bytes)",
                                      "54000");
                doc.doc_ahead_pos = 0;
                doc.doc_ahead_len = (size_t)r;
            }
            size_t take = std::min((size_t)(want - got), doc.doc_ahead_len - doc.doc_ahead_pos);
            std::memcpy(buf + got, doc.doc_ahead.data() + doc.doc_ahead_pos, take);
            doc.doc_ahead_pos += take;
            n = (int)take;
        } else if (doc.doc_source.read) {
            n = doc.doc_source.read(buf + got, want - got);
        } else {
            n = 0;
        }
        if (n < 0) return n;
        if (n == 0) break;
        got += n;
    }
    return got;
}

[[noreturn]] void RaiseReadError(const DocDesc &doc, const char *operation) {
    if (doc.doc_flags & kDocUnixFile)
        ErrorRaiseVA("TL001", "NAME%s", "File error", "OPERATION%s",
                     std::string(operation) + " of file " + doc.doc_name);
    ErrorRaiseVA("TL001", "NAME%s", "Large object error", "OPERATION%s", operation);
}

void CloseSource(DocDesc &doc) {
    if (doc.doc_fd < 0) return;
    int fd = doc.doc_fd;
    doc.doc_fd = -1;
    if (doc.doc_flags & kDocUnixFile) {
        ::close(fd);
    } else if (doc.doc_source.close) {
        doc.doc_source.close();
    }
}

// After the end of the source: nothing more to read, source closed.
void MarkExhausted(DocDesc &doc) {
    doc.doc_flags |= kDocExhausted;
    CloseSource(doc);
}

}  // namespace

DocDesc::~DocDesc() {
    try {
        CloseSource(*this);
    } catch (...) {
        // A failing close on the way out leaves nothing to undo.
    }
}

namespace {
// A NUL byte of a document's data separates words as white space does: the
// buffer ends its usable text with a NUL of its own, which a NUL of the
// data would otherwise stand for, and the text after it would go unread.
void NulsToSpaces(char *p, int n) {
    for (char *e = p + n; (p = (char *)std::memchr(p, '\0', (size_t)(e - p))) != nullptr; p++) *p = ' ';
}
}  // namespace

void _dt_FreeDocDesc(DocDesc &doc) { CloseSource(doc); }

int _dt_InitDocDesc(DocDesc &doc, const char *docfilename, DocType doctype, int small_len,
                    DocSource source) {
    WordHashReset(doc.doc_wordhashtab);
    doc.doc_windex = 0;
    doc.doc_len = 0;
    doc.doc_buf[0] = '\0';
    doc.doc_term.clear();
    switch (doctype) {
    case UnixDocType: {
        doc.doc_flags = kDocUnixFile;
        doc.doc_filebytes = 0;
        doc.doc_ahead_pos = doc.doc_ahead_len = 0;
        doc.doc_name = docfilename ? docfilename : "";
        // Directories, pipes and devices are no documents.
        long long size = 0;
        std::string why;
        int fd = OpenRegularFile(doc.doc_name, &size, &why);
        if (fd < 0) ErrorRaiseVA("XD00H", "FILENAME%s", doc.doc_name, "REASON%s", why);
        doc.doc_fd = fd;
        return _dt_GetDocBuffer(doc);
    }
    case LODocType:
        doc.doc_flags = 0;
        doc.doc_source = std::move(source);
        doc.doc_name = doc.doc_source.name;
        doc.doc_fd = doc.doc_source.fd >= 0 ? doc.doc_source.fd : 0;
        return _dt_GetDocBuffer(doc);
    case SmallDocType:
    default:
        if (small_len < 0 || small_len > kDocBufSize)
            ErrorRaiseVA("XD00P", "SIZE%d", small_len, "FILENAME%s", "(text in memory)");
        doc.doc_flags = kDocSmall;
        doc.doc_fd = -1;
        doc.doc_len = small_len;
        if (small_len > 0) std::memcpy(doc.doc_buf, docfilename, (size_t)small_len);
        NulsToSpaces(doc.doc_buf, small_len);
        doc.doc_buf[small_len] = '\0';
        return small_len;
    }
}

DocDescPtr _dt_MakeEmptyDoc() {
    auto d = std::make_unique<DocDesc>();
    d->doc_fd = -1;
    d->doc_flags = kDocExhausted;
    return d;
}

int _dt_GetDocBuffer(DocDesc &doc) {
    if (doc.doc_flags & kDocExhausted) return 0;
    int keep, want;
    if (doc.doc_windex >= doc.doc_len) {
        // Everything consumed.
        if (doc.doc_flags & kDocSmall) {
            doc.doc_flags |= kDocExhausted;
            return 0;
        }
        keep = 0;
        want = kDocBufSize;
    } else {
        // Step over the NUL that ended the usable text and keep the
        // unfinished word after it.
        doc.doc_windex += 1;
        keep = doc.doc_len - doc.doc_windex;
        if (keep < 0) keep = 0;
        std::memmove(doc.doc_buf, doc.doc_buf + doc.doc_windex, (size_t)keep);
        doc.doc_buf[keep] = '\0';
        want = kDocBufSize - keep;
    }
    // The last white space of the kept bytes after the first (0: none);
    // they stay the same while new data is read behind them.
    int lastKept = keep - 1;
    while (lastKept > 0 && !IsSpaceChar((unsigned char)doc.doc_buf[lastKept])) lastKept--;
    if (lastKept < 0) lastKept = 0;
    for (;;) {
        int got = ReadSource(doc, doc.doc_buf + keep, want);
        doc.doc_windex = 0;
        if (got < 0) RaiseReadError(doc, "Read a buffer");
        doc.doc_len = keep + got;
        if (got == 0) {
            // End of the source.  Kept bytes (a last word without white
            // space after it) are never scanned.
            doc.doc_len = 0;
            doc.doc_buf[0] = '\0';
            MarkExhausted(doc);
            return 0;
        }
        NulsToSpaces(doc.doc_buf + keep, got);
        doc.doc_buf[keep + got] = '\0';
        // The last white space after the first byte: in the new data, else
        // in the kept bytes.
        int low = keep > 1 ? keep : 1;
        int i = keep + got - 1;
        while (i >= low && !IsSpaceChar((unsigned char)doc.doc_buf[i])) i--;
        if (i < low) i = lastKept;
        if (i == 0) {
            // No white space after the first byte: this buffer's data is
            // dropped and the same place is read again.
            continue;
        }
        doc.doc_buf[i] = '\0';
        return keep + got;
    }
}

bool _dt_GetStem(char *word, const StemHooks &hooks, std::string &term) {
    if (word[0] == ')' || word[0] == '(' || word[0] == '!') return false;
    size_t len = std::strlen(word);
    std::string lower = FoldCase(word, len);
    // In place as well, when folding kept the length (always for ASCII).
    if (lower.size() == len) std::memcpy(word, lower.data(), len);
    if (hooks.isStopWord && hooks.isStopWord(lower.c_str())) return false;
    if (!hooks.stemWord) {
        term = std::move(lower);
        return true;
    }
    return hooks.stemWord(lower.c_str(), term);
}

namespace {
const char *NextWord(DocDesc &doc, bool stem, const char *operation) {
    if (doc.doc_flags & kDocExhausted) return nullptr;
    for (;;) {
        PollInterrupts();
        char *w;
        try {
            w = _dt_WordFromString(doc.doc_buf, &doc.doc_windex);
        } catch (const Error &e) {
            // A word too long: say in which document.
            if (e.code() == "XD00L" && !doc.doc_name.empty())
                ErrorRaiseVA("XD00L", "FILENAME%s", doc.doc_name);
            throw;
        }
        if (*w) {
            if (!stem) {
                doc.doc_term = w;
                return doc.doc_term.c_str();
            }
            static const StemHooks kNone;
            if (_dt_GetStem(w, doc.doc_stem ? *doc.doc_stem : kNone, doc.doc_term))
                return doc.doc_term.c_str();
            continue;
        }
        int r = _dt_GetDocBuffer(doc);
        if (r == 0) return nullptr;
        if (r < 0) RaiseReadError(doc, operation);
    }
}
}  // namespace

const char *_dt_GetWordFromDoc(DocDesc &doc) { return NextWord(doc, true, "Read word"); }

const char *_dt_GetStopWordFromDoc(DocDesc &doc) {
    return NextWord(doc, false, "Read of stop word");
}

int _dt_AddWordToHash(const char *word, DocDesc &doc) {
    return dt::_dt_AddWordToHash(word, doc.doc_wordhashtab);
}

int _dt_AddStopWordToHash(const char *word, DocDesc &doc) {
    return dt::_dt_AddWordToHash(word, doc.doc_wordhashtab);
}

int _dt_IsWordInDoc(const char *data, size_t len, DocDesc &doc) {
    if (WordHashFind(doc.doc_wordhashtab, data, len)) return 1;
    while (const char *t = _dt_GetWordFromDoc(doc)) {
        int present = _dt_AddWordToHash(t, doc);
        if (!present && std::strlen(t) == len && std::memcmp(t, data, len) == 0) return 1;
    }
    return 0;
}

DocDescPtr _dt_PrepareUnixDoc(const char *path, const StemHooks &hooks) {
    auto d = std::make_unique<DocDesc>();
    d->doc_stem = &hooks;
    _dt_InitDocDesc(*d, path, UnixDocType, 0);
    while (const char *t = _dt_GetWordFromDoc(*d)) _dt_AddWordToHash(t, *d);
    d->doc_stem = nullptr;
    return d;
}

void _dt_SortHash(DocDesc &doc) { dt::_dt_SortHash(doc.doc_wordhashtab); }

DtWordHash *_dt_NextTerm(DocDesc &doc) { return dt::_dt_NextTerm(doc.doc_wordhashtab); }

}  // namespace dt
