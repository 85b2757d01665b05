// Reading postings: term lookup down the tree, then the entry's inline list
// or its chain of posting pages, one page at a time.
#include "dtree_read.h"

#include <cstring>

#include "dtreelayout.h"
#include "postingcodec.h"

extern "C" {
#include "miscadmin.h"
#include "utils/memutils.h"
}

// An iterator holds one piece of its list at a time (a posting page, or
// the entry's inline list) as coded bytes, and decodes it as it goes, a
// few postings at a time, so that a skip decodes only up to its target.
// A reader by pieces decodes a whole piece at once.
struct DtPostingIter {
    Relation index;
    unsigned char *coded;   // the current piece's bytes (BLCKSZ)
    uint32 nbytes;          // how many
    uint32 n;               // postings in the piece
    uint32 done;            // postings decoded (or passed) so far
    uint32 at;              // bytes decoded so far
    uint64 prev;            // row of the last posting decoded or passed
    uint64 lasttid;         // the piece's last row, when known (haveLast)
    bool haveLast;
    dt::Posting *postings;  // decoded postings: [pos, nwin) still to hand out
    uint32 nwin, pos, cap;
    BlockNumber next;       // next posting page, or InvalidBlockNumber
    BlockNumber page;       // the current page (InvalidBlockNumber: inline)
    int64 total;
    bool alldocs;           // skip documents without terms
    bool inlinePending;     // chunks: the entry's inline list is still to come
};

// Postings decoded at a time by DtNextPosting, and by a skip (DtSkipTo,
// DtRowsHeld) once it has passed the postings below its target (the next
// target is often far).
// The counters of the meta page.
void DtReadMeta(Relation index, DtMetaInfo *out) {
    DTMetaPageData m;
    DtMetaExtra x;
    DtReadMetaPage(index, &m, &x);
    out->numterms = m.dtm_numterms;
    out->numdocs = m.dtm_numdocs;
    out->ndistinct = x.ndistinct;
    out->npostings = x.npostings;
    out->root = x.root;
    out->height = x.height;
    out->changes = x.changes;
}

#define DT_DECODE_BATCH 128
#define DT_SKIP_BATCH 4

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

// The root block remembered in the relation cache, or InvalidBlockNumber.
static BlockNumber DtCachedRoot(Relation index) {
    return index->rd_amcache ? *(BlockNumber *) index->rd_amcache : InvalidBlockNumber;
}

// Whether page, found at the remembered root block, still is the root: a
// tree page without a right sibling.  A root gets one when it splits under
// a new root, and keeps it (the rightmost child of a parent never leaves
// the tree).
static bool DtStillRoot(Page page) {
    return !PageIsNew(page) && PageGetSpecialSize(page) == MAXALIGN(sizeof(DtPageOpaque)) &&
           DtPageGetOpaque(page)->page_id == DTREE_PAGE_ID && DtPageIsTree(page) &&
           (DtPageGetOpaque(page)->flags & DT_RIGHTMOST);
}

// The root as the meta page names it, remembered for the next lookups.
static BlockNumber DtRootFromMeta(Relation index) {
    DtMetaExtra x;
    DtReadMetaPage(index, NULL, &x);
    if (x.root != InvalidBlockNumber) {
        if (!index->rd_amcache) index->rd_amcache = MemoryContextAlloc(index->rd_indexcxt, sizeof(BlockNumber));
        *(BlockNumber *) index->rd_amcache = x.root;
    }
    return x.root;
}

BlockNumber DtRootNotHeld(Relation index, const Buffer *held, int nheld) {
    BlockNumber blk = DtCachedRoot(index);
    for (int i = 0; blk != InvalidBlockNumber && i < nheld; i++)
        if (BufferGetBlockNumber(held[i]) == blk) blk = InvalidBlockNumber;
    if (blk != InvalidBlockNumber) {
        Buffer buf = ReadBuffer(index, blk);
        LockBuffer(buf, BUFFER_LOCK_SHARE);
        bool ok = DtStillRoot(BufferGetPage(buf));
        UnlockReleaseBuffer(buf);
        if (ok) return blk;
    }
    return DtRootFromMeta(index);
}

