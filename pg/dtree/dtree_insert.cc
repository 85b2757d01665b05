// Adding postings to the tree: each change of pages is one generic WAL
// record; a record that adds or moves postings also carries the counter
// deltas on the meta page, so that the counters always agree with the
// postings, after a crash too.  A row's postings that stay inline go
// several leaves to a record (DtInsertDocTerms); any other posting goes on
// its own (DtInsertPosting).
//
// Inserts run concurrently with each other, with scans and with VACUUM;
// they take buffer locks only:
//  - the descent takes one share lock at a time and moves right where a
//    high key says the key moved (a page split after its downlink was
//    read); the leaf is then locked exclusively, moving right again;
//  - a posting goes into the leaf entry, or into a page of the entry's
//    chain while the leaf stays locked (every change of a chain happens
//    under its leaf's exclusive lock, which keeps the entry's count and
//    tail right);
//  - a page that must split is split in one record with its parent's new
//    downlink (or with a new root and the meta page): the parent is found
//    by moving right from the one passed on the way down.  A parent
//    without room for the downlink is split first, and the insert starts
//    again from the root.
// Locks are taken bottom-up (leaves left to right, then a leaf's chain
// pages in chain order, then the parent), left to right on one level, and
// the meta page last of all; readers hold one lock at a time.  So no two lockers wait for each
// other in a circle.  The only lock taken after the meta page is that of a
// page just allocated (nobody else can know it), for the first leaf of an
// empty tree.
#include "dtree_internal.h"

extern "C" {
#include "miscadmin.h"
#include "storage/lmgr.h"
}

#include <cstring>

#include "dtree_chain.h"
#include "dtree_split.h"
#include "dtree_write.h"
#include "dtreelayout.h"
#include "triplesort.h"

using dt::dtree::kChainEntry;
using dt::dtree::kInlineEntry;

// The leaf whose range holds key, from blk (the leaf the descent reached)
// moving right, exclusively locked.
static Buffer DtLockLeaf(Relation index, BlockNumber blk, const char *key, int keylen) {
    for (;;) {
        Buffer buf = ReadBuffer(index, blk);
        LockBuffer(buf, BUFFER_LOCK_EXCLUSIVE);
        Page page = BufferGetPage(buf);
        DtCheckPage(index, page, blk, DT_LEAF | DT_DELETED);
        if (!(DtPageGetOpaque(page)->flags & DT_DELETED) && !DtBeyondHighKey(page, key, keylen)) return buf;
        // The leaf split (or, empty, left the tree) after the descent left
        // its parent.
        blk = DtPageGetOpaque(page)->rightlink;
        UnlockReleaseBuffer(buf);
    }
}

// The first entry of an empty tree makes the root leaf.  False when another
// insert made it first.
static bool DtMakeFirstLeaf(Relation index, const char *key, int keylen, const dt::Posting *p, int32 dterms,
                            int32 ddocs) {
    bool doclist = keylen == 0;
    Page meta = DtScratchPage(0), img = DtScratchPage(1);
    Buffer mbuf = DtLockMeta(index, meta);
    if (DtPageGetMetaExtra(meta)->root != InvalidBlockNumber) {
        UnlockReleaseBuffer(mbuf);
        return false;
    }
    Buffer lbuf = DtNewBuffer(index);
    DtInitPage(img, DT_LEAF | DT_RIGHTMOST);
    unsigned char pb[32];
    size_t nb = dt::EncodePostings(p, 1, 0, pb, sizeof(pb));
    Size sz;
    DtItemHeader *it = DtMakeItem(kInlineEntry, key, keylen, 1, pb, nb, &sz);
    DtAddItemOrDie(img, it, sz, InvalidOffsetNumber);
    DtPageGetMetaExtra(meta)->root = BufferGetBlockNumber(lbuf);
    DtPageGetMetaExtra(meta)->height = 1;
    DtMetaDeltas(meta, dterms, ddocs, doclist ? 0 : 1, doclist ? 0 : 1);
    Buffer bufs[2] = {lbuf, mbuf};
    Page imgs[2] = {img, meta};
    bool isnew[2] = {true, false};
    DtWritePages(index, 2, bufs, imgs, isnew);
    UnlockReleaseBuffer(lbuf);
    UnlockReleaseBuffer(mbuf);
    pfree(it);
    return true;
}

