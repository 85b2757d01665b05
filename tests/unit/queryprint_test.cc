#include <gtest/gtest.h>

#include <string>

#include "queryparse.h"
#include "queryprint.h"
#include "queryrewrite.h"
#include "query_test_util.h"

using namespace dt;

TEST(QueryPrint, EmptyTree) { EXPECT_EQ(ExprTreeText(nullptr), "emptry tree"); }

TEST(QueryPrint, EveryKind) {
    ExprArena arena;
    DocExprNode *w = NewExprNode(arena, EXPR_WORD, "dog");
    EXPECT_EQ(ExprTreeText(w), "dog ");
    EXPECT_EQ(ExprTreeText(NewExprNode(arena, EXPR_STOPWORD, "the")), "STOPWORD ");
    EXPECT_EQ(ExprTreeText(NewExprNode(arena, EXPR_ALL, "all")), "ALL ");
    EXPECT_EQ(ExprTreeText(NewExprNode(arena, EXPR_NONE, "!")), "NONE ");
    DocExprNode *n = NewExprNode(arena, EXPR_NOT, "!");
    n->node_right = w;
    EXPECT_EQ(ExprTreeText(n), "!dog ");
    DocExprNode *a = NewExprNode(arena, EXPR_ANDNOT, "and");
    a->node_left = NewExprNode(arena, EXPR_ALL, "all");
    a->node_right = n;
    EXPECT_EQ(ExprTreeText(a), "(ALL andnot !dog )");
}

TEST(QueryPrint, LongWordsAreCut) {
    ExprArena arena;
    std::string w(150, 'q');
    EXPECT_EQ(ExprTreeText(NewExprNode(arena, EXPR_WORD, w)), std::string(99, 'q') + " ");
    EXPECT_EQ(std::string(_dt_PrintWord(std::string(99, 'z'))), std::string(99, 'z'));
}

TEST(QueryPrint, PrintsToStandardOutputWithNewline) {
    ExprArena arena;
    DocExprNode *t = _dt_ReorderExprTree(arena, _dt_MakeExprTree(arena, qtest::Stemmer(), 0, "dog and !cat", nullptr));
    testing::internal::CaptureStdout();
    PrintExprTree(t);
    PrintExprTree(nullptr);
    _dt_PrintExprTree(t);
    EXPECT_EQ(testing::internal::GetCapturedStdout(),
              "(dog andnot cat )\nemptry tree\n(dog andnot cat )");
}
