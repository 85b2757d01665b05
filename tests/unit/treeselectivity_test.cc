#include <gtest/gtest.h>

#include <cmath>
#include <map>
#include <string>
#include <vector>

#include "exprtree.h"
#include "queryeval.h"
#include "query_test_util.h"
#include "treeselectivity.h"

using namespace dt;

namespace {

// The fraction of a query with fixed word fractions (missing words: 0).
double Fraction(const std::string &query, const std::map<std::string, double> &f) {
    ExprArena arena;
    DocExprNode *tree = ContainsQuery(arena, qtest::Stemmer(), query.c_str());
    return TreeFraction(tree, [&](const DocExprNode &w) {
        auto it = f.find(w.node_word);
        return it == f.end() ? 0.0 : it->second;
    });
}

TEST(TreeSelectivity, CombinesWordsAsIndependent) {
    std::map<std::string, double> f{{"dog", 0.5}, {"cat", 0.2}, {"fish", 0.1}};
    EXPECT_DOUBLE_EQ(Fraction("dog", f), 0.5);
    EXPECT_DOUBLE_EQ(Fraction("dog and cat", f), 0.1);
    EXPECT_DOUBLE_EQ(Fraction("dog or cat", f), 0.6);
    EXPECT_DOUBLE_EQ(Fraction("dog and !cat", f), 0.4);
    EXPECT_NEAR(Fraction("(dog or cat) and fish", f), 0.06, 1e-12);
    EXPECT_DOUBLE_EQ(Fraction("unicorn", f), 0.0);
}

TEST(TreeSelectivity, EverythingAndNothing) {
    ExprArena arena;
    EXPECT_DOUBLE_EQ(TreeFraction(nullptr, [](const DocExprNode &) { return 0.5; }), 0.0);
    EXPECT_DOUBLE_EQ(TreeFraction(NewExprNode(arena, EXPR_ALL, ""), [](const DocExprNode &) { return 0.5; }), 1.0);
    EXPECT_DOUBLE_EQ(TreeFraction(NewExprNode(arena, EXPR_NONE, ""), [](const DocExprNode &) { return 0.5; }), 0.0);
    DocExprNode *n = NewExprNode(arena, EXPR_NOT, "");
    n->node_right = NewExprNode(arena, EXPR_WORD, "dog");
    EXPECT_DOUBLE_EQ(TreeFraction(n, [](const DocExprNode &) { return 0.25; }), 0.75);
}

TEST(TreeSelectivity, WordFractionsAreClamped) {
    ExprArena arena;
    DocExprNode *w = NewExprNode(arena, EXPR_WORD, "dog");
    EXPECT_DOUBLE_EQ(TreeFraction(w, [](const DocExprNode &) { return 7.0; }), 1.0);
    EXPECT_DOUBLE_EQ(TreeFraction(w, [](const DocExprNode &) { return -1.0; }), 0.0);
    EXPECT_DOUBLE_EQ(TreeFraction(w, [](const DocExprNode &) { return 0.0 / 0.0; }), 0.0);
}

TEST(TreeSelectivity, LongChainsNeedNoRecursion) {
    // 200,000 words or'ed in a left-deep chain, each matching 1 in 100,000.
    ExprArena arena;
    DocExprNode *tree = NewExprNode(arena, EXPR_WORD, "w");
    for (int i = 0; i < 200000; i++) {
        DocExprNode *o = NewExprNode(arena, EXPR_OR, "");
        o->node_left = tree;
        o->node_right = NewExprNode(arena, EXPR_WORD, "w");
        tree = o;
    }
    double f = TreeFraction(tree, [](const DocExprNode &) { return 1e-5; });
    EXPECT_NEAR(f, 1.0 - std::pow(1.0 - 1e-5, 200001), 1e-9);
    int leaves = 0;
    ForEachLeaf(tree, [&](const DocExprNode &) { leaves++; });
    EXPECT_EQ(leaves, 200001);
}

TEST(TreeSelectivity, LeavesLeftToRight) {
    ExprArena arena;
    DocExprNode *tree = ContainsQuery(arena, qtest::Stemmer(), "(dog or cat) andnot fish");
    std::vector<std::string> words;
    ForEachLeaf(tree, [&](const DocExprNode &n) { words.push_back(n.node_word); });
    EXPECT_EQ(words, (std::vector<std::string>{"dog", "cat", "fish"}));
}

}  // namespace
