# Shared by the dtree index's end-to-end scripts (sourced, not run); the
# caller defines q (a query printing unaligned tuples only) and same.

# expected TABLE: (term, row, count) from IndexTerms of every row.
expected() {
    echo "SELECT m[1] AS term, t.ctid AS row_id, m[2]::int AS count
            FROM $1 t, regexp_matches(IndexTerms(t.body), '(\\S+):(\\d+) ', 'g') m WHERE t.body IS NOT NULL"
}
# compare TABLE INDEX WHAT
compare() {
    local diff
    diff=$(q -c "SELECT count(*) FROM (
        (SELECT term, row_id, count FROM dt_IndexEntries('$2') WHERE term <> '' EXCEPT ALL $(expected $1))
        UNION ALL
        ($(expected $1) EXCEPT ALL SELECT term, row_id, count FROM dt_IndexEntries('$2') WHERE term <> '')) d")
    same 0 "$diff" "$3: postings of $2 equal IndexTerms of every row of $1"
    same "t" "$(q -c "SELECT dt_CheckIndex('$2')")" "$3: dt_CheckIndex('$2')"
    local docs
    docs=$(q -c "SELECT count(*) FROM (
        (SELECT row_id, wordcnt FROM dt_IndexEntries('$2') WHERE term = '' EXCEPT ALL
         SELECT ctid, DocWordCnt(body) FROM $1 WHERE body IS NOT NULL)
        UNION ALL
        (SELECT ctid, DocWordCnt(body)::bigint FROM $1 WHERE body IS NOT NULL EXCEPT ALL
         SELECT row_id, wordcnt FROM dt_IndexEntries('$2') WHERE term = '')) d")
    same 0 "$docs" "$3: the document list of $2 holds every row of $1 with its DocWordCnt"
    same "$(q -c "SELECT 'terms=' || coalesce(sum(m[2]::int), 0) FROM $1 t, regexp_matches(IndexTerms(t.body), '(\S+):(\d+) ', 'g') m"), docs=$(q -c "SELECT count(body) FROM $1")" \
        "$(q -c "SELECT ReadMetaTerms('$2')")" "$3: counters of $2"
    local wc
    wc=$(q -c "SELECT count(*) FROM dt_IndexEntries('$2') e JOIN $1 t ON t.ctid = e.row_id WHERE e.term <> '' AND e.wordcnt <> DocWordCnt(t.body)")
    same 0 "$wc" "$3: every posting of $2 carries its document's word count"
}

# write_glosses DIR N: the first N WordNet noun glosses, one file each
# (DIR/1.txt ...), readable by the server.
write_glosses() {
    mkdir -p "$1"
    python3 - "$1" "$2" <<'PY'
import sys
d, n = sys.argv[1], int(sys.argv[2])
i = 0
for line in open("/usr/share/wordnet/data.noun", encoding="latin-1"):
    if line.startswith(" ") or " | " not in line:
        continue
    t = line.rstrip("\n").split(" | ", 1)[1].strip()
    if not t:
        continue
    i += 1
    with open(f"{d}/{i}.txt", "w") as f:
        f.write(t + "\n")
    if i == n:
        break
PY
    chmod -R a+rX "$1"
}

# gloss_server DIR N: the extension, the first N glosses in DIR and the
# function gloss(i) giving gloss i as a server-file document.  CHECK_WAL=1
# also turns on wal_consistency_checking for generic records.
gloss_server() {
    write_glosses "$1" "$2"
    psql -X -q -v ON_ERROR_STOP=1 -c "CREATE EXTENSION document" >/dev/null
    if [ "${CHECK_WAL:-0}" = 1 ]; then
        psql -X -q -v ON_ERROR_STOP=1 -c "ALTER SYSTEM SET wal_consistency_checking = 'generic'" -c "SELECT pg_reload_conf()" >/dev/null
    fi
    psql -X -q -v ON_ERROR_STOP=1 -c "CREATE FUNCTION gloss(i int) RETURNS doc LANGUAGE sql
              AS \$\$ SELECT ('format(ascii),ExternalFile:$1/' || i || '.txt')::doc \$\$" >/dev/null
}
as_pg() { if [ "$(id -u)" = 0 ]; then runuser -u postgres -- "$@"; else "$@"; fi; }
PGBIN=${PGBIN:-/usr/lib/postgresql/15/bin}
