#include <gtest/gtest.h>

#include <cstring>
#include <map>
#include <string>
#include <vector>

#include "docdesc.h"
#include "error.h"
#include "textlex_fixture.h"

using namespace dt;
using textlex::TempFile;

namespace {
// Every term of a file with its count (no stop words, no stemming).
std::map<std::string, int> FileTerms(const std::string &bytes) {
    TempFile f(bytes);
    StemHooks none;
    DocDescPtr d = _dt_PrepareUnixDoc(f.path.c_str(), none);
    std::map<std::string, int> out;
    while (DtWordHash *e = _dt_NextTerm(*d)) out[e->hashw_word] = e->hashw_cnt;
    EXPECT_EQ(d->doc_fd, -1);
    EXPECT_TRUE(d->doc_flags & kDocExhausted);
    return out;
}

std::string Repeat(const std::string &s, int n) {
    std::string r;
    for (int i = 0; i < n; i++) r += s;
    return r;
}

std::string Code(const std::function<void()> &f) {
    try {
        f();
    } catch (const Error &e) {
        return e.code();
    }
    return "";
}
}  // namespace

TEST(DocBuffer, TextAfterANulByteIsRead) {
    // In a file, and across the buffer's refills.
    std::string text = std::string("alpha beta\0gamma", 16) + " " + Repeat("dog ", 1000) + std::string("\0\0zebra\0", 9) + "end\n";
    auto terms = FileTerms(text);
    EXPECT_EQ(terms["alpha"], 1);
    EXPECT_EQ(terms["beta"], 1);
    EXPECT_EQ(terms["gamma"], 1);
    EXPECT_EQ(terms["dog"], 1000);
    EXPECT_EQ(terms["zebra"], 1);
    EXPECT_EQ(terms["end"], 1);
    // In memory.
    std::string small("one\0two three", 13);
    DocDesc d;
    EXPECT_EQ(_dt_InitDocDesc(d, small.data(), SmallDocType, (int)small.size()), 13);
    std::map<std::string, int> words;
    while (const char *t = _dt_GetWordFromDoc(d)) words[t]++;
    EXPECT_EQ(words["one"], 1);
    EXPECT_EQ(words["two"], 1);
    EXPECT_EQ(words["three"], 1);
}

TEST(DocBuffer, SmallTextOfExactly2048BytesFillsTheBuffer) {
    std::string text = Repeat("dog ", 511) + "cats";
    ASSERT_EQ(text.size(), 2048u);
    DocDesc d;
    EXPECT_EQ(_dt_InitDocDesc(d, text.data(), SmallDocType, 2048), 2048);
    EXPECT_EQ(d.doc_len, 2048);
    EXPECT_EQ(d.doc_buf[2048], '\0');
    EXPECT_EQ(d.doc_fd, -1);
    EXPECT_EQ(d.doc_flags, kDocSmall);
    std::map<std::string, int> terms;
    while (const char *t = _dt_GetWordFromDoc(d)) terms[t]++;
    // Text in memory is scanned to its end: the last word counts.
    EXPECT_EQ(terms["dog"], 511);
    EXPECT_EQ(terms["cats"], 1);
    EXPECT_TRUE(d.doc_flags & kDocExhausted);
    EXPECT_EQ(_dt_GetWordFromDoc(d), nullptr);
}

TEST(DocBuffer, SmallTextLongerThanTheBufferIsRejected) {
    std::string text(2049, 'a');
    DocDesc d;
    EXPECT_EQ(Code([&] { _dt_InitDocDesc(d, text.data(), SmallDocType, 2049); }), "XD00P");
}

TEST(DocBuffer, FileOf2048BytesWithoutFinalWhiteSpaceLosesItsLastWord) {
    std::string text = Repeat("dog ", 511) + "catx";
    ASSERT_EQ(text.size(), 2048u);
    auto t = FileTerms(text);
    EXPECT_EQ(t.size(), 1u);
    EXPECT_EQ(t["dog"], 511);
}

TEST(DocBuffer, FileOf2048BytesEndingInWhiteSpaceKeepsEveryWord) {
    std::string text = Repeat("dog ", 510) + "cat\n";
    text += std::string(2048 - text.size(), ' ');
    ASSERT_EQ(text.size(), 2048u);
    auto t = FileTerms(text);
    EXPECT_EQ(t["dog"], 510);
    EXPECT_EQ(t["cat"], 1);
}

TEST(DocBuffer, MissingFinalWhiteSpaceAfterSeveralBuffers) {
    std::string text = Repeat("alpha beta ", 1000) + "omega";
    auto t = FileTerms(text);
    EXPECT_EQ(t["alpha"], 1000);
    EXPECT_EQ(t["beta"], 1000);
    EXPECT_EQ(t.count("omega"), 0u);
}

TEST(DocBuffer, WordsCutByABufferBoundaryAreJoined) {
    // Distinct words of varying length so that many words straddle the
    // 2048-byte boundaries.
    std::string text;
    std::map<std::string, int> want;
    for (int i = 0; i < 3000; i++) {
        std::string w = "w" + std::to_string(i * 7919 % 100003) + std::string(i % 13, 'q');
        text += w + (i % 5 == 0 ? "\n" : " ");
        want[w]++;
    }
    EXPECT_EQ(FileTerms(text), want);
}

