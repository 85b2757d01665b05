// Pages of a dtree index.
//
// One relation.  Block 0 is the meta page: DTMetaPageData at the start of
// the page contents, then DtMetaExtra.  Every other page is a tree page
// (internal or leaf: items with line pointers, the first one the page's
// high key unless the page is the rightmost of its level), a posting page
// (one run of varbyte-coded postings, chained by right links), or a deleted
// page waiting to be recycled.  Each non-meta page ends in DtPageOpaque.
//
// The routines here are C-style: they hold no C++ objects, may raise server
// errors, and are safe to call with buffers locked.
#pragma once

extern "C" {
#include "postgres.h"
#include "access/generic_xlog.h"
#include "access/transam.h"
#include "storage/bufmgr.h"
#include "storage/bufpage.h"
#include "utils/rel.h"
}

#include "postingcodec.h"

#define DTREE_MAGIC ((int32) 0xAEAEAEAE)
#define DTREE_VERSION 2  // 2: posting pages count their rows and occurrences
#define DTREE_METAPAGE_BLKNO 0
#define DTREE_PAGE_ID 0xD7E3
#define DT_MAX_HEIGHT 32

// Page flags.
#define DT_META 0x01
#define DT_LEAF 0x02
#define DT_INTERNAL 0x04
#define DT_POSTING 0x08
#define DT_DELETED 0x10
#define DT_RIGHTMOST 0x20  // tree page without a high key

// The collection counters, as every reader of block 0 expects them.
typedef struct DTMetaPageData {
    int32 dtm_magic;
    int32 dtm_version;
    int32 dtm_numterms;
    int32 dtm_numdocs;
    char dtm_flags;
    char dtm_pad[3];
} DTMetaPageData;

// What the tree needs beyond the counters.
typedef struct DtMetaExtra {
    BlockNumber root;   // InvalidBlockNumber: no tree yet
    int32 height;       // levels; 1 when the root is a leaf
    int32 ndistinct;    // terms with an entry (the document list not counted)
    uint32 changes;     // records that wrote this page (every change of an
                        // entry or list writes it too); wraps
    int64 npostings;    // postings of all terms
} DtMetaExtra;

typedef struct DtPageOpaque {
    FullTransactionId deletexid;  // deleted page: next xid when it was unlinked
    BlockNumber rightlink;        // right sibling / next posting page
    uint16 flags;
    uint16 page_id;
} DtPageOpaque;

// A leaf entry, internal item or high key as stored (then key bytes, then
// payload).
typedef struct DtItemHeader {
    uint8 kind;       // dt::dtree::ItemKind
    uint8 flags;
    uint16 keylen;
    uint32 value;     // leaf entry: postings; downlink: child block
} DtItemHeader;

// Payload of a chain entry.
typedef struct DtChainRef {
    BlockNumber head;
    BlockNumber tail;
} DtChainRef;

// Start of a posting page's contents.  nrows and countsum let a reader
// take a page's share of a term's document and occurrence counts without
// decoding it.
typedef struct DtPostingPageHeader {
    uint64 firsttid;   // row of the first posting (0 when empty)
    uint64 lasttid;    // row of the last posting (0 when empty)
    uint32 npostings;
    uint32 nbytes;     // coded bytes that follow
    uint32 nrows;      // distinct rows of the page's postings
    uint32 countsum;   // sum of the postings' counts
} DtPostingPageHeader;

#define DtPageGetOpaque(page) ((DtPageOpaque *) PageGetSpecialPointer(page))
#define DtPageGetMeta(page) ((DTMetaPageData *) PageGetContents(page))
#define DtPageGetMetaExtra(page) ((DtMetaExtra *) (PageGetContents(page) + MAXALIGN(sizeof(DTMetaPageData))))
#define DtPageGetPostingHeader(page) ((DtPostingPageHeader *) PageGetContents(page))
#define DtPostingPageData(page) ((unsigned char *) PageGetContents(page) + sizeof(DtPostingPageHeader))
// Coded bytes a posting page holds.
#define DT_POSTING_CAPACITY \
    (BLCKSZ - MAXALIGN(SizeOfPageHeaderData) - sizeof(DtPostingPageHeader) - MAXALIGN(sizeof(DtPageOpaque)))
// Item space of a tree page.
#define DT_ITEM_SPACE (BLCKSZ - MAXALIGN(SizeOfPageHeaderData) - MAXALIGN(sizeof(DtPageOpaque)))

#define DtItemKey(ih) ((const char *) (ih) + sizeof(DtItemHeader))
#define DtItemPayload(ih) ((unsigned char *) (ih) + sizeof(DtItemHeader) + (ih)->keylen)

// The key of the document list: the empty term, before every term.
#define DT_DOCLIST_KEY ""
#define DT_DOCLIST_KEYLEN 0

// Page formatting.
void DtInitPage(Page page, uint16 flags);
// Fills a posting page's header for the n postings (row order) coded in
// its nbytes bytes, and sets pd_lower after them.
void DtSetPostingHeader(Page page, const dt::Posting *p, uint32 n, uint32 nbytes);
// The header after one posting was coded in k more bytes at the end.
void DtAppendPostingHeader(Page page, const dt::Posting &p, uint32 k);
void DtInitMetaPage(Page page);
bool DtPageIsTree(Page page);
// Checks the page is a dtree page of one of the kinds in flags; raises
// index-corrupted otherwise.
void DtCheckPage(Relation index, Page page, BlockNumber blkno, uint16 kinds);

// Items of a tree page.
DtItemHeader *DtPageItem(Page page, OffsetNumber off);
OffsetNumber DtFirstDataOffset(Page page);
// -1, 0, 1: the item's key against key.
int DtCompareItemKey(const DtItemHeader *ih, const char *key, int keylen);
// True if key is at or beyond the page's high key (the search must move right).
bool DtBeyondHighKey(Page page, const char *key, int keylen);
// Internal page: the child whose range holds key.
BlockNumber DtFindChild(Page page, const char *key, int keylen, OffsetNumber *off);
// Leaf: the offset of key's entry, or InvalidOffsetNumber; *insertat is
// where a new entry would go.
OffsetNumber DtFindEntry(Page page, const char *key, int keylen, OffsetNumber *insertat);

// A new page for the index, exclusively locked: recycled when a free one is
// known, else the relation is extended.
Buffer DtNewBuffer(Relation index);

// Replaces the contents of n (at most MAX_GENERIC_XLOG_PAGES) exclusively
// locked buffers with the given page images as one WAL record.  isnew[i]
// logs a full image (new or recycled pages).  The meta page's image, when
// it is one of them, gets its change count bumped.
void DtWritePages(Relation index, int n, const Buffer *bufs, Page *images, const bool *isnew);

// Meta page: read the counters under a share lock.
void DtReadMetaPage(Relation index, DTMetaPageData *meta, DtMetaExtra *extra);

// Private page images.
Page DtPageImage(void);
// Scratch page images of the insert path, kept for the life of the backend
// (numbers 0 to 7; each user knows which it may take).
Page DtScratchPage(int i);
void DtCopyPage(Page dst, Buffer buf);
