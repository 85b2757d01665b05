// Splitting tree pages (the locking order is described in dtree_insert.cc).
#include "dtree_split.h"

#include "dtree_write.h"
#include "dtreelayout.h"

using dt::dtree::kDownlink;
using dt::dtree::kHighKey;

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

// Free space of a tree page for new items.
static Size DtFreeSpace(Page page) { return PageGetExactFreeSpace(page); }

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
void DtSplitLocked(Relation index, Buffer buf, const BlockNumber *path, int level) {
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
