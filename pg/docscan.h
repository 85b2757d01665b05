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
