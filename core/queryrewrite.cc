#include "queryrewrite.h"

#include <vector>

#include "error.h"
#include "interrupt.h"

namespace dt {

namespace {

void BecomeNone(DocExprNode *t) {
    t->node_op = EXPR_NONE;
    t->node_left = t->node_right = nullptr;
}

DocExprNode *Rewrite(ExprArena &arena, DocExprNode *t, int depth);

// A node that the left-spine walk stops at: anything but AND and OR.
DocExprNode *RewriteLeaf(ExprArena &arena, DocExprNode *t, int depth) {
    switch (t->node_op) {
    case EXPR_WORD:
        return t;
    case EXPR_STOPWORD:
        _dt_FreeExprNode(arena, t);
        return nullptr;
    case EXPR_NOT: {
        // Still a negation after the push-down: its operand is not a
        // negation itself; rewrite it.
        DocExprNode *x = Rewrite(arena, t->node_right, depth + 1);
        if (!x) {  // not everything: nothing
            BecomeNone(t);
            return t;
        }
        if (x->node_op == EXPR_NONE) {  // not nothing: everything
            _dt_FreeExprNode(arena, x);
            _dt_FreeExprNode(arena, t);
            return nullptr;
        }
        if (x->node_op == EXPR_NOT) {
            // The operand came back negated (as in "!!!(stopword and !w)"):
            // the two negations cancel.
            DocExprNode *z = x->node_right;
            _dt_FreeExprNode(arena, x);
            _dt_FreeExprNode(arena, t);
            return z;
        }
        t->node_right = x;
        return t;
    }
    default:
        ErrorRaiseVA("XD00B", "OP%d", t->node_op);
    }
}

// AND node t whose left operand has been rewritten into l.
DocExprNode *FinishAnd(ExprArena &arena, DocExprNode *t, DocExprNode *l, int depth) {
    if (!l) {
        DocExprNode *r = Rewrite(arena, t->node_right, depth + 1);
        if (!r) {
            _dt_FreeExprNode(arena, t);
            return nullptr;
        }
        if (r->node_op == EXPR_NONE) {
            _dt_FreeExprTree(arena, r);
            BecomeNone(t);
            return t;
        }
        _dt_FreeExprNode(arena, t);
        return r;
    }
    if (l->node_op == EXPR_NONE) {
        // The right operand is not rewritten at all.
        _dt_FreeExprNode(arena, l);
        _dt_FreeExprTree(arena, t->node_right);
        BecomeNone(t);
        return t;
    }
    DocExprNode *r = Rewrite(arena, t->node_right, depth + 1);
    if (!r) {
        _dt_FreeExprNode(arena, t);
        return l;
    }
    if (r->node_op == EXPR_NONE) {
        _dt_FreeExprTree(arena, l);
        _dt_FreeExprNode(arena, r);
        BecomeNone(t);
        return t;
    }
    if (l->node_op == EXPR_NOT) {
        t->node_op = EXPR_ANDNOT;
        if (r->node_op == EXPR_NOT) {
            // (!A and !B): ((all andnot A) andnot B)
            _dt_MakeAndNotNode(arena, l);
            r = _dt_RemoveNotNode(arena, r);
        } else {
            // (!A and R): (R andnot A)
            DocExprNode *a = _dt_RemoveNotNode(arena, l);
            l = r;
            r = a;
        }
    } else if (r->node_op == EXPR_NOT) {
        t->node_op = EXPR_ANDNOT;
        r = _dt_RemoveNotNode(arena, r);
    }
    t->node_left = l;
    t->node_right = r;
    return t;
}

// OR node t whose left operand has been rewritten into l.
DocExprNode *FinishOr(ExprArena &arena, DocExprNode *t, DocExprNode *l, int depth) {
    if (!l) {
        _dt_FreeExprTree(arena, t->node_right);
        _dt_FreeExprNode(arena, t);
        return nullptr;
    }
    DocExprNode *r = Rewrite(arena, t->node_right, depth + 1);
    if (!r) {
        _dt_FreeExprTree(arena, l);
        _dt_FreeExprNode(arena, t);
        return nullptr;
    }
    if (l->node_op == EXPR_NONE) {
        if (r->node_op == EXPR_NONE) {
            _dt_FreeExprNode(arena, l);
            _dt_FreeExprNode(arena, r);
            BecomeNone(t);
            return t;
        }
        _dt_FreeExprNode(arena, l);
        _dt_FreeExprNode(arena, t);
        return r;
    }
    if (r->node_op == EXPR_NONE) {
        _dt_FreeExprNode(arena, r);
        _dt_FreeExprNode(arena, t);
        return l;
    }
    t->node_left = l;
    t->node_right = r;
    if (l->node_op == EXPR_NOT) {
        if (r->node_op == EXPR_NOT) return _dt_FixNotOrNot(arena, t);
        _dt_MakeAndNotNode(arena, l);
    } else if (r->node_op == EXPR_NOT) {
        _dt_MakeAndNotNode(arena, r);
    }
    return t;
}

// The rewrite of one subtree.  The left spine of AND and OR nodes (the
// parser builds long left-deep chains) is walked with an explicit stack;
// only right operands and negated operands recurse, and those are bounded
// by the nesting of parentheses.
DocExprNode *Rewrite(ExprArena &arena, DocExprNode *t, int depth) {
    if (depth > kMaxExprDepth) RaiseQueryTooDeep();
    if (!t) ErrorRaiseVA("XD00B", "OP%d", kExprFreed);
    std::vector<DocExprNode *> spine;
    for (;;) {
        if (t->node_op == EXPR_NOT) t = _dt_NegExprTree(arena, t);
        if (t->node_op != EXPR_AND && t->node_op != EXPR_OR) break;
        spine.push_back(t);
        t = t->node_left;
        if (!t) ErrorRaiseVA("XD00B", "OP%d", kExprFreed);
    }
    DocExprNode *result = RewriteLeaf(arena, t, depth);
    while (!spine.empty()) {
        PollInterrupts();
        DocExprNode *n = spine.back();
        spine.pop_back();
        result = n->node_op == EXPR_AND ? FinishAnd(arena, n, result, depth)
                                        : FinishOr(arena, n, result, depth);
    }
    return result;
}

}  // namespace

int _dt_MakeAndNotNode(ExprArena &arena, DocExprNode *node) {
    node->node_op = EXPR_ANDNOT;
    node->node_left = NewExprNode(arena, EXPR_ALL, "all");
    return 0;
}

DocExprNode *_dt_RemoveNotNode(ExprArena &arena, DocExprNode *node) {
    DocExprNode *operand = node->node_right;
    _dt_FreeExprNode(arena, node);
    return operand;
}

DocExprNode *_dt_FixNotOrNot(ExprArena &arena, DocExprNode *node) {
    DocExprNode *a = _dt_RemoveNotNode(arena, node->node_left);
    DocExprNode *b = _dt_RemoveNotNode(arena, node->node_right);
    DocExprNode *both = NewExprNode(arena, EXPR_AND, "and");
    both->node_left = a;
    both->node_right = b;
    node->node_op = EXPR_ANDNOT;
    node->node_left = NewExprNode(arena, EXPR_ALL, "all");
    node->node_right = both;
    return node;
}

DocExprNode *_dt_NegExprTree(ExprArena &arena, DocExprNode *node) {
    DocExprNode *x = node->node_right;
    if (!x) return node;
    if (x->node_op == EXPR_AND || x->node_op == EXPR_OR) {
        x->node_op = x->node_op == EXPR_AND ? EXPR_OR : EXPR_AND;
        DocExprNode *nl = NewExprNode(arena, EXPR_NOT, "!");
        nl->node_right = x->node_left;
        DocExprNode *nr = NewExprNode(arena, EXPR_NOT, "!");
        nr->node_right = x->node_right;
        x->node_left = nl;
        x->node_right = nr;
        _dt_FreeExprNode(arena, node);
        return x;
    }
    if (x->node_op == EXPR_NOT) {
        int count = 0;
        DocExprNode *y = x;
        while (y && y->node_op == EXPR_NOT) {
            DocExprNode *next = y->node_right;
            _dt_FreeExprNode(arena, y);
            count++;
            y = next;
        }
        if (!y) ErrorRaiseVA("XD00B", "OP%d", kExprFreed);
        if (count % 2 == 0) {
            node->node_right = y;
            return node;
        }
        _dt_FreeExprNode(arena, node);
        return y;
    }
    return node;
}

DocExprNode *_dt_ReorderSubTree(ExprArena &arena, DocExprNode *root) {
    return Rewrite(arena, root, 0);
}

DocExprNode *_dt_ReorderExprTree(ExprArena &arena, DocExprNode *root) {
    if (!root) return nullptr;
    DocExprNode *r = _dt_ReorderSubTree(arena, root);
    if (!r) return NewExprNode(arena, EXPR_ALL, "all");
    if (r->node_op == EXPR_NOT) {
        _dt_MakeAndNotNode(arena, r);
        return r;
    }
    if (r->node_op == EXPR_NONE) {
        _dt_FreeExprNode(arena, r);
        return nullptr;
    }
    return r;
}

}  // namespace dt
