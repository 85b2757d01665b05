// The pure parts of the dtree index: posting codec, triple order and sort
// keys, page layout arithmetic.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <random>
#include <string>
#include <vector>

#include "dtreelayout.h"
#include "postingcodec.h"
#include "triplesort.h"

using dt::Posting;

TEST(PostingCodec, VarbyteRoundTrip) {
    unsigned char buf[16];
    for (uint64_t v : {0ull, 1ull, 127ull, 128ull, 16383ull, 16384ull, (1ull << 48) - 1, ~0ull}) {
        size_t n = dt::PutVarbyte(buf, v);
        EXPECT_EQ(n, dt::VarbyteSize(v));
        uint64_t back = 0;
        EXPECT_EQ(dt::GetVarbyte(buf, buf + n, &back), n);
        EXPECT_EQ(back, v);
        // Cut short: malformed.
        EXPECT_EQ(dt::GetVarbyte(buf, buf + n - 1, &back), 0u);
    }
}

TEST(PostingCodec, ListRoundTripAndSize) {
    std::mt19937_64 rng(7);
    std::vector<Posting> p;
    uint64_t t = 0;
    for (int i = 0; i < 5000; i++) {
        t += rng() % 3000;  // equal rows happen too
        p.push_back({t & ((1ull << 48) - 1), uint32_t(rng() % 50 + 1), uint32_t(rng() % 100000)});
    }
    std::sort(p.begin(), p.end(), [](const Posting &a, const Posting &b) { return a.tid < b.tid; });
    size_t need = dt::EncodedSize(p.data(), p.size(), 0);
    std::vector<unsigned char> buf(need);
    EXPECT_EQ(dt::EncodePostings(p.data(), p.size(), 0, buf.data(), need), need);
    EXPECT_EQ(dt::EncodePostings(p.data(), p.size(), 0, buf.data(), need - 1), SIZE_MAX);
    std::vector<Posting> back(p.size());
    EXPECT_EQ(dt::DecodePostings(buf.data(), need, 0, back.data(), back.size()), need);
    for (size_t i = 0; i < p.size(); i++) {
        EXPECT_EQ(back[i].tid, p[i].tid);
        EXPECT_EQ(back[i].count, p[i].count);
        EXPECT_EQ(back[i].wordcnt, p[i].wordcnt);
    }
    // Asking for more postings than the bytes hold fails.
    std::vector<Posting> more(p.size() + 1);
    EXPECT_EQ(dt::DecodePostings(buf.data(), need, 0, more.data(), more.size()), SIZE_MAX);
}

TEST(PostingCodec, RefusesOutOfOrderAndOverflow) {
    Posting p[2] = {{10, 1, 1}, {5, 1, 1}};
    unsigned char buf[64];
    EXPECT_EQ(dt::EncodePostings(p, 2, 0, buf, sizeof(buf)), SIZE_MAX);
    // A delta that passes 48 bits.
    size_t n = dt::PutVarbyte(buf, (1ull << 48));
    n += dt::PutVarbyte(buf + n, 1);
    n += dt::PutVarbyte(buf + n, 1);
    Posting out[1];
    EXPECT_EQ(dt::DecodePostings(buf, n, 0, out, 1), SIZE_MAX);
}

