// Reading a dtree index: its counters, the postings of a term, and the list
// of indexed documents.
//
// C-style interface for the scan and ranking code.  Every routine here may
// raise a server error (ereport) and must therefore be called where no C++
// object with a destructor is alive, or through dt::pg::ServerCall.  None
// of them holds a buffer lock or pin when it returns: an iterator reads one
// page at a time under a share lock, copies that page's coded postings into
// its own palloc'd memory, and releases the page before decoding them, so a
// caller may run any code (even code that reads the heap or throws) between
// two calls of DtNextPosting.
//
// Concurrency: iterators see every posting that was committed to the index
// before they began and possibly some added later; pages split or emptied
// by concurrent inserts and VACUUM never make an iterator skip or repeat a
// posting that stays in the index.  The index does not know visibility:
// postings of dead or uncommitted rows are returned until VACUUM removes
// them, so the caller checks the heap (or the visibility map).
#pragma once

extern "C" {
#include "postgres.h"
#include "storage/itemptr.h"
#include "utils/rel.h"
}

#include "dtree_page.h"
#include "postingcodec.h"

#ifdef __cplusplus
extern "C" {
#endif

// The meta page's counters.
typedef struct DtMetaInfo {
    int32 numterms;       // dtm_numterms: occurrences of all terms in all indexed documents
    int32 numdocs;        // dtm_numdocs: indexed documents (non-null values)
    int32 ndistinct;      // distinct terms
    int64 npostings;      // postings of all terms (a term's list counts its repeats)
    BlockNumber root;     // root of the term tree, InvalidBlockNumber when empty
    int32 height;         // levels of the term tree (1: the root is a leaf)
    uint32 changes;       // bumped by every write of an entry or a list, with
                          // the entry's page locked (wraps)
} DtMetaInfo;

// One posting: the document at tid holds the term count times; wordcnt is
// the document's word count (its stored ht_wordcnt, or, for a document that
// stores none, the number of term occurrences counted when it was indexed).
typedef struct DtPosting {
    ItemPointerData tid;
    int32 count;
    uint32 wordcnt;
} DtPosting;

typedef struct DtPostingIter DtPostingIter;

// Reads the meta page.  Raises an error if the relation is not a dtree index.
void DtReadMeta(Relation index, DtMetaInfo *out);

// The postings of one term (its bytes as the tree keys them: the stemmed,
// lower-case word, no terminator), in heap-row order.  A term that is not
// in the index gives an iterator with no postings.  A row may come more
// than once in a row (terms added to it by AddIndexTerms are postings of
// their own); such repeats are adjacent.
DtPostingIter *DtBeginTermPostings(Relation index, const char *term, int termlen);

// Every indexed document that has at least one term, in heap-row order:
// count is the number of term occurrences indexed for it, wordcnt its word
// count.  Documents without terms (and null values) are not listed.
DtPostingIter *DtBeginAllDocs(Relation index);

// The number of postings the iterator's list held when it began (the
// term's document frequency, before visibility), or -1 if unknown.
int64 DtIterPostingCount(DtPostingIter *it);

// A term's leaf entry as one lookup found it: where its list starts, and
// its posting count.  Reading the list from it later gives every posting
// that was in the index at the lookup (pages that the list's chain leaves
// stay readable until no transaction of that time remains), so one lookup
// serves all the reads of one scan.
typedef struct DtTermEntry DtTermEntry;

// Looks a term up (one descent of the term tree); a term not in the index
// gives an entry with no postings.
DtTermEntry *DtLookupTerm(Relation index, const char *term, int termlen);

// The entry's posting count: the term's document frequency, counting dead
// rows VACUUM has not removed yet and repeats added by AddIndexTerms; 0 for
// a term not in the index.
int64 DtTermEntryCount(const DtTermEntry *entry);

// The postings of the entry's term, like DtBeginTermPostings.
DtPostingIter *DtBeginEntryPostings(Relation index, const DtTermEntry *entry);

// The entry's leaf item as the lookup copied it (*item null and 0 for a
// term not in the index), to be kept elsewhere; DtTermEntryFromItem makes
// an entry of such bytes again.  A kept entry stays good to read only as
// long as the meta page's change count is the one read before the lookup
// (DtMetaInfo.changes): any write of an entry or a list bumps it.
Size DtTermEntryItem(const DtTermEntry *entry, const void **item);
DtTermEntry *DtTermEntryFromItem(const void *item, Size len);

void DtFreeTermEntry(DtTermEntry *entry);

// The next posting; false when there are no more.
bool DtNextPosting(DtPostingIter *it, DtPosting *out);

// The rows of the next postings, as 48-bit keys (block << 16 | offset),
// up to max of them, decoded without their counts; 0 at the end.  Repeats
// of a row come as they are.  Not for the every-document list.
uint32 DtNextRows(DtPostingIter *it, uint64 *rows, uint32 max);

// Moves forward to the first posting whose row is >= tid (a skip for
// intersections) and returns it like DtNextPosting.  Posting pages wholly
// below tid are passed by their headers without being decoded.
bool DtSkipTo(DtPostingIter *it, ItemPointer tid, DtPosting *out);

// Of the rows cand (ncand sorted 48-bit keys), those the list holds, into
// out (room for ncand), skipping through the list as DtSkipTo does;
// returns how many.  The iterator is not read otherwise afterwards.
int64 DtRowsHeld(DtPostingIter *it, const uint64 *cand, int64 ncand, uint64 *out);

// A piece of a list as stored: an entry's inline list or one posting
// page.  Rows are 48-bit keys (block << 16 | offset).  When summed, nrows
// and countsum are the piece's distinct rows and the sum of its counts,
// known without decoding it.
typedef struct DtChunk {
    uint64 firsttid, lasttid;
    uint32 npostings;
    uint32 nrows, countsum;
    bool summed;
} DtChunk;

// Moves to the next non-empty piece of the list without decoding it; false
// at the end.  An iterator read by pieces is not read by DtNextPosting or
// DtSkipTo.
bool DtNextChunk(DtPostingIter *it, DtChunk *out);

// The postings of the current piece (decoded on the first call), in row
// order; valid until the next call on the iterator.
const dt::Posting *DtChunkPostings(DtPostingIter *it, uint32 *n);

// Frees the iterator (it holds no buffer).
void DtEndPostings(DtPostingIter *it);

#ifdef __cplusplus
}
#endif

