// Relevance weights, rank order with cuts, the ranked cursor, result
// tables with hits, and the query tree of a scan.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <functional>
#include <map>
#include <random>
#include <string>

#include "error.h"
#include "exprnodes.h"
#include "rankfit.h"
#include "ranking.h"
#include "resultset.h"
#include "scantree.h"

using namespace dt;

namespace {

struct ParamsGuard {
    ParamsGuard() { ResetDocParams(); }
    ~ParamsGuard() { ResetDocParams(); }
};

// A table of one entry per given weight, rows 1, 2, ...
ResultTable Weighted(const std::vector<double> &w) {
    ResultTable t;
    for (size_t i = 0; i < w.size(); i++) t.entries.push_back(ResultEntry{MakeRowKey(0, (uint16_t)(i + 1)), 1, 0, 0, w[i]});
    return t;
}

}  // namespace

TEST(Ranking, DefaultsAndNames) {
    ParamsGuard g;
    const double *p = DocParams();
    EXPECT_EQ(p[kDocLenCoef], -0.145);
    EXPECT_EQ(p[kZCoef], 3.63);
    EXPECT_STREQ(kDocParamInfo[kPriorLogOdds].name, "PriorLogOdds");
    EXPECT_EQ(p[kPriorLogOdds], -6.725);
}

TEST(Ranking, SetDocParamIgnoresOutOfRange) {
    ParamsGuard g;
    SetDocParam(11, 4.0);
    EXPECT_EQ(DocParams()[kZCoef], 4.0);
    std::vector<double> before(DocParams(), DocParams() + kDocParamCount);
    SetDocParam(12, 99.0);
    SetDocParam(-1, 99.0);
    SetDocParam(1 << 30, 99.0);
    EXPECT_EQ(before, std::vector<double>(DocParams(), DocParams() + kDocParamCount));
}

TEST(Ranking, SingleTermExample) {
    // q = f = L = 1, one query word, n = total docs, cf = total terms:
    // every clue is 0, Z = -6.83 + 6.725 = -0.105 is raised to 1, so the
    // stage-2 log odds is -6.08.
    ParamsGuard g;
    ExprArena a;
    DocExprNode *w = Word(a, "dog");
    w->node_doccnt = 10;
    w->node_wordcnt = 50;
    ResultTable t;
    t.entries.push_back(ResultEntry{MakeRowKey(0, 1), 1, 0, 1, 0.0});
    t.hits.push_back(TermHit{w, 1});
    GetDocWeights(t, w, 50, 10);
    EXPECT_DOUBLE_EQ(t.entries[0].weight, 1.0 / (1.0 + std::exp(6.08)));
    EXPECT_NEAR(t.entries[0].weight, 0.002284, 2e-6);
}

TEST(Ranking, MatchesTheFormula) {
    ParamsGuard g;
    ExprArena a;
    DocExprNode *x = Word(a, "x"), *y = Word(a, "y");
    x->node_querycnt = 2;
    x->node_doccnt = 3;
    x->node_wordcnt = 7;
    y->node_doccnt = 5;
    y->node_wordcnt = 9;
    DocExprNode *root = Node(a, EXPR_OR, x, y);
    ResultTable t;
    t.entries.push_back(ResultEntry{MakeRowKey(0, 1), 40, 0, 2, 0.0});
    t.hits.push_back(TermHit{x, 4});
    t.hits.push_back(TermHit{y, 2});
    GetDocWeights(t, root, 1000, 100);
    double qw = 3.0, z = 0.0;
    auto term = [&](double q, double f, double n, double cf) {
        return -6.83 + std::log(q) * 0.44 + std::log(q / qw) * 0.04 + std::log(f) * 0.57 + std::log(f / 40.0) * -0.06 +
               std::log(100.0 / n) * 1.13 + std::log(cf / 1000.0) * 0.24 - -6.725;
    };
    z = z + term(2, 4, 3, 7);
    z = z + term(1, 2, 5, 9);
    double temp = -6.08 + 3.63 * std::log(std::max(z, 1.0)) + -0.145 * std::log(40.0) + -1.0 * std::log(qw);
    EXPECT_DOUBLE_EQ(t.entries[0].weight, 1.0 / (1.0 + std::exp(-temp)));
}

