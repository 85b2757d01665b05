#include <gtest/gtest.h>

#include <string>

#include "morph.h"
#include "textlex_fixture.h"

using namespace dt;

namespace {
struct Stem {
    std::string stem;
    char isStop;
};
Stem StemOf(const char *w) {
    static textlex::Lexicon lex;
    static MorphLexicon m = lex.Morph();
    char isStop = 7;
    std::string s = _dt_StemWord(m, w, &isStop);
    return {s, isStop};
}
Stem MorphOf(const char *w) {
    static textlex::Lexicon lex;
    static MorphLexicon m = lex.Morph();
    char isStop = 0;
    std::string s = _dt_MorphWord(m, w, &isStop);
    return {s, isStop};
}
}  // namespace

TEST(Morph, RuleTables) {
    EXPECT_EQ(offsets[1] + cnts[1], offsets[2]);
    EXPECT_EQ(offsets[2] + cnts[2], offsets[3]);
    EXPECT_EQ(offsets[3] + cnts[3], kMorphRules);
    EXPECT_STREQ(sufx[4], "ches");
    EXPECT_STREQ(addr[4], "ch");
    EXPECT_STREQ(sufx[20], "ily");
    EXPECT_STREQ(addr[20], "y");
}

TEST(Morph, Wordbase) {
    std::string c;
    EXPECT_TRUE(wordbase("boxes", 2, c));
    EXPECT_EQ(c, "box");
    EXPECT_FALSE(wordbase("s", 0, c));    // nothing would be left
    EXPECT_FALSE(wordbase("ies", 7, c));  // nothing would be left
    EXPECT_TRUE(wordbase("flies", 7, c));
    EXPECT_EQ(c, "fly");
    EXPECT_FALSE(wordbase("dog", 0, c));
}

TEST(Morph, Boxes) { EXPECT_EQ(StemOf("boxes").stem, "box"); }
TEST(Morph, ChurchesByNounRuleBeforeVerbRules) { EXPECT_EQ(StemOf("churches").stem, "church"); }
TEST(Morph, BusIsABaseForm) { EXPECT_EQ(StemOf("bus").stem, "bus"); }
TEST(Morph, BusNotReducedByRules) { EXPECT_EQ(MorphOf("bus").stem, "bus"); }
TEST(Morph, GlassEndsInSs) {
    EXPECT_EQ(MorphOf("glass").stem, "glass");
    EXPECT_EQ(MorphOf("glasses").stem, "glass");  // "ses" -> "s"
}
TEST(Morph, ShortWordsNotReducedByRules) {
    EXPECT_EQ(MorphOf("is").stem, "is");
    EXPECT_EQ(MorphOf("as").stem, "as");
}
TEST(Morph, StopWordComesBackAsItIsWithTheFlag) {
    Stem s = StemOf("is");
    EXPECT_EQ(s.stem, "is");
    EXPECT_EQ(s.isStop, 1);
    s = StemOf("dog");
    EXPECT_EQ(s.stem, "dog");
    EXPECT_EQ(s.isStop, 0);
}
TEST(Morph, Happily) { EXPECT_EQ(StemOf("happily").stem, "happy"); }
TEST(Morph, MiceByException) { EXPECT_EQ(StemOf("mice").stem, "mouse"); }
TEST(Morph, VerbRules) {
    EXPECT_EQ(StemOf("walked").stem, "walk");
    EXPECT_EQ(StemOf("hoping").stem, "hope");  // "ing" -> "e" before "ing" -> ""
    EXPECT_EQ(StemOf("watches").stem, "watch");
    EXPECT_EQ(StemOf("ties").stem, "tie");
}
TEST(Morph, AdjectiveRules) {
    EXPECT_EQ(StemOf("nicer").stem, "nice");
    EXPECT_EQ(StemOf("nicest").stem, "nice");
}
TEST(Morph, UnknownWordUnchanged) {
    Stem s = StemOf("zzyzx");
    EXPECT_EQ(s.stem, "zzyzx");
    EXPECT_EQ(s.isStop, 0);
}
TEST(Morph, CandidateThatIsAStopWordSetsTheFlag) {
    Stem s = MorphOf("thes");  // "s" rule gives "the", a stop word
    EXPECT_EQ(s.stem, "the");
    EXPECT_EQ(s.isStop, 1);
}

TEST(Morph, StemWordFull) {
    textlex::Lexicon lex;
    MorphLexicon m = lex.Morph();
    StemResult r = StemWordFull(m, "dog");
    EXPECT_TRUE(r.lookupHit);
    EXPECT_EQ(r.stem, "dog");
    r = StemWordFull(m, "dogs");
    EXPECT_FALSE(r.lookupHit);
    EXPECT_EQ(r.stem, "dog");
    r = StemWordFull(m, "the");
    EXPECT_TRUE(r.lookupHit);
    EXPECT_TRUE(r.isStop);
}

TEST(StemCacheTest, KeyedByLexiconState) {
    StemCache c;
    StemResult r;
    r.stem = "dog";
    StemCacheStore(c, "dogs", r);  // no key yet: nothing kept
    EXPECT_EQ(StemCacheFind(c, "dogs"), nullptr);
    StemCacheValidate(c, "v1");
    StemCacheStore(c, "dogs", r);
    ASSERT_NE(StemCacheFind(c, "dogs"), nullptr);
    EXPECT_EQ(StemCacheFind(c, "dogs")->stem, "dog");
    EXPECT_EQ(c.hits, 2u);
    StemCacheValidate(c, "v1");
    EXPECT_NE(StemCacheFind(c, "dogs"), nullptr);
    StemCacheValidate(c, "v2");  // the lexicon changed
    EXPECT_EQ(StemCacheFind(c, "dogs"), nullptr);
    EXPECT_EQ(c.resets, 1u);
}

TEST(StemCacheTest, BoundedSize) {
    StemCache c;
    c.maxEntries = 3;
    StemCacheValidate(c, "k");
    StemResult r;
    for (int i = 0; i < 10; i++) StemCacheStore(c, "w" + std::to_string(i), r);
    EXPECT_LE(StemCacheSize(c), 3u);
}
