// The bodies of the fuzz targets, shared by the libFuzzer programs
// (tests/fuzz/*_fuzz.cc, built with clang and sanitizers on request) and by
// the short random runs of the unit tests (tests/unit/fuzz_short_test.cc).
//
// Each target takes arbitrary bytes, feeds them to one parser of user text
// and checks what must hold for every input: the parser either succeeds or
// raises dt::Error, and what it returns is consistent.  A broken invariant
// calls dtfuzz::Fail, which aborts (libFuzzer reports the input) unless a
// test installed its own handler.
#pragma once

#include <algorithm>
#include <cctype>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <string>
#include <vector>

#include "../../client/splitter.h"
#include "clientproto.h"
#include "commandline.h"
#include "docdesc.h"
#include "doclayout.h"
#include "error.h"
#include "exprtree.h"
#include "formatspec.h"
#include "postingcodec.h"
#include "queryeval.h"
#include "queryoptions.h"
#include "queryprint.h"
#include "termtable.h"
#include "tokenizer.h"
#include "wordhash.h"

namespace dtfuzz {

using FailHandler = void (*)(const char *what, const char *file, int line);
inline FailHandler &FailHook() {
    static FailHandler h = nullptr;
    return h;
}

[[noreturn]] inline void Fail(const char *what, const char *file, int line) {
    if (FailHook()) FailHook()(what, file, line);
    std::fprintf(stderr, "%s:%d: invariant broken: %s\n", file, line, what);
    std::abort();
}

#define FUZZ_CHECK(cond) \
    do {                 \
        if (!(cond)) ::dtfuzz::Fail(#cond, __FILE__, __LINE__); \
    } while (0)

// A copy of bytes in a heap block of exactly that size (plus a NUL when
// asked), so that a sanitizer sees any read or write past the end.
struct Exact {
    std::unique_ptr<char[]> p;
    size_t n;
    Exact(const void *data, size_t size, bool nul) : p(new char[size + (nul ? 1 : 0)]), n(size) {
        if (size) std::memcpy(p.get(), data, size);
        if (nul) p[size] = '\0';
    }
    char *get() { return p.get(); }
};

// Splits an input into parts at the byte 0x01 (a separator the fuzzer
// learns quickly); at most `parts` parts, the last one takes the rest.
inline std::vector<std::string> SplitInput(const uint8_t *data, size_t size, size_t parts) {
    std::vector<std::string> out(1);
    for (size_t i = 0; i < size; i++) {
        if (data[i] == 0x01 && out.size() < parts)
            out.emplace_back();
        else
            out.back() += (char)data[i];
    }
    out.resize(parts);
    return out;
}

// C text: the bytes up to the first NUL, as the server hands text over.
inline std::string CText(const std::string &s) { return std::string(s.c_str()); }

// Edits applied to bytes: each 4 input bytes are an offset (2 bytes), a
// value and an operation (set, xor, insert, erase).
inline void ApplyEdits(std::string &b, const std::string &edits) {
    for (size_t i = 0; i + 4 <= edits.size() && !b.empty(); i += 4) {
        size_t off = ((unsigned char)edits[i] << 8 | (unsigned char)edits[i + 1]) % b.size();
        char v = edits[i + 2];
        switch ((unsigned char)edits[i + 3] % 4) {
            case 0: b[off] = v; break;
            case 1: b[off] ^= v; break;
            case 2: b.insert(b.begin() + off, v); break;
            default: b.erase(off, 1); break;
        }
    }
}

// ---- format specifications ---------------------------------------------------
// findparam over any list with buffers of every size; deleteparam on a list
// of exactly its own size.
inline void FormatSpec(const uint8_t *data, size_t size) {
    std::vector<std::string> in = SplitInput(data, size, 2);
    std::string param = CText(in[0]), list = CText(in[1]);
    int full = -2;
    for (int bufsize : {0, 1, 2, 5, 64, (int)list.size() + 1}) {
        std::unique_ptr<char[]> rb(bufsize > 0 ? new char[bufsize] : nullptr);
        Exact l(list.data(), list.size(), true);
        int r = dt::findparam(param.c_str(), l.get(), rb.get(), bufsize);
        FUZZ_CHECK(r >= -1);
        FUZZ_CHECK(std::strcmp(l.get(), list.c_str()) == 0);  // the list is only read
        if (r > 0) {
            FUZZ_CHECK(bufsize > 0 && r < bufsize);
            FUZZ_CHECK(std::strlen(rb.get()) == (size_t)r);
        }
        if (bufsize == (int)list.size() + 1) full = r;
    }
    std::optional<std::string> v = dt::FindParamValue(param, list);
    FUZZ_CHECK(v.has_value() == (full >= 0));
    if (v) FUZZ_CHECK(v->size() == (size_t)full);

    Exact l(list.data(), list.size(), true);
    int d = dt::deleteparam(param.c_str(), l.get());
    FUZZ_CHECK(d == 0 || d == 1);
    size_t after = std::strlen(l.get());
    FUZZ_CHECK(after <= list.size());
    if (d == 0) FUZZ_CHECK(std::strcmp(l.get(), list.c_str()) == 0);  // unchanged when refused
    // The result is still a C text that the readers take.
    dt::findparam(param.c_str(), l.get(), nullptr, 0);
    dt::SpecParams(list);
    dt::SpecPath(list);
}

// ---- doc literals and values ---------------------------------------------------
// The header of any literal; the completed value of each kind validates and
// reads back the literal's specification and path.
inline void DocLiteral(const uint8_t *data, size_t size) {
    std::vector<std::string> in = SplitInput(data, size, 2);
    std::string literal = CText(in[0]);
    dt::DocHeader h;
    try {
        h = dt::filldtname(literal);
    } catch (const dt::Error &) {
        return;
    }
    FUZZ_CHECK(h.bytes.size() % 4 == 0);
    FUZZ_CHECK(h.bytes.size() >= literal.size() + 29);
    FUZZ_CHECK(dt::VarSize(h.bytes.data()) == h.bytes.size());
    size_t colon = literal.find(':');
    std::string spec = colon == std::string::npos ? "format(ascii)" : literal.substr(0, colon);
    std::string path = colon == std::string::npos ? literal : literal.substr(colon + 1);
    std::string text = in[1].substr(0, 2048);
    std::vector<std::string> values = {
        dt::MakeSmallDocValue(h, text),
        dt::MakeLODocValue(h, "12345", (int32_t)text.size(), true, 3, 2),
        dt::MakeLODocValue(h, "12345", (int32_t)text.size(), false, 3, 2),
        dt::MakeExternalDocValue(h, "/srv/" + CText(text), (int32_t)text.size()),
    };
    for (const std::string &v : values) {
        Exact e(v.data(), v.size(), false);
        dt::ValidateDocValue(e.get(), e.n);  // raises on a value it made itself: a bug
        FUZZ_CHECK(dt::DocSpec(e.get()) == spec);
        FUZZ_CHECK(dt::DocPath(e.get()) == path);
        std::string out = dt::DocOutputText(e.get());
        FUZZ_CHECK(out.size() >= spec.size() + 1 + path.size());
    }
    Exact small(values[0].data(), values[0].size(), false);
    FUZZ_CHECK(dt::DocSmallText(small.get()) == text);
    Exact lo(values[1].data(), values[1].size(), false);
    FUZZ_CHECK(dt::DocLOHandleExternal(lo.get()).value_or("") == "12345");
}

// ValidateDocValue guards every doc argument: any bytes either raise or
// give a value whose every accessor stays inside it.
inline void CheckDocValue(const uint8_t *data, size_t size);
// The first byte chooses the form: even, the bytes are the value; odd, a
// real value of one of the four kinds from a literal and a text, with edits
// of its bytes (parts separated by 0x01).
inline void DocValue(const uint8_t *data, size_t size) {
    if (size < 1) return;
    if ((data[0] & 1) == 0) return CheckDocValue(data + 1, size - 1);
    std::vector<std::string> in = SplitInput(data + 1, size - 1, 3);
    dt::DocHeader h;
    try {
        h = dt::filldtname(CText(in[0]));
    } catch (const dt::Error &) {
        return;
    }
    std::string text = in[1].substr(0, 2048), v;
    switch ((data[0] >> 1) % 4) {
        case 0: v = dt::MakeSmallDocValue(h, text); break;
        case 1: v = dt::MakeLODocValue(h, CText(text), 100, true, 3, 2); break;
        case 2: v = dt::MakeLODocValue(h, CText(text), 100, false, 3, 2); break;
        default: v = dt::MakeExternalDocValue(h, CText(text), 7); break;
    }
    ApplyEdits(v, in[2]);
    CheckDocValue(reinterpret_cast<const uint8_t *>(v.data()), v.size());
}

inline void CheckDocValue(const uint8_t *data, size_t size) {
    Exact v(data, size, false);
    try {
        dt::ValidateDocValue(v.get(), v.n);
    } catch (const dt::Error &e) {
        FUZZ_CHECK(e.code() == "TL001");
        return;
    }
    dt::DocView d(v.get());
    FUZZ_CHECK(d.ht_len() == size);
    std::string spec = dt::DocSpec(v.get());
    std::string path = dt::DocPath(v.get());
    FUZZ_CHECK(spec.size() < size && path.size() < size);
    dt::DocOutputText(v.get());
    dt::DocHasSpec(v.get());
    if (auto h = dt::DocLOHandleExternal(v.get())) {
        FUZZ_CHECK(h->size() < size);
        dt::OwnedHandleOid(*h);
        if (dt::IsExternalHandle(*h)) dt::ExternalHandlePath(*h);
    } else {
        FUZZ_CHECK((size_t)d.ht_realoffset() < size);
        FUZZ_CHECK(dt::DocSmallText(v.get()).size() == (size_t)d.ht_realoffset());
    }
}

// ---- stored term tables --------------------------------------------------------
// Reads one table: the head is exactly 408 + 12 n bytes of `bytes` (zeros
// when they run short), the rest is the string area.  A table that reads
// must be a consistent word hash; written back, it reads again to the same
// terms and counts.
inline void CheckTermTable(const std::string &bytes, int n) {
    size_t headlen = dt::kTermTableHeaderSize + (size_t)std::max(n, 0) * dt::kWrdEntrySize;
    std::string head(headlen, '\0');
    size_t take = std::min(bytes.size(), headlen);
    std::memcpy(&head[0], bytes.data(), take);
    Exact h(head.data(), head.size(), false);
    Exact s(bytes.data() + take, bytes.size() - take, false);
    dt::WordHash out;
    try {
        dt::ReadTermTable(h.get(), n, s.get(), s.n, out);
    } catch (const dt::Error &e) {
        FUZZ_CHECK(e.code() == "TL001");
        return;
    }
    FUZZ_CHECK(out.hashentries == n);
    int strl = 0;
    for (int b = 0; b < dt::kHashBuckets; b++)
        for (dt::DtWordHash *e = out.heads[b]; e; e = e->hashw_next) {
            FUZZ_CHECK(dt::_dt_HashTextVal(e->hashw_word) == b);
            FUZZ_CHECK(e->hashw_cnt >= 1);
            strl += (int)e->hashw_word.size() + 1;
        }
    FUZZ_CHECK(strl == out.strlen);
    dt::TermTableBytes t = dt::WriteTermTable(out);
    dt::WordHash again;
    dt::ReadTermTable(t.head.data(), out.hashentries, t.strings.data(), t.strings.size(), again);
    FUZZ_CHECK(again.hashentries == out.hashentries && again.strlen == out.strlen);
    for (int b = 0; b < dt::kHashBuckets; b++)
        for (dt::DtWordHash *e = out.heads[b]; e; e = e->hashw_next) {
            dt::DtWordHash *f = dt::WordHashFind(again, e->hashw_word.data(), e->hashw_word.size());
            FUZZ_CHECK(f && f->hashw_cnt == e->hashw_cnt);
        }
}

// The first byte chooses the form of the input.  Even: raw bytes, the next
// 2 bytes give the entry count (some negative).  Odd: a real table of the
// words before the first 0x01 (its count changed by the second byte), then
// edits of its bytes.
inline void TermTable(const uint8_t *data, size_t size) {
    if (size < 3) return;
    if ((data[0] & 1) == 0) {
        int n = (int)(((unsigned)data[1] << 8 | data[2]) % 700) - 20;
        CheckTermTable(std::string(reinterpret_cast<const char *>(data + 3), size - 3), n);
        return;
    }
    int delta = (int)(int8_t)data[1] % 3;
    std::vector<std::string> in = SplitInput(data + 2, size - 2, 2);
    dt::WordHash h;
    int index = 0;
    std::string words = CText(in[0]);
    try {
        for (;;) {
            const char *w = dt::_dt_WordFromString(words.c_str(), &index);
            if (!*w) break;
            dt::_dt_AddWordToHash(w, h);
        }
    } catch (const dt::Error &) {
        return;
    }
    dt::TermTableBytes t = dt::WriteTermTable(h);
    std::string bytes = t.head + t.strings;
    ApplyEdits(bytes, in[1]);
    CheckTermTable(bytes, h.hashentries + delta);
}

// ---- the tokenizer and the document buffer ---------------------------------------
inline bool IsWordChar(char c) { return std::isalnum((unsigned char)c) || c == '_'; }

// Every token of any text is a word, "(", ")" or "!", taken from the text
// in order; the index only moves forward and stops at the end.
inline void Tokenizer(const uint8_t *data, size_t size) {
    Exact t(data, size, true);
    size_t len = std::strlen(t.get());
    int index = 0;
    for (size_t steps = 0;; steps++) {
        FUZZ_CHECK(steps <= len + 1);
        int before = index;
        char *w;
        try {
            w = dt::_dt_WordFromString(t.get(), &index);
        } catch (const dt::Error &e) {
            FUZZ_CHECK(e.code() == "XD00L");
            return;
        }
        FUZZ_CHECK(index >= before && (size_t)index <= len);
        size_t wl = std::strlen(w);
        if (wl == 0) {
            FUZZ_CHECK((size_t)index == len);
            break;
        }
        FUZZ_CHECK(index > before);
        FUZZ_CHECK(std::memcmp(t.get() + index - wl, w, wl) == 0);
        if (wl == 1 && (w[0] == '(' || w[0] == ')' || w[0] == '!')) continue;
        FUZZ_CHECK(wl <= (size_t)dt::kMaxWordLen);
        FUZZ_CHECK(std::isalpha((unsigned char)w[0]));
        for (size_t i = 0; i < wl; i++) FUZZ_CHECK(IsWordChar(w[i]));
        FUZZ_CHECK(!IsWordChar(t.get()[index]));
    }
}

// The terms of a document read through its 2048-byte buffer: the same
// whether the source hands over its bytes all at once or a few at a time,
// each one a lower-case word of the text, and the counts add up.  The first
// byte chooses the chunk size of the second reading.
inline std::vector<std::string> ReadDocTerms(const std::string &text, size_t chunk, dt::DocDesc &doc,
                                             const dt::StemHooks &hooks) {
    auto pos = std::make_shared<size_t>(0);
    dt::DocSource src;
    src.read = [pos, &text, chunk](char *buf, int want) {
        size_t n = std::min({(size_t)want, chunk, text.size() - *pos});
        std::memcpy(buf, text.data() + *pos, n);
        *pos += n;
        return (int)n;
    };
    src.close = [] {};
    src.name = "fuzz";
    src.fd = 7;
    doc.doc_stem = &hooks;
    dt::_dt_InitDocDesc(doc, nullptr, dt::LODocType, 0, src);
    std::vector<std::string> terms;
    while (const char *t = dt::_dt_GetWordFromDoc(doc)) {
        terms.push_back(t);
        dt::_dt_AddWordToHash(t, doc);
    }
    FUZZ_CHECK(doc.doc_fd == -1);  // closed at the end
    return terms;
}

inline void DocBuffer(const uint8_t *data, size_t size) {
    if (size < 1) return;
    size_t chunk = 1 + data[0] % 64;
    std::string text(reinterpret_cast<const char *>(data + 1), size - 1);
    dt::StemHooks hooks;
    hooks.isStopWord = [](const char *w) { return std::strcmp(w, "the") == 0; };
    hooks.stemWord = [](const char *w, std::string &stem) {
        stem = w;
        if (stem.size() > 3 && stem.back() == 's') stem.pop_back();
        return true;
    };
    std::string lower = text;
    for (char &c : lower) c = (char)std::tolower((unsigned char)c);
    std::vector<std::string> a, b;
    dt::DocDesc d1, d2;
    try {
        a = ReadDocTerms(text, text.size() + 1, d1, hooks);
        b = ReadDocTerms(text, chunk, d2, hooks);
    } catch (const dt::Error &e) {
        FUZZ_CHECK(e.code() == "XD00L");
        return;
    }
    FUZZ_CHECK(a == b);
    FUZZ_CHECK(d1.doc_wordcnt() == (int)a.size());
    for (const std::string &t : a) {
        FUZZ_CHECK(!t.empty());
        FUZZ_CHECK(lower.find(t) != std::string::npos);
        for (char c : t) FUZZ_CHECK(!std::isupper((unsigned char)c));
    }
    // In-memory text of at most one buffer.
    std::string small = text.substr(0, dt::kDocBufSize);
    dt::DocDesc d4;
    d4.doc_stem = &hooks;
    try {
        dt::_dt_InitDocDesc(d4, small.data(), dt::SmallDocType, (int)small.size());
        while (const char *t = dt::_dt_GetWordFromDoc(d4)) {
            std::string w = t;
            FUZZ_CHECK(!w.empty());
            dt::_dt_AddWordToHash(t, d4);
        }
    } catch (const dt::Error &e) {
        FUZZ_CHECK(e.code() == "XD00L");
    }
}

// ---- queries, word lists and their options ----------------------------------------
inline void Query(const uint8_t *data, size_t size) {
    std::string s(reinterpret_cast<const char *>(data), size);
    s = CText(s);
    dt::QueryStemmer stemmer;
    stemmer.stemWord = [](const std::string &w, bool *isStop) {
        if (w == "the" || w == "of") *isStop = true;
        if (w.size() > 3 && w.back() == 's') return w.substr(0, w.size() - 1);
        return w;
    };
    stemmer.isStopWord = [](const std::string &w) { return w == "the" || w == "of"; };
    dt::DocTermSource doc;
    doc.isWordInDoc = [](const std::string &w) { return w.size() % 2 == 0; };
    for (int which = 0; which < 2; which++) {
        dt::ExprArena arena;
        try {
            dt::DocExprNode *t = which == 0 ? dt::ContainsQuery(arena, stemmer, s.c_str())
                                            : dt::ContainsWordsQuery(arena, stemmer, s.c_str());
            dt::ExprTreeText(t);
            dt::QueryMatches(t, doc);
        } catch (const dt::Error &) {
        }
    }
    int tupcnt = -1;
    float percent = 0;
    const char *rest = dt::_dt_GetTupcntPercent(s.c_str(), &tupcnt, &percent);
    FUZZ_CHECK(rest >= s.c_str() && rest <= s.c_str() + s.size());
}

// ---- command formats ----------------------------------------------------------------
inline void Command(const uint8_t *data, size_t size) {
    std::vector<std::string> in = SplitInput(data, size, 2);
    try {
        std::vector<std::string> argv = dt::SplitCommand(in[0], in[1]);
        FUZZ_CHECK(!argv.empty());
    } catch (const dt::Error &e) {
        FUZZ_CHECK(e.code() == "22T02");
    }
}

// ---- docsql's statement splitter --------------------------------------------------
// Statements come from the input in order, each one a piece of it, and
// their lines are lines of the input.
inline void Splitter(const uint8_t *data, size_t size) {
    std::string in(reinterpret_cast<const char *>(data), size);
    std::vector<docsql::Statement> st = docsql::SplitStatements(in);
    int lines = 1 + (int)std::count(in.begin(), in.end(), '\n');
    size_t from = 0;
    int lastLine = 1;
    for (const docsql::Statement &s : st) {
        FUZZ_CHECK(!s.text.empty());
        size_t at = in.find(s.text, from);
        FUZZ_CHECK(at != std::string::npos);
        from = at + s.text.size();
        FUZZ_CHECK(s.line >= lastLine && s.line <= lines);
        lastLine = s.line;
    }
    FUZZ_CHECK(st.size() <= in.size());
}

// ---- the channel's base64 -----------------------------------------------------------
// Encoding any bytes decodes back to them; a text that decodes is the
// encoding of what it decodes to (one text per data).
inline void Base64(const uint8_t *data, size_t size) {
    std::string text(reinterpret_cast<const char *>(data), size);
    std::string out;
    if (dt::channel::Base64Decode(text, out)) {
        FUZZ_CHECK(out.size() == text.size() / 4 * 3 - (text.size() && text.back() == '=' ? 1 : 0) -
                                     (text.size() > 1 && text[text.size() - 2] == '=' ? 1 : 0));
        FUZZ_CHECK(dt::channel::Base64Encode(out.data(), out.size()) == text);
    }
    std::string enc = dt::channel::Base64Encode(data, size);
    FUZZ_CHECK(enc.size() == (size + 2) / 3 * 4);
    std::string back;
    FUZZ_CHECK(dt::channel::Base64Decode(enc, back));
    FUZZ_CHECK(back == text);
}

// Posting lists of the dtree index: the first byte is how many postings to
// ask for, the rest the coded bytes.  Decoding either fails or gives
// postings in row order whose coding is exactly the bytes it consumed.
// Decoding the rows alone, and passing the postings below a row, stay
// within the bytes whatever they are, and agree with a full decoding that
// succeeds.
inline void PostingList(const uint8_t *data, size_t size) {
    if (size == 0) return;
    size_t n = data[0];
    Exact in(data + 1, size - 1, false);
    std::vector<dt::Posting> out(n + 1);
    const unsigned char *bytes = reinterpret_cast<const unsigned char *>(in.p.get());
    std::vector<uint64_t> rows(n + 1);
    size_t rused = dt::DecodeRows(bytes, size - 1, 0, rows.data(), n);
    uint64_t want = size > 1 ? (uint64_t(data[size - 1]) << 20) : 0;
    uint64_t prev = 0;
    size_t skipped = 0;
    size_t sused = dt::SkipPostingsBelow(bytes, size - 1, &prev, want, n, &skipped);
    size_t used = dt::DecodePostings(bytes, size - 1, 0, out.data(), n);
    if (used == SIZE_MAX) return;
    FUZZ_CHECK(rused == used);
    for (size_t i = 0; i < n; i++) FUZZ_CHECK(rows[i] == out[i].tid);
    size_t first = 0;
    while (first < n && out[first].tid < want) first++;
    FUZZ_CHECK(sused != SIZE_MAX && skipped == first && (first == 0 || prev == out[first - 1].tid));
    if (n == 0) return;
    // Up to a row the list holds: the skip stops at its first posting.
    want = out[data[size - 1] % n].tid;
    prev = 0;
    FUZZ_CHECK(dt::SkipPostingsBelow(bytes, size - 1, &prev, want, n, &skipped) != SIZE_MAX);
    first = 0;
    while (first < n && out[first].tid < want) first++;
    FUZZ_CHECK(skipped == first && out[skipped].tid == want);
    FUZZ_CHECK(used <= size - 1);
    for (size_t i = 1; i < n; i++) FUZZ_CHECK(out[i - 1].tid <= out[i].tid);
    for (size_t i = 0; i < n; i++) FUZZ_CHECK(out[i].tid < (uint64_t(1) << 48));
    size_t need = dt::EncodedSize(out.data(), n, 0);
    std::vector<unsigned char> re(need + 1);
    FUZZ_CHECK(dt::EncodePostings(out.data(), n, 0, re.data(), need) == need);
    // Varbytes with needless zero continuation bytes decode too; the
    // canonical coding is never longer.
    FUZZ_CHECK(need <= used);
    std::vector<dt::Posting> back(n + 1);
    FUZZ_CHECK(dt::DecodePostings(re.data(), need, 0, back.data(), n) == need);
    for (size_t i = 0; i < n; i++)
        FUZZ_CHECK(back[i].tid == out[i].tid && back[i].count == out[i].count && back[i].wordcnt == out[i].wordcnt);
}

}  // namespace dtfuzz
