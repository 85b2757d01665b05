#include "charclass.h"

namespace dt {

namespace detail {
const WordCharset *word_charset = nullptr;
}

void SetWordCharset(const WordCharset *cs) { detail::word_charset = cs; }

const WordCharset *CurrentWordCharset() { return detail::word_charset; }

std::string FoldCase(const char *s, size_t len) {
    std::string out;
    out.reserve(len);
    const WordCharset *cs = detail::word_charset;
    size_t i = 0;
    while (i < len) {
        unsigned char c = (unsigned char)s[i];
        if (c < 0x80 || !cs || c == 0) {
            out += IsUpperChar(c) ? ToLowerChar(c) : (char)c;
            i++;
            continue;
        }
        size_t n = (size_t)cs->charLen((const unsigned char *)s + i);
        if (n < 1) n = 1;
        if (n > len - i) n = len - i;
        cs->appendLower((const unsigned char *)s + i, (int)n, out);
        i += n;
    }
    return out;
}

}  // namespace dt
