// Query tree nodes made by hand for the unit tests of the evaluators.
#pragma once

#include <string>

#include "exprtree.h"

namespace dt {

// A leaf (a word, or another kind given by op) owned by the arena.
inline DocExprNode *Word(ExprArena &a, const std::string &w, int op = EXPR_WORD) {
    a.nodes.emplace_back();
    DocExprNode *n = &a.nodes.back();
    n->node_op = op;
    n->node_word = w;
    return n;
}

// An operator node over two operands.
inline DocExprNode *Node(ExprArena &a, int op, DocExprNode *l, DocExprNode *r) {
    a.nodes.emplace_back();
    DocExprNode *n = &a.nodes.back();
    n->node_op = op;
    n->node_left = l;
    n->node_right = r;
    return n;
}

}  // namespace dt
