// What the planner learns from a dtree index: the document frequency of a
// term, the model's estimate of a scan (dtstat) and the access method's
// cost estimate.  C-style: these may raise server errors (call them
// through dt::pg::ServerCall from C++ code).
#pragma once

extern "C" {
#include "postgres.h"
#include "nodes/pathnodes.h"
#include "utils/rel.h"
}

// dtstat: the model's estimate of a scan of a dtree index: selectivity
// 1 / avg_term_cnt of the indexed column (100 without a usable figure),
// pages ceil(pages of the index * selectivity), rows
// ceil(avg_term_cnt * documents * selectivity), each product in double
// with the selectivity widened from float.  Opens the index itself (Z0005
// when it cannot); needs SELECT on its table.
typedef struct DtStatResult {
    float4 selec;
    int32 npage;
    int32 ntup;
} DtStatResult;
void DtStat(Oid indexoid, DtStatResult *out);

// The access method's cost estimate (amcostestimate).
void DtCostEstimate(PlannerInfo *root, IndexPath *path, double loop_count, Cost *indexStartupCost,
                    Cost *indexTotalCost, Selectivity *indexSelectivity, double *indexCorrelation,
                    double *indexPages);
