// Documents sent to the client's machine: copies of their text, exports
// that dt_Import reads back, and converted copies.
#pragma once

#include <string>

namespace dt::pg {

// Sends the first ht_realoffset bytes of the value's large object (handle
// `lohandle`) to the client file named for that handle and destination:
// filename + "." + the large object's identifier.  Returns that name.
// A null or empty handle raises 22T02.
std::string PutClientLargeObject(const void *value, const std::string &lohandle,
                                 const std::string &filename);

// The same, to the client file `name` as given.
void PutClientLargeObjectAs(const void *value, const std::string &lohandle, const std::string &name);

// Sends the stored text of a server-file document (the bytes the file had
// when the document was made) to the client file name; TL001 when the file
// is gone or shorter now.
void PushExternalDocument(const void *value, const std::string &name);

// Sends a small document's text to the client file
// _dt_MakeTempName(path, stored path); returns that name.
std::string SendClientSmallDocFile(const std::string &path, const void *value);

}  // namespace dt::pg