// The leaf where key belongs, share-locked and pinned, or InvalidBuffer for
// an empty tree.  The remembered root is checked on the same read that
// starts the descent; the leaf is handed over still locked, past any split
// or VACUUM that moved key to a right sibling.
static Buffer DtLockLeaf(Relation index, const char *key, int keylen) {
    BlockNumber blk = DtCachedRoot(index);
    bool checkRoot = blk != InvalidBlockNumber;
    if (!checkRoot) blk = DtRootFromMeta(index);
    int d = 0;
    while (blk != InvalidBlockNumber) {
        Buffer buf = ReadBuffer(index, blk);
        LockBuffer(buf, BUFFER_LOCK_SHARE);
        Page page = BufferGetPage(buf);
        if (checkRoot) {
            checkRoot = false;
            if (!DtStillRoot(page)) {
                UnlockReleaseBuffer(buf);
                blk = DtRootFromMeta(index);
                continue;
            }
        }
        DtCheckPage(index, page, blk, DT_LEAF | DT_INTERNAL | DT_DELETED);
        BlockNumber next;
        if ((DtPageGetOpaque(page)->flags & DT_DELETED) || DtBeyondHighKey(page, key, keylen)) {
            next = DtPageGetOpaque(page)->rightlink;
        } else if (DtPageGetOpaque(page)->flags & DT_INTERNAL) {
            if (++d >= DT_MAX_HEIGHT) elog(ERROR, "dtree: tree too high");
            next = DtFindChild(page, key, keylen, NULL);
        } else {
            return buf;
        }
        UnlockReleaseBuffer(buf);
        blk = next;
    }
    return InvalidBuffer;
}

BlockNumber DtLeftmostLeaf(Relation index) { return DtDescend(index, DtRoot(index), "", 0, NULL, NULL); }

DtItemHeader *DtLookupEntry(Relation index, const char *key, int keylen, Size *len) {
    Buffer buf = DtLockLeaf(index, key, keylen);
    if (buf == InvalidBuffer) return NULL;
    Page page = BufferGetPage(buf);
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

// Makes the first nbytes of it->coded, n postings, the current piece.
static void DtIterSetPiece(DtPostingIter *it, uint32 nbytes, uint32 n, BlockNumber page) {
    it->nbytes = nbytes;
    it->n = n;
    it->done = it->at = 0;
    it->prev = 0;
    it->haveLast = false;
    it->nwin = it->pos = 0;
    it->page = page;
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
        if (h->nbytes <= DT_POSTING_CAPACITY) memcpy(it->coded, DtPostingPageData(page), h->nbytes);
    }
    UnlockReleaseBuffer(buf);
    if (h->nbytes > DT_POSTING_CAPACITY) DtCorruptList(it->index, blk);
    DtIterSetPiece(it, h->nbytes, h->npostings, blk);
    it->lasttid = h->lasttid;
    it->haveLast = h->npostings > 0;
}

// Decodes up to max more postings of the current piece into the window.
static void DtIterDecodeNext(DtPostingIter *it, uint32 max) {
    uint32 k = Min(max, it->n - it->done);
    DtIterReserve(it, k);
    size_t used = k ? dt::DecodePostings(it->coded + it->at, it->nbytes - it->at, it->prev, it->postings, k) : 0;
    if (used == SIZE_MAX) DtCorruptList(it->index, it->page);
    it->at += (uint32) used;
    it->done += k;
    if (k) it->prev = it->postings[k - 1].tid;
    it->nwin = k;
    it->pos = 0;
}

// Passes the postings of the current piece below want that are not
// decoded yet, without decoding them.
static void DtIterPassBelow(DtPostingIter *it, uint64 want) {
    if (it->haveLast && it->lasttid < want) {
        it->done = it->n;  // the whole piece is below want
        return;
    }
    size_t skipped = 0;
    size_t used =
        dt::SkipPostingsBelow(it->coded + it->at, it->nbytes - it->at, &it->prev, want, it->n - it->done, &skipped);
    if (used == SIZE_MAX) DtCorruptList(it->index, it->page);
    it->at += (uint32) used;
    it->done += (uint32) skipped;
}

