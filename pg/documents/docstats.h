// Optimizer statistics of doc columns: the average number of terms per
// document that ANALYZE stores for a column (the `typanalyze` of doc), and
// the selectivity model built on it: a query term matches one document in
// that many.
//
// The figure is kept in pg_statistic in a slot of kind
// STATISTIC_KIND_DOC_TERMS (a number of the range reserved for private
// use): stanumbers[0] holds it as a number and stavalues[0] as the
// decimal text that the estimators read back with atoi.
#pragma once

extern "C" {
#include "postgres.h"
#include "access/attnum.h"
#include "access/htup.h"
}

#define STATISTIC_KIND_DOC_TERMS 17110

// The figure of one statistics row (a pg_statistic tuple); false when the
// row has none.  May raise a server error (call through ServerCall).
bool DtStatsTupleTerms(HeapTuple statsTuple, int *avgTerms);
// The same for a column of a table (non-inherited statistics), with the
// column's null fraction.  May raise a server error.
bool DtColumnStatsTerms(Oid relid, AttrNumber attnum, int *avgTerms, double *nullfrac);

// The model's selectivity of `column op constant` (columnOnLeft) or
// `constant op column`: 1 / avgTerms when the column has a figure, else
// 0.1 and 0.01.  A figure of 0 or less (a column whose sampled documents
// hold no counted terms) counts as none.  Computed in double, rounded to
// float.
float4 DtModelSelectivity(bool haveFigure, int avgTerms, bool columnOnLeft);
