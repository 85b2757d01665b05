#!/usr/bin/env python3
"""Checks the C++/server boundary rules that a compiler cannot.

  pg/     Arguments are read only through the argument helpers of
          pg/server/boundary.h: no PG_GETARG_* outside pg/server/boundary.cc.  A value is
          detoasted (PG_DETOAST_DATUM, pg_detoast_datum*, DatumGet...P[P],
          text_to_cstring, TextDatumGetCString) only inside a ServerCall (or
          OwnedCall) callable, or in a function marked with the comment
          "// Runs inside ServerCall." on the line before it, written in C
          style for callers that hold no C++ objects.
          Every fmgr entry point (a function defined with PG_FUNCTION_ARGS)
          runs its body through Guard: its body is "return ...Guard(...)".
  core/   No file includes a server header, nor a header of pg/.
  Layout  (pg/ and core/) The include arrows between files make no circle:
          a header and the source file of the same name in one folder are
          one unit, and no unit reaches itself again through the headers it
          includes.  In pg/ a file includes headers of its own concern, of
          a concern below it (CONCERN_RANK) or of core/; the SQL surface
          (files named *_sql.cc) and the module's set-up (SET_UP) sit above
          every concern.  No file is longer than MAX_FILE_LINES lines and no
          function longer than MAX_FUNCTION_LINES lines, except the ones
          named in LONG_FILES and LONG_FUNCTIONS.

Prints each finding as FILE:LINE: reason, and exits 1 if there is any.
With --core only core/ is checked (the build runs that before compiling
the core).  With --self-test the check runs on a small tree of known good
and bad files and fails unless it finds exactly the bad ones.
"""
import os
import re
import sys

ROOT = os.path.abspath(os.path.join(os.path.dirname(__file__), ".."))

RAW_ARG = re.compile(r"\bPG_GETARG_\w+")
DETOAST = re.compile(
    r"\b(PG_DETOAST_DATUM\w*|pg_detoast_datum\w*|DatumGet[A-Za-z]+?PP?|text_to_cstring|TextDatumGetCString)\s*\(")
ENTRY = re.compile(r"^[ \t]*(?:extern\s+\"[^\"\n]*\"\s+)?Datum\s+(\w+)\s*\(\s*PG_FUNCTION_ARGS\s*\)\s*\{", re.M)
GUARDED = re.compile(r"\s*return\s+(?:dt::pg::|::dt::pg::)?Guard\s*\(")
CALLERS = re.compile(r"\b(ServerCall|OwnedCall)\s*\(")
MARK = "// Runs inside ServerCall."
SERVER_HEADER = re.compile(
    r'^\s*#\s*include\s*[<"]((postgres|postgres_ext|fmgr|funcapi|miscadmin|c|pg_config\w*|port|libpq-fe)\.h|'
    r'(access|catalog|commands|executor|nodes|optimizer|parser|storage|utils|libpq|lib|mb|common|tcop|'
    r'replication|postmaster|rewrite|port|catalog|tsearch|foreign|jit|partitioning|statistics)/[^>"]+)[>"]')


def blank_comments_and_strings(src):
    """The source with comments, strings and character literals blanked
    (newlines kept, so offsets and line numbers stay)."""
    out = []
    i, n = 0, len(src)
    while i < n:
        c = src[i]
        if src.startswith("//", i):
            j = src.find("\n", i)
            j = n if j < 0 else j
            out.append(" " * (j - i))
            i = j
        elif src.startswith("/*", i):
            j = src.find("*/", i + 2)
            j = n if j < 0 else j + 2
            out.append(re.sub(r"[^\n]", " ", src[i:j]))
            i = j
        elif c in "\"'":
            j = i + 1
            while j < n and src[j] != c:
                j += 2 if src[j] == "\\" else 1
            j = min(j + 1, n)
            out.append(c + re.sub(r"[^\n]", " ", src[i + 1:j - 1]) + (c if j - 1 > i else ""))
            i = j
        else:
            out.append(c)
            i += 1
    return "".join(out)


