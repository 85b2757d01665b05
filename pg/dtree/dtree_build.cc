// Building a dtree index: one pass over the table collects (term, row,
// count) triples, sorted in memory while they fit in maintenance_work_mem
// and by the server's external sort beyond; the sorted stream is written
// bottom-up into full pages: leaves left to right, each term's postings
// inline or in a chain of posting pages, then each level of internal pages
// over the one below, then the meta page.
#include "dtree_internal.h"

extern "C" {
#include "access/tableam.h"
#include "catalog/index.h"
#include "catalog/pg_type.h"
#include "commands/progress.h"
#include "miscadmin.h"
#include "pgstat.h"
#include "storage/smgr.h"
#include "utils/memutils.h"
#include "utils/snapmgr.h"
#include "utils/tuplesort.h"
#include "utils/syscache.h"
#include "utils/typcache.h"
}

#include "module.h"

#include <cstring>

#include "dtreelayout.h"
#include "triplesort.h"

using dt::dtree::kChainEntry;
using dt::dtree::kDownlink;
using dt::dtree::kHighKey;
using dt::dtree::kInlineEntry;

typedef struct DtBuildState {
    Relation index;
    dt::TermTriple *triples;
    Size ntriples, captriples;
    char *arena;
    Size arenalen, arenacap;
    Size memlimit;
    Tuplesortstate *sort;  // once the triples outgrow memory
    int64 ntotal;          // triples produced
    double ndocs;
    int64 numterms;
    MemoryContext tmpcxt;
} DtBuildState;

static void DtSortPut(DtBuildState *st, const char *term, int termlen, uint64 tid, uint32 count, uint32 wordcnt) {
    Size len = termlen + dt::kTripleKeyExtra;
    bytea *b = (bytea *) palloc(VARHDRSZ + len);
    SET_VARSIZE(b, VARHDRSZ + len);
    dt::MakeTripleKey(term, termlen, tid, count, wordcnt, (unsigned char *) VARDATA(b));
    tuplesort_putdatum(st->sort, PointerGetDatum(b), false);
    pfree(b);
}

static void DtSpill(DtBuildState *st) {
    TypeCacheEntry *tc = lookup_type_cache(BYTEAOID, TYPECACHE_LT_OPR);
    st->sort = tuplesort_begin_datum(BYTEAOID, tc->lt_opr, InvalidOid, false, maintenance_work_mem, NULL,
                                     TUPLESORT_NONE);
    for (Size i = 0; i < st->ntriples; i++) {
        const dt::TermTriple &t = st->triples[i];
        DtSortPut(st, st->arena + t.termoff, t.termlen, t.tid, t.count, t.wordcnt);
    }
    pfree(st->triples);
    pfree(st->arena);
    st->triples = NULL;
    st->arena = NULL;
    st->ntriples = st->captriples = st->arenalen = st->arenacap = 0;
}

static void DtAddTriple(DtBuildState *st, const char *term, int termlen, uint64 tid, uint32 count, uint32 wordcnt) {
    st->ntotal++;
    if (st->sort) {
        DtSortPut(st, term, termlen, tid, count, wordcnt);
        return;
    }
    if (st->ntriples == st->captriples) {
        st->captriples *= 2;
        st->triples = (dt::TermTriple *) repalloc_huge(st->triples, sizeof(dt::TermTriple) * st->captriples);
    }
    while (st->arenalen + termlen > st->arenacap) {
        st->arenacap *= 2;
        st->arena = (char *) repalloc_huge(st->arena, st->arenacap);
    }
    dt::TermTriple &t = st->triples[st->ntriples++];
    t.tid = tid;
    t.termoff = (uint32) st->arenalen;
    t.termlen = termlen;
    t.count = count;
    t.wordcnt = wordcnt;
    memcpy(st->arena + st->arenalen, term, termlen);
    st->arenalen += termlen;
    if (st->captriples * sizeof(dt::TermTriple) + st->arenacap > st->memlimit || st->arenacap > UINT32_MAX / 2)
        DtSpill(st);
}

