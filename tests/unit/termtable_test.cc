#include <gtest/gtest.h>

#include <cstring>
#include <string>

#include "doclayout.h"
#include "error.h"
#include "termtable.h"
#include "wordhash.h"

using namespace dt;

namespace {
// Finds two distinct words of one bucket.
std::pair<std::string, std::string> SameBucketPair() {
    std::string first = "a";
    int b = _dt_HashWordVal("a");
    for (char c1 = 'a'; c1 <= 'z'; c1++)
        for (char c2 = 'a'; c2 <= 'z'; c2++) {
            std::string w{c1, c2};
            if (_dt_HashWordVal(w.c_str()) == b) return {first, w};
        }
    return {first, first};
}

void Roundtrip(const WordHash &in, WordHash &out) {
    TermTableBytes t = WriteTermTable(in);
    ReadTermTable(t.head.data(), in.hashentries, t.strings.data(), t.strings.size(), out);
}
}  // namespace

TEST(WordHashFunction, KnownValues) {
    EXPECT_EQ(_dt_HashWordVal(""), 0);
    EXPECT_EQ(_dt_HashWordVal("a"), 97 % 97);
    EXPECT_EQ(_dt_HashWordVal("b"), 98 % 97);
    // "ab": 97 * 9 + 98 = 971; 971 mod 97 = 1.
    EXPECT_EQ(_dt_HashWordVal("ab"), 971 % 97);
    EXPECT_EQ(_dt_HashTextVal("ab", 2), _dt_HashWordVal("ab"));
}

TEST(WordHashFunction, SignedBytes) {
    // 0xE9 as a signed byte is -23: h = 2^32 - 23, and (2^32 - 23) mod 97.
    const char w[] = "\xE9";
    uint32_t h = (uint32_t)-23;
    EXPECT_EQ(_dt_HashWordVal(w), (int)(h % 97));
    // Not the unsigned reading (233 mod 97 = 39).
    EXPECT_NE(_dt_HashWordVal(w), 233 % 97);
    // "a\xE9": 97*9 - 23 = 850.
    EXPECT_EQ(_dt_HashWordVal("a\xE9"), 850 % 97);
}

TEST(WordHashFunction, Wraparound) {
    std::string w(40, 'z');
    uint32_t h = 0;
    for (char c : w) h = h * 9u + (uint32_t)c;
    EXPECT_EQ(_dt_HashWordVal(w.c_str()), (int)(h % 97));
}

TEST(WordHash, AddCountsAndLookup) {
    WordHash h;
    EXPECT_EQ(_dt_AddWordToHash("dog", h), 0);
    EXPECT_EQ(_dt_AddWordToHash("dog", h), 1);
    EXPECT_EQ(_dt_AddWordToHash("cat", h), 0);
    EXPECT_EQ(h.hashentries, 2);
    EXPECT_EQ(h.wordcnt, 3);
    EXPECT_EQ(h.strlen, 8);
    DtWordHash *e = _dt_HashWordLookup("dog", h.heads[_dt_HashWordVal("dog")]);
    ASSERT_NE(e, nullptr);
    EXPECT_EQ(e->hashw_cnt, 2);
    EXPECT_EQ(_dt_HashWordLookup("do", h.heads[_dt_HashWordVal("do")]), nullptr);
    EXPECT_EQ(_dt_HashTextLookup("cat", 3, h.heads[_dt_HashTextVal("cat", 3)])->hashw_cnt, 1);
}

TEST(WordHash, NewWordsGoToChainHead) {
    auto [a, b] = SameBucketPair();
    ASSERT_NE(a, b);
    WordHash h;
    _dt_AddWordToHash(a.c_str(), h);
    _dt_AddWordToHash(b.c_str(), h);
    DtWordHash *head = h.heads[_dt_HashWordVal(a.c_str())];
    EXPECT_EQ(head->hashw_word, b);
    EXPECT_EQ(head->hashw_next->hashw_word, a);
}

TEST(WordHash, NextTermOnEmptyHash) {
    WordHash h;
    EXPECT_EQ(_dt_NextTerm(h), nullptr);
    EXPECT_EQ(_dt_NextTerm(h), nullptr);
}

TEST(WordHash, NextTermVisitsEveryTermOnce) {
    WordHash h;
    const char *words[] = {"zebra", "apple", "mango", "kiwi", "apple", "fig"};
    for (const char *w : words) _dt_AddWordToHash(w, h);
    int n = 0;
    while (_dt_NextTerm(h)) n++;
    EXPECT_EQ(n, 5);
    EXPECT_EQ(_dt_NextTerm(h), nullptr);
}

TEST(WordHash, SortHashGivesAscendingOrder) {
    WordHash h;
    const char *words[] = {"zebra", "apple", "mango", "kiwi", "apples", "fig", "Zulu"};
    for (const char *w : words) _dt_AddWordToHash(w, h);
    _dt_SortHash(h);
    std::vector<std::string> got;
    while (DtWordHash *e = _dt_NextTerm(h)) got.push_back(e->hashw_word);
    EXPECT_EQ(got, (std::vector<std::string>{"Zulu", "apple", "apples", "fig", "kiwi", "mango", "zebra"}));
    for (int i = 1; i < kHashBuckets; i++) EXPECT_EQ(h.heads[i], nullptr);
}

