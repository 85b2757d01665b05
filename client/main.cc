// docsql: runs SQL from its arguments, files or standard input against
// PostgreSQL, prints the results like psql, and serves the document
// module's client files.
#include <libpq-fe.h>
#include <termios.h>
#include <unistd.h>

#include <cctype>
#include <clocale>
#include <csignal>
#include <cstdio>
#include <cstring>
#include <fcntl.h>
#include <chrono>
#include <fstream>
#include <functional>
#include <iostream>
#include <sstream>
#include <string>
#include <vector>

#include "channel.h"
#include "interactive.h"
#include "metacommand.h"
#include "clientproto.h"
#include <readline/readline.h>
#include "options.h"
#include "printer.h"
#include "splitter.h"

using namespace docsql;

namespace {

constexpr int kExitUsage = 1, kExitConnect = 2, kExitStatement = 3;

Channel g_channel;
volatile sig_atomic_t g_running = 0;

Session g_session;
bool g_interactive = false;

void OnSigint(int) {
    if (!g_running && g_interactive) InteractiveInterrupt();
    if (!g_running) {
        const char nl = '\n';
        (void)!write(STDERR_FILENO, &nl, 1);
        _exit(130);
    }
    g_interrupted = 1;
    // During a pull the refusal of the copy-in stops the statement.
    if (!g_inPull && g_channel.cancel) {
        char err[256];
        PQcancel(g_channel.cancel, err, sizeof err);
    }
}

std::string ReadPassword(const std::string &user) {
    int fd = open("/dev/tty", O_RDWR | O_CLOEXEC);
    if (fd < 0) return "";
    std::string prompt = "Password for user " + user + ": ";
    (void)!write(fd, prompt.data(), prompt.size());
    struct termios old, quiet;
    bool tty = tcgetattr(fd, &old) == 0;
    if (tty) {
        quiet = old;
        quiet.c_lflag &= ~(tcflag_t)ECHO;
        tcsetattr(fd, TCSAFLUSH, &quiet);
    }
    std::string pw;
    char c;
    while (read(fd, &c, 1) == 1 && c != '\n') pw += c;
    if (tty) tcsetattr(fd, TCSAFLUSH, &old);
    (void)!write(fd, "\n", 1);
    close(fd);
    return pw;
}

PGconn *Connect(const Options &o) {
    std::vector<std::pair<std::string, std::string>> kv;
    std::string options;
    const std::string &db = o.dbname;
    bool conninfo = db.find('=') != std::string::npos || db.rfind("postgresql://", 0) == 0 ||
                    db.rfind("postgres://", 0) == 0;
    if (conninfo) {
        char *err = nullptr;
        PQconninfoOption *parsed = PQconninfoParse(db.c_str(), &err);
        if (!parsed) {
            std::fprintf(stderr, "docsql: invalid connection string: %s", err ? err : "\n");
            PQfreemem(err);
            return nullptr;
        }
        for (PQconninfoOption *p = parsed; p->keyword; p++) {
            if (!p->val) continue;
            if (std::strcmp(p->keyword, "options") == 0)
                options = p->val;
            else
                kv.emplace_back(p->keyword, p->val);
        }
        PQconninfoFree(parsed);
    } else if (!db.empty()) {
        kv.emplace_back("dbname", db);
    }
    if (options.empty() && getenv("PGOPTIONS")) options = getenv("PGOPTIONS");
    // Declares that this client serves client files.
    options += std::string(options.empty() ? "" : " ") + "-c " + dt::channel::kSettingName + "=on";
    if (!o.host.empty()) kv.emplace_back("host", o.host);
    if (!o.port.empty()) kv.emplace_back("port", o.port);
    if (!o.user.empty()) kv.emplace_back("user", o.user);
    kv.emplace_back("options", options);
    kv.emplace_back("fallback_application_name", "docsql");

    std::string password;
    bool havePassword = false;
    if (o.forcePassword) {
        password = ReadPassword(o.user.empty() ? (getenv("PGUSER") ? getenv("PGUSER") : "") : o.user);
        havePassword = true;
    }
    for (;;) {
        std::vector<const char *> keys, vals;
        for (auto &p : kv) {
            keys.push_back(p.first.c_str());
            vals.push_back(p.second.c_str());
        }
        if (havePassword) {
            keys.push_back("password");
            vals.push_back(password.c_str());
        }
        keys.push_back(nullptr);
        vals.push_back(nullptr);
        PGconn *conn = PQconnectdbParams(keys.data(), vals.data(), 0);
        if (conn && PQstatus(conn) == CONNECTION_BAD && PQconnectionNeedsPassword(conn) && !havePassword &&
            !o.neverPassword && isatty(STDIN_FILENO)) {
            std::string user = PQuser(conn) ? PQuser(conn) : "";
            PQfinish(conn);
            password = ReadPassword(user);
            havePassword = true;
            continue;
        }
        return conn;
    }
}

std::string FormatError(const PGresult *res, PGconn *conn) {
    const char *sev = PQresultErrorField(res, PG_DIAG_SEVERITY);
    const char *code = PQresultErrorField(res, PG_DIAG_SQLSTATE);
    const char *msg = PQresultErrorField(res, PG_DIAG_MESSAGE_PRIMARY);
    // No message: an error of the client library itself (lost connection and such).
    if (!msg) return std::string("docsql: ") + PQerrorMessage(conn);
    std::string out = std::string(sev ? sev : "ERROR") + ":  " + (code ? code : "") + (code ? ": " : "") + msg + "\n";
    if (const char *d = PQresultErrorField(res, PG_DIAG_MESSAGE_DETAIL)) out += std::string("DETAIL:  ") + d + "\n";
    if (const char *h = PQresultErrorField(res, PG_DIAG_MESSAGE_HINT)) out += std::string("HINT:  ") + h + "\n";
    return out;
}

// Whether a statement controls the transaction itself (BEGIN, COMMIT, ...).
bool IsTransactionControl(const std::string &sql) {
    size_t i = 0;
    while (i < sql.size() && std::isspace((unsigned char)sql[i])) i++;
    std::string word;
    while (i < sql.size() && std::isalpha((unsigned char)sql[i])) word += (char)std::toupper((unsigned char)sql[i++]);
    for (const char *w : {"BEGIN", "START", "COMMIT", "END", "ROLLBACK", "ABORT", "SAVEPOINT", "RELEASE", "PREPARE"})
        if (word == w) return true;
    return false;
}

// Runs a statement of docsql's own (BEGIN, COMMIT, ROLLBACK); its error
// text, or "" when it succeeded.
std::string RunQuiet(PGconn *conn, const char *sql) {
    PGresult *res = PQexec(conn, sql);
    std::string err;
    if (PQresultStatus(res) != PGRES_COMMAND_OK) err = FormatError(res, conn);
    PQclear(res);
    return err;
}

bool StatusAfterRows(const char *tag) {
    return std::strncmp(tag, "INSERT", 6) == 0 || std::strncmp(tag, "UPDATE", 6) == 0 ||
           std::strncmp(tag, "DELETE", 6) == 0 || std::strncmp(tag, "MERGE", 5) == 0;
}

// Runs one statement; false when it failed.  With capture, nothing is
// printed: the error text (or "") goes there.
bool Run(PGconn *conn, const std::string &sql, const Options &o, std::string *capture = nullptr) {
    if (o.echo && !capture) std::printf("%s\n", sql.c_str());
    PrintOptions po = g_session.print;
    auto started = std::chrono::steady_clock::now();
    g_interrupted = 0;
    g_channel.error.clear();
    g_channel.trust.statement = sql;
    g_running = 1;
    bool ok = true;
    bool copiedOut = false;  // like psql: no "COPY n" after data sent to standard output
    // What the statement prints goes out only when it succeeded: a failed
    // statement shows its error and nothing else.
    std::string out;
    std::string errors;    // error texts, printed at the end
    std::string errstate;  // SQLSTATE of the first error
    // Takes the results of what was sent; quietStatus: a Parse's own
    // completion prints nothing.
    auto drain = [&](bool quietStatus) {
        while (PGresult *res = PQgetResult(conn)) {
            switch (PQresultStatus(res)) {
                case PGRES_COPY_IN:
                    ServeCopyIn(g_channel);
                    break;
                case PGRES_COPY_OUT: {
                    char *buf;
                    int n;
                    copiedOut = true;
                    std::fputs(out.c_str(), stdout);
                    out.clear();
                    while ((n = PQgetCopyData(conn, &buf, 0)) > 0) {
                        std::fwrite(buf, 1, (size_t)n, stdout);
                        PQfreemem(buf);
                    }
                    break;
                }
                case PGRES_TUPLES_OK: {
                    out += FormatTable(ResultTable(res), po);
                    const char *tag = PQcmdStatus(res);
                    if (!o.quiet && StatusAfterRows(tag)) out += std::string(tag) + "\n";
                    break;
                }
                case PGRES_COMMAND_OK:
                    if (!o.quiet && !copiedOut && !quietStatus) out += std::string(PQcmdStatus(res)) + "\n";
                    break;
                case PGRES_EMPTY_QUERY:
                    break;
                default: {
                    errors += FormatError(res, conn);
                    const char *code = PQresultErrorField(res, PG_DIAG_SQLSTATE);
                    if (ok && code) errstate = code;
                    ok = false;
                    break;
                }
            }
            PQclear(res);
            if (PQstatus(conn) == CONNECTION_BAD) break;
        }
    };
    if (o.extended) {
        // The extended protocol: Parse on its own first.  A document literal
        // pulls its client file while the statement is parsed, and the
        // server can take that copy-in only when nothing but the Parse's
        // Sync waits behind it; Bind and Execute follow once it is parsed.
        // That Sync would end the implicit transaction of the Parse, and a
        // document nothing took by then is removed: outside a transaction
        // block the statement runs inside BEGIN ... COMMIT, and again
        // without them if it cannot run in a transaction block (25001).
        auto parseAndRun = [&]() -> bool {
            if (!PQsendPrepare(conn, "", sql.c_str(), 0, nullptr)) return false;
            drain(true);
            if (ok && g_channel.error.empty() && PQstatus(conn) != CONNECTION_BAD) {
                if (!PQsendQueryPrepared(conn, "", 0, nullptr, nullptr, nullptr, 0)) return false;
                drain(false);
            }
            return true;
        };
        bool wrap = PQtransactionStatus(conn) == PQTRANS_IDLE && !IsTransactionControl(sql);
        bool sentOk;
        if (wrap && RunQuiet(conn, "BEGIN").empty()) {
            sentOk = parseAndRun();
            if (ok && g_channel.error.empty()) {
                std::string cerr = RunQuiet(conn, "COMMIT");
                if (!cerr.empty()) {
                    errors += cerr;
                    ok = false;
                }
            } else {
                RunQuiet(conn, "ROLLBACK");
                if (errstate == "25001" && g_channel.error.empty()) {
                    ok = true;
                    out.clear();
                    errors.clear();
                    errstate.clear();
                    sentOk = parseAndRun();
                }
            }
        } else {
            sentOk = parseAndRun();
        }
        if (!sentOk) {
            std::fprintf(stderr, "docsql: %s", PQerrorMessage(conn));
            g_running = 0;
            return false;
        }
    } else {
        if (!PQsendQuery(conn, sql.c_str())) {
            std::fprintf(stderr, "docsql: %s", PQerrorMessage(conn));
            g_running = 0;
            return false;
        }
        drain(false);
    }
    if (capture) {
        g_running = 0;
        EndStatement(g_channel);
        *capture = errors;
        if (!g_channel.error.empty()) *capture += "docsql: " + g_channel.error + "\n";
        if (PQstatus(conn) == CONNECTION_BAD) *capture += "docsql: the connection to the server was lost\n";
        return capture->empty();
    }
    if (ok && g_channel.error.empty()) std::fputs(out.c_str(), stdout);
    std::fflush(stdout);
    std::fputs(errors.c_str(), stderr);
    if (g_session.timing) {
        double ms = std::chrono::duration<double, std::milli>(std::chrono::steady_clock::now() - started).count();
        std::printf("Time: %.3f ms\n", ms);
    }
    g_running = 0;
    EndStatement(g_channel);
    std::fflush(stdout);
    if (!g_channel.error.empty()) {
        std::fprintf(stderr, "docsql: %s\n", g_channel.error.c_str());
        ok = false;
    }
    if (PQstatus(conn) == CONNECTION_BAD) {
        std::fprintf(stderr, "docsql: the connection to the server was lost\n");
        ok = false;
    }
    return ok;
}

bool ReadAll(std::istream &in, std::string &out) {
    std::ostringstream ss;
    ss << in.rdbuf();
    out = ss.str();
    return !in.bad();
}

}  // namespace

