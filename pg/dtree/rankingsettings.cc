#include "rankingsettings.h"

#include <cfloat>
#include <cmath>
#include <cstdio>
#include <string>

#include "boundary.h"
#include "ranking.h"

extern "C" {
#include "utils/guc.h"
}

namespace dt::pg {

namespace {

struct RankingSetting {
    const char *name;
    const char *description;
};

// By coefficient number (dt::DocParam).
const RankingSetting kRankingSettings[dt::kDocParamCount] = {
    {"document.rank_doc_len_coef", "Ranking, stage 2: coefficient of the log of the document's word count."},
    {"document.rank_qry_len_coef", "Ranking, stage 2: coefficient of the log of the query's length."},
    {"document.rank_term_doc_weight_intercept", "Ranking, stage 1: intercept of a matched term's log odds."},
    {"document.rank_x1_coef", "Ranking, stage 1: coefficient of X1, the log of the term's weight in the query."},
    {"document.rank_x2_coef", "Ranking, stage 1: coefficient of X2, the log of the term's share of the query."},
    {"document.rank_x3_coef", "Ranking, stage 1: coefficient of X3, the log of the term's count in the document."},
    {"document.rank_x4_coef", "Ranking, stage 1: coefficient of X4, the log of the term's share of the document."},
    {"document.rank_x5_coef", "Ranking, stage 1: coefficient of X5, the log of the term's rarity among documents."},
    {"document.rank_x6_coef", "Ranking, stage 1: coefficient of X6, the log of the term's share of all words."},
    {"document.rank_prior_log_odds", "Ranking, stage 1: prior log odds, subtracted from every term's log odds."},
    {"document.rank_stage2_intercept", "Ranking, stage 2: intercept of a document's log odds."},
    {"document.rank_z_coef", "Ranking, stage 2: coefficient of the log of Z, the sum of the terms' log odds."},
};

}  // namespace

void DefineRankingSettings() {
    for (int i = 0; i < dt::kDocParamCount; i++)
        DefineCustomRealVariable(kRankingSettings[i].name, kRankingSettings[i].description,
                                 "dt_SetDocParam sets it by number; dt_DocParams lists all twelve.",
                                 dt::DocParamSlot(i), dt::kDocParamInfo[i].defaultValue, -DBL_MAX, DBL_MAX,
                                 PGC_USERSET, 0, nullptr, nullptr, nullptr);
}

void SetRankingCoefficient(int n, double value) {
    if ((unsigned)n >= (unsigned)dt::kDocParamCount) return;
    const char *name = kRankingSettings[n].name;
    if (!std::isfinite(value))
        throw dt::Error::User(std::string("ranking coefficient ") + dt::kDocParamInfo[n].name +
                                  " must be a finite number",
                              "22023");
    // As many digits as give the same double back.
    char text[40];
    snprintf(text, sizeof text, "%.17g", value);
    ServerCall([&] {
        (void)set_config_option(name, text, PGC_USERSET, PGC_S_SESSION, GUC_ACTION_SET, true, 0, false);
    });
}

}  // namespace dt::pg
