#include "scantree.h"

#include "querydoc.h"
#include "queryoptions.h"
#include "queryparse.h"
#include "queryrewrite.h"

namespace dt {

DocExprNode *ScanConditionTree(ExprArena &arena, const QueryStemmer &stemmer, int kind, const char *text,
                               ScanCuts *cuts) {
    int tupcnt = -1;
    float percent = 0.0f;
    const char *rest = _dt_GetTupcntPercent(text ? text : "", &tupcnt, &percent);
    cuts->tupcnt = tupcnt;
    cuts->percent = percent;
    if (kind == 1) return _dt_MakeExprTree(arena, stemmer, 0, rest, nullptr);
    return _dt_MakeExprFromStr(arena, stemmer, rest);
}

DocExprNode *ScanQueryTree(ExprArena &arena, const QueryStemmer &stemmer, const std::vector<DocExprNode *> &trees) {
    DocExprNode *root = nullptr;
    if (trees.empty()) {
        root = _dt_MakeExprTree(arena, stemmer, 0, "a", nullptr);
    } else {
        for (DocExprNode *t : trees) {
            // A condition that matches nothing makes the conjunction match
            // nothing, as the operators on one row answer.
            if (!t) return nullptr;
            if (!root) {
                root = t;
                continue;
            }
            DocExprNode *and_ = NewExprNode(arena, EXPR_AND, "and");
            and_->node_left = root;
            and_->node_right = t;
            root = and_;
        }
    }
    return root ? _dt_ReorderExprTree(arena, root) : nullptr;
}

}  // namespace dt
