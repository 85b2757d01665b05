#include <gtest/gtest.h>

#include <string>

#include "charclass.h"

namespace {

// A charset that, like the server's first one, replaces itself on its first
// use: here by none at all (a database whose encoding has no letters beyond
// ASCII), and hands the call on to what is installed then.
int SwapLen(const unsigned char *) {
    dt::SetWordCharset(nullptr);
    return 1;
}
int SwapClassify(const unsigned char *s, int) {
    dt::SetWordCharset(nullptr);
    return dt::IsAlphaChar(s[0]) ? dt::kCharAlpha | dt::kCharAlnum : 0;
}
void SwapLower(const unsigned char *s, int len, std::string &out) {
    dt::SetWordCharset(nullptr);
    out.append((const char *)s, (size_t)len);
}
const dt::WordCharset kSwapping = {SwapLen, SwapClassify, SwapLower};

struct CharsetGuard {
    const dt::WordCharset *saved = dt::CurrentWordCharset();
    ~CharsetGuard() { dt::SetWordCharset(saved); }
};

}  // namespace

TEST(CharClass, CharsetReplacedWhileMeasuringACharacter) {
    CharsetGuard g;
    dt::SetWordCharset(&kSwapping);
    int cls = -1;
    const char text[] = "caf\xc3\xa9";
    EXPECT_EQ(1, dt::WordCharAt(text + 3, &cls));
    EXPECT_EQ(nullptr, dt::CurrentWordCharset());
    // Without a charset every byte stands alone, classed by the C tables.
    EXPECT_EQ(1, dt::WordCharAt(text + 4, &cls));
    EXPECT_EQ(0, cls & dt::kCharAlpha);
}

TEST(CharClass, FoldCaseWhenTheCharsetIsReplaced) {
    CharsetGuard g;
    dt::SetWordCharset(&kSwapping);
    EXPECT_EQ(std::string("caf\xc3\xa9 abc"), dt::FoldCase(std::string("CAF\xc3\xa9 ABC")));
}

TEST(CharClass, AsciiWithoutACharset) {
    CharsetGuard g;
    dt::SetWordCharset(nullptr);
    int cls = 0;
    EXPECT_EQ(1, dt::WordCharAt("Q", &cls));
    EXPECT_EQ(dt::kCharAlpha | dt::kCharAlnum, cls);
    EXPECT_FALSE(dt::IsWordStart("1a"));
    EXPECT_TRUE(dt::IsWordStart("a1"));
}
