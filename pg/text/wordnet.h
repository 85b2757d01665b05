// WordNet in the server: the three objects "wordnet_stems_index",
// "wordnet_excl" and "wordnet_excl_index" of the extension's schema, read by
// index scans while a stemming phase runs, and the per-process stem cache.
//
// Open/close: _dt_OpenWordnet opens the relations and both scans when
// closed (no effect when open); _dt_CloseWordnet ends the use of them when
// open (no effect when closed).  Opens do not nest: an inner close closes
// what an outer caller opened.
//
// A close keeps the relations, scans and snapshot ("parked", without buffer
// pins) for the next open: an open in the same subtransaction under a
// snapshot that sees the same rows (the rest of a statement, or the next
// statement when nothing changed) takes them over without a look at the
// catalogue or the version row.  A parked state is closed for good by an
// open that needs another snapshot or another subtransaction, before any
// utility command (which may need the relations to itself), when the
// subtransaction that opened it commits, and before the transaction
// commits or prepares.  Everything is held by the resource owner of the
// opening (sub)transaction, so an error anywhere needs no clean-up by the
// caller: the (sub)transaction abort marks the state closed, and the server
// releases the relations, the scans' buffers and the snapshot itself.
#pragma once

#include <string>

#include "docdesc.h"
#include "morph.h"

namespace dt::pg {

int _dt_OpenWordnet();
int _dt_CloseWordnet();
// Closes the relations and scans, also when parked (error paths, and
// before a different open).
int _dt_ReleaseWordnet();
// Marks the state closed without touching the relations (error paths).
int _dt_ExcWordnet();
// Whether a caller has the tables open (a parked state is not open).
bool WordnetIsOpen();
// The state of the WordNet tables as seen by the last open: changes with
// every change of the tables (the version row); "" when it is unknown.
// Anything computed from stems may be kept while this stays the same.
const char *WordnetVersionKey();

// Stems one lower-case word of at most 1024 characters with the open
// tables, through the stem cache when it is usable.
StemResult StemOneWord(const char *word);

// _dt_MorphWord with the open tables (no cache).
std::string MorphOneWord(const char *word, char *isStop);

// The stem hooks of documents and texts: the process stop-word set and the
// WordNet stemmer (which must be open while they are used).
const StemHooks &ServerStemHooks();

// The path of the stop-word list under the module's home.
std::string StopWordPath();

// Cache counters, for dt_StemCacheStats().
struct StemCacheCounters {
    long long entries, hits, misses, resets;
};
StemCacheCounters StemCacheStats();

// Called once from _PG_init: settings and the stop-word location.
void DefineTextAnalysisSettings();

}  // namespace dt::pg