// Decodes the rest of the current piece: the window then holds all of it.
static void DtIterDecodeAll(DtPostingIter *it) {
    if (it->done == 0 && it->n > 0) DtIterDecodeNext(it, it->n);
}

struct DtTermEntry {
    DtItemHeader *item;  // a copy of the leaf entry; NULL: not in the index
    Size len;
};

// An iterator over the list of a leaf entry (copied; NULL: no postings).
static DtPostingIter *DtBeginItem(Relation index, const DtItemHeader *e, Size len, bool alldocs) {
    DtPostingIter *it = (DtPostingIter *) palloc0(sizeof(DtPostingIter));
    it->index = index;
    it->next = InvalidBlockNumber;
    it->page = InvalidBlockNumber;
    it->alldocs = alldocs;
    it->coded = (unsigned char *) palloc(BLCKSZ);
    if (!e) return it;
    it->total = e->value;
    if (e->kind == dt::dtree::kChainEntry) {
        DtChainRef ref;
        memcpy(&ref, DtItemPayload(e), sizeof(ref));
        it->next = ref.head;
    } else {
        size_t room = len - sizeof(DtItemHeader) - e->keylen;
        if (room > BLCKSZ) DtCorruptList(index, InvalidBlockNumber);
        memcpy(it->coded, DtItemPayload(e), room);
        DtIterSetPiece(it, (uint32) room, e->value, InvalidBlockNumber);
        it->inlinePending = it->n > 0;
    }
    return it;
}

static DtPostingIter *DtBeginKey(Relation index, const char *key, int keylen, bool alldocs) {
    Size len = 0;
    DtItemHeader *e = DtLookupEntry(index, key, keylen, &len);
    DtPostingIter *it = DtBeginItem(index, e, len, alldocs);
    if (e) pfree(e);
    return it;
}

DtTermEntry *DtLookupTerm(Relation index, const char *term, int termlen) {
    DtTermEntry *t = (DtTermEntry *) palloc0(sizeof(DtTermEntry));
    // The empty term names the document list, not a term.
    if (termlen > 0) t->item = DtLookupEntry(index, term, termlen, &t->len);
    return t;
}

int64 DtTermEntryCount(const DtTermEntry *t) { return t->item ? t->item->value : 0; }

DtPostingIter *DtBeginEntryPostings(Relation index, const DtTermEntry *t) {
    return DtBeginItem(index, t->item, t->len, false);
}

Size DtTermEntryItem(const DtTermEntry *t, const void **item) {
    *item = t->item;
    return t->item ? t->len : 0;
}

DtTermEntry *DtTermEntryFromItem(const void *item, Size len) {
    DtTermEntry *t = (DtTermEntry *) palloc0(sizeof(DtTermEntry));
    if (len > 0) {
        if (len < sizeof(DtItemHeader) || len > BLCKSZ)
            ereport(ERROR, (errcode(ERRCODE_INTERNAL_ERROR), errmsg("dtree: a kept leaf entry of %zu bytes", len)));
        t->item = (DtItemHeader *) palloc(len);
        memcpy(t->item, item, len);
        t->len = len;
    }
    return t;
}

