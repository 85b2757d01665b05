// docsql's command line.
#pragma once

#include <string>
#include <utility>
#include <vector>

namespace docsql {

// One source of SQL, in command-line order.
struct Script {
    enum Kind { Command, File } kind;
    std::string text;  // the SQL of -c, or the file name of -f ("-" = stdin)
};

struct Options {
    std::string host, port, user, dbname;  // empty: libpq's defaults (PG* variables)
    std::vector<Script> scripts;            // none: read standard input
    bool quiet = false;                     // -q: no command status lines
    bool tuplesOnly = false;                // -t: rows only
    bool unaligned = false;                 // -A: unaligned output
    std::string fieldSeparator = "|";       // -F
    bool echo = false;                      // -e: print each statement first
    bool traceChannel = false;              // --trace-channel: log transfers on stderr
    bool noProgress = false;                // --no-progress
    bool continueOnError = false;           // --continue-on-error: run every statement
    bool extended = false;                  // --extended-protocol: send each statement with Parse/Bind/Execute
    bool forcePassword = false;             // -W
    bool neverPassword = false;             // -w
    bool trustServer = false;               // --trust-server: serve any file the server names
    std::vector<std::string> allowDirs;     // --allow-dir: serve files under these directories
    bool expanded = false;                  // -x: expanded display
    bool csv = false;                       // --csv: CSV output
    std::string outFile;                    // -o: query results to this file
    bool singleTransaction = false;         // -1: the scripts in one transaction
    std::vector<std::pair<std::string, std::string>> vars;  // -v NAME=VALUE
    bool noHistory = false;                 // -n: no line history
    bool help = false, version = false;
};

// Parses argv (without argv[0]); false with a message in `error` on bad use.
bool ParseOptions(const std::vector<std::string> &args, Options &opts, std::string &error);

std::string UsageText();

}  // namespace docsql
