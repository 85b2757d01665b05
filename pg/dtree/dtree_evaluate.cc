#include "dtree_evaluate.h"

#include <algorithm>
#include <cstring>
#include <memory>
#include <string>
#include <unordered_map>

#include "ranking.h"
#include "scantree.h"
#include "searchsel.h"

extern "C" {
#include "access/relscan.h"
#include "access/table.h"
#include "storage/bufmgr.h"
#include "access/tableam.h"
#include "access/visibilitymap.h"
#include "catalog/index.h"
#include "executor/tuptable.h"
#include "utils/memutils.h"
#include "utils/snapmgr.h"
}

namespace {

using dt::pg::ServerCall;

// Whether rows are visible to a snapshot (C level: may raise).
struct VisCheck {
    Relation heap;
    Snapshot snapshot;
    bool mvcc;
    Buffer vmbuf;
    IndexFetchTableData *fetch;
    TupleTableSlot *slot;
};

void VisBeginC(VisCheck *v, Relation index, Snapshot snapshot) {
    v->heap = table_open(IndexGetRelation(RelationGetRelid(index), false), AccessShareLock);
    v->snapshot = snapshot;
    v->mvcc = IsMVCCSnapshot(snapshot);
    v->vmbuf = InvalidBuffer;
    v->fetch = table_index_fetch_begin(v->heap);
    v->slot = table_slot_create(v->heap, NULL);
}

void VisEndC(VisCheck *v) {
    if (BufferIsValid(v->vmbuf)) ReleaseBuffer(v->vmbuf);
    table_index_fetch_end(v->fetch);
    ExecDropSingleTupleTableSlot(v->slot);
    table_close(v->heap, AccessShareLock);
}

bool RowVisibleC(VisCheck *v, ItemPointer tid) {
    if (v->snapshot->snapshot_type == SNAPSHOT_ANY) return true;
    // All-visible pages hold only rows every snapshot sees (as index-only
    // scans rely on).
    if (v->mvcc && VM_ALL_VISIBLE(v->heap, ItemPointerGetBlockNumber(tid), &v->vmbuf)) return true;
    bool call_again = false, all_dead = false;
    bool found = table_index_fetch_tuple(v->fetch, tid, v->snapshot, v->slot, &call_again, &all_dead);
    ExecClearTuple(v->slot);
    return found;
}

// The visibility map's layout (as the server keeps it): two bits per heap
// block, the all-visible bit the lower one, after the page header.
constexpr uint32 kMapBytes = BLCKSZ - MAXALIGN(SizeOfPageHeaderData);
constexpr uint32 kMapBlocksPerPage = kMapBytes * 4;

// Whether the map bits of heap blocks first..last of one map page are all
// set to all-visible.
bool MapRangeAllVisible(const uint8 *map, uint32 first, uint32 last) {
    auto one = [map](uint32 i) { return ((map[i >> 2] >> ((i & 3) * 2)) & VISIBILITYMAP_ALL_VISIBLE) != 0; };
    uint32 i = first;
    for (; i <= last && (i & 31) != 0; i++)
        if (!one(i)) return false;
    for (; i + 31 <= last; i += 32) {
        uint64 w;
        memcpy(&w, map + (i >> 2), sizeof(w));
        if ((w & UINT64CONST(0x5555555555555555)) != UINT64CONST(0x5555555555555555)) return false;
    }
    for (; i <= last; i++)
        if (!one(i)) return false;
    return true;
}

// Whether every row on heap blocks from..to is visible to the snapshot
// without looking at the rows: the visibility map marks all those blocks
// all-visible.  Callers read the postings first and the map after, so a
// row inserted before its posting was read has its block's bit cleared
// by then.
bool RangeVisibleC(VisCheck *v, BlockNumber from, BlockNumber to) {
    if (v->snapshot->snapshot_type == SNAPSHOT_ANY) return true;
    if (!v->mvcc) return false;
    for (BlockNumber b = from; b <= to;) {
        // Pins the map page of b (no map page: not all-visible).
        if (!(visibilitymap_get_status(v->heap, b, &v->vmbuf) & VISIBILITYMAP_ALL_VISIBLE)) return false;
        const uint8 *map = (const uint8 *)PageGetContents(BufferGetPage(v->vmbuf));
        BlockNumber pageEnd = b - b % kMapBlocksPerPage + (kMapBlocksPerPage - 1);
        BlockNumber last = Min(to, pageEnd);
        if (!MapRangeAllVisible(map, b % kMapBlocksPerPage, last % kMapBlocksPerPage)) return false;
        if (last >= to) break;
        b = last + 1;
    }
    return true;
}

// Whether to ask the visibility map about a piece's whole block range at
// once: a piece of few postings spread over many blocks (a rare term's
// inline list) is cheaper checked posting by posting.
bool RangeWorthChecking(const DtChunk &c) {
    uint64 blocks = (uint64)dt::Tid48Block(c.lasttid) - dt::Tid48Block(c.firsttid) + 1;
    return blocks / 32 <= 4 * (uint64)c.npostings;
}

struct PostArray {
    dt::LeafPosting *p;
    int64 n, cap;
};

void PostReserve(PostArray *out, int64 more) {
    if (out->n + more <= out->cap) return;
    out->cap = Max(Max(out->n + more, out->cap * 2), 256);
    Size bytes = out->cap * sizeof(dt::LeafPosting);
    out->p = out->p ? (dt::LeafPosting *)repalloc_huge(out->p, bytes)
                    : (dt::LeafPosting *)palloc_extended(bytes, MCXT_ALLOC_HUGE);
}

// Visibility of the postings of a piece of a list, row by row: repeats of
// a row are adjacent, and one check serves them all.
struct RowVisibility {
    VisCheck *vis;
    bool allVisible = false;  // the piece's blocks are all-visible
    uint64 last = 0;
    bool lastVisible = false, any = false;

