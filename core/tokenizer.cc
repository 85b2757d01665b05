#include "tokenizer.h"

#include <cctype>
#include <cstring>

#include "charclass.h"
#include "error.h"

namespace dt {

namespace {
char tempword[kMaxWordLen + 1];
}

char *_dt_WordFromString(const char *buf, int *index) {
    const char *s = buf + *index;
    int cls = 0;
    while (*s) {
        int n = WordCharAt(s, &cls);
        if (cls & kCharAlpha) break;
        if (*s == '(' || *s == ')' || *s == '!') {
            tempword[0] = *s;
            tempword[1] = '\0';
            *index = (int)(s - buf) + 1;
            return tempword;
        }
        s += n;
    }
    const char *e = s;
    while (*e) {
        int n = WordCharAt(e, &cls);
        if (!(cls & kCharAlnum) && *e != '_') break;
        e += n;
    }
    size_t len = (size_t)(e - s);
    if (len > (size_t)kMaxWordLen) ErrorRaise("XD00L");
    std::memcpy(tempword, s, len);
    tempword[len] = '\0';
    *index = (int)(e - buf);
    return tempword;
}

}  // namespace dt
