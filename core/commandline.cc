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

}  // namespace dt
