#include <gtest/gtest.h>

#include <cctype>
#include <random>
#include <set>
#include <string>
#include <vector>

#include "error.h"
#include "queryeval.h"
#include "queryparse.h"
#include "queryprint.h"
#include "queryrewrite.h"
#include "query_test_util.h"

using namespace dt;

namespace {

// Contains(doc, query) for a text, also reporting whether the document was
// opened at all.
bool Contains(const std::string &text, const std::string &query, int *opens = nullptr) {
    ExprArena arena;
    DocExprNode *tree = ContainsQuery(arena, qtest::Stemmer(), query.c_str());
    qtest::LazyDoc d(text);
    bool r = QueryMatches(tree, d.Source());
    if (opens) *opens = d.opens;
    return r;
}

bool ContainsWords(const std::string &text, const std::string &words) {
    ExprArena arena;
    DocExprNode *tree = ContainsWordsQuery(arena, qtest::Stemmer(), words.c_str());
    qtest::LazyDoc d(text);
    return QueryMatches(tree, d.Source());
}

bool DocLike(const std::string &text, const std::string &other, int *opens = nullptr) {
    WordHash h;
    qtest::FillHash(h, other);
    ExprArena arena;
    DocExprNode *tree = DocLikeQuery(arena, h);
    qtest::LazyDoc d(text);
    bool r = QueryMatches(tree, d.Source());
    if (opens) *opens = d.opens;
    return r;
}

}  // namespace

TEST(QueryEval, StopWordMatchesEveryDocument) {
    int opens = -1;
    EXPECT_TRUE(Contains("dogs and cats ", "the", &opens));
    EXPECT_EQ(opens, 0);
    EXPECT_TRUE(Contains("", "the"));
    EXPECT_TRUE(Contains("mice ", "the or dog"));
    EXPECT_TRUE(Contains("dogs ", "the and dog"));
    EXPECT_FALSE(Contains("mice ", "the and dog"));
}

TEST(QueryEval, NegatedStopWordNeedsNoDocument) {
    int opens = -1;
    EXPECT_FALSE(Contains("the dog ", "!the", &opens));
    EXPECT_EQ(opens, 0);
    EXPECT_FALSE(Contains("", "!the", &opens));
    EXPECT_EQ(opens, 0);
}

TEST(QueryEval, AndNot) {
    EXPECT_TRUE(Contains("Two dogs barked ", "dog and !cat"));
    EXPECT_FALSE(Contains("Two dogs and a cat ", "dog and !cat"));
    EXPECT_FALSE(Contains("Two dogs and cats ", "dog and !cat"));
    EXPECT_TRUE(Contains("Two dogs barked ", "!cat and dog"));
    EXPECT_TRUE(Contains("nothing here ", "!dog"));
    EXPECT_FALSE(Contains("a dog here ", "!dog"));
}

TEST(QueryEval, NegationForms) {
    EXPECT_TRUE(Contains("dog ", "!!dog"));
    EXPECT_FALSE(Contains("dog ", "!!!dog"));
    EXPECT_TRUE(Contains("dog ", "!dog or !cat"));
    EXPECT_FALSE(Contains("dog cat ", "!dog or !cat"));
    EXPECT_TRUE(Contains("bird ", "!(dog or cat)"));
    EXPECT_TRUE(Contains("dog ", "dog andnot cat") == false);  // andnot is and
    EXPECT_TRUE(Contains("dog cat ", "dog andnot cat"));
}

TEST(QueryEval, CountsDoNotChangeTheResult) {
    EXPECT_TRUE(Contains("dog ", "dog:5"));
    EXPECT_FALSE(Contains("cat ", "dog:5"));
}

TEST(QueryEval, ContainsWordsIgnoresOptions) {
    EXPECT_TRUE(ContainsWords("a cat sat ", "=10|%50|dog cat"));
    EXPECT_TRUE(ContainsWords("dogs ", "=10|%50|dog cat"));
    EXPECT_FALSE(ContainsWords("mice ", "=10|%50|dog cat"));
    EXPECT_TRUE(ContainsWords("mice ", "the of"));   // every document
    EXPECT_FALSE(ContainsWords("mice ", ""));        // no document
    EXPECT_FALSE(ContainsWords("mice ", "=3|123"));  // no document
}

TEST(QueryEval, DocLike) {
    int opens = -1;
    EXPECT_FALSE(DocLike("dog cat ", "", &opens));  // a termless document is like nothing
    EXPECT_EQ(opens, 0);
    EXPECT_FALSE(DocLike("dog cat ", "the of in ", &opens));
    EXPECT_EQ(opens, 0);
    EXPECT_TRUE(DocLike("dog cat ", "birds and cats "));
    EXPECT_FALSE(DocLike("dog cat ", "birds and mice "));
    EXPECT_FALSE(DocLike("", "birds "));
}

