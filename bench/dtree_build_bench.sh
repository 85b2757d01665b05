#!/usr/bin/env bash
# The dtree index against PostgreSQL's GIN (and RUM) on the same texts:
# build time, size, and the throughput of inserting 10,000 documents.
#
# Documents: the WordNet noun glosses (/usr/share/wordnet/data.noun), one
# document per gloss, entered through docsql and kept in the row
# (ExpandLimit(2048)); the texts are kept beside them for to_tsvector.
#  - dtree build: CREATE INDEX ... USING dtree (body): one pass that reads
#    and stems every document.
#  - GIN build: adding a stored column to_tsvector('english', txt) (which
#    rewrites the table) plus CREATE INDEX ... USING gin on it; the sum is
#    the figure to compare, as a dtree index needs no extra column.
#  - RUM (rum_tsvector_ops) over the same column: build and size.
#  - inserts: 10,000 rows in one statement into an empty table indexed
#    beforehand: dtree over doc values (copied from the loaded rows) against
#    the same texts into a table with the stored tsvector column and GIN
#    (default fastupdate, and fastupdate = off), and with RUM.
#  - concurrent inserts: the same 10,000 rows from 1 and from 4 sessions at
#    once (each session one statement with every 4th row), wall time from
#    the start of the first to the end of the last (best of five), dtree
#    against GIN and against the table without an index; the machine's
#    load average is printed beside them.
# Each time is the best of three runs; sizes are pg_relation_size.
# Writes bench/results/dtree.txt.
set -euo pipefail
cd "$(dirname "$0")/.."
out=bench/results/dtree.txt
db=dtree_bench
DOCSQL=$(realpath "${DOC_BUILD:-build}/docsql")
PGBIN=${PGBIN:-/usr/lib/postgresql/15/bin}
files=$(mktemp -d /tmp/dtree_bench.XXXXXX)
trap 'rm -rf "$files"' EXIT
chmod 755 "$files"

# RUM comes from the Debian package; a private server tree gets a copy.
if ! dpkg-query -W -f='${Status}' postgresql-15-rum 2>/dev/null | grep -q 'install ok installed'; then
    DEBIAN_FRONTEND=noninteractive apt-get install -y -qq postgresql-15-rum >/dev/null
fi
share=$("$PGBIN/pg_config" --sharedir)/extension
lib=$("$PGBIN/pg_config" --pkglibdir)
if [ ! -f "$share/rum.control" ]; then
    cp /usr/share/postgresql/15/extension/rum* "$share/"
    cp /usr/lib/postgresql/15/lib/rum.so "$lib/"
fi

psql -X -q -d postgres -c "DROP DATABASE IF EXISTS $db" -c "CREATE DATABASE $db" 2>/dev/null
export PGDATABASE=$db
export PGOPTIONS="-c client_min_messages=warning"
psql -X -q -v ON_ERROR_STOP=1 -f bench/bench_seconds.sql
psql -X -q -v ON_ERROR_STOP=1 <<'SQL'
CREATE EXTENSION document;
CREATE EXTENSION rum;
\i bench/glosses.sql
SQL
psql -X -q -c "\\copy (SELECT id, txt FROM glosses) TO '$files/all.tsv'"
python3 - "$files" <<'PY'
import sys
d = sys.argv[1]
for line in open(f"{d}/all.tsv", encoding="utf-8", errors="replace"):
    i, t = line.rstrip("\n").split("\t", 1)
    with open(f"{d}/{i}.txt", "w") as f:
        f.write(t.replace("\\\\", "\\") + "\n")
PY
rm "$files/all.tsv"
chmod -R a+rX "$files"
n=$(psql -X -q -A -t -c "SELECT count(*) FROM glosses")
"$DOCSQL" -X -q -c "CREATE TABLE gdocs AS SELECT id, txt, NULL::doc AS body FROM glosses WITH NO DATA" \
    -c "INSERT INTO gdocs SELECT id, txt, ('format(ascii),ExpandLimit(2048):$files/' || id || '.txt')::doc FROM glosses"
psql -X -q -c "VACUUM ANALYZE gdocs" -c "VACUUM ANALYZE glosses" -c "CHECKPOINT"
in_row=$(psql -X -q -A -t -c "SELECT count(*) FROM gdocs WHERE DocLOHandle(body) IS NULL")

s() { psql -X -q -A -t -c "SET max_parallel_maintenance_workers = 0" -c "SELECT bench_seconds(\$q\$$1\$q\$)" | tail -1; }
calc() { awk "BEGIN { print $1 }"; }
min() { printf '%s\n' "$@" | sort -g | head -1; }

