// Large objects holding documents: the text as received, newline padding,
// then the term table.  All server calls go through ServerCall, so these
// functions raise dt::Error and may be used from C++ code freely.
#pragma once

#include "boundary.h"


#include <string>

#include "termtable.h"
#include "wordhash.h"

namespace dt::pg {

// An open large object, closed when it goes out of scope.
struct LargeObject {
    int fd = -1;  // the server's large-object descriptor (closed at transaction end too)
    Oid oid = InvalidOid;
    std::string handle;  // for error messages

    LargeObject() = default;
    LargeObject(const LargeObject &) = delete;
    LargeObject &operator=(const LargeObject &) = delete;
    ~LargeObject();
};

// Creates a new large object; its handle is the identifier in decimal.
Oid CreateLargeObject();
// Opens the large object of an owned handle for reading or writing.
// A handle that names no large object raises XD00H.
void OpenLargeObject(LargeObject &lo, const std::string &handle, bool write);
void CloseLargeObject(LargeObject &lo);  // TL001 "close of large object H" on failure
void SeekLargeObject(LargeObject &lo, int64 offset);
// Reads up to n bytes; returns the count (0 at the end).
int ReadLargeObject(LargeObject &lo, char *buf, int n);
// Writes all n bytes; a failure raises TL001 "write of N bytes for large object H".
void WriteLargeObject(LargeObject &lo, const char *buf, int n);

// Writes a stored document: text from the file descriptor fd (size bytes;
// none without copy), the padding, and the term table of terms.  Returns the
// new large object's identifier.  origname names the client file in errors.
Oid StoreDocumentLargeObject(int fd, int32 size, bool copytext, const WordHash &terms,
                             const std::string &origname);

// Reads the term table of a stored document (ht_offset != 0) into out.
void ReadStoredTermTable(const void *value, WordHash &out);

// The document text of a large-object value (ht_realoffset bytes).
std::string ReadLargeObjectText(const void *value);

}  // namespace dt::pg