TEST(QueryEval, ReadsOnlyAsFarAsNeeded) {
    ExprArena arena;
    DocExprNode *tree = ContainsQuery(arena, qtest::Stemmer(), "dog or cat");
    qtest::LazyDoc d("dog one two three cat four ");
    EXPECT_TRUE(QueryMatches(tree, d.Source()));
    EXPECT_EQ(d.pos, 1u);  // "dog" decided it; "cat" was never asked
    EXPECT_EQ(tree->node_left->node_doccnt, 1);
    EXPECT_EQ(tree->node_right->node_doccnt, 0);

    // A word read earlier is found again without reading.
    DocExprNode *t2 = ContainsQuery(arena, qtest::Stemmer(), "three and dog");
    EXPECT_TRUE(QueryMatches(t2, d.Source()));
    EXPECT_EQ(d.pos, 4u);
    DocExprNode *t3 = ContainsQuery(arena, qtest::Stemmer(), "one");
    EXPECT_TRUE(QueryMatches(t3, d.Source()));
    EXPECT_EQ(d.pos, 4u);
    // A missing word reads to the end.
    DocExprNode *t4 = ContainsQuery(arena, qtest::Stemmer(), "bird");
    EXPECT_FALSE(QueryMatches(t4, d.Source()));
    EXPECT_EQ(d.pos, d.terms.size());
}

TEST(QueryEval, LazyLookupCountsWhatItReads) {
    WordHash seen;
    std::vector<std::string> terms = {"a1", "b1", "a1", "c1"};
    size_t pos = 0;
    auto next = [&](std::string *t) {
        if (pos >= terms.size()) return false;
        *t = terms[pos++];
        return true;
    };
    EXPECT_TRUE(LazyWordLookup(seen, next, "b1"));
    EXPECT_EQ(pos, 2u);
    EXPECT_TRUE(LazyWordLookup(seen, next, "c1"));
    EXPECT_EQ(pos, 4u);
    EXPECT_EQ(WordHashFind(seen, "a1", 2)->hashw_cnt, 2);
    EXPECT_FALSE(LazyWordLookup(seen, next, "d1"));
    EXPECT_TRUE(LazyWordLookup(seen, next, "a1"));
}

TEST(QueryEval, UnexpectedKindsRaise) {
    for (int op : {EXPR_STOPWORD, EXPR_NONE, EXPR_NOT, 9, kExprFreed}) {
        ExprArena arena;
        DocExprNode *n = NewExprNode(arena, op, "x");
        n->node_right = NewExprNode(arena, EXPR_WORD, "y");
        qtest::LazyDoc d("x y ");
        try {
            _dt_DocExprCmp(n, d.Source());
            ADD_FAILURE() << "kind " << op << " evaluated";
        } catch (const Error &e) {
            EXPECT_EQ(e.code(), "XD00B");
            EXPECT_EQ(*e.param("OP"), std::to_string(op));
        }
    }
}

TEST(QueryEval, LongDocumentQuery) {
    // A document of many distinct terms makes a long left-deep chain.
    WordHash other;
    std::string text;
    for (int i = 0; i < 100000; i++) _dt_AddWordToHash(("w" + std::to_string(i)).c_str(), other);
    ExprArena arena;
    DocExprNode *tree = DocLikeQuery(arena, other);
    qtest::LazyDoc d("zebra w77777 ");
    EXPECT_TRUE(QueryMatches(tree, d.Source()));
    qtest::LazyDoc e("zebra ");
    EXPECT_FALSE(QueryMatches(tree, e.Source()));
}

// ---- property test: module evaluation against an independent reference ----

