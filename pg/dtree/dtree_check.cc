// dt_CheckIndex: verifies the whole structure of a dtree index and raises
// an error at the first fault found.  Checked: the meta page; every level
// of the tree, left to right by right links, against the downlinks of the
// level above (same pages in the same order, each child's keys within its
// downlink's range, its high key equal to the next downlink's key); key
// order within pages; every posting list decodes exactly and is in row
// order; chains (page kinds, first rows, order across pages, the tail);
// the counters against the postings; every page reached once, and every
// page not reached free or deleted; every posting's row is a row of the
// table.  It holds a share lock on the index relation, which waits for the
// transactions that insert, delete through VACUUM or add terms to finish
// (they hold a row-exclusive lock on it) and keeps new ones out.
#include "dtree_internal.h"

extern "C" {
#include "access/relation.h"
#include "access/table.h"
#include "access/xlog.h"
#include "catalog/index.h"
#include "miscadmin.h"
#include "storage/lmgr.h"
#include "utils/acl.h"
#include "utils/lsyscache.h"
}

#include <cstring>

#include "dtreelayout.h"
#include "triplesort.h"

using dt::dtree::kChainEntry;
using dt::dtree::kDownlink;
using dt::dtree::kHighKey;
using dt::dtree::kInlineEntry;

typedef struct DtCheck {
    Relation index, heap;
    BlockNumber nblocks, heapblocks;
    bool *seen;
    int64 sumcounts, npostings, ndistinct, ndocs;
    Buffer heapbuf;  // the heap page last looked at, pinned
    dt::Posting *arr;
    uint32 cap;
} DtCheck;

#define DtFail(st, ...)                                                                                        \
    ereport(ERROR, (errcode(ERRCODE_INDEX_CORRUPTED),                                                          \
                    errmsg("dtree index \"%s\" is corrupt", RelationGetRelationName((st)->index)),            \
                    errdetail(__VA_ARGS__)))

static Page DtCheckRead(DtCheck *st, BlockNumber blk, Page img) {
    if (blk == InvalidBlockNumber || blk == DTREE_METAPAGE_BLKNO || blk >= st->nblocks)
        DtFail(st, "link to block %u, outside the index's %u blocks", blk, st->nblocks);
    if (st->seen[blk]) DtFail(st, "block %u is reached twice", blk);
    st->seen[blk] = true;
    Buffer b = ReadBuffer(st->index, blk);
    LockBuffer(b, BUFFER_LOCK_SHARE);
    DtCopyPage(img, b);
    UnlockReleaseBuffer(b);
    if (PageIsNew(img) || PageGetSpecialSize(img) != MAXALIGN(sizeof(DtPageOpaque)) ||
        DtPageGetOpaque(img)->page_id != DTREE_PAGE_ID)
        DtFail(st, "block %u is not a dtree page", blk);
    return img;
}

static void DtReserve(DtCheck *st, uint32 n) {
    if (n <= st->cap) return;
    st->cap = Max(n, st->cap * 2);
    st->arr = (dt::Posting *) repalloc_huge(st->arr, sizeof(dt::Posting) * st->cap);
}

static void DtCheckRow(DtCheck *st, uint64 t48, const char *where) {
    BlockNumber b = dt::Tid48Block(t48);
    OffsetNumber o = dt::Tid48Offset(t48);
    if (b >= st->heapblocks || o == InvalidOffsetNumber) DtFail(st, "%s: row (%u,%u) is outside the table", where, b, o);
    if (st->heapbuf == InvalidBuffer || BufferGetBlockNumber(st->heapbuf) != b) {
        if (st->heapbuf != InvalidBuffer) ReleaseBuffer(st->heapbuf);
        st->heapbuf = ReadBuffer(st->heap, b);
    }
    LockBuffer(st->heapbuf, BUFFER_LOCK_SHARE);
    Page hp = BufferGetPage(st->heapbuf);
    bool ok = !PageIsNew(hp) && o <= PageGetMaxOffsetNumber(hp) && ItemIdIsUsed(PageGetItemId(hp, o));
    LockBuffer(st->heapbuf, BUFFER_LOCK_UNLOCK);
    if (!ok) DtFail(st, "%s: row (%u,%u) is not a row of the table", where, b, o);
}

