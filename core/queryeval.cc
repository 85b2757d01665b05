#include "queryeval.h"

#include <vector>

#include "error.h"
#include "querydoc.h"
#include "queryoptions.h"
#include "queryparse.h"
#include "queryrewrite.h"
#include "interrupt.h"

namespace dt {

namespace {

bool IsBinary(int op) { return op == EXPR_AND || op == EXPR_OR || op == EXPR_ANDNOT; }

int Eval(DocExprNode *e, const DocTermSource &doc, int depth) {
    if (depth > kMaxExprDepth) RaiseQueryTooDeep();
    // The left spine is walked iteratively: trees of long word lists and
    // documents are left-deep chains.
    std::vector<DocExprNode *> spine;
    while (e && IsBinary(e->node_op)) {
        spine.push_back(e);
        e = e->node_left;
    }
    if (!e) ErrorRaiseVA("XD00B", "OP%d", kExprFreed);
    int r;
    switch (e->node_op) {
    case EXPR_WORD:
        r = doc.isWordInDoc && doc.isWordInDoc(e->node_word) ? 1 : 0;
        if (r) e->node_doccnt = 1;
        break;
    case EXPR_ALL:
        r = 1;
        break;
    default:
        ErrorRaiseVA("XD00B", "OP%d", e->node_op);
    }
    for (size_t i = spine.size(); i-- > 0;) {
        PollInterrupts();
        DocExprNode *n = spine[i];
        switch (n->node_op) {
        case EXPR_AND:
            if (r) r = Eval(n->node_right, doc, depth + 1);
            break;
        case EXPR_OR:
            if (!r) r = Eval(n->node_right, doc, depth + 1);
            break;
        default:  // EXPR_ANDNOT
            if (r) r = Eval(n->node_right, doc, depth + 1) ? 0 : 1;
            break;
        }
    }
    return r;
}

}  // namespace

int _dt_DocExprCmp(DocExprNode *expr, const DocTermSource &doc) { return Eval(expr, doc, 0); }

bool QueryMatches(DocExprNode *tree, const DocTermSource &doc) {
    if (!tree) return false;
    return _dt_DocExprCmp(tree, doc) == 1;
}

bool LazyWordLookup(WordHash &seen, const std::function<bool(std::string *term)> &nextTerm,
                    const std::string &word) {
    if (WordHashFind(seen, word.data(), word.size())) return true;
    std::string term;
    while (nextTerm && nextTerm(&term)) {
        PollInterrupts();
        if (_dt_AddWordToHash(term.data(), term.size(), seen) == 0 && term == word) return true;
    }
    return false;
}

DocExprNode *ContainsQuery(ExprArena &arena, const QueryStemmer &stemmer, const char *query) {
    DocExprNode *tree = _dt_MakeExprTree(arena, stemmer, 0, query ? query : "", nullptr);
    return _dt_ReorderExprTree(arena, tree);
}

DocExprNode *ContainsWordsQuery(ExprArena &arena, const QueryStemmer &stemmer, const char *words) {
    int tupcnt;
    float percent;
    const char *rest = _dt_GetTupcntPercent(words ? words : "", &tupcnt, &percent);
    DocExprNode *tree = _dt_MakeExprFromStr(arena, stemmer, rest);
    return tree ? _dt_ReorderExprTree(arena, tree) : nullptr;
}

DocExprNode *DocLikeQuery(ExprArena &arena, WordHash &other) {
    // Only words and or: used as it is, without the rewrite.
    return _dt_MakeExprFromDoc(arena, other);
}

}  // namespace dt