TEST(PostingCodec, SkipBelowThenDecodeGivesTheRestOfTheList) {
    std::mt19937_64 rng(11);
    std::vector<Posting> p;
    uint64_t t = 0;
    for (int i = 0; i < 3000; i++) {
        t += rng() % 200000;  // repeats of a row too
        p.push_back({t, uint32_t(rng() % 300 + 1), uint32_t(rng() % 1000000)});
    }
    size_t need = dt::EncodedSize(p.data(), p.size(), 0);
    std::vector<unsigned char> buf(need);
    ASSERT_EQ(dt::EncodePostings(p.data(), p.size(), 0, buf.data(), need), need);
    for (int k = 0; k < 200; k++) {
        // From a random decoded prefix, pass the rows below a random target.
        size_t start = rng() % p.size();
        std::vector<Posting> head(start + 1);
        size_t used = start ? dt::DecodePostings(buf.data(), need, 0, head.data(), start) : 0;
        ASSERT_NE(used, SIZE_MAX);
        uint64_t prev = start ? p[start - 1].tid : 0;
        uint64_t want = k % 10 == 0 ? t + 1 : p[start].tid + rng() % (t - p[start].tid + 2);
        size_t skipped = 0;
        size_t bytes = dt::SkipPostingsBelow(buf.data() + used, need - used, &prev, want, p.size() - start, &skipped);
        ASSERT_NE(bytes, SIZE_MAX);
        size_t first = std::lower_bound(p.begin() + start, p.end(), want,
                                        [](const Posting &a, uint64_t w) { return a.tid < w; }) - p.begin();
        EXPECT_EQ(start + skipped, first);
        if (first > start) {
            EXPECT_EQ(prev, p[first - 1].tid);
        }
        if (first == p.size()) {
            EXPECT_EQ(used + bytes, need);
            continue;
        }
        Posting next;
        ASSERT_NE(dt::DecodePostings(buf.data() + used + bytes, need - used - bytes, prev, &next, 1), SIZE_MAX);
        EXPECT_EQ(next.tid, p[first].tid);
        EXPECT_EQ(next.count, p[first].count);
        EXPECT_EQ(next.wordcnt, p[first].wordcnt);
    }
    // Cut short: malformed.
    uint64_t prev = 0;
    size_t skipped = 0;
    EXPECT_EQ(dt::SkipPostingsBelow(buf.data(), need - 1, &prev, ~0ull, p.size(), &skipped), SIZE_MAX);
}

TEST(PostingCodec, RowsAloneDecodeAsTheFullPostings) {
    std::mt19937_64 rng(5);
    std::vector<Posting> p;
    uint64_t t = 1000;
    for (int i = 0; i < 2000; i++) {
        t += rng() % 70000;
        p.push_back({t, uint32_t(rng() % 100000 + 1), uint32_t(rng() % 3000000)});
    }
    size_t need = dt::EncodedSize(p.data(), p.size(), 500);
    std::vector<unsigned char> buf(need);
    ASSERT_EQ(dt::EncodePostings(p.data(), p.size(), 500, buf.data(), need), need);
    std::vector<uint64_t> rows(p.size());
    EXPECT_EQ(dt::DecodeRows(buf.data(), need, 500, rows.data(), rows.size()), need);
    for (size_t i = 0; i < p.size(); i++) EXPECT_EQ(rows[i], p[i].tid);
    // In two parts: the second goes on from the first's last row.
    size_t used = dt::DecodeRows(buf.data(), need, 500, rows.data(), 700);
    ASSERT_NE(used, SIZE_MAX);
    EXPECT_EQ(dt::DecodeRows(buf.data() + used, need - used, rows[699], rows.data() + 700, p.size() - 700), need - used);
    EXPECT_EQ(rows.back(), p.back().tid);
    // Cut short, or one posting too many: malformed.
    EXPECT_EQ(dt::DecodeRows(buf.data(), need - 1, 500, rows.data(), rows.size()), SIZE_MAX);
    std::vector<uint64_t> more(p.size() + 1);
    EXPECT_EQ(dt::DecodeRows(buf.data(), need, 500, more.data(), more.size()), SIZE_MAX);
}

TEST(PostingCodec, InsertKeepsOrder) {
    Posting arr[5] = {{1, 1, 0}, {5, 1, 0}, {9, 1, 0}};
    EXPECT_EQ(dt::InsertPosting(arr, 3, {7, 2, 0}), 2u);
    EXPECT_EQ(dt::InsertPosting(arr, 4, {9, 3, 0}), 4u);  // equal rows: the new one last
    uint64_t want[5] = {1, 5, 7, 9, 9};
    for (int i = 0; i < 5; i++) EXPECT_EQ(arr[i].tid, want[i]);
    EXPECT_EQ(arr[4].count, 3u);
}

