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

#include "dtreelayout.h"
#include "triplesort.h"

using dt::dtree::kChainEntry;
using dt::dtree::kDownlink;
using dt::dtree::kHighKey;
using dt::dtree::kInlineEntry;

// An item assembled in palloc'd memory.
static DtItemHeader *DtMakeItem(uint8 kind, const char *key, int keylen, uint32 value, const void *payload,
                                Size paylen, Size *size) {
    *size = sizeof(DtItemHeader) + keylen + paylen;
    DtItemHeader *ih = (DtItemHeader *) palloc0(*size);
    ih->kind = kind;
    ih->keylen = (uint16) keylen;
    ih->value = value;
    if (keylen) memcpy((char *) ih + sizeof(DtItemHeader), key, keylen);
    if (paylen) memcpy((char *) ih + sizeof(DtItemHeader) + keylen, payload, paylen);
    return ih;
}

static void DtAddItemOrDie(Page page, const void *item, Size size, OffsetNumber off) {
    if (PageAddItem(page, (Item) item, size, off, false, false) == InvalidOffsetNumber)
        elog(ERROR, "dtree: item of %zu bytes does not fit on its page", (size_t) size);
}

// Applies counter deltas to a private image of the meta page.
static void DtMetaDeltas(Page meta, int32 dterms, int32 ddocs, int32 dpostings, int32 ddistinct) {
    DtPageGetMeta(meta)->dtm_numterms += dterms;
    DtPageGetMeta(meta)->dtm_numdocs += ddocs;
    DtPageGetMetaExtra(meta)->npostings += dpostings;
    DtPageGetMetaExtra(meta)->ndistinct += ddistinct;
}

// The meta page, exclusively locked, copied into image: the last lock any
// writer takes.
static Buffer DtLockMeta(Relation index, Page image) {
    Buffer buf = ReadBuffer(index, DTREE_METAPAGE_BLKNO);
    LockBuffer(buf, BUFFER_LOCK_EXCLUSIVE);
    DtCopyPage(image, buf);
    return buf;
}

// Free space of a tree page for new items.
static Size DtFreeSpace(Page page) { return PageGetExactFreeSpace(page); }

// Writes the postings of an entry into a new posting page image.
static void DtFillPostingPage(Page page, const dt::Posting *p, uint32 n, BlockNumber rightlink) {
    DtInitPage(page, DT_POSTING);
    DtPageGetOpaque(page)->rightlink = rightlink;
    size_t nb = n ? dt::EncodePostings(p, n, 0, DtPostingPageData(page), DT_POSTING_CAPACITY) : 0;
    if (nb == SIZE_MAX) elog(ERROR, "dtree: postings do not fit on a posting page");
    DtSetPostingHeader(page, p, n, (uint32) nb);
}

// The items of a tree page, with one item replaced or inserted, as an
// array in key order (high key not included).
typedef struct DtItemList {
    int n;
    const DtItemHeader **items;
    Size *sizes;
} DtItemList;

static void DtCollectItems(Page page, OffsetNumber replace, OffsetNumber insertat, const DtItemHeader *newitem,
                           Size newsize, DtItemList *out) {
    OffsetNumber first = DtFirstDataOffset(page), max = PageGetMaxOffsetNumber(page);
    int cap = (max - first + 2);
    out->items = (const DtItemHeader **) palloc(sizeof(DtItemHeader *) * cap);
    out->sizes = (Size *) palloc(sizeof(Size) * cap);
    out->n = 0;
    for (OffsetNumber off = first; off <= max + 1; off++) {
        if (off == insertat && newitem) {
            out->items[out->n] = newitem;
            out->sizes[out->n++] = newsize;
        }
        if (off > max) break;
        if (off == replace && newitem) continue;
        ItemId iid = PageGetItemId(page, off);
        out->items[out->n] = (const DtItemHeader *) PageGetItem(page, iid);
        out->sizes[out->n++] = ItemIdGetLength(iid);
    }
}

