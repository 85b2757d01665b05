#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "error.h"
#include "stripstem.h"
#include "textlex_fixture.h"

using namespace dt;

namespace {
textlex::Lexicon lex;
textlex::Hooks hooks(lex);
std::string Strip(const std::string &s, const char *op = nullptr) {
    return _dt_InternalStripAndStemText(s, op, hooks.hooks);
}
}  // namespace

TEST(StripStem, CountSuffixAndTheCharacterAfterIt) {
    EXPECT_EQ(Strip("dogs:3x cats"), "dog:3 cat");
}
TEST(StripStem, JoinedByOr) {
    EXPECT_EQ(Strip("The dogs: cats:2 and mice", "or "), "dog or cat:2 or mouse");
    EXPECT_EQ(Strip("The dogs: cats:2 and mice"), "dog cat:2 mouse");
}
TEST(StripStem, JoinedByAnd) { EXPECT_EQ(Strip("boxes churches", "and "), "box and church"); }
TEST(StripStem, OnlyStopWordsGiveTheEmptyText) {
    EXPECT_EQ(Strip("the", "or "), "");
    EXPECT_EQ(Strip(""), "");
}
TEST(StripStem, SuffixAtTheEndOfTheText) {
    EXPECT_EQ(Strip("dogs:3"), "dog:3");
    EXPECT_EQ(Strip("dogs:12 cats"), "dog:12 cat");
}
TEST(StripStem, ColonWithoutDigitsIsNoSuffix) { EXPECT_EQ(Strip("dogs:x cats"), "dog x cat"); }
TEST(StripStem, TokensCountedWhateverTheyAre) {
    int cnt = 0;
    auto v = _dt_StripAndStemText("(dogs) !the mice", &cnt, hooks.hooks);
    EXPECT_EQ(cnt, 6);
    EXPECT_EQ(v, (std::vector<std::string>{"dog", "mouse"}));
}
TEST(StripStem, DuplicatesKeptInTextOrder) {
    EXPECT_EQ(Strip("dog dogs Dog"), "dog dog dog");
}
TEST(StripStem, OverlongWordRaisesXD00L) {
    try {
        Strip("dog " + std::string(1025, 'a'));
        FAIL();
    } catch (const Error &e) {
        EXPECT_EQ(e.code(), "XD00L");
    }
    EXPECT_EQ(Strip(std::string(1024, 'a')), std::string(1024, 'a'));
}
