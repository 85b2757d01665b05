#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "error.h"
#include "tokenizer.h"

using namespace dt;

namespace {
std::vector<std::string> Tokens(const std::string &s) {
    std::vector<std::string> out;
    int i = 0;
    for (;;) {
        std::string t = _dt_WordFromString(s.c_str(), &i);
        out.push_back(t);
        if (t.empty()) break;
    }
    return out;
}
using V = std::vector<std::string>;
}  // namespace

TEST(Tokenizer, Parentheses) { EXPECT_EQ(Tokens("(dog)"), (V{"(", "dog", ")", ""})); }
TEST(Tokenizer, Bang) { EXPECT_EQ(Tokens("!cat"), (V{"!", "cat", ""})); }
TEST(Tokenizer, HyphenSplits) { EXPECT_EQ(Tokens("a-b"), (V{"a", "b", ""})); }
TEST(Tokenizer, LeadingUnderscoreSkipped) { EXPECT_EQ(Tokens("_x"), (V{"x", ""})); }
TEST(Tokenizer, LeadingDigitsSkipped) { EXPECT_EQ(Tokens("3com"), (V{"com", ""})); }
TEST(Tokenizer, DigitsAndUnderscoresContinueAWord) {
    EXPECT_EQ(Tokens("x25_b 25x"), (V{"x25_b", "x", ""}));
}
TEST(Tokenizer, CaseIsKept) { EXPECT_EQ(Tokens("The DOG"), (V{"The", "DOG", ""})); }
TEST(Tokenizer, EmptyAndPunctuationOnly) {
    EXPECT_EQ(Tokens(""), (V{""}));
    EXPECT_EQ(Tokens(" ,.;: 123 "), (V{""}));
}
TEST(Tokenizer, IndexAdvancesPastToken) {
    int i = 0;
    const char *s = "  dog cat";
    EXPECT_STREQ(_dt_WordFromString(s, &i), "dog");
    EXPECT_EQ(i, 5);
    EXPECT_STREQ(_dt_WordFromString(s, &i), "cat");
    EXPECT_EQ(i, 9);
    EXPECT_STREQ(_dt_WordFromString(s, &i), "");
}
TEST(Tokenizer, WordOf1024IsAccepted) {
    std::string w(1024, 'a');
    int i = 0;
    EXPECT_EQ(std::string(_dt_WordFromString((w + " b").c_str(), &i)), w);
}
TEST(Tokenizer, WordOf1025RaisesXD00L) {
    std::string w(1025, 'a');
    int i = 0;
    try {
        _dt_WordFromString(w.c_str(), &i);
        FAIL() << "no error";
    } catch (const Error &e) {
        EXPECT_EQ(e.code(), "XD00L");
    }
}
