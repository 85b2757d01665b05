// Entering documents: a literal "spec:path" becomes a doc value.
#pragma once

#include <string>

#include "doclayout.h"

namespace dt::pg {

// Completes a value whose header was built from the literal: fetches the
// client file orig_filename, converts a copy to text, scans it for terms,
// and stores a small in-row document or a new large object with the text
// and its term table; "ExternalFile" refers to the server file in place.
std::string _dt_FinishInput(dt::DocHeader header, const std::string &orig_filename);

// A value made from a text already in the database, as if it were the
// contents of a client file: the header's path only names the document.
std::string _dt_DocFromText(dt::DocHeader header, const std::string &text);

// An "ExternalFile" value for a server file (needs pg_read_server_files).
std::string _dt_ExtDoc(dt::DocHeader header, const std::string &filename);

}  // namespace dt::pg