void DtFreeTermEntry(DtTermEntry *t) {
    if (t->item) pfree(t->item);
    pfree(t);
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

bool DtNextPosting(DtPostingIter *it, DtPosting *out) {
    for (;;) {
        while (it->pos < it->nwin) {
            const dt::Posting &p = it->postings[it->pos++];
            if (it->alldocs && p.count == 0) continue;
            ItemPointerSet(&out->tid, dt::Tid48Block(p.tid), dt::Tid48Offset(p.tid));
            out->count = (int32) p.count;
            out->wordcnt = p.wordcnt;
            return true;
        }
        if (it->done < it->n) {
            DtIterDecodeNext(it, DT_DECODE_BATCH);
            continue;
        }
        if (it->next == InvalidBlockNumber) return false;
        CHECK_FOR_INTERRUPTS();
        DtPostingPageHeader h;
        DtIterReadPage(it, &h);
    }
}

uint32 DtNextRows(DtPostingIter *it, uint64 *rows, uint32 max) {
    Assert(!it->alldocs);
    for (;;) {
        if (it->pos < it->nwin) {
            uint32 k = Min(max, it->nwin - it->pos);
            for (uint32 i = 0; i < k; i++) rows[i] = it->postings[it->pos + i].tid;
            it->pos += k;
            return k;
        }
        if (it->done < it->n) {
            uint32 k = Min(max, it->n - it->done);
            size_t used = dt::DecodeRows(it->coded + it->at, it->nbytes - it->at, it->prev, rows, k);
            if (used == SIZE_MAX) DtCorruptList(it->index, it->page);
            it->at += (uint32) used;
            it->done += k;
            it->prev = rows[k - 1];
            return k;
        }
        if (it->next == InvalidBlockNumber) return 0;
        CHECK_FOR_INTERRUPTS();
        DtPostingPageHeader h;
        DtIterReadPage(it, &h);
    }
}

// Whether the next posting page lies wholly below want (or is a deleted
// page): then it->next moves past it, unread.
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

// Moves to the first posting at or beyond want, which the window then
// holds at pos; false at the end of the list.  Pages wholly below want are
// passed by their headers, postings below it undecoded.
static bool DtIterSeek(DtPostingIter *it, uint64 want) {
    for (;;) {
        if (it->pos < it->nwin) {
            if (it->postings[it->nwin - 1].tid >= want) {
                uint32 lo = it->pos, hi = it->nwin - 1;
                while (lo < hi) {
                    uint32 mid = lo + (hi - lo) / 2;
                    if (it->postings[mid].tid < want) lo = mid + 1;
                    else hi = mid;
                }
                it->pos = lo;
                return true;
            }
            it->pos = it->nwin;  // the rest of the window is below want
        }
        if (it->done < it->n) {
            DtIterPassBelow(it, want);
            if (it->done < it->n) DtIterDecodeNext(it, DT_SKIP_BATCH);
            continue;
        }
        if (it->next == InvalidBlockNumber) return false;
        CHECK_FOR_INTERRUPTS();
        if (DtIterPassPage(it, want)) continue;
        DtPostingPageHeader h;
        DtIterReadPage(it, &h);
    }
}

bool DtSkipTo(DtPostingIter *it, ItemPointer tid, DtPosting *out) {
    uint64 want = dt::MakeTid48(ItemPointerGetBlockNumberNoCheck(tid), ItemPointerGetOffsetNumberNoCheck(tid));
    if (!DtIterSeek(it, want)) return false;
    return DtNextPosting(it, out);
}

int64 DtRowsHeld(DtPostingIter *it, const uint64 *cand, int64 ncand, uint64 *out) {
    int64 m = 0;
    for (int64 i = 0; i < ncand; i++) {
        if (!DtIterSeek(it, cand[i])) break;
        if (it->postings[it->pos].tid == cand[i]) out[m++] = cand[i];
    }
    return m;
}

bool DtNextChunk(DtPostingIter *it, DtChunk *out) {
    if (it->inlinePending) {
        it->inlinePending = false;
        DtIterDecodeAll(it);
        it->pos = it->nwin;
        out->firsttid = it->postings[0].tid;
        out->lasttid = it->postings[it->nwin - 1].tid;
        out->npostings = it->nwin;
        out->nrows = out->countsum = 0;
        out->summed = false;
        return true;
    }
    while (it->next != InvalidBlockNumber) {
        CHECK_FOR_INTERRUPTS();
        DtPostingPageHeader h;
        DtIterReadPage(it, &h);
        if (h.npostings == 0) continue;
        out->firsttid = h.firsttid;
        out->lasttid = h.lasttid;
        out->npostings = h.npostings;
        out->nrows = h.nrows;
        out->countsum = h.countsum;
        out->summed = true;
        return true;
    }
    DtIterSetPiece(it, 0, 0, InvalidBlockNumber);
    return false;
}

const dt::Posting *DtChunkPostings(DtPostingIter *it, uint32 *n) {
    DtIterDecodeAll(it);
    it->pos = it->nwin;
    *n = it->nwin;
    return it->postings;
}

void DtEndPostings(DtPostingIter *it) {
    if (it->postings) pfree(it->postings);
    pfree(it->coded);
    pfree(it);
}
