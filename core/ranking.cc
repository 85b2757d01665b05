#include "ranking.h"

#include <algorithm>
#include <cmath>
#include <cstring>
#include <unordered_map>

#include "interrupt.h"

namespace dt {

const DocParamInfo kDocParamInfo[kDocParamCount] = {
    {"DocLenCoef", -0.145},           {"QryLenCoef", -1.0},  {"TermDocWeightIntercept", -6.83},
    {"X1Coef", 0.44},                 {"X2Coef", 0.04},      {"X3Coef", 0.57},
    {"X4Coef", -0.06},                {"X5Coef", 1.13},      {"X6Coef", 0.24},
    {"PriorLogOdds", -6.725},         {"Stage2Intercept", -6.08}, {"ZCoef", 3.63},
};

namespace {
double g_params[kDocParamCount] = {-0.145, -1.0, -6.83, 0.44, 0.04, 0.57, -0.06, 1.13, 0.24, -6.725, -6.08, 3.63};
}  // namespace

const double *DocParams() { return g_params; }

double *DocParamSlot(int n) { return (unsigned)n < (unsigned)kDocParamCount ? &g_params[n] : nullptr; }

void SetDocParam(int n, double value) {
    if ((unsigned)n < (unsigned)kDocParamCount) g_params[n] = value;
}

void ResetDocParams() {
    for (int i = 0; i < kDocParamCount; i++) g_params[i] = kDocParamInfo[i].defaultValue;
}

int ExprCount(const DocExprNode *root) {
    // The left spine iteratively, right operands recursively.
    int total = 0;
    std::vector<const DocExprNode *> todo{root};
    while (!todo.empty()) {
        const DocExprNode *n = todo.back();
        todo.pop_back();
        if (!n) continue;
        if (n->node_op == EXPR_AND || n->node_op == EXPR_OR || n->node_op == EXPR_ANDNOT) {
            todo.push_back(n->node_right);
            todo.push_back(n->node_left);
        } else {
            total += n->node_querycnt;
        }
    }
    return total;
}

namespace {
// The features that do not depend on the document: X1, X2, X5 and X6
// (x[0], x[1], x[4], x[5]).
void TermQueryFeatures(double q, double n, double cf, double querywords, double totalTerms, double totalDocs,
                       double x[6]) {
    x[0] = std::log(q);
    x[1] = std::log(q / querywords);
    x[4] = std::log(totalDocs / n);
    x[5] = std::log(cf / totalTerms);
}
}  // namespace

void TermFeatures(const TermClues &c, double querywords, double totalTerms, double totalDocs, double x[6]) {
    TermQueryFeatures(c.q, c.n, c.cf, querywords, totalTerms, totalDocs, x);
    x[2] = std::log(c.f);
    x[3] = std::log(c.f / c.L);
}

double TermLogOdds(const double x[6], const double *p) {
    double lo = p[kTermDocWeightIntercept] + x[0] * p[kX1Coef] + x[1] * p[kX2Coef] + x[2] * p[kX3Coef] +
                x[3] * p[kX4Coef] + x[4] * p[kX5Coef] + x[5] * p[kX6Coef];
    return lo - p[kPriorLogOdds];
}

namespace {
// The stage-two weight from log L and log querywords.
double StageTwoFromLogs(double z, double logL, double logQ, const double *p) {
    if (z < 1.0) z = 1.0;
    double temp = p[kStage2Intercept] + p[kZCoef] * std::log(z) + p[kDocLenCoef] * logL + p[kQryLenCoef] * logQ;
    return 1.0 / (1.0 + std::exp(-temp));
}

// log(n) for the small counts that documents and terms mostly have, from
// a table filled once with the same function (so the same values).
constexpr uint32_t kLogTableSize = 4096;
double LogCount(uint32_t n) {
    static double *table = [] {
        static double t[kLogTableSize];
        for (uint32_t i = 0; i < kLogTableSize; i++) t[i] = std::log((double)i);
        return t;
    }();
    return n < kLogTableSize ? table[n] : std::log((double)n);
}

// The features a query leaf gives every document it matched.
struct LeafFeatures {
    double x[6];
};
}  // namespace

double StageTwoWeight(double z, double L, double querywords, const double *p) {
    return StageTwoFromLogs(z, std::log(L), std::log(querywords), p);
}

void GetDocWeights(ResultTable &table, const DocExprNode *root, int totalTerms, int totalDocs, const double *params) {
    double terms = totalTerms == 0 ? 1.0 : (double)totalTerms;
    double docs = (double)totalDocs;
    double querywords = (double)ExprCount(root);
    double logQ = std::log(querywords);
    // The features of a term that do not depend on the document, once per
    // leaf, found by the leaf's address (a query made from a document has a
    // leaf for each of its terms, and one document may match them all).
    std::unordered_map<const DocExprNode *, LeafFeatures> leaves;
    auto featuresOf = [&](const DocExprNode *leaf) -> const LeafFeatures & {
        auto [it, added] = leaves.try_emplace(leaf);
        if (added)
            TermQueryFeatures((double)leaf->node_querycnt, (double)leaf->node_doccnt, (double)leaf->node_wordcnt,
                              querywords, terms, docs, it->second.x);
        return it->second;
    };
    // Polled by steps of work, documents and hits alike: one document may
    // hold most of the hits.
    size_t k = 0;
    for (ResultEntry &e : table.entries) {
        if ((k++ & 4095) == 0) PollInterrupts();
        if (e.nhits == 0) {
            e.weight = kNoMatchWeight;
            continue;
        }
        double z = 0.0;
        unsigned gotone = 0;
        double L = (double)e.wordcnt;
        for (uint32_t h = e.firstHit; h < e.firstHit + e.nhits; h++) {
            if ((k++ & 4095) == 0) PollInterrupts();
            const TermHit &hit = table.hits[h];
            if (hit.leaf->node_op != EXPR_WORD) continue;
            if (++gotone == 0) ++gotone;
            const LeafFeatures &lf = featuresOf(hit.leaf);
            double f = (double)hit.count;
            double x[6] = {lf.x[0], lf.x[1], hit.count > 0 ? LogCount((uint32_t)hit.count) : std::log(f),
                           std::log(f / L), lf.x[4], lf.x[5]};
            z = z + TermLogOdds(x, params);
        }
        e.weight = gotone == 0 ? kNoWordWeight : StageTwoFromLogs(z, LogCount(e.wordcnt), logQ, params);
    }
}

uint32_t TidHashBucket(RowKey row) {
    uint32_t block = RowKeyBlock(row);
    uint16_t words[3] = {(uint16_t)(block >> 16), (uint16_t)(block & 0xffff), RowKeyOffset(row)};
    signed char bytes[6];
    std::memcpy(bytes, words, sizeof(bytes));
    uint32_t h = 0;
    for (signed char b : bytes) h = h * 9 + (uint32_t)(int32_t)b;
    return h % 97u;
}

std::vector<uint32_t> RankEntries(const ResultTable &table, int tupcnt, double percent) {
    const auto &es = table.entries;
    struct Key {
        double weight;
        uint32_t bucket;
        uint32_t index;  // entries are in row order: the order within a bucket
    };
    std::vector<Key> keys(es.size());
    for (uint32_t i = 0; i < es.size(); i++) {
        double w = es[i].weight;
        keys[i] = Key{std::isnan(w) ? -HUGE_VAL : w, TidHashBucket(es[i].row), i};
    }
    // Falling weight; ties: the later one in hash order first.
    std::sort(keys.begin(), keys.end(), [](const Key &a, const Key &b) {
        if (a.weight != b.weight) return a.weight > b.weight;
        if (a.bucket != b.bucket) return a.bucket > b.bucket;
        return a.index > b.index;
    });
    size_t keep = keys.size();
    if (percent > 0.0) {
        size_t k = 0;
        while (k < keep && percent <= es[keys[k].index].weight) k++;
        keep = k;
    }
    if (tupcnt > 0 && (size_t)tupcnt < keep) keep = (size_t)tupcnt;
    std::vector<uint32_t> out(keep);
    for (size_t i = 0; i < keep; i++) out[i] = keys[i].index;
    return out;
}

int64_t RankedCursor::Step(bool forward) {
    if (cur_ >= 0) {
        cur_ = forward ? cur_ + 1 : cur_ - 1;
        if (cur_ >= (int64_t)n_) cur_ = -1;
        wentForward_ = forward;
        wentBackward_ = !forward;
        return cur_;
    }
    if (forward) {
        if (wentForward_) return -1;
        wentForward_ = true;
        wentBackward_ = false;
        cur_ = n_ > 0 ? 0 : -1;
    } else {
        if (wentBackward_) return -1;
        wentForward_ = false;
        wentBackward_ = true;
        cur_ = n_ > 0 ? (int64_t)n_ - 1 : -1;
    }
    return cur_;
}

}  // namespace dt
