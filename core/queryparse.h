// The query language parser.
//
//   expression := operand { operator operand }      left to right, no precedence
//   operator   := a word beginning with "and" (AND) or else with "or" (OR);
//                 case matters, "AND" is no operator
//   operand    := { "!" } ( "(" expression ")" | word [ ":" digits ] )
//
// An odd run of "!" negates the operand, an even run is dropped.  A count
// after a word (":" right after it, then a digit) becomes its node_querycnt.
#pragma once

#include "exprtree.h"

namespace dt {

// Parses str from *index (from 0 when index is null) into a tree of WORD,
// AND, OR, STOPWORD and NOT nodes; parencnt is 0 at the top and one more per
// level of parentheses.  *index is left after the last token read.
// Errors: XD00I (text ends where an operand is expected), XD00J (unbalanced
// parentheses), XD00K "OP%s" (unknown operator), XD00L (word too long),
// 54001 (nested deeper than kMaxQueryNesting).
DocExprNode *_dt_MakeExprTree(ExprArena &arena, const QueryStemmer &stemmer, int parencnt,
                              const char *str, int *index);

}  // namespace dt
