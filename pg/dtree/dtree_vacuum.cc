// VACUUM of a dtree index: the postings of dead rows leave their lists, the
// counters drop by their counts (and by one document per dead row of the
// document list), emptied entries leave their leaves, emptied posting pages
// leave their chains, and pages deleted earlier, that no scan can still be
// reading, are recycled.
#include "dtree_internal.h"

extern "C" {
#include "access/transam.h"
#include "commands/vacuum.h"
#include "miscadmin.h"
#include "storage/indexfsm.h"
#include "storage/lmgr.h"
}

#include <cstring>

#include "dtreelayout.h"

using dt::dtree::kChainEntry;
using dt::dtree::kInlineEntry;

typedef struct DtVacCounts {
    int64 dterms, ddocs, dpostings, ddistinct;
} DtVacCounts;

// Keeps the postings whose rows survive; returns how many remain and adds
// what went to the counts.
static uint32 DtFilterPostings(dt::Posting *arr, uint32 n, bool doclist, IndexBulkDeleteCallback callback,
                               void *cbstate, DtVacCounts *c) {
    uint32 k = 0;
    for (uint32 i = 0; i < n; i++) {
        ItemPointerData tid;
        ItemPointerSet(&tid, dt::Tid48Block(arr[i].tid), dt::Tid48Offset(arr[i].tid));
        if (callback(&tid, cbstate)) {
            if (doclist) {
                c->ddocs++;
            } else {
                c->dterms += arr[i].count;
                c->dpostings++;
            }
        } else {
            arr[k++] = arr[i];
        }
    }
    return k;
}

static void DtMetaApply(Page meta, const DtVacCounts *c) {
    DtPageGetMeta(meta)->dtm_numterms -= (int32) c->dterms;
    DtPageGetMeta(meta)->dtm_numdocs -= (int32) c->ddocs;
    DtPageGetMetaExtra(meta)->npostings -= c->dpostings;
    DtPageGetMetaExtra(meta)->ndistinct -= (int32) c->ddistinct;
}

static Buffer DtLockMetaImage(Relation index, Page image) {
    Buffer buf = ReadBuffer(index, DTREE_METAPAGE_BLKNO);
    LockBuffer(buf, BUFFER_LOCK_EXCLUSIVE);
    DtCopyPage(image, buf);
    return buf;
}

static void DtCorrupt(Relation index, BlockNumber blk) {
    ereport(ERROR, (errcode(ERRCODE_INDEX_CORRUPTED),
                    errmsg("dtree index \"%s\" has an undecodable posting list at block %u",
                           RelationGetRelationName(index), blk)));
}

static void DtMarkDeleted(Page page) {
    DtPageOpaque *op = DtPageGetOpaque(page);
    op->flags = DT_DELETED;
    op->deletexid = ReadNextFullTransactionId();
    ((PageHeader) page)->pd_lower = SizeOfPageHeaderData;
}

