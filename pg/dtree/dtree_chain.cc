// Posting chains: finding the page of a chain that takes a posting, and
// adding it there (the locking order is described in dtree_insert.cc).
#include "dtree_chain.h"

#include <cstring>

#include "dtree_write.h"

// The page of a chain that takes a posting for row tid: the last page
// whose first row is at or below tid, or the head when there is none.  The
// walk takes one share lock at a time.  Under the leaf's exclusive lock the
// chain cannot change and the answer is exact; without it the answer is a
// guess to be checked (DtLockGuessedPage), a page that VACUUM deleted
// meanwhile is passed by its right link, which it keeps, and a page that is
// no posting page at all ends the guess.
BlockNumber DtChainSearch(Relation index, BlockNumber head, uint64 tid, bool guessing) {
    BlockNumber target = head, blk = head;
    while (blk != InvalidBlockNumber) {
        Buffer b = ReadBuffer(index, blk);
        LockBuffer(b, BUFFER_LOCK_SHARE);
        Page pg = BufferGetPage(b);
        if (guessing && (PageIsNew(pg) || PageGetSpecialSize(pg) != MAXALIGN(sizeof(DtPageOpaque)) ||
                         DtPageGetOpaque(pg)->page_id != DTREE_PAGE_ID ||
                         !(DtPageGetOpaque(pg)->flags & (DT_POSTING | DT_DELETED)))) {
            UnlockReleaseBuffer(b);
            break;
        }
        DtCheckPage(index, pg, blk, DT_POSTING | DT_DELETED);
        bool live = !(DtPageGetOpaque(pg)->flags & DT_DELETED);
        DtPostingPageHeader *h = DtPageGetPostingHeader(pg);
        bool stop = live && h->npostings > 0 && h->firsttid > tid;
        if (live && h->npostings > 0 && !stop) target = blk;
        BlockNumber next = DtPageGetOpaque(pg)->rightlink;
        UnlockReleaseBuffer(b);
        if (stop) break;
        blk = next;
    }
    return target;
}

// The guessed page blk, exclusively locked, if a posting for row tid may go
// there without breaking the chain's row order: a live posting page whose
// first row is at or below tid (or the head), and tid at or below its last
// row or the next page's first row.  Otherwise InvalidBuffer.  The caller
// holds the leaf's exclusive lock, so the chain does not change under the
// check.  The page is still one of this chain's: a page VACUUM unlinks is
// reused only when no running transaction's snapshot is older than its
// unlinking, and the caller's is.
static Buffer DtLockGuessedPage(Relation index, BlockNumber blk, const DtChainRef *ref, uint64 tid) {
    Buffer b = ReadBuffer(index, blk);
    LockBuffer(b, BUFFER_LOCK_EXCLUSIVE);
    Page pg = BufferGetPage(b);
    DtPageOpaque *op = DtPageGetOpaque(pg);
    DtPostingPageHeader *h = DtPageGetPostingHeader(pg);
    bool ok = !PageIsNew(pg) && PageGetSpecialSize(pg) == MAXALIGN(sizeof(DtPageOpaque)) &&
              op->page_id == DTREE_PAGE_ID && op->flags == DT_POSTING &&
              (blk == ref->head || (h->npostings > 0 && h->firsttid <= tid));
    if (ok && op->rightlink != InvalidBlockNumber && !(h->npostings > 0 && tid <= h->lasttid)) {
        Buffer nb = ReadBuffer(index, op->rightlink);
        LockBuffer(nb, BUFFER_LOCK_SHARE);
        Page np = BufferGetPage(nb);
        DtCheckPage(index, np, op->rightlink, DT_POSTING);
        DtPostingPageHeader *nh = DtPageGetPostingHeader(np);
        ok = nh->npostings > 0 && nh->firsttid >= tid;
        UnlockReleaseBuffer(nb);
    }
    if (ok) return b;
    UnlockReleaseBuffer(b);
    return InvalidBuffer;
}

// The page of the chain ref that takes a posting for row tid, exclusively
// locked, its block in *target: the tail for an append; else the guess
// *guess if it passes its check, else the page a search under the leaf's
// lock names.  InvalidBuffer, with *head set, when the search is still to
// be made without the leaf (*guess not yet set).
static Buffer DtLockChainTarget(Relation index, const DtChainRef &ref, uint64 tid, BlockNumber *guess,
                                BlockNumber *head, BlockNumber *target) {
    *target = ref.tail;
    Buffer tbuf = ReadBuffer(index, ref.tail);
    LockBuffer(tbuf, BUFFER_LOCK_EXCLUSIVE);
    Page tpage = BufferGetPage(tbuf);
    DtCheckPage(index, tpage, ref.tail, DT_POSTING);
    DtPostingPageHeader *th = DtPageGetPostingHeader(tpage);
    if (ref.tail != ref.head && !(th->npostings > 0 && th->firsttid <= tid)) {
        UnlockReleaseBuffer(tbuf);
        tbuf = InvalidBuffer;
        if (*guess == InvalidBlockNumber) {
            *head = ref.head;
            return InvalidBuffer;
        }
        tbuf = DtLockGuessedPage(index, *guess, &ref, tid);
        *target = *guess;
        if (tbuf == InvalidBuffer) {
            *target = DtChainSearch(index, ref.head, tid, false);
            tbuf = ReadBuffer(index, *target);
            LockBuffer(tbuf, BUFFER_LOCK_EXCLUSIVE);
        }
        DtCheckPage(index, BufferGetPage(tbuf), *target, DT_POSTING);
    }
    return tbuf;
}

