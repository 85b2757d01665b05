#!/usr/bin/env python3
"""Checks a stored doc value (and its large object) byte by byte.

  doc_layout_check.py KIND LITERAL FILE VALUEHEX [LOHEX [TERMS]]

KIND is small, lo, nocopy or external; LITERAL the input literal; FILE the
client (or server) file the document was read from; VALUEHEX the hex of
dt_DocBytes(d); LOHEX the hex of lo_get(dt_LOOid(d)); TERMS the text of
IndexTerms(d), or "-" to skip that comparison.  A hex argument of the form
@PATH is read from that file.  Prints one line per failed check and exits 1 on failure.
"""
import struct
import sys

fails = []


def expect(cond, what):
    if not cond:
        fails.append(what)


def i32(b, off):
    return struct.unpack_from("<i", b, off)[0]


def u16(b, off):
    return struct.unpack_from("<H", b, off)[0]


def varsize(b, off):
    return struct.unpack_from("<I", b, off)[0] >> 2


def bucket(term):
    h = 0
    for c in term:
        c = c - 256 if c > 127 else c
        h = (h * 9 + c) & 0xFFFFFFFF
    return h % 97


def check_table(lo, off, wordcnt, entries, terms_text):
    expect(i32(lo, off) == 1, "dtab_version 1")
    expect(i32(lo, off + 4) == 97, "dtab_entries 97")
    expect(i32(lo, off + 8) == 12, "dtab_entry_size 12")
    strlen = i32(lo, off + 12)
    expect(i32(lo, off + 16) == 420, "dtab_len 420")
    heads = [i32(lo, off + 20 + 4 * i) for i in range(97)]
    ents = off + 408
    strs = ents + 12 * entries
    expect(len(lo) == strs + strlen, "large object ends with the string area (%d != %d)" % (len(lo), strs + strlen))
    area = lo[strs:strs + strlen]
    expect(strlen == 0 or area.endswith(b"\0"), "string area ends with NUL")
    got = {}
    seen = 0
    total = 0
    expected_off = 0
    for b in range(97):
        if heads[b] == -1:
            continue
        expect(heads[b] == seen, "bucket %d starts at entry %d (found %d)" % (b, seen, heads[b]))
        i = heads[b]
        while True:
            woff, cnt, nxt = struct.unpack_from("<iii", lo, ents + 12 * i)
            expect(woff == expected_off, "entry %d offset %d, expected %d" % (i, woff, expected_off))
            end = area.index(b"\0", woff)
            term = area[woff:end]
            expected_off = end + 1
            expect(bucket(term) == b, "term %r in bucket %d, hash says %d" % (term, b, bucket(term)))
            got[term.decode("latin-1")] = cnt
            total += cnt
            seen += 1
            i += 1
            if nxt == 0:
                break
    expect(seen == entries, "entries walked %d = ht_hashentries %d" % (seen, entries))
    expect(expected_off == strlen, "string area fully used")
    expect(total == wordcnt, "sum of counts %d = ht_wordcnt %d" % (total, wordcnt))
    if terms_text is not None:
        listed = {}
        for item in terms_text.split(" "):
            if item:
                w, c = item.rsplit(":", 1)
                listed[w] = int(c)
        expect(listed == got, "term table equals IndexTerms")


def main():
    kind, literal, path, vhex = sys.argv[1:5]
    lohex = sys.argv[5] if len(sys.argv) > 5 else ""
    terms = sys.argv[6] if len(sys.argv) > 6 else None
    # Long arguments come in files: @name.
    vhex, lohex = (open(a[1:]).read().strip() if a.startswith("@") else a for a in (vhex, lohex))
    if terms == "-":
        terms = None
    v = bytes.fromhex(vhex)
    text = open(path, "rb").read()
    expect(varsize(v, 0) == len(v), "ht_len %d = value length %d" % (varsize(v, 0), len(v)))
    wordcnt, entries, offset, realoffset = (i32(v, o) for o in (4, 8, 12, 16))
    flags = struct.unpack_from("<h", v, 20)[0]
    lo_off, nameoff, spare = u16(v, 22), u16(v, 24), v[26]
    hsize = (len(literal.encode()) + 29 + 3) // 4 * 4
    expect(lo_off == hsize, "ht_lo_offset %d = (literal + 29) rounded to 4 = %d" % (lo_off, hsize))
    expect(spare == 0, "ht_spare 0")
    lit = literal.encode()
    strings = v[27:hsize]
    if b":" in lit:
        colon = lit.index(b":")
        expect(nameoff == colon + 1, "ht_nameoffset %d = %d" % (nameoff, colon + 1))
        expect(strings[:colon] == lit[:colon] and strings[colon] == 0, "spec then NUL at byte 27")
        expect(strings[colon + 1:len(lit)] == lit[colon + 1:] and strings[len(lit)] == 0, "path then NUL")
    else:
        expect(nameoff == 0, "ht_nameoffset 0 without a spec")
        expect(strings[:len(lit)] == lit, "path at byte 27")
    expect(all(c == 0 for c in strings[len(lit) + 1:]), "strings area zero-filled")
    expect(v[-1] == 0, "value ends with NUL")
    contents = v[lo_off:-1]
    if kind == "small":
        expect(flags == 0, "small: ht_flags 0 (got %d)" % flags)
        expect(offset == 0 and wordcnt == 0 and entries == 0, "small: no table, counts 0")
        expect(realoffset == len(text), "small: ht_realoffset = file size")
        expect(contents == text, "small: in-row text equals the file")
        return
    hlen = varsize(contents, 0)
    expect(hlen == len(contents), "handle length word %d covers the contents %d" % (hlen, len(contents)))
    handle = contents[4:].decode()
    if kind == "external":
        expect(flags == 1, "external: ht_flags 1")
        expect(offset == 0 and wordcnt == 0 and entries == 0, "external: no table, counts 0")
        expect(realoffset == len(text), "external: ht_realoffset = file size")
        expect(handle[0] == "E", "external: handle begins with E")
        expect(handle[4:] == path, "external: server path from the handle's fifth character")
        return
    lo = bytes.fromhex(lohex)
    expect(handle[0] != "E" and handle.isdigit(), "owned handle is a number: %r" % handle)
    if kind == "lo":
        expect(flags == 1, "lo: ht_flags 1 (got %d)" % flags)
        expect(realoffset == len(text), "lo: ht_realoffset = file size")
        pad = (4 - len(text) % 4) % 4
        expect(offset == len(text) + pad, "lo: ht_offset = size rounded up to 4")
        expect(lo[:len(text)] == text, "lo: text as received")
        expect(lo[len(text):offset] == b"\n" * pad, "lo: %d newline bytes of padding" % pad)
    else:
        expect(flags == 3, "nocopy: ht_flags 3 (got %d)" % flags)
        expect(realoffset == 0 and offset == 4, "nocopy: ht_realoffset 0, ht_offset 4")
        expect(lo[:4] == b"\n\n\n\n", "nocopy: four newline bytes first")
    check_table(lo, offset, wordcnt, entries, terms)


main()
for f in fails:
    print("layout:", f)
sys.exit(1 if fails else 0)
