// Bulk loading: \load TABLE COLUMN DIR [SPEC] [--stop-on-error] enters
// every regular file under DIR (recursively, in name order), or every path
// read from standard input when DIR is "-", as a document into
// TABLE.COLUMN, one INSERT per file, all in one transaction with a
// savepoint per file so that a bad file costs only itself.  SPEC is the
// format specification put before each path (default "format(ascii)").
// A progress bar runs on a terminal; at the end a summary gives files,
// bytes, seconds and every failure with its reason.
#pragma once

#include <functional>
#include <string>
#include <vector>

namespace docsql {

struct LoadRequest {
    std::string table, column, source, spec = "format(ascii)";
    bool stopOnError = false;
};

// Parses the words after "\load"; false with a message in `error`.
bool ParseLoad(const std::vector<std::string> &words, LoadRequest &req, std::string &error);

// The files a request names: regular files under the directory, sorted,
// or the non-empty lines of `in` when the source is "-".
std::vector<std::string> LoadFiles(const LoadRequest &req, std::string &error);

struct LoadSummary {
    long long files = 0, bytes = 0;
    double seconds = 0;
    std::vector<std::pair<std::string, std::string>> failures;  // path, reason
};

// Runs the load.  exec runs one statement and returns its error text ("" on
// success); quoteLiteral and quoteIdent quote for SQL.
LoadSummary RunLoad(const LoadRequest &req, const std::vector<std::string> &files,
                    const std::function<std::string(const std::string &)> &exec,
                    const std::function<std::string(const std::string &)> &quoteLiteral,
                    const std::function<std::string(const std::string &)> &quoteIdent, bool progress);

std::string FormatSummary(const LoadSummary &s);

}  // namespace docsql
