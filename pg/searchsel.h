// The planner's estimates of the search operators (@@, @@@, %) and their
// function forms (Contains, ContainsWords, DocLike).
#pragma once

#include "boundary.h"
#include "exprtree.h"

extern "C" {
#include "nodes/pathnodes.h"
}

namespace dt::pg {

// The tree of a search's constant argument (strategy 1 a query, 2 a word
// list, 3 another document) as the planner may build it: false, with no
// tree, for a query the parser refuses (reported when the search runs, not
// while planning) and for a document in a server file (read when the
// search runs).  *tree null: the search matches nothing.
bool PlannerSearchTree(dt::ExprArena &arena, int strategy, Datum value, dt::DocExprNode **tree);

// Whether a search's args (the document, then a constant query) can be
// answered without reading the document: the query matches every
// document (stop words only) or none.
bool SearchSkipsDocument(List *args, int strategy);

// The fraction of the rows of relation varRelid for which the search
// args (the document, then the query) holds.
double SearchSelectivity(PlannerInfo *root, List *args, int varRelid, int strategy);

}  // namespace dt::pg
