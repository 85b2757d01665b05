#include <gtest/gtest.h>

#include <string>

#include "error.h"
#include "queryparse.h"
#include "queryprint.h"
#include "queryrewrite.h"
#include "query_test_util.h"

using namespace dt;

namespace {

// The rewritten tree of a query, as printed.
std::string Rewritten(const std::string &q) {
    ExprArena arena;
    DocExprNode *t = _dt_MakeExprTree(arena, qtest::Stemmer(), 0, q.c_str(), nullptr);
    return ExprTreeText(_dt_ReorderExprTree(arena, t));
}

// Every node reachable from a rewritten tree is live and of a canonical
// kind; ALL only at the top or as the left operand of ANDNOT.
void CheckCanonical(const DocExprNode *n, bool top, bool andnotLeft) {
    ASSERT_NE(n, nullptr);
    switch (n->node_op) {
    case EXPR_WORD:
        break;
    case EXPR_ALL:
        EXPECT_TRUE(top || andnotLeft);
        break;
    case EXPR_AND:
    case EXPR_OR:
        CheckCanonical(n->node_left, false, false);
        CheckCanonical(n->node_right, false, false);
        break;
    case EXPR_ANDNOT:
        CheckCanonical(n->node_left, false, true);
        CheckCanonical(n->node_right, false, false);
        break;
    default:
        ADD_FAILURE() << "node kind " << n->node_op << " in a rewritten tree";
    }
}

}  // namespace

TEST(QueryRewrite, ListedQueries) {
    EXPECT_EQ(Rewritten("dog andnot cat"), "(dog and cat )");
    EXPECT_EQ(Rewritten("!!dog"), "dog ");
    EXPECT_EQ(Rewritten("!!!dog"), "(ALL andnot dog )");
    EXPECT_EQ(Rewritten("!dog"), "(ALL andnot dog )");
    EXPECT_EQ(Rewritten("dog and !cat"), "(dog andnot cat )");
    EXPECT_EQ(Rewritten("!cat and dog"), "(dog andnot cat )");
    EXPECT_EQ(Rewritten("!a or !b"), "(ALL andnot (a and b ))");
    EXPECT_EQ(Rewritten("!a or b"), "((ALL andnot a )or b )");
    EXPECT_EQ(Rewritten("!(a and b)"), "(ALL andnot (a and b ))");
}

TEST(QueryRewrite, StopWords) {
    EXPECT_EQ(Rewritten("the"), "ALL ");
    EXPECT_EQ(Rewritten("!the"), "emptry tree");
    EXPECT_EQ(Rewritten("the and dog"), "dog ");
    EXPECT_EQ(Rewritten("the or dog"), "ALL ");
    EXPECT_EQ(Rewritten("dog and the"), "dog ");
    EXPECT_EQ(Rewritten("dog or the"), "ALL ");
    EXPECT_EQ(Rewritten("!!the"), "ALL ");
    EXPECT_EQ(Rewritten("dog and !the"), "emptry tree");
    EXPECT_EQ(Rewritten("!the and dog"), "emptry tree");
    EXPECT_EQ(Rewritten("!the or dog"), "dog ");
    EXPECT_EQ(Rewritten("dog or !the"), "dog ");
    EXPECT_EQ(Rewritten("!the or !the"), "emptry tree");
    EXPECT_EQ(Rewritten("the and !dog"), "(ALL andnot dog )");
    EXPECT_EQ(Rewritten("!(the and dog)"), "(ALL andnot dog )");
    EXPECT_EQ(Rewritten("!(the or dog)"), "emptry tree");
}

TEST(QueryRewrite, NegationPushDown) {
    EXPECT_EQ(Rewritten("!(a or b)"), "((ALL andnot a )andnot b )");
    EXPECT_EQ(Rewritten("!(a or b or c)"), "(((ALL andnot a )andnot b )andnot c )");
    EXPECT_EQ(Rewritten("!a and !b"), "((ALL andnot a )andnot b )");
    EXPECT_EQ(Rewritten("!(!a)"), "a ");
    EXPECT_EQ(Rewritten("!(!(!a))"), "(ALL andnot a )");
    EXPECT_EQ(Rewritten("!(!a and b)"), "(a or (ALL andnot b ))");
    EXPECT_EQ(Rewritten("!!!(a and b)"), "(ALL andnot (a and b ))");
    // A negated operand that itself rewrites to a negation: they cancel.
    EXPECT_EQ(Rewritten("!(!(!(the and !dog)))"), "dog ");
    EXPECT_EQ(Rewritten("!!!(the and !dog)"), "dog ");
    EXPECT_EQ(Rewritten("!(!(the and !dog))"), "(ALL andnot dog )");
}

