// Query expression trees: the nodes, their kinds, and where they live.
//
// A query string, a word list and a document all become a tree of
// DocExprNode.  The parser makes WORD, AND, OR, STOPWORD and NOT nodes; the
// canonical rewrite (queryrewrite.h) turns that into a tree of WORD, AND, OR,
// ANDNOT and ALL only, which is what the evaluators take.
//
// Nodes are allocated from an ExprArena that owns them: a query's nodes go
// away together with its arena, also when an error abandons a half-built tree.
// "Freeing" a node marks it dead (node_op = kExprFreed) so that any later use
// of it is caught as an unexpected node kind.
#pragma once

#include <deque>
#include <functional>
#include <string>

namespace dt {

// Node kinds (node_op).
constexpr int EXPR_WORD = 0;      // a stemmed, lower-case word
constexpr int EXPR_AND = 1;       // left and right
constexpr int EXPR_OR = 2;        // left or right
constexpr int EXPR_STOPWORD = 3;  // a stop word: matches every document
constexpr int EXPR_ANDNOT = 4;    // left and not right
constexpr int EXPR_ALL = 5;       // every document
constexpr int EXPR_NONE = 6;      // no document
constexpr int EXPR_NOT = 7;       // not right
// The kind of a node that has been freed.
constexpr int kExprFreed = -1;

// The deepest nesting of parentheses a query may have.  Deeper input is
// rejected (SQLSTATE 54001) instead of exhausting the stack.
constexpr int kMaxQueryNesting = 1000;
// Recursion bound of the tree walkers for operands other than the left
// spine (which they walk iteratively).
constexpr int kMaxExprDepth = 4 * kMaxQueryNesting + 64;

struct DocExprNode {
    DocExprNode *node_left = nullptr;   // AND, OR, ANDNOT
    DocExprNode *node_right = nullptr;  // AND, OR, ANDNOT, and the operand of NOT
    int node_op = EXPR_WORD;
    int node_doccnt = 0;     // set to 1 by evaluation when the word was found
    int node_wordcnt = 0;    // for index scans and ranking
    int node_querycnt = 1;   // the word's weight in the query
    std::string node_word;   // the stem for WORD; the token as written otherwise
};

// Chains expression nodes to a result entry of an index scan.
struct DocExprList {
    DocExprNode *expr_ptr = nullptr;
    DocExprList *expr_next = nullptr;
    int expr_wordcnt = 0;  // count of the node's word in the document
};

// Owner of the nodes of one or more trees.
struct ExprArena {
    std::deque<DocExprNode> nodes;
    int live = 0;  // nodes made and not freed

    ExprArena() = default;
    ExprArena(const ExprArena &) = delete;
    ExprArena &operator=(const ExprArena &) = delete;
};

// What query parsing needs of the stemmer.  Both take a lower-case word.
struct QueryStemmer {
    // The word's stem; sets *isStop when the stemmer reports a stop word.
    // When empty, words are their own stems and nothing is a stop word.
    std::function<std::string(const std::string &word, bool *isStop)> stemWord;
    // Whether the word is in the stop-word list.  When empty, nothing is.
    std::function<bool(const std::string &word)> isStopWord;
};

// A new node of the given kind holding word as given, with no operands.
DocExprNode *NewExprNode(ExprArena &arena, int op, const std::string &word);

// A node for a word of a query.  For op EXPR_WORD the word is folded to lower
// case and stemmed; a stop word gives an EXPR_STOPWORD node; in both cases
// the stored word is the stemmer's result.  Tokens that are not words ("",
// ")" in operand position) are stored as written.  Any other op stores the
// word as given.
DocExprNode *_dt_MakeExprNode(ExprArena &arena, const QueryStemmer &stemmer,
                              const std::string &word, int op);
// The same without folding or stemming (the word is already a stem).
DocExprNode *_dt_MakeStemmedExprNode(ExprArena &arena, const std::string &word, int op);

// Marks one node freed.
void _dt_FreeExprNode(ExprArena &arena, DocExprNode *node);
// Frees a node; for AND and OR first both subtrees.  ANDNOT and NOT nodes are
// freed without their operands.  A null tree is ignored.
int _dt_FreeExprTree(ExprArena &arena, DocExprNode *root);

// A copy of the tree at root in arena: the same operators, words and counts,
// a node that two parents share copied once.  Null for a null tree.
DocExprNode *CopyExprTree(ExprArena &arena, const DocExprNode *root);

// Raises the "nested too deeply" error (SQLSTATE 54001).
[[noreturn]] void RaiseQueryTooDeep();

}  // namespace dt
