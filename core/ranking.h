// Relevance weights of the documents of a result set: a two-stage
// logistic-regression model.
//
// Stage 1 gives every query term that matched a document a log odds of
// relevance from six clues (X1..X6: the term's weight in the query, its
// share of the query, its count in the document, its share of the
// document, its rarity among documents and among all words); the sum Z of
// those log odds, less the prior log odds, feeds stage 2 together with the
// document's and the query's lengths.  The weight is the logistic of the
// stage-2 log odds: a probability between 0 and 1.
//
// The twelve coefficients are process-wide values that start at their
// defaults.  The layer that embeds the core may own them instead: the
// server binds each one to a setting of the session (DocParamSlot), so
// that they are set, reset and rolled back as settings are.
#pragma once

#include <cstdint>
#include <vector>

#include "exprtree.h"
#include "resultset.h"

namespace dt {

constexpr int kDocParamCount = 12;

// The coefficients by number.
enum DocParam {
    kDocLenCoef = 0,              // stage 2: log(document length)
    kQryLenCoef = 1,              // stage 2: log(query length)
    kTermDocWeightIntercept = 2,  // stage 1: intercept
    kX1Coef = 3,
    kX2Coef = 4,
    kX3Coef = 5,
    kX4Coef = 6,
    kX5Coef = 7,
    kX6Coef = 8,
    kPriorLogOdds = 9,            // stage 1: subtracted from every term's log odds
    kStage2Intercept = 10,        // stage 2: intercept
    kZCoef = 11,                  // stage 2: log(Z)
};

struct DocParamInfo {
    const char *name;
    double defaultValue;
};
extern const DocParamInfo kDocParamInfo[kDocParamCount];

// The current coefficients (kDocParamCount values, indexed by DocParam).
const double *DocParams();
// Where coefficient n (0..11) is kept, for a layer that binds it to its own
// storage of settings; null for other numbers.
double *DocParamSlot(int n);
// Sets coefficient n; numbers outside 0..11 are ignored.
void SetDocParam(int n, double value);
// Back to the defaults.
void ResetDocParams();

// The weight of a document with no matched term, and of one whose matches
// hold no word.
constexpr double kNoMatchWeight = 2.2250738585072014e-308;
constexpr double kNoWordWeight = 0.1;

// The query length in words: the node_querycnt of the leaves, where AND,
// OR and ANDNOT add their operands' lengths and every other node (a NOT
// included) gives its own node_querycnt.
int ExprCount(const DocExprNode *root);

// The stage-1 clues of one matched term.
struct TermClues {
    double q;      // the term's weight in the query (node_querycnt)
    double f;      // its count in the document
    double L;      // the document's word count
    double n;      // documents of the result holding the term (node_doccnt)
    double cf;     // its occurrences over those documents (node_wordcnt)
};
// The six clues X1..X6 of a term given the query length and the
// collection's totals.
void TermFeatures(const TermClues &c, double querywords, double totalTerms, double totalDocs, double x[6]);
// The stage-1 log odds of a term, less the prior log odds.
double TermLogOdds(const double x[6], const double *params);
// The weight of a document from Z (the sum of its terms' values from
// TermLogOdds), its word count and the query length.
double StageTwoWeight(double z, double L, double querywords, const double *params);

// Sets every entry's weight.  totalTerms of 0 counts as 1.
void GetDocWeights(ResultTable &table, const DocExprNode *root, int totalTerms, int totalDocs,
                   const double *params = DocParams());

// The bucket of a row in a 97-slot table hashed on its row identifier's six
// bytes (block high and low halves, then the position, as 16-bit words in
// the machine's order), each taken as a signed char: h = h * 9 + byte.
uint32_t TidHashBucket(RowKey row);

// The entries in rank order: falling weight; among equal weights, the entry
// that comes later in the order of the 97-slot hash (bucket, then row)
// first; a weight that is not a number ranks below every other.  Then
// only the leading entries weighing at least percent (when percent > 0),
// then at most tupcnt of them (when tupcnt > 0).  Returns indexes into
// table.entries.
std::vector<uint32_t> RankEntries(const ResultTable &table, int tupcnt, double percent);

// A cursor over a ranked list of n entries that moves both ways.  Fresh, a
// forward step gives the first entry and a backward step nothing; a step
// off either end gives nothing and further steps that way keep giving
// nothing, while a step the other way comes back from that end.
class RankedCursor {
public:
    explicit RankedCursor(uint32_t n = 0) : n_(n) {}
    // The next position, or -1.
    int64_t Step(bool forward);
    void Mark() { saved_ = cur_; }
    void Restore() { cur_ = saved_; }
    // The position the cursor is on, or -1.
    int64_t Current() const { return cur_; }
    // The marked position, or -1.
    int64_t Saved() const { return saved_; }

private:
    uint32_t n_;
    int64_t cur_ = -1;
    int64_t saved_ = -1;
    bool wentForward_ = false;
    bool wentBackward_ = true;
};

}  // namespace dt