TEST(DocBuffer, EmptyFileHasNoWords) { EXPECT_TRUE(FileTerms("").empty()); }

TEST(DocBuffer, FileWithoutAnyWhiteSpaceHasNoWords) { EXPECT_TRUE(FileTerms("lonely").empty()); }

TEST(DocBuffer, RunFillingWholeBuffersIsDropped) {
    auto t = FileTerms(std::string(4096, 'x') + " dog cat\n");
    EXPECT_EQ(t, (std::map<std::string, int>{{"dog", 1}, {"cat", 1}}));
}

TEST(DocBuffer, TailOfALongRunAfterTheDroppedBufferIsAWord) {
    // The first 2048 bytes of the run are dropped; the 952 after them are
    // read with the next buffer and form a word.
    auto t = FileTerms(std::string(3000, 'a') + " dog\n");
    EXPECT_EQ(t.size(), 2u);
    EXPECT_EQ(t["dog"], 1);
    EXPECT_EQ(t[std::string(952, 'a')], 1);
}

TEST(DocBuffer, WordCutByTheBufferAndLongerThan1024CharactersIsAnError) {
    // 48 bytes of the word are kept from the first buffer, the rest comes
    // with the second.
    TempFile f(Repeat("dog ", 500) + std::string(1100, 'x') + " cat\n");
    StemHooks none;
    EXPECT_EQ(Code([&] { _dt_PrepareUnixDoc(f.path.c_str(), none); }), "XD00L");
}

TEST(DocBuffer, MissingFileRaisesXD00H) {
    StemHooks none;
    try {
        _dt_PrepareUnixDoc("/nonexistent/dt/file", none);
        FAIL();
    } catch (const Error &e) {
        EXPECT_EQ(e.code(), "XD00H");
        ASSERT_NE(e.param("FILENAME"), nullptr);
        EXPECT_EQ(*e.param("FILENAME"), "/nonexistent/dt/file");
    }
}

TEST(DocBuffer, DirectoryIsNoDocument) {
    StemHooks none;
    EXPECT_EQ(Code([&] { _dt_PrepareUnixDoc("/tmp", none); }), "XD00H");
}

TEST(DocBuffer, LargeObjectSourceReadInSmallPieces) {
    std::string text = Repeat("red green blue ", 400) + "tail";
    size_t off = 0;
    int closes = 0;
    DocSource src;
    src.read = [&](char *buf, int want) {
        int n = (int)std::min<size_t>((size_t)std::min(want, 7), text.size() - off);
        std::memcpy(buf, text.data() + off, (size_t)n);
        off += (size_t)n;
        return n;
    };
    src.close = [&] { closes++; };
    src.fd = 5;
    DocDesc d;
    _dt_InitDocDesc(d, nullptr, LODocType, 0, src);
    EXPECT_EQ(d.doc_fd, 5);
    EXPECT_EQ(d.doc_flags & (kDocUnixFile | kDocSmall), 0);
    while (const char *t = _dt_GetWordFromDoc(d)) _dt_AddWordToHash(t, d);
    EXPECT_EQ(d.doc_hashentries(), 3);
    EXPECT_EQ(d.doc_wordcnt(), 1200);
    EXPECT_EQ(d.doc_strlen(), 4 + 6 + 5);
    EXPECT_EQ(closes, 1);
    EXPECT_EQ(d.doc_fd, -1);
    // Reading on after the end finds nothing and closes nothing again.
    EXPECT_EQ(_dt_GetWordFromDoc(d), nullptr);
    EXPECT_EQ(closes, 1);
}

TEST(DocBuffer, LargeObjectReadFailureRaisesTL001) {
    DocSource src;
    src.read = [](char *, int) { return -1; };
    DocDesc d;
    try {
        _dt_InitDocDesc(d, nullptr, LODocType, 0, src);
        FAIL();
    } catch (const Error &e) {
        EXPECT_EQ(e.code(), "TL001");
        EXPECT_EQ(*e.param("NAME"), "Large object error");
    }
}

TEST(DocBuffer, FreeClosesAnOpenSource) {
    int closes = 0;
    {
        DocSource src;
        std::string text = Repeat("word ", 1000);
        size_t off = 0;
        src.read = [&, text](char *buf, int want) mutable {
            int n = (int)std::min<size_t>((size_t)want, text.size() - off);
            std::memcpy(buf, text.data() + off, (size_t)n);
            off += (size_t)n;
            return n;
        };
        src.close = [&] { closes++; };
        DocDesc d;
        _dt_InitDocDesc(d, nullptr, LODocType, 0, src);
        EXPECT_GE(d.doc_fd, 0);
    }
    EXPECT_EQ(closes, 1);
}