TEST(Ranking, NoHitsAndNonWordHits) {
    ParamsGuard g;
    ExprArena a;
    DocExprNode *all = Word(a, "", EXPR_ALL);
    ResultTable t;
    t.entries.push_back(ResultEntry{MakeRowKey(0, 1), 5, 0, 0, 0.0});
    t.entries.push_back(ResultEntry{MakeRowKey(0, 2), 5, 0, 1, 0.0});
    t.hits.push_back(TermHit{all, 1});
    GetDocWeights(t, all, 0, 1);
    EXPECT_EQ(t.entries[0].weight, 2.2250738585072014e-308);
    EXPECT_EQ(t.entries[1].weight, 0.1);
}

TEST(Ranking, ExprCountTakesNotNodesWhole) {
    // a and (b or not x): a, b and the NOT node itself, not x.
    ExprArena a;
    DocExprNode *na = Word(a, "a"), *nb = Word(a, "b"), *nx = Word(a, "x");
    na->node_querycnt = 2;
    nb->node_querycnt = 3;
    nx->node_querycnt = 100;
    DocExprNode *nt = Node(a, EXPR_NOT, nullptr, nx);
    nt->node_querycnt = 5;
    DocExprNode *root = Node(a, EXPR_AND, na, Node(a, EXPR_OR, nb, nt));
    EXPECT_EQ(ExprCount(root), 10);
    EXPECT_EQ(ExprCount(nullptr), 0);
}

TEST(Ranking, ThresholdThenCount) {
    ResultTable t = Weighted({0.5, 0.9, 0.49});
    std::vector<uint32_t> r = RankEntries(t, -1, 0.5);
    ASSERT_EQ(r.size(), 2u);
    EXPECT_EQ(t.entries[r[0]].weight, 0.9);
    EXPECT_EQ(t.entries[r[1]].weight, 0.5);
    r = RankEntries(t, 1, 0.5);
    ASSERT_EQ(r.size(), 1u);
    EXPECT_EQ(t.entries[r[0]].weight, 0.9);
    EXPECT_EQ(RankEntries(t, -1, 0.95).size(), 0u);
    EXPECT_EQ(RankEntries(t, 0, 0.0).size(), 3u);
    EXPECT_EQ(RankEntries(ResultTable(), 5, 0.1).size(), 0u);
}

TEST(Ranking, TiesPutTheLaterFetchedFirst) {
    // Fetch order is bucket by bucket, rows ascending within one.
    ResultTable t;
    std::vector<RowKey> rows = {MakeRowKey(0, 1), MakeRowKey(0, 2), MakeRowKey(3, 7), MakeRowKey(70000, 9)};
    for (RowKey k : rows) t.entries.push_back(ResultEntry{k, 1, 0, 0, 0.25});
    std::vector<uint32_t> r = RankEntries(t, -1, 0.0);
    ASSERT_EQ(r.size(), rows.size());
    for (size_t i = 1; i < r.size(); i++) {
        RowKey prev = t.entries[r[i - 1]].row, cur = t.entries[r[i]].row;
        uint32_t bp = TidHashBucket(prev), bc = TidHashBucket(cur);
        EXPECT_TRUE(bp > bc || (bp == bc && prev > cur)) << i;
    }
}

TEST(Ranking, TidHashBucket) {
    // Row (0,1): bytes 0 0 0 0 1 0 -> h = 1 * 9 = 9.
    EXPECT_EQ(TidHashBucket(MakeRowKey(0, 1)), 9u);
    // Row (1,1): bytes 0 0 1 0 1 0 -> 1*729 + 1*9 = 738 -> 738 mod 97 = 59.
    EXPECT_EQ(TidHashBucket(MakeRowKey(1, 1)), 59u);
    // A byte of 0xff counts as -1: row (0,255) -> h = -9 (mod 2^32).
    EXPECT_EQ(TidHashBucket(MakeRowKey(0, 255)), (uint32_t)(0u - 9u) % 97u);
}

