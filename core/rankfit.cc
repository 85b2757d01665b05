#include "rankfit.h"

#include <cmath>

#include "interrupt.h"

namespace dt {

void AddAnswer(FitData &data, const ResultTable &answer, const DocExprNode *root, int totalTerms, int totalDocs,
               const std::function<bool(RowKey)> &relevant) {
    double terms = totalTerms == 0 ? 1.0 : (double)totalTerms;
    double docs = (double)totalDocs;
    double querywords = (double)ExprCount(root);
    size_t steps = 0;
    for (const ResultEntry &e : answer.entries) {
        if ((steps++ & 4095) == 0) PollInterrupts();
        FitData::Doc d{relevant(e.row), (double)e.wordcnt, querywords, (uint32_t)data.terms.size(), 0};
        for (uint32_t h = e.firstHit; h < e.firstHit + e.nhits; h++) {
            if ((steps++ & 4095) == 0) PollInterrupts();
            const TermHit &hit = answer.hits[h];
            if (hit.leaf->node_op != EXPR_WORD) continue;
            TermClues c{(double)hit.leaf->node_querycnt, (double)hit.count, (double)e.wordcnt,
                        (double)hit.leaf->node_doccnt, (double)hit.leaf->node_wordcnt};
            std::array<double, 6> x;
            TermFeatures(c, querywords, terms, docs, x.data());
            data.terms.push_back(x);
        }
        d.nterms = (uint32_t)(data.terms.size() - d.firstTerm);
        // A document without matched words tells nothing about the model.
        if (d.nterms > 0) data.docs.push_back(d);
    }
}

namespace {

double LogSigmoid(double t) { return t >= 0 ? -std::log1p(std::exp(-t)) : t - std::log1p(std::exp(t)); }

// Solves a (k x k, symmetric positive definite) * d = g by Cholesky.
bool Solve(std::vector<double> a, std::vector<double> g, size_t k, std::vector<double> *d) {
    for (size_t j = 0; j < k; j++) {
        double s = a[j * k + j];
        for (size_t m = 0; m < j; m++) s -= a[j * k + m] * a[j * k + m];
        if (!(s > 0.0)) return false;
        double l = std::sqrt(s);
        a[j * k + j] = l;
        for (size_t i = j + 1; i < k; i++) {
            double t = a[i * k + j];
            for (size_t m = 0; m < j; m++) t -= a[i * k + m] * a[j * k + m];
            a[i * k + j] = t / l;
        }
    }
    for (size_t i = 0; i < k; i++) {
        double t = g[i];
        for (size_t m = 0; m < i; m++) t -= a[i * k + m] * g[m];
        g[i] = t / a[i * k + i];
    }
    for (size_t i = k; i-- > 0;) {
        double t = g[i];
        for (size_t m = i + 1; m < k; m++) t -= a[m * k + i] * g[m];
        g[i] = t / a[i * k + i];
    }
    *d = g;
    return true;
}

}  // namespace

FitStage FitLogistic(const std::vector<double> &x, const std::vector<uint8_t> &y, size_t k, double lambda,
                     std::vector<double> *beta) {
    FitStage st;
    size_t n = y.size(), p = k + 1;
    st.observations = n;
    for (uint8_t v : y) st.positives += v;
    beta->assign(p, 0.0);
    double rate = n ? (double)st.positives / (double)n : 0.5;
    if (rate > 0.0 && rate < 1.0) (*beta)[0] = std::log(rate / (1.0 - rate));
    for (size_t i = 0; i < n; i++) {
        double t = (*beta)[0];
        st.nullLogLikelihood += y[i] ? LogSigmoid(t) : LogSigmoid(-t);
    }
    auto loglik = [&](const std::vector<double> &b) {
        double ll = 0.0;
        for (size_t i = 0; i < n; i++) {
            if ((i & 4095) == 4095) PollInterrupts();
            double t = b[0];
            for (size_t j = 0; j < k; j++) t += b[j + 1] * x[i * k + j];
            ll += y[i] ? LogSigmoid(t) : LogSigmoid(-t);
        }
        for (size_t j = 1; j < p; j++) ll -= 0.5 * lambda * b[j] * b[j];
        return ll;
    };
    double ll = loglik(*beta);
    std::vector<double> grad(p), hess(p * p), row(p), step;
    for (st.iterations = 0; st.iterations < 100; st.iterations++) {
        PollInterrupts();
        std::fill(grad.begin(), grad.end(), 0.0);
        std::fill(hess.begin(), hess.end(), 0.0);
        for (size_t i = 0; i < n; i++) {
            if ((i & 4095) == 4095) PollInterrupts();
            row[0] = 1.0;
            for (size_t j = 0; j < k; j++) row[j + 1] = x[i * k + j];
            double t = 0.0;
            for (size_t j = 0; j < p; j++) t += (*beta)[j] * row[j];
            double pr = 1.0 / (1.0 + std::exp(-t));
            double w = pr * (1.0 - pr), r = (double)y[i] - pr;
            for (size_t a = 0; a < p; a++) {
                grad[a] += r * row[a];
                for (size_t b = 0; b <= a; b++) hess[a * p + b] += w * row[a] * row[b];
            }
        }
        for (size_t a = 0; a < p; a++)
            for (size_t b = 0; b < a; b++) hess[b * p + a] = hess[a * p + b];
        for (size_t j = 1; j < p; j++) {
            grad[j] -= lambda * (*beta)[j];
            hess[j * p + j] += lambda;
        }
        hess[0] += 1e-12;
        if (!Solve(hess, grad, p, &step)) break;
        // Halve the step until the likelihood does not fall.
        double scale = 1.0, newll = ll;
        std::vector<double> trial(p);
        for (int h = 0; h < 30; h++) {
            for (size_t j = 0; j < p; j++) trial[j] = (*beta)[j] + scale * step[j];
            newll = loglik(trial);
            if (newll >= ll - 1e-12) break;
            scale *= 0.5;
        }
        double moved = 0.0;
        for (size_t j = 0; j < p; j++) moved = std::max(moved, std::fabs(trial[j] - (*beta)[j]));
        *beta = trial;
        bool done = std::fabs(newll - ll) < 1e-10 * (1.0 + std::fabs(ll)) || moved < 1e-10;
        ll = newll;
        if (done) {
            st.converged = true;
            st.iterations++;
            break;
        }
    }
    st.logLikelihood = ll;
    return st;
}

bool FitDocParams(const FitData &data, FitResult *out, std::string *why) {
    constexpr double kRidge = 1e-4;
    // Stage 1: one observation per matched term.
    std::vector<double> x1;
    std::vector<uint8_t> y1;
    x1.reserve(data.terms.size() * 6);
    for (const FitData::Doc &d : data.docs) {
        PollInterrupts();
        for (uint32_t t = d.firstTerm; t < d.firstTerm + d.nterms; t++) {
            x1.insert(x1.end(), data.terms[t].begin(), data.terms[t].end());
            y1.push_back(d.relevant ? 1 : 0);
        }
    }
    size_t pos = 0;
    for (uint8_t v : y1) pos += v;
    if (pos == 0 || pos == y1.size()) {
        *why = y1.empty() ? "the judged queries match no document"
                          : pos == 0 ? "no answered document is judged relevant"
                                     : "every answered document is judged relevant";
        return false;
    }
    std::vector<double> b1;
    out->stage1 = FitLogistic(x1, y1, 6, kRidge, &b1);
    double *p = out->params;
    const double *cur = DocParams();
    for (int i = 0; i < kDocParamCount; i++) p[i] = cur[i];
    p[kTermDocWeightIntercept] = b1[0];
    for (int j = 0; j < 6; j++) p[kX1Coef + j] = b1[j + 1];
    double rate = (double)pos / (double)y1.size();
    p[kPriorLogOdds] = std::log(rate / (1.0 - rate));
    // Stage 2: one observation per answered document.
    std::vector<double> x2;
    std::vector<uint8_t> y2;
    for (const FitData::Doc &d : data.docs) {
        PollInterrupts();
        double z = 0.0;
        for (uint32_t t = d.firstTerm; t < d.firstTerm + d.nterms; t++) z = z + TermLogOdds(data.terms[t].data(), p);
        if (z < 1.0) z = 1.0;
        x2.push_back(std::log(z));
        x2.push_back(std::log(d.L));
        x2.push_back(std::log(d.querywords));
        y2.push_back(d.relevant ? 1 : 0);
    }
    std::vector<double> b2;
    out->stage2 = FitLogistic(x2, y2, 3, kRidge, &b2);
    p[kStage2Intercept] = b2[0];
    p[kZCoef] = b2[1];
    p[kDocLenCoef] = b2[2];
    p[kQryLenCoef] = b2[3];
    return true;
}

}  // namespace dt
