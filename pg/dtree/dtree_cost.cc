// The planner's view of a dtree index: term document frequencies, the
// model's estimate dtstat, and the access method's cost estimate.
//
// Cost of a scan.  The scan parses and stems each condition's query, reads
// the postings of every word (one descent of the term tree each, then the
// word's list), or the whole document list for a query that matches every
// document, combines the lists in memory and only then returns its first
// row: the startup cost is the total cost.  So:
//   pages read = the meta page + one descent (tree height) per leaf of the
//                queries + the share of the index's pages that the postings
//                read take (postings read / postings held);
//   CPU        = a constant per leaf (stemming, lookup) + one operator per
//                posting read + one index tuple per row returned;
// with the postings read taken from the index itself for constant queries
// (the document frequency of each word) and from the conditions'
// selectivity otherwise.  Pages are costed as random reads, and repeated
// scans (the inner side of a nested loop) share what they read, as the
// server's own estimate for indexes does.
#include "dtree_cost.h"
#include "dtree_internal.h"
#include "dtree_read.h"

#include <cmath>
#include <string>
#include <vector>

#include "boundary.h"
#include "docstats.h"
#include "searchsel.h"
#include "treeselectivity.h"

extern "C" {
#include "access/relation.h"
#include "catalog/index.h"
#include "catalog/pg_am.h"
#include "commands/defrem.h"
#include "optimizer/cost.h"
#include "optimizer/optimizer.h"
#include "utils/lsyscache.h"
#include "utils/selfuncs.h"
#include "utils/spccache.h"
}

static void DtRaiseNoTermTree(Relation rel) {
    dt::pg::PendingError pe;
    {
        dt::Error e("L0002", {{"OBJECT", "index"},
                              {"OBJ_NAME", RelationGetRelationName(rel)},
                              {"HINT", "The index of a partitioned table keeps its terms in the indexes of the "
                                       "partitions: ask one of those."}});
        dt::pg::FillPending(pe, e);
    }
    relation_close(rel, AccessShareLock);
    dt::pg::RaisePending(pe);
}

void DtStat(Oid indexoid, DtStatResult *out) {
    Relation index = try_relation_open(indexoid, AccessShareLock);
    if (!index) {
        dt::pg::PendingError pe;
        {
            dt::Error e("Z0005", {{"CLASS", "table"}, {"VALUE", std::to_string(indexoid)}});
            dt::pg::FillPending(pe, e);
        }
        dt::pg::RaisePending(pe);
    }
    // A dtree index of a partitioned table has no storage of its own: no
    // term tree to read (its partitions' indexes have one each).
    if (index->rd_rel->relkind == RELKIND_PARTITIONED_INDEX && index->rd_rel->relam == get_index_am_oid("dtree", true))
        DtRaiseNoTermTree(index);
    if (index->rd_rel->relkind != RELKIND_INDEX) {
        char *name = pstrdup(RelationGetRelationName(index));
        relation_close(index, AccessShareLock);
        DtRaiseStr("LI003", "TABLE_NAME", name);
    }
    if (!DtIsDtreeIndex(index)) {
        relation_close(index, AccessShareLock);
        DtRaiseUser("index not a dtree index");
    }
    DtCheckTablePrivilege(index, ACL_SELECT);
    DtMetaInfo mi;
    DtReadMeta(index, &mi);
    BlockNumber nipages = RelationGetNumberOfBlocks(index);
    Oid heapid = index->rd_index->indrelid;
    AttrNumber attnum = index->rd_index->indkey.values[0];
    relation_close(index, AccessShareLock);

    int avg = 0;
    double nullfrac;
    // A figure of 0 (no counted terms in the sample) would divide by zero:
    // it counts as no figure.
    if (!DtColumnStatsTerms(heapid, attnum, &avg, &nullfrac) || avg <= 0) avg = 100;
    uint32 total_terms = (uint32) avg * (uint32) mi.numdocs;
    float4 selec = (float4) (1.0 / avg);
    out->selec = selec;
    out->npage = (int32) ceil((double) nipages * (double) selec);
    out->ntup = (int32) ceil((double) total_terms * (double) selec);
}

