#include "trust.h"

#include <limits.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cctype>
#include <cstdlib>
#include <cstring>

namespace docsql {

namespace {

bool OpensWord(char c) {
    return c == '\'' || c == '"' || c == ':' || c == '(' || c == ',' || c == '=' || c == ' ' || c == '\t' ||
           c == '\n' || c == '\r';
}
bool ClosesWord(char c) {
    return c == '\'' || c == '"' || c == ')' || c == ',' || c == ';' || c == ' ' || c == '\t' || c == '\n' ||
           c == '\r';
}

bool FindWord(const std::string &text, const std::string &word) {
    if (word.empty()) return false;
    for (size_t at = text.find(word); at != std::string::npos; at = text.find(word, at + 1)) {
        bool startOk = at == 0 || OpensWord(text[at - 1]);
        size_t end = at + word.size();
        bool endOk = end == text.size() || ClosesWord(text[end]);
        // A doubled quote right after the word belongs to the path, not
        // to the end of the literal.
        if (endOk && end + 1 < text.size() && text[end] == '\'' && text[end + 1] == '\'') endOk = false;
        if (startOk && endOk) return true;
    }
    return false;
}

std::string DoubleQuotes(const std::string &s) {
    std::string out;
    for (char c : s) {
        out += c;
        if (c == '\'') out += '\'';
    }
    return out;
}

// The real path of p (symbolic links followed), or "" when it cannot be
// resolved.
std::string Real(const std::string &p) {
    char buf[PATH_MAX];
    if (!realpath(p.c_str(), buf)) return "";
    return buf;
}

std::string DirOf(const std::string &path) {
    size_t slash = path.rfind('/');
    if (slash == std::string::npos) return ".";
    if (slash == 0) return "/";
    return path.substr(0, slash);
}

// Whether the part of a path below a prefix goes up (a ".." component) or
// into a hidden file or directory (a component that starts with "."): a
// prefix serves neither; such a file is served only when named whole.
bool GoesUpOrHidden(const std::string &rest) {
    size_t start = 0;
    while (start <= rest.size()) {
        size_t slash = rest.find('/', start);
        std::string part = rest.substr(start, slash == std::string::npos ? std::string::npos : slash - start);
        if (!part.empty() && part[0] == '.') return true;
        if (slash == std::string::npos) break;
        start = slash + 1;
    }
    return false;
}

bool Under(const std::string &real, const std::string &realdir) {
    if (realdir == "/") return !real.empty() && real[0] == '/';
    return real == realdir || (real.size() > realdir.size() && real.compare(0, realdir.size(), realdir) == 0 &&
                               real[realdir.size()] == '/');
}

// Whether path begins with prefix (a directory ending in "/", or the start
// of a file name in a directory) and, after resolving links, lies in the
// prefix's directory.
bool UnderPrefix(const std::string &path, const std::string &prefix, bool forWrite) {
    if (prefix.empty()) return false;
    if (path.size() <= prefix.size() || path.compare(0, prefix.size(), prefix) != 0) return false;
    if (GoesUpOrHidden(path.substr(prefix.size()))) return false;
    std::string dir = prefix.back() == '/' ? prefix : DirOf(prefix);
    std::string realdir = Real(dir);
    if (realdir.empty()) return false;
    std::string real = forWrite ? Real(DirOf(path)) : Real(path);
    return !real.empty() && Under(real, realdir);
}

}  // namespace

std::vector<std::string> NamedDirectories(const std::string &s) {
    std::vector<std::string> prefixes;
    for (size_t i = 1; i < s.size(); i++) {
        if (s[i] != '\'') continue;
        if (i + 1 < s.size() && s[i + 1] == '\'') {  // a doubled quote inside a literal
            i++;
            continue;
        }
        size_t k = i + 1;
        while (k < s.size() && (s[k] == ' ' || s[k] == '\t' || s[k] == '\n' || s[k] == '\r')) k++;
        bool concatenated = k + 1 < s.size() && s[k] == '|' && s[k + 1] == '|';
        if (s[i - 1] != '/' && !concatenated) continue;
        size_t start = i;
        while (start > 0 && !OpensWord(s[start - 1])) start--;
        std::string prefix = s.substr(start, i - start);
        // The root alone names no directory: it would allow every file.
        if (prefix.size() > 1 && prefix[0] == '/') prefixes.push_back(prefix);
    }
    return prefixes;
}

std::vector<std::string> LiteralPaths(const std::string &s) {
    std::vector<std::string> paths;
    for (size_t i = 1; i < s.size(); i++) {
        if (s[i] != '\'') continue;
        if (i + 1 < s.size() && s[i + 1] == '\'') {
            i++;
            continue;
        }
        size_t start = i;
        while (start > 0 && !OpensWord(s[start - 1])) start--;
        std::string word = s.substr(start, i - start);
        if (word.size() >= 2 && word[0] == '/') paths.push_back(word);
    }
    return paths;
}

std::vector<std::string> LiteralDirectories(const std::string &s) {
    std::vector<std::string> dirs;
    for (const std::string &word : LiteralPaths(s)) {
        struct stat st;
        if (stat(word.c_str(), &st) == 0 && S_ISDIR(st.st_mode)) dirs.push_back(word.back() == '/' ? word : word + "/");
    }
    return dirs;
}

bool NamedInStatement(const std::string &statement, const std::string &path) {
    if (FindWord(statement, path)) return true;
    std::string doubled = DoubleQuotes(path);
    return doubled != path && FindWord(statement, doubled);
}

namespace {

bool IdentChar(char c) { return std::isalnum((unsigned char)c) || c == '_' || c == '$'; }

// The end of the parenthesised list that opens at s[open]: after its
// closing parenthesis, or the end of s.  Quoted literals and identifiers
// are passed over whole.
size_t ListEnd(const std::string &s, size_t open) {
    int depth = 0;
    for (size_t i = open; i < s.size(); i++) {
        char c = s[i];
        if (c == '\'' || c == '"') {
            size_t close = s.find(c, i + 1);
            while (close != std::string::npos && close + 1 < s.size() && s[close + 1] == c)
                close = s.find(c, close + 2);
            if (close == std::string::npos) return s.size();
            i = close;
        } else if (c == '(') {
            depth++;
        } else if (c == ')' && --depth == 0) {
            return i + 1;
        }
    }
    return s.size();
}

// The functions of the extension that write client files.
const char *const kWriters[] = {"getdoc", "dt_export", "dt_converttx", "putclientfile"};

}  // namespace

std::string WriterArguments(const std::string &s) {
    // The text in lower case with string literals blanked: a writer's
    // name inside a literal is no call.
    std::string lower(s);
    bool quoted = false;
    for (char &c : lower) {
        if (c == '\'') {
            quoted = !quoted;  // a doubled quote closes and opens again
        } else {
            c = quoted ? ' ' : (char)std::tolower((unsigned char)c);
        }
    }
    std::string out;
    for (const char *w : kWriters) {
        size_t len = std::strlen(w);
        for (size_t at = lower.find(w); at != std::string::npos; at = lower.find(w, at + 1)) {
            if (at > 0 && IdentChar(lower[at - 1])) continue;
            size_t k = at + len;
            if (k < lower.size() && lower[k] == '"' && at > 0 && lower[at - 1] == '"') k++;
            while (k < lower.size() && std::isspace((unsigned char)lower[k])) k++;
            if (k >= lower.size() || lower[k] != '(') continue;
            out += s.substr(k, ListEnd(s, k) - k);
            out += '\n';
        }
    }
    return out;
}

bool MayServe(const Trust &t, const std::string &path, bool forWrite, std::string &why) {
    if (t.trustServer) return true;
    if (forWrite) {
        // Only what the statement gives a function that writes client
        // files may be written: a path the statement names elsewhere (a
        // document to read, in an INSERT) is the server's to read, never
        // to replace.
        Trust writing = t;
        writing.statement = WriterArguments(t.statement);
        writing.trustServer = false;
        if (writing.statement.empty()) {
            why = "the statement calls no function that writes client files (GetDoc, dt_Export, dt_ConvertTx, "
                  "PutClientFile), so docsql writes no file for it";
            return false;
        }
        return MayServeNamed(writing, path, true, why);
    }
    return MayServeNamed(t, path, false, why);
}

bool MayServeNamed(const Trust &t, const std::string &path, bool forWrite, std::string &why) {
    if (path.empty() || path.find('\0') != std::string::npos) {
        why = "not a file name";
        return false;
    }
    if (forWrite) {
        struct stat st;
        if (lstat(path.c_str(), &st) == 0 && S_ISLNK(st.st_mode)) {
            why = "it is a symbolic link, which docsql never replaces or follows when writing";
            return false;
        }
    }
    if (NamedInStatement(t.statement, path)) return true;
    for (const std::string &p : NamedDirectories(t.statement))
        if (UnderPrefix(path, p, forWrite)) return true;
    for (const std::string &d : LiteralDirectories(t.statement))
        if (UnderPrefix(path, d, forWrite)) return true;
    // A name the server makes from a literal by adding an extension
    // (dt_Export(body, '/home/me/back') writes /home/me/back.16403).
    for (const std::string &p : LiteralPaths(t.statement))
        if (path.size() > p.size() + 1 && path.compare(0, p.size(), p) == 0 && path[p.size()] == '.' &&
            path.find('/', p.size()) == std::string::npos && p.back() != '/')
            return true;
    for (std::string d : t.allowDirs) {
        if (!d.empty() && d.back() != '/') d += '/';
        if (UnderPrefix(path, d, forWrite)) return true;
    }
    why = "the statement does not name it (docsql serves only files named in the statement text, "
          "under a directory it names, or under an --allow-dir directory; --trust-server serves any)";
    return false;
}

}  // namespace docsql
