#include "stripstem.h"

#include <cctype>

#include "tokenizer.h"
#include "interrupt.h"

namespace dt {

std::vector<std::string> _dt_StripAndStemText(const std::string &input, int *cnt,
                                              const StemHooks &hooks) {
    std::vector<std::string> out;
    const char *buf = input.c_str();
    int n = (int)input.size();
    int pos = 0;
    *cnt = 0;
    std::string stem;
    for (;;) {
        PollInterrupts();
        char *w = _dt_WordFromString(buf, &pos);
        if (!*w) break;
        (*cnt)++;
        if (!_dt_GetStem(w, hooks, stem)) continue;
        if (pos + 1 < n && buf[pos] == ':' && std::isdigit((unsigned char)buf[pos + 1])) {
            int end = pos + 1;
            while (end < n && std::isdigit((unsigned char)buf[end])) end++;
            stem.append(buf + pos, (size_t)(end - pos));
            // The character right after the digits goes too (never past the
            // end of the text).
            pos = end < n ? end + 1 : end;
        }
        out.push_back(stem);
    }
    return out;
}

std::string _dt_InternalStripAndStemText(const std::string &input, const char *bool_op,
                                         const StemHooks &hooks) {
    int cnt = 0;
    std::vector<std::string> words = _dt_StripAndStemText(input, &cnt, hooks);
    std::string out;
    for (size_t i = 0; i < words.size(); i++) {
        PollInterrupts();
        out += words[i];
        if (i + 1 < words.size()) {
            out += ' ';
            if (bool_op) out += bool_op;
        }
    }
    return out;
}

}  // namespace dt
