#!/usr/bin/env python3
"""Checks the C++/server boundary rules that a compiler cannot.

  pg/     Arguments are read only through the argument helpers of
          pg/boundary.h: no PG_GETARG_* outside pg/boundary.cc.  A value is
          detoasted (PG_DETOAST_DATUM, pg_detoast_datum*, DatumGet...P[P],
          text_to_cstring, TextDatumGetCString) only inside a ServerCall (or
          OwnedCall) callable, or in a function marked with the comment
          "// Runs inside ServerCall." on the line before it, written in C
          style for callers that hold no C++ objects.
          Every fmgr entry point (a function defined with PG_FUNCTION_ARGS)
          runs its body through Guard: its body is "return ...Guard(...)".
  core/   No file includes a server header.

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
        findings.append("%s:%d: %s: read arguments with the helpers of pg/boundary.h"
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
    where = sorted(f.split(":")[0] + ":" + f.split(":")[1] for f in findings)
    expect = ["core/bad.h:2", "pg/sub/bad.cc:4", "pg/sub/bad.cc:5", "pg/sub/bad.cc:6", "pg/unguarded.cc:2"]
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
    for f in findings:
        print(f)
    print("boundary check: %d finding(s)" % len(findings))
    return 1 if findings else 0


if __name__ == "__main__":
    sys.exit(main())