// The inline entries of a locked leaf (image in img), as one record.
static void DtVacuumInline(Relation index, Buffer lbuf, Page img, IndexBulkDeleteCallback callback, void *cbstate,
                           IndexBulkDeleteResult *stats) {
    DtVacCounts c = {0, 0, 0, 0};
    Page out = DtPageImage();
    DtInitPage(out, DtPageGetOpaque(img)->flags);
    DtPageGetOpaque(out)->rightlink = DtPageGetOpaque(img)->rightlink;
    OffsetNumber max = PageGetMaxOffsetNumber(img);
    bool changed = false;
    for (OffsetNumber off = FirstOffsetNumber; off <= max; off++) {
        ItemId iid = PageGetItemId(img, off);
        DtItemHeader *ih = (DtItemHeader *) PageGetItem(img, iid);
        Size len = ItemIdGetLength(iid);
        if (off < DtFirstDataOffset(img) || ih->kind != kInlineEntry) {
            if (PageAddItem(out, (Item) ih, len, InvalidOffsetNumber, false, false) == InvalidOffsetNumber)
                elog(ERROR, "dtree: vacuum could not rebuild a leaf");
            continue;
        }
        bool doclist = ih->keylen == 0;
        uint32 n = ih->value;
        dt::Posting *arr = (dt::Posting *) palloc(sizeof(dt::Posting) * (n + 1));
        Size paylen = len - sizeof(DtItemHeader) - ih->keylen;
        if (n && dt::DecodePostings(DtItemPayload(ih), paylen, 0, arr, n) == SIZE_MAX)
            DtCorrupt(index, BufferGetBlockNumber(lbuf));
        uint32 k = DtFilterPostings(arr, n, doclist, callback, cbstate, &c);
        if (k == n) {
            PageAddItem(out, (Item) ih, len, InvalidOffsetNumber, false, false);
        } else {
            changed = true;
            if (k == 0 && !doclist) {
                c.ddistinct++;
            } else {
                size_t need = dt::EncodedSize(arr, k, 0);
                Size sz = sizeof(DtItemHeader) + ih->keylen + need;
                DtItemHeader *ni = (DtItemHeader *) palloc0(sz);
                memcpy(ni, ih, sizeof(DtItemHeader) + ih->keylen);
                ni->value = k;
                dt::EncodePostings(arr, k, 0, DtItemPayload(ni), need);
                PageAddItem(out, (Item) ni, sz, InvalidOffsetNumber, false, false);
                pfree(ni);
            }
        }
        pfree(arr);
    }
    if (changed) {
        Page meta = DtPageImage();
        Buffer mbuf = DtLockMetaImage(index, meta);
        DtMetaApply(meta, &c);
        Buffer bufs[2] = {lbuf, mbuf};
        Page imgs[2] = {out, meta};
        DtWritePages(index, 2, bufs, imgs, NULL);
        UnlockReleaseBuffer(mbuf);
        memcpy(img, out, BLCKSZ);
        pfree(meta);
        stats->tuples_removed += c.ddocs;
    }
    pfree(out);
}

// Chain pages VACUUM does under one exclusive lock of their leaf; then it
// lets the leaf go for a moment, so that inserts into the entry (the
// document list takes one per new row) wait for a few pages at most.
#define DT_VACUUM_BATCH 8

// The page of a chain whose right link is blk, exclusively locked: from
// blk's predecessor when VACUUM last held the chain, moving right past the
// pages that inserts split off it since.
static Buffer DtLockPredecessor(Relation index, BlockNumber from, BlockNumber blk) {
    BlockNumber cur = from;
    while (cur != InvalidBlockNumber) {
        Buffer buf = ReadBuffer(index, cur);
        LockBuffer(buf, BUFFER_LOCK_EXCLUSIVE);
        DtCheckPage(index, BufferGetPage(buf), cur, DT_POSTING);
        BlockNumber next = DtPageGetOpaque(BufferGetPage(buf))->rightlink;
        if (next == blk) return buf;
        UnlockReleaseBuffer(buf);
        cur = next;
    }
    ereport(ERROR, (errcode(ERRCODE_INDEX_CORRUPTED),
                    errmsg("dtree index \"%s\": posting page %u is not reached from block %u",
                           RelationGetRelationName(index), blk, from)));
}