static void DtBuildCallback(Relation index, ItemPointer tid, Datum *values, bool *isnull, bool tupleIsAlive,
                            void *state) {
    DtBuildState *st = (DtBuildState *) state;
    if (isnull[0]) return;
    MemoryContext old = MemoryContextSwitchTo(st->tmpcxt);
    DtDocTerms dtm;
    DtGetDocTerms(values[0], &dtm);
    MemoryContextSwitchTo(old);
    uint64 t48 = dt::MakeTid48(ItemPointerGetBlockNumber(tid), ItemPointerGetOffsetNumber(tid));
    for (int i = 0; i < dtm.nterms; i++) DtAddTriple(st, dtm.terms[i], dtm.lens[i], t48, dtm.counts[i], dtm.wordcnt);
    DtAddTriple(st, DT_DOCLIST_KEY, DT_DOCLIST_KEYLEN, t48, (uint32) Min(dtm.total, (int64) PG_INT32_MAX),
                dtm.wordcnt);
    st->ndocs += 1;
    st->numterms += dtm.total;
    MemoryContextReset(st->tmpcxt);
}

// ---- the sorted stream ------------------------------------------------------

typedef struct DtStream {
    DtBuildState *st;
    Size pos;
    bytea *cur;  // the current external sort datum
} DtStream;

static bool DtStreamNext(DtStream *s, const char **term, int *termlen, dt::Posting *p) {
    DtBuildState *st = s->st;
    if (!st->sort) {
        if (s->pos >= st->ntriples) return false;
        const dt::TermTriple &t = st->triples[s->pos++];
        *term = st->arena + t.termoff;
        *termlen = t.termlen;
        *p = dt::Posting{t.tid, t.count, t.wordcnt};
        return true;
    }
    if (s->cur) pfree(s->cur);
    s->cur = NULL;
    Datum d;
    bool isnull;
    if (!tuplesort_getdatum(st->sort, true, &d, &isnull, NULL)) return false;
    s->cur = (bytea *) DatumGetPointer(d);
    const char *tm;
    size_t tl;
    uint64_t tid;
    uint32_t c, w;
    if (!dt::ParseTripleKey((const unsigned char *) VARDATA(s->cur), VARSIZE(s->cur) - VARHDRSZ, &tm, &tl, &tid, &c, &w))
        elog(ERROR, "dtree: malformed sort key");
    *term = tm;
    *termlen = (int) tl;
    *p = dt::Posting{tid, c, w};
    return true;
}

// ---- writing one level of tree pages left to right --------------------------

typedef struct DtDownlinks {
    int n, cap;
    char **keys;
    int *lens;
    BlockNumber *blocks;
} DtDownlinks;

static void DtAddDownlinkTo(DtDownlinks *d, const char *key, int keylen, BlockNumber blk) {
    if (d->n == d->cap) {
        d->cap = d->cap ? d->cap * 2 : 64;
        d->keys = d->keys ? (char **) repalloc(d->keys, sizeof(char *) * d->cap) : (char **) palloc(sizeof(char *) * d->cap);
        d->lens = d->lens ? (int *) repalloc(d->lens, sizeof(int) * d->cap) : (int *) palloc(sizeof(int) * d->cap);
        d->blocks = d->blocks ? (BlockNumber *) repalloc(d->blocks, sizeof(BlockNumber) * d->cap)
                              : (BlockNumber *) palloc(sizeof(BlockNumber) * d->cap);
    }
    d->keys[d->n] = (char *) palloc(keylen + 1);
    memcpy(d->keys[d->n], key, keylen);
    d->lens[d->n] = keylen;
    d->blocks[d->n++] = blk;
}

typedef struct DtLevelWriter {
    Relation index;
    uint16 kind;
    Page page;
    Buffer buf;
    bool empty;
    DtDownlinks *up;  // downlinks of this level's pages
} DtLevelWriter;

static void DtLevelStart(DtLevelWriter *w, Relation index, uint16 kind, DtDownlinks *up) {
    w->index = index;
    w->kind = kind;
    w->page = DtPageImage();
    w->buf = DtNewBuffer(index);
    DtInitPage(w->page, kind);
    w->empty = true;
    w->up = up;
}

static void DtWriteImage(Relation index, Buffer buf, Page page) {
    bool isnew = true;
    DtWritePages(index, 1, &buf, &page, &isnew);
    UnlockReleaseBuffer(buf);
}

