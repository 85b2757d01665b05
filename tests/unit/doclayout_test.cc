#include <gtest/gtest.h>

#include <cstring>
#include <string>

#include "doclayout.h"
#include "error.h"

using namespace dt;

namespace {
std::string Hello() { return "hello world\n"; }

void ExpectCode(const std::function<void()> &f, const std::string &code) {
    try {
        f();
        ADD_FAILURE() << "no error, expected " << code;
    } catch (const Error &e) {
        EXPECT_EQ(e.code(), code);
    }
}
}  // namespace

TEST(DocLayout, VarSizeRoundTrip) {
    char b[4];
    SetVarSize(b, 69);
    EXPECT_EQ(VarSize(b), 69u);
    // The server's 4-byte header on a little-endian machine: length << 2.
    uint32_t word;
    std::memcpy(&word, b, 4);
    EXPECT_EQ(word, 69u << 2);
}

TEST(DocLayout, WorkedExampleHeader) {
    DocHeader h = filldtname("format(ascii):/tmp/a.txt");
    ASSERT_EQ(h.bytes.size(), 56u);
    DocView d = h.view();
    EXPECT_EQ(d.ht_len(), 56u);
    EXPECT_EQ(d.ht_nameoffset(), 14);
    EXPECT_EQ(std::string(&h.bytes[27], 13), "format(ascii)");
    EXPECT_EQ(h.bytes[40], '\0');
    EXPECT_EQ(std::string(&h.bytes[41], 10), "/tmp/a.txt");
    for (int i = 51; i < 56; i++) EXPECT_EQ(h.bytes[i], '\0') << i;
    for (int i = 4; i < 24; i++) EXPECT_EQ(h.bytes[i], '\0') << i;
    EXPECT_EQ(h.bytes[26], '\0');
}

TEST(DocLayout, WorkedExampleSmallDocument) {
    std::string v = MakeSmallDocValue(filldtname("format(ascii):/tmp/a.txt"), Hello());
    ASSERT_EQ(v.size(), 69u);
    DocView d(v.data());
    EXPECT_EQ(d.ht_len(), 69u);
    EXPECT_EQ(d.ht_lo_offset(), 56);
    EXPECT_EQ(d.ht_realoffset(), 12);
    EXPECT_EQ(d.ht_offset(), 0);
    EXPECT_EQ(d.ht_flags(), 0);
    EXPECT_EQ(d.ht_wordcnt(), 0);
    EXPECT_EQ(d.ht_hashentries(), 0);
    EXPECT_EQ(d.ht_nameoffset(), 14);
    EXPECT_EQ(d.ht_spare(), 0);
    EXPECT_EQ(v.substr(56, 12), Hello());
    EXPECT_EQ(v[68], '\0');
    EXPECT_EQ(DocSmallText(v.data()), Hello());
    EXPECT_EQ(DocOutputText(v.data()), "format(ascii):/tmp/a.txt");
    EXPECT_FALSE(DocLOHandleExternal(v.data()).has_value());
    EXPECT_EQ(DocLOHandle(v.data()), reinterpret_cast<const unsigned char *>(v.data()) + 56);
    ValidateDocValue(v.data(), v.size());
}

TEST(DocLayout, WorkedExampleLargeObjectVariant) {
    std::string v = MakeLODocValue(filldtname("format(ascii):/tmp/a.txt"), "16411", 1001, true, 150, 90);
    DocView d(v.data());
    EXPECT_EQ(d.ht_lo_offset(), 56);
    EXPECT_EQ(d.ht_realoffset(), 1001);
    EXPECT_EQ(d.ht_offset(), 1004);
    EXPECT_EQ(d.ht_flags(), 1);
    EXPECT_EQ(d.ht_wordcnt(), 150);
    EXPECT_EQ(d.ht_hashentries(), 90);
    // Handle: length word (counting itself) and characters, then one NUL.
    EXPECT_EQ(VarSize(v.data() + 56), 4u + 5u);
    EXPECT_EQ(v.substr(60, 5), "16411");
    EXPECT_EQ(v.size(), 56u + 9u + 1u);
    EXPECT_EQ(d.ht_len(), v.size());
    EXPECT_EQ(v.back(), '\0');
    EXPECT_EQ(DocLOHandleExternal(v.data()).value(), "16411");
    EXPECT_EQ(DocOutputText(v.data()), "format(ascii),handle(16411):/tmp/a.txt");
    EXPECT_EQ(LOPadding(1001, true), 3);
    ValidateDocValue(v.data(), v.size());
}