def matching(code, open_pos, opener, closer):
    depth = 0
    for k in range(open_pos, len(code)):
        if code[k] == opener:
            depth += 1
        elif code[k] == closer:
            depth -= 1
            if depth == 0:
                return k
    return len(code)


def safe_ranges(src, code):
    ranges = []
    for m in CALLERS.finditer(code):
        start = m.end() - 1
        ranges.append((start, matching(code, start, "(", ")")))
    # Functions marked as running inside ServerCall: from the mark to the
    # end of the body that follows it.
    pos = src.find(MARK)
    while pos >= 0:
        brace = code.find("{", pos)
        if brace >= 0:
            ranges.append((pos, matching(code, brace, "{", "}")))
        pos = src.find(MARK, pos + 1)
    return ranges


def line_of(src, pos):
    return src.count("\n", 0, pos) + 1


def check_pg(path, rel, findings):
    src = open(path, encoding="utf-8", errors="replace").read()
    code = blank_comments_and_strings(src)
    if rel in ("pg/server/boundary.cc", "pg/server/boundary.h"):
        return
    for m in RAW_ARG.finditer(code):
        findings.append("%s:%d: %s: read arguments with the helpers of pg/server/boundary.h"
                        % (rel, line_of(src, m.start()), m.group(0)))
    for m in ENTRY.finditer(code):
        if not GUARDED.match(code, m.end()):
            findings.append("%s:%d: %s: an fmgr entry point runs its body through dt::pg::Guard"
                            % (rel, line_of(src, m.start()), m.group(1)))
    ranges = safe_ranges(src, code)
    for m in DETOAST.finditer(code):
        if any(a <= m.start() <= b for a, b in ranges):
            continue
        findings.append("%s:%d: %s outside ServerCall: detoast inside ServerCall (or use TextDatumString, "
                        "VarlenaArg, DocFromDatum)" % (rel, line_of(src, m.start()), m.group(1)))


def check_core(path, rel, findings):
    for no, line in enumerate(open(path, encoding="utf-8", errors="replace"), 1):
        m = SERVER_HEADER.match(line)
        if m:
            findings.append("%s:%d: core includes the server header %s" % (rel, no, m.group(1)))


# ---- layout: concerns, circles, lengths -------------------------------------

# The concerns of pg/, lowest first.  A file may include the headers of its
# own concern and of a concern of a lower rank; concerns of one rank do not
# include each other.  core/ is below all of them.
CONCERN_RANK = {
    "server": 0,       # set-up, argument readers, error boundary, temp files, programs
    "text": 1,         # the database's word charset, the thesaurus, text functions
    "channel": 1,      # files between the client and the server
    "conversion": 1,   # formats, conversion paths, filters
    "documents": 2,    # doc values, their storage and large objects, statistics
    "queries": 3,      # search expressions and their evaluation on documents
    "dtree": 4,        # the index access method, its estimates and ranking
}
# The module's set-up calls every concern's initialiser.
SET_UP = {"pg/server/module.cc"}
MAX_FILE_LINES = 600
MAX_FUNCTION_LINES = 80
# Files and functions longer than the limits: each is to be split by what
# its code does (the list only shrinks).
LONG_FILES = {
    "pg/dtree/dtree_evaluate.cc",
}
LONG_FUNCTIONS = {
    "core/childprocess.cc:RunChild",
    "core/pstext.cc:dviparse",
    "pg/dtree/dtree_check.cc:DtCheckIndexC",
    "pg/queries/query_sql.cc:pgdoc_dt_search_support",
}
# Circles of units that are still to be broken, each as the sorted list of
# its units.  Large objects are written with raised rights (loownership.cc),
# and a module-owned large object is copied with the reading and writing
# of largeobject.cc.
KNOWN_CIRCLES = {
    ("pg/documents/largeobject", "pg/documents/loownership"),
}

INCLUDE = re.compile(r'^[ \t]*#[ \t]*include[ \t]*"([^"]+)"', re.M)
FUNCTION_HEAD = re.compile(r"([~\w:]+|operator\s*\S+?)\s*\(")
NOT_FUNCTION = re.compile(r"(^|[^\w])(namespace|extern|class|struct|union|enum)([^\w]|$)|=\s*$")