namespace {

// A query as generated: a chain of operands joined left to right.
struct GenOperand;
struct GenExpr {
    std::vector<GenOperand> operands;
    std::vector<bool> isAnd;  // operator before operands[i + 1]
};
struct GenOperand {
    int bangs = 0;
    bool group = false;
    std::string word;
    GenExpr sub;
};

const std::vector<std::string> kQueryWords = {"dog", "Dogs", "cat", "CATS", "bird", "birds", "mouse",
                                              "mice", "tree", "fish", "the", "of", "The", "run", "Running"};
const std::vector<std::string> kDocWords = {"dog", "dogs", "cat", "bird", "mice", "mouse", "tree",
                                            "trees", "fish", "the", "of", "ran", "zebra"};
const std::vector<std::string> kAndOps = {"and", "andnot", "anders"};
const std::vector<std::string> kOrOps = {"or", "order"};

// Shape of the generated queries; the second set nests more and negates
// more, which exercises the negation push-down.
struct GenShape {
    int maxDepth = 3;
    int groupOneIn = 4;
    int bangPercent = 40;
};
GenShape gShape;

GenExpr Generate(std::mt19937 &rng, int depth);

GenOperand GenerateOperand(std::mt19937 &rng, int depth) {
    GenOperand o;
    if ((int)(rng() % 100) < gShape.bangPercent) {
        int b = (int)(rng() % 4);
        o.bangs = b < 2 ? 1 : b < 3 ? 2 : 3;
    }
    if (depth < gShape.maxDepth && rng() % gShape.groupOneIn == 0) {
        o.group = true;
        o.sub = Generate(rng, depth + 1);
    } else {
        o.word = kQueryWords[rng() % kQueryWords.size()];
    }
    return o;
}

GenExpr Generate(std::mt19937 &rng, int depth) {
    GenExpr e;
    int n = 1 + (int)(rng() % 4);
    for (int i = 0; i < n; i++) {
        e.operands.push_back(GenerateOperand(rng, depth));
        if (i > 0) e.isAnd.push_back(rng() % 2 == 0);
    }
    return e;
}

std::string Render(std::mt19937 &rng, const GenExpr &e);

std::string RenderOperand(std::mt19937 &rng, const GenOperand &o) {
    std::string s;
    for (int i = 0; i < o.bangs; i++) s += rng() % 2 ? "!" : "! ";
    if (o.group) return s + "(" + Render(rng, o.sub) + ")";
    s += o.word;
    if (rng() % 5 == 0) s += ":" + std::to_string(rng() % 20);
    return s;
}

std::string Render(std::mt19937 &rng, const GenExpr &e) {
    std::string s = RenderOperand(rng, e.operands[0]);
    for (size_t i = 1; i < e.operands.size(); i++) {
        const auto &ops = e.isAnd[i - 1] ? kAndOps : kOrOps;
        s += " " + ops[rng() % ops.size()] + " ";
        s += RenderOperand(rng, e.operands[i]);
    }
    return s;
}

// The reference: set semantics straight from the generated query.  A stop
// word stands for every document.
bool RefWord(const std::string &w, const std::set<std::string> &doc) {
    std::string lower = w;
    for (char &c : lower) c = (char)std::tolower((unsigned char)c);
    if (qtest::StopWords().count(lower)) return true;
    bool stop = false;
    return doc.count(qtest::TestStem(lower, &stop)) > 0;
}

bool RefEval(const GenExpr &e, const std::set<std::string> &doc);

bool RefOperand(const GenOperand &o, const std::set<std::string> &doc) {
    bool v = o.group ? RefEval(o.sub, doc) : RefWord(o.word, doc);
    return o.bangs % 2 ? !v : v;
}

bool RefEval(const GenExpr &e, const std::set<std::string> &doc) {
    bool v = RefOperand(e.operands[0], doc);
    for (size_t i = 1; i < e.operands.size(); i++) {
        bool x = RefOperand(e.operands[i], doc);
        v = e.isAnd[i - 1] ? (v && x) : (v || x);
    }
    return v;
}

// A second reference: the parser's tree before the rewrite, evaluated
// recursively with the same set semantics.
bool RawEval(const DocExprNode *n, const std::set<std::string> &doc) {
    switch (n->node_op) {
    case EXPR_WORD: return doc.count(n->node_word) > 0;
    case EXPR_STOPWORD: return true;
    case EXPR_AND: return RawEval(n->node_left, doc) && RawEval(n->node_right, doc);
    case EXPR_OR: return RawEval(n->node_left, doc) || RawEval(n->node_right, doc);
    case EXPR_NOT: return !RawEval(n->node_right, doc);
    default: ADD_FAILURE() << "parser made kind " << n->node_op; return false;
    }
}

// A copy of a parsed tree (the rewrite changes nodes in place).
DocExprNode *Copy(ExprArena &arena, const DocExprNode *n) {
    if (!n) return nullptr;
    DocExprNode *c = NewExprNode(arena, n->node_op, n->node_word);
    c->node_querycnt = n->node_querycnt;
    c->node_left = Copy(arena, n->node_left);
    c->node_right = Copy(arena, n->node_right);
    return c;
}

}  // namespace

