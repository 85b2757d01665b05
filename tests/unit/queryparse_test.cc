#include <gtest/gtest.h>

#include <string>

#include "error.h"
#include "queryparse.h"
#include "queryprint.h"
#include "query_test_util.h"

using namespace dt;

namespace {

std::string Parsed(const std::string &q) {
    ExprArena arena;
    return ExprTreeText(_dt_MakeExprTree(arena, qtest::Stemmer(), 0, q.c_str(), nullptr));
}

// The code of the error a query raises, or "" when it parses.
std::string ParseError(const std::string &q, std::string *op = nullptr) {
    ExprArena arena;
    try {
        _dt_MakeExprTree(arena, qtest::Stemmer(), 0, q.c_str(), nullptr);
    } catch (const Error &e) {
        if (op && e.param("OP")) *op = *e.param("OP");
        return e.code();
    }
    return "";
}

}  // namespace

TEST(QueryParse, SingleWordIsStemmedAndFolded) {
    ExprArena arena;
    DocExprNode *t = _dt_MakeExprTree(arena, qtest::Stemmer(), 0, "Dogs", nullptr);
    ASSERT_NE(t, nullptr);
    EXPECT_EQ(t->node_op, EXPR_WORD);
    EXPECT_EQ(t->node_word, "dog");
    EXPECT_EQ(t->node_querycnt, 1);
    EXPECT_EQ(t->node_doccnt, 0);
    EXPECT_EQ(t->node_left, nullptr);
    EXPECT_EQ(t->node_right, nullptr);
}

TEST(QueryParse, LeftToRightWithoutPrecedence) {
    EXPECT_EQ(Parsed("a1 or b1 and c1"), "((a1 or b1 )and c1 )");
    EXPECT_EQ(Parsed("a1 and b1 or c1"), "((a1 and b1 )or c1 )");
    EXPECT_EQ(Parsed("a1 and (b1 or c1)"), "(a1 and (b1 or c1 ))");
}

TEST(QueryParse, OperatorsByLeadingLetters) {
    ExprArena arena;
    DocExprNode *t = _dt_MakeExprTree(arena, qtest::Stemmer(), 0, "dog andnot cat", nullptr);
    EXPECT_EQ(t->node_op, EXPR_AND);
    EXPECT_EQ(t->node_word, "andnot");  // the token as written
    EXPECT_EQ(Parsed("dog anders cat"), "(dog and cat )");
    EXPECT_EQ(Parsed("dog order cat"), "(dog or cat )");
    EXPECT_EQ(Parsed("dog or cat"), "(dog or cat )");
}

TEST(QueryParse, CapitalOperatorsAreUnknown) {
    std::string op;
    EXPECT_EQ(ParseError("dog AND cat", &op), "XD00K");
    EXPECT_EQ(op, "AND");
    EXPECT_EQ(ParseError("dog OR cat", &op), "XD00K");
    EXPECT_EQ(op, "OR");
}

TEST(QueryParse, BangRuns) {
    EXPECT_EQ(Parsed("!dog"), "!dog ");
    EXPECT_EQ(Parsed("!!dog"), "dog ");
    EXPECT_EQ(Parsed("!!!dog"), "!dog ");
    EXPECT_EQ(Parsed("!!!!dog"), "dog ");
    EXPECT_EQ(Parsed("!(dog or cat)"), "!(dog or cat )");
    EXPECT_EQ(Parsed("! ! (dog)"), "dog ");
}

TEST(QueryParse, StopWordNode) {
    ExprArena arena;
    DocExprNode *t = _dt_MakeExprTree(arena, qtest::Stemmer(), 0, "The", nullptr);
    EXPECT_EQ(t->node_op, EXPR_STOPWORD);
    EXPECT_EQ(t->node_word, "the");
    EXPECT_EQ(Parsed("the and dog"), "(STOPWORD and dog )");
}

TEST(QueryParse, Counts) {
    ExprArena arena;
    DocExprNode *t = _dt_MakeExprTree(arena, qtest::Stemmer(), 0, "dog:5", nullptr);
    EXPECT_EQ(t->node_op, EXPR_WORD);
    EXPECT_EQ(t->node_querycnt, 5);
    t = _dt_MakeExprTree(arena, qtest::Stemmer(), 0, "dog:12 and cat:3 or the:7", nullptr);
    ASSERT_EQ(t->node_op, EXPR_OR);
    EXPECT_EQ(t->node_right->node_op, EXPR_STOPWORD);
    EXPECT_EQ(t->node_right->node_querycnt, 7);  // a stop word keeps its count
    EXPECT_EQ(t->node_left->node_left->node_querycnt, 12);
    EXPECT_EQ(t->node_left->node_right->node_querycnt, 3);
    // The count must follow the word at once.
    t = _dt_MakeExprTree(arena, qtest::Stemmer(), 0, "dog :5", nullptr);
    EXPECT_EQ(t->node_querycnt, 1);
    // Huge counts are clamped rather than wrapped.
    t = _dt_MakeExprTree(arena, qtest::Stemmer(), 0, "dog:99999999999999999999", nullptr);
    EXPECT_EQ(t->node_querycnt, 2147483647);
}

