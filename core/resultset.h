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
    // Optional: the rows of among that hold the term (for intersections
    // with a small side), and the number of postings of a term (to read
    // the smaller side of an AND of two words first).
    std::function<RowSet(const std::string &term, const RowSet &among)> rowsWithTermAmong;
    std::function<int64_t(const std::string &term)> termCount;
};

// The rows a rewritten tree matches.  A null tree matches nothing; ALL is
// every indexed row with a term; AND does not evaluate its right side when
// the left is empty; ANDNOT is the left side when the right is empty (and
// nothing, without the right, when the left is); any other node kind
// raises XD00B "OP%d".  With the optional functions of the source, a word
// on the right of AND or ANDNOT is only probed for the left side's rows,
// and of AND of two words the one with fewer postings is read first.
RowSet EvaluateRows(const DocExprNode *tree, const RowSource &src);

// ---- Result sets with what ranking needs -------------------------------------

// A posting as a leaf reads it: the row, the term's occurrences in its
// document, the document's word count.
struct LeafPosting {
    RowKey row;
    int32_t count;
    uint32_t wordcnt;
};
using LeafPostings = std::vector<LeafPosting>;  // row order; repeats of a row adjacent

// A query leaf that matched a row, with the term's count in its document.
struct TermHit {
    const DocExprNode *leaf;
    int32_t count;
};

// One row of a result: its hits are hits[firstHit, firstHit + nhits) of
// the table.
struct ResultEntry {
    RowKey row;
    uint32_t wordcnt;
    uint32_t firstHit;
    uint32_t nhits;
    double weight;
};

struct ResultTable {
    std::vector<ResultEntry> entries;  // row order, no repeats
    std::vector<TermHit> hits;
};

// Where evaluation gets its leaves: the postings of a term, and every
// indexed document with at least one term (count and word count as the
// document list keeps them).  Both give only rows the caller may see.
struct EntrySource {
    std::function<LeafPostings(const std::string &term)> postingsOfTerm;
    std::function<LeafPostings()> allDocs;
    // Optional: the rows of the index without visibility (a superset of
    // what the leaves give), with which an AND whose right side is a word
    // first finds out cheaply whether any row can hold both sides.
    const RowSource *rows = nullptr;
    // Optional: a word's postings for the rows among (sorted) only, with
    // the counts its leaf records over all the rows the caller may see
    // (*doccnt rows, *wordcnt occurrences).  With it, a word on the right
    // of AND or ANDNOT, and both words of an AND of two words, are read
    // only where the other side has rows.
    std::function<LeafPostings(const std::string &term, const RowSet &among, int64_t *doccnt, int64_t *wordcnt)>
        postingsOfTermAmong;
};

// The rows a rewritten tree matches, each with the leaves that matched it.
// A word leaf makes one entry per row and one hit per posting (a row with
// two postings of the term has two hits), and records in the leaf the rows
// it found (node_doccnt) and the sum of their counts (node_wordcnt); ALL
// makes entries without hits.  OR and AND keep, for a row of both sides,
// the left side's hits followed by the right side's; ANDNOT keeps the left
// side's entries that the right side lacks, with their hits.  AND and
// ANDNOT skip their right side when the left is empty; AND also, given
// source.rows, when no row of the left side holds the right side's word
// (the answer is then empty and no count of the right side is needed).
// Null tree: no rows.  Other node kinds raise XD00B "OP%d".
ResultTable EvaluateEntries(DocExprNode *tree, const EntrySource &src);

}  // namespace dt
