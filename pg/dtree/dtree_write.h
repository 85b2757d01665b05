// Writing tree pages: the pieces that the insert, the split of pages and
// the posting chains assemble in private page images before one generic
// WAL record writes them (the protocol is described in dtree_insert.cc).
#pragma once

#include "dtree_internal.h"

// An item assembled in palloc'd memory.
DtItemHeader *DtMakeItem(uint8 kind, const char *key, int keylen, uint32 value, const void *payload, Size paylen,
                         Size *size);
// Adds an item to a page image; an item that does not fit is an error.
void DtAddItemOrDie(Page page, const void *item, Size size, OffsetNumber off);
// Applies counter deltas to a private image of the meta page.
void DtMetaDeltas(Page meta, int32 dterms, int32 ddocs, int32 dpostings, int32 ddistinct);
// The meta page, exclusively locked, copied into image: the last lock any
// writer takes.
Buffer DtLockMeta(Relation index, Page image);
// Writes the postings of an entry into a new posting page image.
void DtFillPostingPage(Page page, const dt::Posting *p, uint32 n, BlockNumber rightlink);
