#include "commandline.h"

#include <cctype>

#include "error.h"

namespace dt {

std::vector<std::string> SplitCommand(const std::string &format, const std::string &file) {
    std::vector<std::string> words;
    std::string cur;
    bool inword = false;
    char quote = 0;
    for (size_t i = 0; i < format.size(); i++) {
        char c = format[i];
        if (quote) {
            if (c == quote) {
                quote = 0;
            } else if (c == '%' && i + 1 < format.size() && format[i + 1] == 's') {
                cur += file;
                i++;
            } else {
                cur += c;
            }
            continue;
        }
        if (std::isspace((unsigned char)c)) {
            if (inword) words.push_back(cur);
            cur.clear();
            inword = false;
            continue;
        }
        inword = true;
        if (c == '\'' || c == '"') {
            quote = c;
        } else if (c == '%' && i + 1 < format.size() && format[i + 1] == 's') {
            cur += file;
            i++;
        } else {
            cur += c;
        }
    }
    if (quote)
        ErrorRaiseVA("22T02", "TYPE%s", "command", "STRING%s", format, "SYNTAX%s",
                     "command (unterminated quote)");
    if (inword) words.push_back(cur);
    if (words.empty())
        ErrorRaiseVA("22T02", "TYPE%s", "command", "STRING%s", format, "SYNTAX%s", "command");
    return words;
}

std::string FindProgram(const std::string &program, const std::string &dir,
                        const std::string &searchPath,
                        bool (*isExecutable)(const std::string &path)) {
    if (program.empty()) return std::string();
    if (program[0] == '/') return program;
    if (!dir.empty()) {
        std::string p = dir + "/" + program;
        if (isExecutable(p)) return p;
    }
    // A name with a '/' inside is never searched for.
    if (program.find('/') != std::string::npos) return std::string();
    size_t start = 0;
    while (start <= searchPath.size()) {
        size_t end = searchPath.find(':', start);
        if (end == std::string::npos) end = searchPath.size();
        std::string d = searchPath.substr(start, end - start);
        if (!d.empty() && d[0] == '/') {
            std::string p = d + "/" + program;
            if (isExecutable(p)) return p;
        }
        start = end + 1;
    }
    return std::string();
}

std::string PathArgument(const std::string &path) {
    if (!path.empty() && path[0] == '-') return "./" + path;
    return path;
}

}  // namespace dt