TEST(RankedCursor, MovesBothWays) {
    RankedCursor c(3);
    EXPECT_EQ(c.Step(false), -1);  // backward first: none
    EXPECT_EQ(c.Step(true), 0);
    EXPECT_EQ(c.Step(true), 1);
    EXPECT_EQ(c.Step(true), 2);
    EXPECT_EQ(c.Step(true), -1);   // off the end
    EXPECT_EQ(c.Step(true), -1);   // and stays there
    EXPECT_EQ(c.Step(false), 2);   // reversal walks back from the tail
    EXPECT_EQ(c.Step(false), 1);
    c.Mark();
    EXPECT_EQ(c.Step(false), 0);
    EXPECT_EQ(c.Step(false), -1);
    EXPECT_EQ(c.Step(false), -1);
    c.Restore();
    EXPECT_EQ(c.Step(true), 2);
    RankedCursor empty(0);
    EXPECT_EQ(empty.Step(true), -1);
    EXPECT_EQ(empty.Step(true), -1);
    EXPECT_EQ(empty.Step(false), -1);
}

namespace {
struct FakeIndex {
    std::map<std::string, LeafPostings> terms;
    LeafPostings all;
    std::vector<std::string> asked;
    EntrySource Source() {
        EntrySource s;
        s.postingsOfTerm = [this](const std::string &t) {
            asked.push_back(t);
            auto it = terms.find(t);
            return it == terms.end() ? LeafPostings{} : it->second;
        };
        s.allDocs = [this] {
            asked.push_back("*");
            return all;
        };
        return s;
    }
    // The rows of the terms, without what ranking needs (not recorded in
    // asked).
    RowSource Rows() {
        RowSource r;
        r.rowsWithTerm = [this](const std::string &t) {
            RowSet rows;
            for (const LeafPosting &p : terms[t])
                if (rows.empty() || rows.back() != p.row) rows.push_back(p.row);
            return rows;
        };
        r.allRows = [] { return RowSet(); };
        r.rowsWithTermAmong = [this](const std::string &t, const RowSet &among) {
            RowSet rows;
            for (const LeafPosting &p : terms[t])
                if ((rows.empty() || rows.back() != p.row) && std::binary_search(among.begin(), among.end(), p.row))
                    rows.push_back(p.row);
            return rows;
        };
        r.termCount = [this](const std::string &t) { return (int64_t)terms[t].size(); };
        return r;
    }
};
RowKey R(int i) { return MakeRowKey(0, (uint16_t)i); }

// Two tables hold the same entries in the same order: rows, word counts,
// weights, and hits (their leaves as sameLeaf tells, and counts).
void ExpectSameEntries(const ResultTable &a, const ResultTable &b,
                       const std::function<bool(const DocExprNode *, const DocExprNode *)> &sameLeaf) {
    ASSERT_EQ(a.entries.size(), b.entries.size());
    for (size_t i = 0; i < a.entries.size(); i++) {
        const ResultEntry &x = a.entries[i], &y = b.entries[i];
        ASSERT_EQ(x.row, y.row);
        ASSERT_EQ(x.wordcnt, y.wordcnt);
        ASSERT_EQ(x.nhits, y.nhits);
        for (uint32_t h = 0; h < x.nhits; h++) {
            ASSERT_TRUE(sameLeaf(a.hits[x.firstHit + h].leaf, b.hits[y.firstHit + h].leaf)) << "entry " << i;
            ASSERT_EQ(a.hits[x.firstHit + h].count, b.hits[y.firstHit + h].count);
        }
        ASSERT_EQ(x.weight, y.weight);
    }
}
}  // namespace

