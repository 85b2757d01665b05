#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <vector>

#include "ravel.h"

using namespace dt;

TEST(Falias, TwentyEightRowsInOrder) {
    const char *expect[][2] = {
        {"ascii", "asc"},         {"avalon", "ava"},        {"displaywrite", "dw"},
        {"executivewriter", "ex"}, {"framemaker", "fr"},     {"ibmdca", "dca"},
        {"interleaf", "il"},      {"islandwrite", "iw"},    {"leadingedge", "le"},
        {"microsoftword", "msw"}, {"msword", "msw"},        {"multimate", "mm"},
        {"officewriter", "ow"},   {"pcwrite", "pcw"},       {"pfsprofessional", "pfsp"},
        {"pfswrite", "pfs"},      {"q&awrite", "qa"},       {"rft", "dca"},
        {"samna", "sam"},         {"spellbinder", "sb"},    {"volkswriter", "vw"},
        {"word", "msw"},          {"wordforwindows", "ww"}, {"wordperfect", "wp"},
        {"wordperfect5", "wp5"},  {"wordstar", "ws"},       {"wordstar2000", "ws2"},
        {"xywrite", "xy"},
    };
    int n = 0;
    while (Falias[n].fa_name) n++;
    ASSERT_EQ(n, 28);
    for (int i = 0; i < 28; i++) {
        EXPECT_STREQ(Falias[i].fa_name, expect[i][0]) << i;
        EXPECT_STREQ(Falias[i].fa_alias, expect[i][1]) << i;
        EXPECT_LE(std::strlen(Falias[i].fa_alias), std::strlen(Falias[i].fa_name));
    }
    EXPECT_EQ(Falias[28].fa_alias, nullptr);
}

TEST(Falias, LookupInPlace) {
    char name[32];
    std::strcpy(name, "wordperfect");
    EXPECT_EQ(fa_lookup(name), 1);
    EXPECT_STREQ(name, "wp");
    std::strcpy(name, "WordPerfect");
    EXPECT_EQ(fa_lookup(name), 0);
    EXPECT_STREQ(name, "WordPerfect");
    std::strcpy(name, "q&awrite");
    EXPECT_EQ(fa_lookup(name), 1);
    EXPECT_STREQ(name, "qa");
    // rft is IBM's revisable-form text, not RTF.
    std::strcpy(name, "rft");
    EXPECT_EQ(fa_lookup(name), 1);
    EXPECT_STREQ(name, "dca");
    std::strcpy(name, "rtf");
    EXPECT_EQ(fa_lookup(name), 0);
    std::strcpy(name, "");
    EXPECT_EQ(fa_lookup(name), 0);
}

TEST(Falias, LookupString) {
    std::string s = "word";
    EXPECT_TRUE(fa_lookup(s));
    EXPECT_EQ(s, "msw");
    s = "wordstar2000";
    EXPECT_TRUE(fa_lookup(s));
    EXPECT_EQ(s, "ws2");
    s = "wordperfect ";
    EXPECT_FALSE(fa_lookup(s));
    EXPECT_EQ(s, "wordperfect ");
}

namespace {
std::vector<std::string> Programs(const std::string &from, const std::string &to) {
    std::vector<std::string> out;
    for (const RavelConverter &c : RavelConverters(from, to)) out.push_back(c.argv[0]);
    return out;
}
}  // namespace

TEST(RavelConverters, ByShortNames) {
    EXPECT_EQ(Programs("wp", "asc"), std::vector<std::string>{"wpd2text"});
    EXPECT_EQ(Programs("wp5", "asc"), std::vector<std::string>{"wpd2text"});
    EXPECT_EQ(Programs("msw", "asc"), (std::vector<std::string>{"antiword", "catdoc"}));
    EXPECT_EQ(Programs("ww", "asc"), (std::vector<std::string>{"antiword", "catdoc"}));
    EXPECT_EQ(Programs("rtf", "asc"), std::vector<std::string>{"unrtf"});
    EXPECT_EQ(Programs("odt", "asc"), std::vector<std::string>{"odt2txt"});
    EXPECT_EQ(Programs("docx", "asc"), std::vector<std::string>{"docx2txt"});
    EXPECT_EQ(Programs("pdf", "asc"), std::vector<std::string>{"pdftotext"});
    EXPECT_EQ(Programs("html", "asc"), std::vector<std::string>{"html2text"});
}

TEST(RavelConverters, UnknownPairsHaveNone) {
    EXPECT_TRUE(RavelConverters("wp", "msw").empty());
    EXPECT_TRUE(RavelConverters("asc", "wp").empty());
    EXPECT_TRUE(RavelConverters("wordperfect", "asc").empty());  // not a short name
    EXPECT_TRUE(RavelConverters("WP", "asc").empty());
    EXPECT_TRUE(RavelConverters("ws", "asc").empty());
    EXPECT_TRUE(RavelConverters("/bin/sh", "asc").empty());
    EXPECT_TRUE(RavelConverters("", "").empty());
}

TEST(RavelConverters, ArgumentVectors) {
    std::string nasty = "/tmp/a b'c\";$(touch x)\nd.wp";
    auto wp = RavelConverters("wp", "asc");
    EXPECT_EQ(RavelArgv(wp[0], nasty), (std::vector<std::string>{"wpd2text", nasty}));
    auto pdf = RavelConverters("pdf", "asc");
    std::vector<std::string> a = RavelArgv(pdf[0], "/x/y.pdf");
    EXPECT_EQ(a.front(), "pdftotext");
    EXPECT_EQ(a[a.size() - 2], "/x/y.pdf");
    EXPECT_EQ(a.back(), "-");
    // Programs that would give a path to a shell or take it for a URL read
    // standard input: the path is not an argument.
    auto html = RavelConverters("html", "asc");
    ASSERT_EQ(html.size(), 1u);
    EXPECT_EQ(html[0].input, RavelInput::StandardInput);
    for (const std::string &w : RavelArgv(html[0], nasty)) EXPECT_NE(w, nasty);
    auto docx = RavelConverters("docx", "asc");
    ASSERT_EQ(docx.size(), 1u);
    EXPECT_EQ(docx[0].input, RavelInput::FixedName);
    EXPECT_EQ(RavelArgv(docx[0], std::string("/s/") + kRavelLinkName),
              (std::vector<std::string>{"docx2txt", "/s/input.docx", "-"}));
}

TEST(RavelStatus, SuccessIsZeroOrTen) {
    EXPECT_TRUE(RavelSucceeded(0));
    EXPECT_TRUE(RavelSucceeded(10));
    for (int s : {-1, 1, 2, 3, 9, 11, 127, 255}) EXPECT_FALSE(RavelSucceeded(s)) << s;
}
