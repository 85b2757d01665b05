// docsql's backslash commands, as psql has them: \q, \?, \timing, \x,
// \i FILE, \set, the describe commands \d, \dt, \df, \dx, \di, and \load
// (bulk loading of client files, client/bulkload.h).  Variables set by
// \set or -v NAME=VALUE are substituted into statements as psql does:
// :NAME as it stands, :'NAME' as a string literal, :"NAME" as an
// identifier.
#pragma once

#include <libpq-fe.h>

#include <cstdio>
#include <functional>
#include <map>
#include <string>

#include "printer.h"

namespace docsql {

struct Session {
    PGconn *conn = nullptr;
    PrintOptions print;
    bool quiet = false;
    bool timing = false;
    bool interactive = false;
    std::map<std::string, std::string> vars;
    // Runs one SQL statement (printing its result); false when it failed.
    std::function<bool(const std::string &sql)> runSql;
    // Runs one statement printing nothing; its error text, or "".
    std::function<std::string(const std::string &sql)> execQuiet;
    bool progress = true;  // progress bars allowed
    // Runs the statements and backslash commands of a file; false when one failed.
    std::function<bool(const std::string &file)> runFile;
};

enum class MetaResult { Ok, Failed, Quit };

// Runs one backslash command line (starting with "\").
MetaResult RunMetaCommand(Session &s, const std::string &line);

// The statement with the session's variables substituted, outside quoted
// strings and identifiers; an unknown :NAME stays as it is.
std::string Interpolate(const std::string &sql, const std::map<std::string, std::string> &vars);

std::string MetaHelpText();

// A query result as the printer takes it.
Table ResultTable(const PGresult *res);

}  // namespace docsql
