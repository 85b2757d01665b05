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

TEST(TempName, LongNamesStayWithinTheFileNameLimit) {
    std::string longname(250, 'x');
    std::string n = _dt_MakeTempName("/tmp", "/home/me/" + longname);
    std::string base = n.substr(5);
    EXPECT_EQ(base.compare(0, kMaxTempBase, std::string(kMaxTempBase, 'x')), 0);
    EXPECT_LE(base.size() + std::string(".12345.docinp").size(), 255u);
    // A cut never splits a UTF-8 character.
    std::string u;
    while (u.size() < 250) u += "\xc3\xa9";  // é
    std::string m = _dt_MakeTempName("/d", "x" + u).substr(3);
    std::string kept = m.substr(0, m.rfind('.'));
    EXPECT_EQ(kept.size() % 2, 1u);
    EXPECT_LE(kept.size(), kMaxTempBase);
}