// Does up to DT_VACUUM_BATCH pages of the chain of the entry at off of the
// locked leaf (image in img), from blk (prev: its predecessor, locked, or
// InvalidBuffer for the head): one record per changed posting page, with
// the leaf's count and the counters.  Returns the next page to do
// (InvalidBlockNumber at the chain's end); *prev is then the last page
// kept, still locked.
static BlockNumber DtVacuumChainPages(Relation index, Buffer lbuf, Page img, OffsetNumber off, BlockNumber blk,
                                      Buffer *prevp, IndexBulkDeleteCallback callback, void *cbstate,
                                      IndexBulkDeleteResult *stats, BufferAccessStrategy strategy) {
    DtItemHeader *ih = DtPageItem(img, off);
    bool doclist = ih->keylen == 0;
    DtChainRef ref;
    memcpy(&ref, DtItemPayload(ih), sizeof(ref));
    Page pimg = DtPageImage(), meta = DtPageImage(), previmg = DtPageImage();
    dt::Posting *arr = (dt::Posting *) palloc(sizeof(dt::Posting) * 2048);
    uint32 cap = 2048;
    Buffer prev = *prevp;
    for (int done = 0; blk != InvalidBlockNumber && done < DT_VACUUM_BATCH; done++) {
        vacuum_delay_point();
        Buffer buf = ReadBufferExtended(index, MAIN_FORKNUM, blk, RBM_NORMAL, strategy);
        LockBuffer(buf, BUFFER_LOCK_EXCLUSIVE);
        Page page = BufferGetPage(buf);
        DtCheckPage(index, page, blk, DT_POSTING);
        DtPostingPageHeader *h = DtPageGetPostingHeader(page);
        uint32 n = h->npostings;
        if (n > cap) {
            cap = n;
            arr = (dt::Posting *) repalloc(arr, sizeof(dt::Posting) * cap);
        }
        if (n && dt::DecodePostings(DtPostingPageData(page), h->nbytes, 0, arr, n) == SIZE_MAX) DtCorrupt(index, blk);
        BlockNumber next = DtPageGetOpaque(page)->rightlink;
        DtVacCounts c = {0, 0, 0, 0};
        uint32 k = DtFilterPostings(arr, n, doclist, callback, cbstate, &c);
        if (k != n) {
            Buffer bufs[4];
            Page imgs[4];
            int nb = 0;
            bool unlink = k == 0 && blk != ref.head;
            DtInitPage(pimg, DT_POSTING);
            if (unlink) {
                memcpy(pimg, page, BLCKSZ);
                DtMarkDeleted(pimg);
                // The predecessor skips the page; a scan standing on it
                // still finds its right link.
                DtCopyPage(previmg, prev);
                DtPageGetOpaque(previmg)->rightlink = next;
                bufs[nb] = prev;
                imgs[nb++] = previmg;
                if (blk == ref.tail) ref.tail = BufferGetBlockNumber(prev);
            } else {
                DtPageGetOpaque(pimg)->rightlink = next;
                size_t nbytes = k ? dt::EncodePostings(arr, k, 0, DtPostingPageData(pimg), DT_POSTING_CAPACITY) : 0;
                DtSetPostingHeader(pimg, arr, k, (uint32) nbytes);
            }
            bufs[nb] = buf;
            imgs[nb++] = pimg;
            ih->value -= (n - k);
            memcpy(DtItemPayload(ih), &ref, sizeof(ref));
            bufs[nb] = lbuf;
            imgs[nb++] = img;
            Buffer mbuf = DtLockMetaImage(index, meta);
            DtMetaApply(meta, &c);
            bufs[nb] = mbuf;
            imgs[nb++] = meta;
            DtWritePages(index, nb, bufs, imgs, NULL);
            UnlockReleaseBuffer(mbuf);
            stats->tuples_removed += c.ddocs;
            if (unlink) {
                stats->pages_deleted++;
                stats->pages_newly_deleted++;
                UnlockReleaseBuffer(buf);
                blk = next;
                continue;
            }
        }
        if (prev != InvalidBuffer) UnlockReleaseBuffer(prev);
        prev = buf;
        blk = next;
    }
    *prevp = prev;
    pfree(arr);
    pfree(pimg);
    pfree(meta);
    pfree(previmg);
    return blk;
}

// Removes the chain entry at off when its list is empty: the entry leaves
// the leaf and its head page is deleted.
static void DtDropEmptyChain(Relation index, Buffer lbuf, Page img, OffsetNumber off) {
    DtItemHeader *ih = DtPageItem(img, off);
    if (ih->value != 0) return;
    bool doclist = ih->keylen == 0;
    DtChainRef ref;
    memcpy(&ref, DtItemPayload(ih), sizeof(ref));
    Buffer hbuf = ReadBuffer(index, ref.head);
    LockBuffer(hbuf, BUFFER_LOCK_EXCLUSIVE);
    Page himg = DtPageImage(), meta = DtPageImage();
    DtCopyPage(himg, hbuf);
    DtMarkDeleted(himg);
    PageIndexTupleDelete(img, off);
    Buffer mbuf = DtLockMetaImage(index, meta);
    if (!doclist) DtPageGetMetaExtra(meta)->ndistinct -= 1;
    Buffer bufs[3] = {lbuf, hbuf, mbuf};
    Page imgs[3] = {img, himg, meta};
    DtWritePages(index, 3, bufs, imgs, NULL);
    UnlockReleaseBuffer(mbuf);
    UnlockReleaseBuffer(hbuf);
    pfree(himg);
    pfree(meta);
}

