#include "exprtree.h"

#include <cctype>
#include <unordered_map>
#include <utility>
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

DocExprNode *CopyExprTree(ExprArena &arena, const DocExprNode *root) {
    if (!root) return nullptr;
    // Iterative, like _dt_FreeExprTree; a node reached twice is copied once.
    // The copies made are looked up along a list while it is short (most
    // queries), in a map beyond that.
    constexpr size_t kShort = 32;
    std::vector<std::pair<const DocExprNode *, DocExprNode *>> made;
    std::unordered_map<const DocExprNode *, DocExprNode *> madeMap;
    auto copyOf = [&](const DocExprNode *n) -> DocExprNode * {
        if (made.size() < kShort) {
            for (const auto &p : made)
                if (p.first == n) return p.second;
            return nullptr;
        }
        auto it = madeMap.find(n);
        return it == madeMap.end() ? nullptr : it->second;
    };
    std::vector<std::pair<const DocExprNode *, DocExprNode **>> todo;
    DocExprNode *out = nullptr;
    todo.emplace_back(root, &out);
    while (!todo.empty()) {
        auto [n, slot] = todo.back();
        todo.pop_back();
        if (DocExprNode *c = copyOf(n)) {
            *slot = c;
            continue;
        }
        DocExprNode *c = NewExprNode(arena, n->node_op, n->node_word);
        c->node_doccnt = n->node_doccnt;
        c->node_wordcnt = n->node_wordcnt;
        c->node_querycnt = n->node_querycnt;
        made.emplace_back(n, c);
        if (made.size() == kShort)
            for (const auto &p : made) madeMap.emplace(p.first, p.second);
        else if (made.size() > kShort)
            madeMap.emplace(n, c);
        *slot = c;
        if (n->node_left) todo.emplace_back(n->node_left, &c->node_left);
        if (n->node_right) todo.emplace_back(n->node_right, &c->node_right);
    }
    return out;
}

void RaiseQueryTooDeep() {
    User_ErrorRaise("query expression is nested too deeply (more than " +
                        std::to_string(kMaxQueryNesting) + " levels)",
                    "54001");
}

}  // namespace dt