TEST(ResultEntries, LeafCountsAndRepeats) {
    FakeIndex f;
    // Row 2 holds "cat" twice (an added term is a posting of its own).
    f.terms["cat"] = {{R(1), 3, 10}, {R(2), 1, 20}, {R(2), 2, 20}};
    ExprArena a;
    DocExprNode *cat = Word(a, "cat");
    ResultTable t = EvaluateEntries(cat, f.Source());
    ASSERT_EQ(t.entries.size(), 2u);
    EXPECT_EQ(cat->node_doccnt, 2);
    EXPECT_EQ(cat->node_wordcnt, 6);
    EXPECT_EQ(t.entries[1].nhits, 2u);
    EXPECT_EQ(t.entries[1].wordcnt, 20u);
    // The latest posting first.
    EXPECT_EQ(t.hits[t.entries[1].firstHit].count, 2);
}

TEST(ResultEntries, SetAlgebraKeepsHits) {
    FakeIndex f;
    f.terms["a"] = {{R(1), 1, 5}, {R(2), 2, 5}, {R(3), 1, 5}};
    f.terms["b"] = {{R(2), 4, 5}, {R(4), 1, 5}};
    f.terms["c"] = {{R(3), 1, 5}};
    ExprArena ar;
    DocExprNode *a = Word(ar, "a"), *b = Word(ar, "b"), *c = Word(ar, "c");
    // (a or b) andnot c
    ResultTable t = EvaluateEntries(Node(ar, EXPR_ANDNOT, Node(ar, EXPR_OR, a, b), c), f.Source());
    std::vector<int> rows, nh;
    for (auto &e : t.entries) {
        rows.push_back(RowKeyOffset(e.row));
        nh.push_back((int)e.nhits);
    }
    EXPECT_EQ(rows, (std::vector<int>{1, 2, 4}));
    EXPECT_EQ(nh, (std::vector<int>{1, 2, 1}));
    // Row 2: a's hit, then b's.
    EXPECT_EQ(t.hits[t.entries[1].firstHit].leaf, a);
    EXPECT_EQ(t.hits[t.entries[1].firstHit + 1].leaf, b);
    EXPECT_EQ(t.hits[t.entries[1].firstHit + 1].count, 4);
}

TEST(ResultEntries, AndAndAndNotSkipRightWhenLeftEmpty) {
    for (int op : {EXPR_AND, EXPR_ANDNOT}) {
        FakeIndex f;
        f.terms["b"] = {{R(1), 1, 1}};
        ExprArena ar;
        ResultTable t = EvaluateEntries(Node(ar, op, Word(ar, "zzz"), Word(ar, "b")), f.Source());
        EXPECT_TRUE(t.entries.empty());
        EXPECT_EQ(f.asked, (std::vector<std::string>{"zzz"})) << "op " << op;
    }
}

TEST(ResultEntries, AllHasNoHitsAndOtherNodesRaise) {
    FakeIndex f;
    f.all = {{R(1), 4, 4}, {R(5), 2, 2}};
    ExprArena ar;
    DocExprNode *all = Word(ar, "", EXPR_ALL);
    ResultTable t = EvaluateEntries(all, f.Source());
    ASSERT_EQ(t.entries.size(), 2u);
    EXPECT_EQ(t.entries[0].nhits, 0u);
    EXPECT_EQ(all->node_doccnt, 2);
    EXPECT_TRUE(EvaluateEntries(nullptr, f.Source()).entries.empty());
    try {
        EvaluateEntries(Word(ar, "x", EXPR_STOPWORD), f.Source());
        FAIL();
    } catch (const Error &e) {
        EXPECT_EQ(e.code(), "XD00B");
    }
}

