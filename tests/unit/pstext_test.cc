#include <gtest/gtest.h>

#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <sstream>
#include <string>
#include <unistd.h>

#include "pstext.h"

using namespace dt;

namespace {

std::string Run(void (*parse)(FILE *, FILE *), const std::string &in) {
    FILE *src = fmemopen(const_cast<char *>(in.data()), in.size(), "r");
    char *buf = nullptr;
    size_t len = 0;
    FILE *dst = open_memstream(&buf, &len);
    parse(src, dst);
    fclose(src);
    fclose(dst);
    std::string out(buf, len);
    free(buf);
    return out;
}
std::string Ps(const std::string &in) { return Run(psparse, in); }
std::string Dvi(const std::string &in) { return Run(dviparse, in); }

}  // namespace

TEST(PsParse, EachOutermostStringFollowedBySpace) {
    EXPECT_EQ(Ps("(Hello) show (World) show\n"), "Hello World ");
}
TEST(PsParse, InnerParenthesesKept) { EXPECT_EQ(Ps("(a(b)c)"), "a(b)c "); }
TEST(PsParse, EscapedParenthesesAndTab) {
    EXPECT_EQ(Ps("(x\\(y\\))"), "x(y) ");
    EXPECT_EQ(Ps("(a\\tb)"), "a\tb ");
    EXPECT_EQ(Ps("(a\\nb)"), "a\nb ");
    EXPECT_EQ(Ps("(a\\\\b)"), "a\\b ");
    EXPECT_EQ(Ps("(a\\qb)"), "aqb ");
}
TEST(PsParse, OctalDigitsPassedThroughUndecoded) {
    EXPECT_EQ(Ps("(\\101)"), "\\101 ");
    EXPECT_EQ(Ps("(\\8)"), "8 ");
}
TEST(PsParse, CommentsOutsideStringsDropped) {
    EXPECT_EQ(Ps("%!PS-Adobe (not text)\n(text) show\n"), "text ");
    EXPECT_EQ(Ps("(100% sure)"), "100% sure ");
}
TEST(PsParse, OnlyStringsWritten) {
    EXPECT_EQ(Ps("/F 12 selectfont 72 72 moveto showpage\n"), "");
    EXPECT_EQ(Ps("a\\b (c)"), "c ");
}
TEST(PsParse, StrayCloseDoesNotBreakLaterStrings) {
    EXPECT_EQ(Ps(") (a)"), " a ");
}

TEST(DviParse, OperatorLettersBeforeStrings) {
    EXPECT_EQ(Dvi("100 200 a(Hello)p 50 b(world)p"), " Hello world");
}
TEST(DviParse, YBeginsLineAndLToWWriteNothing) {
    EXPECT_EQ(Dvi("y(one)p 3 r(two)p"), "\nonetwo");
    EXPECT_EQ(Dvi("x(a)p"), " a");
}
TEST(DviParse, BSpaceClearedByHyphenAfterString) {
    // A '-' right after a closed string marks a word continued by the next
    // 'b' string: no space is written before it.
    EXPECT_EQ(Dvi("a(con)-5 b(tinue)p"), " continue");
    EXPECT_EQ(Dvi("a(two) 5 b(words)p"), " two words");
}
TEST(DviParse, Ligatures) {
    EXPECT_EQ(Dvi("a(\\013)p"), " ff");
    EXPECT_EQ(Dvi("a(\\014)p"), " fi");
    EXPECT_EQ(Dvi("a(\\015)p"), " fl");
    EXPECT_EQ(Dvi("a(\\016)p"), " ffi");
    EXPECT_EQ(Dvi("a(\\017)p"), " ffl");
    EXPECT_EQ(Dvi("a(\\012)p"), " \\012");
    EXPECT_EQ(Dvi("a(\\09)p"), " \\09");
}
TEST(DviParse, DoubledBackslashIsDoubleQuote) {
    EXPECT_EQ(Dvi("a(\\\\quoted)p"), " \"quoted");
}
TEST(DviParse, OtherEscapes) {
    EXPECT_EQ(Dvi("a(\\(x\\))p"), " (x)");
    EXPECT_EQ(Dvi("a(\\5)p"), " \\5");
    EXPECT_EQ(Dvi("a(\\tq)p"), " \tq");
}
TEST(DviParse, LineBreaks) {
    EXPECT_EQ(Dvi("a(ab\ncd)p"), " abcd");
    EXPECT_EQ(Dvi("a(ab\n\ncd)p"), " ab cd");
}
TEST(DviParse, CommentsDropped) {
    EXPECT_EQ(Dvi("%%Title: (x)\na(y)p"), " y");
}

TEST(CvPs2Ascii, FilesAndFailures) {
    char dir[] = "/tmp/pstextXXXXXX";
    ASSERT_TRUE(mkdtemp(dir));
    std::string src = std::string(dir) + "/in.ps", dst = std::string(dir) + "/out.txt";
    { std::ofstream(src) << "(Hello) show\n"; }
    { std::ofstream(dst) << "old contents that must go"; }
    EXPECT_EQ(cvps2ascii(src.c_str(), dst.c_str(), 0), 1);
    std::stringstream got;
    got << std::ifstream(dst).rdbuf();
    EXPECT_EQ(got.str(), "Hello ");
    EXPECT_EQ(cvps2ascii(src.c_str(), dst.c_str(), 1), 1);
    EXPECT_EQ(cvps2ascii((std::string(dir) + "/missing").c_str(), dst.c_str(), 0), 0);
    EXPECT_EQ(cvps2ascii(src.c_str(), (std::string(dir) + "/no/such/out").c_str(), 0), 0);
    unlink(src.c_str());
    unlink(dst.c_str());
    rmdir(dir);
}
