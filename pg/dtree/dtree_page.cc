// Page formatting, item search, page allocation and WAL of dtree pages.
#include "dtree_page.h"

extern "C" {
#include "access/transam.h"
#include "storage/freespace.h"
#include "storage/indexfsm.h"
#include "storage/lmgr.h"
#include "utils/memutils.h"
#include "utils/snapmgr.h"
}

#include <cstring>

#include "dtreelayout.h"
#include "triplesort.h"

void DtInitPage(Page page, uint16 flags) {
    PageInit(page, BLCKSZ, sizeof(DtPageOpaque));
    DtPageOpaque *op = DtPageGetOpaque(page);
    op->flags = flags;
    op->rightlink = InvalidBlockNumber;
    op->deletexid = InvalidFullTransactionId;
    op->page_id = DTREE_PAGE_ID;
}

void DtSetPostingHeader(Page page, const dt::Posting *p, uint32 n, uint32 nbytes) {
    DtPostingPageHeader *h = DtPageGetPostingHeader(page);
    h->firsttid = n ? p[0].tid : 0;
    h->lasttid = n ? p[n - 1].tid : 0;
    h->npostings = n;
    h->nbytes = nbytes;
    h->nrows = 0;
    h->countsum = 0;
    for (uint32 i = 0; i < n; i++) {
        if (i == 0 || p[i].tid != p[i - 1].tid) h->nrows++;
        h->countsum += p[i].count;
    }
    ((PageHeader) page)->pd_lower = (LocationIndex) ((char *) DtPostingPageData(page) + nbytes - (char *) page);
}

void DtAppendPostingHeader(Page page, const dt::Posting &p, uint32 k) {
    DtPostingPageHeader *h = DtPageGetPostingHeader(page);
    if (h->npostings == 0) h->firsttid = p.tid;
    if (h->npostings == 0 || p.tid != h->lasttid) h->nrows++;
    h->countsum += p.count;
    h->npostings += 1;
    h->lasttid = p.tid;
    h->nbytes += k;
    ((PageHeader) page)->pd_lower = (LocationIndex) ((char *) DtPostingPageData(page) + h->nbytes - (char *) page);
}

void DtInitMetaPage(Page page) {
    DtInitPage(page, DT_META);
    DTMetaPageData *m = DtPageGetMeta(page);
    memset(m, 0, sizeof(*m));
    m->dtm_magic = DTREE_MAGIC;
    m->dtm_version = DTREE_VERSION;
    m->dtm_numterms = 0;
    m->dtm_numdocs = 0;
    m->dtm_flags = 1;
    DtMetaExtra *x = DtPageGetMetaExtra(page);
    memset(x, 0, sizeof(*x));
    x->root = InvalidBlockNumber;
    // The data is below pd_lower, so that WAL does not take it for the hole.
    ((PageHeader) page)->pd_lower = (char *) (x + 1) - (char *) page;
}

bool DtPageIsTree(Page page) { return (DtPageGetOpaque(page)->flags & (DT_LEAF | DT_INTERNAL)) != 0; }

void DtCheckPage(Relation index, Page page, BlockNumber blkno, uint16 kinds) {
    if (PageIsNew(page) || PageGetSpecialSize(page) != MAXALIGN(sizeof(DtPageOpaque)) ||
        DtPageGetOpaque(page)->page_id != DTREE_PAGE_ID || !(DtPageGetOpaque(page)->flags & kinds))
        ereport(ERROR, (errcode(ERRCODE_INDEX_CORRUPTED),
                        errmsg("dtree index \"%s\" has an unexpected page at block %u", RelationGetRelationName(index),
                               blkno),
                        errdetail("page flags 0x%x, expected one of 0x%x",
                                  PageIsNew(page) ? 0 : (unsigned) DtPageGetOpaque(page)->flags, (unsigned) kinds)));
}

DtItemHeader *DtPageItem(Page page, OffsetNumber off) {
    return (DtItemHeader *) PageGetItem(page, PageGetItemId(page, off));
}

OffsetNumber DtFirstDataOffset(Page page) {
    return (DtPageGetOpaque(page)->flags & DT_RIGHTMOST) ? FirstOffsetNumber : OffsetNumberNext(FirstOffsetNumber);
}

int DtCompareItemKey(const DtItemHeader *ih, const char *key, int keylen) {
    return dt::CompareTerms(DtItemKey(ih), ih->keylen, key, keylen);
}

bool DtBeyondHighKey(Page page, const char *key, int keylen) {
    if (DtPageGetOpaque(page)->flags & DT_RIGHTMOST) return false;
    return DtCompareItemKey(DtPageItem(page, FirstOffsetNumber), key, keylen) <= 0;
}

BlockNumber DtFindChild(Page page, const char *key, int keylen, OffsetNumber *off) {
    OffsetNumber lo = DtFirstDataOffset(page), hi = PageGetMaxOffsetNumber(page);
    // The last item whose key is <= key; the first item bounds the page.
    OffsetNumber found = lo;
    while (lo <= hi) {
        OffsetNumber mid = lo + (hi - lo) / 2;
        if (DtCompareItemKey(DtPageItem(page, mid), key, keylen) <= 0) {
            found = mid;
            lo = mid + 1;
        } else {
            hi = mid - 1;
        }
    }
    if (off) *off = found;
    return DtPageItem(page, found)->value;
}