def concern_of(rel):
    parts = rel.split("/")
    return parts[1] if parts[0] == "pg" and len(parts) > 2 else None


def unit_of(rel):
    return os.path.splitext(rel)[0]


def function_spans(code):
    """(name, first line, last line) of each function body in code (comments
    and strings blanked): a brace block whose head ends in a parameter list
    (with qualifiers, a trailing return type or member initialisers after it).
    Namespaces, extern "C" and class bodies are looked into, other blocks
    (initialisers, enums) skipped."""
    spans = []
    i, n, head_start = 0, len(code), 0
    while i < n:
        c = code[i]
        if c in ";}":
            head_start = i + 1
        elif c == "{":
            head = code[head_start:i]
            close = matching(code, i, "{", "}")
            flat = " ".join(head.split())
            if NOT_FUNCTION.search(flat) or ")" not in flat:
                if re.search(r"(^|[^\w])(namespace|extern|class|struct|union)([^\w]|$)", flat) and "=" not in flat:
                    head_start = i + 1      # look inside
                else:
                    i = close
                    head_start = close + 1
                i += 1
                continue
            m = FUNCTION_HEAD.search(flat)
            name = m.group(1) if m else "?"
            first = code.count("\n", 0, head_start + len(head) - len(head.lstrip())) + 1
            spans.append((name, first, code.count("\n", 0, close) + 1))
            i = close
            head_start = close + 1
        i += 1
    return spans


def check_layout(root, findings):
    files = {}
    for sub in ("pg", "core"):
        for d, dirs, names in os.walk(os.path.join(root, sub)):
            dirs.sort()
            for name in sorted(names):
                if name.endswith((".cc", ".h", ".c")):
                    path = os.path.join(d, name)
                    files[os.path.relpath(path, root)] = open(path, encoding="utf-8", errors="replace").read()
    by_name = {}
    for rel in files:
        by_name.setdefault((rel.split("/")[0], os.path.basename(rel)), []).append(rel)

    def resolve(rel, inc):
        near = os.path.normpath(os.path.join(os.path.dirname(rel), inc))
        if near in files:
            return near
        top = rel.split("/")[0]
        for area in ([top, "core"] if top == "pg" else [top]):
            found = by_name.get((area, os.path.basename(inc)))
            if found and len(found) == 1:
                return found[0]
        return None

    arrows = {}
    for rel, src in sorted(files.items()):
        unit = unit_of(rel)
        arrows.setdefault(unit, set())
        code = blank_comments_and_strings(src)
        for m in INCLUDE.finditer(src):
            if code[m.start():m.end()].strip() == "":
                continue
            target = resolve(rel, m.group(1))
            if target is None:
                if rel.startswith("core/") and (rel.split("/")[0], os.path.basename(m.group(1))) not in by_name:
                    pg_names = [r for (a, b), r in by_name.items() if a == "pg" and b == os.path.basename(m.group(1))]
                    if pg_names:
                        findings.append("%s:%d: core includes the pg header %s" % (rel, line_of(src, m.start()), m.group(1)))
                continue
            tunit = unit_of(target)
            if tunit != unit and rel not in SET_UP:
                arrows[unit].add(tunit)
            a, b = concern_of(rel), concern_of(target)
            if a and b and a != b and rel not in SET_UP and not rel.endswith("_sql.cc"):
                if a not in CONCERN_RANK or b not in CONCERN_RANK:
                    findings.append("%s:%d: pg/%s is not a known concern (CONCERN_RANK)" % (
                        rel, line_of(src, m.start()), a if a not in CONCERN_RANK else b))
                elif CONCERN_RANK[b] >= CONCERN_RANK[a]:
                    findings.append("%s:%d: %s includes %s of pg/%s, which is not below pg/%s" % (
                        rel, line_of(src, m.start()), a, target, b, a))
        if rel.startswith("pg/") or rel.startswith("core/"):
            lines = src.count("\n") + (0 if src.endswith("\n") or not src else 1)
            if lines > MAX_FILE_LINES and rel not in LONG_FILES:
                findings.append("%s:%d: %d lines, more than %d: split it by what its code does" % (
                    rel, 1, lines, MAX_FILE_LINES))
            for name, first, last in function_spans(code):
                if last - first + 1 > MAX_FUNCTION_LINES and "%s:%s" % (rel, name) not in LONG_FUNCTIONS:
                    findings.append("%s:%d: function %s has %d lines, more than %d" % (
                        rel, first, name, last - first + 1, MAX_FUNCTION_LINES))
    groups = circles(arrows)
    for known in sorted(KNOWN_CIRCLES):
        if known[0] + ".h" in files or known[0] + ".cc" in files:
            if known not in [group for group, cycle in groups]:
                findings.append("%s:1: the circle %s is broken: take it off KNOWN_CIRCLES" % (
                    sorted(r for r in files if unit_of(r) == known[0])[0], " -> ".join(known)))
    for group, cycle in groups:
        if group in KNOWN_CIRCLES:
            continue
        findings.append("%s:1: include circle: %s" % (
            sorted(r for r in files if unit_of(r) == cycle[0])[0], " -> ".join(cycle + [cycle[0]])))
    for rel in sorted(LONG_FILES):
        if rel in files and files[rel].count("\n") <= MAX_FILE_LINES:
            findings.append("%s:1: no longer too long: take it off LONG_FILES" % rel)
    for entry in sorted(LONG_FUNCTIONS):
        rel, name = entry.split(":", 1)
        if rel in files and not any(n == name and last - first + 1 > MAX_FUNCTION_LINES
                                    for n, first, last in function_spans(blank_comments_and_strings(files[rel]))):
            findings.append("%s:1: %s is no longer too long: take it off LONG_FUNCTIONS" % (rel, name))


