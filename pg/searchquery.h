// The rewritten query tree of a search operator's argument, for index
// scans: strategy 1 a query of the query language (Contains, @@), 2 a word
// list (ContainsWords, @@@), 3 another document (DocLike, %).  The WordNet
// tables are opened while the words are stemmed.  Null: nothing matches.
#pragma once

#include "boundary.h"
#include "exprtree.h"

namespace dt::pg {

dt::DocExprNode *SearchTree(dt::ExprArena &arena, int strategy, Datum argument);

}  // namespace dt::pg