TEST(ScanTree, JoinsConditionsAndReadsOptions) {
    ExprArena a;
    QueryStemmer plain;
    plain.isStopWord = [](const std::string &w) { return w == "a" || w == "the"; };
    plain.stemWord = [](const std::string &w, bool *stop) {
        *stop = w == "a" || w == "the";
        return w;
    };
    ScanCuts cuts;
    DocExprNode *t1 = ScanConditionTree(a, plain, 1, "=10|%50|cat", &cuts);
    EXPECT_EQ(cuts.tupcnt, 10);
    EXPECT_FLOAT_EQ(cuts.percent, 0.5f);
    DocExprNode *t2 = ScanConditionTree(a, plain, 2, "dog", &cuts);
    EXPECT_EQ(cuts.tupcnt, -1);
    DocExprNode *root = ScanQueryTree(a, plain, {t1, t2});
    ASSERT_NE(root, nullptr);
    EXPECT_EQ(root->node_op, EXPR_AND);
    // No conditions: every indexed document.
    DocExprNode *none = ScanQueryTree(a, plain, {});
    ASSERT_NE(none, nullptr);
    EXPECT_EQ(none->node_op, EXPR_ALL);
    // A condition that matches nothing empties the conjunction.
    EXPECT_EQ(ScanQueryTree(a, plain, {ScanConditionTree(a, plain, 2, "", &cuts), t2}), nullptr);
}

namespace {
// A deterministic stream of uniform numbers in [0, 1).
struct Lcg {
    uint64_t s = 88172645463325252ull;
    double next() {
        s = s * 6364136223846793005ull + 1442695040888963407ull;
        return (double)(s >> 11) / 9007199254740992.0;
    }
};
}  // namespace

TEST(RankFit, LogisticRegressionRecoversCoefficients) {
    Lcg r;
    const double b0 = -1.0, b1 = 2.0, b2 = -0.5;
    std::vector<double> x;
    std::vector<uint8_t> y;
    for (int i = 0; i < 20000; i++) {
        double a = r.next() * 4 - 2, b = r.next() * 4 - 2;
        double p = 1.0 / (1.0 + std::exp(-(b0 + b1 * a + b2 * b)));
        x.push_back(a);
        x.push_back(b);
        y.push_back(r.next() < p ? 1 : 0);
    }
    std::vector<double> beta;
    FitStage st = FitLogistic(x, y, 2, 1e-6, &beta);
    EXPECT_TRUE(st.converged);
    EXPECT_NEAR(beta[0], b0, 0.1);
    EXPECT_NEAR(beta[1], b1, 0.1);
    EXPECT_NEAR(beta[2], b2, 0.1);
    EXPECT_GT(st.logLikelihood, st.nullLogLikelihood);
    EXPECT_EQ(st.observations, 20000u);
}

TEST(RankFit, LearnsBothStagesAndRanksRelevantFirst) {
    // Documents where the judged relevant ones hold the rare term often:
    // the learned model must weigh them above the others.
    ExprArena a;
    DocExprNode *rare = Word(a, "rare"), *common = Word(a, "common");
    rare->node_doccnt = 50;
    rare->node_wordcnt = 200;
    common->node_doccnt = 900;
    common->node_wordcnt = 3000;
    DocExprNode *root = Node(a, EXPR_OR, rare, common);
    ResultTable t;
    Lcg r;
    std::vector<bool> rel;
    for (int i = 0; i < 1000; i++) {
        bool relevant = r.next() < 0.2;
        ResultEntry e{MakeRowKey(0, (uint16_t)(i + 1)), (uint32_t)(20 + r.next() * 100), (uint32_t)t.hits.size(), 0, 0};
        if (relevant || r.next() < 0.05) t.hits.push_back(TermHit{rare, relevant ? 1 + (int)(r.next() * 5) : 1});
        t.hits.push_back(TermHit{common, 1 + (int)(r.next() * 3)});
        e.nhits = (uint32_t)(t.hits.size() - e.firstHit);
        t.entries.push_back(e);
        rel.push_back(relevant);
    }
    FitData data;
    AddAnswer(data, t, root, 100000, 1000, [&](RowKey k) { return rel[RowKeyOffset(k) - 1]; });
    EXPECT_EQ(data.docs.size(), 1000u);
    FitResult fit;
    std::string why;
    ASSERT_TRUE(FitDocParams(data, &fit, &why)) << why;
    EXPECT_TRUE(fit.stage1.converged);
    EXPECT_TRUE(fit.stage2.converged);
    EXPECT_GT(fit.params[kZCoef], 0.0);
    GetDocWeights(t, root, 100000, 1000, fit.params);
    double relSum = 0, otherSum = 0;
    int nr = 0, no = 0;
    for (size_t i = 0; i < t.entries.size(); i++)
        (rel[i] ? (relSum += t.entries[i].weight, nr++) : (otherSum += t.entries[i].weight, no++));
    EXPECT_GT(relSum / nr, 2 * otherSum / no);

    FitData none;
    AddAnswer(none, t, root, 100000, 1000, [](RowKey) { return false; });
    EXPECT_FALSE(FitDocParams(none, &fit, &why));
    EXPECT_EQ(why, "no answered document is judged relevant");
}