TEST(DocWords, GetStemDropsPunctuationStopWordsAndStems) {
    textlex::Lexicon lex;
    textlex::Hooks h(lex);
    std::string term;
    char w1[] = "(";
    EXPECT_FALSE(_dt_GetStem(w1, h.hooks, term));
    char w2[] = "!";
    EXPECT_FALSE(_dt_GetStem(w2, h.hooks, term));
    char w3[] = "THE";
    EXPECT_FALSE(_dt_GetStem(w3, h.hooks, term));
    EXPECT_STREQ(w3, "the");
    char w4[] = "Dogs";
    ASSERT_TRUE(_dt_GetStem(w4, h.hooks, term));
    EXPECT_EQ(term, "dog");
    char w5[] = "Mice";
    ASSERT_TRUE(_dt_GetStem(w5, h.hooks, term));
    EXPECT_EQ(term, "mouse");
}

TEST(DocWords, DocumentTermsAreStemmedAndCounted) {
    textlex::Lexicon lex;
    textlex::Hooks h(lex);
    TempFile f("The Dogs and the dog (chased) mice!\nBoxes of churches\n");
    DocDescPtr d = _dt_PrepareUnixDoc(f.path.c_str(), h.hooks);
    std::map<std::string, int> t;
    while (DtWordHash *e = _dt_NextTerm(*d)) t[e->hashw_word] = e->hashw_cnt;
    EXPECT_EQ(t, (std::map<std::string, int>{
                     {"dog", 2}, {"chased", 1}, {"mouse", 1}, {"box", 1}, {"church", 1}}));
    EXPECT_EQ(d->doc_wordcnt(), 6);
    EXPECT_EQ(d->doc_hashentries(), 5);
}

TEST(DocWords, IsWordInDocReadsLazilyAndRemembers) {
    textlex::Lexicon lex;
    textlex::Hooks h(lex);
    TempFile f("alpha beta gamma delta\n");
    DocDesc d;
    d.doc_stem = &h.hooks;
    _dt_InitDocDesc(d, f.path.c_str(), UnixDocType, 0);
    EXPECT_EQ(_dt_IsWordInDoc("beta", 4, d), 1);
    EXPECT_EQ(d.doc_wordcnt(), 2);  // read only as far as needed
    EXPECT_EQ(_dt_IsWordInDoc("alpha", 5, d), 1);
    EXPECT_EQ(d.doc_wordcnt(), 2);  // found in the hash without reading
    EXPECT_EQ(_dt_IsWordInDoc("omega", 5, d), 0);
    EXPECT_EQ(d.doc_wordcnt(), 4);
    EXPECT_EQ(_dt_IsWordInDoc("delta", 5, d), 1);
    EXPECT_EQ(_dt_IsWordInDoc("omega", 5, d), 0);
}

TEST(DocWords, EmptyDocHasNoTermsAndStaysEmpty) {
    DocDescPtr d = _dt_MakeEmptyDoc();
    EXPECT_EQ(d->doc_flags, kDocExhausted);
    EXPECT_EQ(d->doc_fd, -1);
    EXPECT_EQ(_dt_NextTerm(*d), nullptr);
    EXPECT_EQ(_dt_NextTerm(*d), nullptr);
    EXPECT_EQ(_dt_GetWordFromDoc(*d), nullptr);
    EXPECT_EQ(_dt_IsWordInDoc("dog", 3, *d), 0);
}

TEST(DocWords, SortHashGivesAscendingTerms) {
    TempFile f("pear apple fig apple banana\n");
    StemHooks none;
    DocDescPtr d = _dt_PrepareUnixDoc(f.path.c_str(), none);
    _dt_SortHash(*d);
    std::vector<std::string> order;
    while (DtWordHash *e = _dt_GetNextHashEntry(*d)) order.push_back(e->hashw_word);
    EXPECT_EQ(order, (std::vector<std::string>{"apple", "banana", "fig", "pear"}));
}

TEST(DocWords, StopWordReaderKeepsCase) {
    TempFile f("The\nwhere where\n");
    DocDesc d;
    _dt_InitDocDesc(d, f.path.c_str(), UnixDocType, 0);
    std::vector<std::string> words;
    while (const char *w = _dt_GetStopWordFromDoc(d)) words.push_back(w);
    EXPECT_EQ(words, (std::vector<std::string>{"The", "where", "where"}));
}

TEST(DocWords, PrintWordHash) {
    TempFile f("dog dog cat\n");
    StemHooks none;
    DocDescPtr d = _dt_PrepareUnixDoc(f.path.c_str(), none);
    testing::internal::CaptureStdout();
    _dt_PrintWordHash(&d->doc_wordhashtab, true);
    std::string out = testing::internal::GetCapturedStdout();
    EXPECT_EQ(out.rfind("The document contains the following words: ", 0), 0u);
    EXPECT_NE(out.find("dog (2) "), std::string::npos);
    EXPECT_NE(out.find("cat (1) "), std::string::npos);
    EXPECT_NE(out.find("1: cat \n2: dog \n"), std::string::npos);
    testing::internal::CaptureStdout();
    _dt_PrintWordHash(nullptr, false);
    EXPECT_EQ(testing::internal::GetCapturedStdout(),
              "The document contains the following words: no words!\n\n");
}
