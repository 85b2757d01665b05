#include "resultset.h"

#include <algorithm>
#include <iterator>

#include "error.h"
#include "interrupt.h"

namespace dt {

RowSet RowSetAnd(const RowSet &a, const RowSet &b) {
    RowSet out;
    std::set_intersection(a.begin(), a.end(), b.begin(), b.end(), std::back_inserter(out));
    return out;
}

RowSet RowSetOr(const RowSet &a, const RowSet &b) {
    RowSet out;
    out.reserve(a.size() + b.size());
    std::set_union(a.begin(), a.end(), b.begin(), b.end(), std::back_inserter(out));
    return out;
}

RowSet RowSetAndNot(const RowSet &a, const RowSet &b) {
    RowSet out;
    std::set_difference(a.begin(), a.end(), b.begin(), b.end(), std::back_inserter(out));
    return out;
}

namespace {
RowSet Eval(const DocExprNode *n, const RowSource &src, int depth) {
    PollInterrupts();
    if (depth > kMaxExprDepth) ErrorRaiseVA("XD00B", "OP%d", n->node_op);
    switch (n->node_op) {
    case EXPR_WORD:
        return src.rowsWithTerm(n->node_word);
    case EXPR_ALL:
        return src.allRows();
    case EXPR_AND: {
        RowSet left = Eval(n->node_left, src, depth + 1);
        if (left.empty()) return left;
        return RowSetAnd(left, Eval(n->node_right, src, depth + 1));
    }
    case EXPR_OR:
        return RowSetOr(Eval(n->node_left, src, depth + 1), Eval(n->node_right, src, depth + 1));
    case EXPR_ANDNOT: {
        RowSet left = Eval(n->node_left, src, depth + 1);
        if (left.empty()) return left;
        RowSet right = Eval(n->node_right, src, depth + 1);
        if (right.empty()) return left;
        return RowSetAndNot(left, right);
    }
    default:
        ErrorRaiseVA("XD00B", "OP%d", n->node_op);
    }
}
}  // namespace

RowSet EvaluateRows(const DocExprNode *tree, const RowSource &src) {
    if (!tree) return {};
    return Eval(tree, src, 0);
}

}  // namespace dt
