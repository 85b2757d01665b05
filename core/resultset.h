// Result sets of index scans: the rows a query matches, as sorted row
// identifiers, and the evaluation of a rewritten query tree over them.
//
// A row identifier is a 64-bit key: block number in the high 48 bits,
// position in the low 16, so the keys sort in row order.
#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include "exprtree.h"

namespace dt {

using RowKey = uint64_t;
using RowSet = std::vector<RowKey>;  // sorted, no repeats

inline RowKey MakeRowKey(uint32_t block, uint16_t offset) { return ((RowKey)block << 16) | offset; }
inline uint32_t RowKeyBlock(RowKey k) { return (uint32_t)(k >> 16); }
inline uint16_t RowKeyOffset(RowKey k) { return (uint16_t)(k & 0xffff); }

RowSet RowSetAnd(const RowSet &a, const RowSet &b);
RowSet RowSetOr(const RowSet &a, const RowSet &b);
RowSet RowSetAndNot(const RowSet &a, const RowSet &b);

// Where evaluation gets its leaves: the rows holding a term, and every
// indexed row with at least one term.
struct RowSource {
    std::function<RowSet(const std::string &term)> rowsWithTerm;
    std::function<RowSet()> allRows;
};

// The rows a rewritten tree matches.  A null tree matches nothing; ALL is
// every indexed row with a term; AND does not evaluate its right side when
// the left is empty; ANDNOT is the left side when the right is empty (and
// nothing, without the right, when the left is); any other node kind
// raises XD00B "OP%d".
RowSet EvaluateRows(const DocExprNode *tree, const RowSource &src);

}  // namespace dt