// Checks n decoded postings (in order from prev) and adds them up.
static uint64 DtCheckPostings(DtCheck *st, const dt::Posting *p, uint32 n, uint64 prev, bool doclist,
                              const char *where) {
    for (uint32 i = 0; i < n; i++) {
        if (p[i].tid < prev) DtFail(st, "%s: postings out of row order", where);
        prev = p[i].tid;
        if (!doclist && p[i].count == 0) DtFail(st, "%s: a posting with count 0", where);
        if (!doclist) st->sumcounts += p[i].count;
        DtCheckRow(st, p[i].tid, where);
    }
    return prev;
}

static void DtCheckEntry(DtCheck *st, BlockNumber leafblk, const DtItemHeader *ih, Size len) {
    bool doclist = ih->keylen == 0;
    char where[160];
    snprintf(where, sizeof(where), "entry \"%.*s\" at block %u", Min((int) ih->keylen, 64), DtItemKey(ih), leafblk);
    uint32 n = ih->value;
    if (doclist)
        st->ndocs += n;
    else {
        st->ndistinct++;
        st->npostings += n;
        if (n == 0) DtFail(st, "%s: an entry without postings", where);
    }
    if (ih->kind == kInlineEntry) {
        Size paylen = len - sizeof(DtItemHeader) - ih->keylen;
        DtReserve(st, n);
        if (dt::DecodePostings(DtItemPayload(ih), paylen, 0, st->arr, n) != paylen)
            DtFail(st, "%s: its posting list does not decode to %u postings in %zu bytes", where, n, (size_t) paylen);
        DtCheckPostings(st, st->arr, n, 0, doclist, where);
        return;
    }
    if (ih->kind != kChainEntry) DtFail(st, "%s: item kind %d on a leaf", where, ih->kind);
    if (len != sizeof(DtItemHeader) + ih->keylen + sizeof(DtChainRef)) DtFail(st, "%s: chain entry of wrong size", where);
    DtChainRef ref;
    memcpy(&ref, DtItemPayload(ih), sizeof(ref));
    Page img = DtPageImage();
    BlockNumber blk = ref.head, last = InvalidBlockNumber;
    uint64 prev = 0;
    uint64 total = 0;
    while (blk != InvalidBlockNumber) {
        CHECK_FOR_INTERRUPTS();
        DtCheckRead(st, blk, img);
        DtPageOpaque *op = DtPageGetOpaque(img);
        if (op->flags != DT_POSTING) DtFail(st, "%s: block %u of its chain is not a posting page", where, blk);
        DtPostingPageHeader *h = DtPageGetPostingHeader(img);
        if (h->nbytes > DT_POSTING_CAPACITY) DtFail(st, "%s: posting page %u claims %u bytes", where, blk, h->nbytes);
        DtReserve(st, h->npostings);
        if (dt::DecodePostings(DtPostingPageData(img), h->nbytes, 0, st->arr, h->npostings) != h->nbytes)
            DtFail(st, "%s: posting page %u does not decode", where, blk);
        if (h->npostings && (h->firsttid != st->arr[0].tid || h->lasttid != st->arr[h->npostings - 1].tid))
            DtFail(st, "%s: posting page %u has a wrong first or last row", where, blk);
        uint32 nrows = 0, countsum = 0;
        for (uint32 i = 0; i < h->npostings; i++) {
            if (i == 0 || st->arr[i].tid != st->arr[i - 1].tid) nrows++;
            countsum += st->arr[i].count;
        }
        if (h->nrows != nrows || h->countsum != countsum)
            DtFail(st, "%s: posting page %u counts %u rows and %u occurrences, its postings %u and %u", where, blk,
                   h->nrows, h->countsum, nrows, countsum);
        prev = DtCheckPostings(st, st->arr, h->npostings, prev, doclist, where);
        total += h->npostings;
        last = blk;
        blk = op->rightlink;
    }
    if (last != ref.tail) DtFail(st, "%s: its chain ends at block %u, the entry names %u as the tail", where, last, ref.tail);
    if (total != n) DtFail(st, "%s: its chain holds %llu postings, the entry says %u", where, (unsigned long long) total, n);
    pfree(img);
}

typedef struct DtLevelList {
    int n, cap;
    BlockNumber *blocks;
    char **keys;
    int *lens;
} DtLevelList;

