// Reading postings: term lookup down the tree, then the entry's inline list
// or its chain of posting pages, one page at a time.
#include "dtree_page.h"
#include "dtree_internal.h"

#include <cstring>

#include "dtreelayout.h"
#include "postingcodec.h"

extern "C" {
#include "miscadmin.h"
#include "utils/memutils.h"
}

struct DtPostingIter {
    Relation index;
    dt::Posting *postings;  // the current page's postings
    uint32 n, pos, cap;
    BlockNumber next;       // next posting page, or InvalidBlockNumber
    int64 total;
    bool alldocs;           // skip documents without terms
    bool inlinePending;     // chunks: the entry's inline list is still to come
    bool coded;             // scratch holds the current page, not yet decoded
    BlockNumber page;       // the current page
    uint32 nbytes;          // its coded bytes in scratch
    unsigned char scratch[BLCKSZ];
};

BlockNumber DtDescend(Relation index, BlockNumber root, const char *key, int keylen, BlockNumber *path, int *depth) {
    BlockNumber blk = root;
    int d = 0;
    while (blk != InvalidBlockNumber) {
        Buffer buf = ReadBuffer(index, blk);
        LockBuffer(buf, BUFFER_LOCK_SHARE);
        Page page = BufferGetPage(buf);
        DtCheckPage(index, page, blk, DT_LEAF | DT_INTERNAL | DT_DELETED);
        BlockNumber next;
        if (DtPageGetOpaque(page)->flags & DT_DELETED) {
            // An empty leaf that VACUUM took out of the tree after the
            // downlink was read: its right sibling took over its keys.
            next = DtPageGetOpaque(page)->rightlink;
        } else if (DtBeyondHighKey(page, key, keylen)) {
            next = DtPageGetOpaque(page)->rightlink;
        } else if (DtPageGetOpaque(page)->flags & DT_INTERNAL) {
            if (d >= DT_MAX_HEIGHT - 1) elog(ERROR, "dtree: tree too high");
            if (path) path[d] = blk;
            d++;
            next = DtFindChild(page, key, keylen, NULL);
        } else {
            UnlockReleaseBuffer(buf);
            break;
        }
        UnlockReleaseBuffer(buf);
        blk = next;
    }
    if (depth) *depth = d;
    return blk;
}

BlockNumber DtRoot(Relation index) { return DtRootNotHeld(index, NULL, 0); }

BlockNumber DtRootNotHeld(Relation index, const Buffer *held, int nheld) {
    bool cached = index->rd_amcache != NULL;
    for (int i = 0; cached && i < nheld; i++)
        if (BufferGetBlockNumber(held[i]) == *(BlockNumber *) index->rd_amcache) cached = false;
    if (cached) {
        // Still the root if it has no right sibling: a root gets one when
        // it splits under a new root, and keeps it (the rightmost child of
        // a parent never leaves the tree).
        BlockNumber blk = *(BlockNumber *) index->rd_amcache;
        Buffer buf = ReadBuffer(index, blk);
        LockBuffer(buf, BUFFER_LOCK_SHARE);
        Page page = BufferGetPage(buf);
        bool ok = !PageIsNew(page) && PageGetSpecialSize(page) == MAXALIGN(sizeof(DtPageOpaque)) &&
                  DtPageGetOpaque(page)->page_id == DTREE_PAGE_ID && DtPageIsTree(page) &&
                  (DtPageGetOpaque(page)->flags & DT_RIGHTMOST);
        UnlockReleaseBuffer(buf);
        if (ok) return blk;
    }
    DtMetaExtra x;
    DtReadMetaPage(index, NULL, &x);
    if (x.root != InvalidBlockNumber) {
        if (!index->rd_amcache) index->rd_amcache = MemoryContextAlloc(index->rd_indexcxt, sizeof(BlockNumber));
        *(BlockNumber *) index->rd_amcache = x.root;
    }
    return x.root;
}

BlockNumber DtLeftmostLeaf(Relation index) { return DtDescend(index, DtRoot(index), "", 0, NULL, NULL); }