static void DtLevelAdd(DtLevelWriter *w, const DtItemHeader *item, Size size) {
    if (w->empty) {
        // The first page of a level is bounded below by the empty key.
        if (w->up->n == 0)
            DtAddDownlinkTo(w->up, "", 0, BufferGetBlockNumber(w->buf));
        else
            DtAddDownlinkTo(w->up, DtItemKey(item), item->keylen, BufferGetBlockNumber(w->buf));
    }
    if (PageAddItem(w->page, (Item) item, size, InvalidOffsetNumber, false, false) != InvalidOffsetNumber) {
        w->empty = false;
        return;
    }
    // Full: the page's last item moves on with the new one, and its key
    // becomes the page's high key (it takes no more room than the item).
    OffsetNumber last = PageGetMaxOffsetNumber(w->page);
    ItemId iid = PageGetItemId(w->page, last);
    Size lsz = ItemIdGetLength(iid);
    DtItemHeader *moved = (DtItemHeader *) palloc(lsz);
    memcpy(moved, PageGetItem(w->page, iid), lsz);
    bool movelast = last > FirstOffsetNumber;
    const DtItemHeader *boundary = movelast ? moved : item;
    if (movelast) PageIndexTupleDelete(w->page, last);
    Size hsz = sizeof(DtItemHeader) + boundary->keylen;
    DtItemHeader *hk = (DtItemHeader *) palloc0(hsz);
    hk->kind = kHighKey;
    hk->keylen = boundary->keylen;
    memcpy((char *) hk + sizeof(DtItemHeader), DtItemKey(boundary), boundary->keylen);
    if (PageAddItem(w->page, (Item) hk, hsz, FirstOffsetNumber, false, false) == InvalidOffsetNumber)
        elog(ERROR, "dtree: no room for a high key");
    Buffer next = DtNewBuffer(w->index);
    DtPageGetOpaque(w->page)->rightlink = BufferGetBlockNumber(next);
    DtWriteImage(w->index, w->buf, w->page);
    w->buf = next;
    DtInitPage(w->page, w->kind);
    w->empty = true;
    if (movelast) {
        DtLevelAdd(w, moved, lsz);
    }
    DtLevelAdd(w, item, size);
    pfree(moved);
    pfree(hk);
}

static BlockNumber DtLevelFinish(DtLevelWriter *w) {
    DtPageGetOpaque(w->page)->flags |= DT_RIGHTMOST;
    BlockNumber blk = BufferGetBlockNumber(w->buf);
    DtWriteImage(w->index, w->buf, w->page);
    pfree(w->page);
    return blk;
}

// ---- entries -----------------------------------------------------------------

typedef struct DtEntryAcc {
    char *key;
    int keylen, keycap;
    dt::Posting *postings;
    Size n, cap;
} DtEntryAcc;

static void DtFlushEntry(DtLevelWriter *leaves, DtEntryAcc *e, int64 *ndistinct, int64 *npostings) {
    if (e->n == 0) return;
    bool doclist = e->keylen == 0;
    if (!doclist) {
        (*ndistinct)++;
        *npostings += e->n;
    }
    size_t need = dt::EncodedSize(e->postings, e->n, 0);
    Size sz;
    DtItemHeader *item;
    if (need <= dt::dtree::InlineLimit(e->keylen, DT_ITEM_SPACE)) {
        sz = sizeof(DtItemHeader) + e->keylen + need;
        item = (DtItemHeader *) palloc0(sz);
    } else {
        // A chain of full posting pages.
        DtChainRef ref;
        Page img = DtPageImage();
        Buffer buf = DtNewBuffer(leaves->index);
        ref.head = BufferGetBlockNumber(buf);
        Size i = 0;
        while (i < e->n) {
            size_t used = 0;
            Size j = i;
            uint64 prev = 0;
            while (j < e->n) {
                size_t ps = dt::PostingSize(e->postings[j], prev);
                if (used + ps > DT_POSTING_CAPACITY) break;
                used += ps;
                prev = e->postings[j].tid;
                j++;
            }
            Buffer next = InvalidBuffer;
            if (j < e->n) next = DtNewBuffer(leaves->index);
            DtInitPage(img, DT_POSTING);
            DtPageGetOpaque(img)->rightlink = next == InvalidBuffer ? InvalidBlockNumber : BufferGetBlockNumber(next);
            size_t nb = dt::EncodePostings(e->postings + i, j - i, 0, DtPostingPageData(img), DT_POSTING_CAPACITY);
            DtSetPostingHeader(img, e->postings + i, (uint32) (j - i), (uint32) nb);
            ref.tail = BufferGetBlockNumber(buf);
            DtWriteImage(leaves->index, buf, img);
            buf = next;
            i = j;
        }
        pfree(img);
        sz = sizeof(DtItemHeader) + e->keylen + sizeof(ref);
        item = (DtItemHeader *) palloc0(sz);
        memcpy((char *) item + sizeof(DtItemHeader) + e->keylen, &ref, sizeof(ref));
    }
    item->kind = need <= dt::dtree::InlineLimit(e->keylen, DT_ITEM_SPACE) ? kInlineEntry : kChainEntry;
    item->keylen = (uint16) e->keylen;
    item->value = (uint32) e->n;
    if (e->keylen) memcpy((char *) item + sizeof(DtItemHeader), e->key, e->keylen);
    if (item->kind == kInlineEntry) dt::EncodePostings(e->postings, e->n, 0, DtItemPayload(item), need);
    DtLevelAdd(leaves, item, sz);
    pfree(item);
    e->n = 0;
}