// What adding a posting to an inline list (or a new entry) of a leaf image
// came to.
typedef enum DtInlineResult {
    DT_INLINE_ADDED,     // the image holds the posting
    DT_INLINE_TOO_LONG,  // the list must move to a posting page (*arr, *n: the list with p)
    DT_INLINE_NO_ROOM    // the leaf must split first
} DtInlineResult;

// Adds p to key's inline entry at off of the leaf image img, or as a new
// entry at insertat when off is InvalidOffsetNumber (*newentry says which).
// The image is unchanged unless the result is DT_INLINE_ADDED.
static DtInlineResult DtAddInline(Relation index, Page img, BlockNumber blk, const char *key, int keylen,
                                  OffsetNumber off, OffsetNumber insertat, const dt::Posting *p, bool *newentry,
                                  dt::Posting **arrout, uint32 *nout) {
    DtItemHeader *item;
    Size itemsz;
    *newentry = off == InvalidOffsetNumber;
    if (*newentry) {
        unsigned char pb[32];
        size_t nb = dt::EncodePostings(p, 1, 0, pb, sizeof(pb));
        item = DtMakeItem(kInlineEntry, key, keylen, 1, pb, nb, &itemsz);
    } else {
        DtItemHeader *old = DtPageItem(img, off);
        uint32 n = old->value;
        Size paylen = ItemIdGetLength(PageGetItemId(img, off)) - sizeof(DtItemHeader) - old->keylen;
        dt::Posting *arr = (dt::Posting *) palloc(sizeof(dt::Posting) * (n + 1));
        if (n && dt::DecodePostings(DtItemPayload(old), paylen, 0, arr, n) == SIZE_MAX)
            ereport(ERROR, (errcode(ERRCODE_INDEX_CORRUPTED),
                            errmsg("dtree index \"%s\" has an undecodable entry at block %u",
                                   RelationGetRelationName(index), blk)));
        dt::InsertPosting(arr, n, *p);
        n++;
        size_t need = dt::EncodedSize(arr, n, 0);
        if (need > dt::dtree::InlineLimit(keylen, DT_ITEM_SPACE)) {
            *arrout = arr;
            *nout = n;
            return DT_INLINE_TOO_LONG;
        }
        unsigned char *pb = (unsigned char *) palloc(need + 1);
        dt::EncodePostings(arr, n, 0, pb, need);
        item = DtMakeItem(kInlineEntry, key, keylen, n, pb, need, &itemsz);
        pfree(pb);
        pfree(arr);
    }
    bool placed = *newentry ? PageAddItem(img, (Item) item, itemsz, insertat, false, false) != InvalidOffsetNumber
                            : PageIndexTupleOverwrite(img, off, (Item) item, itemsz);
    pfree(item);
    return placed ? DT_INLINE_ADDED : DT_INLINE_NO_ROOM;
}

static void DtCheckKeyLength(int keylen) {
    if (keylen > (int) dt::dtree::kMaxKeyLen)
        ereport(ERROR, (errcode(ERRCODE_PROGRAM_LIMIT_EXCEEDED),
                        errmsg("term of %d bytes is too long for a dtree index", keylen)));
}

