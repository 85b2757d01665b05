#!/usr/bin/env bash
# Conversion throughput: documents in each format the installation converts,
# made from Debian's own sources (20 manual pages as troff, PostScript,
# DVI through dvips, PDF, and their text as LaTeX; the text of the first 5
# pages as RTF, Word (RTF inside), OpenDocument, Office Open XML and HTML,
# WordPerfect 5 of every page,
# each entered 4 times, as pandoc takes seconds per file; LinuxDoc SGML of
# linuxdoc-tools' documentation), entered through docsql in one transaction
# per format:
# pull from the client, conversion by the installed step, scan, storage.
# Plain ASCII text of the same pages is the baseline without conversion.
# Runs under tools/pgserver.sh (bench/run.sh); writes bench/results/conversion.txt.
set -euo pipefail
cd "$(dirname "$0")/.."
DOCSQL=$(realpath "${DOC_BUILD:-build}/docsql")
source bench/best_load.bash
work=$(mktemp -d /tmp/docbench.XXXXXX)
chmod 755 "$work"
trap 'rm -rf "$work"' EXIT
N=20

# ---- the corpus ------------------------------------------------------------------
n=0
for f in /usr/share/man/man1/*.1.gz; do
    [ $n -ge $N ] && break
    [ "$(zcat "$f" | wc -c)" -gt 4000 ] || continue
    zcat "$f" | grep -q '^\.so ' && continue
    n=$((n + 1))
    zcat "$f" >"$work/p$n.troff"
done
[ $n -eq $N ] || { echo "only $n manual pages" >&2; exit 1; }
for i in $(seq 1 $N); do
    p=$work/p$i
    groff -man -Tascii -P-c -P-b -P-u "$p.troff" >"$p.ascii" 2>/dev/null
    groff -man -Tps "$p.troff" >"$p.postscript" 2>/dev/null
    groff -man -Tdvi "$p.troff" >"$p.dvi" 2>/dev/null && dvips -q -o "$p.dvips" "$p.dvi" 2>/dev/null
    groff -man -Tpdf "$p.troff" >"$p.pdf" 2>/dev/null
    # LaTeX: the text with TeX's special characters escaped, as paragraphs.
    { printf '\\documentclass{article}\n\\begin{document}\n\\section{Manual}\n'
      sed -e 's/[\\{}$&#^_%~]/\\&/g' -e 's/^ *//' "$p.ascii"
      printf '\\end{document}\n'; } >"$p.latex"
    if [ $i -le 5 ]; then
        for f in rtf docx odt html; do
            pandoc -s -f markdown --metadata title=Manual "$p.ascii" -o "$p.$f" 2>/dev/null
        done
    else
        for f in rtf docx odt html; do cp "$work/p$(( (i - 1) % 5 + 1 )).$f" "$p.$f"; done
    fi
    cp "$p.rtf" "$p.msword"
    # WordPerfect 5: the 16-byte file prefix and the text (see the test
    # conversion_filters).
    python3 - "$p.ascii" "$p.wordperfect" <<'PY'
import struct, sys
text = open(sys.argv[1], encoding="utf-8", errors="replace").read()
paras = [" ".join(p.split()) for p in text.split("\n\n")]
body = "\n".join(p for p in paras if p).encode("ascii", "replace") + b"\n"
open(sys.argv[2], "wb").write(b"\xffWPC" + struct.pack("<I", 16) + bytes([1, 10, 0, 0, 0, 0, 0, 0]) + body)
PY
    if [ $((i % 2)) = 1 ]; then zcat /usr/share/doc/linuxdoc-tools/example/example.sgml.gz >"$p.sgml"
    else zcat /usr/share/doc/linuxdoc-tools/guide.sgml.gz >"$p.sgml"; fi
done
formats="ascii troff postscript dvips pdf latex sgml wordperfect rtf msword odt docx html"

psql -X -q -c "CREATE EXTENSION IF NOT EXISTS document"
"$DOCSQL" -X -q -c "SET client_min_messages = warning" -c "DROP TABLE IF EXISTS bench_conv" \
    -c "CREATE TABLE bench_conv(id int, body doc)" \
    -c "CREATE TRIGGER bench_conv_lo AFTER INSERT OR UPDATE OR DELETE ON bench_conv FOR EACH ROW EXECUTE FUNCTION dt_ManageLargeObjects()"

results=""
for fmt in $formats; do
    { echo "BEGIN;"; for i in $(seq 1 $N); do echo "INSERT INTO bench_conv VALUES ($i, 'format($fmt):$work/p$i.$fmt');"; done; echo "COMMIT;"; } >"$work/load.sql"
    bytes=$(cat "$work"/p*."$fmt" | wc -c)
    best_load bench_conv "$work/load.sql"
    best=$BEST
    words=$("$DOCSQL" -X -qtA -c "SELECT sum(DocWordCnt(body)) FROM bench_conv")
    results="$results$(printf '%-11s %4d %9.2f %9.3f %9.1f %8.2f %9d' "$fmt" $N \
        "$(awk -v n="$bytes" 'BEGIN { print n / 1048576 }')" "$best" \
        "$(awk -v b="$best" -v n=$N 'BEGIN { print n / b }')" \
        "$(awk -v n="$bytes" -v b="$best" 'BEGIN { print n / 1048576 / b }')" "$words")"$'\n'
done
mkdir -p bench/results
{
    echo "Conversion throughput through docsql: $N documents per format in one transaction"
    echo "(pull from the client, the installed conversion step, scan with stop words and WordNet"
    echo " stems, large object with text and term table); best of 3 runs on a private server."
    echo "MB are the bytes of the documents as entered; words are those stored after conversion."
    echo "machine: $(nproc) cores, $(uname -r)"
    printf '%-11s %4s %9s %9s %9s %8s %9s\n' format docs MB seconds "docs/s" "MB/s" words
    printf '%s' "$results"
} | tee bench/results/conversion.txt
"$DOCSQL" -X -q -c "DROP TABLE bench_conv"