// Splits the items of a page (leaf or internal, flags kind) between the
// images left and right.  The old page's high key and right link go to the
// right half; the left half gets the right's first key as its high key.
// Returns the right half's first item (its lower bound, for the parent).
static const DtItemHeader *DtSplitItems(Page old, const DtItemList *list, uint16 kind, Page left, Page right,
                                        BlockNumber rightblk) {
    size_t *space = (size_t *) palloc(sizeof(size_t) * list->n);
    for (int i = 0; i < list->n; i++) space[i] = dt::dtree::ItemSpace(list->sizes[i]);
    int k = (int) dt::dtree::SplitPoint(space, list->n);
    DtPageOpaque *oop = DtPageGetOpaque(old);
    const DtItemHeader *rfirst = list->items[k];

    DtInitPage(left, kind);
    DtPageGetOpaque(left)->rightlink = rightblk;
    Size hsz;
    DtItemHeader *hk = DtMakeItem(kHighKey, DtItemKey(rfirst), rfirst->keylen, 0, NULL, 0, &hsz);
    DtAddItemOrDie(left, hk, hsz, InvalidOffsetNumber);
    for (int i = 0; i < k; i++) DtAddItemOrDie(left, list->items[i], list->sizes[i], InvalidOffsetNumber);

    DtInitPage(right, kind | (oop->flags & DT_RIGHTMOST));
    DtPageGetOpaque(right)->rightlink = oop->rightlink;
    if (!(oop->flags & DT_RIGHTMOST)) {
        ItemId iid = PageGetItemId(old, FirstOffsetNumber);
        DtAddItemOrDie(right, PageGetItem(old, iid), ItemIdGetLength(iid), InvalidOffsetNumber);
    }
    for (int i = k; i < list->n; i++) DtAddItemOrDie(right, list->items[i], list->sizes[i], InvalidOffsetNumber);
    pfree(space);
    return rfirst;
}

// Inserts a downlink for child (lower bound key) into an internal page
// image, right after the downlink of leftchild.
static void DtAddDownlink(Relation index, Page parent, BlockNumber leftchild, const char *key, int keylen,
                          BlockNumber child) {
    OffsetNumber max = PageGetMaxOffsetNumber(parent), at = InvalidOffsetNumber;
    for (OffsetNumber off = DtFirstDataOffset(parent); off <= max; off++)
        if (DtPageItem(parent, off)->value == leftchild) {
            at = off + 1;
            break;
        }
    if (at == InvalidOffsetNumber)
        ereport(ERROR, (errcode(ERRCODE_INDEX_CORRUPTED),
                        errmsg("dtree index \"%s\": parent page has no downlink to block %u",
                               RelationGetRelationName(index), leftchild)));
    Size sz;
    DtItemHeader *dl = DtMakeItem(kDownlink, key, keylen, child, NULL, 0, &sz);
    DtAddItemOrDie(parent, dl, sz, at);
}

// A new root image over two pages: the empty key leads to left, rfirst's
// key to right.
static void DtMakeRoot(Page top, BlockNumber left, const DtItemHeader *rfirst, BlockNumber right) {
    DtInitPage(top, DT_INTERNAL | DT_RIGHTMOST);
    Size sz;
    DtItemHeader *d1 = DtMakeItem(kDownlink, "", 0, left, NULL, 0, &sz);
    DtAddItemOrDie(top, d1, sz, InvalidOffsetNumber);
    DtItemHeader *d2 = DtMakeItem(kDownlink, DtItemKey(rfirst), rfirst->keylen, right, NULL, 0, &sz);
    DtAddItemOrDie(top, d2, sz, InvalidOffsetNumber);
}

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

Buffer DtLockParent(Relation index, BlockNumber start, BlockNumber child, int mode, bool missing_ok) {
    BlockNumber blk = start;
    while (blk != InvalidBlockNumber) {
        Buffer buf = ReadBuffer(index, blk);
        LockBuffer(buf, mode);
        Page page = BufferGetPage(buf);
        DtCheckPage(index, page, blk, DT_INTERNAL);
        OffsetNumber max = PageGetMaxOffsetNumber(page);
        for (OffsetNumber off = DtFirstDataOffset(page); off <= max; off++)
            if (DtPageItem(page, off)->value == child) return buf;
        blk = DtPageGetOpaque(page)->rightlink;
        UnlockReleaseBuffer(buf);
    }
    if (missing_ok) return InvalidBuffer;
    ereport(ERROR, (errcode(ERRCODE_INDEX_CORRUPTED),
                    errmsg("dtree index \"%s\": no internal page right of block %u has a downlink to block %u",
                           RelationGetRelationName(index), start, child)));
}

