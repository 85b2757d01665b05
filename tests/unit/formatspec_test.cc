#include <gtest/gtest.h>

#include <cstring>
#include <string>

#include "formatspec.h"

using namespace dt;

namespace {
std::string Find(const char *param, const char *list, int size, int *ret) {
    char buf[256];
    std::memset(buf, 'Z', sizeof buf);
    *ret = findparam(param, list, buf, size);
    return *ret >= 0 && size > 0 ? std::string(buf) : std::string();
}
std::string Delete(const char *param, const char *list, int *ret) {
    char buf[256];
    std::strcpy(buf, list);
    *ret = deleteparam(param, buf);
    return buf;
}
}  // namespace

TEST(FindParam, FormatWithRoomyBuffer) {
    int r;
    EXPECT_EQ(Find("format", "format(ascii):/tmp/a", 20, &r), "ascii");
    EXPECT_EQ(r, 5);
}

TEST(FindParam, FormatCutToSmallBuffer) {
    int r;
    EXPECT_EQ(Find("format", "format(ascii):/tmp/a", 5, &r), "asci");
    EXPECT_EQ(r, 4);
}

TEST(FindParam, BufferNeverOverrun) {
    char buf[8];
    std::memset(buf, 'Z', sizeof buf);
    EXPECT_EQ(findparam("format", "format(ascii)", buf, 3), 2);
    EXPECT_STREQ(buf, "as");
    EXPECT_EQ(buf[3], 'Z');
}

TEST(FindParam, WhiteSpaceAroundNamesAndRunsOfCommas) {
    int r;
    EXPECT_EQ(Find("version", " format ( wp ) ,, version(5.1):/p", 100, &r), "5.1");
    EXPECT_EQ(r, 3);
    EXPECT_EQ(Find("format", " format ( wp ) ,, version(5.1):/p", 100, &r), " wp ");
    EXPECT_EQ(r, 4);
}

TEST(FindParam, WhiteSpaceInsideCommaRunEndsWalk) {
    int r;
    Find("version", "format(wp), ,version(5.1)", 100, &r);
    EXPECT_EQ(r, -1);
}

TEST(FindParam, NameMustBeFollowedByParenCommaOrEnd) {
    int r;
    Find("format", "format:/x", 100, &r);
    EXPECT_EQ(r, -1);
    EXPECT_EQ(Find("format", "nocopy,format", 100, &r), "");
    EXPECT_EQ(r, 0);
}

TEST(FindParam, NoPrefixOrExtensionMatches) {
    int r;
    Find("format", "formatx(a)", 100, &r);
    EXPECT_EQ(r, -1);
    Find("format", "form(a)", 100, &r);
    EXPECT_EQ(r, -1);
    EXPECT_EQ(Find("format", "formatx(a),format(b)", 100, &r), "b");
}

TEST(FindParam, NestedParenthesesBelongToValue) {
    int r;
    EXPECT_EQ(Find("format", "format(a(b)c)", 100, &r), "a(b)c");
    EXPECT_EQ(r, 5);
}

TEST(FindParam, UnbalancedFailsSilentlyForANamedParameter) {
    testing::internal::CaptureStderr();
    EXPECT_EQ(findparam("format", "format(abc", nullptr, 0), -1);
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "");
}

TEST(FindParam, SyntaxCheckWritesTheErrorLine) {
    testing::internal::CaptureStderr();
    EXPECT_EQ(findparam("", "format(abc", nullptr, 0), -1);
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "Syntax error: format(abc @ 10\n");
    testing::internal::CaptureStderr();
    EXPECT_EQ(findparam("", "format(abc),version(1)", nullptr, 0), -1);
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "");
}

TEST(FindParam, PresenceTestWithZeroBuffer) {
    EXPECT_EQ(findparam("NoCopyText", "format(ascii),NoCopyText", nullptr, 0), 0);
    EXPECT_EQ(findparam("ExternalFile", "format(ascii),NoCopyText", nullptr, 0), -1);
    // In a whole specification a name without value must not stand before the ':'.
    EXPECT_EQ(findparam("NoCopyText", "format(ascii),NoCopyText:/a", nullptr, 0), -1);
    EXPECT_EQ(findparam("format", nullptr, nullptr, 0), -1);
}

TEST(FindParam, QuickRejectionAndCaseSensitivity) {
    EXPECT_EQ(findparam("Format", "format(ascii)", nullptr, 0), -1);
    EXPECT_EQ(findparam("version", "format(ascii)", nullptr, 0), -1);
}

TEST(FindParam, NeverReadsThePath) {
    EXPECT_EQ(findparam("x", "format(a):x(1)", nullptr, 0), -1);
}

TEST(DeleteParam, FirstElement) {
    int r;
    EXPECT_EQ(Delete("format", "format(wp),version(5)", &r), "version(5)");
    EXPECT_EQ(r, 1);
}

TEST(DeleteParam, LastElement) {
    int r;
    EXPECT_EQ(Delete("format", "version(5),format(wp)", &r), "version(5)");
    EXPECT_EQ(r, 1);
}

TEST(DeleteParam, OnlyElement) {
    int r;
    EXPECT_EQ(Delete("format", "format(wp)", &r), "");
    EXPECT_EQ(r, 1);
}

TEST(DeleteParam, AbsentParameterChangesNothing) {
    int r;
    EXPECT_EQ(Delete("ImportName", "format(wp),version(5)", &r), "format(wp),version(5)");
    EXPECT_EQ(r, 1);
}

TEST(DeleteParam, ElementWithoutValueAndMiddleElement) {
    int r;
    EXPECT_EQ(Delete("NoCopyText", "format(a),NoCopyText,version(1)", &r), "format(a),version(1)");
    EXPECT_EQ(r, 1);
    EXPECT_EQ(Delete("version", "format(a),version(1),x(2)", &r), "format(a),x(2)");
}

TEST(DeleteParam, PrefixComparisonRemovesEarlierLongerName) {
    int r;
    EXPECT_EQ(Delete("format", "formatx(a),format(b)", &r), "format(b)");
    EXPECT_EQ(r, 1);
}

TEST(DeleteParam, ElementBeforeTheSpecColon) {
    int r;
    EXPECT_EQ(Delete("ImportName", "format(a),ImportName(/c/x):/p", &r), "format(a),:/p");
    EXPECT_EQ(r, 1);
    EXPECT_EQ(Delete("handle", "handle(12),format(a):/p", &r), "format(a):/p");
}

TEST(SpecParts, ParamsAndPath) {
    EXPECT_EQ(SpecParams("format(a):/x:y"), "format(a)");
    EXPECT_EQ(SpecPath("format(a):/x:y"), "/x:y");
    EXPECT_EQ(SpecParams("/x"), "format(ascii)");
    EXPECT_EQ(SpecPath("/x"), "/x");
    EXPECT_EQ(FindParamValue("version", "format(wp),version(5.1):/p").value(), "5.1");
    EXPECT_FALSE(FindParamValue("x", "format(wp)").has_value());
}
