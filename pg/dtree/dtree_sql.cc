// SQL functions over dtree indexes: ReadMetaTerms, AddIndexTerms,
// dt_IndexStats, dt_IndexEntries and dtstat.
#include "dtree_internal.h"

extern "C" {
#include "access/heapam.h"
#include "access/relation.h"
#include "catalog/pg_am.h"
#include "storage/bufmgr.h"
#include "access/table.h"
#include "access/tableam.h"
#include "catalog/index.h"
#include "executor/executor.h"
#include "funcapi.h"
#include "miscadmin.h"
#include "utils/acl.h"
#include "utils/builtins.h"
#include "utils/lsyscache.h"
#include "utils/rls.h"
#include "utils/snapmgr.h"
#include "utils/tuplestore.h"
}

#include <string>
#include <vector>

#include "boundary.h"
#include "dtree_cost.h"
#include "docscan.h"
#include "dtreelayout.h"
#include "stripstem.h"
#include "wordnet.h"

// The functions that read an index or its table directly see every row:
// they need the right on the table, and are refused when row-level security
// applies to the caller (policies, FORCE for the owner), since they cannot
// filter the rows by policy as the executor does.
void DtCheckTablePrivilege(Relation index, AclMode mode) {
    Oid heapid = IndexGetRelation(RelationGetRelid(index), false);
    if (pg_class_aclcheck(heapid, GetUserId(), mode) != ACLCHECK_OK)
        aclcheck_error(ACLCHECK_NO_PRIV, get_relkind_objtype(get_rel_relkind(heapid)), get_rel_name(heapid));
    if (check_enable_rls(heapid, InvalidOid, false) == RLS_ENABLED)
        ereport(ERROR, (errcode(ERRCODE_INSUFFICIENT_PRIVILEGE),
                        errmsg("table \"%s\" has row-level security: this function reads its index \"%s\" directly and cannot apply the policies",
                               get_rel_name(heapid), RelationGetRelationName(index)),
                        errhint("Query the table with the operators of the index; the query applies the policies.")));
}

static text *DtReadMetaTermsC(text *name) {
    Relation index = DtOpenIndexByName(name, AccessShareLock);
    DtCheckTablePrivilege(index, ACL_SELECT);
    DTMetaPageData m;
    {
        Buffer buf = ReadBuffer(index, DTREE_METAPAGE_BLKNO);
        LockBuffer(buf, BUFFER_LOCK_SHARE);
        m = *DtPageGetMeta(BufferGetPage(buf));
        UnlockReleaseBuffer(buf);
    }
    if (m.dtm_magic != DTREE_MAGIC) DtRaiseUser("index not a dtree index");
    char out[64];
    snprintf(out, sizeof(out), "terms=%d, docs=%d", m.dtm_numterms, m.dtm_numdocs);
    relation_close(index, AccessShareLock);
    return cstring_to_text(out);
}

// Adds each word as a posting (count 1) of the row tid.
static void DtAddIndexTermsC(text *name, ItemPointer argtid, char **words, int nwords) {
    ItemPointerData tidcopy = *argtid;  // the argument itself is not changed
    ItemPointer tid = &tidcopy;
    Relation index = DtOpenIndexByName(name, RowExclusiveLock);
    // It reads the row it adds to, as UPDATE ... WHERE ctid = ... does.
    DtCheckTablePrivilege(index, ACL_SELECT);
    DtCheckTablePrivilege(index, ACL_UPDATE);
    Relation heap = table_open(IndexGetRelation(RelationGetRelid(index), false), AccessShareLock);
    bool exists = false;
    if (ItemPointerIsValid(tid) && ItemPointerGetBlockNumber(tid) < RelationGetNumberOfBlocks(heap)) {
        TupleTableSlot *slot = table_slot_create(heap, NULL);
        exists = table_tuple_fetch_row_version(heap, tid, GetActiveSnapshot(), slot);
        ExecDropSingleTupleTableSlot(slot);
    }
    if (!exists)
        ereport(ERROR, (errcode(ERRCODE_INVALID_PARAMETER_VALUE),
                        errmsg("row (%u,%u) is not a row of table \"%s\"", ItemPointerGetBlockNumberNoCheck(tid),
                               ItemPointerGetOffsetNumberNoCheck(tid), RelationGetRelationName(heap))));
    if (exists && heap->rd_rel->relam == HEAP_TABLE_AM_OID) {
        // The index names a row by the root of its HOT chain (what index
        // scans follow), which is not its ctid after an update in place.
        OffsetNumber roots[MaxHeapTuplesPerPage];
        Buffer b = ReadBuffer(heap, ItemPointerGetBlockNumber(tid));
        LockBuffer(b, BUFFER_LOCK_SHARE);
        heap_get_root_tuples(BufferGetPage(b), roots);
        OffsetNumber root = roots[ItemPointerGetOffsetNumber(tid) - 1];
        UnlockReleaseBuffer(b);
        if (root != InvalidOffsetNumber) ItemPointerSetOffsetNumber(tid, root);
    }
    if (nwords > 0) {
        // The row's word count, as its document list entry holds it.
        uint32 wordcnt = 0;
        DtPostingIter *it = DtBeginDocList(index);
        DtPosting p;
        if (DtSkipTo(it, tid, &p) && ItemPointerEquals(&p.tid, tid)) wordcnt = p.wordcnt;
        DtEndPostings(it);
        uint64 t48 = dt::MakeTid48(ItemPointerGetBlockNumber(tid), ItemPointerGetOffsetNumber(tid));
        for (int i = 0; i < nwords; i++) {
            CHECK_FOR_INTERRUPTS();
            dt::Posting post = {t48, 1, wordcnt};
            DtInsertPosting(index, words[i], (int) strlen(words[i]), &post, 1, 0);
        }
    }
    table_close(heap, AccessShareLock);
    relation_close(index, RowExclusiveLock);
}

