// Layout arithmetic of dtree index pages: item sizes, the point where a
// term's posting list leaves its leaf entry for a chain of posting pages,
// and where a full page splits.  Pure functions; the server layer
// (pg/dtree/) lays the bytes out.
//
// A tree item is an 8-byte header (kind, flags, key length, and a 32-bit
// field: the posting count of a leaf entry, or the child block of a
// downlink), the key bytes, then the payload: posting bytes of an inline
// entry, or the head and tail block of a chain (8 bytes).
#pragma once

#include <cstddef>
#include <cstdint>

namespace dt::dtree {

enum ItemKind : uint8_t {
    kInlineEntry = 1,  // leaf entry whose postings follow the key
    kChainEntry = 2,   // leaf entry whose postings are in posting pages
    kHighKey = 3,      // upper bound of a page that has a right sibling
    kDownlink = 4,     // internal item: lower bound of a child's keys
};

constexpr size_t kItemHeader = 8;
constexpr size_t kChainPayload = 8;
// The longest term (a word of the tokenizer is at most 1024 characters).
constexpr size_t kMaxKeyLen = 1024;
// Bytes a page gives to one item beyond the item itself (its line pointer).
constexpr size_t kLinePointer = 4;

constexpr size_t Align8(size_t n) { return (n + 7) & ~size_t(7); }

constexpr size_t InlineItemSize(size_t keylen, size_t postingbytes) { return kItemHeader + keylen + postingbytes; }
constexpr size_t ChainItemSize(size_t keylen) { return kItemHeader + keylen + kChainPayload; }
constexpr size_t KeyItemSize(size_t keylen) { return kItemHeader + keylen; }
// Space an item of size n takes on a page.
constexpr size_t ItemSpace(size_t n) { return Align8(n) + kLinePointer; }

// The largest leaf item: a third of the page's item space, so that a split
// always leaves room and every page holds at least two entries.
constexpr size_t MaxLeafItem(size_t itemspace) { return itemspace / 3 - kLinePointer - 8; }
// Posting bytes an inline entry of a key may hold before its list moves to
// a chain of posting pages.
constexpr size_t InlineLimit(size_t keylen, size_t itemspace) {
    return MaxLeafItem(itemspace) - kItemHeader - keylen;
}
// Space a downlink to any key may need.
constexpr size_t MaxDownlinkSpace() { return ItemSpace(KeyItemSize(kMaxKeyLen)); }

// Where to split n items whose page space is sizes[i]: the number of items
// that stay on the left, between 1 and n - 1, leaving the left half about
// as full as the right.  n must be at least 2.
size_t SplitPoint(const size_t *sizes, size_t n) noexcept;

}  // namespace dt::dtree