void DtInsertPosting(Relation index, const char *key, int keylen, const dt::Posting *p, int32 dterms, int32 ddocs) {
    bool doclist = keylen == 0;
    DtCheckKeyLength(keylen);
    BlockNumber guess = InvalidBlockNumber;
    for (;;) {
        CHECK_FOR_INTERRUPTS();
        BlockNumber root = DtRoot(index);
        if (root == InvalidBlockNumber) {
            if (DtMakeFirstLeaf(index, key, keylen, p, dterms, ddocs)) return;
            continue;
        }
        Page meta = DtScratchPage(0), img = DtScratchPage(1);
        // Descend, remembering the internal pages passed.
        BlockNumber path[DT_MAX_HEIGHT];
        int depth = 0;
        BlockNumber blk = DtDescend(index, root, key, keylen, path, &depth);
        Buffer lbuf = DtLockLeaf(index, blk, key, keylen);
        blk = BufferGetBlockNumber(lbuf);
        DtCopyPage(img, lbuf);
        OffsetNumber insertat;
        OffsetNumber off = DtFindEntry(img, key, keylen, &insertat);
        if (off != InvalidOffsetNumber && DtPageItem(img, off)->kind == kChainEntry) {
            BlockNumber head = InvalidBlockNumber;
            bool done = DtChainInsert(index, lbuf, img, off, p, dterms, ddocs, doclist, &guess, &head);
            UnlockReleaseBuffer(lbuf);
            if (done) return;
            guess = DtChainSearch(index, head, p->tid, true);
            continue;
        }
        bool newentry;
        dt::Posting *arr = NULL;
        uint32 n = 0;
        DtInlineResult r = DtAddInline(index, img, blk, key, keylen, off, insertat, p, &newentry, &arr, &n);
        if (r == DT_INLINE_NO_ROOM) {
            // The leaf is full: split it (or what must split first) and
            // start again.
            DtSplitLocked(index, lbuf, path, depth);
            continue;
        }
        Buffer bufs[3];
        Page imgs[3];
        bool isnew[3] = {false, false, false};
        int nb = 0;
        bufs[nb] = lbuf;
        imgs[nb++] = img;
        if (r == DT_INLINE_TOO_LONG) {
            // The list moves to a posting page of its own; the entry
            // shrinks to a chain entry, which always fits.
            Buffer cbuf = DtNewBuffer(index);
            Page cimg = DtScratchPage(5);
            DtFillPostingPage(cimg, arr, n, InvalidBlockNumber);
            DtChainRef ref = {BufferGetBlockNumber(cbuf), BufferGetBlockNumber(cbuf)};
            Size itemsz;
            DtItemHeader *item = DtMakeItem(kChainEntry, key, keylen, n, &ref, sizeof(ref), &itemsz);
            if (!PageIndexTupleOverwrite(img, off, (Item) item, itemsz)) elog(ERROR, "dtree: a shrinking entry did not fit");
            pfree(item);
            pfree(arr);
            bufs[nb] = cbuf;
            isnew[nb] = true;
            imgs[nb++] = cimg;
        }
        Buffer mbuf = DtLockMeta(index, meta);
        DtMetaDeltas(meta, dterms, ddocs, doclist ? 0 : 1, (newentry && !doclist) ? 1 : 0);
        bufs[nb] = mbuf;
        imgs[nb++] = meta;
        DtWritePages(index, nb, bufs, imgs, isnew);
        for (int i = nb - 1; i >= 0; i--) UnlockReleaseBuffer(bufs[i]);
        return;
    }
}

// Leaves changed by one document's insert that are still to be written:
// up to three, left to right, each exclusively locked, with the counter
// deltas of the postings they took.
#define DT_BATCH_LEAVES (MAX_GENERIC_XLOG_PAGES - 1)
typedef struct DtLeafBatch {
    int n;
    Buffer bufs[DT_BATCH_LEAVES];
    Page imgs[DT_BATCH_LEAVES];
    int32 dterms, dpostings, ddistinct;
} DtLeafBatch;

// Writes the batch's leaves and the meta page as one record.
static void DtFlushBatch(Relation index, DtLeafBatch *b) {
    if (b->n == 0) return;
    Buffer bufs[MAX_GENERIC_XLOG_PAGES];
    Page imgs[MAX_GENERIC_XLOG_PAGES];
    for (int i = 0; i < b->n; i++) {
        bufs[i] = b->bufs[i];
        imgs[i] = b->imgs[i];
    }
    Page meta = DtScratchPage(0);
    bufs[b->n] = DtLockMeta(index, meta);
    imgs[b->n] = meta;
    DtMetaDeltas(meta, b->dterms, 0, b->dpostings, b->ddistinct);
    DtWritePages(index, b->n + 1, bufs, imgs, NULL);
    for (int i = b->n; i >= 0; i--) UnlockReleaseBuffer(bufs[i]);
    b->n = 0;
    b->dterms = b->dpostings = b->ddistinct = 0;
}

