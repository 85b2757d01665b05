// Splitting tree pages: a full leaf or internal page is split in one
// record with its parent's new downlink, or under a new root.
#pragma once

#include "dtree_internal.h"

// Splits the exclusively locked tree page buf, which the descent that made
// path reached at level `level` (0: the root of that moment), as one
// record: the left half stays in place and links to the new right half,
// and the parent gets the right half's downlink (or, for the root, a new
// root above both halves is made and named on the meta page).  When the
// parent has no room for one more downlink, the parent is split instead,
// and so on upwards; when the page was the root and no longer is, nothing
// is split.  Either way the caller starts again from the root and finds
// what is still to do.  Releases buf.
void DtSplitLocked(Relation index, Buffer buf, const BlockNumber *path, int level);
