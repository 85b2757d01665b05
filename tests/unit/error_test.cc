#include <gtest/gtest.h>

#include <set>

#include "error.h"

using namespace dt;

TEST(ErrorCatalogue, EveryCodeHasAMessage) {
    std::set<std::string> expect;
    const char *extra[] = {"22T02", "TL001", "L0002", "LI003", "M0001", "U0001", "Z0002", "Z0005", "P0016"};
    const char *digits = "123456789ABCDEFGHIJKLMNOPQRSTU";
    for (const char *d = digits; *d; d++) expect.insert(std::string("XD00") + *d);
    for (const char *c : extra) expect.insert(c);
    std::set<std::string> got(CatalogueCodes().begin(), CatalogueCodes().end());
    EXPECT_EQ(got, expect);
    for (const auto &c : CatalogueCodes()) {
        ASSERT_NE(CatalogueText(c), nullptr) << c;
        EXPECT_GT(std::string(CatalogueText(c)).size(), 5u) << c;
    }
}

TEST(ErrorCatalogue, ParametersAreFilledIn) {
    try {
        ErrorRaiseVA("XD00O", "FILENAME%s", "/tmp/x", "MODE%o", 0, "PERM%o", 292);
    } catch (const Error &e) {
        EXPECT_EQ(e.code(), "XD00O");
        EXPECT_EQ(*e.param("PERM"), "444");
        EXPECT_EQ(e.message(), "could not open file \"/tmp/x\"");
        EXPECT_EQ(e.detail(), "FILENAME=/tmp/x");
    }
    try {
        ErrorRaiseVA("XD00O", "FILENAME%s", "/tmp/x", "MODE%o", 0, "ACCESS%s", "reading", "REASON%s",
                     "Permission denied");
    } catch (const Error &e) {
        EXPECT_EQ(e.message(), "could not open file \"/tmp/x\" for reading: Permission denied");
    }
    try {
        ErrorRaiseVA("TL001", "NAME%s", "Client file error", "OPERATION%s", "Open of file /a");
    } catch (const Error &e) {
        EXPECT_EQ(e.message(), "Client file error: Open of file /a failed");
    }
}

TEST(ErrorCatalogue, NoParameters) {
    try {
        ErrorRaise("XD00L");
    } catch (const Error &e) {
        EXPECT_EQ(e.code(), "XD00L");
        EXPECT_EQ(e.detail(), "");
        EXPECT_EQ(std::string(e.what()), e.message());
    }
}

TEST(ErrorCatalogue, UserErrorsCarryTheirText) {
    try {
        User_ErrorRaise("ExpandLimit can be no larger than 2048, received 2049");
    } catch (const Error &e) {
        EXPECT_TRUE(e.isUser());
        EXPECT_EQ(e.code(), "22023");
        EXPECT_EQ(e.message(), "ExpandLimit can be no larger than 2048, received 2049");
    }
}

TEST(ErrorCatalogue, MissingParameterIsMarked) {
    EXPECT_EQ(FillMessage("a {X} b {Y}", {{"X", "1"}}), "a 1 b ?");
}

TEST(ErrorCatalogue, OptionalPartsNeedAllTheirParameters) {
    EXPECT_EQ(FillMessage("a[ b {X}][: {Y}]", {{"X", "1"}}), "a b 1");
    EXPECT_EQ(FillMessage("a[ b {X}][: {Y}]", {{"Y", "2"}}), "a: 2");
    EXPECT_EQ(FillMessage("a[ b {X} {Y}]", {{"Y", "2"}}), "a");
}

TEST(ErrorCatalogue, HintIsNoPartOfTheDetail) {
    try {
        ErrorRaiseVA("XD00K", "OP%s", "cluster", "HINT%s", "write !");
    } catch (const Error &e) {
        EXPECT_EQ(e.detail(), "OP=cluster");
        EXPECT_EQ(*e.param("HINT"), "write !");
    }
}

TEST(ErrorText, CutOnlyAtCharacterBoundaries) {
    // "aé€😀": 1 + 2 + 3 + 4 bytes.
    const std::string s = "a\xC3\xA9\xE2\x82\xAC\xF0\x9F\x98\x80";
    const size_t ends[] = {0, 1, 1, 3, 3, 3, 6, 6, 6, 6, 10};
    for (size_t max = 0; max <= s.size(); max++)
        EXPECT_EQ(Utf8PrefixLength(s.data(), s.size(), max), ends[max]) << "max " << max;
    EXPECT_EQ(Utf8PrefixLength(s.data(), s.size(), 100), s.size());
    // Bytes that start no valid sequence count one each; a sequence cut
    // short by the end of the text too.
    const std::string bad = "\xE2\x82x\x80\xFF\xC3";
    EXPECT_EQ(Utf8PrefixLength(bad.data(), bad.size(), 1), 1u);
    EXPECT_EQ(Utf8PrefixLength(bad.data(), bad.size(), 3), 3u);
    EXPECT_EQ(Utf8PrefixLength(bad.data(), bad.size(), 5), 5u);
    // Every cut of a long text of mixed characters is valid UTF-8 (no
    // character split) and as long as possible.
    std::string text;
    for (int i = 0; i < 300; i++) text += (i % 4 == 0) ? "x" : (i % 4 == 1) ? "\xC3\xB6" : (i % 4 == 2) ? "\xE2\x82\xAC" : "\xF0\x9F\x98\x80";
    for (size_t max = 0; max < text.size(); max++) {
        size_t n = Utf8PrefixLength(text.data(), text.size(), max);
        ASSERT_LE(n, max);
        ASSERT_TRUE(n == text.size() || (static_cast<unsigned char>(text[n]) & 0xC0) != 0x80) << max;
        ASSERT_LT(max - n, 4u) << max;
    }
}

TEST(ErrorText, ServerErrorKeepsHintAndContext) {
    Error e = Error::Server("53200", "out of shared memory", "", "You might need to increase max_locks_per_transaction.",
                            "SQL statement \"SELECT 1\"");
    EXPECT_TRUE(e.fromServer());
    EXPECT_EQ(e.code(), "53200");
    EXPECT_EQ(e.message(), "out of shared memory");
    EXPECT_EQ(e.hint(), "You might need to increase max_locks_per_transaction.");
    EXPECT_EQ(e.context(), "SQL statement \"SELECT 1\"");
    // The module's own errors take their hint from a HINT parameter.
    try {
        ErrorRaiseVA("XD00M", "FILENAME%s", "/x", "HINT%s", "look here");
    } catch (const Error &m) {
        EXPECT_FALSE(m.fromServer());
        EXPECT_EQ(m.hint(), "look here");
        EXPECT_EQ(m.context(), "");
    }
}
