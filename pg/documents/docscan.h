// Descriptors of doc values: a document's terms, from its stored term
// table, or read from its text (in the row, in an external server file, or
// a converted copy of either).
#pragma once

#include <memory>
#include <string>

#include "docdesc.h"
#include "largeobject.h"

namespace dt::pg {

// A descriptor together with what it holds open: a temporary converted
// copy of the text is removed when the scan goes.
struct DocScan {
    DocDescPtr desc;
    std::string tempfile;
    DocScan() = default;
    DocScan(const DocScan &) = delete;
    DocScan &operator=(const DocScan &) = delete;
    ~DocScan();
};
using DocScanPtr = std::unique_ptr<DocScan>;

// The descriptor of a doc value (null: the empty document).
//  - a value with a stored term table: the table, complete;
//  - otherwise the text is prepared for reading: with scanAll every term is
//    read now (the WordNet tables are opened for it); without, the caller
//    reads terms on demand (_dt_GetWordFromDoc, _dt_IsWordInDoc) and must
//    keep the WordNet tables open (WordnetScope) while it does.
// A document whose format is not ascii is first converted to text
// (XD00N when that fails).
DocScanPtr _dt_MakeDocDesc(const void *value, bool scanAll);

// Writes text to a new registered temporary file named after base;
// returns its name.
std::string TextToTempFile(const std::string &text, const std::string &base);

// Raises XD00N for a document that could not be converted to text, with
// the reason: no conversion registered from its format to ascii, or a step
// of the conversion failed.
[[noreturn]] void RaiseConversionFailed(const std::string &spec, const std::string &filename);

// The text of an external-file document is what the file held when the
// value was made: its first ht_realoffset bytes.  A file that grew gives
// those bytes; one that is gone or shorter raises TL001 (open or read of
// the document's handle) naming the file and the reason.
dt::DocSource ExternalDocSource(const void *value);
std::string ExternalDocText(const void *value);
// The same stored text copied to a new registered temporary file named
// after base (for conversions); returns its name.
std::string ExternalToTempFile(const void *value, const std::string &base);

// Opens the WordNet tables for the life of the scope (see wordnet.h: a
// normal end keeps them for the next open, an exception closes them).
struct WordnetScope {
    WordnetScope();
    ~WordnetScope();
    WordnetScope(const WordnetScope &) = delete;
    WordnetScope &operator=(const WordnetScope &) = delete;

private:
    int exceptions_;
};

}  // namespace dt::pg
