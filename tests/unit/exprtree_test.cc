#include <gtest/gtest.h>

#include <string>

#include "exprtree.h"
#include "query_test_util.h"
#include "queryeval.h"
#include "queryprint.h"
#include "treeselectivity.h"

using namespace dt;

namespace {

TEST(CopyExprTree, SameTreeInAnotherArena) {
    ExprArena a, b;
    DocExprNode *tree = ContainsQuery(a, qtest::Stemmer(), "(dogs or cats) andnot mice and (running or trees)");
    ASSERT_NE(tree, nullptr);
    DocExprNode *copy = CopyExprTree(b, tree);
    ASSERT_NE(copy, nullptr);
    EXPECT_EQ(ExprTreeText(copy), ExprTreeText(tree));
    EXPECT_EQ(b.live, a.live);
    // The copy's nodes are its own: changing them leaves the original.
    ForEachLeaf(copy, [](const DocExprNode &n) { const_cast<DocExprNode &>(n).node_word += "x"; });
    EXPECT_NE(ExprTreeText(copy), ExprTreeText(tree));
}

TEST(CopyExprTree, KeepsCountsAndWeights) {
    ExprArena a, b;
    DocExprNode *l = NewExprNode(a, EXPR_WORD, "dog");
    DocExprNode *r = NewExprNode(a, EXPR_WORD, "cat");
    l->node_doccnt = 1;
    l->node_wordcnt = 7;
    r->node_querycnt = 3;
    DocExprNode *top = NewExprNode(a, EXPR_OR, "or");
    top->node_left = l;
    top->node_right = r;
    DocExprNode *c = CopyExprTree(b, top);
    ASSERT_NE(c->node_left, nullptr);
    ASSERT_NE(c->node_right, nullptr);
    EXPECT_NE(c->node_left, l);
    EXPECT_EQ(c->node_op, EXPR_OR);
    EXPECT_EQ(c->node_left->node_word, "dog");
    EXPECT_EQ(c->node_left->node_doccnt, 1);
    EXPECT_EQ(c->node_left->node_wordcnt, 7);
    EXPECT_EQ(c->node_right->node_querycnt, 3);
    EXPECT_EQ(b.live, 3);
}

TEST(CopyExprTree, SharedNodeCopiedOnce) {
    ExprArena a, b;
    DocExprNode *w = NewExprNode(a, EXPR_WORD, "dog");
    DocExprNode *top = NewExprNode(a, EXPR_AND, "and");
    top->node_left = w;
    top->node_right = w;
    DocExprNode *c = CopyExprTree(b, top);
    EXPECT_EQ(c->node_left, c->node_right);
    EXPECT_NE(c->node_left, w);
    EXPECT_EQ(b.live, 2);

    // The same after many other nodes (past the short list of copies).
    ExprArena c2, d2;
    DocExprNode *shared = NewExprNode(c2, EXPR_WORD, "cat");
    DocExprNode *chain = NewExprNode(c2, EXPR_WORD, "w0");
    for (int i = 1; i < 60; i++) {
        DocExprNode *t = NewExprNode(c2, EXPR_OR, "or");
        t->node_left = NewExprNode(c2, EXPR_WORD, "w" + std::to_string(i));
        t->node_right = chain;
        chain = t;
    }
    DocExprNode *both = NewExprNode(c2, EXPR_AND, "and");
    both->node_left = NewExprNode(c2, EXPR_AND, "and");
    both->node_left->node_left = chain;
    both->node_left->node_right = shared;
    both->node_right = shared;
    DocExprNode *cc = CopyExprTree(d2, both);
    EXPECT_EQ(cc->node_right, cc->node_left->node_right);
    EXPECT_EQ(cc->node_right->node_word, "cat");
    EXPECT_EQ(d2.live, c2.live);
}

TEST(CopyExprTree, NullAndLongChains) {
    ExprArena a, b;
    EXPECT_EQ(CopyExprTree(b, nullptr), nullptr);
    EXPECT_EQ(b.live, 0);
    // A left-deep chain far deeper than any recursion could follow.
    DocExprNode *tree = NewExprNode(a, EXPR_WORD, "w0");
    for (int i = 1; i < 200000; i++) {
        DocExprNode *t = NewExprNode(a, EXPR_OR, "or");
        t->node_left = tree;
        t->node_right = NewExprNode(a, EXPR_WORD, "w" + std::to_string(i));
        tree = t;
    }
    DocExprNode *c = CopyExprTree(b, tree);
    EXPECT_EQ(b.live, a.live);
    int depth = 0;
    for (const DocExprNode *n = c; n->node_op == EXPR_OR; n = n->node_left) depth++;
    EXPECT_EQ(depth, 199999);
}

}  // namespace