// The chain of key's entry, whose leaf was leafblk (or one to its right,
// where a split moved it), a few pages at a time, then the entry itself
// when its list is empty.
static void DtVacuumChain(Relation index, BlockNumber leafblk, const char *key, int keylen,
                          IndexBulkDeleteCallback callback, void *cbstate, IndexBulkDeleteResult *stats,
                          BufferAccessStrategy strategy) {
    Page img = DtPageImage();
    BlockNumber resume = InvalidBlockNumber, prevblk = InvalidBlockNumber;
    for (;;) {
        CHECK_FOR_INTERRUPTS();
        Buffer lbuf = ReadBufferExtended(index, MAIN_FORKNUM, leafblk, RBM_NORMAL, strategy);
        LockBuffer(lbuf, BUFFER_LOCK_EXCLUSIVE);
        for (;;) {
            Page lp = BufferGetPage(lbuf);
            DtCheckPage(index, lp, leafblk, DT_LEAF | DT_DELETED);
            if (!(DtPageGetOpaque(lp)->flags & DT_DELETED) && !DtBeyondHighKey(lp, key, keylen)) break;
            leafblk = DtPageGetOpaque(BufferGetPage(lbuf))->rightlink;
            UnlockReleaseBuffer(lbuf);
            lbuf = ReadBufferExtended(index, MAIN_FORKNUM, leafblk, RBM_NORMAL, strategy);
            LockBuffer(lbuf, BUFFER_LOCK_EXCLUSIVE);
        }
        DtCheckPage(index, BufferGetPage(lbuf), leafblk, DT_LEAF);
        DtCopyPage(img, lbuf);
        OffsetNumber off = DtFindEntry(img, key, keylen, NULL);
        if (off == InvalidOffsetNumber || DtPageItem(img, off)->kind != kChainEntry) {
            // Only VACUUM removes entries, and a chain never goes back
            // inline.
            UnlockReleaseBuffer(lbuf);
            ereport(ERROR, (errcode(ERRCODE_INDEX_CORRUPTED),
                            errmsg("dtree index \"%s\": the chain entry of a term left leaf %u",
                                   RelationGetRelationName(index), leafblk)));
        }
        DtChainRef ref;
        memcpy(&ref, DtItemPayload(DtPageItem(img, off)), sizeof(ref));
        BlockNumber blk = resume == InvalidBlockNumber ? ref.head : resume;
        Buffer prev = prevblk == InvalidBlockNumber ? InvalidBuffer : DtLockPredecessor(index, prevblk, blk);
        BlockNumber next = DtVacuumChainPages(index, lbuf, img, off, blk, &prev, callback, cbstate, stats, strategy);
        if (next == InvalidBlockNumber) {
            if (prev != InvalidBuffer) UnlockReleaseBuffer(prev);
            DtDropEmptyChain(index, lbuf, img, off);
            UnlockReleaseBuffer(lbuf);
            break;
        }
        resume = next;
        prevblk = prev == InvalidBuffer ? InvalidBlockNumber : BufferGetBlockNumber(prev);
        if (prev != InvalidBuffer) UnlockReleaseBuffer(prev);
        UnlockReleaseBuffer(lbuf);
    }
    pfree(img);
}