typedef struct DtStatsC {
    int64 distinct, postings, documents;
    int64 meta, internal, leaf, posting, deleted, unused;
    int64 bytes;
} DtStatsC;

static void DtIndexStatsC(Oid relid, DtStatsC *s) {
    Relation index = DtOpenIndexByOid(relid, AccessShareLock);
    DtCheckTablePrivilege(index, ACL_SELECT);
    memset(s, 0, sizeof(*s));
    DtMetaInfo mi;
    DtReadMeta(index, &mi);
    s->distinct = mi.ndistinct;
    s->postings = mi.npostings;
    s->documents = mi.numdocs;
    BlockNumber nblocks = RelationGetNumberOfBlocks(index);
    s->bytes = (int64) nblocks * BLCKSZ;
    for (BlockNumber blk = 0; blk < nblocks; blk++) {
        CHECK_FOR_INTERRUPTS();
        Buffer buf = ReadBuffer(index, blk);
        LockBuffer(buf, BUFFER_LOCK_SHARE);
        Page page = BufferGetPage(buf);
        uint16 flags = PageIsNew(page) ? 0 : DtPageGetOpaque(page)->flags;
        UnlockReleaseBuffer(buf);
        if (flags & DT_META) s->meta++;
        else if (flags & DT_DELETED) s->deleted++;
        else if (flags & DT_INTERNAL) s->internal++;
        else if (flags & DT_LEAF) s->leaf++;
        else if (flags & DT_POSTING) s->posting++;
        else s->unused++;
    }
    relation_close(index, AccessShareLock);
}

// Every posting: the document list (term '') first, then the terms.
static void DtIndexEntriesC(Oid relid, FunctionCallInfo fcinfo) {
    ReturnSetInfo *rsinfo = (ReturnSetInfo *) fcinfo->resultinfo;
    Relation index = DtOpenIndexByOid(relid, AccessShareLock);
    DtCheckTablePrivilege(index, ACL_SELECT);
    BlockNumber blk = DtLeftmostLeaf(index);
    Page img = DtPageImage();
    while (blk != InvalidBlockNumber) {
        Buffer b = ReadBuffer(index, blk);
        LockBuffer(b, BUFFER_LOCK_SHARE);
        DtCheckPage(index, BufferGetPage(b), blk, DT_LEAF | DT_DELETED);
        DtCopyPage(img, b);
        UnlockReleaseBuffer(b);
        // An empty leaf VACUUM took out of the tree keeps its right link.
        for (OffsetNumber off = DtFirstDataOffset(img); !(DtPageGetOpaque(img)->flags & DT_DELETED) && off <= PageGetMaxOffsetNumber(img); off++) {
            DtItemHeader *ih = DtPageItem(img, off);
            DtPostingIter *it = ih->keylen == 0 ? DtBeginDocList(index) : DtBeginTermPostings(index, DtItemKey(ih), ih->keylen);
            text *term = cstring_to_text_with_len(DtItemKey(ih), ih->keylen);
            DtPosting p;
            while (DtNextPosting(it, &p)) {
                CHECK_FOR_INTERRUPTS();
                Datum values[4];
                bool nulls[4] = {false, false, false, false};
                ItemPointer tp = (ItemPointer) palloc(sizeof(ItemPointerData));
                *tp = p.tid;
                values[0] = PointerGetDatum(term);
                values[1] = PointerGetDatum(tp);
                values[2] = Int32GetDatum(p.count);
                values[3] = Int64GetDatum((int64) p.wordcnt);
                tuplestore_putvalues(rsinfo->setResult, rsinfo->setDesc, values, nulls);
                pfree(tp);
            }
            DtEndPostings(it);
            pfree(term);
        }
        blk = DtPageGetOpaque(img)->rightlink;
    }
    pfree(img);
    relation_close(index, AccessShareLock);
}