TEST(QueryRewrite, PositiveQueriesAreKept) {
    EXPECT_EQ(Rewritten("dog"), "dog ");
    EXPECT_EQ(Rewritten("dog and cat or bird"), "((dog and cat )or bird )");
    EXPECT_EQ(Rewritten("dog and (cat or bird)"), "(dog and (cat or bird ))");
}

TEST(QueryRewrite, NodeWordsAndCounts) {
    ExprArena arena;
    DocExprNode *t = _dt_MakeExprTree(arena, qtest::Stemmer(), 0, "dog:4 and !cat:2", nullptr);
    t = _dt_ReorderExprTree(arena, t);
    ASSERT_EQ(t->node_op, EXPR_ANDNOT);
    EXPECT_EQ(t->node_word, "and");  // the word of the node it was made from
    EXPECT_EQ(t->node_left->node_querycnt, 4);
    EXPECT_EQ(t->node_right->node_querycnt, 2);
    DocExprNode *all = _dt_ReorderExprTree(arena, _dt_MakeExprTree(arena, qtest::Stemmer(), 0, "!dog", nullptr));
    ASSERT_EQ(all->node_op, EXPR_ANDNOT);
    EXPECT_EQ(all->node_word, "!");
    EXPECT_EQ(all->node_left->node_op, EXPR_ALL);
    EXPECT_EQ(all->node_left->node_word, "all");
}

TEST(QueryRewrite, RejectsKindsTheParserDoesNotMake) {
    for (int op : {EXPR_ANDNOT, EXPR_ALL, EXPR_NONE, 8, 42}) {
        ExprArena arena;
        DocExprNode *n = NewExprNode(arena, op, "x");
        n->node_left = NewExprNode(arena, EXPR_WORD, "a");
        n->node_right = NewExprNode(arena, EXPR_WORD, "b");
        try {
            _dt_ReorderExprTree(arena, n);
            ADD_FAILURE() << "kind " << op << " accepted";
        } catch (const Error &e) {
            EXPECT_EQ(e.code(), "XD00B");
            ASSERT_NE(e.param("OP"), nullptr);
            EXPECT_EQ(*e.param("OP"), std::to_string(op));
        }
    }
}

TEST(QueryRewrite, NullInputIsNull) {
    ExprArena arena;
    EXPECT_EQ(_dt_ReorderExprTree(arena, nullptr), nullptr);
}

TEST(QueryRewrite, FreesWhatItDrops) {
    // "the and dog": the stop word and the AND node go, the word stays.
    ExprArena arena;
    DocExprNode *t = _dt_MakeExprTree(arena, qtest::Stemmer(), 0, "the and dog", nullptr);
    EXPECT_EQ(arena.live, 3);
    t = _dt_ReorderExprTree(arena, t);
    EXPECT_EQ(arena.live, 1);
    EXPECT_EQ(t->node_word, "dog");
}

TEST(QueryRewrite, ResultsAreCanonical) {
    const char *queries[] = {
        "dog", "!dog", "!!!dog", "dog and !cat", "!cat and dog", "!a or !b", "!a or b",
        "!(a and b)", "!(a or b) and !(c or !d)", "the or !dog", "!(the and !dog) or cat",
        "!((a or !b) and !(c and d)) or !e", "a and !b and !c or !d", "!!!(the and !dog)",
        "!(!(!(!(a or b))))", "(the and !a) or (the and !b)",
    };
    for (const char *q : queries) {
        ExprArena arena;
        DocExprNode *t = _dt_ReorderExprTree(arena, _dt_MakeExprTree(arena, qtest::Stemmer(), 0, q, nullptr));
        if (t) {
            SCOPED_TRACE(q);
            CheckCanonical(t, true, false);
        }
    }
}

TEST(QueryRewrite, LongChainsDoNotExhaustTheStack) {
    std::string q = "w0";
    for (int i = 1; i < 200000; i++) q += (i % 3 == 0 ? " and !w" : " or w") + std::to_string(i);
    ExprArena arena;
    DocExprNode *t = _dt_MakeExprTree(arena, qtest::Stemmer(), 0, q.c_str(), nullptr);
    t = _dt_ReorderExprTree(arena, t);
    ASSERT_NE(t, nullptr);
    std::string text = ExprTreeText(t);
    EXPECT_EQ(text.substr(text.size() - 12), "or w199999 )");
    EXPECT_EQ(text.find("w0 or w1 )or w2 )andnot w3 )"), text.find("w0 "));
}
