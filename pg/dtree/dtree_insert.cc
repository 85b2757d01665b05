// Adding postings to the tree: one posting at a time, each change of pages
// one generic WAL record that also carries the counter deltas, so that the
// counters always agree with the postings, after a crash too.
//
// Writers are serialised by the writers' lock; scans run at the same time
// and rely on right links: a leaf or internal page that splits keeps its
// left half in place and links to the new right half, and its high key
// tells a reader that arrives late to move right.  A split writes the two
// halves, the parent's new downlink and the meta page in one record; a
// parent without room is split first, top-down, before the child.
#include "dtree_internal.h"

extern "C" {
#include "miscadmin.h"
#include "storage/lmgr.h"
}

#include <cstring>

#include "dtreelayout.h"

using dt::dtree::kChainEntry;
using dt::dtree::kDownlink;
using dt::dtree::kHighKey;
using dt::dtree::kInlineEntry;

void DtLockWriters(Relation index) { LockPage(index, DTREE_METAPAGE_BLKNO, ExclusiveLock); }
void DtUnlockWriters(Relation index) { UnlockPage(index, DTREE_METAPAGE_BLKNO, ExclusiveLock); }

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
    DtPostingPageHeader *h = DtPageGetPostingHeader(page);
    size_t nb = n ? dt::EncodePostings(p, n, 0, DtPostingPageData(page), DT_POSTING_CAPACITY) : 0;
    if (nb == SIZE_MAX) elog(ERROR, "dtree: postings do not fit on a posting page");
    h->firsttid = n ? p[0].tid : 0;
    h->lasttid = n ? p[n - 1].tid : 0;
    h->npostings = n;
    h->nbytes = (uint32) nb;
    ((PageHeader) page)->pd_lower = (LocationIndex) ((char *) DtPostingPageData(page) + nb - (char *) page);
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

// Splits the tree page at path[level] (its parent path[level - 1] has room
// for a downlink, or it is the root) as one record.
static void DtSplitTreePage(Relation index, const BlockNumber *path, int level) {
    Page meta = DtScratchPage(0), left = DtScratchPage(2), right = DtScratchPage(3), top = DtScratchPage(4);
    Buffer buf = ReadBuffer(index, path[level]);
    LockBuffer(buf, BUFFER_LOCK_EXCLUSIVE);
    Page old = BufferGetPage(buf);
    DtCheckPage(index, old, path[level], DT_INTERNAL | DT_LEAF);
    DtItemList list;
    DtCollectItems(old, InvalidOffsetNumber, InvalidOffsetNumber, NULL, 0, &list);
    if (list.n < 2) elog(ERROR, "dtree: cannot split a page of %d items", list.n);
    Buffer rbuf = DtNewBuffer(index);
    uint16 kind = DtPageGetOpaque(old)->flags & (DT_INTERNAL | DT_LEAF);
    const DtItemHeader *rfirst = DtSplitItems(old, &list, kind, left, right, BufferGetBlockNumber(rbuf));
    Buffer bufs[4];
    Page imgs[4];
    bool isnew[4] = {false, true, false, false};
    bufs[0] = buf;
    imgs[0] = left;
    bufs[1] = rbuf;
    imgs[1] = right;
    Buffer tbuf;
    if (level == 0) {
        // A new root above the two halves.
        tbuf = DtNewBuffer(index);
        DtMakeRoot(top, path[0], rfirst, BufferGetBlockNumber(rbuf));
        isnew[2] = true;
    } else {
        tbuf = ReadBuffer(index, path[level - 1]);
        LockBuffer(tbuf, BUFFER_LOCK_EXCLUSIVE);
        DtCopyPage(top, tbuf);
        DtAddDownlink(index, top, path[level], DtItemKey(rfirst), rfirst->keylen, BufferGetBlockNumber(rbuf));
    }
    bufs[2] = tbuf;
    imgs[2] = top;
    bufs[3] = DtLockMeta(index, meta);
    imgs[3] = meta;
    if (level == 0) {
        DtPageGetMetaExtra(meta)->root = BufferGetBlockNumber(tbuf);
        DtPageGetMetaExtra(meta)->height += 1;
    }
    DtWritePages(index, 4, bufs, imgs, isnew);
    for (int i = 0; i < 4; i++) UnlockReleaseBuffer(bufs[i]);
}

