// Writing tree pages: items, the meta page's counters, posting pages.
#include "dtree_write.h"

#include <cstring>

// An item assembled in palloc'd memory.
DtItemHeader *DtMakeItem(uint8 kind, const char *key, int keylen, uint32 value, const void *payload, Size paylen,
                         Size *size) {
    *size = sizeof(DtItemHeader) + keylen + paylen;
    DtItemHeader *ih = (DtItemHeader *) palloc0(*size);
    ih->kind = kind;
    ih->keylen = (uint16) keylen;
    ih->value = value;
    if (keylen) memcpy((char *) ih + sizeof(DtItemHeader), key, keylen);
    if (paylen) memcpy((char *) ih + sizeof(DtItemHeader) + keylen, payload, paylen);
    return ih;
}

void DtAddItemOrDie(Page page, const void *item, Size size, OffsetNumber off) {
    if (PageAddItem(page, (Item) item, size, off, false, false) == InvalidOffsetNumber)
        elog(ERROR, "dtree: item of %zu bytes does not fit on its page", (size_t) size);
}

// Applies counter deltas to a private image of the meta page.
void DtMetaDeltas(Page meta, int32 dterms, int32 ddocs, int32 dpostings, int32 ddistinct) {
    DtPageGetMeta(meta)->dtm_numterms += dterms;
    DtPageGetMeta(meta)->dtm_numdocs += ddocs;
    DtPageGetMetaExtra(meta)->npostings += dpostings;
    DtPageGetMetaExtra(meta)->ndistinct += ddistinct;
}

// The meta page, exclusively locked, copied into image: the last lock any
// writer takes.
Buffer DtLockMeta(Relation index, Page image) {
    Buffer buf = ReadBuffer(index, DTREE_METAPAGE_BLKNO);
    LockBuffer(buf, BUFFER_LOCK_EXCLUSIVE);
    DtCopyPage(image, buf);
    return buf;
}

// Writes the postings of an entry into a new posting page image.
void DtFillPostingPage(Page page, const dt::Posting *p, uint32 n, BlockNumber rightlink) {
    DtInitPage(page, DT_POSTING);
    DtPageGetOpaque(page)->rightlink = rightlink;
    size_t nb = n ? dt::EncodePostings(p, n, 0, DtPostingPageData(page), DT_POSTING_CAPACITY) : 0;
    if (nb == SIZE_MAX) elog(ERROR, "dtree: postings do not fit on a posting page");
    DtSetPostingHeader(page, p, n, (uint32) nb);
}