// Splits the exclusively locked tree page buf, which the descent that made
// path reached at level `level` (0: the root of that moment), as one
// record: the left half stays in place and links to the new right half,
// and the parent gets the right half's downlink (or, for the root, a new
// root above both halves is made and named on the meta page).  When the
// parent has no room for one more downlink, the parent is split instead,
// and so on upwards; when the page was the root and no longer is, nothing
// is split.  Either way the caller starts again from the root and finds
// what is still to do.  Releases buf.
static void DtSplitLocked(Relation index, Buffer buf, const BlockNumber *path, int level) {
    for (;;) {
        BlockNumber blk = BufferGetBlockNumber(buf);
        Buffer pbuf = InvalidBuffer;
        if (level == 0) {
            // Only a split of this page, which is locked, changes the root
            // away from it.
            DtMetaExtra x;
            DtReadMetaPage(index, NULL, &x);
            if (x.root != blk) {
                UnlockReleaseBuffer(buf);
                return;
            }
        } else {
            pbuf = DtLockParent(index, path[level - 1], blk, BUFFER_LOCK_EXCLUSIVE, false);
            if (DtFreeSpace(BufferGetPage(pbuf)) < dt::dtree::MaxDownlinkSpace()) {
                UnlockReleaseBuffer(buf);
                buf = pbuf;
                level--;
                continue;
            }
        }
        Page meta = DtScratchPage(0), left = DtScratchPage(2), right = DtScratchPage(3), top = DtScratchPage(4);
        Page old = BufferGetPage(buf);
        DtCheckPage(index, old, blk, DT_INTERNAL | DT_LEAF);
        DtItemList list;
        DtCollectItems(old, InvalidOffsetNumber, InvalidOffsetNumber, NULL, 0, &list);
        if (list.n < 2) elog(ERROR, "dtree: cannot split a page of %d items", list.n);
        Buffer rbuf = DtNewBuffer(index);
        uint16 kind = DtPageGetOpaque(old)->flags & (DT_INTERNAL | DT_LEAF);
        const DtItemHeader *rfirst = DtSplitItems(old, &list, kind, left, right, BufferGetBlockNumber(rbuf));
        Buffer bufs[4] = {buf, rbuf, InvalidBuffer, InvalidBuffer};
        Page imgs[4] = {left, right, top, meta};
        bool isnew[4] = {false, true, false, false};
        int n = 3;
        if (level == 0) {
            bufs[2] = DtNewBuffer(index);
            isnew[2] = true;
            DtMakeRoot(top, blk, rfirst, BufferGetBlockNumber(rbuf));
            bufs[3] = DtLockMeta(index, meta);
            DtPageGetMetaExtra(meta)->root = BufferGetBlockNumber(bufs[2]);
            DtPageGetMetaExtra(meta)->height += 1;
            n = 4;
        } else {
            bufs[2] = pbuf;
            DtCopyPage(top, pbuf);
            DtAddDownlink(index, top, blk, DtItemKey(rfirst), rfirst->keylen, BufferGetBlockNumber(rbuf));
        }
        DtWritePages(index, n, bufs, imgs, isnew);
        for (int i = n - 1; i >= 0; i--) UnlockReleaseBuffer(bufs[i]);
        pfree(list.items);
        pfree(list.sizes);
        return;
    }
}

// The page of a chain that takes a posting for row tid: the last page
// whose first row is at or below tid, or the head when there is none.  The
// walk takes one share lock at a time.  Under the leaf's exclusive lock the
// chain cannot change and the answer is exact; without it the answer is a
// guess to be checked (DtLockGuessedPage), a page that VACUUM deleted
// meanwhile is passed by its right link, which it keeps, and a page that is
// no posting page at all ends the guess.
static BlockNumber DtChainSearch(Relation index, BlockNumber head, uint64 tid, bool guessing) {
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

// Adds p to the chain of the entry at off of the exclusively locked leaf
// (image in leafimg).  An append (a row at or beyond the tail's first row)
// locks the tail at once.  A posting for a row further back goes to the
// page DtChainSearch names; the search of a long chain does not hold the
// leaf: when *guess is not yet set, it is left to the caller (returns
// false with *head set; the caller releases the leaf, searches, sets
// *guess and starts again).  A guess that fails its check is replaced by a
// search under the leaf's lock.
static bool DtChainInsert(Relation index, Buffer leafbuf, Page leafimg, OffsetNumber off, const dt::Posting *p,
                          int32 dterms, int32 ddocs, bool doclist, BlockNumber *guess, BlockNumber *head) {
    DtItemHeader *ih = DtPageItem(leafimg, off);
    DtChainRef ref;
    memcpy(&ref, DtItemPayload(ih), sizeof(ref));
    BlockNumber target = ref.tail;
    Buffer tbuf = ReadBuffer(index, ref.tail);
    LockBuffer(tbuf, BUFFER_LOCK_EXCLUSIVE);
    Page tpage = BufferGetPage(tbuf);
    DtCheckPage(index, tpage, ref.tail, DT_POSTING);
    DtPostingPageHeader *th = DtPageGetPostingHeader(tpage);
    if (ref.tail != ref.head && !(th->npostings > 0 && th->firsttid <= p->tid)) {
        UnlockReleaseBuffer(tbuf);
        tbuf = InvalidBuffer;
        if (*guess == InvalidBlockNumber) {
            *head = ref.head;
            return false;
        }
        tbuf = DtLockGuessedPage(index, *guess, &ref, p->tid);
        target = *guess;
        if (tbuf == InvalidBuffer) {
            target = DtChainSearch(index, ref.head, p->tid, false);
            tbuf = ReadBuffer(index, target);
            LockBuffer(tbuf, BUFFER_LOCK_EXCLUSIVE);
        }
        tpage = BufferGetPage(tbuf);
        DtCheckPage(index, tpage, target, DT_POSTING);
        th = DtPageGetPostingHeader(tpage);
    }
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