TEST(QueryParse, CountWithoutDigitIsAnOperatorError) {
    std::string op;
    EXPECT_EQ(ParseError("dog:x", &op), "XD00K");
    EXPECT_EQ(op, "x");
}

TEST(QueryParse, MissingOperand) {
    EXPECT_EQ(ParseError(""), "XD00I");
    EXPECT_EQ(ParseError("   "), "XD00I");
    EXPECT_EQ(ParseError("123 ,;"), "XD00I");
    EXPECT_EQ(ParseError("dog and"), "XD00I");
    EXPECT_EQ(ParseError("dog or ("), "XD00I");
}

TEST(QueryParse, LenientOperands) {
    // After a run of "!" whatever comes is a word, even the end of the text.
    EXPECT_EQ(ParseError("dog and !"), "");
    ExprArena arena;
    DocExprNode *t = _dt_MakeExprTree(arena, qtest::Stemmer(), 0, "dog and !", nullptr);
    ASSERT_EQ(t->node_op, EXPR_AND);
    ASSERT_EQ(t->node_right->node_op, EXPR_NOT);
    EXPECT_EQ(t->node_right->node_right->node_op, EXPR_WORD);
    EXPECT_EQ(t->node_right->node_right->node_word, "");
    // A ")" in operand position is a word holding ")".
    t = _dt_MakeExprTree(arena, qtest::Stemmer(), 0, "(dog and ))", nullptr);
    ASSERT_EQ(t->node_op, EXPR_AND);
    EXPECT_EQ(t->node_right->node_word, ")");
}

TEST(QueryParse, Parentheses) {
    EXPECT_EQ(ParseError("(dog"), "XD00J");
    EXPECT_EQ(ParseError("dog)"), "XD00J");
    EXPECT_EQ(ParseError("((dog)"), "XD00J");
    EXPECT_EQ(ParseError("()"), "XD00J");  // ")" is the operand, then the text ends
    EXPECT_EQ(Parsed("((dog))"), "dog ");
}

TEST(QueryParse, UnknownOperator) {
    std::string op;
    EXPECT_EQ(ParseError("dog but cat", &op), "XD00K");
    EXPECT_EQ(op, "but");
    EXPECT_EQ(ParseError("dog cat", &op), "XD00K");
    EXPECT_EQ(op, "cat");
    EXPECT_EQ(ParseError("dog (cat)", &op), "XD00K");
    EXPECT_EQ(op, "(");
    EXPECT_EQ(ParseError("dog !cat", &op), "XD00K");
    EXPECT_EQ(op, "!");
}

TEST(QueryParse, ErrorMessagesNameTheOperator) {
    try {
        ExprArena arena;
        _dt_MakeExprTree(arena, qtest::Stemmer(), 0, "dog but cat", nullptr);
        FAIL();
    } catch (const Error &e) {
        EXPECT_NE(e.message().find("\"but\""), std::string::npos) << e.message();
    }
}

TEST(QueryParse, WordTooLong) {
    std::string q = "dog and " + std::string(1025, 'x');
    EXPECT_EQ(ParseError(q), "XD00L");
    EXPECT_EQ(ParseError("dog and " + std::string(1024, 'x')), "");
}

TEST(QueryParse, IndexIsAdvanced) {
    ExprArena arena;
    int idx = 4;
    const char *s = "xxx (dog or cat) and bird";
    // Parsing a nested expression from a position stops after its ")".
    DocExprNode *t = _dt_MakeExprTree(arena, qtest::Stemmer(), 1, s, &(idx = 5));
    EXPECT_EQ(ExprTreeText(t), "(dog or cat )");
    EXPECT_EQ(idx, 16);
}

TEST(QueryParse, NestingLimit) {
    std::string deep(kMaxQueryNesting + 5, '(');
    deep += "dog";
    deep += std::string(kMaxQueryNesting + 5, ')');
    try {
        ExprArena arena;
        _dt_MakeExprTree(arena, qtest::Stemmer(), 0, deep.c_str(), nullptr);
        FAIL() << "deep nesting accepted";
    } catch (const Error &e) {
        EXPECT_EQ(e.code(), "54001");
    }
    std::string ok(kMaxQueryNesting, '(');
    ok += "dog";
    ok += std::string(kMaxQueryNesting, ')');
    EXPECT_EQ(Parsed(ok), "dog ");
}
