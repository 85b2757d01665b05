// Result sets of index scans and the evaluation of query trees over them.
#include <gtest/gtest.h>

#include <map>

#include "error.h"
#include "exprnodes.h"
#include "resultset.h"

using namespace dt;

namespace {
struct Fake {
    std::map<std::string, RowSet> terms;
    RowSet all;
    std::vector<std::string> asked;
    RowSource Source() {
        RowSource s;
        s.rowsWithTerm = [this](const std::string &t) {
            asked.push_back(t);
            auto it = terms.find(t);
            return it == terms.end() ? RowSet{} : it->second;
        };
        s.allRows = [this] {
            asked.push_back("*");
            return all;
        };
        return s;
    }
};
}  // namespace

TEST(ResultSet, RowKeysSortInRowOrder) {
    EXPECT_LT(MakeRowKey(1, 65535), MakeRowKey(2, 1));
    EXPECT_LT(MakeRowKey(7, 3), MakeRowKey(7, 4));
    EXPECT_EQ(RowKeyBlock(MakeRowKey(123456, 9)), 123456u);
    EXPECT_EQ(RowKeyOffset(MakeRowKey(123456, 9)), 9u);
}

TEST(ResultSet, SetAlgebra) {
    RowSet a{1, 3, 5, 7}, b{3, 4, 5};
    EXPECT_EQ(RowSetAnd(a, b), (RowSet{3, 5}));
    EXPECT_EQ(RowSetOr(a, b), (RowSet{1, 3, 4, 5, 7}));
    EXPECT_EQ(RowSetAndNot(a, b), (RowSet{1, 7}));
}

TEST(ResultSet, EvaluatesTrees) {
    ExprArena a;
    Fake f;
    f.terms = {{"dog", {1, 2, 3}}, {"cat", {2, 3, 4}}, {"fish", {3}}};
    f.all = {1, 2, 3, 4, 5};
    EXPECT_EQ(EvaluateRows(Node(a, EXPR_AND, Word(a, "dog"), Word(a, "cat")), f.Source()), (RowSet{2, 3}));
    EXPECT_EQ(EvaluateRows(Node(a, EXPR_OR, Word(a, "dog"), Word(a, "fish")), f.Source()), (RowSet{1, 2, 3}));
    EXPECT_EQ(EvaluateRows(Node(a, EXPR_ANDNOT, Word(a, "cat"), Word(a, "fish")), f.Source()), (RowSet{2, 4}));
    DocExprNode *all = Node(a, EXPR_ALL, nullptr, nullptr);
    EXPECT_EQ(EvaluateRows(Node(a, EXPR_ANDNOT, all, Word(a, "dog")), f.Source()), (RowSet{4, 5}));
    EXPECT_EQ(EvaluateRows(all, f.Source()), f.all);
    EXPECT_TRUE(EvaluateRows(nullptr, f.Source()).empty());
}

TEST(ResultSet, AndSkipsItsRightSideWhenTheLeftIsEmpty) {
    ExprArena a;
    Fake f;
    f.terms = {{"dog", {1}}};
    EXPECT_TRUE(EvaluateRows(Node(a, EXPR_AND, Word(a, "unicorn"), Word(a, "dog")), f.Source()).empty());
    EXPECT_EQ(f.asked, (std::vector<std::string>{"unicorn"}));
    f.asked.clear();
    EXPECT_TRUE(EvaluateRows(Node(a, EXPR_ANDNOT, Word(a, "unicorn"), Word(a, "dog")), f.Source()).empty());
    EXPECT_EQ(f.asked, (std::vector<std::string>{"unicorn"}));
    EXPECT_EQ(EvaluateRows(Node(a, EXPR_ANDNOT, Word(a, "dog"), Word(a, "unicorn")), f.Source()), (RowSet{1}));
}

TEST(ResultSet, UnexpectedNodeIsXD00B) {
    ExprArena a;
    Fake f;
    try {
        EvaluateRows(Node(a, EXPR_STOPWORD, nullptr, nullptr), f.Source());
        FAIL() << "no error";
    } catch (const Error &e) {
        EXPECT_EQ(e.code(), "XD00B");
    }
}

TEST(ResultSet, ProbesTheLargerSideOfAnAnd) {
    ExprArena a;
    Fake f;
    f.terms = {{"big", {1, 2, 3, 4, 5, 6, 7, 8}}, {"small", {2, 7, 9}}, {"other", {7}}};
    RowSource s = f.Source();
    std::vector<std::string> probed;
    s.rowsWithTermAmong = [&](const std::string &t, const RowSet &among) {
        probed.push_back(t);
        return RowSetAnd(f.terms[t], among);
    };
    s.termCount = [&](const std::string &t) { return (int64_t)f.terms[t].size(); };
    // The smaller list is read, the larger one only probed for its rows.
    EXPECT_EQ(EvaluateRows(Node(a, EXPR_AND, Word(a, "big"), Word(a, "small")), s), (RowSet{2, 7}));
    EXPECT_EQ(f.asked, (std::vector<std::string>{"small"}));
    EXPECT_EQ(probed, (std::vector<std::string>{"big"}));
    // A difference probes its right side.
    f.asked.clear();
    probed.clear();
    EXPECT_EQ(EvaluateRows(Node(a, EXPR_ANDNOT, Word(a, "small"), Word(a, "other")), s), (RowSet{2, 9}));
    EXPECT_EQ(f.asked, (std::vector<std::string>{"small"}));
    EXPECT_EQ(probed, (std::vector<std::string>{"other"}));
    // An empty left side is not probed.
    f.asked.clear();
    probed.clear();
    EXPECT_TRUE(EvaluateRows(Node(a, EXPR_AND, Word(a, "none"), Node(a, EXPR_OR, Word(a, "big"), Word(a, "small"))), s).empty());
    EXPECT_TRUE(probed.empty());
}

// The terms of a whole document make a chain of ORs thousands long: it is
// one union, not nested calls (nor a nesting error).
TEST(ResultSet, LongOrChainIsOneUnion) {
    ExprArena a;
    Fake f;
    const int n = 20000;
    DocExprNode *tree = nullptr;
    RowSet want;
    for (int i = 0; i < n; i++) {
        std::string w = "w" + std::to_string(i);
        f.terms[w] = {(RowKey)(i % 997), (RowKey)(5000 + i)};
        DocExprNode *leaf = Word(a, w);
        tree = tree ? Node(a, EXPR_OR, tree, leaf) : leaf;
    }
    for (int i = 0; i < 997; i++) want.push_back((RowKey)i);
    for (int i = 0; i < n; i++) want.push_back((RowKey)(5000 + i));
    RowSet got = EvaluateRows(tree, f.Source());
    EXPECT_EQ(got, want);
    // Every term read once, left to right.
    ASSERT_EQ(f.asked.size(), (size_t)n);
    EXPECT_EQ(f.asked.front(), "w0");
    EXPECT_EQ(f.asked.back(), "w" + std::to_string(n - 1));
    // A chain under an AND and beside other operators.
    f.asked.clear();
    f.terms["x"] = {3, 5003, 999999};
    EXPECT_EQ(EvaluateRows(Node(a, EXPR_AND, Word(a, "x"), tree), f.Source()), (RowSet{3, 5003}));
}