DtItemHeader *DtLookupEntry(Relation index, const char *key, int keylen, Size *len) {
    BlockNumber blk = DtDescend(index, DtRoot(index), key, keylen, NULL, NULL);
    while (blk != InvalidBlockNumber) {
        Buffer buf = ReadBuffer(index, blk);
        LockBuffer(buf, BUFFER_LOCK_SHARE);
        Page page = BufferGetPage(buf);
        DtCheckPage(index, page, blk, DT_LEAF | DT_DELETED);
        if ((DtPageGetOpaque(page)->flags & DT_DELETED) || DtBeyondHighKey(page, key, keylen)) {
            // The leaf split (or, empty, left the tree) after the descent
            // left it.
            blk = DtPageGetOpaque(page)->rightlink;
            UnlockReleaseBuffer(buf);
            continue;
        }
        OffsetNumber off = DtFindEntry(page, key, keylen, NULL);
        DtItemHeader *copy = NULL;
        if (off != InvalidOffsetNumber) {
            ItemId iid = PageGetItemId(page, off);
            copy = (DtItemHeader *) palloc(ItemIdGetLength(iid));
            memcpy(copy, PageGetItem(page, iid), ItemIdGetLength(iid));
            if (len) *len = ItemIdGetLength(iid);
        }
        UnlockReleaseBuffer(buf);
        return copy;
    }
    return NULL;
}

static void DtIterReserve(DtPostingIter *it, uint32 n) {
    if (n <= it->cap) return;
    uint32 cap = Max(n, it->cap * 2);
    it->postings = it->postings ? (dt::Posting *) repalloc(it->postings, sizeof(dt::Posting) * cap)
                                : (dt::Posting *) palloc(sizeof(dt::Posting) * cap);
    it->cap = cap;
}

static void DtCorruptList(Relation index, BlockNumber blk) {
    ereport(ERROR, (errcode(ERRCODE_INDEX_CORRUPTED),
                    errmsg("dtree index \"%s\" has an undecodable posting list at block %u",
                           RelationGetRelationName(index), blk)));
}

// Copies the next posting page into the iterator, undecoded; its header
// goes to *h (zero for a deleted page).
static void DtIterReadPage(DtPostingIter *it, DtPostingPageHeader *h) {
    BlockNumber blk = it->next;
    Buffer buf = ReadBuffer(it->index, blk);
    LockBuffer(buf, BUFFER_LOCK_SHARE);
    Page page = BufferGetPage(buf);
    DtCheckPage(it->index, page, blk, DT_POSTING | DT_DELETED);
    DtPageOpaque *op = DtPageGetOpaque(page);
    it->next = op->rightlink;
    memset(h, 0, sizeof(*h));
    if (!(op->flags & DT_DELETED)) {
        *h = *DtPageGetPostingHeader(page);
        if (h->nbytes <= DT_POSTING_CAPACITY) memcpy(it->scratch, DtPostingPageData(page), h->nbytes);
    }
    UnlockReleaseBuffer(buf);
    if (h->nbytes > DT_POSTING_CAPACITY) DtCorruptList(it->index, blk);
    it->page = blk;
    it->nbytes = h->nbytes;
    it->n = h->npostings;
    it->pos = 0;
    it->coded = true;
}

// Decodes the page read last.
static void DtIterDecode(DtPostingIter *it) {
    if (!it->coded) return;
    DtIterReserve(it, it->n);
    if (it->n && dt::DecodePostings(it->scratch, it->nbytes, 0, it->postings, it->n) == SIZE_MAX)
        DtCorruptList(it->index, it->page);
    it->coded = false;
}

// Reads the next posting page into the iterator.
static void DtIterLoadPage(DtPostingIter *it) {
    DtPostingPageHeader h;
    DtIterReadPage(it, &h);
    DtIterDecode(it);
}

static DtPostingIter *DtBeginKey(Relation index, const char *key, int keylen, bool alldocs) {
    DtPostingIter *it = (DtPostingIter *) palloc0(sizeof(DtPostingIter));
    it->index = index;
    it->next = InvalidBlockNumber;
    it->alldocs = alldocs;
    Size len = 0;
    DtItemHeader *e = DtLookupEntry(index, key, keylen, &len);
    if (!e) return it;
    it->total = e->value;
    if (e->kind == dt::dtree::kChainEntry) {
        DtChainRef ref;
        memcpy(&ref, DtItemPayload(e), sizeof(ref));
        it->next = ref.head;
    } else {
        DtIterReserve(it, e->value);
        size_t room = len - sizeof(DtItemHeader) - e->keylen;
        if (e->value && dt::DecodePostings(DtItemPayload(e), room, 0, it->postings, e->value) == SIZE_MAX)
            DtCorruptList(index, InvalidBlockNumber);
        it->n = e->value;
        it->inlinePending = it->n > 0;
    }
    pfree(e);
    return it;
}

DtPostingIter *DtBeginTermPostings(Relation index, const char *term, int termlen) {
    if (termlen <= 0) {
        // The empty term names the document list, not a term.
        DtPostingIter *it = (DtPostingIter *) palloc0(sizeof(DtPostingIter));
        it->index = index;
        it->next = InvalidBlockNumber;
        return it;
    }
    return DtBeginKey(index, term, termlen, false);
}

