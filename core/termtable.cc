#include "termtable.h"

#include <cstring>
#include <vector>

#include "doclayout.h"
#include "error.h"
#include "interrupt.h"

namespace dt {

TermTableBytes WriteTermTable(const WordHash &h) {
    TermTableBytes t;
    t.head.assign(kTermTableHeaderSize, '\0');
    char *hd = &t.head[0];
    PutI32(hd, 0, kTermTableVersion);
    PutI32(hd, 4, kHashBuckets);
    PutI32(hd, 8, kWrdEntrySize);
    PutI32(hd, 12, h.strlen);
    PutI32(hd, 16, kTermTableLen);
    int written = 0;
    for (int i = 0; i < kHashBuckets; i++) {
        if (!h.heads[i]) {
            PutI32(&t.head[0], 20 + 4 * i, -1);
            continue;
        }
        PutI32(&t.head[0], 20 + 4 * i, written);
        for (const DtWordHash *e = h.heads[i]; e; e = e->hashw_next) {
            PollInterrupts();
            char entry[kWrdEntrySize];
            PutI32(entry, 0, (int32_t)t.strings.size());
            PutI32(entry, 4, e->hashw_cnt);
            // Only zero or non-zero matters to readers.
            PutI32(entry, 8, e->hashw_next ? 1 : 0);
            t.head.append(entry, kWrdEntrySize);
            t.strings += e->hashw_word;
            t.strings += '\0';
            written++;
        }
    }
    if ((int)t.strings.size() != h.strlen)
        ErrorRaiseVA("XD00Q", "GOT_LEN%d", (int)t.strings.size(), "EXPECT_LEN%d", h.strlen);
    if (written != h.hashentries)
        ErrorRaiseVA("XD00R", "GOT_LEN%d", (int)t.strings.size(), "EXPECT_LEN%d", h.strlen);
    return t;
}

int TermTableStrlen(const char *head) { return GetI32(head, 12); }

void ReadTermTable(const char *head, int hashentries, const char *strings, size_t strlen,
                   WordHash &out) {
    auto corrupt = [](const char *what) {
        ErrorRaiseVA("TL001", "NAME%s", "Large object error", "OPERATION%s", what);
    };
    if (hashentries < 0) corrupt("Check of term table entry count");
    if (GetI32(head, 4) != kHashBuckets || GetI32(head, 8) != kWrdEntrySize)
        corrupt("Check of term table header");
    // Every entry belongs to exactly one chain, and every term to one entry:
    // chains that share or repeat entries, or repeat a term, are corrupt.
    std::vector<bool> seen((size_t)hashentries, false);
    int visited = 0;
    for (int b = 0; b < kHashBuckets; b++) {
        int idx = GetI32(head, 20 + 4 * b);
        if (idx == -1) continue;
        for (;; idx++) {
            PollInterrupts();
            if (idx < 0 || idx >= hashentries) corrupt("Check of term table bucket index");
            if (seen[(size_t)idx]) corrupt("Check of term table chains");
            seen[(size_t)idx] = true;
            visited++;
            const char *entry = head + kTermTableHeaderSize + (size_t)idx * kWrdEntrySize;
            int32_t off = GetI32(entry, 0);
            if (off < 0 || (size_t)off >= strlen) corrupt("Check of term table string offset");
            const void *nul = std::memchr(strings + off, '\0', strlen - off);
            if (!nul) corrupt("Check of term table string area");
            size_t len = (size_t)(static_cast<const char *>(nul) - (strings + off));
            int32_t cnt = GetI32(entry, 4);
            if (cnt < 1) corrupt("Check of term table count");
            if (_dt_AddWordToHash(strings + off, len, out) != 0) corrupt("Check of term table terms");
            // Added as a new word: it is the head of its bucket's chain.
            DtWordHash *e = out.heads[_dt_HashTextVal(strings + off, len)];
            e->hashw_cnt = cnt;
            if (GetI32(entry, 8) == 0) break;
        }
    }
    if (visited != hashentries) corrupt("Check of term table entry count");
}

}  // namespace dt