namespace {
void RunProperty(unsigned seed, GenShape shape) {
    gShape = shape;
    std::mt19937 rng(seed);
    // Fixed documents: random bags of words (the text reader drops stop
    // words and stems the rest).
    std::vector<std::string> texts;
    for (int i = 0; i < 25; i++) {
        std::string t;
        int n = (int)(rng() % 8);
        for (int k = 0; k < n; k++) t += kDocWords[rng() % kDocWords.size()] + " ";
        texts.push_back(t);
    }
    std::vector<std::set<std::string>> docs;
    for (const auto &t : texts) {
        auto terms = qtest::TermsOf(t);
        docs.emplace_back(terms.begin(), terms.end());
    }
    int pairs = 0, matches = 0, opened = 0;
    for (int qi = 0; qi < 400; qi++) {
        GenExpr g = Generate(rng, 0);
        std::string q = Render(rng, g);
        SCOPED_TRACE(q);
        ExprArena arena;
        DocExprNode *parsed = _dt_MakeExprTree(arena, qtest::Stemmer(), 0, q.c_str(), nullptr);
        DocExprNode *raw = Copy(arena, parsed);
        DocExprNode *tree = _dt_ReorderExprTree(arena, parsed);
        std::string printed = ExprTreeText(tree);
        for (size_t di = 0; di < texts.size(); di++) {
            bool ref = RefEval(g, docs[di]);
            ASSERT_EQ(RawEval(raw, docs[di]), ref) << "document: " << texts[di];
            qtest::LazyDoc d(texts[di]);
            bool got = QueryMatches(tree, d.Source());
            ASSERT_EQ(got, ref) << "document: " << texts[di] << "\nrewritten: " << printed;
            if (!tree || tree->node_op == EXPR_ALL) {
                EXPECT_EQ(d.opens, 0);
            }
            pairs++;
            matches += got;
            opened += d.opens;
        }
    }
    EXPECT_EQ(pairs, 10000);
    // Both outcomes must be well represented for the comparison to mean much.
    EXPECT_GT(matches, pairs / 10);
    EXPECT_LT(matches, pairs - pairs / 10);
    EXPECT_LT(opened, pairs);
}
}  // namespace

TEST(QueryEvalProperty, AgreesWithSetSemanticsReference) { RunProperty(20240611, GenShape{}); }

TEST(QueryEvalProperty, AgreesOnNestedNegations) { RunProperty(4242, GenShape{5, 2, 70}); }

// ---- robustness: arbitrary input either parses or raises dt::Error ----

TEST(QueryFuzz, RandomInputParsesOrRaises) {
    std::mt19937 rng(7);
    const std::string alphabet = "()!! ::and or AND dog cat the 0123456789\t|=%";
    qtest::LazyDoc d("dog cat bird ");
    int parsed = 0, raised = 0;
    for (int i = 0; i < 20000; i++) {
        std::string s;
        int len = (int)(rng() % 48);
        for (int k = 0; k < len; k++) {
            if (rng() % 8 == 0)
                s += (char)(1 + rng() % 255);
            else
                s += alphabet[rng() % alphabet.size()];
        }
        for (int which = 0; which < 2; which++) {
            ExprArena arena;
            try {
                DocExprNode *t = which == 0 ? ContainsQuery(arena, qtest::Stemmer(), s.c_str())
                                            : ContainsWordsQuery(arena, qtest::Stemmer(), s.c_str());
                ExprTreeText(t);
                QueryMatches(t, d.Source());
                parsed++;
            } catch (const Error &e) {
                EXPECT_TRUE(e.code() == "XD00I" || e.code() == "XD00J" || e.code() == "XD00K" ||
                            e.code() == "XD00L")
                    << e.code() << " for " << s;
                raised++;
            }
        }
    }
    EXPECT_GT(parsed, 1000);
    EXPECT_GT(raised, 1000);
}

TEST(QueryFuzz, PathologicalShapes) {
    const std::string shapes[] = {
        std::string(200000, '('), std::string(200000, ')'), std::string(200000, '!') + "dog",
        "dog" + std::string(100000, '!'),
    };
    for (const auto &s : shapes) {
        ExprArena arena;
        try {
            DocExprNode *t = ContainsQuery(arena, qtest::Stemmer(), s.c_str());
            ExprTreeText(t);
        } catch (const Error &) {
        }
    }
    // Many nested negated groups within the nesting limit.
    std::string q;
    for (int i = 0; i < kMaxQueryNesting; i++) q += "!(dog or ";
    q += "cat";
    for (int i = 0; i < kMaxQueryNesting; i++) q += ")";
    ExprArena arena;
    DocExprNode *t = ContainsQuery(arena, qtest::Stemmer(), q.c_str());
    qtest::LazyDoc d("cat ");
    // An even number of negations over (dog or ... cat): cat alone matches.
    EXPECT_TRUE(QueryMatches(t, d.Source()));
}

TEST(QueryEval, DocumentedExamples) {
    const std::string text = "Two dogs chased a cat up the tree.";
    const std::pair<const char *, bool> rows[] = {
        {"dog", true},           {"dog and cat", true},          {"dog and !cat", false},
        {"!cat and dog", false}, {"dog andnot cat", true},       {"bird or tree", true},
        {"bird or tree and cat", true}, {"bird or (tree and mouse)", false},
        {"!(bird or mouse)", true}, {"!!dog", true},             {"!!!dog", false},
        {"dogs:5 and cats:2", true}, {"the", true},              {"!the", false},
    };
    for (const auto &r : rows) EXPECT_EQ(Contains(text, r.first), r.second) << r.first;
}
