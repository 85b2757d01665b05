// Learning the twelve ranking coefficients from judged answers by maximum
// likelihood, stage by stage.
//
// Stage 1 is a logistic regression over matched terms: every hit of a
// term in an answered document is one observation, its six clues the
// inputs and the document's relevance the outcome; it gives the intercept
// and the six clue coefficients, and the prior log odds is the log odds of
// relevance over those observations.  Stage 2 is a logistic regression
// over answered documents: inputs log(Z) (Z as the weights compute it with
// the stage-1 coefficients, at least 1), log(document length) and
// log(query length); it gives the stage-2 intercept and the coefficients
// of Z, document length and query length.  Both are fitted by Newton's
// method with a small ridge penalty.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include "exprtree.h"
#include "ranking.h"
#include "resultset.h"

namespace dt {

// Observations from judged answers.
struct FitData {
    struct Doc {
        bool relevant;
        double L;           // the document's word count
        double querywords;  // the query's length
        uint32_t firstTerm, nterms;
    };
    std::vector<Doc> docs;
    std::vector<std::array<double, 6>> terms;  // X1..X6 of each hit
};

// Adds every document of an answer (before ranking) as an observation;
// relevant tells whether a row is judged relevant to the query.
void AddAnswer(FitData &data, const ResultTable &answer, const DocExprNode *root, int totalTerms, int totalDocs,
               const std::function<bool(RowKey)> &relevant);

struct FitStage {
    size_t observations = 0;
    size_t positives = 0;
    double logLikelihood = 0.0;     // at the fitted coefficients
    double nullLogLikelihood = 0.0; // of the intercept alone
    int iterations = 0;
    bool converged = false;
};

struct FitResult {
    double params[kDocParamCount];  // numbered as DocParam
    FitStage stage1, stage2;
};

// Fits both stages.  False, with the reason in *why, when a stage has no
// relevant or no irrelevant observation (nothing to learn from).
bool FitDocParams(const FitData &data, FitResult *out, std::string *why);

// Logistic regression of y on rows of x (each of width k, without the
// intercept, which comes first in beta): Newton's method with a ridge
// penalty of lambda on the slopes.  Exposed for tests.
FitStage FitLogistic(const std::vector<double> &x, const std::vector<uint8_t> &y, size_t k, double lambda,
                     std::vector<double> *beta);

}  // namespace dt