    bool Visible(uint64 tid) {
        if (!vis || allVisible) return true;
        if (!any || tid != last) {
            any = true;
            last = tid;
            // The fetch moves its argument along the HOT chain: the
            // posting keeps the chain's root, which index scans return.
            ItemPointerData t;
            ItemPointerSet(&t, dt::Tid48Block(tid), dt::Tid48Offset(tid));
            lastVisible = RowVisibleC(vis, &t);
        }
        return lastVisible;
    }
};

// Reads a term's postings (only visible rows when vis is given), a piece
// at a time: pieces on all-visible blocks are taken whole.
void CollectC(DtPostingIter *it, VisCheck *vis, PostArray *out) {
    DtChunk c;
    RowVisibility rv{vis};
    while (DtNextChunk(it, &c)) {
        uint32 n;
        const dt::Posting *p = DtChunkPostings(it, &n);
        rv.allVisible = vis && RangeWorthChecking(c) &&
                        RangeVisibleC(vis, dt::Tid48Block(c.firsttid), dt::Tid48Block(c.lasttid));
        PostReserve(out, n);
        for (uint32 i = 0; i < n; i++) {
            if ((i & 1023) == 1023) CHECK_FOR_INTERRUPTS();
            if (!rv.Visible(p[i].tid)) continue;
            out->p[out->n++] = dt::LeafPosting{p[i].tid, (int32)p[i].count, p[i].wordcnt};
        }
    }
    DtEndPostings(it);
}

// Reads the every-document list (only visible rows when vis is given).
void CollectDocsC(DtPostingIter *it, VisCheck *vis, PostArray *out) {
    DtPosting p;
    RowVisibility rv{vis};
    while (DtNextPosting(it, &p)) {
        CHECK_FOR_INTERRUPTS();
        uint64 tid = dt::MakeTid48(ItemPointerGetBlockNumberNoCheck(&p.tid), ItemPointerGetOffsetNumberNoCheck(&p.tid));
        if (!rv.Visible(tid)) continue;
        PostReserve(out, 1);
        out->p[out->n++] = dt::LeafPosting{tid, p.count, p.wordcnt};
    }
    DtEndPostings(it);
}

// A term's visible postings of the rows among (sorted keys), and its
// visible rows and occurrences over the whole list: pieces wholly on
// all-visible blocks and without a row of among are counted by their
// headers, undecoded.
void CollectAmongC(DtPostingIter *it, VisCheck *vis, const uint64 *among, int64 na, PostArray *out, int64 *doccnt,
                   int64 *wordcnt) {
    DtChunk c;
    RowVisibility rv{vis};
    uint64 lastRow = 0;
    bool haveRow = false;
    int64 docs = 0, words = 0;
    while (DtNextChunk(it, &c)) {
        const uint64 *a = std::lower_bound(among, among + na, c.firsttid);
        bool overlaps = a < among + na && *a <= c.lasttid;
        rv.allVisible = vis && ((c.summed && !overlaps) || RangeWorthChecking(c)) &&
                        RangeVisibleC(vis, dt::Tid48Block(c.firsttid), dt::Tid48Block(c.lasttid));
        if (c.summed && !overlaps && (rv.allVisible || !vis)) {
            docs += c.nrows - (haveRow && c.firsttid == lastRow ? 1 : 0);
            words += c.countsum;
            lastRow = c.lasttid;
            haveRow = true;
            continue;
        }
        uint32 n;
        const dt::Posting *p = DtChunkPostings(it, &n);
        for (uint32 i = 0; i < n; i++) {
            if ((i & 1023) == 1023) CHECK_FOR_INTERRUPTS();
            if (!rv.Visible(p[i].tid)) continue;
            if (!haveRow || p[i].tid != lastRow) docs++;
            lastRow = p[i].tid;
            haveRow = true;
            words += p[i].count;
            if (i > 0 && p[i].tid < p[i - 1].tid) a = std::lower_bound(among, among + na, p[i].tid);
            while (a < among + na && *a < p[i].tid) a++;
            if (a < among + na && *a == p[i].tid) {
                PostReserve(out, 1);
                out->p[out->n++] = dt::LeafPosting{p[i].tid, (int32)p[i].count, p[i].wordcnt};
            }
        }
    }
    DtEndPostings(it);
    *doccnt = docs;
    *wordcnt = words;
}

// Postings read into palloc'd memory, as a list in row order.
dt::LeafPostings TakePostings(PostArray &pa) {
    dt::LeafPostings out(pa.p, pa.p + pa.n);
    if (pa.p) ServerCall([&] { pfree(pa.p); });
    // The index keeps each list in row order; a list read while pages
    // split may still come slightly out of order.
    if (!std::is_sorted(out.begin(), out.end(), [](const dt::LeafPosting &a, const dt::LeafPosting &b) {
            return a.row < b.row;
        }))
        std::stable_sort(out.begin(), out.end(),
                         [](const dt::LeafPosting &a, const dt::LeafPosting &b) { return a.row < b.row; });
    return out;
}

// The entries of the terms that one evaluation reads, each looked up once
// however many times the evaluation reads its list or its count.  Words
// the planning of this statement looked up come from its hand-over
// instead, when the index has not changed since (one read of the meta page
// checks it, the first time such a word is wanted).
class EntryCache {
public:
    explicit EntryCache(Relation index) : index_(index) {}
    ~EntryCache() {
        // At an error the transaction's abort frees the memory.
        if (dt::pg::ServerErrorPending()) return;
        for (auto &kv : map_) {
            DtTermEntry *e = kv.second;
            try {
                ServerCall([&] { DtFreeTermEntry(e); });
            } catch (...) {
            }
        }
    }
    EntryCache(const EntryCache &) = delete;
    EntryCache &operator=(const EntryCache &) = delete;

