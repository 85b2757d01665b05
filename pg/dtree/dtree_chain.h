// Posting chains: the posting pages of an entry whose list outgrew the
// leaf, in row order, linked from its head to its tail.
#pragma once

#include "dtree_internal.h"

// The page of a chain that takes a posting for row tid: the last page
// whose first row is at or below tid, or the head when there is none.  The
// walk takes one share lock at a time.  Under the leaf's exclusive lock the
// chain cannot change and the answer is exact; without it the answer is a
// guess to be checked (DtLockGuessedPage), a page that VACUUM deleted
// meanwhile is passed by its right link, which it keeps, and a page that is
// no posting page at all ends the guess.
BlockNumber DtChainSearch(Relation index, BlockNumber head, uint64 tid, bool guessing);

// Adds p to the chain of the entry at off of the exclusively locked leaf
// (image in leafimg).  An append (a row at or beyond the tail's first row)
// locks the tail at once.  A posting for a row further back goes to the
// page DtChainSearch names; the search of a long chain does not hold the
// leaf: when *guess is not yet set, it is left to the caller (returns
// false with *head set; the caller releases the leaf, searches, sets
// *guess and starts again).  A guess that fails its check is replaced by a
// search under the leaf's lock.
bool DtChainInsert(Relation index, Buffer leafbuf, Page leafimg, OffsetNumber off, const dt::Posting *p, int32 dterms,
                   int32 ddocs, bool doclist, BlockNumber *guess, BlockNumber *head);