def circles(arrows):
    """For each strongly connected group of more than one unit (Tarjan): the
    group (its units sorted) and one cycle through it."""
    index, low, stack, on, out = {}, {}, [], set(), []
    counter = [0]

    def visit(v):
        index[v] = low[v] = counter[0]
        counter[0] += 1
        stack.append(v)
        on.add(v)
        for w in sorted(arrows.get(v, ())):
            if w not in index:
                visit(w)
                low[v] = min(low[v], low[w])
            elif w in on:
                low[v] = min(low[v], index[w])
        if low[v] == index[v]:
            group = []
            while True:
                w = stack.pop()
                on.discard(w)
                group.append(w)
                if w == v:
                    break
            if len(group) > 1:
                out.append((tuple(sorted(group)), cycle_in(sorted(group), arrows)))

    for v in sorted(arrows):
        if v not in index:
            visit(v)
    return out


def cycle_in(group, arrows):
    members = set(group)
    start = group[0]
    path, seen = [start], {start}
    # Walk inside the group until the start is reached again.
    prev = {start: None}
    queue = [start]
    while queue:
        v = queue.pop(0)
        for w in sorted(arrows.get(v, ())):
            if w == start:
                path = [v]
                while prev[path[-1]] is not None:
                    path.append(prev[path[-1]])
                return list(reversed(path))
            if w in members and w not in prev:
                prev[w] = v
                queue.append(w)
    return group