OffsetNumber DtFindEntry(Page page, const char *key, int keylen, OffsetNumber *insertat) {
    OffsetNumber lo = DtFirstDataOffset(page), hi = PageGetMaxOffsetNumber(page);
    while (lo <= hi) {
        OffsetNumber mid = lo + (hi - lo) / 2;
        int c = DtCompareItemKey(DtPageItem(page, mid), key, keylen);
        if (c == 0) {
            if (insertat) *insertat = mid;
            return mid;
        }
        if (c < 0)
            lo = mid + 1;
        else
            hi = mid - 1;
    }
    if (insertat) *insertat = lo;
    return InvalidOffsetNumber;
}

static bool DtPageRecyclable(Page page) {
    if (PageIsNew(page)) return true;
    if (PageGetSpecialSize(page) != MAXALIGN(sizeof(DtPageOpaque))) return false;
    DtPageOpaque *op = DtPageGetOpaque(page);
    return op->page_id == DTREE_PAGE_ID && (op->flags & DT_DELETED) &&
           GlobalVisCheckRemovableFullXid(NULL, op->deletexid);
}

Buffer DtNewBuffer(Relation index) {
    for (;;) {
        BlockNumber blkno = GetFreeIndexPage(index);
        if (blkno == InvalidBlockNumber) break;
        Buffer buf = ReadBuffer(index, blkno);
        if (ConditionalLockBuffer(buf)) {
            if (DtPageRecyclable(BufferGetPage(buf))) return buf;
            LockBuffer(buf, BUFFER_LOCK_UNLOCK);
        }
        ReleaseBuffer(buf);
    }
    bool needLock = !RELATION_IS_LOCAL(index);
    if (needLock) LockRelationForExtension(index, ExclusiveLock);
    Buffer buf = ReadBuffer(index, P_NEW);
    LockBuffer(buf, BUFFER_LOCK_EXCLUSIVE);
    if (needLock) UnlockRelationForExtension(index, ExclusiveLock);
    return buf;
}

void DtWritePages(Relation index, int n, const Buffer *bufs, Page *images, const bool *isnew) {
    Assert(n > 0 && n <= MAX_GENERIC_XLOG_PAGES);
    GenericXLogState *state = GenericXLogStart(index);
    for (int i = 0; i < n; i++) {
        if (BufferGetBlockNumber(bufs[i]) == DTREE_METAPAGE_BLKNO) DtPageGetMetaExtra(images[i])->changes++;
        Page p = GenericXLogRegisterBuffer(state, bufs[i], isnew && isnew[i] ? GENERIC_XLOG_FULL_IMAGE : 0);
        memcpy(p, images[i], BLCKSZ);
    }
    GenericXLogFinish(state);
}

void DtReadMetaPage(Relation index, DTMetaPageData *meta, DtMetaExtra *extra) {
    Buffer buf = ReadBuffer(index, DTREE_METAPAGE_BLKNO);
    LockBuffer(buf, BUFFER_LOCK_SHARE);
    Page page = BufferGetPage(buf);
    bool ok = !PageIsNew(page) && PageGetSpecialSize(page) == MAXALIGN(sizeof(DtPageOpaque)) &&
              DtPageGetMeta(page)->dtm_magic == DTREE_MAGIC && (DtPageGetOpaque(page)->flags & DT_META);
    int32 version = ok ? DtPageGetMeta(page)->dtm_version : 0;
    if (ok && version != DTREE_VERSION) {
        UnlockReleaseBuffer(buf);
        ereport(ERROR, (errcode(ERRCODE_OBJECT_NOT_IN_PREREQUISITE_STATE),
                        errmsg("dtree index \"%s\" has page layout %d, this server reads layout %d",
                               RelationGetRelationName(index), (int) version, DTREE_VERSION),
                        errhint("REINDEX the index.")));
    }
    if (ok) {
        if (meta) *meta = *DtPageGetMeta(page);
        if (extra) *extra = *DtPageGetMetaExtra(page);
    }
    UnlockReleaseBuffer(buf);
    if (!ok)
        ereport(ERROR, (errcode(ERRCODE_INDEX_CORRUPTED),
                        errmsg("index \"%s\" has no dtree meta page", RelationGetRelationName(index))));
}

Page DtPageImage(void) { return (Page) palloc(BLCKSZ); }

Page DtScratchPage(int i) {
    static Page scratch[8];
    Assert(i >= 0 && i < 8);
    if (!scratch[i]) scratch[i] = (Page) MemoryContextAlloc(TopMemoryContext, BLCKSZ);
    return scratch[i];
}

void DtCopyPage(Page dst, Buffer buf) { memcpy(dst, BufferGetPage(buf), BLCKSZ); }
