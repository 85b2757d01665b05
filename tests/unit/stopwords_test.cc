#include <gtest/gtest.h>

#include <string>

#include "error.h"
#include "stopwords.h"
#include "textlex_fixture.h"
#include "tokenizer.h"

using namespace dt;
using textlex::TempFile;

TEST(StopWords, StoredAsWrittenLookedUpByteForByte) {
    TempFile f("The\nwhere where\nand, or; (not)\n");
    WordHash set;
    LoadStopWordFile(f.path, set);
    EXPECT_FALSE(IsStopWordIn(set, "the"));  // written "The": never matches a lookup
    EXPECT_TRUE(IsStopWordIn(set, "The"));
    EXPECT_TRUE(IsStopWordIn(set, "where"));
    EXPECT_TRUE(IsStopWordIn(set, "and"));
    EXPECT_TRUE(IsStopWordIn(set, "not"));
    // The reader keeps every token, so "(" in the file is in the set too
    // (documents never look it up: such tokens are dropped before).
    EXPECT_TRUE(IsStopWordIn(set, "("));
    EXPECT_FALSE(IsStopWordIn(set, ";"));
    EXPECT_FALSE(IsStopWordIn(set, "wher"));
}

TEST(StopWords, WordListedTwiceIsOneStopWordWithCount2) {
    TempFile f("where\nwhere\nwhen\n");
    WordHash set;
    LoadStopWordFile(f.path, set);
    EXPECT_EQ(set.hashentries, 2);
    EXPECT_EQ(set.wordcnt, 3);
    EXPECT_EQ(set.strlen, 6 + 5);
    DtWordHash *e = WordHashFind(set, "where", 5);
    ASSERT_NE(e, nullptr);
    EXPECT_EQ(e->hashw_cnt, 2);
}

TEST(StopWords, LastWordWithoutNewlineIsNotAStopWord) {
    TempFile f("alpha\nomega");
    WordHash set;
    LoadStopWordFile(f.path, set);
    EXPECT_TRUE(IsStopWordIn(set, "alpha"));
    EXPECT_FALSE(IsStopWordIn(set, "omega"));
}

TEST(StopWords, MissingFileRaisesXD00H) {
    WordHash set;
    try {
        LoadStopWordFile("/nonexistent/stopwords", set);
        FAIL();
    } catch (const Error &e) {
        EXPECT_EQ(e.code(), "XD00H");
    }
}

namespace {
std::string g_path;
int g_calls = 0;
std::string Provider() {
    g_calls++;
    if (g_path.empty()) ErrorRaiseVA("XD00H", "FILENAME%s", "(no home)");
    return g_path;
}
}  // namespace

TEST(StopWords, ProcessSetLoadsOnceRetriesAfterFailureAndIgnoresLaterEdits) {
    ASSERT_EQ(ProcessStopWords(), nullptr);
    SetStopWordPathProvider(&Provider);
    g_path.clear();
    EXPECT_THROW(_dt_IsStopWord("the"), Error);
    EXPECT_EQ(ProcessStopWords(), nullptr);
    TempFile f("the\nof\n");
    g_path = f.path;
    // The first lookup loads the set with the tokenizer, whose buffer may be
    // the very argument: it comes back unchanged.
    int pos = 0;
    char *w = _dt_WordFromString("dogs and", &pos);
    EXPECT_FALSE(_dt_IsStopWord(w));
    EXPECT_STREQ(w, "dogs");
    EXPECT_TRUE(_dt_IsStopWord("the"));
    EXPECT_FALSE(_dt_IsStopWord("dog"));
    int calls = g_calls;
    {
        FILE *fp = fopen(f.path.c_str(), "a");
        fputs("dog\n", fp);
        fclose(fp);
    }
    EXPECT_FALSE(_dt_IsStopWord("dog"));
    EXPECT_EQ(g_calls, calls);
    ASSERT_NE(ProcessStopWords(), nullptr);
    EXPECT_EQ(ProcessStopWords()->hashentries, 2);
}