    const DtTermEntry *Get(const std::string &term) {
        auto it = map_.find(term);
        if (it != map_.end()) return it->second;
        DtTermEntry *e = nullptr;
        if (const dt::pg::PlannedEntries::Entry *k = Planned(term)) {
            const char *item = k->item.data();
            Size len = k->item.size();
            e = ServerCall([&] { return DtTermEntryFromItem(item, len); });
        } else {
            e = ServerCall([&] { return DtLookupTerm(index_, term.data(), (int)term.size()); });
        }
        try {
            map_.emplace(term, e);
        } catch (...) {
            ServerCall([&] { DtFreeTermEntry(e); });
            throw;
        }
        return e;
    }

private:
    // The planning's entry of term, if it holds.
    const dt::pg::PlannedEntries::Entry *Planned(const std::string &term) {
        if (!plannedChecked_) {
            plannedChecked_ = true;
            planned_ = dt::pg::PlannedEntriesOf(index_);
            if (planned_) {
                DtMetaInfo mi;
                ServerCall([&] { DtReadMeta(index_, &mi); });
                if (mi.changes != planned_->changes) planned_.reset();
            }
        }
        if (!planned_) return nullptr;
        auto it = planned_->words.find(term);
        return it == planned_->words.end() || !it->second.kept ? nullptr : &it->second;
    }