TEST(ResultEntries, AndOfTwoWordsWithNoCommonRowReadsNoList) {
    FakeIndex f;
    f.terms["a"] = {{R(1), 1, 5}, {R(3), 1, 5}};
    f.terms["b"] = {{R(2), 1, 5}, {R(4), 1, 5}};
    f.terms["c"] = {{R(3), 2, 5}};
    RowSource rows = f.Rows();
    EntrySource src = f.Source();
    src.rows = &rows;
    ExprArena ar;
    // No row holds both: the answer is empty and no leaf is evaluated.
    EXPECT_TRUE(EvaluateEntries(Node(ar, EXPR_AND, Word(ar, "a"), Word(ar, "b")), src).entries.empty());
    EXPECT_TRUE(f.asked.empty());
    // A common row: the usual evaluation, with the leaves' counts.
    DocExprNode *a = Word(ar, "a"), *c = Word(ar, "c");
    ResultTable t = EvaluateEntries(Node(ar, EXPR_AND, a, c), src);
    ASSERT_EQ(t.entries.size(), 1u);
    EXPECT_EQ(t.entries[0].nhits, 2u);
    EXPECT_EQ(a->node_doccnt, 2);
    EXPECT_EQ(c->node_wordcnt, 2);
    EXPECT_EQ(f.asked, (std::vector<std::string>{"a", "c"}));
}

namespace {
// A random tree of AND, OR and ANDNOT over words w0..w5.
DocExprNode *RandomTree(ExprArena &ar, std::mt19937 &rng, int depth, std::vector<DocExprNode *> *leaves) {
    if (depth == 0 || rng() % 3 == 0) {
        DocExprNode *w = Word(ar, "w" + std::to_string(rng() % 6));
        leaves->push_back(w);
        return w;
    }
    static const int ops[] = {EXPR_AND, EXPR_OR, EXPR_ANDNOT};
    int op = ops[rng() % 3];
    DocExprNode *l = RandomTree(ar, rng, depth - 1, leaves);
    return Node(ar, op, l, RandomTree(ar, rng, depth - 1, leaves));
}
}  // namespace

