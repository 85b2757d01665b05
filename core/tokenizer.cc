#include "tokenizer.h"

#include <cctype>
#include <cstring>

#include "ctypefast.h"
#include "error.h"

namespace dt {

namespace {
char tempword[kMaxWordLen + 1];
}

char *_dt_WordFromString(const char *buf, int *index) {
    const char *s = buf + *index;
    while (*s && !IsAlphaChar((unsigned char)*s)) {
        if (*s == '(' || *s == ')' || *s == '!') {
            tempword[0] = *s;
            tempword[1] = '\0';
            *index = (int)(s - buf) + 1;
            return tempword;
        }
        s++;
    }
    const char *e = s;
    while (*e && (IsAlnumChar((unsigned char)*e) || *e == '_')) e++;
    size_t len = (size_t)(e - s);
    if (len > (size_t)kMaxWordLen) ErrorRaise("XD00L");
    std::memcpy(tempword, s, len);
    tempword[len] = '\0';
    *index = (int)(e - buf);
    return tempword;
}

}  // namespace dt
