// WordNet lookups by index scans, the open/close state, and the stem cache.
#include "wordnet.h"

#include <cstdio>
#include <cstring>

#include "boundary.h"
#include "module.h"
#include "snapkey.h"
#include "stopwords.h"
#include "tokenizer.h"

extern "C" {
#include "access/genam.h"
#include "access/heapam.h"
#include "access/htup_details.h"
#include "access/relscan.h"
#include "access/skey.h"
#include "access/stratnum.h"
#include "access/table.h"
#include "access/tableam.h"
#include "access/xact.h"
#include "catalog/namespace.h"
#include "catalog/pg_extension.h"
#include "catalog/indexing.h"
#include "commands/defrem.h"
#include "executor/tuptable.h"
#include "utils/fmgroids.h"
#include "utils/guc.h"
#include "utils/lsyscache.h"
#include "utils/memutils.h"
#include "tcop/utility.h"
#include "utils/rel.h"
#include "utils/resowner.h"
#include "utils/snapmgr.h"
}

namespace dt::pg {

namespace {

// The state while open or parked.  It lives in a memory context of its own
// under the opening (sub)transaction's, and every scan call runs in that
// context: index AMs allocate lazily during a scan (btree's list of killed
// items, for one) and those allocations must last as long as the scan.
struct DocWordnet {
    MemoryContext dwn_cxt;
    Relation dwn_stemtable;      // the table of base forms
    Relation dwn_stemindex;      // "wordnet_stems_index"
    IndexScanDesc dwn_stemsd;    // scan on it, re-keyed for every lookup
    TupleTableSlot *dwn_stemslot;
    Relation dwn_exclindex;      // "wordnet_excl_index"
    IndexScanDesc dwn_exclsd;
    Relation dwn_excltable;      // "wordnet_excl"
    TupleDesc dwn_idesc;         // its row descriptor
    TupleTableSlot *dwn_exclslot;
    Snapshot dwn_snapshot;       // registered for the time the scans are open
    SubTransactionId dwn_subid;  // the subtransaction that opened
    ResourceOwner dwn_owner;     // that subtransaction's resource owner
    char dwn_key[VARHDRSZ + kMaxWordLen];  // the lookup key, a text value
};

// DocWordnetPtr is set while the tables are open (WordnetOpenCnt 1) and
// while they are kept for the next open (WordnetOpenCnt 0: "parked").
DocWordnet *DocWordnetPtr = nullptr;
int WordnetOpenCnt = 0;
bool callbacks_registered = false;
// The snapshot the state was opened under: a later open under a snapshot
// that sees the same rows takes the state over as it is.
SnapKey open_snap;
// Commands whose snapshots, alike to open_snap but for the command, were
// found to see the WordNet tables as the state does (the same version
// row): a function run by a writing statement plans each of its queries
// under the statement's snapshot and runs it under one of a later command,
// and both may take the state over.  What a snapshot of a given command
// sees of the transaction's own changes no longer changes.
constexpr int kSameCommands = 4;
CommandId same_cids[kSameCommands];
int n_same_cids = 0;
ProcessUtility_hook_type prev_utility_hook = nullptr;

bool stem_cache_setting = true;
StemCache stem_cache;
// The state of the tables the cache was filled from ("" = unknown: no
// caching while open).
char cache_key[160];

// ---- C-level server code: no C++ objects with destructors below ----------


Oid RelidIn(Oid nsp, const char *name) {
    if (!OidIsValid(nsp)) return InvalidOid;
    return get_relname_relid(name, nsp);
}

void CloseWordnetC() {
    DocWordnet *w = DocWordnetPtr;
    DocWordnetPtr = nullptr;
    WordnetOpenCnt = 0;
    if (!w) return;
    // Everything was taken under the opening subtransaction's owner.
    ResourceOwner saved = CurrentResourceOwner;
    CurrentResourceOwner = w->dwn_owner;
    MemoryContext old = MemoryContextSwitchTo(w->dwn_cxt);
    index_endscan(w->dwn_stemsd);
    index_endscan(w->dwn_exclsd);
    ExecDropSingleTupleTableSlot(w->dwn_stemslot);
    ExecDropSingleTupleTableSlot(w->dwn_exclslot);
    // Locks are kept to the end of the transaction, as for any relation read.
    index_close(w->dwn_stemindex, NoLock);
    index_close(w->dwn_exclindex, NoLock);
    table_close(w->dwn_stemtable, NoLock);
    table_close(w->dwn_excltable, NoLock);
    UnregisterSnapshotFromOwner(w->dwn_snapshot, w->dwn_owner);
    CurrentResourceOwner = saved;
    MemoryContextSwitchTo(old);
    MemoryContextDelete(w->dwn_cxt);
}

// Parks the open state: the scans give up their buffer pins; relations,
// scans and snapshot stay for the next open.
void ParkWordnetC() {
    DocWordnet *w = DocWordnetPtr;
    ResourceOwner saved = CurrentResourceOwner;
    CurrentResourceOwner = w->dwn_owner;
    MemoryContext old = MemoryContextSwitchTo(w->dwn_cxt);
    index_rescan(w->dwn_stemsd, nullptr, 1, nullptr, 0);
    index_rescan(w->dwn_exclsd, nullptr, 1, nullptr, 0);
    MemoryContextSwitchTo(old);
    CurrentResourceOwner = saved;
    WordnetOpenCnt = 0;
}

void WordnetXactCallback(XactEvent event, void *) {
    switch (event) {
    case XACT_EVENT_PRE_COMMIT:
    case XACT_EVENT_PARALLEL_PRE_COMMIT:
    case XACT_EVENT_PRE_PREPARE:
        // Kept or left open: close properly before the transaction's
        // resources are released.
        if (DocWordnetPtr) CloseWordnetC();
        break;
    case XACT_EVENT_ABORT:
    case XACT_EVENT_PARALLEL_ABORT:
    case XACT_EVENT_COMMIT:
    case XACT_EVENT_PARALLEL_COMMIT:
    case XACT_EVENT_PREPARE:
        // The server releases relations, scans and snapshot itself.
        DocWordnetPtr = nullptr;
        WordnetOpenCnt = 0;
        break;
    }
}

// The state belongs to the subtransaction that opened it: closed when that
// one commits (its resource owner goes away), forgotten when it aborts (the
// server releases everything).  An open in a subtransaction below never
// takes over a state of the one above (see _dt_OpenWordnet).
void WordnetSubXactCallback(SubXactEvent event, SubTransactionId mySubid,
                            SubTransactionId parentSubid, void *) {
    if (!DocWordnetPtr || DocWordnetPtr->dwn_subid != mySubid) return;
    if (event == SUBXACT_EVENT_ABORT_SUB) {
        DocWordnetPtr = nullptr;
        WordnetOpenCnt = 0;
    } else if (event == SUBXACT_EVENT_PRE_COMMIT_SUB || event == SUBXACT_EVENT_COMMIT_SUB) {
        CloseWordnetC();
    }
}

// A utility command may need the WordNet relations without other users
// (TRUNCATE, ALTER, DROP, REINDEX ...): a parked state is closed first.
void WordnetUtilityHook(PlannedStmt *pstmt, const char *queryString, bool readOnlyTree,
                        ProcessUtilityContext context, ParamListInfo params,
                        QueryEnvironment *queryEnv, DestReceiver *dest, QueryCompletion *qc) {
    if (DocWordnetPtr && !WordnetOpenCnt) CloseWordnetC();
    if (prev_utility_hook)
        prev_utility_hook(pstmt, queryString, readOnlyTree, context, params, queryEnv, dest, qc);
    else
        standard_ProcessUtility(pstmt, queryString, readOnlyTree, context, params, queryEnv, dest, qc);
}

// Reads the version row of the WordNet tables (bumped by a trigger on every
// change of them) under the scan snapshot, and names the state the cache
// may hold: relation identifiers, then the row version's inserting
// transaction, position and counter.  No row or no table: "".
void ReadCacheKey(Oid nsp, Oid stemidx, Oid exclidx, Snapshot snap, char *out, size_t size) {
    out[0] = '\0';
    Oid vrel = RelidIn(nsp, "wordnet_version");
    if (!OidIsValid(vrel)) return;
    Relation rel = table_open(vrel, AccessShareLock);
    TableScanDesc scan = table_beginscan(rel, snap, 0, nullptr);
    HeapTuple tup = heap_getnext(scan, ForwardScanDirection);
    if (tup) {
        bool isnull;
        Datum n = heap_getattr(tup, 1, RelationGetDescr(rel), &isnull);
        if (!isnull)
            snprintf(out, size, "%u/%u/%u/%u/%u/%u/%lld", vrel, stemidx, exclidx,
                     HeapTupleHeaderGetRawXmin(tup->t_data),
                     ItemPointerGetBlockNumber(&tup->t_self),
                     (unsigned)ItemPointerGetOffsetNumber(&tup->t_self), (long long)DatumGetInt64(n));
    }
    table_endscan(scan);
    table_close(rel, NoLock);
}

// Opens the relations and the scans.  Returns 0, or 1 when the stems index
// is missing, 2 when the exception index is missing.
int OpenWordnetC(char *key, size_t keysize) {
    Oid nsp = dt::pg::ExtensionSchemaC();
    Oid stemidx = RelidIn(nsp, "wordnet_stems_index");
    if (!OidIsValid(stemidx)) return 1;
    Oid exclidx = RelidIn(nsp, "wordnet_excl_index");
    if (!OidIsValid(exclidx)) return 2;

    MemoryContext cxt = AllocSetContextCreate(CurTransactionContext, "document WordNet",
                                              ALLOCSET_SMALL_SIZES);
    MemoryContext old = MemoryContextSwitchTo(cxt);
    ResourceOwner savedOwner = CurrentResourceOwner;
    CurrentResourceOwner = CurTransactionResourceOwner;
    DocWordnet *w = (DocWordnet *)palloc0(sizeof(DocWordnet));
    w->dwn_cxt = cxt;
    w->dwn_subid = GetCurrentSubTransactionId();
    w->dwn_owner = CurTransactionResourceOwner;
    w->dwn_stemindex = index_open(stemidx, AccessShareLock);
    w->dwn_stemtable = table_open(w->dwn_stemindex->rd_index->indrelid, AccessShareLock);
    w->dwn_exclindex = index_open(exclidx, AccessShareLock);
    w->dwn_excltable = table_open(w->dwn_exclindex->rd_index->indrelid, AccessShareLock);
    w->dwn_idesc = RelationGetDescr(w->dwn_excltable);
    w->dwn_snapshot = RegisterSnapshotOnOwner(
        ActiveSnapshotSet() ? GetActiveSnapshot() : GetTransactionSnapshot(), w->dwn_owner);

    // One key: attribute 1 equal (text equality, the index's "C" collation)
    // to a dummy text; every lookup re-keys the scan.
    SET_VARSIZE(w->dwn_key, VARHDRSZ + 1);
    VARDATA(w->dwn_key)[0] = 'a';
    ScanKeyData sk;
    ScanKeyEntryInitialize(&sk, 0, 1, BTEqualStrategyNumber, InvalidOid,
                           w->dwn_stemindex->rd_indcollation[0], F_TEXTEQ,
                           PointerGetDatum(w->dwn_key));
    w->dwn_stemsd = index_beginscan(w->dwn_stemtable, w->dwn_stemindex, w->dwn_snapshot, 1, 0);
    index_rescan(w->dwn_stemsd, &sk, 1, nullptr, 0);
    sk.sk_collation = w->dwn_exclindex->rd_indcollation[0];
    w->dwn_exclsd = index_beginscan(w->dwn_excltable, w->dwn_exclindex, w->dwn_snapshot, 1, 0);
    index_rescan(w->dwn_exclsd, &sk, 1, nullptr, 0);
    w->dwn_stemslot = table_slot_create(w->dwn_stemtable, nullptr);
    w->dwn_exclslot = table_slot_create(w->dwn_excltable, nullptr);

    ReadCacheKey(nsp, stemidx, exclidx, w->dwn_snapshot, key, keysize);
    CurrentResourceOwner = savedOwner;
    MemoryContextSwitchTo(old);

    DocWordnetPtr = w;
    WordnetOpenCnt = 1;
    return 0;
}

// Re-keys a scan with word and fetches the first visible hit (in the
// state's memory context; the caller's is current again on return).
bool LookupC(IndexScanDesc scan, Relation index, TupleTableSlot *slot, char *key,
             const char *word, size_t len) {
    SET_VARSIZE(key, VARHDRSZ + len);
    memcpy(VARDATA(key), word, len);
    ScanKeyData sk;
    ScanKeyEntryInitialize(&sk, 0, 1, BTEqualStrategyNumber, InvalidOid,
                           index->rd_indcollation[0], F_TEXTEQ, PointerGetDatum(key));
    MemoryContext old = MemoryContextSwitchTo(DocWordnetPtr->dwn_cxt);
    index_rescan(scan, &sk, 1, nullptr, 0);
    bool found = index_getnext_slot(scan, ForwardScanDirection, slot);
    MemoryContextSwitchTo(old);
    return found;
}

// ---- C++ -------------------------------------------------------------------

// Runs a server call with the resource owner of the WordNet state, so that
// buffer pins and tuple descriptor references taken by the scans belong to
// the state; the caller's owner is back afterwards, also after an error.
struct OwnerRestore {
    ResourceOwner saved;
    ~OwnerRestore() { CurrentResourceOwner = saved; }
};

template <class F>
auto OwnedCall(F &&f) -> decltype(f()) {
    OwnerRestore restore{CurrentResourceOwner};
    ResourceOwner owner = DocWordnetPtr->dwn_owner;
    return ServerCall([&] {
        CurrentResourceOwner = owner;
        return f();
    });
}

void RegisterCallbacks() {
    if (callbacks_registered) return;
    ServerCall([] {
        RegisterXactCallback(WordnetXactCallback, nullptr);
        RegisterSubXactCallback(WordnetSubXactCallback, nullptr);
    });
    callbacks_registered = true;
}

size_t CheckedLen(const char *word) {
    size_t len = std::strlen(word);
    if (len > (size_t)kMaxWordLen) ErrorRaise("XD00L");
    return len;
}

bool IsBaseForm(const char *word) {
    DocWordnet *w = DocWordnetPtr;
    size_t len = CheckedLen(word);
    return OwnedCall([&] {
        bool found = LookupC(w->dwn_stemsd, w->dwn_stemindex, w->dwn_stemslot, w->dwn_key, word, len);
        ExecClearTuple(w->dwn_stemslot);
        return found;
    });
}

// The base form of an irregular form (the first hit only).
bool ExceptionLookup(const char *word, std::string &base) {
    DocWordnet *w = DocWordnetPtr;
    size_t len = CheckedLen(word);
    char buf[kMaxWordLen + 1];
    // 0 no hit, 1 hit, 2 invalid row identifier, 3 no base form in the row
    int status = OwnedCall([&] {
        int st = 0;
        if (LookupC(w->dwn_exclsd, w->dwn_exclindex, w->dwn_exclslot, w->dwn_key, word, len)) {
            if (!ItemPointerIsValid(&w->dwn_exclsd->xs_heaptid)) {
                st = 2;
            } else {
                bool isnull;
                Datum d = slot_getattr(w->dwn_exclslot, 2, &isnull);
                if (isnull) {
                    st = 3;
                } else {
                    text *t = DatumGetTextPP(d);
                    size_t n = VARSIZE_ANY_EXHDR(t);
                    if (n > (size_t)kMaxWordLen) n = kMaxWordLen;
                    memcpy(buf, VARDATA_ANY(t), n);
                    buf[n] = '\0';
                    st = 1;
                }
            }
        }
        ExecClearTuple(w->dwn_exclslot);
        return st;
    });
    if (status == 2) ErrorRaise("XD00F");
    if (status == 3) ErrorRaise("XD00G");
    if (status == 0) return false;
    base = buf;
    return true;
}

const MorphLexicon &ServerLexicon() {
    static const MorphLexicon lex = [] {
        MorphLexicon m;
        m.isBaseForm = IsBaseForm;
        m.exception = ExceptionLookup;
        m.isStopWord = [](const char *w) { return _dt_IsStopWord(w); };
        return m;
    }();
    return lex;
}

std::string StopWordPathFromHome() { return StopWordPath(); }

// Whether the active snapshot sees the WordNet tables as the parked state's
// does: the same snapshot, or one of another command of the same
// transaction under which the version row reads the same (each statement
// that changes the tables bumps that row).
bool SeesStateTables() {
    CommandId cid = InvalidCommandId;
    SnapMatch m = MatchSnapshot(open_snap, &cid);
    if (m == SnapMatch::kSame) return true;
    if (m == SnapMatch::kDiffers || !cache_key[0]) return false;
    for (int i = 0; i < n_same_cids; i++)
        if (same_cids[i] == cid) return true;
    char key[sizeof cache_key];
    DocWordnet *w = DocWordnetPtr;
    ServerCall([&] {
        ReadCacheKey(dt::pg::ExtensionSchemaC(), RelationGetRelid(w->dwn_stemindex), RelationGetRelid(w->dwn_exclindex),
                     GetActiveSnapshot(), key, sizeof key);
    });
    if (strcmp(key, cache_key) != 0) return false;
    if (n_same_cids < kSameCommands) same_cids[n_same_cids++] = cid;
    return true;
}

}  // namespace

int _dt_OpenWordnet() {
    if (WordnetOpenCnt) return 1;
    if (DocWordnetPtr) {
        // Parked: taken over under a snapshot that sees the same rows, in
        // the subtransaction that opened it; the version key and the stem
        // cache stay as they are.
        if (DocWordnetPtr->dwn_subid == GetCurrentSubTransactionId() && SeesStateTables()) {
            WordnetOpenCnt = 1;
            return 1;
        }
        _dt_ReleaseWordnet();
    }
    RegisterCallbacks();
    char key[sizeof cache_key];
    OwnerRestore restore{CurrentResourceOwner};
    int rc = ServerCall([&] { return OpenWordnetC(key, sizeof key); });
    if (rc == 1) ErrorRaiseVA("XD00C", "TABNAME%s", "wordnet_stems_index");
    if (rc == 2) ErrorRaiseVA("XD00D", "TABNAME%s", "wordnet_excl_index");
    open_snap = CurrentSnapKey();
    n_same_cids = 0;
    snprintf(cache_key, sizeof cache_key, "%s", key);
    StemCacheValidate(stem_cache, cache_key);
    return 1;
}

int _dt_CloseWordnet() {
    if (!WordnetOpenCnt) return 1;
    if (!open_snap.valid) return _dt_ReleaseWordnet();
    OwnerRestore restore{CurrentResourceOwner};
    ServerCall([] { ParkWordnetC(); });
    return 1;
}

int _dt_ReleaseWordnet() {
    if (!DocWordnetPtr) {
        WordnetOpenCnt = 0;
        return 1;
    }
    OwnerRestore restore{CurrentResourceOwner};
    ServerCall([] { CloseWordnetC(); });
    return 1;
}

int _dt_ExcWordnet() {
    DocWordnetPtr = nullptr;
    WordnetOpenCnt = 0;
    return 1;
}

bool WordnetIsOpen() { return WordnetOpenCnt != 0; }

const char *WordnetVersionKey() { return cache_key; }

namespace {

// The stem result of a lower-case word, from the cache when it is usable;
// a result computed without it goes to scratch.
const StemResult &StemLookup(const char *word, StemResult &scratch) {
    if (!WordnetOpenCnt) _dt_OpenWordnet();
    CheckInterrupts();
    size_t len = CheckedLen(word);
    if (stem_cache_setting && cache_key[0]) {
        if (const StemResult *r = StemCacheFind(stem_cache, word, len)) return *r;
        scratch = StemWordFull(ServerLexicon(), word);
        StemCacheStore(stem_cache, word, len, scratch);
        return scratch;
    }
    scratch = StemWordFull(ServerLexicon(), word);
    return scratch;
}

}  // namespace

StemResult StemOneWord(const char *word) {
    StemResult scratch;
    return StemLookup(word, scratch);
}

std::string MorphOneWord(const char *word, char *isStop) {
    if (!WordnetOpenCnt) _dt_OpenWordnet();
    CheckedLen(word);
    return _dt_MorphWord(ServerLexicon(), word, isStop);
}

const StemHooks &ServerStemHooks() {
    static const StemHooks hooks = [] {
        StemHooks h;
        h.isStopWord = [](const char *w) { return _dt_IsStopWord(w); };
        h.stemWord = [](const char *w, std::string &stem) {
            StemResult scratch;
            const StemResult &r = StemLookup(w, scratch);
            if (r.isStop) return false;
            stem.assign(r.stem);
            return true;
        };
        return h;
    }();
    return hooks;
}

std::string StopWordPath() { return HomeDir() + "/extend/document/install/stopwords"; }

StemCacheCounters StemCacheStats() {
    return {(long long)StemCacheSize(stem_cache), (long long)stem_cache.hits,
            (long long)stem_cache.misses, (long long)stem_cache.resets};
}

void DefineTextAnalysisSettings() {
    prev_utility_hook = ProcessUtility_hook;
    ProcessUtility_hook = WordnetUtilityHook;
    SetStopWordPathProvider(&StopWordPathFromHome);
    DefineCustomBoolVariable(
        "document.stem_cache", "Keeps the stems of words in a per-process cache.",
        "The cache is emptied whenever the WordNet tables change.", &stem_cache_setting, true,
        PGC_USERSET, 0, nullptr, nullptr, nullptr);
}

}  // namespace dt::pg
