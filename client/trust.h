// Which client files docsql serves.
//
// The server names the files it pulls and pushes, and a function, view or
// trigger written by another database user could name any file of the
// user's machine.  docsql therefore serves a file only when the user named
// it:
//  - the path appears in the running statement's text as the user gave it
//    (-c, -f or standard input) as a whole word: after a quote, a colon,
//    white space, "(", "," or "=", and before a quote, white space, ")",
//    "," or ";" (a quote inside the path may be doubled, as SQL writes it);
//  - or it begins with an absolute path that the statement text gives as
//    a string literal ending in "/" or followed by "||" (as in
//    'format(ascii):/data/' || id || '.txt' or '/out/doc' || n), or lies
//    in a directory of the client that a literal names by its absolute path
//    (as in GetDoc(body, '/home/me/out')), or is a literal's absolute path
//    with an extension added (dt_Export(body, '/home/me/back') writes
//    /home/me/back.16403), or lies under a directory the user
//    allowed with --allow-dir; then no ".."
//    component may follow, and the file (for a push: its directory) must
//    resolve, symbolic links followed, to a place in that directory;
//  - or the user gave --trust-server.
// A path may be written only when the statement gives it (or its
// directory or prefix, as above) to a function that writes client files.
// A push never replaces a symbolic link and never creates directories.
#pragma once

#include <string>
#include <vector>

namespace docsql {

struct Trust {
    bool trustServer = false;              // --trust-server
    std::vector<std::string> allowDirs;    // --allow-dir, as given
    std::string statement;                 // text of the running statement
};

// Whether `path` may be read (forWrite false) or written for the running
// statement.  When not, `why` says so in words for the user.  A write is
// judged only by the argument lists of the statement's calls of functions
// that write client files (WriterArguments): a path named only elsewhere
// in the statement may be read, never written.
bool MayServe(const Trust &t, const std::string &path, bool forWrite, std::string &why);

// The rules above applied to the whole of t.statement (no --trust-server).
bool MayServeNamed(const Trust &t, const std::string &path, bool forWrite, std::string &why);

// The argument lists, with their parentheses, of the calls in the
// statement text of GetDoc, dt_Export, dt_ConvertTx and PutClientFile
// (any case, schema-qualified or quoted), one a line; "" when none.
std::string WriterArguments(const std::string &statement);

// The path prefixes the statement text names: literals that begin with
// "/" and end in "/" or are followed by "||".
std::vector<std::string> NamedDirectories(const std::string &statement);

// The literals of the statement text that are absolute paths.
std::vector<std::string> LiteralPaths(const std::string &statement);

// The literals of the statement text that name existing directories of
// the client by absolute path (each with a trailing "/").
std::vector<std::string> LiteralDirectories(const std::string &statement);

// Whether `path` appears in the statement text as a whole word.
bool NamedInStatement(const std::string &statement, const std::string &path);

}  // namespace docsql
