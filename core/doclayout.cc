#include "doclayout.h"

#include <cstring>

#include "clientproto.h"
#include "error.h"
#include "formatspec.h"

namespace dt {

const char *const kDefaultFormatSpec = "format(ascii)";

namespace {
bool LittleEndian() {
    const uint16_t one = 1;
    return *reinterpret_cast<const unsigned char *>(&one) == 1;
}
}  // namespace

void SetVarSize(void *p, uint32_t len) {
    uint32_t word = LittleEndian() ? (len << 2) : (len & 0x3FFFFFFFu);
    std::memcpy(p, &word, 4);
}

uint32_t VarSize(const void *p) {
    uint32_t word;
    std::memcpy(&word, p, 4);
    return LittleEndian() ? ((word >> 2) & 0x3FFFFFFFu) : (word & 0x3FFFFFFFu);
}

std::string MakeVarText(const std::string &s) {
    std::string out(4 + s.size(), '\0');
    SetVarSize(&out[0], (uint32_t)out.size());
    std::memcpy(&out[4], s.data(), s.size());
    return out;
}

int32_t GetI32(const void *v, int off) {
    int32_t x;
    std::memcpy(&x, static_cast<const char *>(v) + off, 4);
    return x;
}
void PutI32(void *v, int off, int32_t x) { std::memcpy(static_cast<char *>(v) + off, &x, 4); }
int16_t GetI16(const void *v, int off) {
    int16_t x;
    std::memcpy(&x, static_cast<const char *>(v) + off, 2);
    return x;
}
void PutI16(void *v, int off, int16_t x) { std::memcpy(static_cast<char *>(v) + off, &x, 2); }
uint16_t GetU16(const void *v, int off) {
    uint16_t x;
    std::memcpy(&x, static_cast<const char *>(v) + off, 2);
    return x;
}
void PutU16(void *v, int off, uint16_t x) { std::memcpy(static_cast<char *>(v) + off, &x, 2); }

namespace {

// The part before a literal's first colon must be a parameter list: its
// parentheses balance, and it is not the start of a path that holds a colon.
void CheckLiteralSpec(const std::string &literal, const std::string &spec) {
    int depth = 0;
    for (char c : spec) {
        if (c == '(') depth++;
        if (c == ')' && --depth < 0) break;
    }
    if (depth != 0)
        ErrorRaiseVA("22T02", "TYPE%s", "doc", "STRING%s", "\"" + spec + "\"", "SYNTAX%s",
                     "parameter list: its parentheses do not balance (write name(value), ... before the colon)");
    if (spec.find('/') != std::string::npos && findparam("format", spec.c_str(), nullptr, 0) < 0)
        throw Error::User("document path \"" + literal + "\" holds a colon, so \"" + spec +
                              "\" before it was read as a format specification",
                          "XD00U", "A literal is cut at its first colon: parameters, a colon, then the path.",
                          "Put a format before a path that holds a colon: format(ascii):" + literal);
}

}  // namespace

DocHeader filldtname(const std::string &literal) {
    size_t size = (literal.size() + 29 + 3) & ~size_t(3);
    if (size > 0xFFFF)
        ErrorRaiseVA("22T02", "TYPE%s", "doc", "STRING%s", literal.substr(0, 64) + "...",
                     "SYNTAX%s", "document name (at most 65000 characters)");
    DocHeader h;
    h.bytes.assign(size, '\0');
    SetVarSize(&h.bytes[0], (uint32_t)size);
    std::memcpy(&h.bytes[kDocHeaderSize], literal.data(), literal.size());
    size_t colon = literal.find(':');
    if (colon != std::string::npos) {
        h.bytes[kDocHeaderSize + colon] = '\0';
        PutU16(&h.bytes[0], 24, (uint16_t)(colon + 1));
        const char *spec = &h.bytes[kDocHeaderSize];
        CheckLiteralSpec(literal, spec);
        if (findparam("format", spec, nullptr, 0) < 0) ErrorRaise("XD00U");
    }
    return h;
}

bool DocHasSpec(const void *v) { return DocView(v).ht_nameoffset() != 0; }

std::string DocSpec(const void *v) {
    if (!DocHasSpec(v)) return kDefaultFormatSpec;
    return std::string(reinterpret_cast<const char *>(v) + kDocHeaderSize);
}

std::string DocPath(const void *v) {
    return std::string(reinterpret_cast<const char *>(v) + kDocHeaderSize +
                       DocView(v).ht_nameoffset());
}

namespace {
std::string Finish(DocHeader &h, const std::string &contents) {
    uint16_t hlen = (uint16_t)h.bytes.size();
    std::string v = h.bytes;
    v += contents;
    v += '\0';
    SetVarSize(&v[0], (uint32_t)v.size());
    PutU16(&v[0], 22, hlen);
    v[26] = 0;
    return v;
}
}  // namespace

std::string MakeSmallDocValue(DocHeader h, const std::string &text) {
    h.set_wordcnt(0);
    h.set_hashentries(0);
    h.set_offset(0);
    h.set_realoffset((int32_t)text.size());
    h.set_flags(0);
    return Finish(h, text);
}

int LOPadding(int32_t textlen, bool copytext) {
    if (!copytext) return 4;
    return textlen % 4 == 0 ? 0 : 4 - textlen % 4;
}

std::string MakeLODocValue(DocHeader h, const std::string &handle, int32_t textlen, bool copytext,
                           int32_t wordcnt, int32_t hashentries) {
    int32_t size = copytext ? textlen : 0;
    h.set_wordcnt(wordcnt);
    h.set_hashentries(hashentries);
    h.set_realoffset(size);
    h.set_offset(size + LOPadding(size, copytext));
    h.set_flags(copytext ? DOC_FLAG_LO : (DOC_FLAG_LO | DOC_FLAG_NOCOPY));
    return Finish(h, MakeVarText(handle));
}

std::string DocWithHandle(const void *v, const std::string &handle) {
    DocView d(v);
    DocHeader h;
    h.bytes.assign(static_cast<const char *>(v), d.ht_lo_offset());
    return Finish(h, MakeVarText(handle));
}

std::string MakeExternalDocValue(DocHeader h, const std::string &serverpath, int32_t filesize) {
    h.set_wordcnt(0);
    h.set_hashentries(0);
    h.set_realoffset(filesize);
    h.set_offset(0);
    h.set_flags(DOC_FLAG_LO);
    return Finish(h, MakeVarText(MakeExternalHandle(serverpath)));
}

const unsigned char *DocLOHandle(const void *v) {
    return static_cast<const unsigned char *>(v) + DocView(v).ht_lo_offset();
}

std::optional<std::string> DocLOHandleExternal(const void *v) {
    DocView d(v);
    if (!d.isLO()) return std::nullopt;
    const unsigned char *hp = DocLOHandle(v);
    uint32_t n = VarSize(hp);
    return std::string(reinterpret_cast<const char *>(hp) + 4, n >= 4 ? n - 4 : 0);
}

std::string DocSmallText(const void *v) {
    DocView d(v);
    return std::string(reinterpret_cast<const char *>(DocLOHandle(v)), d.ht_realoffset());
}

bool IsExternalHandle(const std::string &handle) { return !handle.empty() && handle[0] == 'E'; }

std::string ExternalHandlePath(const std::string &handle) {
    return handle.size() > 4 ? handle.substr(4) : std::string();
}

std::string MakeExternalHandle(const std::string &path) { return "EXT:" + path; }

std::string MakeOwnedHandle(uint32_t oid) { return std::to_string(oid); }

uint32_t OwnedHandleOid(const std::string &handle) {
    if (handle.empty() || handle.size() > 10) return 0;
    unsigned long long x = 0;
    for (char c : handle) {
        if (c < '0' || c > '9') return 0;
        x = x * 10 + (unsigned)(c - '0');
    }
    return x > 0xFFFFFFFFull ? 0 : (uint32_t)x;
}

std::string DocOutputText(const void *v) {
    std::string spec = DocSpec(v);
    std::string path = DocPath(v);
    if (auto handle = DocLOHandleExternal(v)) return spec + ",handle(" + *handle + "):" + path;
    return spec + ":" + path;
}

std::string DocStoredLiteral(const void *v) {
    DocView d(v);
    return "stored(" + channel::Base64Encode(v, d.ht_len()) + "):" + DocPath(v);
}

bool IsStoredLiteral(const std::string &literal) { return literal.compare(0, 7, "stored(") == 0; }

std::string DocFromStoredLiteral(const std::string &literal) {
    size_t close = literal.find(')');
    std::string bytes;
    if (!IsStoredLiteral(literal) || close == std::string::npos ||
        !channel::Base64Decode(literal.substr(7, close - 7), bytes))
        ErrorRaiseVA("22T02", "TYPE%s", "doc", "STRING%s", literal.substr(0, 40), "SYNTAX%s",
                     "stored document value");
    ValidateDocValue(bytes.data(), bytes.size());
    return bytes;
}

void ValidateDocValue(const void *v, size_t len) {
    auto bad = [](const char *what) {
        ErrorRaiseVA("TL001", "NAME%s", "Document value error", "OPERATION%s", what);
    };
    if (len < kDocHeaderSize + 2) bad("Check of value length");
    DocView d(v);
    if (d.ht_len() != len) bad("Check of ht_len");
    size_t lo = d.ht_lo_offset();
    if (lo < kDocHeaderSize + 1 || lo >= len) bad("Check of ht_lo_offset");
    const char *c = static_cast<const char *>(v);
    if (std::memchr(c + kDocHeaderSize, '\0', lo - kDocHeaderSize) == nullptr) bad("Check of strings area");
    if (d.ht_nameoffset() != 0) {
        size_t name = kDocHeaderSize + d.ht_nameoffset();
        if (name >= lo || std::memchr(c + name, '\0', lo - name) == nullptr) bad("Check of ht_nameoffset");
    }
    if (c[len - 1] != '\0') bad("Check of final NUL");
    if (d.ht_realoffset() < 0 || d.ht_offset() < 0 || d.ht_wordcnt() < 0 || d.ht_hashentries() < 0)
        bad("Check of counts");
    if (d.isLO()) {
        if (lo + 4 > len - 1 || VarSize(c + lo) < 5 || lo + VarSize(c + lo) != len - 1)
            bad("Check of large-object handle");
    } else if (lo + (size_t)d.ht_realoffset() + 1 != len) {
        bad("Check of in-row text length");
    }
}

}  // namespace dt
