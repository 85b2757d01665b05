// The stored layout of a `doc` value (DocDatatype).
//
//   0  ht_len          4  the server's variable-length word (total length)
//   4  ht_wordcnt      4  term occurrences; 0 when no term table is stored
//   8  ht_hashentries  4  distinct terms; 0 when none is stored
//  12  ht_offset       4  offset of the term table in the large object, or 0
//  16  ht_realoffset   4  length of the document text
//  20  ht_flags        2  1 = contents are a large-object handle, 2 = NoCopyText
//  22  ht_lo_offset    2  offset of the contents part from the value's start
//  24  ht_nameoffset   2  offset of the path from byte 27; 0 = no specification
//  26  ht_spare        1  0
//  27  ht_strings         spec NUL path NUL, zero-filled to a multiple of 4
//  ht_lo_offset: the contents (handle as a length-prefixed text, or the
//  in-row text), then one NUL.
//
// Integers are native byte order, unaligned, no padding.  ht_len and the
// handle's length word use the server's 4-byte variable-length header
// encoding, so the value is an ordinary varlena to the server.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>

namespace dt {

constexpr int kDocHeaderSize = 27;
constexpr int16_t DOC_FLAG_LO = 1;      // contents part is a large-object handle
constexpr int16_t DOC_FLAG_NOCOPY = 2;  // the large object holds no text
constexpr int kSmallDocLimit = 100;     // default largest in-row text
constexpr int kMaxExpandLimit = 2048;   // largest ExpandLimit
// The largest document text: its length is a signed 32-bit offset.
constexpr long long kMaxDocumentBytes = 0x7FFFFFFF;
extern const char *const kDefaultFormatSpec;  // "format(ascii)"


// The server's 4-byte variable-length header (uncompressed form).
void SetVarSize(void *p, uint32_t len);
uint32_t VarSize(const void *p);
// A length-prefixed text: length word (counting itself) then the bytes.
std::string MakeVarText(const std::string &s);

// Field access on a value's bytes.
int32_t GetI32(const void *v, int off);
void PutI32(void *v, int off, int32_t x);
int16_t GetI16(const void *v, int off);
void PutI16(void *v, int off, int16_t x);
uint16_t GetU16(const void *v, int off);
void PutU16(void *v, int off, uint16_t x);

// Named accessors over a value (or a header being built).
struct DocView {
    const unsigned char *p;
    explicit DocView(const void *v) : p(static_cast<const unsigned char *>(v)) {}
    uint32_t ht_len() const { return VarSize(p); }
    int32_t ht_wordcnt() const { return GetI32(p, 4); }
    int32_t ht_hashentries() const { return GetI32(p, 8); }
    int32_t ht_offset() const { return GetI32(p, 12); }
    int32_t ht_realoffset() const { return GetI32(p, 16); }
    int16_t ht_flags() const { return GetI16(p, 20); }
    uint16_t ht_lo_offset() const { return GetU16(p, 22); }
    uint16_t ht_nameoffset() const { return GetU16(p, 24); }
    uint8_t ht_spare() const { return p[26]; }
    bool isLO() const { return ht_flags() & DOC_FLAG_LO; }
};

// A header being built, with its strings area.
struct DocHeader {
    std::string bytes;  // rounded size; ht_len = bytes.size()
    void set_wordcnt(int32_t v) { PutI32(&bytes[0], 4, v); }
    void set_hashentries(int32_t v) { PutI32(&bytes[0], 8, v); }
    void set_offset(int32_t v) { PutI32(&bytes[0], 12, v); }
    void set_realoffset(int32_t v) { PutI32(&bytes[0], 16, v); }
    void set_flags(int16_t v) { PutI16(&bytes[0], 20, v); }
    DocView view() const { return DocView(bytes.data()); }
};

// Builds the header from an input literal "spec:path" or "path".  The
// literal is cut at its first colon; a spec without a "format" parameter
// raises XD00U.  Size: (length of literal + 29) rounded up to 4.
DocHeader filldtname(const std::string &literal);

// The stored specification ("format(ascii)" when there is none) and path.
std::string DocSpec(const void *v);
std::string DocPath(const void *v);
// Whether the value has a stored specification.
bool DocHasSpec(const void *v);

// Completes values of each storage kind.  The header keeps its strings;
// ht_lo_offset = header size and ht_len covers contents plus one NUL.
std::string MakeSmallDocValue(DocHeader h, const std::string &text);
// Large object with copied text (ht_flags 1) or without (3).
std::string MakeLODocValue(DocHeader h, const std::string &handle, int32_t textlen, bool copytext,
                           int32_t wordcnt, int32_t hashentries);
// External server file (ht_flags 1, counts 0, ht_offset 0).
std::string MakeExternalDocValue(DocHeader h, const std::string &serverpath, int32_t filesize);

// The same value naming another large object (the header, strings and
// counts kept, the handle replaced).
std::string DocWithHandle(const void *v, const std::string &handle);

// Padding between the text and the term table in a large object: 0..3 bytes
// to reach a multiple of 4 with copied text, 4 without.
int LOPadding(int32_t textlen, bool copytext);

// The contents part (value + ht_lo_offset).
const unsigned char *DocLOHandle(const void *v);
// The handle text for a value with flag 1; nullopt otherwise.
std::optional<std::string> DocLOHandleExternal(const void *v);
// The in-row text of a small document.
std::string DocSmallText(const void *v);

// Handles: an owned large object's handle is its object identifier in
// decimal; an external file's is "EXT:" and the absolute server path.
bool IsExternalHandle(const std::string &handle);
std::string ExternalHandlePath(const std::string &handle);
std::string MakeExternalHandle(const std::string &path);
std::string MakeOwnedHandle(uint32_t oid);
// The object identifier of an owned handle; 0 when it is not one.
uint32_t OwnedHandleOid(const std::string &handle);

// The output text: "spec:path", or "spec,handle(H):path" with flag 1.
std::string DocOutputText(const void *v);

// The complete stored value as a literal, for dumps: "stored(BASE64):path".
// Such a literal has no "format" parameter, so it never names a file.
std::string DocStoredLiteral(const void *v);
// Whether a literal is a stored-value literal ("stored(" at its start).
bool IsStoredLiteral(const std::string &literal);
// The value bytes of a stored-value literal; a malformed literal or value
// raises 22T02 or TL001.
std::string DocFromStoredLiteral(const std::string &literal);

// Checks that len bytes form a consistent value; otherwise raises TL001
// with NAME "Document value error" and the inconsistency as OPERATION.
void ValidateDocValue(const void *v, size_t len);

}  // namespace dt
