// Inputs found by the fuzz targets (tests/fuzz) that once broke a parser,
// kept as regression tests.
#include <gtest/gtest.h>

#include <cstring>
#include <memory>
#include <string>

#include "doclayout.h"
#include "error.h"
#include "termtable.h"
#include "wordhash.h"

using namespace dt;

namespace {

TermTableBytes TableOf(std::initializer_list<const char *> words) {
    WordHash h;
    for (const char *w : words) _dt_AddWordToHash(w, h);
    return WriteTermTable(h);
}

std::string ReadError(const std::string &head, int n, const std::string &strings) {
    WordHash back;
    try {
        ReadTermTable(head.data(), n, strings.data(), strings.size(), back);
    } catch (const Error &e) {
        return e.code() + " " + (e.param("OPERATION") ? *e.param("OPERATION") : "");
    }
    return "read";
}

int BucketOf(const char *w) { return _dt_HashWordVal(w); }

}  // namespace

// Two buckets pointing at the same entry used to add the term twice and
// give the count to whichever term headed the chain.
TEST(TermTableDamage, SharedEntriesAreAnError) {
    TermTableBytes t = TableOf({"dog"});
    std::string head = t.head;
    int other = (BucketOf("dog") + 1) % kHashBuckets;
    PutI32(&head[0], 20 + 4 * other, 0);
    EXPECT_EQ(ReadError(head, 1, t.strings), "TL001 Check of term table chains");
}

// A term stored twice made one hash element with the counts mixed up.
TEST(TermTableDamage, RepeatedTermIsAnError) {
    TermTableBytes t = TableOf({"dog", "cat"});
    std::string head = t.head;
    // Point both entries at the same string.
    int32_t first = GetI32(&head[0], kTermTableHeaderSize);
    PutI32(&head[0], kTermTableHeaderSize + kWrdEntrySize, first);
    EXPECT_EQ(ReadError(head, 2, t.strings), "TL001 Check of term table terms");
}

// Entries that no chain reaches left the hash with fewer terms than the
// value's count claims.
TEST(TermTableDamage, UnreachedEntriesAreAnError) {
    TermTableBytes t = TableOf({"dog"});
    std::string head = t.head + std::string(kWrdEntrySize, '\0');
    EXPECT_EQ(ReadError(head, 2, t.strings), "TL001 Check of term table entry count");
}

TEST(TermTableDamage, CountsAndHeaderAreChecked) {
    TermTableBytes t = TableOf({"dog"});
    std::string head = t.head;
    PutI32(&head[0], kTermTableHeaderSize + 4, 0);
    EXPECT_EQ(ReadError(head, 1, t.strings), "TL001 Check of term table count");
    head = t.head;
    PutI32(&head[0], 8, 16);
    EXPECT_EQ(ReadError(head, 1, t.strings), "TL001 Check of term table header");
    head = t.head;
    PutI32(&head[0], 4, 96);
    EXPECT_EQ(ReadError(head, 1, t.strings), "TL001 Check of term table header");
    EXPECT_EQ(ReadError(t.head, 1, t.strings), "read");
}