// Adds p to the chain of the entry at off of the locked leaf (image in
// leafimg).
static void DtChainInsert(Relation index, Buffer leafbuf, Page leafimg, OffsetNumber off, const dt::Posting *p,
                          int32 dterms, int32 ddocs, bool doclist) {
    DtItemHeader *ih = DtPageItem(leafimg, off);
    DtChainRef ref;
    memcpy(&ref, DtItemPayload(ih), sizeof(ref));
    // The target page: the last page whose first row is <= p's row (the
    // head when none is); the tail takes appends at once.
    BlockNumber target = InvalidBlockNumber;
    {
        Buffer b = ReadBuffer(index, ref.tail);
        LockBuffer(b, BUFFER_LOCK_SHARE);
        Page pg = BufferGetPage(b);
        DtCheckPage(index, pg, ref.tail, DT_POSTING);
        DtPostingPageHeader *h = DtPageGetPostingHeader(pg);
        if (h->npostings > 0 && h->firsttid <= p->tid) target = ref.tail;
        UnlockReleaseBuffer(b);
    }
    if (target == InvalidBlockNumber) {
        target = ref.head;
        BlockNumber blk = ref.head;
        while (blk != InvalidBlockNumber) {
            Buffer b = ReadBuffer(index, blk);
            LockBuffer(b, BUFFER_LOCK_SHARE);
            Page pg = BufferGetPage(b);
            DtCheckPage(index, pg, blk, DT_POSTING);
            DtPostingPageHeader *h = DtPageGetPostingHeader(pg);
            bool stop = h->npostings > 0 && h->firsttid > p->tid;
            if (h->npostings > 0 && !stop) target = blk;
            BlockNumber next = DtPageGetOpaque(pg)->rightlink;
            UnlockReleaseBuffer(b);
            if (stop) break;
            blk = next;
        }
    }
    Buffer tbuf = ReadBuffer(index, target);
    LockBuffer(tbuf, BUFFER_LOCK_EXCLUSIVE);
    Page tpage = BufferGetPage(tbuf);
    DtCheckPage(index, tpage, target, DT_POSTING);
    DtPostingPageHeader *th = DtPageGetPostingHeader(tpage);
    uint32 n = th->npostings;
    if (n > 0 && p->tid >= th->lasttid && th->nbytes + dt::PostingSize(*p, th->lasttid) <= DT_POSTING_CAPACITY) {
        // An append: the new posting's bytes go after the others.
        Page timg = DtScratchPage(6), meta = DtScratchPage(0);
        memcpy(timg, tpage, BLCKSZ);
        DtPostingPageHeader *h = DtPageGetPostingHeader(timg);
        size_t k = dt::EncodePostings(p, 1, h->lasttid, DtPostingPageData(timg) + h->nbytes,
                                      DT_POSTING_CAPACITY - h->nbytes);
        h->nbytes += (uint32) k;
        h->npostings += 1;
        h->lasttid = p->tid;
        ((PageHeader) timg)->pd_lower = (LocationIndex) ((char *) DtPostingPageData(timg) + h->nbytes - (char *) timg);
        ih->value += 1;
        Buffer mbuf = DtLockMeta(index, meta);
        DtMetaDeltas(meta, dterms, ddocs, doclist ? 0 : 1, 0);
        Buffer bufs[3] = {tbuf, leafbuf, mbuf};
        Page imgs[3] = {timg, leafimg, meta};
        DtWritePages(index, 3, bufs, imgs, NULL);
        UnlockReleaseBuffer(mbuf);
        UnlockReleaseBuffer(tbuf);
        return;
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
    if (dt::EncodedSize(arr, n, 0) <= DT_POSTING_CAPACITY) {
        DtFillPostingPage(timg, arr, n, oldright);
        bufs[nb] = tbuf;
        imgs[nb++] = timg;
    } else {
        // Appends keep the old page full; other inserts split it in half.
        uint32 k = (pos == n - 1) ? n - 1 : n / 2;
        Buffer qbuf = DtNewBuffer(index);
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
    UnlockReleaseBuffer(tbuf);
    if (nb == 4) UnlockReleaseBuffer(bufs[1]);
    pfree(arr);
}

// True if the locked-or-not internal page blk can take one more downlink.
static bool DtHasRoomForDownlink(Relation index, BlockNumber blk) {
    Buffer b = ReadBuffer(index, blk);
    LockBuffer(b, BUFFER_LOCK_SHARE);
    bool room = DtFreeSpace(BufferGetPage(b)) >= dt::dtree::MaxDownlinkSpace();
    UnlockReleaseBuffer(b);
    return room;
}

void DtInsertPosting(Relation index, const char *key, int keylen, const dt::Posting *p, int32 dterms, int32 ddocs) {
    bool doclist = keylen == 0;
    if (keylen > (int) dt::dtree::kMaxKeyLen)
        ereport(ERROR, (errcode(ERRCODE_PROGRAM_LIMIT_EXCEEDED),
                        errmsg("term of %d bytes is too long for a dtree index", keylen)));
    for (;;) {
        CHECK_FOR_INTERRUPTS();
        DtMetaExtra x;
        DtReadMetaPage(index, NULL, &x);
        Page meta = DtScratchPage(0), img = DtScratchPage(1);
        if (x.root == InvalidBlockNumber) {
            // The first entry makes the root leaf.
            Buffer lbuf = DtNewBuffer(index);
            DtInitPage(img, DT_LEAF | DT_RIGHTMOST);
            unsigned char pb[32];
            size_t nb = dt::EncodePostings(p, 1, 0, pb, sizeof(pb));
            Size sz;
            DtItemHeader *it = DtMakeItem(kInlineEntry, key, keylen, 1, pb, nb, &sz);
            DtAddItemOrDie(img, it, sz, InvalidOffsetNumber);
            Buffer mbuf = DtLockMeta(index, meta);
            DtPageGetMetaExtra(meta)->root = BufferGetBlockNumber(lbuf);
            DtPageGetMetaExtra(meta)->height = 1;
            DtMetaDeltas(meta, dterms, ddocs, doclist ? 0 : 1, doclist ? 0 : 1);
            Buffer bufs[2] = {lbuf, mbuf};
            Page imgs[2] = {img, meta};
            bool isnew[2] = {true, false};
            DtWritePages(index, 2, bufs, imgs, isnew);
            UnlockReleaseBuffer(mbuf);
            UnlockReleaseBuffer(lbuf);
            return;
        }
        // Descend, remembering the internal pages passed.
        BlockNumber path[DT_MAX_HEIGHT];
        int depth = 0;
        BlockNumber blk = DtDescend(index, x.root, key, keylen, path, &depth);
        path[depth] = blk;
        Buffer lbuf = ReadBuffer(index, blk);
        LockBuffer(lbuf, BUFFER_LOCK_EXCLUSIVE);
        DtCopyPage(img, lbuf);
        OffsetNumber insertat;
        OffsetNumber off = DtFindEntry(img, key, keylen, &insertat);
        if (off != InvalidOffsetNumber && DtPageItem(img, off)->kind == kChainEntry) {
            DtChainInsert(index, lbuf, img, off, p, dterms, ddocs, doclist);
            UnlockReleaseBuffer(lbuf);
            return;
        }
        // The entry's new item.
        DtItemHeader *item;
        Size itemsz;
        bool newentry = off == InvalidOffsetNumber;
        Buffer cbuf = InvalidBuffer;
        Page cimg = NULL;
        if (newentry) {
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
                // The list moves to a posting page of its own.
                cbuf = DtNewBuffer(index);
                cimg = DtScratchPage(5);
                DtFillPostingPage(cimg, arr, n, InvalidBlockNumber);
                DtChainRef ref = {BufferGetBlockNumber(cbuf), BufferGetBlockNumber(cbuf)};
                item = DtMakeItem(kChainEntry, key, keylen, n, &ref, sizeof(ref), &itemsz);
            } else {
                unsigned char *pb = (unsigned char *) palloc(need + 1);
                dt::EncodePostings(arr, n, 0, pb, need);
                item = DtMakeItem(kInlineEntry, key, keylen, n, pb, need, &itemsz);
            }
            pfree(arr);
        }
        bool placed = newentry ? PageAddItem(img, (Item) item, itemsz, insertat, false, false) != InvalidOffsetNumber
                               : PageIndexTupleOverwrite(img, off, (Item) item, itemsz);
        if (placed) {
            Buffer mbuf = DtLockMeta(index, meta);
            DtMetaDeltas(meta, dterms, ddocs, doclist ? 0 : 1, (newentry && !doclist) ? 1 : 0);
            Buffer bufs[3];
            Page imgs[3];
            bool isnew[3] = {false, false, false};
            int nb = 0;
            bufs[nb] = lbuf;
            imgs[nb++] = img;
            if (cbuf != InvalidBuffer) {
                bufs[nb] = cbuf;
                isnew[nb] = true;
                imgs[nb++] = cimg;
            }
            bufs[nb] = mbuf;
            imgs[nb++] = meta;
            DtWritePages(index, nb, bufs, imgs, isnew);
            UnlockReleaseBuffer(mbuf);
            if (cbuf != InvalidBuffer) UnlockReleaseBuffer(cbuf);
            UnlockReleaseBuffer(lbuf);
            return;
        }
        if (cbuf != InvalidBuffer) elog(ERROR, "dtree: a shrinking entry did not fit");
        // The leaf must split.  Its parent needs room for a downlink; if it
        // has none, split the highest full ancestor first and start again.
        if (depth > 0 && !DtHasRoomForDownlink(index, path[depth - 1])) {
            UnlockReleaseBuffer(lbuf);
            int j = depth - 1;
            while (j > 0 && !DtHasRoomForDownlink(index, path[j - 1])) j--;
            DtSplitTreePage(index, path, j);
            continue;
        }
        DtItemList list;
        DtCollectItems(img, newentry ? InvalidOffsetNumber : off, newentry ? insertat : off, item, itemsz, &list);
        Page left = DtScratchPage(2), right = DtScratchPage(3), top = DtScratchPage(4);
        Buffer rbuf = DtNewBuffer(index);
        const DtItemHeader *rfirst = DtSplitItems(img, &list, DT_LEAF, left, right, BufferGetBlockNumber(rbuf));
        Buffer tbuf;
        bool isnew[4] = {false, true, false, false};
        if (depth == 0) {
            tbuf = DtNewBuffer(index);
            DtMakeRoot(top, blk, rfirst, BufferGetBlockNumber(rbuf));
            isnew[2] = true;
        } else {
            tbuf = ReadBuffer(index, path[depth - 1]);
            LockBuffer(tbuf, BUFFER_LOCK_EXCLUSIVE);
            DtCopyPage(top, tbuf);
            DtAddDownlink(index, top, blk, DtItemKey(rfirst), rfirst->keylen, BufferGetBlockNumber(rbuf));
        }
        Buffer mbuf = DtLockMeta(index, meta);
        DtMetaDeltas(meta, dterms, ddocs, doclist ? 0 : 1, (newentry && !doclist) ? 1 : 0);
        if (depth == 0) {
            DtPageGetMetaExtra(meta)->root = BufferGetBlockNumber(tbuf);
            DtPageGetMetaExtra(meta)->height += 1;
        }
        Buffer bufs[4] = {lbuf, rbuf, tbuf, mbuf};
        Page imgs[4] = {left, right, top, meta};
        DtWritePages(index, 4, bufs, imgs, isnew);
        for (int i = 0; i < 4; i++) UnlockReleaseBuffer(bufs[i]);
        return;
    }
}

// aminsert: the row's postings, then its entry in the document list.
bool dtinsert(Relation index, Datum *values, bool *isnull, ItemPointer ht_ctid, Relation heapRel,
              IndexUniqueCheck checkUnique, bool indexUnchanged, IndexInfo *indexInfo) {
    if (isnull[0]) return false;
    DtDocTerms t;
    DtGetDocTerms(values[0], &t);
    uint64 tid = dt::MakeTid48(ItemPointerGetBlockNumber(ht_ctid), ItemPointerGetOffsetNumber(ht_ctid));
    DtLockWriters(index);
    for (int i = 0; i < t.nterms; i++) {
        dt::Posting p = {tid, (uint32) t.counts[i], t.wordcnt};
        DtInsertPosting(index, t.terms[i], t.lens[i], &p, t.counts[i], 0);
    }
    dt::Posting d = {tid, (uint32) Min(t.total, (int64) PG_INT32_MAX), t.wordcnt};
    DtInsertPosting(index, DT_DOCLIST_KEY, DT_DOCLIST_KEYLEN, &d, 0, 1);
    DtUnlockWriters(index);
    DtFreeDocTerms(&t);
    return false;
}
