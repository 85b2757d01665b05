#include "options.h"

namespace docsql {

namespace {

struct Spec {
    char shortName;
    const char *longName;
    bool takesValue;
};

const Spec kSpecs[] = {
    {'h', "host", true},         {'p', "port", true},          {'U', "username", true},
    {'d', "dbname", true},       {'c', "command", true},       {'f', "file", true},
    {'q', "quiet", false},       {'t', "tuples-only", false},  {'A', "no-align", false},
    {'F', "field-separator", true}, {'e', "echo-queries", false}, {'X', "no-psqlrc", false},
    {'w', "no-password", false}, {'W', "password", false},     {'?', "help", false},
    {'V', "version", false},     {0, "trace-channel", false},  {0, "no-progress", false}, {0, "extended-protocol", false},
    {0, "continue-on-error", false}, {0, "allow-dir", true}, {0, "trust-server", false},
    {'x', "expanded", false},    {0, "csv", false},            {'o', "output", true},
    {'1', "single-transaction", false}, {'v', "set", true},   {0, "variable", true},
    {'n', "no-readline", false},
};

const Spec *FindShort(char c) {
    for (const Spec &s : kSpecs)
        if (s.shortName == c) return &s;
    return nullptr;
}

const Spec *FindLong(const std::string &name) {
    for (const Spec &s : kSpecs)
        if (name == s.longName) return &s;
    return nullptr;
}

void Apply(const Spec &s, const std::string &value, Options &o) {
    std::string name = s.longName;
    if (name == "host") o.host = value;
    else if (name == "port") o.port = value;
    else if (name == "username") o.user = value;
    else if (name == "dbname") o.dbname = value;
    else if (name == "command") o.scripts.push_back({Script::Command, value});
    else if (name == "file") o.scripts.push_back({Script::File, value});
    else if (name == "quiet") o.quiet = true;
    else if (name == "tuples-only") o.tuplesOnly = true;
    else if (name == "no-align") o.unaligned = true;
    else if (name == "field-separator") o.fieldSeparator = value;
    else if (name == "echo-queries") o.echo = true;
    else if (name == "no-password") o.neverPassword = true;
    else if (name == "password") o.forcePassword = true;
    else if (name == "help") o.help = true;
    else if (name == "version") o.version = true;
    else if (name == "trace-channel") o.traceChannel = true;
    else if (name == "no-progress") o.noProgress = true;
    else if (name == "extended-protocol") o.extended = true;
    else if (name == "continue-on-error") o.continueOnError = true;
    else if (name == "allow-dir") o.allowDirs.push_back(value);
    else if (name == "expanded") o.expanded = true;
    else if (name == "csv") o.csv = true;
    else if (name == "output") o.outFile = value;
    else if (name == "single-transaction") o.singleTransaction = true;
    else if (name == "no-readline") o.noHistory = true;
    else if (name == "set" || name == "variable") {
        size_t eq = value.find('=');
        o.vars.push_back({value.substr(0, eq), eq == std::string::npos ? "" : value.substr(eq + 1)});
    }
    else if (name == "trust-server") o.trustServer = true;
    // no-psqlrc: accepted for habit's sake; docsql reads no start-up file.
}

}  // namespace

bool ParseOptions(const std::vector<std::string> &args, Options &o, std::string &error) {
    std::vector<std::string> positional;
    bool onlyPositional = false;
    for (size_t i = 0; i < args.size(); i++) {
        const std::string &a = args[i];
        if (onlyPositional || a.size() < 2 || a[0] != '-') {
            positional.push_back(a);
            continue;
        }
        if (a == "--") {
            onlyPositional = true;
            continue;
        }
        if (a[1] == '-') {
            std::string name = a.substr(2), value;
            size_t eq = name.find('=');
            bool hasValue = eq != std::string::npos;
            if (hasValue) {
                value = name.substr(eq + 1);
                name = name.substr(0, eq);
            }
            const Spec *s = FindLong(name);
            if (!s) {
                error = "unknown option \"--" + name + "\"";
                return false;
            }
            if (s->takesValue && !hasValue) {
                if (i + 1 >= args.size()) {
                    error = "option \"--" + name + "\" needs a value";
                    return false;
                }
                value = args[++i];
            } else if (!s->takesValue && hasValue) {
                error = "option \"--" + name + "\" takes no value";
                return false;
            }
            Apply(*s, value, o);
            continue;
        }
        // A cluster of short options: -qtA, -c'select 1', -h host.
        for (size_t k = 1; k < a.size(); k++) {
            const Spec *s = FindShort(a[k]);
            if (!s) {
                error = std::string("unknown option \"-") + a[k] + "\"";
                return false;
            }
            if (!s->takesValue) {
                Apply(*s, "", o);
                continue;
            }
            std::string value;
            if (k + 1 < a.size()) {
                value = a.substr(k + 1);
            } else if (i + 1 < args.size()) {
                value = args[++i];
            } else {
                error = std::string("option \"-") + a[k] + "\" needs a value";
                return false;
            }
            Apply(*s, value, o);
            break;
        }
    }
    // Like psql: docsql [OPTION]... [DBNAME [USERNAME]]
    if (positional.size() > 2) {
        error = "too many arguments (first extra: \"" + positional[2] + "\")";
        return false;
    }
    if (positional.size() >= 1 && o.dbname.empty()) o.dbname = positional[0];
    if (positional.size() == 2 && o.user.empty()) o.user = positional[1];
    return true;
}

std::string UsageText() {
    return "docsql runs SQL against PostgreSQL and serves the document module's client files.\n"
           "\n"
           "Usage:\n"
           "  docsql [OPTION]... [DBNAME [USERNAME]]\n"
           "\n"
           "SQL comes from -c and -f in the order given, else from standard input; on a\n"
           "terminal docsql prompts for statements and backslash commands (\\? lists them).\n"
           "\n"
           "Options:\n"
           "  -c, --command=SQL        run SQL (may be given more than once)\n"
           "  -f, --file=FILE          run the statements of FILE (\"-\" = standard input)\n"
           "  -h, --host=HOST          server host or socket directory (PGHOST)\n"
           "  -p, --port=PORT          server port (PGPORT)\n"
           "  -U, --username=USER      user name (PGUSER)\n"
           "  -d, --dbname=DBNAME      database name or connection string (PGDATABASE)\n"
           "  -w, --no-password        never prompt for a password\n"
           "  -W, --password           prompt for a password before connecting\n"
           "  -q, --quiet              print no command status lines\n"
           "  -t, --tuples-only        print rows only\n"
           "  -A, --no-align           unaligned output\n"
           "  -F, --field-separator=S  field separator of unaligned output (default \"|\")\n"
           "  -e, --echo-queries       print each statement before running it\n"
           "  -x, --expanded           expanded display (one line per column)\n"
           "      --csv                CSV output (comma-separated values)\n"
           "  -o, --output=FILE        write query results to FILE\n"
           "  -1, --single-transaction run the scripts as one transaction\n"
           "  -v, --set=NAME=VALUE     set variable NAME (:NAME in statements, as psql)\n"
           "  -X, --no-psqlrc          accepted for habit's sake (docsql reads no start-up file)\n"
           "  -n, --no-readline        no line history on a terminal\n"
           "      --trace-channel      report every client file transfer on standard error\n"
           "      --no-progress        never show a progress bar\n"
           "      --extended-protocol  send statements with the extended query protocol\n"
           "      --continue-on-error  run the remaining statements after an error\n"
           "      --allow-dir=DIR      also serve client files under DIR (may be given more\n"
           "                           than once)\n"
           "      --trust-server       serve every client file the server names\n"
           "  -V, --version            print the version and exit\n"
           "  -?, --help               print this help and exit\n"
           "\n"
           "docsql stops at the first error unless --continue-on-error is given.\n"
           "It reads and writes only client files that the statement text names (or that\n"
           "lie under a directory the text names as a literal ending in \"/\", or under an\n"
           "--allow-dir directory); it refuses every other file the server asks for.\n"
           "Exit status: 0 success, 1 bad usage or unreadable script, 2 no connection,\n"
           "3 a statement failed.\n";
}

}  // namespace docsql