TEST(DocLayout, LiteralWithoutColon) {
    DocHeader h = filldtname("/a/b");
    EXPECT_EQ(h.bytes.size(), (4u + 29u + 3u) & ~3u);
    EXPECT_EQ(h.view().ht_nameoffset(), 0);
    EXPECT_EQ(std::string(&h.bytes[27]), "/a/b");
    std::string v = MakeSmallDocValue(h, "x y");
    EXPECT_EQ(DocSpec(v.data()), "format(ascii)");
    EXPECT_EQ(DocPath(v.data()), "/a/b");
    EXPECT_FALSE(DocHasSpec(v.data()));
}

TEST(DocLayout, SameOutputWithAndWithoutDefaultSpec) {
    std::string a = MakeSmallDocValue(filldtname("format(ascii):/a/b"), "t");
    std::string b = MakeSmallDocValue(filldtname("/a/b"), "t");
    EXPECT_EQ(DocOutputText(a.data()), "format(ascii):/a/b");
    EXPECT_EQ(DocOutputText(b.data()), "format(ascii):/a/b");
}

TEST(DocLayout, CutAtFirstColonPathKeepsColons) {
    DocHeader h = filldtname("format(ascii):/a:b:c");
    EXPECT_EQ(DocPath(h.bytes.data()), "/a:b:c");
    EXPECT_EQ(DocSpec(h.bytes.data()), "format(ascii)");
}

TEST(DocLayout, SpecWithoutFormatIsRefused) {
    ExpectCode([] { filldtname("NoCopyText:/a/b"); }, "XD00U");
    ExpectCode([] { filldtname(":/a/b"); }, "XD00U");
    ExpectCode([] { filldtname("formatx(a):/a/b"); }, "XD00U");
}

TEST(DocLayout, RoundingOfHeaderSize) {
    for (size_t n = 0; n < 12; n++) {
        DocHeader h = filldtname(std::string("/") + std::string(n, 'x'));
        size_t expect = ((n + 1) + 29 + 3) & ~size_t(3);
        EXPECT_EQ(h.bytes.size(), expect) << n;
        EXPECT_EQ(h.bytes.size() % 4, 0u);
    }
}

TEST(DocLayout, EmptyDocumentIsSmallWithZeroOffsets) {
    std::string v = MakeSmallDocValue(filldtname("format(ascii):/e"), "");
    DocView d(v.data());
    EXPECT_EQ(d.ht_realoffset(), 0);
    EXPECT_EQ(d.ht_offset(), 0);
    EXPECT_EQ(d.ht_flags(), 0);
    EXPECT_EQ(v.size(), (size_t)d.ht_lo_offset() + 1);
    ValidateDocValue(v.data(), v.size());
}

TEST(DocLayout, NoCopyTextHasOffsetFourAndNoText) {
    std::string v = MakeLODocValue(filldtname("format(ascii),NoCopyText:/x"), "77", 5000, false, 10, 4);
    DocView d(v.data());
    EXPECT_EQ(d.ht_flags(), 3);
    EXPECT_EQ(d.ht_offset(), 4);
    EXPECT_EQ(d.ht_realoffset(), 0);
    EXPECT_EQ(LOPadding(0, false), 4);
}

TEST(DocLayout, MultipleOfFourGetsNoPadding) {
    std::string v = MakeLODocValue(filldtname("/x"), "5", 1200, true, 1, 1);
    DocView d(v.data());
    EXPECT_EQ(d.ht_offset(), d.ht_realoffset());
    EXPECT_EQ(LOPadding(1200, true), 0);
    EXPECT_EQ(LOPadding(1201, true), 3);
    EXPECT_EQ(LOPadding(1202, true), 2);
    EXPECT_EQ(LOPadding(1203, true), 1);
}

