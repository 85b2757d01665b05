// The conversion service of the server layer: the table
// "DocumentConversions", conversion steps called by name, and the
// conversion of one server file into another.
#pragma once

#include <optional>
#include <string>

#include "convpath.h"

namespace dt::pg {

// The name of the conversion table (in the extension's schema).
extern const char *const kConvTableName;

// Reads the conversion table in heap order.  Raises Z0002 when it cannot
// be opened (missing, not readable by the user).
dt::ConvTable DtReadConvTable(const char *ctabname);

// Runs one conversion step: the function named funcname taking (text,
// text) and returning text, called with (inspec, outspec).  nullopt when
// the step returned null.  Raises P0016 when there is no such function.
std::optional<std::string> DtEngageConv(const std::string &funcname, const std::string &inspec,
                                        const std::string &outspec);

// Converts the server file named by specification in into the one named
// by out (see dt::formatconvert).  Temporary files go to TempDir() and are
// removed, also when an error is raised.  No privilege check: the caller
// decides who may name server files.
std::optional<std::string> formatconvert(const std::string &in, const std::string &out);

}  // namespace dt::pg
