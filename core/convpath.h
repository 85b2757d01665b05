// Conversion paths: the conversion table held in memory, the depth-first
// search for a chain of steps, and the running of a chain.
//
// The table lists direct conversions, one row per edge: source format,
// target format, and the name of the SQL function that performs the step.
// The server layer reads it afresh for every conversion; everything here
// works on that in-memory copy and on callbacks, so it needs no server.
#pragma once

#include <functional>
#include <optional>
#include <string>
#include <vector>

namespace dt {

// One row of the conversion table.
struct Converter {
    std::string cv_from;   // source format name (column 1)
    std::string cv_to;     // target format name (column 2)
    char cv_visited = 0;   // 1 once the search has used the row as a first step
    std::string cv_conv;   // conversion function name (column 3)
};

// The table in row order (the order of the heap scan: it is the search order).
using ConvTable = std::vector<Converter>;

// A conversion path: the function names of its steps, first step first.
using Funclist = std::vector<std::string>;

// The format name of a specification: "ascii" when it has no ':'; else the
// value of its "format" parameter, or the whole parameter list when it has
// none (so "wordperfect:/x/y" is in format wordperfect).
std::string getformat(const std::string &spec);

// The directory part of a path: the text before the last '/' ("" for a
// path directly under the root), or the whole text when it has no '/'.
std::string path(const std::string &p);

// Depth-first search for a path from infmt to outfmt:
//  1. the first row (in table order) from infmt straight to outfmt;
//  2. otherwise each row from infmt not yet visited, in table order: mark it
//     visited and search on from its target; the first success wins.
// Visited marks are never cleared during one search, so every row is
// expanded at most once and cycles end.  Names compare exactly.
// nullopt when there is no path.
std::optional<Funclist> _formatlookup(ConvTable &cvttab, const std::string &infmt,
                                      const std::string &outfmt);

// The hooks through which a path is run.
struct FlexecOps {
    // Runs one step: the function named fn with (inspec, outspec); its
    // result, or nullopt when the step failed (returned null).  May throw.
    std::function<std::optional<std::string>(const std::string &fn, const std::string &inspec,
                                             const std::string &outspec)>
        engage;
    // A fresh temporary name for an intermediate target (see _gettemptextname).
    std::function<std::string(const std::string &outspec)> tempname;
    // Removes a temporary file; must not throw.
    std::function<void(const std::string &name)> remove;
};

// Runs a path.  Every step is given the initial inspec as its input; the
// last step's target is outspec, earlier steps' targets are temporary
// names.  After each step the previous step's temporary file is removed.
// A step that fails stops the run with nullopt (its own temporary target is
// removed too).  When a step throws, the temporary files made so far are
// removed before the error goes on.  Returns the last step's result.
std::optional<std::string> _flexec(const std::optional<Funclist> &fl, const std::string &inspec,
                                   const std::string &outspec, const FlexecOps &ops);

// The temporary name of an intermediate target: directory, "/", the last
// component of outspec's path, ".", a random number below 100000, then
// "fmtcnv".  The name has no ':' (a ':' of the component becomes '_'), so
// it is a specification without a parameter list.
std::string _gettemptextname(const std::string &directory, const std::string &outspec);

// The hooks of a whole conversion.
struct ConvertOps {
    // Reads the conversion table (may throw).
    std::function<ConvTable()> readTable;
    // Copies the file at path from to path to; false on failure.
    std::function<bool(const std::string &from, const std::string &to)> copyFile;
    FlexecOps flexec;
};

// Converts the file named by inspec into the file named by outspec.
// Identical formats copy the file (the table is not read); otherwise the
// table is read, searched and the path run.  Returns outspec (or the last
// step's result) on success, nullopt when there is no path, a step failed
// or the copy failed.
std::optional<std::string> formatconvert(const std::string &inspec, const std::string &outspec,
                                         const ConvertOps &ops);

// Whether a document whose parameter list is docparams can be converted to
// format (a format name or a parameter list with a "format" parameter).
// A list without "format" is never convertible.  Equal names are true
// without reading the table.
bool IsConvertible(const std::string &docparams, const std::string &format,
                   const std::function<ConvTable()> &readTable);

// The format name of a document's parameter list: the value of its
// "format" parameter, or the whole list when it has none.
std::string DocFormatName(const std::string &docparams);

// The path part of a specification, after its first ':'; nullopt when the
// specification has no ':'.
std::optional<std::string> GetPathText(const std::string &spec);

}  // namespace dt