TEST(DocLayout, ExternalFileValue) {
    std::string v = MakeExternalDocValue(filldtname("format(ascii),ExternalFile:/srv/a.txt"), "/srv/a.txt", 321);
    DocView d(v.data());
    EXPECT_EQ(d.ht_flags(), 1);
    EXPECT_EQ(d.ht_offset(), 0);
    EXPECT_EQ(d.ht_realoffset(), 321);
    EXPECT_EQ(d.ht_wordcnt(), 0);
    EXPECT_EQ(d.ht_hashentries(), 0);
    std::string handle = DocLOHandleExternal(v.data()).value();
    EXPECT_EQ(handle[0], 'E');
    EXPECT_TRUE(IsExternalHandle(handle));
    EXPECT_EQ(ExternalHandlePath(handle), "/srv/a.txt");
    // The server path starts at byte 8 of the handle including its length word.
    EXPECT_EQ(std::string(reinterpret_cast<const char *>(DocLOHandle(v.data())) + 8), "/srv/a.txt");
}

TEST(DocLayout, OwnedHandles) {
    EXPECT_EQ(MakeOwnedHandle(16411), "16411");
    EXPECT_EQ(OwnedHandleOid("16411"), 16411u);
    EXPECT_EQ(OwnedHandleOid("EXT:/a"), 0u);
    EXPECT_EQ(OwnedHandleOid(""), 0u);
    EXPECT_EQ(OwnedHandleOid("99999999999"), 0u);
    EXPECT_FALSE(IsExternalHandle("16411"));
}

TEST(DocLayout, ValidationRejectsDamagedValues) {
    std::string v = MakeSmallDocValue(filldtname("format(ascii):/tmp/a.txt"), Hello());
    std::string bad = v;
    PutI32(&bad[0], 16, 13);  // text length one more than stored
    ExpectCode([&] { ValidateDocValue(bad.data(), bad.size()); }, "TL001");
    bad = v;
    bad.back() = 'x';
    ExpectCode([&] { ValidateDocValue(bad.data(), bad.size()); }, "TL001");
    ExpectCode([&] { ValidateDocValue(v.data(), 10); }, "TL001");
    bad = v;
    PutU16(&bad[0], 22, 500);
    ExpectCode([&] { ValidateDocValue(bad.data(), bad.size()); }, "TL001");
}

TEST(DocLayout, StoredLiteralRoundTrip) {
    std::string v = MakeLODocValue(filldtname("format(ascii),ExpandLimit(5):/tmp/a:b.txt"), "16411", 1001, true, 150, 90);
    std::string lit = DocStoredLiteral(v.data());
    EXPECT_TRUE(IsStoredLiteral(lit));
    EXPECT_EQ(lit.substr(lit.size() - 14), "):/tmp/a:b.txt");
    EXPECT_EQ(DocFromStoredLiteral(lit), v);
    // Never a file literal: no "format" parameter.
    ExpectCode([&] { filldtname(lit); }, "XD00U");
    ExpectCode([] { DocFromStoredLiteral("stored(!!!):/x"); }, "22T02");
    ExpectCode([] { DocFromStoredLiteral("stored(AAAA):/x"); }, "TL001");
    EXPECT_FALSE(IsStoredLiteral("format(ascii):/stored(x)"));
}

TEST(DocLayout, DocWithHandleKeepsEverythingButTheHandle) {
    std::string v = MakeLODocValue(filldtname("format(ascii):/tmp/a.txt"), "16411", 1001, true, 150, 90);
    std::string w = DocWithHandle(v.data(), "1234567");
    DocView a(v.data()), b(w.data());
    EXPECT_EQ(*DocLOHandleExternal(w.data()), "1234567");
    EXPECT_EQ(a.ht_wordcnt(), b.ht_wordcnt());
    EXPECT_EQ(a.ht_hashentries(), b.ht_hashentries());
    EXPECT_EQ(a.ht_offset(), b.ht_offset());
    EXPECT_EQ(a.ht_realoffset(), b.ht_realoffset());
    EXPECT_EQ(a.ht_flags(), b.ht_flags());
    EXPECT_EQ(a.ht_lo_offset(), b.ht_lo_offset());
    EXPECT_EQ(DocPath(v.data()), DocPath(w.data()));
    EXPECT_EQ(b.ht_len(), w.size());
    EXPECT_EQ(w.size(), v.size() + 2);
    ValidateDocValue(w.data(), w.size());
}