DtPostingIter *DtBeginAllDocs(Relation index) { return DtBeginKey(index, DT_DOCLIST_KEY, DT_DOCLIST_KEYLEN, true); }

DtPostingIter *DtBeginDocList(Relation index) { return DtBeginKey(index, DT_DOCLIST_KEY, DT_DOCLIST_KEYLEN, false); }

int64 DtIterPostingCount(DtPostingIter *it) { return it->total; }

int64 DtTermPostingCount(Relation index, const char *term, int termlen) {
    if (termlen <= 0) return 0;
    DtItemHeader *e = DtLookupEntry(index, term, termlen, NULL);
    if (!e) return 0;
    int64 n = e->value;
    pfree(e);
    return n;
}

bool DtNextPosting(DtPostingIter *it, DtPosting *out) {
    for (;;) {
        while (it->pos < it->n) {
            const dt::Posting &p = it->postings[it->pos++];
            if (it->alldocs && p.count == 0) continue;
            ItemPointerSet(&out->tid, dt::Tid48Block(p.tid), dt::Tid48Offset(p.tid));
            out->count = (int32) p.count;
            out->wordcnt = p.wordcnt;
            return true;
        }
        if (it->next == InvalidBlockNumber) return false;
        CHECK_FOR_INTERRUPTS();
        DtIterLoadPage(it);
    }
}

// Whether the next posting page lies wholly below want (or is a deleted
// page): then it->next moves past it, undecoded.
static bool DtIterPassPage(DtPostingIter *it, uint64 want) {
    BlockNumber blk = it->next;
    Buffer buf = ReadBuffer(it->index, blk);
    LockBuffer(buf, BUFFER_LOCK_SHARE);
    Page page = BufferGetPage(buf);
    DtCheckPage(it->index, page, blk, DT_POSTING | DT_DELETED);
    DtPageOpaque *op = DtPageGetOpaque(page);
    bool below = (op->flags & DT_DELETED) != 0;
    if (!below) {
        DtPostingPageHeader *h = DtPageGetPostingHeader(page);
        below = h->npostings > 0 && h->lasttid < want;
    }
    BlockNumber right = op->rightlink;
    UnlockReleaseBuffer(buf);
    if (below) it->next = right;
    return below;
}

bool DtSkipTo(DtPostingIter *it, ItemPointer tid, DtPosting *out) {
    uint64 want = dt::MakeTid48(ItemPointerGetBlockNumberNoCheck(tid), ItemPointerGetOffsetNumberNoCheck(tid));
    for (;;) {
        if (it->pos < it->n) {
            if (it->postings[it->n - 1].tid < want) {
                it->pos = it->n;  // the rest of this page is below the target
            } else {
                // The first posting at or beyond the target in this page.
                uint32 lo = it->pos, hi = it->n - 1;
                while (lo < hi) {
                    uint32 mid = lo + (hi - lo) / 2;
                    if (it->postings[mid].tid < want) lo = mid + 1;
                    else hi = mid;
                }
                it->pos = lo;
                return DtNextPosting(it, out);
            }
        }
        if (it->next == InvalidBlockNumber) return false;
        CHECK_FOR_INTERRUPTS();
        // Pages wholly below the target are passed by their headers.
        if (DtIterPassPage(it, want)) continue;
        DtIterLoadPage(it);
    }
}

bool DtNextChunk(DtPostingIter *it, DtChunk *out) {
    if (it->inlinePending) {
        it->inlinePending = false;
        it->pos = it->n;
        out->firsttid = it->postings[0].tid;
        out->lasttid = it->postings[it->n - 1].tid;
        out->npostings = it->n;
        out->nrows = out->countsum = 0;
        out->summed = false;
        return true;
    }
    while (it->next != InvalidBlockNumber) {
        CHECK_FOR_INTERRUPTS();
        DtPostingPageHeader h;
        DtIterReadPage(it, &h);
        it->pos = it->n;
        if (h.npostings == 0) continue;
        out->firsttid = h.firsttid;
        out->lasttid = h.lasttid;
        out->npostings = h.npostings;
        out->nrows = h.nrows;
        out->countsum = h.countsum;
        out->summed = true;
        return true;
    }
    it->n = it->pos = 0;
    return false;
}

const dt::Posting *DtChunkPostings(DtPostingIter *it, uint32 *n) {
    DtIterDecode(it);
    *n = it->n;
    return it->postings;
}

void DtEndPostings(DtPostingIter *it) {
    if (it->postings) pfree(it->postings);
    pfree(it);
}
