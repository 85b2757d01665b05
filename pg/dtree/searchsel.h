// The planner's estimates of the search operators (@@, @@@, %) and their
// function forms (Contains, ContainsWords, DocLike).
#pragma once

#include "boundary.h"
#include "exprtree.h"
#include "dtree_read.h"
#include "scantree.h"
#include "searchquery.h"

#include <memory>
#include <string>
#include <unordered_map>
#include <vector>

extern "C" {
#include "nodes/pathnodes.h"
}

namespace dt::pg {

// The tree of a search's constant argument (strategy 1 a query, 2 a word
// list, 3 another document) as the planner may build it: false, with no
// tree, for a query the parser refuses (reported when the search runs, not
// while planning) and for a document in a server file (read when the
// search runs).  *tree null: the search matches nothing.
bool PlannerSearchTree(dt::ExprArena &arena, int strategy, Datum value, dt::DocExprNode **tree,
                       dt::ScanCuts *cuts);

// A constant query as one planning reads it.  The estimates of a search
// (its selectivity, then each index path's cost) ask about the same query
// several times; the planning parses it once and reads its words' figures
// once per dtree index.
struct PlannedQuery {
    bool parsed = false;             // PlannerSearchTree's result
    dt::DocExprNode *tree = nullptr;
    dt::ScanCuts cuts;               // its options prefix
    std::string wordnetVersion;      // the WordNet tables it was stemmed with ("": unknown)
    std::vector<std::string> words;  // the word leaves, in tree order

    // The document frequency (postings) of each word in one dtree index,
    // and the index's number of documents.
    struct Figures {
        Oid index = InvalidOid;
        int64 numdocs = 0;
        std::vector<int64> counts;
    };
    std::vector<Figures> figures;  // read so far
    dt::ExprArena arena;
};

// The current planning's reading of the query value of a search of
// strategy 1 to 3.  The caller keeps it as long as it needs it; a later
// planning reads the query afresh.
std::shared_ptr<PlannedQuery> PlanQuery(int strategy, Datum value);

// The tree and cuts of a scan's only condition c as the latest planning
// read the same query value, copied into arena: the scan of the statement
// just planned does not parse its query again.  False when that planning
// did not read this value, or the WordNet tables changed since (the stems
// could differ).
bool PlannedScanTree(dt::ExprArena &arena, const ScanCondition &c, dt::DocExprNode **tree, dt::ScanCuts *cuts);

// The counters of the dtree index indexoid, read once per planning.
DtMetaInfo PlannedIndexMeta(Oid indexoid);

// The leaf entries of the words a planning looked up in a dtree index,
// handed to the scans of the statement it planned, which then look up
// none of them again.  They hold only while the index's change count is
// the one read before the lookups (a scan reads the meta page to check),
// and only for the same relation file.
struct PlannedEntries {
    Oid relfilenode = InvalidOid;
    uint32 changes = 0;
    struct Entry {
        int64 count = 0;    // postings
        bool kept = false;  // item holds the entry (else the scan looks the word up)
        std::string item;   // the leaf item as DtTermEntryItem gave it; empty: not in the index
    };
    std::unordered_map<std::string, Entry> words;
    size_t keptBytes = 0;   // of the items kept
};

// The entries the latest planning looked up in index; null if none.
std::shared_ptr<const PlannedEntries> PlannedEntriesOf(Relation index);

// The words' figures in the dtree index indexoid, read once per reading.
PlannedQuery::Figures PlannedFigures(PlannedQuery &q, Oid indexoid);

// Counts plannings (a planner hook), so that each starts without the
// readings of the one before.
void InstallPlannerCount();

// Whether a search's args (the document, then a constant query) can be
// answered without reading the document: the query matches every
// document (stop words only) or none.
bool SearchSkipsDocument(List *args, int strategy);

// The fraction of the rows of relation varRelid for which the search
// args (the document, then the query) holds.
double SearchSelectivity(PlannerInfo *root, List *args, int varRelid, int strategy);

}  // namespace dt::pg
