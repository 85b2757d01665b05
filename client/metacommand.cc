#include "metacommand.h"

#include <cctype>
#include <cstring>
#include <vector>

#include "bulkload.h"

namespace docsql {

namespace {

// The words of a backslash command line; 'quoted words' keep their blanks.
std::vector<std::string> Words(const std::string &line) {
    std::vector<std::string> words;
    size_t i = 0, n = line.size();
    while (i < n) {
        while (i < n && std::isspace((unsigned char)line[i])) i++;
        if (i >= n) break;
        std::string w;
        if (line[i] == '\'') {
            i++;
            while (i < n) {
                if (line[i] == '\'' && i + 1 < n && line[i + 1] == '\'') {
                    w += '\'';
                    i += 2;
                } else if (line[i] == '\'') {
                    i++;
                    break;
                } else {
                    w += line[i++];
                }
            }
        } else {
            while (i < n && !std::isspace((unsigned char)line[i])) w += line[i++];
        }
        words.push_back(w);
    }
    return words;
}

// A psql name pattern as an anchored regular expression: * and ? are
// wildcards, letters fold to lower case unless the pattern is quoted.
std::string PatternRegex(const std::string &pattern) {
    std::string re = "^(";
    bool quoted = false;
    for (char c : pattern) {
        if (c == '"') {
            quoted = !quoted;
            continue;
        }
        if (c == '*') re += ".*";
        else if (c == '?') re += '.';
        else if (std::strchr("|^$.+()[]{}\\", c)) re += std::string("\\") + c;
        else re += quoted ? c : (char)std::tolower((unsigned char)c);
    }
    return re + ")$";
}

// Runs a catalogue query with an optional pattern as $1 and prints it under
// a title, or `none` when it found nothing.
bool Describe(Session &s, const std::string &sql, const std::string *pattern, const std::string &title,
              const std::string &none) {
    std::string re = pattern ? PatternRegex(*pattern) : "";
    const char *params[1] = {re.c_str()};
    PGresult *res = PQexecParams(s.conn, sql.c_str(), pattern ? 1 : 0, nullptr, pattern ? params : nullptr,
                                 nullptr, nullptr, 0);
    if (PQresultStatus(res) != PGRES_TUPLES_OK) {
        std::fprintf(stderr, "ERROR:  %s", PQerrorMessage(s.conn));
        PQclear(res);
        return false;
    }
    if (PQntuples(res) == 0 && !none.empty()) {
        std::fprintf(stderr, "%s\n", none.c_str());
        PQclear(res);
        return true;
    }
    Table t = ResultTable(res);
    PQclear(res);
    std::string body = FormatTable(t, s.print);
    if (!s.print.tuplesOnly && !s.print.unaligned && !s.print.csv && !s.print.expanded) {
        size_t nl = body.find('\n');
        int width = DisplayWidth(body.substr(0, nl));
        int pad = (width - DisplayWidth(title)) / 2;
        std::fprintf(stdout, "%s%s\n", std::string((size_t)(pad > 0 ? pad : 0), ' ').c_str(), title.c_str());
    }
    std::fputs(body.c_str(), stdout);
    std::fputs("\n", stdout);
    return true;
}

const char *kNotSystem =
    " n.nspname <> 'pg_catalog' AND n.nspname <> 'information_schema' AND n.nspname !~ '^pg_toast' ";

std::string Relations(const std::string &kinds, bool withTable, bool pattern) {
    std::string sql =
        "SELECT n.nspname AS \"Schema\", c.relname AS \"Name\", "
        "CASE c.relkind WHEN 'r' THEN 'table' WHEN 'v' THEN 'view' WHEN 'm' THEN 'materialized view' "
        "WHEN 'i' THEN 'index' WHEN 'S' THEN 'sequence' WHEN 't' THEN 'TOAST table' WHEN 'f' THEN 'foreign table' "
        "WHEN 'p' THEN 'partitioned table' WHEN 'I' THEN 'partitioned index' END AS \"Type\", "
        "pg_catalog.pg_get_userbyid(c.relowner) AS \"Owner\"";
    if (withTable) sql += ", c2.relname AS \"Table\"";
    sql += " FROM pg_catalog.pg_class c LEFT JOIN pg_catalog.pg_namespace n ON n.oid = c.relnamespace";
    if (withTable)
        sql += " LEFT JOIN pg_catalog.pg_index i ON i.indexrelid = c.oid"
               " LEFT JOIN pg_catalog.pg_class c2 ON i.indrelid = c2.oid";
    sql += " WHERE c.relkind IN (" + kinds + ") AND" + std::string(kNotSystem) +
           "AND pg_catalog.pg_table_is_visible(c.oid)";
    if (pattern) sql += " AND c.relname OPERATOR(pg_catalog.~) $1";
    return sql + " ORDER BY 1, 2";
}

bool DescribeTable(Session &s, const std::string &name) {
    std::string re = PatternRegex(name);
    const char *params[1] = {re.c_str()};
    PGresult *res = PQexecParams(
        s.conn,
        "SELECT c.oid, n.nspname, c.relname FROM pg_catalog.pg_class c "
        "LEFT JOIN pg_catalog.pg_namespace n ON n.oid = c.relnamespace "
        "WHERE c.relname OPERATOR(pg_catalog.~) $1 AND pg_catalog.pg_table_is_visible(c.oid) ORDER BY 2, 3",
        1, nullptr, params, nullptr, nullptr, 0);
    if (PQresultStatus(res) != PGRES_TUPLES_OK || PQntuples(res) == 0) {
        std::fprintf(stderr, "Did not find any relation named \"%s\".\n", name.c_str());
        PQclear(res);
        return false;
    }
    bool ok = true;
    for (int r = 0; r < PQntuples(res); r++) {
        std::string oid = PQgetvalue(res, r, 0);
        std::string title = std::string("Table \"") + PQgetvalue(res, r, 1) + "." + PQgetvalue(res, r, 2) + "\"";
        std::string cols =
            "SELECT a.attname AS \"Column\", pg_catalog.format_type(a.atttypid, a.atttypmod) AS \"Type\", "
            "CASE WHEN a.attnotnull THEN 'not null' ELSE '' END AS \"Nullable\", "
            "coalesce(pg_catalog.pg_get_expr(d.adbin, d.adrelid), '') AS \"Default\" "
            "FROM pg_catalog.pg_attribute a LEFT JOIN pg_catalog.pg_attrdef d "
            "ON d.adrelid = a.attrelid AND d.adnum = a.attnum "
            "WHERE a.attrelid = " + oid + " AND a.attnum > 0 AND NOT a.attisdropped ORDER BY a.attnum";
        ok = Describe(s, cols, nullptr, title, "") && ok;
        PGresult *ix = PQexec(s.conn, ("SELECT c2.relname, pg_catalog.pg_get_indexdef(i.indexrelid) "
                                       "FROM pg_catalog.pg_index i JOIN pg_catalog.pg_class c2 ON c2.oid = i.indexrelid "
                                       "WHERE i.indrelid = " + oid + " ORDER BY 1").c_str());
        if (PQresultStatus(ix) == PGRES_TUPLES_OK && PQntuples(ix) > 0) {
            std::fputs("Indexes:\n", stdout);
            for (int k = 0; k < PQntuples(ix); k++) {
                std::string def = PQgetvalue(ix, k, 1);
                size_t using_ = def.find(" USING ");
                std::fprintf(stdout, "    \"%s\"%s\n", PQgetvalue(ix, k, 0),
                             using_ == std::string::npos ? "" : def.substr(using_).c_str());
            }
            std::fputs("\n", stdout);
        }
        PQclear(ix);
    }
    PQclear(res);
    return ok;
}

bool OnOff(const std::vector<std::string> &w, bool current) {
    if (w.size() < 2) return !current;
    std::string v = w[1];
    for (auto &c : v) c = (char)std::tolower((unsigned char)c);
    return v == "on" || v == "true" || v == "1" || v == "yes";
}

}  // namespace

Table ResultTable(const PGresult *res) {
    Table t;
    int nf = PQnfields(res), nt = PQntuples(res);
    for (int c = 0; c < nf; c++) {
        t.headers.push_back(PQfname(res, c));
        t.rightAlign.push_back(IsNumericType(PQftype(res, c)));
    }
    for (int r = 0; r < nt; r++) {
        std::vector<std::optional<std::string>> row;
        for (int c = 0; c < nf; c++) {
            if (PQgetisnull(res, r, c))
                row.push_back(std::nullopt);
            else
                row.push_back(std::string(PQgetvalue(res, r, c), (size_t)PQgetlength(res, r, c)));
        }
        t.rows.push_back(std::move(row));
    }
    return t;
}

std::string MetaHelpText() {
    return "General\n"
           "  \\q                     quit docsql\n"
           "  \\?                     show this help\n"
           "  \\i FILE                run the statements and commands of FILE\n"
           "  \\timing [on|off]       show how long each statement takes\n"
           "  \\x [on|off]            expanded display (one line per column)\n"
           "  \\set [NAME [VALUE]]    set a variable (:NAME, :'NAME', :\"NAME\" in statements), or list them\n"
           "Describe\n"
           "  \\d [NAME]              tables, views and sequences; or the columns and indexes of NAME\n"
           "  \\dt [PATTERN]          tables\n"
           "  \\di [PATTERN]          indexes\n"
           "  \\df [PATTERN]          functions\n"
           "  \\dx [PATTERN]          installed extensions\n"
           "Documents\n"
           "  \\load TABLE COLUMN DIR [SPEC] [--stop-on-error]\n"
           "                         enter every file under DIR (\"-\": paths from standard input) as a\n"
           "                         document into TABLE.COLUMN; SPEC is the format specification\n"
           "                         (default format(ascii))\n";
}

std::string Interpolate(const std::string &sql, const std::map<std::string, std::string> &vars) {
    if (vars.empty()) return sql;
    std::string out;
    size_t i = 0, n = sql.size();
    auto ident = [](char c) { return std::isalnum((unsigned char)c) || c == '_'; };
    while (i < n) {
        char c = sql[i];
        if (c == '\'' || c == '"') {  // a literal or quoted identifier as it stands
            size_t j = i + 1;
            while (j < n && !(sql[j] == c && !(j + 1 < n && sql[j + 1] == c))) j += (sql[j] == c) ? 2 : 1;
            out += sql.substr(i, j + 1 - i);
            i = j + 1;
            continue;
        }
        if (c == '-' && i + 1 < n && sql[i + 1] == '-') {
            size_t e = sql.find('\n', i);
            e = e == std::string::npos ? n : e;
            out += sql.substr(i, e - i);
            i = e;
            continue;
        }
        if (c == ':' && i + 1 < n && sql[i + 1] == ':') {  // a cast
            out += "::";
            i += 2;
            continue;
        }
        if (c == ':' && i + 1 < n && (sql[i + 1] == '\'' || sql[i + 1] == '"')) {
            char q = sql[i + 1];
            size_t e = sql.find(q, i + 2);
            if (e != std::string::npos) {
                auto it = vars.find(sql.substr(i + 2, e - i - 2));
                if (it != vars.end()) {
                    std::string v = it->second, quoted(1, q);
                    for (char ch : v) {
                        quoted += ch;
                        if (ch == q) quoted += q;
                    }
                    out += quoted + q;
                    i = e + 1;
                    continue;
                }
            }
        }
        if (c == ':' && i + 1 < n && ident(sql[i + 1])) {
            size_t e = i + 1;
            while (e < n && ident(sql[e])) e++;
            auto it = vars.find(sql.substr(i + 1, e - i - 1));
            if (it != vars.end()) {
                out += it->second;
                i = e;
                continue;
            }
        }
        out += c;
        i++;
    }
    return out;
}

MetaResult RunMetaCommand(Session &s, const std::string &line) {
    std::vector<std::string> w = Words(line.substr(1));
    std::string cmd = w.empty() ? "" : w[0];
    const std::string *pattern = w.size() > 1 ? &w[1] : nullptr;
    if (cmd == "q" || cmd == "quit") return MetaResult::Quit;
    if (cmd == "?") {
        std::fputs(MetaHelpText().c_str(), stdout);
        return MetaResult::Ok;
    }
    if (cmd == "timing") {
        s.timing = OnOff(w, s.timing);
        std::printf("Timing is %s.\n", s.timing ? "on" : "off");
        return MetaResult::Ok;
    }
    if (cmd == "x") {
        s.print.expanded = OnOff(w, s.print.expanded);
        std::printf("Expanded display is %s.\n", s.print.expanded ? "on" : "off");
        return MetaResult::Ok;
    }
    if (cmd == "set") {
        if (w.size() == 1) {
            for (const auto &[k, v] : s.vars) std::printf("%s = '%s'\n", k.c_str(), v.c_str());
            return MetaResult::Ok;
        }
        std::string v;
        for (size_t k = 2; k < w.size(); k++) v += w[k];
        s.vars[w[1]] = v;
        return MetaResult::Ok;
    }
    if (cmd == "unset" && w.size() > 1) {
        s.vars.erase(w[1]);
        return MetaResult::Ok;
    }
    if (cmd == "i" || cmd == "include") {
        if (w.size() < 2) {
            std::fprintf(stderr, "\\%s: missing required argument\n", cmd.c_str());
            return MetaResult::Failed;
        }
        return s.runFile(w[1]) ? MetaResult::Ok : MetaResult::Failed;
    }
    if (cmd == "load") {
        LoadRequest req;
        std::string error;
        if (!ParseLoad(std::vector<std::string>(w.begin() + 1, w.end()), req, error)) {
            std::fprintf(stderr, "\\load: %s\n", error.c_str());
            return MetaResult::Failed;
        }
        std::vector<std::string> files = LoadFiles(req, error);
        if (!error.empty()) {
            std::fprintf(stderr, "\\load: %s\n", error.c_str());
            return MetaResult::Failed;
        }
        auto lit = [&](const std::string &v) {
            char *q = PQescapeLiteral(s.conn, v.c_str(), v.size());
            std::string r = q ? q : "''";
            PQfreemem(q);
            return r;
        };
        auto ident = [&](const std::string &v) {
            char *q = PQescapeIdentifier(s.conn, v.c_str(), v.size());
            std::string r = q ? q : "\"\"";
            PQfreemem(q);
            return r;
        };
        LoadSummary sum = RunLoad(req, files, s.execQuiet, lit, ident, s.progress);
        std::fputs(FormatSummary(sum).c_str(), stdout);
        return sum.failures.empty() ? MetaResult::Ok : MetaResult::Failed;
    }
    bool ok;
    if (cmd == "d" && pattern) {
        ok = DescribeTable(s, *pattern);
    } else if (cmd == "d") {
        ok = Describe(s, Relations("'r','p','v','m','S','f'", false, false), nullptr, "List of relations",
                      "Did not find any relations.");
    } else if (cmd == "dt") {
        ok = Describe(s, Relations("'r','p'", false, pattern), pattern, "List of relations",
                      "Did not find any relations.");
    } else if (cmd == "di") {
        ok = Describe(s, Relations("'i','I'", true, pattern), pattern, "List of relations",
                      "Did not find any relations.");
    } else if (cmd == "df") {
        std::string sql =
            "SELECT n.nspname AS \"Schema\", p.proname AS \"Name\", "
            "pg_catalog.pg_get_function_result(p.oid) AS \"Result data type\", "
            "pg_catalog.pg_get_function_arguments(p.oid) AS \"Argument data types\", "
            "CASE p.prokind WHEN 'a' THEN 'agg' WHEN 'w' THEN 'window' WHEN 'p' THEN 'proc' ELSE 'func' END AS \"Type\" "
            "FROM pg_catalog.pg_proc p LEFT JOIN pg_catalog.pg_namespace n ON n.oid = p.pronamespace "
            "WHERE pg_catalog.pg_function_is_visible(p.oid) AND" + std::string(kNotSystem);
        if (pattern) sql += " AND p.proname OPERATOR(pg_catalog.~) $1";
        ok = Describe(s, sql + " ORDER BY 1, 2, 4", pattern, "List of functions", "Did not find any functions.");
    } else if (cmd == "dx") {
        std::string sql =
            "SELECT e.extname AS \"Name\", e.extversion AS \"Version\", n.nspname AS \"Schema\", "
            "c.description AS \"Description\" FROM pg_catalog.pg_extension e "
            "LEFT JOIN pg_catalog.pg_namespace n ON n.oid = e.extnamespace "
            "LEFT JOIN pg_catalog.pg_description c ON c.objoid = e.oid "
            "AND c.classoid = 'pg_catalog.pg_extension'::pg_catalog.regclass";
        if (pattern) sql += " WHERE e.extname OPERATOR(pg_catalog.~) $1";
        ok = Describe(s, sql + " ORDER BY 1", pattern, "List of installed extensions",
                      "Did not find any extensions.");
    } else {
        std::fprintf(stderr, "invalid command \\%s\nTry \\? for help.\n", cmd.c_str());
        return MetaResult::Failed;
    }
    return ok ? MetaResult::Ok : MetaResult::Failed;
}

}  // namespace docsql