// The walk of the term tree, for the writers, VACUUM and the checker
// (C++ linkage).

// The leaf whose range holds key, from root down (moving right where a
// high key says so); path, when given, gets the internal pages passed and
// *depth their number.  InvalidBlockNumber when root is.
BlockNumber DtDescend(Relation index, BlockNumber root, const char *key, int keylen, BlockNumber *path, int *depth);
// The root of the term tree, or InvalidBlockNumber while it is empty.  The
// block is kept in the relation's cache (dropped with it when the index
// gets a new file) and read from the meta page only when the page it names
// is no root any more, so that descents do not all lock the meta page,
// which every writer changes.  Any page that was the root is a good start
// for a descent (it is the leftmost of its level), only longer.
BlockNumber DtRoot(Relation index);
// The same for a caller that holds the leaves held[0..nheld-1] locked: a
// cached root among them (a leaf that was the root before the tree grew)
// is not looked at but read again from the meta page.
BlockNumber DtRootNotHeld(Relation index, const Buffer *held, int nheld);
// The leftmost leaf, or InvalidBlockNumber for an empty tree.
BlockNumber DtLeftmostLeaf(Relation index);

// The leaf entry of key, copied into palloc'd memory (its length in *len),
// or NULL.
DtItemHeader *DtLookupEntry(Relation index, const char *key, int keylen, Size *len);

// The document list with every document, also those without terms.
DtPostingIter *DtBeginDocList(Relation index);