int main(int argc, char **argv) {
    std::setlocale(LC_CTYPE, "");
    Options o;
    std::string err;
    std::vector<std::string> args(argv + 1, argv + argc);
    if (!ParseOptions(args, o, err)) {
        std::fprintf(stderr, "docsql: %s\nTry \"docsql --help\" for more information.\n", err.c_str());
        return kExitUsage;
    }
    if (o.help) {
        std::fputs(UsageText().c_str(), stdout);
        return 0;
    }
    if (o.version) {
        std::printf("docsql (document) %s\n", DOCUMENT_VERSION);
        return 0;
    }
    // Read every script first: a missing file is reported before anything runs.
    std::vector<std::string> texts;
    // On a terminal, with no -c or -f, docsql prompts for statements.
    bool interactive = o.scripts.empty() && isatty(STDIN_FILENO);
    if (o.scripts.empty() && !interactive) o.scripts.push_back({Script::File, "-"});
    for (const Script &s : o.scripts) {
        if (s.kind == Script::Command) {
            texts.push_back(s.text);
            continue;
        }
        std::string text;
        if (s.text == "-") {
            ReadAll(std::cin, text);
        } else {
            std::ifstream f(s.text, std::ios::binary);
            if (!f || !ReadAll(f, text)) {
                std::fprintf(stderr, "docsql: %s: %s\n", s.text.c_str(), std::strerror(errno));
                return kExitUsage;
            }
        }
        texts.push_back(text);
    }

    if (!o.outFile.empty()) {
        // Results go to the file; prompts and messages stay on the terminal.
        if (interactive) rl_outstream = fdopen(dup(STDOUT_FILENO), "w");
        if (!std::freopen(o.outFile.c_str(), "w", stdout)) {
            std::fprintf(stderr, "docsql: %s: %s\n", o.outFile.c_str(), std::strerror(errno));
            return kExitUsage;
        }
    }
    PGconn *conn = Connect(o);
    if (!conn || PQstatus(conn) != CONNECTION_OK) {
        if (conn) std::fprintf(stderr, "docsql: %s", PQerrorMessage(conn));
        PQfinish(conn);
        return kExitConnect;
    }
    g_channel.conn = conn;
    g_channel.cancel = PQgetCancel(conn);
    g_channel.trace = o.traceChannel;
    g_channel.trust.trustServer = o.trustServer;
    g_channel.trust.allowDirs = o.allowDirs;
    g_channel.progressAllowed = !o.noProgress;
    PQsetNoticeReceiver(conn, NoticeReceiver, &g_channel);

    struct sigaction sa;
    std::memset(&sa, 0, sizeof sa);
    sa.sa_handler = OnSigint;
    sigemptyset(&sa.sa_mask);
    sigaction(SIGINT, &sa, nullptr);

    g_session.conn = conn;
    g_session.print.unaligned = o.unaligned;
    g_session.print.tuplesOnly = o.tuplesOnly;
    g_session.print.fieldSeparator = o.fieldSeparator;
    g_session.print.expanded = o.expanded;
    g_session.print.csv = o.csv;
    g_session.quiet = o.quiet;
    for (const auto &[name, value] : o.vars) g_session.vars[name] = value;
    g_session.runSql = [&](const std::string &sql) { return Run(conn, sql, o); };
    g_session.execQuiet = [&](const std::string &sql) {
        std::string err;
        Run(conn, sql, o, &err);
        return err;
    };
    g_session.progress = !o.noProgress;
    // Runs the statements and backslash commands of one text; where names
    // it in messages.  Stops at the first failure unless told otherwise.
    std::function<int(const std::string &, const std::string &, bool)> runText;
    runText = [&](const std::string &text, const std::string &where, bool isFile) -> int {
        int rc = 0;
        for (const Statement &st : SplitStatements(text)) {
            if (PQstatus(conn) == CONNECTION_BAD) return kExitStatement;
            bool ok;
            if (st.meta) {
                MetaResult r = RunMetaCommand(g_session, st.text);
                if (r == MetaResult::Quit) return rc == 0 ? -1 : rc;
                ok = r == MetaResult::Ok;
            } else {
                ok = Run(conn, Interpolate(st.text, g_session.vars), o);
            }
            if (!ok) {
                rc = kExitStatement;
                if (PQstatus(conn) == CONNECTION_BAD) return rc;
                if (o.continueOnError) continue;
                if (isFile) std::fprintf(stderr, "docsql: stopped at %s:%d\n", where.c_str(), st.line);
                return rc;
            }
        }
        return rc;
    };
    g_session.runFile = [&](const std::string &file) {
        std::ifstream f(file, std::ios::binary);
        std::string text;
        if (!f || !ReadAll(f, text)) {
            std::fprintf(stderr, "docsql: %s: %s\n", file.c_str(), std::strerror(errno));
            return false;
        }
        int r = runText(text, file, true);
        return r == 0 || r == -1;
    };

    int rc = 0;
    if (interactive) {
        g_interactive = true;
        PGresult *su = PQexec(conn, "SELECT pg_catalog.current_setting('is_superuser') = 'on'");
        bool superuser = PQresultStatus(su) == PGRES_TUPLES_OK && PQntuples(su) == 1 && PQgetvalue(su, 0, 0)[0] == 't';
        PQclear(su);
        rc = RunInteractive(g_session, PQdb(conn), superuser, !o.noHistory);
    } else {
        bool wrapped = o.singleTransaction && RunQuiet(conn, "BEGIN").empty();
        for (size_t k = 0; k < texts.size() && (rc == 0 || o.continueOnError); k++) {
            if (PQstatus(conn) == CONNECTION_BAD) break;
            const Script &s = o.scripts[k];
            int r = runText(texts[k], s.kind == Script::Command ? "-c" : (s.text == "-" ? "<stdin>" : s.text),
                            s.kind == Script::File);
            if (r == -1) break;  // \q
            if (r != 0) rc = r;
        }
        if (wrapped && PQstatus(conn) != CONNECTION_BAD) {
            // -1: all or nothing.
            if (rc == 0) {
                std::string err = RunQuiet(conn, "COMMIT");
                if (!err.empty()) {
                    std::fputs(err.c_str(), stderr);
                    rc = kExitStatement;
                }
            } else {
                RunQuiet(conn, "ROLLBACK");
            }
        }
    }
    PQfreeCancel(g_channel.cancel);
    g_channel.cancel = nullptr;
    PQfinish(conn);
    return rc;
}