    Relation index_;
    std::unordered_map<std::string, DtTermEntry *> map_;
    bool plannedChecked_ = false;
    std::shared_ptr<const dt::pg::PlannedEntries> planned_;
};

// The postings of a term (all documents for a null term).
dt::LeafPostings Postings(Relation index, EntryCache *cache, const std::string *term, VisCheck *vis) {
    PostArray pa{nullptr, 0, 0};
    const DtTermEntry *e = term ? cache->Get(*term) : nullptr;
    ServerCall([&] {
        if (term)
            CollectC(DtBeginEntryPostings(index, e), vis, &pa);
        else
            CollectDocsC(DtBeginAllDocs(index), vis, &pa);
    });
    return TakePostings(pa);
}

// The postings of a term for the rows among, with the term's counts.
dt::LeafPostings PostingsAmong(Relation index, EntryCache *cache, const std::string &term, const dt::RowSet &among,
                               VisCheck *vis, int64 *doccnt, int64 *wordcnt) {
    PostArray pa{nullptr, 0, 0};
    const uint64 *a = among.data();
    int64 na = (int64)among.size();
    const DtTermEntry *e = cache->Get(term);
    ServerCall([&] { CollectAmongC(DtBeginEntryPostings(index, e), vis, a, na, &pa, doccnt, wordcnt); });
    return TakePostings(pa);
}

struct KeyArray {
    uint64 *keys;
    int64 n, cap;
    bool sorted;
};

void KeyReserve(KeyArray *out, int64 more) {
    if (out->n + more <= out->cap) return;
    out->cap = Max(Max(out->n + more, out->cap * 2), 256);
    Size bytes = out->cap * sizeof(uint64);
    out->keys = out->keys ? (uint64 *)repalloc_huge(out->keys, bytes)
                          : (uint64 *)palloc_extended(bytes, MCXT_ALLOC_HUGE);
}

// Reads the every-document list's rows as keys, each row once, leaving out
// documents without terms (C level: may raise).  A term's rows are read in
// bulk by CollectTermKeysC.
void CollectDocKeysC(DtPostingIter *it, KeyArray *out) {
    DtPosting p;
    out->sorted = true;
    while (DtNextPosting(it, &p)) {
        CHECK_FOR_INTERRUPTS();
        uint64 key = dt::pg::RowKeyOf(&p.tid);
        if (out->n > 0) {
            uint64 last = out->keys[out->n - 1];
            if (last == key) continue;  // repeats of a row are adjacent
            if (key < last) out->sorted = false;
        }
        KeyReserve(out, 1);
        out->keys[out->n++] = key;
    }
    DtEndPostings(it);
}

// Reads a term's rows as keys, each row once, decoding them in bulk
// (C level: may raise).
void CollectTermKeysC(DtPostingIter *it, KeyArray *out) {
    out->sorted = true;
    for (;;) {
        KeyReserve(out, 256);
        int64 from = out->n;
        uint32 k = DtNextRows(it, out->keys + from, (uint32) std::min<int64>(out->cap - from, 8192));
        if (k == 0) break;
        CHECK_FOR_INTERRUPTS();
        // Repeats of a row are adjacent: keep one of each.
        int64 n = from;
        for (uint32 i = 0; i < k; i++) {
            uint64 key = out->keys[from + i];
            if (n > 0) {
                uint64 last = out->keys[n - 1];
                if (last == key) continue;
                if (key < last) out->sorted = false;
            }
            out->keys[n++] = key;
        }
        out->n = n;
    }
    DtEndPostings(it);
}

// The rows of a term (all documents for a null term), without weights or
// visibility: what a bitmap needs.
dt::RowSet Rows(Relation index, EntryCache *cache, const std::string *term) {
    KeyArray ka{nullptr, 0, 0, true};
    const DtTermEntry *e = term ? cache->Get(*term) : nullptr;
    ServerCall([&] {
        if (term)
            CollectTermKeysC(DtBeginEntryPostings(index, e), &ka);
        else
            CollectDocKeysC(DtBeginAllDocs(index), &ka);
    });
    dt::RowSet out(ka.keys, ka.keys + ka.n);
    if (ka.keys) ServerCall([&] { pfree(ka.keys); });
    if (!ka.sorted) {
        std::sort(out.begin(), out.end());
        out.erase(std::unique(out.begin(), out.end()), out.end());
    }
    return out;
}

// Reads the rows among cand (sorted keys) that hold the term, skipping
// through its postings (C level: may raise).
void ProbeKeysC(DtPostingIter *it, const uint64 *cand, int64 nc, KeyArray *out) {
    KeyReserve(out, nc);
    out->n = DtRowsHeld(it, cand, nc, out->keys);
    DtEndPostings(it);
}

dt::RowSet RowsAmong(Relation index, EntryCache *cache, const std::string &term, const dt::RowSet &among) {
    KeyArray ka{nullptr, 0, 0, true};
    const uint64 *cand = among.data();
    int64 nc = (int64)among.size();
    const DtTermEntry *e = cache->Get(term);
    ServerCall([&] { ProbeKeysC(DtBeginEntryPostings(index, e), cand, nc, &ka); });
    dt::RowSet out(ka.keys, ka.keys + ka.n);
    if (ka.keys) ServerCall([&] { pfree(ka.keys); });
    return out;
}

int64 TermCount(EntryCache *cache, const std::string &term) { return DtTermEntryCount(cache->Get(term)); }

// The visibility check of one evaluation, opened when a list is first read
// with visibility (an answer found empty by probing never opens it), and
// closed whatever happens.
class Visibility {
public:
    Visibility(Relation index, Snapshot snapshot) : index_(index), snapshot_(snapshot) {}
    ~Visibility() {
        // At an error the transaction's abort releases the buffers and
        // relations; only a normal end closes them here.
        if (open_ && !dt::pg::ServerErrorPending()) {
            try {
                ServerCall([&] { VisEndC(&v_); });
            } catch (...) {
            }
        }
    }
    Visibility(const Visibility &) = delete;
    Visibility &operator=(const Visibility &) = delete;
    VisCheck *get() {
        if (!open_) {
            ServerCall([&] { VisBeginC(&v_, index_, snapshot_); });
            open_ = true;
        }
        return &v_;
    }

private:
    Relation index_;
    Snapshot snapshot_;
    VisCheck v_{};
    bool open_ = false;
};

// Weights of a result table by the index's counters.
void Weigh(Relation index, dt::ResultTable &table, const dt::DocExprNode *tree, int32 *terms = nullptr,
           int32 *docs = nullptr) {
    if (table.entries.empty()) return;  // nothing to weigh, nor to count by
    DtMetaInfo mi;
    ServerCall([&] { DtReadMeta(index, &mi); });
    dt::GetDocWeights(table, tree, mi.numterms, mi.numdocs);
    if (terms) *terms = mi.numterms;
    if (docs) *docs = mi.numdocs;
}

// The rows of the index without weights or visibility.
dt::RowSource RowSourceOf(Relation index, EntryCache *cache) {
    dt::RowSource src;
    src.rowsWithTerm = [index, cache](const std::string &term) { return Rows(index, cache, &term); };
    src.allRows = [index, cache] { return Rows(index, cache, nullptr); };
    src.rowsWithTermAmong = [index, cache](const std::string &term, const dt::RowSet &among) {
        return RowsAmong(index, cache, term, among);
    };
    src.termCount = [cache](const std::string &term) { return TermCount(cache, term); };
    return src;
}

dt::EntrySource SourceOf(Relation index, EntryCache *cache, Visibility *vis) {
    dt::EntrySource src;
    src.postingsOfTerm = [index, cache, vis](const std::string &term) {
        return Postings(index, cache, &term, vis->get());
    };
    src.allDocs = [index, cache, vis] { return Postings(index, cache, nullptr, vis->get()); };
    src.postingsOfTermAmong = [index, cache, vis](const std::string &term, const dt::RowSet &among, int64_t *doccnt,
                                                  int64_t *wordcnt) {
        int64 dc = 0, wc = 0;
        dt::LeafPostings out = PostingsAmong(index, cache, term, among, vis->get(), &dc, &wc);
        *doccnt = dc;
        *wordcnt = wc;
        return out;
    };
    return src;
}

}  // namespace

