// Routines shared by the files of the dtree access method (C-style: no C++
// objects, may raise server errors).
#pragma once

extern "C" {
#include "postgres.h"
#include "access/amapi.h"
#include "access/genam.h"
#include "nodes/execnodes.h"
#include "utils/rel.h"
}

#include "dtree_page.h"
#include "dtree_read.h"
#include "postingcodec.h"

// The internal page holding the downlink to child, locked in mode: the
// page start (the child's parent when a descent passed it) or one to its
// right, where a split of the parent moved the downlink.  Tree pages keep
// their level for good, so the search stays on that level.  Raises
// index-corrupted when no page has it, or returns InvalidBuffer if
// missing_ok.
Buffer DtLockParent(Relation index, BlockNumber start, BlockNumber child, int mode, bool missing_ok);

// Adds one posting to key's entry (made when missing) and the deltas to
// the meta counters, in one WAL record.  Takes buffer locks only; any
// number of inserts, scans and VACUUM may run at the same time.
void DtInsertPosting(Relation index, const char *key, int keylen, const dt::Posting *p, int32 dterms, int32 ddocs);

// A document's terms for indexing, sorted in byte order.
typedef struct DtDocTerms {
    int nterms;
    char **terms;
    int *lens;
    int32 *counts;
    int64 total;     // occurrences of all terms
    uint32 wordcnt;  // the document's word count for ranking
} DtDocTerms;

// Reads a doc value's terms.  Raises a server error on failure.
void DtGetDocTerms(Datum value, DtDocTerms *out);
void DtFreeDocTerms(DtDocTerms *t);

// Raises the module's error code with one named integer or string
// parameter (name may be NULL).
void DtRaiseInt(const char *code, const char *name, long long value) pg_attribute_noreturn();
void DtRaiseStr(const char *code, const char *name, const char *value) pg_attribute_noreturn();
void DtRaiseUser(const char *text) pg_attribute_noreturn();

// Opens an index named by text for the SQL functions: L0002 when there is
// no such relation, LI003 when it is not an index, "index not a dtree
// index" for another kind of index.  The lock is kept.
Relation DtOpenIndexByName(text *name, LOCKMODE lock);
// The same for a regclass argument.
Relation DtOpenIndexByOid(Oid relid, LOCKMODE lock);
bool DtIsDtreeIndex(Relation rel);
// Raises an error unless the user has the privilege on the index's table.
void DtCheckTablePrivilege(Relation index, AclMode mode);

// Access-method callbacks.
IndexBuildResult *dtbuild(Relation heap, Relation index, IndexInfo *indexInfo);
void dtbuildempty(Relation index);
bool dtinsert(Relation index, Datum *values, bool *isnull, ItemPointer ht_ctid, Relation heapRel,
              IndexUniqueCheck checkUnique, bool indexUnchanged, IndexInfo *indexInfo);
IndexBulkDeleteResult *dtbulkdelete(IndexVacuumInfo *info, IndexBulkDeleteResult *stats,
                                    IndexBulkDeleteCallback callback, void *callback_state);
IndexBulkDeleteResult *dtvacuumcleanup(IndexVacuumInfo *info, IndexBulkDeleteResult *stats);
bool dtvalidate(Oid opclassoid);
IndexScanDesc dtbeginscan(Relation index, int nkeys, int norderbys);
void dtrescan(IndexScanDesc scan, ScanKey keys, int nkeys, ScanKey orderbys, int norderbys);
bool dtgettuple(IndexScanDesc scan, ScanDirection dir);
int64 dtgetbitmap(IndexScanDesc scan, TIDBitmap *tbm);
void dtendscan(IndexScanDesc scan);
void dtmarkpos(IndexScanDesc scan);
// The distance for the ordering query of a row holding doc, among the rows
// that the latest live dtree scan ordered by doc <=> query has handed out:
// false when there is no such scan or row.  raw is the argument as the
// executor passed it, before detoasting (it identifies the row just
// fetched without fetching it again).  May raise (runs inside ServerCall).
bool DtRowDistance(const struct varlena *doc, const void *raw, const char *query, Size len, double *distance);
void dtrestrpos(IndexScanDesc scan);