# Builds, best of three.
dt=(); gcol=(); gidx=(); gsum=(); rum=()
for r in 1 2 3; do
    psql -X -q -c "DROP INDEX IF EXISTS gdocs_dt" -c "DROP TABLE IF EXISTS gt" -c "CREATE TABLE gt AS SELECT id, txt FROM glosses" \
        -c "VACUUM ANALYZE gt" -c "CHECKPOINT"
    dt+=("$(s "CREATE INDEX gdocs_dt ON gdocs USING dtree (body)")")
    a=$(s "ALTER TABLE gt ADD COLUMN tsv tsvector GENERATED ALWAYS AS (to_tsvector('english', txt)) STORED")
    b=$(s "CREATE INDEX gt_gin ON gt USING gin (tsv)")
    gcol+=("$a"); gidx+=("$b"); gsum+=("$(calc "$a + $b")")
    rum+=("$(s "CREATE INDEX gt_rum ON gt USING rum (tsv rum_tsvector_ops)")")
done
size() { psql -X -q -A -t -c "SELECT pg_relation_size('$1')"; }
dt_size=$(size gdocs_dt); gin_size=$(size gt_gin); rum_size=$(size gt_rum)
stats=$(psql -X -q -A -t -F ' ' -c "SELECT distinct_terms, postings, documents, internal_pages, leaf_pages, posting_pages FROM dt_IndexStats('gdocs_dt')")
check=$(psql -X -q -A -t -c "SELECT dt_CheckIndex('gdocs_dt')")

# Inserts of 10,000 rows into indexed tables, best of three.
psql -X -q -v ON_ERROR_STOP=1 <<'SQL'
CREATE TABLE ins_dt (id bigint, body doc);
CREATE INDEX ins_dt_idx ON ins_dt USING dtree (body);
CREATE TABLE ins_plain_doc (id bigint, body doc);
CREATE TABLE ins_gin (id bigint, txt text, tsv tsvector GENERATED ALWAYS AS (to_tsvector('english', txt)) STORED);
CREATE INDEX ins_gin_idx ON ins_gin USING gin (tsv);
CREATE TABLE ins_gin_off (LIKE ins_gin INCLUDING ALL);
ALTER INDEX ins_gin_off_tsv_idx SET (fastupdate = off);
CREATE TABLE ins_rum (id bigint, txt text, tsv tsvector GENERATED ALWAYS AS (to_tsvector('english', txt)) STORED);
CREATE INDEX ins_rum_idx ON ins_rum USING rum (tsv rum_tsvector_ops);
CREATE TABLE ins_plain_txt (id bigint, txt text, tsv tsvector GENERATED ALWAYS AS (to_tsvector('english', txt)) STORED);
SQL
ins() {  # table columns source
    local best=""
    for r in 1 2 3; do
        psql -X -q -c "TRUNCATE $1" -c "CHECKPOINT"
        t=$(s "INSERT INTO $1 ($2) SELECT $2 FROM $3 WHERE id <= 10000")
        best=$(min $best "$t")
    done
    echo "$best"
}
i_dt=$(ins ins_dt "id, body" gdocs)
i_pdoc=$(ins ins_plain_doc "id, body" gdocs)
i_gin=$(ins ins_gin "id, txt" glosses)
i_goff=$(ins ins_gin_off "id, txt" glosses)
i_rum=$(ins ins_rum "id, txt" glosses)
i_ptxt=$(ins ins_plain_txt "id, txt" glosses)
icheck=$(psql -X -q -A -t -c "SELECT dt_CheckIndex('ins_dt_idx')")
# The same rows from several sessions at once, best of five (wall time;
# the machine may be shared, and the best run is the least disturbed).
# A table name with %k is one table per session (k = 0, 1, ...).
par() {  # table columns source sessions
    local best="" t start tables=() k
    for k in $(seq 0 $(($4 - 1))); do tables+=("${1//%k/$k}"); done
    local all
    all=$(printf '%s\n' "${tables[@]}" | sort -u | paste -sd,)
    for r in 1 2 3 4 5; do
        psql -X -q -c "TRUNCATE $all" -c "CHECKPOINT"
        start=$(date +%s.%N)
        local pids=()
        for k in $(seq 0 $(($4 - 1))); do
            psql -X -q -v ON_ERROR_STOP=1 -c "INSERT INTO ${tables[$k]} ($2) SELECT $2 FROM $3 WHERE id <= 10000 AND id % $4 = $k" &
            pids+=($!)
        done
        for p in "${pids[@]}"; do wait "$p"; done
        t=$(calc "$(date +%s.%N) - $start")
        best=$(min $best "$t")
    done
    echo "$best"
}
# The control: 4 sessions, each into a table and dtree index of its own
# (nothing shared in any index), to tell what the machine allows.
for k in 0 1 2 3; do
    psql -X -q -c "CREATE TABLE ins_dt_own$k (id bigint, body doc)" -c "CREATE INDEX ON ins_dt_own$k USING dtree (body)"