static void DtWriteTree(DtBuildState *st, BlockNumber *root, int *height, int64 *ndistinct, int64 *npostings) {
    Relation index = st->index;
    *ndistinct = 0;
    *npostings = 0;
    *root = InvalidBlockNumber;
    *height = 0;
    pgstat_progress_update_param(PROGRESS_CREATEIDX_TUPLES_TOTAL, st->ntotal);
    if (st->ntotal == 0) return;
    DtDownlinks *up = (DtDownlinks *) palloc0(sizeof(DtDownlinks));
    DtLevelWriter leaves;
    DtLevelStart(&leaves, index, DT_LEAF, up);
    DtEntryAcc e;
    memset(&e, 0, sizeof(e));
    e.keycap = 64;
    e.key = (char *) palloc(e.keycap);
    e.cap = 1024;
    e.postings = (dt::Posting *) palloc(sizeof(dt::Posting) * e.cap);
    DtStream s = {st, 0, NULL};
    const char *term;
    int termlen;
    dt::Posting p;
    int64 done = 0;
    bool any = false;
    while (DtStreamNext(&s, &term, &termlen, &p)) {
        if (!any || dt::CompareTerms(term, termlen, e.key, e.keylen) != 0) {
            DtFlushEntry(&leaves, &e, ndistinct, npostings);
            if (termlen > (int) dt::dtree::kMaxKeyLen)
                ereport(ERROR, (errcode(ERRCODE_PROGRAM_LIMIT_EXCEEDED),
                                errmsg("term of %d bytes is too long for a dtree index", termlen)));
            if (termlen > e.keycap) {
                e.keycap = termlen * 2;
                e.key = (char *) repalloc(e.key, e.keycap);
            }
            memcpy(e.key, term, termlen);
            e.keylen = termlen;
            any = true;
        }
        if (e.n == e.cap) {
            e.cap *= 2;
            e.postings = (dt::Posting *) repalloc_huge(e.postings, sizeof(dt::Posting) * e.cap);
        }
        e.postings[e.n++] = p;
        if (++done % 10000 == 0) {
            CHECK_FOR_INTERRUPTS();
            pgstat_progress_update_param(PROGRESS_CREATEIDX_TUPLES_DONE, done);
        }
    }
    DtFlushEntry(&leaves, &e, ndistinct, npostings);
    pgstat_progress_update_param(PROGRESS_CREATEIDX_TUPLES_DONE, done);
    BlockNumber last = DtLevelFinish(&leaves);
    *height = 1;
    // Internal levels until one page holds every downlink.
    while (up->n > 1) {
        DtDownlinks *next = (DtDownlinks *) palloc0(sizeof(DtDownlinks));
        DtLevelWriter w;
        DtLevelStart(&w, index, DT_INTERNAL, next);
        for (int i = 0; i < up->n; i++) {
            Size sz = sizeof(DtItemHeader) + up->lens[i];
            DtItemHeader *item = (DtItemHeader *) palloc0(sz);
            item->kind = kDownlink;
            item->keylen = (uint16) up->lens[i];
            item->value = up->blocks[i];
            memcpy((char *) item + sizeof(DtItemHeader), up->keys[i], up->lens[i]);
            DtLevelAdd(&w, item, sz);
            pfree(item);
        }
        last = DtLevelFinish(&w);
        up = next;
        (*height)++;
    }
    *root = last;
}

