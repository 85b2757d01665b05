#include "formatspec.h"

#include <cctype>
#include <cstdio>
#include <cstring>
#include <vector>

namespace dt {

namespace {
bool IsNameChar(char c) { return std::isalnum((unsigned char)c) || c == '_'; }
bool IsSpace(char c) { return std::isspace((unsigned char)c); }
}  // namespace

int findparam(const char *param, const char *list, char *retbuf, int retbufsize) {
    if (!list) return -1;
    if (param[0] != '\0' && !std::strchr(list, param[0])) return -1;

    const char *ch = list;
    bool first = true;
    bool unbalanced = false;
    for (;;) {
        while (IsSpace(*ch)) ch++;
        if (!first) {
            if (*ch != ',') break;
            while (*ch == ',') ch++;
            while (IsSpace(*ch)) ch++;
        }
        first = false;
        if (!IsNameChar(*ch)) break;

        const char *p = param;
        while (*p && *ch == *p) {
            p++;
            ch++;
        }
        while (IsSpace(*ch)) ch++;
        bool matched = (*p == '\0') && (*ch == '(' || *ch == ',' || *ch == '\0');

        while (IsNameChar(*ch)) ch++;
        while (IsSpace(*ch)) ch++;
        if (*ch != '(' && *ch != ',' && *ch != '\0') break;

        int copied = 0;
        if (*ch == '(') {
            ch++;
            int depth = 1;
            while (*ch) {
                char c = *ch++;
                if (c == ')')
                    depth--;
                else if (c == '(')
                    depth++;
                if (copied < retbufsize) retbuf[copied] = c;
                copied++;
                if (depth == 0) break;
            }
            if (depth > 0) {
                unbalanced = true;
                break;
            }
            // Step back over the closing parenthesis.
            copied--;
            if (copied > retbufsize - 1) copied = retbufsize - 1;
        }
        if (retbufsize > 0) {
            if (copied < 0) copied = 0;
            retbuf[copied] = '\0';
        }
        if (matched) return retbufsize < 1 ? 0 : (int)std::strlen(retbuf);
        if (*ch == '\0') return -1;
    }
    if (param[0] == '\0' && (unbalanced || *ch != '\0'))
        std::fprintf(stderr, "Syntax error: %s @ %d\n", list, (int)(ch - list));
    return -1;
}

int deleteparam(const char *param, char *list) {
    if (findparam(param, list, nullptr, 0) == -1) return 1;
    if (list[0] == '\0') return 0;
    size_t plen = std::strlen(param);

    // Find the element's start.
    char *pos = list;
    char *elem = nullptr;
    while (*pos) {
        if (*pos == '(') {
            char *close = std::strchr(pos, ')');
            if (!close || close[1] == '\0') return 0;
            pos = close + 1;
            continue;
        }
        if (*pos == ',') {
            pos++;
            continue;
        }
        if (std::strncmp(pos, param, plen) == 0) {
            elem = pos;
            break;
        }
        char *next = std::strpbrk(pos, ",(");
        if (!next) break;
        pos = next;
    }
    if (!elem) return 0;

    char *m = std::strpbrk(elem, ",(");
    char *close = (m && *m == '(') ? std::strchr(m, ')') : nullptr;
    if (!m || (*m == '(' && close && close[1] == '\0')) {
        // The element is the last: cut it and the comma before it.
        if (elem > list && elem[-1] == ',')
            elem[-1] = '\0';
        else
            *elem = '\0';
        return 1;
    }
    if (*m == '(' && !close) return 0;
    char *r = (*m == '(') ? close + 1 : m;
    if (*r == ',')
        std::memmove(elem, r + 1, std::strlen(r + 1) + 1);
    else
        std::memmove(elem, r, std::strlen(r) + 1);
    return 1;
}

std::optional<std::string> FindParamValue(const std::string &param, const std::string &list) {
    std::vector<char> buf(list.size() + 1);
    int n = findparam(param.c_str(), list.c_str(), buf.data(), (int)buf.size());
    if (n < 0) return std::nullopt;
    return std::string(buf.data(), n);
}

std::string SpecParams(const std::string &spec) {
    size_t colon = spec.find(':');
    if (colon == std::string::npos) return "format(ascii)";
    return spec.substr(0, colon);
}

std::string SpecPath(const std::string &spec) {
    size_t colon = spec.find(':');
    return colon == std::string::npos ? spec : spec.substr(colon + 1);
}

}  // namespace dt