done
load=$(cut -d' ' -f1-3 /proc/loadavg)
p_dt1=$(par ins_dt "id, body" gdocs 1)
p_dt4=$(par ins_dt "id, body" gdocs 4)
pcheck=$(psql -X -q -A -t -c "SELECT dt_CheckIndex('ins_dt_idx')")
pdocs=$(psql -X -q -A -t -c "SELECT ReadMetaTerms('ins_dt_idx')")
p_gin1=$(par ins_gin "id, txt" glosses 1)
p_gin4=$(par ins_gin "id, txt" glosses 4)
p_goff1=$(par ins_gin_off "id, txt" glosses 1)
p_goff4=$(par ins_gin_off "id, txt" glosses 4)
p_pdoc1=$(par ins_plain_doc "id, body" gdocs 1)
p_pdoc4=$(par ins_plain_doc "id, body" gdocs 4)
p_own4=$(par "ins_dt_own%k" "id, body" gdocs 4)

mb() { calc "$1 / 1048576"; }
{
    echo "dtree index benchmark ($(date -u '+%Y-%m-%d %H:%M UTC'), $(nproc) cores, PostgreSQL $(psql -X -A -t -c 'SHOW server_version'), $(git rev-parse --short HEAD))"
    echo "Corpus: $n WordNet noun glosses, one document each, $in_row kept in the row (ExpandLimit(2048))"
    echo "dtree: $stats (distinct terms, postings, documents, internal/leaf/posting pages); dt_CheckIndex: $check"
    echo
    echo "Build (best of 3, seconds)"
    printf "  %-58s %8.2f\n" "dtree: CREATE INDEX USING dtree (body)" "$(min "${dt[@]}")"
    printf "  %-58s %8.2f\n" "GIN: stored to_tsvector column (table rewrite)" "$(min "${gcol[@]}")"
    printf "  %-58s %8.2f\n" "GIN: CREATE INDEX USING gin (tsv)" "$(min "${gidx[@]}")"
    printf "  %-58s %8.2f\n" "GIN total (column + index)" "$(min "${gsum[@]}")"
    printf "  %-58s %8.2f\n" "RUM: CREATE INDEX USING rum (tsv rum_tsvector_ops)" "$(min "${rum[@]}")"
    printf "  %-58s %8.2f\n" "dtree / GIN total" "$(calc "$(min "${dt[@]}") / $(min "${gsum[@]}")")"
    echo
    echo "Index size (MB)"
    printf "  %-58s %8.2f\n" "dtree" "$(mb "$dt_size")"
    printf "  %-58s %8.2f\n" "GIN over the tsvector column" "$(mb "$gin_size")"
    printf "  %-58s %8.2f\n" "RUM over the tsvector column" "$(mb "$rum_size")"
    printf "  %-58s %8.2f\n" "dtree / RUM" "$(calc "$dt_size / $rum_size")"
    echo
    echo "Insert of 10,000 rows in one statement (best of 3, seconds; rows/s)"
    for pair in "dtree over doc values|$i_dt" "doc values, no index|$i_pdoc" "GIN, stored tsvector (fastupdate on)|$i_gin" \
                "GIN, stored tsvector (fastupdate off)|$i_goff" "RUM, stored tsvector|$i_rum" "stored tsvector, no index|$i_ptxt"; do
        printf "  %-58s %8.2f %9.0f\n" "${pair%%|*}" "${pair#*|}" "$(calc "10000 / ${pair#*|}")"
    done
    echo "  dt_CheckIndex after the inserts: $icheck"
    echo
    echo "Insert of the same 10,000 rows from 1 and from 4 sessions at once (best of 5, wall seconds; rows/s)"
    printf "  %-40s %8s %9s %8s %9s %8s\n" "" "1 sess." "rows/s" "4 sess." "rows/s" "4 vs 1"
    for row in "dtree over doc values|$p_dt1|$p_dt4" "GIN, stored tsvector (fastupdate on)|$p_gin1|$p_gin4" \
               "GIN, stored tsvector (fastupdate off)|$p_goff1|$p_goff4" "doc values, no index|$p_pdoc1|$p_pdoc4"; do
        IFS='|' read -r name a b <<<"$row"
        printf "  %-40s %8.2f %9.0f %8.2f %9.0f %7.2fx\n" "$name" "$a" "$(calc "10000 / $a")" "$b" "$(calc "10000 / $b")" "$(calc "$a / $b")"
    done
    printf "  %-40s %8s %9s %8.2f %9.0f %7.2fx\n" "dtree, each session its own table+index" "" "" "$p_own4" "$(calc "10000 / $p_own4")" "$(calc "$p_dt1 / $p_own4")"
    echo "  dtree after the 4-session run: $pdocs, dt_CheckIndex: $pcheck"
    echo "  load average during the run: $load"
} | tee "$out"
psql -X -q -d postgres -c "DROP DATABASE $db"
