#include "queryprint.h"
#include "interrupt.h"

#include <cstdio>
#include <cstring>
#include <vector>

namespace dt {

namespace {

char printbuf[100];

bool IsBinary(int op) { return op == EXPR_AND || op == EXPR_OR || op == EXPR_ANDNOT; }

const char *OpText(int op) {
    return op == EXPR_AND ? "and " : op == EXPR_OR ? "or " : "andnot ";
}

void Append(std::string &out, const DocExprNode *n, int depth) {
    if (depth > kMaxExprDepth) {
        out += "...";
        return;
    }
    // Chains of negations and the left spine of binary nodes are walked
    // iteratively; only right operands recurse.
    while (n && n->node_op == EXPR_NOT) {
        out += "!";
        n = n->node_right;
    }
    if (!n) {
        out += "emptry tree";
        return;
    }
    std::vector<const DocExprNode *> spine;
    while (n && IsBinary(n->node_op)) {
        spine.push_back(n);
        n = n->node_left;
    }
    out.append(spine.size(), '(');
    if (!n) {
        out += "emptry tree";
    } else if (n->node_op == EXPR_NOT) {
        Append(out, n, depth + 1);
    } else {
        switch (n->node_op) {
        case EXPR_WORD: out += _dt_PrintWord(n->node_word); out += ' '; break;
        case EXPR_STOPWORD: out += "STOPWORD "; break;
        case EXPR_ALL: out += "ALL "; break;
        case EXPR_NONE: out += "NONE "; break;
        default: out += "UNKNOWN(" + std::to_string(n->node_op) + ") "; break;
        }
    }
    for (size_t i = spine.size(); i-- > 0;) {
        PollInterrupts();
        out += OpText(spine[i]->node_op);
        Append(out, spine[i]->node_right, depth + 1);
        out += ')';
    }
}

}  // namespace

char *_dt_PrintWord(const std::string &word) {
    size_t n = word.size() < sizeof(printbuf) - 1 ? word.size() : sizeof(printbuf) - 1;
    std::memcpy(printbuf, word.data(), n);
    printbuf[n] = '\0';
    return printbuf;
}

std::string ExprTreeText(const DocExprNode *root) {
    std::string out;
    Append(out, root, 0);
    return out;
}

int _dt_PrintExprTree(const DocExprNode *root) {
    std::string t = ExprTreeText(root);
    std::fwrite(t.data(), 1, t.size(), stdout);
    return 0;
}

int PrintExprTree(const DocExprNode *root) {
    _dt_PrintExprTree(root);
    std::fputc('\n', stdout);
    std::fflush(stdout);
    return 0;
}

}  // namespace dt