// Adds p to the chain of the entry at off of the exclusively locked leaf
// (image in leafimg).  An append (a row at or beyond the tail's first row)
// locks the tail at once.  A posting for a row further back goes to the
// page DtChainSearch names; the search of a long chain does not hold the
// leaf: when *guess is not yet set, it is left to the caller (returns
// false with *head set; the caller releases the leaf, searches, sets
// *guess and starts again).  A guess that fails its check is replaced by a
// search under the leaf's lock.
bool DtChainInsert(Relation index, Buffer leafbuf, Page leafimg, OffsetNumber off, const dt::Posting *p, int32 dterms,
                   int32 ddocs, bool doclist, BlockNumber *guess, BlockNumber *head) {
    DtItemHeader *ih = DtPageItem(leafimg, off);
    DtChainRef ref;
    memcpy(&ref, DtItemPayload(ih), sizeof(ref));
    BlockNumber target;
    Buffer tbuf = DtLockChainTarget(index, ref, p->tid, guess, head, &target);
    if (tbuf == InvalidBuffer) return false;
    Page tpage = BufferGetPage(tbuf);
    DtPostingPageHeader *th = DtPageGetPostingHeader(tpage);
    uint32 n = th->npostings;
    if (n > 0 && p->tid >= th->lasttid && th->nbytes + dt::PostingSize(*p, th->lasttid) <= DT_POSTING_CAPACITY) {
        // An append: the new posting's bytes go after the others.
        Page timg = DtScratchPage(6), meta = DtScratchPage(0);
        memcpy(timg, tpage, BLCKSZ);
        DtPostingPageHeader *h = DtPageGetPostingHeader(timg);
        size_t k = dt::EncodePostings(p, 1, h->lasttid, DtPostingPageData(timg) + h->nbytes,
                                      DT_POSTING_CAPACITY - h->nbytes);
        DtAppendPostingHeader(timg, *p, (uint32) k);
        ih->value += 1;
        Buffer mbuf = DtLockMeta(index, meta);
        DtMetaDeltas(meta, dterms, ddocs, doclist ? 0 : 1, 0);
        Buffer bufs[3] = {tbuf, leafbuf, mbuf};
        Page imgs[3] = {timg, leafimg, meta};
        DtWritePages(index, 3, bufs, imgs, NULL);
        UnlockReleaseBuffer(mbuf);
        UnlockReleaseBuffer(tbuf);
        return true;
    }
    dt::Posting *arr = (dt::Posting *) palloc(sizeof(dt::Posting) * (n + 1));
    if (n && dt::DecodePostings(DtPostingPageData(tpage), th->nbytes, 0, arr, n) == SIZE_MAX)
        ereport(ERROR, (errcode(ERRCODE_INDEX_CORRUPTED),
                        errmsg("dtree index \"%s\" has an undecodable posting page %u", RelationGetRelationName(index),
                               target)));
    size_t pos = dt::InsertPosting(arr, n, *p);
    n++;
    BlockNumber oldright = DtPageGetOpaque(tpage)->rightlink;
    Page timg = DtScratchPage(6), qimg = DtScratchPage(7), meta = DtScratchPage(0);
    Buffer bufs[4];
    Page imgs[4];
    bool isnew[4] = {false, false, false, false};
    int nb = 0;
    ih->value += 1;
    Buffer qbuf = InvalidBuffer;
    if (dt::EncodedSize(arr, n, 0) <= DT_POSTING_CAPACITY) {
        DtFillPostingPage(timg, arr, n, oldright);
        bufs[nb] = tbuf;
        imgs[nb++] = timg;
    } else {
        // Appends keep the old page full; other inserts split it in half.
        uint32 k = (pos == n - 1) ? n - 1 : n / 2;
        qbuf = DtNewBuffer(index);
        DtFillPostingPage(timg, arr, k, BufferGetBlockNumber(qbuf));
        DtFillPostingPage(qimg, arr + k, n - k, oldright);
        bufs[nb] = tbuf;
        imgs[nb++] = timg;
        bufs[nb] = qbuf;
        isnew[nb] = true;
        imgs[nb++] = qimg;
        if (target == ref.tail) {
            ref.tail = BufferGetBlockNumber(qbuf);
            memcpy(DtItemPayload(ih), &ref, sizeof(ref));
        }
    }
    bufs[nb] = leafbuf;
    imgs[nb++] = leafimg;
    Buffer mbuf = DtLockMeta(index, meta);
    DtMetaDeltas(meta, dterms, ddocs, doclist ? 0 : 1, 0);
    bufs[nb] = mbuf;
    imgs[nb++] = meta;
    DtWritePages(index, nb, bufs, imgs, isnew);
    UnlockReleaseBuffer(mbuf);
    if (qbuf != InvalidBuffer) UnlockReleaseBuffer(qbuf);
    UnlockReleaseBuffer(tbuf);
    pfree(arr);
    return true;
}
