#include "treeselectivity.h"

#include <utility>
#include <vector>

#include "interrupt.h"

namespace dt {

namespace {

bool IsOperator(const DocExprNode *n) {
    return n->node_op == EXPR_AND || n->node_op == EXPR_OR || n->node_op == EXPR_ANDNOT || n->node_op == EXPR_NOT;
}

double Clamp(double f) {
    if (!(f >= 0.0)) return 0.0;  // also NaN
    return f > 1.0 ? 1.0 : f;
}

}  // namespace

double TreeFraction(const DocExprNode *tree, const std::function<double(const DocExprNode &)> &wordFraction) {
    if (!tree) return 0.0;
    // Post-order: a frame is visited twice, first to push its operands,
    // then to combine their values from the value stack.
    std::vector<std::pair<const DocExprNode *, bool>> todo{{tree, false}};
    std::vector<double> values;
    size_t steps = 0;
    while (!todo.empty()) {
        if ((steps++ & 1023) == 0) PollInterrupts();
        auto [n, expanded] = todo.back();
        todo.pop_back();
        if (!IsOperator(n)) {
            switch (n->node_op) {
            case EXPR_WORD: values.push_back(Clamp(wordFraction(*n))); break;
            case EXPR_ALL:
            case EXPR_STOPWORD: values.push_back(1.0); break;
            default: values.push_back(0.0); break;
            }
            continue;
        }
        if (!expanded) {
            todo.push_back({n, true});
            if (n->node_op != EXPR_NOT) {
                if (n->node_right) todo.push_back({n->node_right, false});
                if (n->node_left) todo.push_back({n->node_left, false});
            } else if (n->node_right) {
                todo.push_back({n->node_right, false});
            }
            continue;
        }
        // Operands missing from a malformed tree count as matching nothing.
        double b = 0.0, a = 0.0;
        if (n->node_op == EXPR_NOT) {
            if (n->node_right) { b = values.back(); values.pop_back(); }
            values.push_back(1.0 - b);
            continue;
        }
        if (n->node_right) { b = values.back(); values.pop_back(); }
        if (n->node_left) { a = values.back(); values.pop_back(); }
        switch (n->node_op) {
        case EXPR_AND: values.push_back(a * b); break;
        case EXPR_OR: values.push_back(a + b - a * b); break;
        default: values.push_back(a * (1.0 - b)); break;  // ANDNOT
        }
    }
    return Clamp(values.empty() ? 0.0 : values.back());
}

void ForEachLeaf(const DocExprNode *tree, const std::function<void(const DocExprNode &)> &leaf) {
    std::vector<const DocExprNode *> todo;
    if (tree) todo.push_back(tree);
    size_t steps = 0;
    while (!todo.empty()) {
        if ((steps++ & 1023) == 0) PollInterrupts();
        const DocExprNode *n = todo.back();
        todo.pop_back();
        if (!IsOperator(n)) {
            leaf(*n);
            continue;
        }
        if (n->node_right) todo.push_back(n->node_right);
        if (n->node_left && n->node_op != EXPR_NOT) todo.push_back(n->node_left);
    }
}

}  // namespace dt
