#include "splitter.h"

namespace docsql {

namespace {

bool IdentStart(unsigned char c) { return (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z') || c == '_' || c >= 0x80; }
bool IdentChar(unsigned char c) { return IdentStart(c) || (c >= '0' && c <= '9') || c == '$'; }

// Only blanks and comments?
bool IsBlank(const std::string &s) {
    size_t i = 0, n = s.size();
    while (i < n) {
        unsigned char c = s[i];
        if (c == ' ' || c == '\t' || c == '\n' || c == '\r' || c == '\f' || c == '\v') {
            i++;
        } else if (c == '-' && i + 1 < n && s[i + 1] == '-') {
            while (i < n && s[i] != '\n') i++;
        } else if (c == '/' && i + 1 < n && s[i + 1] == '*') {
            int depth = 0;
            while (i < n) {
                if (s[i] == '/' && i + 1 < n && s[i + 1] == '*') {
                    depth++;
                    i += 2;
                } else if (s[i] == '*' && i + 1 < n && s[i + 1] == '/') {
                    i += 2;
                    if (--depth == 0) break;
                } else {
                    i++;
                }
            }
        } else {
            return false;
        }
    }
    return true;
}

}  // namespace

std::vector<Statement> SplitStatements(const std::string &in) {
    std::vector<Statement> out;
    size_t n = in.size(), start = 0, i = 0;
    int line = 1, startLine = 1;
    int parens = 0;
    bool atStart = true;  // nothing but blanks and comments since start

    auto finish = [&](size_t end, size_t next, bool complete) {
        std::string text = in.substr(start, end - start);
        if (!IsBlank(text)) {
            // The statement starts at its first line with something in it.
            Statement st;
            st.text = text;
            st.line = startLine;
            st.complete = complete;
            out.push_back(st);
        }
        start = next;
        startLine = line;
        parens = 0;
        atStart = true;
    };
    auto advance = [&](size_t to) {
        for (; i < to && i < n; i++)
            if (in[i] == '\n') line++;
    };

    while (i < n) {
        unsigned char c = in[i];
        if (c == '\n' || c == ' ' || c == '\t' || c == '\r' || c == '\f' || c == '\v') {
            if (atStart) {
                advance(i + 1);
                start = i;
                startLine = line;
            } else {
                advance(i + 1);
            }
            continue;
        }
        if (c == '-' && i + 1 < n && in[i + 1] == '-') {
            size_t e = in.find('\n', i);
            advance(e == std::string::npos ? n : e);
            continue;
        }
        if (c == '/' && i + 1 < n && in[i + 1] == '*') {
            int depth = 0;
            size_t j = i;
            while (j < n) {
                if (in[j] == '/' && j + 1 < n && in[j + 1] == '*') {
                    depth++;
                    j += 2;
                } else if (in[j] == '*' && j + 1 < n && in[j + 1] == '/') {
                    j += 2;
                    if (--depth == 0) break;
                } else {
                    j++;
                }
            }
            advance(j);
            continue;
        }
        if (atStart && c == '\\') {
            // A psql meta-command runs to the end of its line.
            size_t e = in.find('\n', i);
            size_t end = e == std::string::npos ? n : e;
            Statement st;
            st.text = in.substr(i, end - i);
            st.line = line;
            st.meta = true;
            out.push_back(st);
            advance(end);
            start = i;
            startLine = line;
            continue;
        }
        atStart = false;
        if (c == '\'') {
            // E'...' (not part of a longer identifier) takes backslash escapes.
            bool escapes = i > 0 && (in[i - 1] == 'E' || in[i - 1] == 'e') &&
                           (i < 2 || !IdentChar((unsigned char)in[i - 2]));
            size_t j = i + 1;
            while (j < n) {
                if (escapes && in[j] == '\\' && j + 1 < n) {
                    j += 2;
                } else if (in[j] == '\'') {
                    if (j + 1 < n && in[j + 1] == '\'') {
                        j += 2;
                    } else {
                        j++;
                        break;
                    }
                } else {
                    j++;
                }
            }
            advance(j > n ? n : j);
            continue;
        }
        if (c == '"') {
            size_t j = i + 1;
            while (j < n) {
                if (in[j] == '"') {
                    if (j + 1 < n && in[j + 1] == '"') {
                        j += 2;
                    } else {
                        j++;
                        break;
                    }
                } else {
                    j++;
                }
            }
            advance(j);
            continue;
        }
        if (c == '$' && !(i > 0 && IdentChar((unsigned char)in[i - 1]))) {
            // $tag$ or $$; $1 is a parameter.
            size_t j = i + 1;
            if (j < n && IdentStart((unsigned char)in[j])) {
                j++;
                while (j < n && IdentChar((unsigned char)in[j]) && in[j] != '$') j++;
            }
            if (j < n && in[j] == '$') {
                std::string tag = in.substr(i, j - i + 1);
                size_t close = in.find(tag, j + 1);
                advance(close == std::string::npos ? n : close + tag.size());
                continue;
            }
            advance(i + 1);
            continue;
        }
        if (c == '(') parens++;
        if (c == ')' && parens > 0) parens--;
        if (c == ';' && parens == 0) {
            size_t end = i;
            advance(i + 1);
            finish(end, i, true);
            continue;
        }
        // An identifier or keyword: skip it whole, so that a quote right
        // after it (E'...') is seen with its prefix.
        if (IdentStart(c)) {
            size_t j = i + 1;
            while (j < n && IdentChar((unsigned char)in[j])) j++;
            advance(j);
            continue;
        }
        advance(i + 1);
    }
    finish(n, n, false);
    return out;
}

}  // namespace docsql
