#include <gtest/gtest.h>

#include <cstdlib>
#include <regex>

#include "release.h"
#include "tempname.h"

using namespace dt;

TEST(TempName, DirectoryBaseAndNumber) {
    std::string n = _dt_MakeTempName("/usr/tmp", "/home/me/a.txt");
    EXPECT_TRUE(std::regex_match(n, std::regex(R"(/usr/tmp/a\.txt\.[0-9]{1,5})"))) << n;
}
TEST(TempName, NameWithoutSlash) {
    std::string n = _dt_MakeTempName("/tmp", "plain");
    EXPECT_TRUE(std::regex_match(n, std::regex(R"(/tmp/plain\.[0-9]{1,5})"))) << n;
}
TEST(TempName, TrailingSlashGivesEmptyBase) {
    std::string n = _dt_MakeTempName("/tmp", "/dir/");
    EXPECT_TRUE(std::regex_match(n, std::regex(R"(/tmp/\.[0-9]{1,5})"))) << n;
}
TEST(TempName, NumbersBelow100000AndVarying) {
    std::set<std::string> seen;
    for (int i = 0; i < 50; i++) seen.insert(_dt_MakeTempName("/d", "f"));
    EXPECT_GT(seen.size(), 40u);
}
TEST(Random, NonNegative) {
    for (int i = 0; i < 100; i++) EXPECT_GE(_dt_random(), 0);
}
TEST(Release, ExactText) {
    EXPECT_STREQ(dt_ReleaseText(), "Release 1.2.1 Fri Feb  3 15:18:40 PST 1995");
}