// The postings of one document's terms (distinct, in byte order), several
// leaves to a record: a posting that stays inline in its leaf is added to
// the leaf's image and the leaf stays locked, until three leaves are held
// or a posting needs more (a chain, a list that moves to a posting page,
// a split): then the leaves held are written with the meta page in one
// record, released, and that posting goes in on its own.  The leaves are
// locked left to right, as the terms come, and none is locked twice: a
// term beyond the high key of the last leaf held is in a leaf to its right.
static void DtInsertDocTerms(Relation index, const DtDocTerms *t, uint64 tid) {
    DtLeafBatch b;
    memset(&b, 0, sizeof(b));
    for (int i = 0; i < t->nterms; i++) {
        const char *key = t->terms[i];
        int keylen = t->lens[i];
        dt::Posting p = {tid, (uint32) t->counts[i], t->wordcnt};
        DtCheckKeyLength(keylen);
        Buffer lbuf = InvalidBuffer;
        Page img = NULL;
        // Terms out of order would break the left-to-right locking.
        if (i > 0 && dt::CompareTerms(t->terms[i - 1], t->lens[i - 1], key, keylen) > 0) DtFlushBatch(index, &b);
        bool held = b.n > 0 && !DtBeyondHighKey(b.imgs[b.n - 1], key, keylen);
        if (held) {
            lbuf = b.bufs[b.n - 1];
            img = b.imgs[b.n - 1];
        } else {
            if (b.n == DT_BATCH_LEAVES) DtFlushBatch(index, &b);
            BlockNumber root = DtRootNotHeld(index, b.bufs, b.n);
            if (root != InvalidBlockNumber) {
                BlockNumber blk = DtDescend(index, root, key, keylen, NULL, NULL);
                lbuf = DtLockLeaf(index, blk, key, keylen);
                img = DtScratchPage(1 + b.n);
                DtCopyPage(img, lbuf);
            }
        }
        DtInlineResult r = DT_INLINE_NO_ROOM;
        bool newentry = false;
        if (lbuf != InvalidBuffer) {
            OffsetNumber insertat;
            OffsetNumber off = DtFindEntry(img, key, keylen, &insertat);
            if (off == InvalidOffsetNumber || DtPageItem(img, off)->kind == kInlineEntry) {
                dt::Posting *arr = NULL;
                uint32 n = 0;
                r = DtAddInline(index, img, BufferGetBlockNumber(lbuf), key, keylen, off, insertat, &p, &newentry, &arr,
                                &n);
                if (arr) pfree(arr);
            }
        }
        if (r == DT_INLINE_ADDED) {
            if (!held) {
                b.bufs[b.n] = lbuf;
                b.imgs[b.n++] = img;
            }
            b.dterms += t->counts[i];
            b.dpostings += 1;
            b.ddistinct += newentry ? 1 : 0;
            continue;
        }
        if (lbuf != InvalidBuffer && !held) UnlockReleaseBuffer(lbuf);
        DtFlushBatch(index, &b);
        DtInsertPosting(index, key, keylen, &p, t->counts[i], 0);
    }
    DtFlushBatch(index, &b);
}

// aminsert: the row's entry in the document list (its key sorts before
// every term), then the postings of its terms.
bool dtinsert(Relation index, Datum *values, bool *isnull, ItemPointer ht_ctid, Relation heapRel,
              IndexUniqueCheck checkUnique, bool indexUnchanged, IndexInfo *indexInfo) {
    if (isnull[0]) return false;
    DtDocTerms t;
    DtGetDocTerms(values[0], &t);
    uint64 tid = dt::MakeTid48(ItemPointerGetBlockNumber(ht_ctid), ItemPointerGetOffsetNumber(ht_ctid));
    dt::Posting d = {tid, (uint32) Min(t.total, (int64) PG_INT32_MAX), t.wordcnt};
    DtInsertPosting(index, DT_DOCLIST_KEY, DT_DOCLIST_KEYLEN, &d, 0, 1);
    DtInsertDocTerms(index, &t, tid);
    DtFreeDocTerms(&t);
    return false;
}
