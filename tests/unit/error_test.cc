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
