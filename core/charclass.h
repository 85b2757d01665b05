// What a letter is, and lower case, for the characters of words.
//
// Characters below 0x80 are always classed by the C library's tables of the
// current locale (isalpha, isalnum, isupper, tolower), byte by byte.  What
// the other bytes are depends on the text's encoding, which only the server
// knows: it installs a WordCharset that measures a character, classes it and
// folds it to lower case.  Without one, every byte is a character of its own
// classed by the C library's tables, as for ASCII.
#pragma once

#include <cstddef>
#include <string>

#include "ctypefast.h"

namespace dt {

// Class bits of a character.
constexpr int kCharAlpha = 1;  // a letter: may begin a word
constexpr int kCharAlnum = 2;  // a letter or a digit: may go on in a word

struct WordCharset {
    // Bytes of the character that begins at s, where s[0] >= 0x80; at least
    // 1, and never past a NUL byte.
    int (*charLen)(const unsigned char *s);
    // Class bits of the character s[0, len).
    int (*classify)(const unsigned char *s, int len);
    // Appends the lower-case form of the character s[0, len) to out.
    void (*appendLower)(const unsigned char *s, int len, std::string &out);
};

// The charset for bytes >= 0x80 (nullptr: the C library's byte tables).
void SetWordCharset(const WordCharset *cs);
const WordCharset *CurrentWordCharset();

namespace detail {
extern const WordCharset *word_charset;
}

// Bytes of the character at s (s[0] != 0) and, in *cls, its class bits.
inline int WordCharAt(const char *s, int *cls) {
    unsigned char c = (unsigned char)*s;
    // Read once: measuring a character may install another charset (the
    // server installs the real one on first use, possibly none at all), and
    // the class must come from the charset that measured it.
    const WordCharset *cs = detail::word_charset;
    if (c < 0x80 || !cs) {
        *cls = (IsAlphaChar(c) ? kCharAlpha : 0) | (IsAlnumChar(c) ? kCharAlnum : 0);
        return 1;
    }
    const unsigned char *u = (const unsigned char *)s;
    int len = cs->charLen(u);
    *cls = cs->classify(u, len);
    return len;
}

// True when s begins with a letter.
inline bool IsWordStart(const char *s) {
    int cls = 0;
    return *s && (WordCharAt(s, &cls), (cls & kCharAlpha) != 0);
}

// The text s[0, len) with every upper-case letter folded to lower case.
std::string FoldCase(const char *s, size_t len);
inline std::string FoldCase(const std::string &s) { return FoldCase(s.data(), s.size()); }

}  // namespace dt
