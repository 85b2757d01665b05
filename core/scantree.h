// The query of an index scan: the trees of its conditions joined by AND and
// rewritten once, with the row count and weight threshold the query asks
// for.
#pragma once

#include <vector>

#include "exprtree.h"

namespace dt {

// What the options prefix of a condition asks of a ranked scan: at most
// tupcnt rows (-1: no limit), only rows weighing at least percent (0: no
// threshold).
struct ScanCuts {
    int tupcnt = -1;
    float percent = 0.0f;
};

// The unrewritten tree of a text condition: kind 1 a query of the query
// language, 2 a word list; the options prefix is read into *cuts first.
// Null: nothing matches.
DocExprNode *ScanConditionTree(ExprArena &arena, const QueryStemmer &stemmer, int kind, const char *text,
                               ScanCuts *cuts);

// The scan's tree: the conditions' trees joined left-deep by AND,
// rewritten once.  With no conditions at all, the query "a" (a stop word:
// every indexed document).  Null when nothing can match, also when one
// condition's tree is null.
DocExprNode *ScanQueryTree(ExprArena &arena, const QueryStemmer &stemmer, const std::vector<DocExprNode *> &trees);

}  // namespace dt