TEST(TripleSort, ByteOrderThenRow) {
    std::string arena = "catcatsCatcat";
    std::vector<dt::TermTriple> t = {
        {5, 0, 3, 1, 0},   // cat
        {2, 3, 4, 1, 0},   // cats
        {9, 7, 3, 1, 0},   // Cat
        {1, 10, 3, 1, 0},  // cat
        {0, 0, 0, 1, 0},   // the empty term: first
    };
    dt::SortTriples(t.data(), t.size(), arena.data());
    std::vector<std::string> terms;
    for (auto &x : t) terms.push_back(arena.substr(x.termoff, x.termlen) + "@" + std::to_string(x.tid));
    EXPECT_EQ(terms, (std::vector<std::string>{"@0", "Cat@9", "cat@1", "cat@5", "cats@2"}));
    EXPECT_LT(dt::CompareTerms("cat", 3, "cats", 4), 0);
    EXPECT_GT(dt::CompareTerms("\xe9", 1, "z", 1), 0);  // bytes compare unsigned
}

TEST(TripleSort, KeysSortLikeTriples) {
    auto key = [](const std::string &term, uint64_t tid, uint32_t c, uint32_t w) {
        std::string out(term.size() + dt::kTripleKeyExtra, '\0');
        dt::MakeTripleKey(term.data(), term.size(), tid, c, w, reinterpret_cast<unsigned char *>(&out[0]));
        return out;
    };
    std::vector<std::string> k = {key("cats", 1, 1, 1), key("cat", 70000, 2, 3), key("cat", 3, 1, 9), key("", 5, 0, 0)};
    std::sort(k.begin(), k.end());  // plain byte order, as bytea compares
    const char *term;
    size_t tl;
    uint64_t tid;
    uint32_t c, w;
    ASSERT_TRUE(dt::ParseTripleKey(reinterpret_cast<const unsigned char *>(k[0].data()), k[0].size(), &term, &tl, &tid, &c, &w));
    EXPECT_EQ(tl, 0u);
    ASSERT_TRUE(dt::ParseTripleKey(reinterpret_cast<const unsigned char *>(k[1].data()), k[1].size(), &term, &tl, &tid, &c, &w));
    EXPECT_EQ(std::string(term, tl), "cat");
    EXPECT_EQ(tid, 3u);
    EXPECT_EQ(w, 9u);
    ASSERT_TRUE(dt::ParseTripleKey(reinterpret_cast<const unsigned char *>(k[2].data()), k[2].size(), &term, &tl, &tid, &c, &w));
    EXPECT_EQ(tid, 70000u);
    EXPECT_EQ(c, 2u);
    ASSERT_TRUE(dt::ParseTripleKey(reinterpret_cast<const unsigned char *>(k[3].data()), k[3].size(), &term, &tl, &tid, &c, &w));
    EXPECT_EQ(std::string(term, tl), "cats");
    EXPECT_FALSE(dt::ParseTripleKey(reinterpret_cast<const unsigned char *>("ab"), 2, &term, &tl, &tid, &c, &w));
}

TEST(DtreeLayout, SplitPointBalances) {
    size_t even[4] = {10, 10, 10, 10};
    EXPECT_EQ(dt::dtree::SplitPoint(even, 4), 2u);
    size_t big_first[3] = {100, 1, 1};
    EXPECT_EQ(dt::dtree::SplitPoint(big_first, 3), 1u);
    size_t big_last[3] = {1, 1, 100};
    EXPECT_EQ(dt::dtree::SplitPoint(big_last, 3), 2u);
    size_t two[2] = {5, 5};
    EXPECT_EQ(dt::dtree::SplitPoint(two, 2), 1u);
}

TEST(DtreeLayout, ThreeLargestItemsFitAPage) {
    const size_t space = 8192 - 24 - 16;
    size_t item = dt::dtree::InlineItemSize(dt::dtree::kMaxKeyLen, dt::dtree::InlineLimit(dt::dtree::kMaxKeyLen, space));
    EXPECT_LE(item, dt::dtree::MaxLeafItem(space));
    // A split page's halves: three of the largest items always fit.
    EXPECT_LE(3 * dt::dtree::ItemSpace(dt::dtree::MaxLeafItem(space)), space);
    EXPECT_GT(dt::dtree::InlineLimit(0, space), 2000u);
}
