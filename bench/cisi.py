#!/usr/bin/env python3
"""The CISI test collection for the ranking evaluation.

  cisi.py prepare DIR OUT   writes OUT/docs.tsv (id, title + abstract),
                            OUT/queries.tsv (id, words) and OUT/rels.tsv
                            (query, document) for COPY
  cisi.py score RELS RUN    MAP, P@10 and R-precision of RUN (rows of
                            query, rank, document) over the judged queries
"""
import re
import sys


def fields(path):
    """Records of a SMART-format file: {'I': n, 'T': ..., 'W': ...}."""
    recs, cur, field = [], None, None
    with open(path, encoding="latin-1") as f:
        for line in f:
            m = re.match(r"^\.([A-Z])\s*(\d*)\s*$", line)
            if m:
                if m.group(1) == "I":
                    cur = {"I": int(m.group(2))}
                    recs.append(cur)
                    field = None
                else:
                    field = m.group(1)
                    cur.setdefault(field, "")
                continue
            if cur is not None and field:
                cur[field] += line
    return recs


def copy_text(s):
    s = " ".join(s.split())
    return s.replace("\\", "\\\\").replace("\t", " ")


def words(s):
    # A word list of letters and digits only: the list's own syntax
    # characters (parentheses, '!', an options prefix) cannot occur.
    return " ".join(re.findall(r"[A-Za-z0-9]+", s))


def prepare(src, out):
    with open(f"{out}/docs.tsv", "w") as f:
        for r in fields(f"{src}/CISI.ALL"):
            f.write(f"{r['I']}\t{copy_text(r.get('T', '') + ' ' + r.get('W', ''))}\n")
    with open(f"{out}/queries.tsv", "w") as f:
        for r in fields(f"{src}/CISI.QRY"):
            f.write(f"{r['I']}\t{words(r.get('T', '') + ' ' + r.get('W', ''))}\n")
    pairs = set()
    with open(f"{src}/CISI.REL") as f:
        for line in f:
            p = line.split()
            if len(p) >= 2:
                pairs.add((int(p[0]), int(p[1])))
    with open(f"{out}/rels.tsv", "w") as f:
        for q, d in sorted(pairs):
            f.write(f"{q}\t{d}\n")


def score(rels_path, run_path):
    rel = {}
    for line in open(rels_path):
        q, d = map(int, line.split())
        rel.setdefault(q, set()).add(d)
    ranked = {}
    for line in open(run_path):
        p = line.split("|")
        if len(p) < 3:
            continue
        ranked.setdefault(int(p[0]), []).append((int(p[1]), int(p[2])))
    aps, p10s, rps = [], [], []
    for q, r in rel.items():
        docs = [d for _, d in sorted(ranked.get(q, []))]
        hits, ap = 0, 0.0
        for k, d in enumerate(docs, 1):
            if d in r:
                hits += 1
                ap += hits / k
        aps.append(ap / len(r))
        p10s.append(sum(1 for d in docs[:10] if d in r) / 10)
        rps.append(sum(1 for d in docs[: len(r)] if d in r) / len(r))
    n = len(rel)
    print(f"{sum(aps) / n:.3f} {sum(p10s) / n:.3f} {sum(rps) / n:.3f} {n}")


if __name__ == "__main__":
    if sys.argv[1] == "prepare":
        prepare(sys.argv[2], sys.argv[3])
    elif sys.argv[1] == "score":
        score(sys.argv[2], sys.argv[3])
    else:
        sys.exit(__doc__)