SELF_TEST = {
    "pg/good.cc": """
// Reads PG_GETARG_TEXT_PP in a comment and "PG_GETARG_INT32(0)" in a string.
Datum pgdoc_good(PG_FUNCTION_ARGS) {
    return dt::pg::Guard([&]() -> Datum {
        std::string s = dt::pg::TextArg(fcinfo, 0);
        text *t = dt::pg::ServerCall([&] { return DatumGetTextPP(d); });
        return (Datum)0;
    });
}
// Runs inside ServerCall.
char *Plain(Datum d) { return text_to_cstring(DatumGetTextPP(d)); }
""",
    "pg/sub/bad.cc": """
Datum pgdoc_bad(PG_FUNCTION_ARGS) {
    return dt::pg::Guard([&]() -> Datum {
        std::string s = dt::pg::TextToString(PG_GETARG_TEXT_PP(0));
        int n = PG_GETARG_INT32(1);
        std::string u = TextToString(DatumGetTextPP(x));
        return (Datum)0;
    });
}
""",
    "pg/unguarded.cc": """
extern "C" Datum pgdoc_unguarded(PG_FUNCTION_ARGS) {
    std::string s = "x";
    return (Datum)0;
}
Datum pgdoc_guarded(PG_FUNCTION_ARGS) {
    return Guard([&]() -> Datum { return (Datum)0; });
}
""",
    "core/bad.h": '#pragma once\n#include "utils/builtins.h"\n#include <string>\n',
    "core/good.h": '#pragma once\n#include <string>\n#include "error.h"\n',
    "core/error.h": '#pragma once\n',
    # Layout: an arrow up (documents to queries) that also closes a circle,
    # one between concerns of one rank, core naming a header of pg/; the SQL
    # surface may include any concern.
    "pg/documents/low.h": '#pragma once\n#include "high.h"\n',
    "pg/queries/high.h": '#pragma once\n#include "low.h"\n#include <vector>\n',
    "pg/queries/peer.cc": '#include "high.h"\n#include "low.h"\n#include "postgres.h"\n',
    "pg/queries/search_sql.cc": '#include "tree.h"\n',
    "pg/dtree/tree.h": '#pragma once\n#include "high.h"\n',
    "pg/text/side.cc": '#include "sibling.h"\n',
    "pg/channel/sibling.h": '#pragma once\n',
    "core/uses_pg.cc": '#include "error.h"\n#include "tree.h"\n',
    # Lengths: 601 lines, and functions of 80 and 81 lines (one in a
    # namespace, one a class member); initialisers and enums are not functions.
    "pg/queries/long.cc": "int x;\n" * 601,
    "pg/queries/fits.cc": ("static const int table[] = {\n" + "    1,\n" * 90 + "};\n"
                           "enum Kind {\n" + "    K,\n" * 90 + "};\n"
                           "int Fits(int a) {\n" + "    a++;\n" * 78 + "}\n"
                           "namespace dt {\n\nint Long(int a)\n{\n" + "    a++;\n" * 78 + "}\n}\n"
                           "struct S {\n    void Member() const {\n" + "        if (x) { y(); }\n" * 80 + "    }\n};\n"),
}


def self_test():
    import tempfile
    global ROOT
    with tempfile.TemporaryDirectory() as d:
        for rel, text in SELF_TEST.items():
            os.makedirs(os.path.dirname(os.path.join(d, rel)), exist_ok=True)
            with open(os.path.join(d, rel), "w") as f:
                f.write(text)
        ROOT = d
        findings = run(("pg", check_pg), ("core", check_core))
        check_layout(d, findings)
    where = sorted(f.split(":")[0] + ":" + f.split(":")[1] for f in findings)
    expect = sorted(["core/bad.h:2", "pg/sub/bad.cc:4", "pg/sub/bad.cc:5", "pg/sub/bad.cc:6", "pg/unguarded.cc:2",
                     "pg/documents/low.h:2", "pg/documents/low.h:1", "pg/text/side.cc:1", "core/uses_pg.cc:2",
                     "pg/queries/long.cc:1", "pg/queries/fits.cc:267", "pg/queries/fits.cc:350"])
    if where != expect:
        print("boundary check self-test failed: expected findings at %s, got %s" % (expect, where))
        return 1
    print("boundary check self-test: ok")
    return 0


def run(*parts):
    findings = []
    for sub, check in parts:
        top = os.path.join(ROOT, sub)
        for d, dirs, names in os.walk(top):
            dirs.sort()
            for name in sorted(names):
                if name.endswith((".cc", ".h", ".c", ".cpp", ".hpp")):
                    path = os.path.join(d, name)
                    check(path, os.path.relpath(path, ROOT), findings)
    return findings


def main():
    if "--self-test" in sys.argv[1:]:
        return self_test()
    parts = [("pg", check_pg), ("core", check_core)]
    if "--core" in sys.argv[1:]:
        parts = [("core", check_core)]
    findings = run(*parts)
    if "--core" not in sys.argv[1:]:
        check_layout(ROOT, findings)
    for f in findings:
        print(f)
    print("boundary check: %d finding(s)" % len(findings))
    return 1 if findings else 0


if __name__ == "__main__":
    sys.exit(main())
