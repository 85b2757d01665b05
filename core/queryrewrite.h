// The canonical rewrite of a parsed query.
//
// The rewritten tree holds only WORD, AND, OR, ANDNOT and ALL nodes, with ALL
// only as the whole tree or as the left operand of an ANDNOT: negations become
// and-nots against a positive operand or against every document, and stop
// words stand for every document.
#pragma once

#include "exprtree.h"

namespace dt {

// Rewrites a whole parsed tree.  The result is null when no document can
// match, and an ALL node when every document matches.  A null input gives a
// null result.  XD00B "OP%d" for a node kind the parser does not make.
DocExprNode *_dt_ReorderExprTree(ExprArena &arena, DocExprNode *root);

// The recursive step.  Inside the rewrite a null result means every
// document and an EXPR_NONE node no document; a NOT may be returned.
DocExprNode *_dt_ReorderSubTree(ExprArena &arena, DocExprNode *root);

// Turns a NOT node in place into (all andnot operand).
int _dt_MakeAndNotNode(ExprArena &arena, DocExprNode *node);
// Frees a NOT node and returns its operand.
DocExprNode *_dt_RemoveNotNode(ExprArena &arena, DocExprNode *node);
// (!A or !B) in place into (all andnot (A and B)).
DocExprNode *_dt_FixNotOrNot(ExprArena &arena, DocExprNode *node);
// Pushes the negation of a NOT node down one level (De Morgan over AND and
// OR; a chain of nested negations collapses by its parity).
DocExprNode *_dt_NegExprTree(ExprArena &arena, DocExprNode *node);

}  // namespace dt
