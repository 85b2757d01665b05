// Evaluating the query of a dtree scan into its result: every row the
// conditions match, read from the postings of the query's terms, and, for
// a ranked result, each row's weight and the rank order.
//
// A ranked result holds only rows the snapshot can see, checked before any
// count or threshold cut: a row on a page the visibility map marks
// all-visible is taken as it is, any other is looked up in the table.  An
// unranked result (for bitmap scans, whose heap scan checks every row
// anyway) skips that check.
//
// C++ interface: call from C++ code under dt::pg::Guard.
#pragma once

#include <vector>

#include "dtree_read.h"
#include "resultset.h"
#include "searchquery.h"

extern "C" {
#include "utils/snapshot.h"
}

namespace dt::pg {

struct ScanOutcome {
    std::vector<dt::RowKey> rows;  // rank order when ranked, else row order
    std::vector<double> weights;   // ranked only: the rows' weights
    bool ranked = false;
};

// The result of a scan of index with the given conditions (joined by AND).
// With ranked false the rows come in row order without weights, unless
// the query asks for a row count or a weight threshold, which need the
// ranking (the cut rows then come in rank order).
ScanOutcome EvaluateScan(Relation index, Snapshot snapshot, const std::vector<ScanCondition> &conditions,
                         bool ranked);

// The answer of a scan before ranking: the query's tree (its leaves hold
// their counts), every visible row it matches with its hits and weight,
// and the index's counters the weights were computed with.
struct Answer {
    dt::ExprArena arena;
    dt::DocExprNode *tree = nullptr;  // null: nothing matches
    dt::ScanCuts cuts;
    dt::ResultTable table;
    int32 totalTerms = 0, totalDocs = 0;
};
void EvaluateAnswer(Relation index, Snapshot snapshot, const std::vector<ScanCondition> &conditions, Answer *out);
// The same for the tree already in *out.
void EvaluateTree(Relation index, Snapshot snapshot, Answer *out);

// The weight of every indexed row for a query (a query of the query
// language; its options prefix is not applied), for ordering by relevance:
// rows in row order with their weights; rows the query does not match are
// not listed.
void QueryWeights(Relation index, Snapshot snapshot, Datum query, std::vector<dt::RowKey> *rows,
                  std::vector<double> *weights);

// Rows as the table names them now: an index holds the root of a row's
// HOT chain, which is not its ctid once the row was updated in place; each
// row becomes the identifier of its version visible to the snapshot.
void CurrentRows(Relation index, Snapshot snapshot, std::vector<dt::RowKey> *rows);

// Row keys and item pointers.
inline dt::RowKey RowKeyOf(ItemPointer tid) {
    return dt::MakeRowKey(ItemPointerGetBlockNumberNoCheck(tid), ItemPointerGetOffsetNumberNoCheck(tid));
}
inline void SetItemPointer(ItemPointer tid, dt::RowKey k) {
    ItemPointerSet(tid, dt::RowKeyBlock(k), dt::RowKeyOffset(k));
}

}  // namespace dt::pg
