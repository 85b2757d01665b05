// The fraction of documents a query tree matches, from the fraction that
// each of its words matches, taking the words as independent: and
// multiplies, or adds less the overlap, andnot keeps the part of the left
// side outside the right, a tree that matches everything (ALL, a stop
// word) is 1, one that matches nothing (null, NONE) 0.  Used by the
// planner's estimates of searches.
#pragma once

#include <functional>

#include "exprtree.h"

namespace dt {

// Walks the tree without recursion (a document's terms or'ed make long
// chains).  wordFraction is asked once per WORD leaf; its answers are
// clamped to [0, 1].
double TreeFraction(const DocExprNode *tree, const std::function<double(const DocExprNode &)> &wordFraction);

// Calls leaf for every node that is not an operator (WORD, ALL, NONE,
// STOPWORD), left to right.
void ForEachLeaf(const DocExprNode *tree, const std::function<void(const DocExprNode &)> &leaf);

}  // namespace dt