static void DtListAdd(DtLevelList *l, BlockNumber blk, const char *key, int keylen) {
    if (l->n == l->cap) {
        l->cap = l->cap ? l->cap * 2 : 64;
        l->blocks = l->blocks ? (BlockNumber *) repalloc(l->blocks, sizeof(BlockNumber) * l->cap)
                              : (BlockNumber *) palloc(sizeof(BlockNumber) * l->cap);
        l->keys = l->keys ? (char **) repalloc(l->keys, sizeof(char *) * l->cap) : (char **) palloc(sizeof(char *) * l->cap);
        l->lens = l->lens ? (int *) repalloc(l->lens, sizeof(int) * l->cap) : (int *) palloc(sizeof(int) * l->cap);
    }
    l->blocks[l->n] = blk;
    l->keys[l->n] = key ? pnstrdup(key, keylen) : NULL;
    l->lens[l->n++] = keylen;
}

static void DtCheckIndexC(Oid relid) {
    DtCheck st;
    memset(&st, 0, sizeof(st));
    st.index = DtOpenIndexByOid(relid, AccessShareLock);
    DtCheckTablePrivilege(st.index, ACL_SELECT);
    Oid heapid = IndexGetRelation(relid, false);
    st.heap = table_open(heapid, AccessShareLock);
    // A standby has no writers but the replay, which takes no such lock.
    bool locked = !RecoveryInProgress();
    if (locked) LockRelationOid(relid, ShareLock);
    st.nblocks = RelationGetNumberOfBlocks(st.index);
    st.heapblocks = RelationGetNumberOfBlocks(st.heap);
    st.seen = (bool *) palloc0(Max(st.nblocks, 1));
    st.heapbuf = InvalidBuffer;
    st.cap = 1024;
    st.arr = (dt::Posting *) palloc(sizeof(dt::Posting) * st.cap);

    if (st.nblocks == 0) DtFail(&st, "the index has no blocks");
    Page meta = DtPageImage();
    {
        Buffer b = ReadBuffer(st.index, DTREE_METAPAGE_BLKNO);
        LockBuffer(b, BUFFER_LOCK_SHARE);
        DtCopyPage(meta, b);
        UnlockReleaseBuffer(b);
    }
    DTMetaPageData m = *DtPageGetMeta(meta);
    DtMetaExtra x = *DtPageGetMetaExtra(meta);
    if (PageIsNew(meta) || m.dtm_magic != DTREE_MAGIC || !(DtPageGetOpaque(meta)->flags & DT_META))
        DtFail(&st, "block 0 is not a dtree meta page");
    if (m.dtm_version != DTREE_VERSION || m.dtm_flags != 1)
        DtFail(&st, "meta page version %d, flags %d", m.dtm_version, (int) m.dtm_flags);
    st.seen[0] = true;

    if (x.root != InvalidBlockNumber) {
        if (x.height < 1 || x.height > 32) DtFail(&st, "tree height %d", x.height);
        // The level below is described by the downlinks of the level above;
        // the root's level by the root alone.
        DtLevelList expect;
        memset(&expect, 0, sizeof(expect));
        DtListAdd(&expect, x.root, "", 0);
        Page img = DtPageImage();
        for (int level = x.height; level >= 1; level--) {
            bool leaflevel = level == 1;
            DtLevelList below;
            memset(&below, 0, sizeof(below));
            BlockNumber blk = expect.blocks[0];
            for (int i = 0; i < expect.n; i++) {
                CHECK_FOR_INTERRUPTS();
                if (blk != expect.blocks[i])
                    DtFail(&st, "level %d: right link leads to block %u, the downlinks to block %u", level, blk,
                           expect.blocks[i]);
                DtCheckRead(&st, blk, img);
                DtPageOpaque *op = DtPageGetOpaque(img);
                uint16 kind = op->flags & ~DT_RIGHTMOST;
                if (kind != (leaflevel ? DT_LEAF : DT_INTERNAL))
                    DtFail(&st, "block %u at level %d has flags 0x%x", blk, level, (unsigned) op->flags);
                bool last = i == expect.n - 1;
                if (last != ((op->flags & DT_RIGHTMOST) != 0))
                    DtFail(&st, "block %u: rightmost flag disagrees with its place on level %d", blk, level);
                if (last && op->rightlink != InvalidBlockNumber) DtFail(&st, "block %u: rightmost page with a right link", blk);
                if (!last) {
                    const DtItemHeader *hk = DtPageItem(img, FirstOffsetNumber);
                    if (hk->kind != kHighKey) DtFail(&st, "block %u: first item is not a high key", blk);
                    if (dt::CompareTerms(DtItemKey(hk), hk->keylen, expect.keys[i + 1], expect.lens[i + 1]) != 0)
                        DtFail(&st, "block %u: high key differs from the next downlink's key", blk);
                }
                const char *prevkey = expect.keys[i];
                int prevlen = expect.lens[i];
                bool first = true;
                for (OffsetNumber off = DtFirstDataOffset(img); off <= PageGetMaxOffsetNumber(img); off++) {
                    ItemId iid = PageGetItemId(img, off);
                    const DtItemHeader *ih = (const DtItemHeader *) PageGetItem(img, iid);
                    if (sizeof(DtItemHeader) + ih->keylen > ItemIdGetLength(iid) || ih->keylen > dt::dtree::kMaxKeyLen)
                        DtFail(&st, "block %u item %u: key runs past the item", blk, off);
                    int c = dt::CompareTerms(DtItemKey(ih), ih->keylen, prevkey, prevlen);
                    if (c < 0 || (c == 0 && !first))
                        DtFail(&st, "block %u item %u: keys out of order", blk, off);
                    if (!leaflevel && first && c != 0)
                        DtFail(&st, "block %u: first downlink's key differs from the parent's", blk);
                    if (!last) {
                        const DtItemHeader *hk = DtPageItem(img, FirstOffsetNumber);
                        if (dt::CompareTerms(DtItemKey(ih), ih->keylen, DtItemKey(hk), hk->keylen) >= 0)
                            DtFail(&st, "block %u item %u: key not below the high key", blk, off);
                    }
                    first = false;
                    prevkey = DtItemKey(ih);
                    prevlen = ih->keylen;
                    if (leaflevel) {
                        DtCheckEntry(&st, blk, ih, ItemIdGetLength(iid));
                    } else {
                        if (ih->kind != kDownlink) DtFail(&st, "block %u item %u: not a downlink", blk, off);
                        DtListAdd(&below, ih->value, DtItemKey(ih), ih->keylen);
                    }
                }
                if (!leaflevel && first) DtFail(&st, "internal block %u has no downlinks", blk);
                blk = op->rightlink;
            }
            expect = below;
            if (!leaflevel && expect.n == 0) DtFail(&st, "level %d has no pages", level - 1);
        }
        pfree(img);
    }
    if (st.heapbuf != InvalidBuffer) ReleaseBuffer(st.heapbuf);
    if (st.sumcounts != m.dtm_numterms)
        DtFail(&st, "meta page counts %d term occurrences, the postings %lld", m.dtm_numterms, (long long) st.sumcounts);
    if (st.ndocs != m.dtm_numdocs)
        DtFail(&st, "meta page counts %d documents, the document list %lld", m.dtm_numdocs, (long long) st.ndocs);
    if (st.ndistinct != x.ndistinct)
        DtFail(&st, "meta page counts %d distinct terms, the leaves %lld", x.ndistinct, (long long) st.ndistinct);
    if (st.npostings != x.npostings)
        DtFail(&st, "meta page counts %lld postings, the lists %lld", (long long) x.npostings, (long long) st.npostings);
    // Pages not reached: free or deleted only.
    for (BlockNumber blk = 1; blk < st.nblocks; blk++) {
        if (st.seen[blk]) continue;
        Buffer b = ReadBuffer(st.index, blk);
        LockBuffer(b, BUFFER_LOCK_SHARE);
        Page pg = BufferGetPage(b);
        bool ok = PageIsNew(pg) || (PageGetSpecialSize(pg) == MAXALIGN(sizeof(DtPageOpaque)) &&
                                    (DtPageGetOpaque(pg)->flags & DT_DELETED));
        UnlockReleaseBuffer(b);
        if (!ok) DtFail(&st, "block %u is in use but not reachable", blk);
    }
    if (locked) UnlockRelationOid(relid, ShareLock);
    table_close(st.heap, AccessShareLock);
    relation_close(st.index, AccessShareLock);
}

#include "boundary.h"

extern "C" {
PG_FUNCTION_INFO_V1(pgdoc_dt_CheckIndex);
}

// dt_CheckIndex(index regclass): true, or an error naming the first fault.
Datum pgdoc_dt_CheckIndex(PG_FUNCTION_ARGS) {
    return dt::pg::Guard([&]() -> Datum {
        Oid relid = dt::pg::OidArg(fcinfo, 0);
        dt::pg::ServerCall([&] { DtCheckIndexC(relid); });
        return BoolGetDatum(true);
    });
}
