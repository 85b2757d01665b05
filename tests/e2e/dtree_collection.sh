# The dtree index on a real collection: WordNet noun glosses entered through
# docsql (the short ones kept in the row, the longer ones in large objects
# with their stored term tables).  The same rows are indexed three ways: by
# CREATE INDEX with the default maintenance_work_mem (sorted in memory),
# by CREATE INDEX with 1MB (the external sort), and by inserts into a table
# indexed beforehand.  Each index must pass dt_CheckIndex and hold exactly
# what IndexTerms says of every document, with DocWordCnt as each
# document's word count; the same after deleting a third of the rows and
# VACUUM, and again after the freed row slots are filled by new inserts.
source "$(dirname "$0")/channel_common.bash"
setup_server
N=${DTREE_TEST_DOCS:-6000}

mkdir -p "$WORK/g"
python3 - "$WORK/g" "$N" <<'PY'
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
chmod -R a+rX "$WORK/g"
q -c "CREATE TABLE g (id int, body doc)" -c "CREATE TABLE gi (id int, body doc)" \
  -c "CREATE INDEX gi_idx ON gi USING dtree (body)" >/dev/null
q -c "INSERT INTO g SELECT i, ('format(ascii):$WORK/g/' || i || '.txt')::doc FROM generate_series(1, $N) i" >/dev/null
q -c "INSERT INTO g VALUES (0, NULL)" >/dev/null
same "$((N + 1))" "$(q -c "SELECT count(*) FROM g")" "$N glosses and a null loaded"
same "t" "$(q -c "SELECT count(*) FILTER (WHERE DocLOHandle(body) IS NOT NULL) > 0 AND count(*) FILTER (WHERE DocLOHandle(body) IS NULL) > 0 FROM g WHERE body IS NOT NULL")" \
    "documents both in the row and in large objects"
q -c "INSERT INTO gi SELECT * FROM g ORDER BY id" >/dev/null
q -c "CREATE INDEX g_idx ON g USING dtree (body)" >/dev/null
q -c "SET maintenance_work_mem = '1MB'" -c "CREATE INDEX g_small ON g USING dtree (body)" >/dev/null

# expected TABLE: (term, row, count) from IndexTerms of every row.
expected() {
    echo "SELECT m[1] AS term, t.ctid AS row_id, m[2]::int AS count
            FROM $1 t, regexp_matches(IndexTerms(t.body), '(\S+):(\d+) ', 'g') m WHERE t.body IS NOT NULL"
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
compare g g_idx "build"
compare g g_small "build through the external sort"
compare gi gi_idx "inserts"
same "$(q -c "SELECT distinct_terms, postings, documents FROM dt_IndexStats('g_idx')")" \
     "$(q -c "SELECT distinct_terms, postings, documents FROM dt_IndexStats('gi_idx')")" "built and inserted indexes count the same"
same "t" "$(q -c "SELECT internal_pages > 0 AND posting_pages > 0 FROM dt_IndexStats('gi_idx')")" \
     "the inserted index has internal pages and posting chains"

q -c "DELETE FROM g WHERE id % 3 = 0" -c "DELETE FROM gi WHERE id % 3 = 0" -c "VACUUM g" -c "VACUUM gi" >/dev/null
compare g g_idx "after VACUUM"
compare g g_small "after VACUUM"
compare gi gi_idx "after VACUUM"
q -c "INSERT INTO gi SELECT i + $N, ('format(ascii):$WORK/g/' || i || '.txt')::doc FROM generate_series(1, $N, 3) i" >/dev/null
compare gi gi_idx "refilled after VACUUM"
q -c "DELETE FROM gi" -c "VACUUM gi" -c "VACUUM gi" >/dev/null
same "terms=0, docs=0" "$(q -c "SELECT ReadMetaTerms('gi_idx')")" "every row deleted: counters at zero"
same "t" "$(q -c "SELECT dt_CheckIndex('gi_idx')")" "every row deleted: dt_CheckIndex"
same "t" "$(q -c "SELECT free_pages > 0 FROM dt_IndexStats('gi_idx')")" "emptied posting pages are free for reuse"
q -c "INSERT INTO gi SELECT * FROM g" >/dev/null
compare gi gi_idx "refilled after emptying"
q -c "REINDEX INDEX gi_idx" >/dev/null
compare gi gi_idx "REINDEX"
q -c "REINDEX INDEX CONCURRENTLY gi_idx" >/dev/null
compare gi gi_idx "REINDEX CONCURRENTLY"
finish