// Takes the empty leaf target (high key hikey) out of the tree, if it lies
// between two siblings under one parent: the left sibling links past it,
// and the parent's downlink to it leads to the right sibling instead, whose
// own downlink goes, so that the right sibling takes over the target's keys.
// One record of three pages, locked leaves left to right, then the parent.
// The page is marked deleted and keeps its right link: a reader or writer
// that still arrives on it (by a downlink or right link read before) moves
// right, where its keys now are.  It is recycled once no transaction that
// could have read a link to it is running.  False when the leaf is not
// deleted (not empty any more, the leftmost or rightmost child of its
// parent, the tree's only leaf, or changed meanwhile).
static bool DtUnlinkEmptyLeaf(Relation index, BlockNumber target, const char *hikey, int hilen) {
    DtMetaExtra x;
    DtReadMetaPage(index, NULL, &x);
    if (x.root == InvalidBlockNumber || x.height < 2) return false;
    // The parent as a descent to the right sibling's keys passes it.
    BlockNumber path[DT_MAX_HEIGHT];
    int depth = 0;
    DtDescend(index, x.root, hikey, hilen, path, &depth);
    if (depth == 0) return false;
    BlockNumber left = InvalidBlockNumber, right = InvalidBlockNumber, pblk = InvalidBlockNumber;
    {
        Buffer pbuf = DtLockParent(index, path[depth - 1], target, BUFFER_LOCK_SHARE, true);
        if (pbuf == InvalidBuffer) return false;
        Page pp = BufferGetPage(pbuf);
        for (OffsetNumber off = DtFirstDataOffset(pp) + 1; off < PageGetMaxOffsetNumber(pp); off++)
            if (DtPageItem(pp, off)->value == target) {
                left = DtPageItem(pp, off - 1)->value;
                right = DtPageItem(pp, off + 1)->value;
                break;
            }
        pblk = BufferGetBlockNumber(pbuf);
        UnlockReleaseBuffer(pbuf);
    }
    if (left == InvalidBlockNumber) return false;
    Buffer lbuf = ReadBuffer(index, left);
    LockBuffer(lbuf, BUFFER_LOCK_EXCLUSIVE);
    Page lp = BufferGetPage(lbuf);
    DtCheckPage(index, lp, left, DT_LEAF);
    if (DtPageGetOpaque(lp)->rightlink != target) {
        UnlockReleaseBuffer(lbuf);
        return false;
    }
    Buffer tbuf = ReadBuffer(index, target);
    LockBuffer(tbuf, BUFFER_LOCK_EXCLUSIVE);
    Page tp = BufferGetPage(tbuf);
    DtCheckPage(index, tp, target, DT_LEAF);
    DtPageOpaque *top = DtPageGetOpaque(tp);
    bool ok = !(top->flags & DT_RIGHTMOST) && top->rightlink == right && PageGetMaxOffsetNumber(tp) == FirstOffsetNumber;
    Buffer pbuf = ok ? DtLockParent(index, pblk, target, BUFFER_LOCK_EXCLUSIVE, true) : InvalidBuffer;
    OffsetNumber at = InvalidOffsetNumber;
    if (pbuf != InvalidBuffer) {
        Page pp = BufferGetPage(pbuf);
        for (OffsetNumber off = DtFirstDataOffset(pp) + 1; off < PageGetMaxOffsetNumber(pp); off++)
            if (DtPageItem(pp, off)->value == target) {
                if (DtPageItem(pp, off - 1)->value == left && DtPageItem(pp, off + 1)->value == right) at = off;
                break;
            }
    }
    if (at == InvalidOffsetNumber) {
        if (pbuf != InvalidBuffer) UnlockReleaseBuffer(pbuf);
        UnlockReleaseBuffer(tbuf);
        UnlockReleaseBuffer(lbuf);
        return false;
    }
    Page limg = DtPageImage(), timg = DtPageImage(), pimg = DtPageImage();
    DtCopyPage(limg, lbuf);
    DtPageGetOpaque(limg)->rightlink = right;
    DtCopyPage(timg, tbuf);
    DtMarkDeleted(timg);
    DtPageGetOpaque(timg)->rightlink = right;
    DtCopyPage(pimg, pbuf);
    DtPageItem(pimg, at)->value = right;
    PageIndexTupleDelete(pimg, OffsetNumberNext(at));
    Buffer bufs[3] = {lbuf, tbuf, pbuf};
    Page imgs[3] = {limg, timg, pimg};
    DtWritePages(index, 3, bufs, imgs, NULL);
    UnlockReleaseBuffer(pbuf);
    UnlockReleaseBuffer(tbuf);
    UnlockReleaseBuffer(lbuf);
    pfree(limg);
    pfree(timg);
    pfree(pimg);
    return true;
}