namespace {

using dt::pg::ServerCall;

// What one scan reads.
struct ScanWork {
    double postings = 0;  // postings decoded
    double leaves = 0;    // term lookups (one descent each)
};

// Adds the work of one condition of the scan.
void ConditionWork(PlannerInfo *root, IndexOptInfo *index, RestrictInfo *rinfo, const DtMetaInfo &meta,
                   ScanWork &w) {
    int strategy = 0;
    bool isConst = false, isNull = false;
    Datum value = (Datum) 0;
    Selectivity clauseSel = 1.0;
    ServerCall([&] {
        clauseSel = clause_selectivity(root, (Node *) rinfo, 0, JOIN_INNER, NULL);
        Expr *clause = rinfo->clause;
        if (!IsA(clause, OpExpr) || list_length(((OpExpr *) clause)->args) != 2) return;
        OpExpr *op = (OpExpr *) clause;
        strategy = get_op_opfamily_strategy(op->opno, index->opfamily[0]);
        Node *arg = estimate_expression_value(root, (Node *) lsecond(op->args));
        if (IsA(arg, Const)) {
            isConst = true;
            isNull = ((Const *) arg)->constisnull;
            value = ((Const *) arg)->constvalue;
        }
    });
    double numdocs = std::max<int32>(meta.numdocs, 0);
    if (isConst && isNull) return;  // nothing to read
    std::shared_ptr<dt::pg::PlannedQuery> q;
    if (isConst && strategy >= 1 && strategy <= 3) q = dt::pg::PlanQuery(strategy, value);
    if (!q || !q->parsed) {
        // Unknown query: as many postings as the rows it is expected to
        // find, from one lookup.
        w.postings += clauseSel * numdocs;
        w.leaves += 1;
        return;
    }
    dt::ForEachLeaf(q->tree, [&](const dt::DocExprNode &n) {
        w.leaves += 1;
        if (n.node_op == dt::EXPR_ALL || n.node_op == dt::EXPR_STOPWORD) w.postings += numdocs;
    });
    if (q->words.empty()) return;
    dt::pg::PlannedQuery::Figures f = dt::pg::PlannedFigures(*q, index->indexoid);
    for (int64 c : f.counts) w.postings += (double) c;
}

}  // namespace

void DtCostEstimate(PlannerInfo *root, IndexPath *path, double loop_count, Cost *indexStartupCost,
                    Cost *indexTotalCost, Selectivity *indexSelectivity, double *indexCorrelation,
                    double *indexPages) {
    dt::pg::Guard([&] {
        IndexOptInfo *index = path->indexinfo;
        if (index->hypothetical) {
            // No storage to look at: the server's generic figures.
            ServerCall([&] {
                GenericCosts costs;
                MemSet(&costs, 0, sizeof(costs));
                genericcostestimate(root, path, loop_count, &costs);
                *indexStartupCost = costs.indexTotalCost;
                *indexTotalCost = costs.indexTotalCost;
                *indexSelectivity = costs.indexSelectivity;
                *indexCorrelation = 0.0;
                *indexPages = costs.numIndexPages;
            });
            return;
        }
        DtMetaInfo meta;
        List *quals = NIL;
        Selectivity sel = 1.0;
        double randomPageCost = 0.0;
        Cost operandCost = 0.0;
        meta = dt::pg::PlannedIndexMeta(index->indexoid);
        ServerCall([&] {
            quals = get_quals_from_indexclauses(path->indexclauses);
            sel = clauselist_selectivity(root, quals, index->rel->relid, JOIN_INNER, NULL);
            get_tablespace_page_costs(index->reltablespace, &randomPageCost, NULL);
            operandCost = index_other_operands_eval_cost(root, quals);
        });
        ScanWork w;
        ListCell *lc;
        foreach (lc, quals) ConditionWork(root, index, lfirst_node(RestrictInfo, lc), meta, w);

        double pages = std::max<double>(index->pages, 1.0);
        double held = (double) std::max<int64>(meta.npostings, 0) + std::max<int32>(meta.numdocs, 0);
        double postingPages = held > 0 ? std::ceil(pages * std::min(1.0, w.postings / held)) : 0.0;
        double numIndexPages = std::min(pages, 1.0 + w.leaves * std::max(meta.height, 1) + postingPages);
        double pageCost;
        if (loop_count > 1) {
            double fetched = ServerCall(
                [&] { return index_pages_fetched(numIndexPages * loop_count, (BlockNumber) pages, pages, root); });
            pageCost = fetched * randomPageCost / loop_count;
        } else {
            pageCost = numIndexPages * randomPageCost;
        }
        double rows = sel * index->rel->tuples;
        double cpu = w.leaves * 10.0 * cpu_operator_cost + w.postings * cpu_operator_cost + rows * cpu_index_tuple_cost;
        *indexStartupCost = *indexTotalCost = pageCost + cpu + operandCost;
        *indexSelectivity = sel;
        *indexCorrelation = 0.0;
        *indexPages = numIndexPages;
    });
}