IndexBuildResult *dtbuild(Relation heap, Relation index, IndexInfo *indexInfo) {
    if (indexInfo->ii_NumIndexAttrs != 1) DtRaiseInt("XD001", "NKEY", indexInfo->ii_NumIndexAttrs);
    Oid nsp = dt::pg::ExtensionSchemaC();
    Oid doctype = OidIsValid(nsp) ? GetSysCacheOid2(TYPENAMENSP, Anum_pg_type_oid, CStringGetDatum("doc"),
                                                    ObjectIdGetDatum(nsp))
                                  : InvalidOid;
    Oid atttype = TupleDescAttr(RelationGetDescr(index), 0)->atttypid;
    if (OidIsValid(doctype) && atttype != doctype)
        DtRaiseStr("U0001", "ERRMSG", "Can only create a dtree index on columns of type doc");
    if (indexInfo->ii_Predicate != NIL) {
        // A partial index is refused as soon as the table has a row.
        Snapshot snap = RegisterSnapshot(GetLatestSnapshot());
        TableScanDesc scan = table_beginscan(heap, snap, 0, NULL);
        TupleTableSlot *slot = table_slot_create(heap, NULL);
        bool any = table_scan_getnextslot(scan, ForwardScanDirection, slot);
        ExecDropSingleTupleTableSlot(slot);
        table_endscan(scan);
        UnregisterSnapshot(snap);
        if (any) DtRaiseInt("XD002", NULL, 0);
    }
    if (RelationGetNumberOfBlocks(index) != 0) DtRaiseStr("XD007", "TABLE_NAME", RelationGetRelationName(index));

    // The meta page first: block 0.
    Buffer mbuf = DtNewBuffer(index);
    Assert(BufferGetBlockNumber(mbuf) == DTREE_METAPAGE_BLKNO);
    Page meta = DtPageImage();
    DtInitMetaPage(meta);
    DtWriteImage(index, mbuf, meta);

    DtBuildState *st = (DtBuildState *) palloc0(sizeof(DtBuildState));
    st->index = index;
    st->memlimit = (Size) maintenance_work_mem * 1024;
    st->captriples = 1024;
    st->triples = (dt::TermTriple *) palloc(sizeof(dt::TermTriple) * st->captriples);
    st->arenacap = 8192;
    st->arena = (char *) palloc(st->arenacap);
    st->tmpcxt = AllocSetContextCreate(CurrentMemoryContext, "dtree build document", ALLOCSET_DEFAULT_SIZES);

    pgstat_progress_update_param(PROGRESS_CREATEIDX_SUBPHASE, 2);
    double reltuples = table_index_build_scan(heap, index, indexInfo, true, true, DtBuildCallback, st, NULL);

    pgstat_progress_update_param(PROGRESS_CREATEIDX_SUBPHASE, 3);
    if (st->sort)
        tuplesort_performsort(st->sort);
    else
        dt::SortTriples(st->triples, st->ntriples, st->arena);
    pgstat_progress_update_param(PROGRESS_CREATEIDX_SUBPHASE, 4);
    BlockNumber root;
    int height;
    int64 ndistinct, npostings;
    DtWriteTree(st, &root, &height, &ndistinct, &npostings);
    if (st->sort) tuplesort_end(st->sort);

    mbuf = ReadBuffer(index, DTREE_METAPAGE_BLKNO);
    LockBuffer(mbuf, BUFFER_LOCK_EXCLUSIVE);
    DtCopyPage(meta, mbuf);
    DtPageGetMeta(meta)->dtm_numterms = (int32) st->numterms;
    DtPageGetMeta(meta)->dtm_numdocs = (int32) st->ndocs;
    DtPageGetMetaExtra(meta)->root = root;
    DtPageGetMetaExtra(meta)->height = height;
    DtPageGetMetaExtra(meta)->ndistinct = (int32) ndistinct;
    DtPageGetMetaExtra(meta)->npostings = npostings;
    {
        bool isnew = false;
        DtWritePages(index, 1, &mbuf, &meta, &isnew);
    }
    UnlockReleaseBuffer(mbuf);
    MemoryContextDelete(st->tmpcxt);

    IndexBuildResult *result = (IndexBuildResult *) palloc(sizeof(IndexBuildResult));
    result->heap_tuples = reltuples;
    result->index_tuples = st->ndocs;
    return result;
}

void dtbuildempty(Relation index) {
    Page meta = (Page) palloc(BLCKSZ);
    DtInitMetaPage(meta);
    PageSetChecksumInplace(meta, DTREE_METAPAGE_BLKNO);
    smgrwrite(RelationGetSmgr(index), INIT_FORKNUM, DTREE_METAPAGE_BLKNO, (char *) meta, true);
    log_newpage(&(RelationGetSmgr(index))->smgr_rnode.node, INIT_FORKNUM, DTREE_METAPAGE_BLKNO, meta, true);
    smgrimmedsync(RelationGetSmgr(index), INIT_FORKNUM);
}
