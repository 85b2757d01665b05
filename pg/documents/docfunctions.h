// Getting a document's text back as a server file.
#pragma once

#include <string>

namespace dt::pg {

// Writes the document's text to a new server file named by
// _dt_MakeTempName(directory, stored path) and returns that file's name.
// Nothing is left behind on error.
std::string WriteDocToServerFile(const void *value, const std::string &directory);

// The document text: the large object's first ht_realoffset bytes, the
// external file, or the in-row text.
std::string DocumentText(const void *value);

}  // namespace dt::pg