namespace dt::pg {

// The tree and cuts of the conditions: a single one as the planning of the
// statement parsed it, if it did.
static void ParseConditions(const std::vector<ScanCondition> &conditions, Answer *out) {
    if (conditions.size() == 1 && PlannedScanTree(out->arena, conditions[0], &out->tree, &out->cuts)) return;
    out->tree = ScanTree(out->arena, conditions, &out->cuts);
}

ScanOutcome EvaluateScan(Relation index, Snapshot snapshot, const std::vector<ScanCondition> &conditions,
                         bool ranked) {
    ScanOutcome out;
    Answer ans;
    ParseConditions(conditions, &ans);
    if (!ans.tree) {
        out.ranked = ranked;
        return out;
    }
    if (!ranked && ans.cuts.tupcnt <= 0 && ans.cuts.percent <= 0.0f) {
        EntryCache cache(index);
        out.rows = dt::EvaluateRows(ans.tree, RowSourceOf(index, &cache));
        return out;
    }
    EvaluateTree(index, snapshot, &ans);
    const dt::ResultTable &table = ans.table;
    std::vector<uint32_t> order = dt::RankEntries(table, ans.cuts.tupcnt, (double)ans.cuts.percent);
    out.rows.reserve(order.size());
    out.weights.reserve(order.size());
    for (uint32_t i : order) {
        out.rows.push_back(table.entries[i].row);
        out.weights.push_back(table.entries[i].weight);
    }
    out.ranked = true;
    if (!ranked) {
        // A bitmap wants row order.
        std::sort(out.rows.begin(), out.rows.end());
        out.weights.clear();
        out.ranked = false;
    }
    return out;
}

void EvaluateAnswer(Relation index, Snapshot snapshot, const std::vector<ScanCondition> &conditions, Answer *out) {
    ParseConditions(conditions, out);
    if (out->tree) EvaluateTree(index, snapshot, out);
}

void EvaluateTree(Relation index, Snapshot snapshot, Answer *out) {
    EntryCache cache(index);
    Visibility vis(index, snapshot);
    dt::RowSource rows = RowSourceOf(index, &cache);
    dt::EntrySource src = SourceOf(index, &cache, &vis);
    src.rows = &rows;
    out->table = dt::EvaluateEntries(out->tree, src);
    Weigh(index, out->table, out->tree, &out->totalTerms, &out->totalDocs);
}

// Runs inside ServerCall.
static void CurrentTidsC(Relation index, Snapshot snapshot, dt::RowKey *rows, int64 n) {
    VisCheck v;
    VisBeginC(&v, index, snapshot);
    for (int64 i = 0; i < n; i++) {
        CHECK_FOR_INTERRUPTS();
        ItemPointerData t;
        dt::pg::SetItemPointer(&t, rows[i]);
        bool call_again = false, all_dead = false;
        if (table_index_fetch_tuple(v.fetch, &t, snapshot, v.slot, &call_again, &all_dead))
            rows[i] = dt::pg::RowKeyOf(&t);
        ExecClearTuple(v.slot);
    }
    VisEndC(&v);
}

void CurrentRows(Relation index, Snapshot snapshot, std::vector<dt::RowKey> *rows) {
    dt::RowKey *r = rows->data();
    int64 n = (int64)rows->size();
    ServerCall([&] { CurrentTidsC(index, snapshot, r, n); });
}

void QueryWeights(Relation index, Snapshot snapshot, Datum query, std::vector<dt::RowKey> *rows,
                  std::vector<double> *weights) {
    dt::ExprArena arena;
    dt::ScanCuts cuts;
    dt::DocExprNode *tree = ScanTree(arena, {ScanCondition{1, query}}, &cuts);
    rows->clear();
    weights->clear();
    if (!tree) return;
    EntryCache cache(index);
    Visibility vis(index, snapshot);
    dt::ResultTable table = dt::EvaluateEntries(tree, SourceOf(index, &cache, &vis));
    Weigh(index, table, tree);
    rows->reserve(table.entries.size());
    weights->reserve(table.entries.size());
    for (const dt::ResultEntry &e : table.entries) {
        rows->push_back(e.row);
        weights->push_back(e.weight);
    }
}

}  // namespace dt::pg
