// The query of an index scan from its conditions: strategy 1 a query of the
// query language (Contains, @@), 2 a word list (ContainsWords, @@@), 3
// another document (DocLike, %).  The trees of the conditions are joined by
// AND and rewritten once; the WordNet tables are open while the words are
// stemmed.  Null: nothing matches.  *cuts gets the options prefix of the
// last condition (a document condition has none).
#pragma once

#include <vector>

#include "boundary.h"
#include "exprtree.h"
#include "scantree.h"

namespace dt::pg {

struct ScanCondition {
    int strategy;
    Datum argument;
};

dt::DocExprNode *ScanTree(dt::ExprArena &arena, const std::vector<ScanCondition> &conditions, dt::ScanCuts *cuts);

}  // namespace dt::pg