IndexBulkDeleteResult *dtbulkdelete(IndexVacuumInfo *info, IndexBulkDeleteResult *stats,
                                    IndexBulkDeleteCallback callback, void *callback_state) {
    Relation index = info->index;
    if (stats == NULL) stats = (IndexBulkDeleteResult *) palloc0(sizeof(IndexBulkDeleteResult));
    BlockNumber blk = DtLeftmostLeaf(index);
    Page img = DtPageImage();
    // The leaves left to right.  A leaf that splits after VACUUM passed it
    // leaves its right half behind VACUUM: those entries are done, and new
    // postings never name the rows VACUUM removes (their line pointers stay
    // dead until it has finished).
    while (blk != InvalidBlockNumber) {
        vacuum_delay_point();
        Buffer lbuf = ReadBufferExtended(index, MAIN_FORKNUM, blk, RBM_NORMAL, info->strategy);
        LockBuffer(lbuf, BUFFER_LOCK_EXCLUSIVE);
        DtCheckPage(index, BufferGetPage(lbuf), blk, DT_LEAF);
        DtCopyPage(img, lbuf);
        BlockNumber next = DtPageGetOpaque(img)->rightlink;
        DtVacuumInline(index, lbuf, img, callback, callback_state, stats);
        // The keys of the chain entries, done after the leaf is released.
        int nchains = 0;
        bool rightmost = DtPageGetOpaque(img)->flags & DT_RIGHTMOST;
        int nitems = PageGetMaxOffsetNumber(img) - DtFirstDataOffset(img) + 1;
        char *hikey = NULL;
        int hilen = 0;
        if (!rightmost) {
            DtItemHeader *hk = DtPageItem(img, FirstOffsetNumber);
            hilen = hk->keylen;
            hikey = (char *) palloc(hilen + 1);
            memcpy(hikey, DtItemKey(hk), hilen);
        }
        char **keys = (char **) palloc(sizeof(char *) * (PageGetMaxOffsetNumber(img) + 1));
        int *lens = (int *) palloc(sizeof(int) * (PageGetMaxOffsetNumber(img) + 1));
        for (OffsetNumber off = DtFirstDataOffset(img); off <= PageGetMaxOffsetNumber(img); off++) {
            DtItemHeader *ih = DtPageItem(img, off);
            if (ih->kind != kChainEntry) continue;
            keys[nchains] = (char *) palloc(ih->keylen + 1);
            memcpy(keys[nchains], DtItemKey(ih), ih->keylen);
            lens[nchains++] = ih->keylen;
        }
        UnlockReleaseBuffer(lbuf);
        for (int i = 0; i < nchains; i++) {
            DtVacuumChain(index, blk, keys[i], lens[i], callback, callback_state, stats, info->strategy);
            pfree(keys[i]);
        }
        pfree(keys);
        pfree(lens);
        // A leaf left with chain entries only may now be empty.
        if (!rightmost && nitems == nchains && DtUnlinkEmptyLeaf(index, blk, hikey, hilen)) {
            stats->pages_deleted++;
            stats->pages_newly_deleted++;
        }
        if (hikey) pfree(hikey);
        blk = next;
    }
    pfree(img);
    return stats;
}

IndexBulkDeleteResult *dtvacuumcleanup(IndexVacuumInfo *info, IndexBulkDeleteResult *stats) {
    Relation index = info->index;
    if (info->analyze_only) return stats;
    if (stats == NULL) stats = (IndexBulkDeleteResult *) palloc0(sizeof(IndexBulkDeleteResult));
    BlockNumber nblocks = RelationGetNumberOfBlocks(index);
    BlockNumber nfree = 0, ndeleted = 0;
    for (BlockNumber blk = DTREE_METAPAGE_BLKNO + 1; blk < nblocks; blk++) {
        vacuum_delay_point();
        Buffer buf = ReadBufferExtended(index, MAIN_FORKNUM, blk, RBM_NORMAL, info->strategy);
        LockBuffer(buf, BUFFER_LOCK_SHARE);
        Page page = BufferGetPage(buf);
        bool isnew = PageIsNew(page);
        bool deleted = !isnew && (DtPageGetOpaque(page)->flags & DT_DELETED);
        bool recyclable = isnew || (deleted && GlobalVisCheckRemovableFullXid(NULL, DtPageGetOpaque(page)->deletexid));
        UnlockReleaseBuffer(buf);
        if (deleted) ndeleted++;
        if (recyclable) {
            RecordFreeIndexPage(index, blk);
            nfree++;
        }
    }
    IndexFreeSpaceMapVacuum(index);
    DTMetaPageData m;
    DtReadMetaPage(index, &m, NULL);
    stats->num_pages = nblocks;
    stats->pages_free = nfree;
    stats->pages_deleted = ndeleted;
    stats->num_index_tuples = m.dtm_numdocs;
    stats->estimated_count = false;
    return stats;
}
