#include <gtest/gtest.h>

#include <string>

#include "querydoc.h"
#include "queryparse.h"
#include "queryprint.h"
#include "queryrewrite.h"
#include "query_test_util.h"

using namespace dt;

TEST(QueryDoc, WordListWithWeights) {
    ExprArena arena;
    DocExprNode *t = _dt_MakeExprFromStr(arena, qtest::Stemmer(), "dogs:3 cats");
    EXPECT_EQ(ExprTreeText(t), "(dog or cat )");
    ASSERT_EQ(t->node_op, EXPR_OR);
    EXPECT_EQ(t->node_word, "or");
    EXPECT_EQ(t->node_left->node_querycnt, 3);
    EXPECT_EQ(t->node_right->node_querycnt, 1);
}

TEST(QueryDoc, WordListIsLeftDeep) {
    ExprArena arena;
    EXPECT_EQ(ExprTreeText(_dt_MakeExprFromStr(arena, qtest::Stemmer(), "Birds, trees and (MICE) !fish")),
              "((((bird or tree )or and )or mouse )or fish )");
}

TEST(QueryDoc, StopWordsOnlyMeansEveryDocument) {
    ExprArena arena;
    DocExprNode *t = _dt_MakeExprFromStr(arena, qtest::Stemmer(), "the of");
    ASSERT_NE(t, nullptr);
    EXPECT_EQ(t->node_op, EXPR_STOPWORD);
    EXPECT_EQ(t->node_word, "");
    EXPECT_EQ(ExprTreeText(_dt_ReorderExprTree(arena, t)), "ALL ");
    t = _dt_MakeExprFromStr(arena, qtest::Stemmer(), "( ! )");
    ASSERT_NE(t, nullptr);
    EXPECT_EQ(t->node_op, EXPR_STOPWORD);
}

TEST(QueryDoc, NoTokenMeansNoDocument) {
    ExprArena arena;
    EXPECT_EQ(_dt_MakeExprFromStr(arena, qtest::Stemmer(), ""), nullptr);
    EXPECT_EQ(_dt_MakeExprFromStr(arena, qtest::Stemmer(), "123 456"), nullptr);
    EXPECT_EQ(_dt_MakeExprFromStr(arena, qtest::Stemmer(), nullptr), nullptr);
}

TEST(QueryDoc, WordListCountsNeedADigit) {
    ExprArena arena;
    DocExprNode *t = _dt_MakeExprFromStr(arena, qtest::Stemmer(), "dog:x cat: 4 bird:007");
    EXPECT_EQ(ExprTreeText(t), "(((dog or x )or cat )or bird )");
    EXPECT_EQ(t->node_right->node_querycnt, 7);
    EXPECT_EQ(t->node_left->node_right->node_querycnt, 1);
}

TEST(QueryDoc, StemTokenRules) {
    std::string term = "unchanged";
    EXPECT_FALSE(StemToken(qtest::Stemmer(), "(", &term));
    EXPECT_FALSE(StemToken(qtest::Stemmer(), "!", &term));
    EXPECT_FALSE(StemToken(qtest::Stemmer(), "The", &term));
    EXPECT_EQ(term, "unchanged");
    EXPECT_TRUE(StemToken(qtest::Stemmer(), "RUNNING", &term));
    EXPECT_EQ(term, "run");
}

TEST(QueryDoc, QueryFromDocumentInHashOrder) {
    WordHash h;
    qtest::FillHash(h, "dog dog cat ");
    std::string q = MakeQueryFromDoc(h);
    EXPECT_TRUE(q == "(dog:2 or cat:1)" || q == "(cat:1 or dog:2)") << q;
    // The order is the word hash's.
    RewindTerms(h);
    std::string first = _dt_NextTerm(h)->hashw_word;
    EXPECT_EQ(q.substr(1, first.size()), first);
}

TEST(QueryDoc, QueryFromTermlessDocument) {
    WordHash h;
    EXPECT_EQ(MakeQueryFromDoc(h), "()");
    ExprArena arena;
    EXPECT_EQ(_dt_MakeExprFromDoc(arena, h), nullptr);
}

TEST(QueryDoc, QueryFromDocumentParsesBackWithItsWeights) {
    WordHash h;
    qtest::FillHash(h, "dogs cats the dog bird dog tree trees trees ");
    std::string q = MakeQueryFromDoc(h);
    ExprArena arena;
    QueryStemmer identity;  // the words are stems already
    DocExprNode *parsed = _dt_MakeExprTree(arena, identity, 0, q.c_str(), nullptr);
    DocExprNode *built = _dt_MakeExprFromDoc(arena, h);
    EXPECT_EQ(ExprTreeText(parsed), ExprTreeText(built));
    // Walk both left spines: same words, same weights.
    int leaves = 0;
    for (DocExprNode *a = parsed, *b = built; a && b;) {
        DocExprNode *la = a->node_op == EXPR_OR ? a->node_right : a;
        DocExprNode *lb = b->node_op == EXPR_OR ? b->node_right : b;
        EXPECT_EQ(la->node_word, lb->node_word);
        EXPECT_EQ(la->node_querycnt, lb->node_querycnt);
        EXPECT_EQ(lb->node_querycnt, WordHashFind(h, lb->node_word.data(), lb->node_word.size())->hashw_cnt);
        leaves++;
        a = a->node_op == EXPR_OR ? a->node_left : nullptr;
        b = b->node_op == EXPR_OR ? b->node_left : nullptr;
    }
    EXPECT_EQ(leaves, 4);  // dog, cat, bird, tree
}

TEST(QueryDoc, DocumentTreeCutsLongStems) {
    WordHash h;
    std::string longword(1500, 'k');
    _dt_AddWordToHash(longword.c_str(), h);
    ExprArena arena;
    DocExprNode *t = _dt_MakeExprFromDoc(arena, h);
    ASSERT_NE(t, nullptr);
    EXPECT_EQ(t->node_word.size(), 1023u);
    EXPECT_EQ(t->node_querycnt, 1);
}
