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

source "$(dirname "$0")/dtree_common.bash"
write_glosses "$WORK/g" "$N"
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

compare g g_idx "build"
compare g g_small "build through the external sort"
compare gi gi_idx "inserts"
same "$(q -c "SELECT distinct_terms, postings, documents FROM dt_IndexStats('g_idx')")" \
     "$(q -c "SELECT distinct_terms, postings, documents FROM dt_IndexStats('gi_idx')")" "built and inserted indexes count the same"
same "t" "$(q -c "SELECT internal_pages > 0 AND posting_pages > 0 FROM dt_IndexStats('gi_idx')")" \
     "the inserted index has internal pages and posting chains"

q -c "DELETE FROM g WHERE id % 3 = 0" -c "DELETE FROM gi WHERE id % 3 = 0" >/dev/null
# g has two dtree indexes: VACUUM hands one to a parallel worker.
vac=$(psql -X -q -c "SET min_parallel_index_scan_size = 0" -c "VACUUM (PARALLEL 2, VERBOSE) g" 2>&1)
has "parallel vacuum worker for index vacuuming" "$vac" "VACUUM of the two dtree indexes of g with a parallel worker"
q -c "VACUUM gi" >/dev/null
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
