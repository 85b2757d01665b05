#include "exprtree.h"

#include <cctype>
#include <vector>

#include "charclass.h"
#include "error.h"

namespace dt {

DocExprNode *NewExprNode(ExprArena &arena, int op, const std::string &word) {
    arena.nodes.emplace_back();
    DocExprNode *n = &arena.nodes.back();
    n->node_op = op;
    n->node_word = word;
    arena.live++;
    return n;
}

DocExprNode *_dt_MakeExprNode(ExprArena &arena, const QueryStemmer &stemmer,
                              const std::string &word, int op) {
    if (op != EXPR_WORD) return NewExprNode(arena, op, word);
    // Only a real word (the tokenizer's words begin with a letter) is folded
    // and stemmed; the lenient operands "" and ")" stay as written.
    if (word.empty() || !IsWordStart(word.c_str()))
        return NewExprNode(arena, EXPR_WORD, word);
    std::string lower = FoldCase(word);
    bool isStop = false;
    std::string stem = stemmer.stemWord ? stemmer.stemWord(lower, &isStop) : lower;
    return NewExprNode(arena, isStop ? EXPR_STOPWORD : EXPR_WORD, stem);
}

DocExprNode *_dt_MakeStemmedExprNode(ExprArena &arena, const std::string &word, int op) {
    return NewExprNode(arena, op, word);
}

void _dt_FreeExprNode(ExprArena &arena, DocExprNode *node) {
    if (!node || node->node_op == kExprFreed) return;
    node->node_op = kExprFreed;
    node->node_left = node->node_right = nullptr;
    arena.live--;
}

int _dt_FreeExprTree(ExprArena &arena, DocExprNode *root) {
    // Iterative, so that a long left-deep chain cannot exhaust the stack.
    std::vector<DocExprNode *> todo;
    if (root) todo.push_back(root);
    while (!todo.empty()) {
        DocExprNode *n = todo.back();
        todo.pop_back();
        if (n->node_op == EXPR_AND || n->node_op == EXPR_OR) {
            if (n->node_left) todo.push_back(n->node_left);
            if (n->node_right) todo.push_back(n->node_right);
        }
        _dt_FreeExprNode(arena, n);
    }
    return 0;
}

void RaiseQueryTooDeep() {
    User_ErrorRaise("query expression is nested too deeply (more than " +
                        std::to_string(kMaxQueryNesting) + " levels)",
                    "54001");
}

}  // namespace dt