extern "C" {
PG_FUNCTION_INFO_V1(pgdoc_ReadMetaTerms);
PG_FUNCTION_INFO_V1(pgdoc_AddIndexTerms);
PG_FUNCTION_INFO_V1(pgdoc_dt_IndexStats);
PG_FUNCTION_INFO_V1(pgdoc_dt_IndexEntries);
PG_FUNCTION_INFO_V1(pgdoc_dtstat);
}

// ReadMetaTerms(indexname): "terms=N, docs=N".
Datum pgdoc_ReadMetaTerms(PG_FUNCTION_ARGS) {
    return dt::pg::Guard([&]() -> Datum {
        text *name = (text *) dt::pg::VarlenaArg(fcinfo, 0);
        return PointerGetDatum(dt::pg::ServerCall([&] { return DtReadMetaTermsC(name); }));
    });
}

// AddIndexTerms(indexname, tid, terms): each stem of the text becomes one
// more posting of the row.
Datum pgdoc_AddIndexTerms(PG_FUNCTION_ARGS) {
    return dt::pg::Guard([&]() -> Datum {
        text *name = (text *) dt::pg::VarlenaArg(fcinfo, 0);
        ItemPointer tid = (ItemPointer) DatumGetPointer(dt::pg::DatumArg(fcinfo, 1));
        std::string input = dt::pg::TextArg(fcinfo, 2);
        std::vector<std::string> words;
        {
            int cnt = 0;
            dt::pg::WordnetScope wn;
            words = dt::_dt_StripAndStemText(input, &cnt, dt::pg::ServerStemHooks());
        }
        int n = (int) words.size();
        char **arr = dt::pg::ServerCall([&] { return (char **) palloc(sizeof(char *) * (n + 1)); });
        for (int i = 0; i < n; i++) {
            std::string w = words[i].substr(0, words[i].find(':'));
            arr[i] = dt::pg::ServerCall([&] { return pnstrdup(w.data(), w.size()); });
        }
        dt::pg::ServerCall([&] { DtAddIndexTermsC(name, tid, arr, n); });
        PG_RETURN_VOID();
    });
}

// dt_IndexStats(index): distinct terms, postings, documents, pages by kind
// and bytes.
Datum pgdoc_dt_IndexStats(PG_FUNCTION_ARGS) {
    return dt::pg::Guard([&]() -> Datum {
        Oid relid = dt::pg::OidArg(fcinfo, 0);
        DtStatsC s;
        dt::pg::ServerCall([&] { DtIndexStatsC(relid, &s); });
        return dt::pg::ServerCall([&] {
            TupleDesc td;
            if (get_call_result_type(fcinfo, NULL, &td) != TYPEFUNC_COMPOSITE) elog(ERROR, "return type must be a row type");
            td = BlessTupleDesc(td);
            Datum v[10] = {Int64GetDatum(s.distinct), Int64GetDatum(s.postings), Int64GetDatum(s.documents),
                           Int64GetDatum(s.meta), Int64GetDatum(s.internal), Int64GetDatum(s.leaf),
                           Int64GetDatum(s.posting), Int64GetDatum(s.deleted + s.unused), Int64GetDatum(s.bytes), 0};
            bool nulls[10] = {false};
            return HeapTupleGetDatum(heap_form_tuple(td, v, nulls));
        });
    });
}

// dt_IndexEntries(index): every posting as (term, row, count, wordcnt).
Datum pgdoc_dt_IndexEntries(PG_FUNCTION_ARGS) {
    return dt::pg::Guard([&]() -> Datum {
        Oid relid = dt::pg::OidArg(fcinfo, 0);
        dt::pg::ServerCall([&] {
            InitMaterializedSRF(fcinfo, 0);
            DtIndexEntriesC(relid, fcinfo);
        });
        return (Datum) 0;
    });
}

// dtstat(index): the model's estimate of a scan of the index, as
// (selec, npage, ntup).
Datum pgdoc_dtstat(PG_FUNCTION_ARGS) {
    return dt::pg::Guard([&]() -> Datum {
        Oid relid = dt::pg::OidArg(fcinfo, 0);
        DtStatResult r;
        dt::pg::ServerCall([&] { DtStat(relid, &r); });
        return dt::pg::ServerCall([&] {
            TupleDesc td;
            if (get_call_result_type(fcinfo, NULL, &td) != TYPEFUNC_COMPOSITE) elog(ERROR, "return type must be a row type");
            td = BlessTupleDesc(td);
            Datum v[3] = {Float4GetDatum(r.selec), Int32GetDatum(r.npage), Int32GetDatum(r.ntup)};
            bool nulls[3] = {false, false, false};
            return HeapTupleGetDatum(heap_form_tuple(td, v, nulls));
        });
    });
}