TEST(TermTable, EmptyTable) {
    WordHash h;
    TermTableBytes t = WriteTermTable(h);
    ASSERT_EQ(t.head.size(), 408u);
    EXPECT_EQ(t.strings.size(), 0u);
    EXPECT_EQ(GetI32(t.head.data(), 0), 1);
    EXPECT_EQ(GetI32(t.head.data(), 4), 97);
    EXPECT_EQ(GetI32(t.head.data(), 8), 12);
    EXPECT_EQ(GetI32(t.head.data(), 12), 0);
    EXPECT_EQ(GetI32(t.head.data(), 16), 420);
    for (int i = 0; i < 97; i++) EXPECT_EQ(GetI32(t.head.data(), 20 + 4 * i), -1) << i;
    WordHash back;
    ReadTermTable(t.head.data(), 0, t.strings.data(), 0, back);
    EXPECT_EQ(back.hashentries, 0);
}

TEST(TermTable, TwoTermsInOneBucketAreAdjacent) {
    auto [a, b] = SameBucketPair();
    WordHash h;
    _dt_AddWordToHash(a.c_str(), h);
    _dt_AddWordToHash(b.c_str(), h);
    _dt_AddWordToHash(b.c_str(), h);
    TermTableBytes t = WriteTermTable(h);
    ASSERT_EQ(t.head.size(), 408u + 24u);
    int bucket = _dt_HashWordVal(a.c_str());
    EXPECT_EQ(GetI32(t.head.data(), 20 + 4 * bucket), 0);
    const char *e0 = t.head.data() + 408;
    const char *e1 = e0 + 12;
    // Chain order: the most recently added first.
    EXPECT_EQ(GetI32(e0, 0), 0);
    EXPECT_EQ(GetI32(e0, 4), 2);
    EXPECT_NE(GetI32(e0, 8), 0);
    EXPECT_EQ(GetI32(e1, 0), (int)b.size() + 1);
    EXPECT_EQ(GetI32(e1, 4), 1);
    EXPECT_EQ(GetI32(e1, 8), 0);
    EXPECT_EQ(t.strings, b + std::string(1, '\0') + a + std::string(1, '\0'));
    EXPECT_EQ(GetI32(t.head.data(), 12), (int)t.strings.size());

    WordHash back;
    Roundtrip(h, back);
    EXPECT_EQ(back.hashentries, 2);
    EXPECT_EQ(WordHashFind(back, a.data(), a.size())->hashw_cnt, 1);
    EXPECT_EQ(WordHashFind(back, b.data(), b.size())->hashw_cnt, 2);
}

TEST(TermTable, HighByteTermUsesSignedBucket) {
    WordHash h;
    _dt_AddWordToHash("caf\xE9", h);
    TermTableBytes t = WriteTermTable(h);
    uint32_t hv = 0;
    for (unsigned char c : std::string("caf\xE9")) hv = hv * 9u + (uint32_t)(int32_t)(signed char)c;
    int bucket = (int)(hv % 97);
    EXPECT_EQ(GetI32(t.head.data(), 20 + 4 * bucket), 0);
    for (int i = 0; i < 97; i++)
        if (i != bucket) {
            EXPECT_EQ(GetI32(t.head.data(), 20 + 4 * i), -1);
        }
}

TEST(TermTable, BucketsInAscendingOrderAndRoundTrip) {
    WordHash h;
    const char *words[] = {"retrieval", "index", "search", "document", "index", "term", "weight", "rank"};
    for (const char *w : words) _dt_AddWordToHash(w, h);
    TermTableBytes t = WriteTermTable(h);
    int last = -1;
    for (int i = 0; i < 97; i++) {
        int idx = GetI32(t.head.data(), 20 + 4 * i);
        if (idx == -1) continue;
        EXPECT_GT(idx, last);
        last = idx;
    }
    WordHash back;
    Roundtrip(h, back);
    EXPECT_EQ(back.hashentries, h.hashentries);
    EXPECT_EQ(back.strlen, h.strlen);
    for (const char *w : words)
        EXPECT_EQ(WordHashFind(back, w, std::strlen(w))->hashw_cnt,
                  WordHashFind(h, w, std::strlen(w))->hashw_cnt);
}

TEST(TermTable, StringLengthMismatchRaisesXD00Q) {
    WordHash h;
    _dt_AddWordToHash("dog", h);
    h.strlen = 7;
    try {
        WriteTermTable(h);
        FAIL();
    } catch (const Error &e) {
        EXPECT_EQ(e.code(), "XD00Q");
        EXPECT_EQ(*e.param("GOT_LEN"), "4");
        EXPECT_EQ(*e.param("EXPECT_LEN"), "7");
    }
}

TEST(TermTable, EntryCountMismatchRaisesXD00RWithStringLengths) {
    WordHash h;
    _dt_AddWordToHash("dog", h);
    h.hashentries = 2;
    try {
        WriteTermTable(h);
        FAIL();
    } catch (const Error &e) {
        EXPECT_EQ(e.code(), "XD00R");
        EXPECT_EQ(*e.param("GOT_LEN"), "4");
        EXPECT_EQ(*e.param("EXPECT_LEN"), "4");
    }
}

TEST(TermTable, DamagedTableIsAnError) {
    WordHash h;
    _dt_AddWordToHash("dog", h);
    TermTableBytes t = WriteTermTable(h);
    std::string head = t.head;
    PutI32(&head[0], 408, 50);  // string offset outside the area
    WordHash back;
    EXPECT_THROW(ReadTermTable(head.data(), 1, t.strings.data(), t.strings.size(), back), Error);
    WordHash back2;
    EXPECT_THROW(ReadTermTable(t.head.data(), 0, t.strings.data(), t.strings.size(), back2), Error);
}
