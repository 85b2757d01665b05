#include "largeobject.h"

#include <unistd.h>

#include <cerrno>
#include <vector>

#include "doclayout.h"
#include "loownership.h"

extern "C" {
#include "access/genam.h"
#include "access/table.h"
#include "catalog/pg_largeobject.h"
#include "catalog/pg_largeobject_metadata.h"
#include "storage/large_object.h"
#include "utils/fmgroids.h"
#include "utils/rel.h"
#include "libpq/be-fsstubs.h"
#include "libpq/libpq-fs.h"
#include "utils/fmgrprotos.h"
#include "utils/snapmgr.h"
}

namespace dt::pg {

namespace {
[[noreturn]] void LOError(const std::string &what) {
    dt::ErrorRaiseVA("TL001", "NAME%s", "Large object error", "OPERATION%s", what);
}
}  // namespace

// The server's large-object descriptors (lo_open and friends) are used
// rather than the inversion calls: they are closed and their relations
// released at transaction end, also after an error.

LargeObject::~LargeObject() {
    if (fd < 0) return;
    // An error here must not escape a destructor; the transaction end closes
    // the descriptor anyway.  After a caught server error the server is not
    // called at all (the abort that follows closes it).
    int d = fd;
    fd = -1;
    if (ServerErrorPending()) return;
    try {
        ServerCall([&] { DirectFunctionCall1(be_lo_close, Int32GetDatum(d)); });
    } catch (...) {
    }
}

Oid CreateLargeObject() {
    RaisedRightsScope raised;
    return ServerCall([] { return DatumGetObjectId(DirectFunctionCall1(be_lo_creat, Int32GetDatum(-1))); });
}

namespace {
// Whether the large object exists for a snapshot.  C-level.
bool ObjectExistsForSnapshot(Oid oid, Snapshot snapshot) {
    Relation rel = table_open(LargeObjectMetadataRelationId, AccessShareLock);
    ScanKeyData key;
    ScanKeyInit(&key, Anum_pg_largeobject_metadata_oid, BTEqualStrategyNumber, F_OIDEQ, ObjectIdGetDatum(oid));
    SysScanDesc scan = systable_beginscan(rel, LargeObjectMetadataOidIndexId, true, snapshot, 1, &key);
    bool found = HeapTupleIsValid(systable_getnext(scan));
    systable_endscan(scan);
    table_close(rel, AccessShareLock);
    return found;
}
}  // namespace

void OpenLargeObject(LargeObject &lo, const std::string &handle, bool write) {
    Oid oid = dt::OwnedHandleOid(handle);
    lo.handle = handle;
    lo.oid = oid;
    if (oid == InvalidOid) dt::ErrorRaiseVA("XD00H", "FILENAME%t", handle);
    int flags = write ? (INV_READ | INV_WRITE) : INV_READ;
    RaisedRightsScope raised;
    // A reader reads the object as of the running statement's snapshot
    // whenever it exists there: the row that names it was read under that
    // snapshot, and a concurrent delete of the row cannot take the object
    // away from it (its data stays readable while the snapshot lives).
    if (!write && ServerCall([&] { return ActiveSnapshotSet() && ObjectExistsForSnapshot(oid, GetActiveSnapshot()); })) {
        lo.fd = ServerCall([&] {
            return DatumGetInt32(DirectFunctionCall2(be_lo_open, ObjectIdGetDatum(oid), Int32GetDatum(flags)));
        });
        return;
    }
    // Writers, and readers of an object made later in this transaction
    // than the statement's snapshot, open the object as it is now.
    if (!ServerCall([&] { return LargeObjectExists(oid); })) dt::ErrorRaiseVA("XD00H", "FILENAME%t", handle);
    lo.fd = ServerCall([&] {
        PushActiveSnapshot(GetLatestSnapshot());
        int fd = DatumGetInt32(DirectFunctionCall2(be_lo_open, ObjectIdGetDatum(oid), Int32GetDatum(flags)));
        PopActiveSnapshot();
        return fd;
    });
}

void CloseLargeObject(LargeObject &lo) {
    if (lo.fd < 0) return;
    int d = lo.fd;
    lo.fd = -1;
    try {
        ServerCall([&] { DirectFunctionCall1(be_lo_close, Int32GetDatum(d)); });
    } catch (const dt::Error &) {
        LOError("close of large object " + lo.handle);
    }
}

void SeekLargeObject(LargeObject &lo, int64 offset) {
    int d = lo.fd;
    ServerCall([&] {
        return DirectFunctionCall3(be_lo_lseek64, Int32GetDatum(d), Int64GetDatum(offset), Int32GetDatum(SEEK_SET));
    });
}

int ReadLargeObject(LargeObject &lo, char *buf, int n) {
    int d = lo.fd;
    int got = ServerCall([&] { return lo_read(d, buf, n); });
    if (got < 0) LOError("Read a buffer from large object " + lo.handle);
    return got;
}

void WriteLargeObject(LargeObject &lo, const char *buf, int n) {
    int d = lo.fd;
    int put;
    try {
        put = ServerCall([&] { return lo_write(d, buf, n); });
    } catch (const dt::Error &e) {
        // Keep the server's reason (permissions, disk full) in the detail.
        throw dt::Error::User("Large object error: write of " + std::to_string(n) +
                                  " bytes for large object " + lo.handle + " failed",
                              "TL001", e.message());
    }
    if (put != n) LOError("write of " + std::to_string(n) + " bytes for large object " + lo.handle);
}

Oid StoreDocumentLargeObject(int fd, int32 size, bool copytext, const WordHash &terms,
                             const std::string &origname) {
    dt::TermTableBytes table = dt::WriteTermTable(terms);
    Oid oid = CreateLargeObject();
    LargeObject lo;
    OpenLargeObject(lo, dt::MakeOwnedHandle(oid), true);
    if (copytext) {
        std::vector<char> buf(8084);
        int32 left = size;
        while (left > 0) {
            CheckInterrupts();
            int want = left < 8084 ? left : 8084;
            ssize_t got = read(fd, buf.data(), want);
            if (got < 0 && errno == EINTR) continue;
            if (got <= 0) dt::ErrorRaiseVA("XD00P", "SIZE%d", 8084, "FILENAME%s", origname);
            WriteLargeObject(lo, buf.data(), (int)got);
            left -= (int32)got;
        }
    }
    int pad = dt::LOPadding(copytext ? size : 0, copytext);
    if (pad) WriteLargeObject(lo, "\n\n\n\n", pad);
    WriteLargeObject(lo, table.head.data(), (int)table.head.size());
    if (!table.strings.empty()) WriteLargeObject(lo, table.strings.data(), (int)table.strings.size());
    CloseLargeObject(lo);
    return oid;
}

void ReadStoredTermTable(const void *value, WordHash &out) {
    dt::DocView d(value);
    std::string handle = dt::DocLOHandleExternal(value).value_or("");
    LargeObject lo;
    OpenLargeObject(lo, handle, false);
    SeekLargeObject(lo, d.ht_offset());
    int n = d.ht_hashentries();
    if (n < 0 || n > (1 << 26)) LOError("Check of term count of large object " + handle);
    size_t headlen = dt::kTermTableHeaderSize + (size_t)n * dt::kWrdEntrySize;
    std::string head(headlen, '\0');
    int got = ReadLargeObject(lo, &head[0], (int)headlen);
    if (got != (int)headlen)
        LOError("Read of " + std::to_string(headlen) + " bytes from large object " + handle);
    int strlen = dt::TermTableStrlen(head.data());
    if (strlen < 0 || strlen > (1 << 28)) LOError("Check of strtab length of large object " + handle);
    std::string strings(strlen, '\0');
    if (strlen > 0 && ReadLargeObject(lo, &strings[0], strlen) != strlen)
        LOError("Read of strtab (" + std::to_string(strlen) + " bytes) from large object " + handle);
    CloseLargeObject(lo);
    dt::ReadTermTable(head.data(), n, strings.data(), strings.size(), out);
    out.wordcnt = d.ht_wordcnt();
}

std::string ReadLargeObjectText(const void *value) {
    dt::DocView d(value);
    std::string handle = dt::DocLOHandleExternal(value).value_or("");
    LargeObject lo;
    try {
        OpenLargeObject(lo, handle, false);
    } catch (const dt::Error &) {
        LOError("Open of large object " + handle);
    }
    int32 len = d.ht_realoffset();
    std::string text(len, '\0');
    int got = len > 0 ? ReadLargeObject(lo, &text[0], len) : 0;
    if (got != len) LOError("read of " + std::to_string(len) + " bytes from large object " + handle);
    CloseLargeObject(lo);
    return text;
}

}  // namespace dt::pg