TEST(ResultEntries, ReadingWordsOnlyAmongTheOtherSideGivesTheSameAnswer) {
    std::mt19937 rng(20261123);
    int amongCalls = 0;
    for (int round = 0; round < 300; round++) {
        FakeIndex f;
        for (int t = 0; t < 6; t++) {
            LeafPostings &l = f.terms["w" + std::to_string(t)];
            for (int r = 1; r <= 40; r++) {
                if (rng() % 3 != 0) continue;
                l.push_back({R(r), (int32_t)(1 + rng() % 4), (uint32_t)(10 + r)});
                if (rng() % 10 == 0) l.push_back({R(r), 1, (uint32_t)(10 + r)});  // a repeat of the row
            }
        }
        RowSource rows = f.Rows();
        EntrySource whole = f.Source();
        whole.rows = &rows;
        EntrySource among = whole;
        among.postingsOfTermAmong = [&](const std::string &t, const RowSet &in, int64_t *doccnt, int64_t *wordcnt) {
            amongCalls++;
            LeafPostings out;
            *doccnt = *wordcnt = 0;
            const LeafPostings &l = f.terms[t];
            for (size_t i = 0; i < l.size(); i++) {
                if (i == 0 || l[i].row != l[i - 1].row) ++*doccnt;
                *wordcnt += l[i].count;
                if (std::binary_search(in.begin(), in.end(), l[i].row)) out.push_back(l[i]);
            }
            return out;
        };
        ExprArena ar;
        std::vector<DocExprNode *> leaves;
        DocExprNode *tree = RandomTree(ar, rng, 3, &leaves);
        auto run = [&](const EntrySource &src, std::vector<std::pair<int, int>> *counts) {
            for (DocExprNode *l : leaves) l->node_doccnt = l->node_wordcnt = -1;
            ResultTable t = EvaluateEntries(tree, src);
            GetDocWeights(t, tree, 5000, 100);
            for (DocExprNode *l : leaves) counts->push_back({l->node_doccnt, l->node_wordcnt});
            return t;
        };
        std::vector<std::pair<int, int>> c1, c2;
        ResultTable a = run(whole, &c1), b = run(among, &c2);
        SCOPED_TRACE("round " + std::to_string(round));
        // The same weights too: the same sums in the same order.
        ExpectSameEntries(a, b, [](const DocExprNode *x, const DocExprNode *y) { return x == y; });
        for (size_t i = 0; i < c1.size(); i++)
            if (c1[i].first >= 0 && c2[i].first >= 0) ASSERT_EQ(c1[i], c2[i]) << "round " << round << " leaf " << i;
    }
    EXPECT_GT(amongCalls, 100);
}

// A chain of ORs of many words (a whole document's terms) gives what ORs
// two at a time give: the rows, each row's hits in the order of the words,
// its word count from the last word that holds it.  The chain goes left
// (as queries made from documents are built); the same words nested to
// the right are combined two at a time.
TEST(ResultEntries, LongOrChainAsPairs) {
    FakeIndex f;
    const int n = 40;
    uint64_t seed = 7;
    auto rnd = [&seed] {
        seed = seed * 6364136223846793005ULL + 1442695040888963407ULL;
        return (uint32_t)(seed >> 33);
    };
    for (int i = 0; i < n; i++) {
        LeafPostings p;
        for (int r = 1; r <= 60; r++)
            if (rnd() % 4 == 0) p.push_back({R(r), (int)(1 + rnd() % 5), 10 + rnd() % 90});
        f.terms["w" + std::to_string(i)] = p;
    }
    ExprArena ar;
    DocExprNode *left = nullptr;
    for (int i = 0; i < n; i++) {
        DocExprNode *leaf = Word(ar, "w" + std::to_string(i));
        left = left ? Node(ar, EXPR_OR, left, leaf) : leaf;
    }
    DocExprNode *right = Word(ar, "w" + std::to_string(n - 1));
    for (int i = n - 2; i >= 0; i--) right = Node(ar, EXPR_OR, Word(ar, "w" + std::to_string(i)), right);
    ResultTable a = EvaluateEntries(left, f.Source());
    ResultTable b = EvaluateEntries(right, f.Source());
    ASSERT_GT(a.entries.size(), 10u);
    ExpectSameEntries(a, b, [](const DocExprNode *x, const DocExprNode *y) { return x->node_word == y->node_word; });
    // Far longer than any nesting allowed.
    DocExprNode *chain = nullptr;
    for (int i = 0; i < 20000; i++) {
        DocExprNode *leaf = Word(ar, "w" + std::to_string(i % n));
        chain = chain ? Node(ar, EXPR_OR, chain, leaf) : leaf;
    }
    EXPECT_EQ(EvaluateEntries(chain, f.Source()).entries.size(), a.entries.size());
}
