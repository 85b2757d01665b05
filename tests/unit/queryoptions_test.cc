#include <gtest/gtest.h>

#include <string>

#include "queryoptions.h"
#include "querydoc.h"
#include "queryprint.h"
#include "query_test_util.h"

using namespace dt;

namespace {
struct Opts {
    int tupcnt = 1234;
    float percent = 12.5f;
    std::string rest;
};
Opts Parse(const char *s) {
    Opts o;
    o.rest = _dt_GetTupcntPercent(s, &o.tupcnt, &o.percent);
    return o;
}
}  // namespace

TEST(QueryOptions, PercentThenRowsThenWords) {
    Opts o = Parse("%25|=3|apple");
    EXPECT_FLOAT_EQ(o.percent, 0.25f);
    EXPECT_EQ(o.tupcnt, 3);
    EXPECT_EQ(o.rest, "apple");
}

TEST(QueryOptions, WithoutBarTheOptionsEnd) {
    Opts o = Parse("=3 %25 apple");
    EXPECT_EQ(o.tupcnt, 3);
    EXPECT_FLOAT_EQ(o.percent, 0.0f);
    EXPECT_EQ(o.rest, "%25 apple");
    // The word-list parser then skips "%25" and reads "apple".
    ExprArena arena;
    EXPECT_EQ(ExprTreeText(_dt_MakeExprFromStr(arena, qtest::Stemmer(), o.rest.c_str())), "apple ");
}

TEST(QueryOptions, SpacesAroundBars) {
    Opts o = Parse("=10 | %50 | dog cat");
    EXPECT_EQ(o.tupcnt, 10);
    EXPECT_FLOAT_EQ(o.percent, 0.5f);
    EXPECT_EQ(o.rest, "dog cat");
}

TEST(QueryOptions, NoOptions) {
    Opts o = Parse("dog cat");
    EXPECT_EQ(o.tupcnt, -1);
    EXPECT_FLOAT_EQ(o.percent, 0.0f);
    EXPECT_EQ(o.rest, "dog cat");
    o = Parse("=5 dog");
    EXPECT_EQ(o.tupcnt, 5);
    EXPECT_EQ(o.rest, "dog");
    o = Parse("");
    EXPECT_EQ(o.tupcnt, -1);
    EXPECT_EQ(o.rest, "");
}

TEST(QueryOptions, LaterOptionOverrides) {
    Opts o = Parse("=5|=7|%10|%12.5 dog");
    EXPECT_EQ(o.tupcnt, 7);
    EXPECT_FLOAT_EQ(o.percent, 0.125f);
    EXPECT_EQ(o.rest, "dog");
}

TEST(QueryOptions, NullLeavesOutputsAlone) {
    int t = 77;
    float p = 0.75f;
    EXPECT_EQ(_dt_GetTupcntPercent(nullptr, &t, &p), nullptr);
    EXPECT_EQ(t, 77);
    EXPECT_FLOAT_EQ(p, 0.75f);
}

TEST(QueryOptions, MalformedNumbers) {
    // No number after '=' or '%': strtol/"%f" read nothing, the value is 0
    // and parsing goes on after the sign.
    Opts o = Parse("= | dog");
    EXPECT_EQ(o.tupcnt, 0);
    EXPECT_EQ(o.rest, "dog");
    o = Parse("%x dog");
    EXPECT_FLOAT_EQ(o.percent, 0.0f);
    EXPECT_EQ(o.rest, "x dog");
    o = Parse("=99999999999999999999|dog");
    EXPECT_EQ(o.tupcnt, 2147483647);
    o = Parse("|dog");
    EXPECT_EQ(o.rest, "|dog");
}
