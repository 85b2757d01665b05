// The document descriptor: one document while its words are being read.
//
// A DocDesc has a source (a server file, a large object, or text held in
// memory), a 2048-byte buffer over it and a word hash of the terms read so
// far with their counts.  Words are cut by _dt_WordFromString and turned
// into terms by _dt_GetStem, which needs the stop-word set and the stemmer:
// those come in as a StemHooks record so that this module stays free of the
// server and can be tested on its own.
//
// Buffering (_dt_GetDocBuffer): every fill ends the usable text at the last
// white-space character of the buffer; the bytes after it (an unfinished
// word) are moved to the front and completed by the next read.  Two
// consequences are part of the behaviour:
//  - a text that does not end in white space loses its last word;
//  - a run without white space that fills a whole buffer is dropped.
#pragma once

#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "doclayout.h"
#include "wordhash.h"

namespace dt {

constexpr int kDocBufSize = 2048;
// How much of a server file is read at once (handed to the buffer as it asks).
constexpr size_t kReadAhead = 65536;

// The kinds of source, as doc_flags bits (a large object has neither bit).
enum DocType { LODocType = 0, UnixDocType = 2, SmallDocType = 4 };

constexpr int kDocExhausted = 1;  // no more source text
constexpr int kDocUnixFile = 2;   // the source is a server file
constexpr int kDocSmall = 4;      // the source is text held wholly in doc_buf

// A source read through callbacks (large objects, or anything the server
// layer provides).  read(buf, want) returns the number of bytes placed in
// buf (0 at the end, negative on failure); close() releases the source.
struct DocSource {
    std::function<int(char *buf, int want)> read;
    std::function<void()> close;
    std::string name;  // for error messages
    int fd = 0;        // the source's own descriptor (doc_fd while open)
};

// What turns a word into a term.  isStopWord gets a lower-case word;
// stemWord gets a lower-case word that is not a stop word, and returns false
// when the stemmer reports a stop word, else true with the stem in `stem`.
struct StemHooks {
    std::function<bool(const char *word)> isStopWord;
    std::function<bool(const char *word, std::string &stem)> stemWord;
};

struct DocDesc {
    WordHash doc_wordhashtab;  // 97 buckets, counters, iteration cursor
    int doc_windex = 0;        // scan position in doc_buf
    int doc_fd = -1;           // open source descriptor, -1 when none
    long long doc_filebytes = 0;  // bytes read from a server file so far
    long long doc_maxbytes = kMaxDocumentBytes;  // most bytes a server file may have
    // Bytes read ahead from a server file and not yet handed to doc_buf
    // (the buffer asks for a few bytes at a time in some texts).
    std::vector<char> doc_ahead;
    size_t doc_ahead_pos = 0, doc_ahead_len = 0;
    char doc_buf[kDocBufSize + 1] = {};
    int doc_len = 0;           // valid bytes in doc_buf
    int doc_flags = 0;         // kDocExhausted | kDocUnixFile | kDocSmall
    DocSource doc_source;      // how a large-object source is read
    const StemHooks *doc_stem = nullptr;
    std::string doc_name;      // the file path or source name
    std::string doc_term;      // the last term returned

    int doc_hashentries() const { return doc_wordhashtab.hashentries; }
    int doc_wordcnt() const { return doc_wordhashtab.wordcnt; }
    int doc_strlen() const { return doc_wordhashtab.strlen; }

    DocDesc() = default;
    DocDesc(const DocDesc &) = delete;
    DocDesc &operator=(const DocDesc &) = delete;
    ~DocDesc();
};

using DocDescPtr = std::unique_ptr<DocDesc>;

// Prepares a descriptor.  UnixDocType: docfilename is a server path, opened
// read-only (failure: XD00H with FILENAME); LODocType: `source` is read;
// SmallDocType: docfilename points at small_len bytes of text (at most 2048)
// that are copied into doc_buf.  Returns the first fill's result, or
// small_len for small text.
int _dt_InitDocDesc(DocDesc &doc, const char *docfilename, DocType doctype, int small_len,
                    DocSource source = {});

// A descriptor without words: counts 0, no source, exhausted.
DocDescPtr _dt_MakeEmptyDoc();

// Opens a server file as a document and adds all its terms.
DocDescPtr _dt_PrepareUnixDoc(const char *path, const StemHooks &hooks);

// Closes the source if it is open (the destructor does this too).
void _dt_FreeDocDesc(DocDesc &doc);

// Refills doc_buf by the buffering rule; the number of valid bytes, 0 at
// the end.
int _dt_GetDocBuffer(DocDesc &doc);

// The next term (lower case, no stop word, stemmed), or nullptr at the end.
// The pointer stays valid until the next call.
const char *_dt_GetWordFromDoc(DocDesc &doc);
// The next raw word, or nullptr at the end (reads the stop-word file).
const char *_dt_GetStopWordFromDoc(DocDesc &doc);

// Normalises one word into a term: false for "(", ")", "!" tokens, stop
// words and words the stemmer reports as stop words.  The word is folded
// to lower case (FoldCase, charclass.h) before the stop-word test, and
// `word` is lower-cased in place when that keeps its length in bytes.
bool _dt_GetStem(char *word, const StemHooks &hooks, std::string &term);

// Counts one occurrence: 1 if the word was present, 0 if it is new.
int _dt_AddWordToHash(const char *word, DocDesc &doc);
int _dt_AddStopWordToHash(const char *word, DocDesc &doc);

// 1 if the word (a counted text) occurs in the document.  Looks in the hash
// first, then reads on, keeping what it read.
int _dt_IsWordInDoc(const char *data, size_t len, DocDesc &doc);

// Sorts the hash into one ascending chain in bucket 0.
void _dt_SortHash(DocDesc &doc);
// The next term of the hash, or nullptr.
DtWordHash *_dt_NextTerm(DocDesc &doc);
inline DtWordHash *_dt_GetNextHashEntry(DocDesc &doc) { return _dt_NextTerm(doc); }

}  // namespace dt
