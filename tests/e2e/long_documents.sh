# Documents of very many distinct words: the term functions sort in
# O(n log n), and every long loop gives way to a statement timeout.
#  - a document of 200,000 distinct words (plus a few repeated ones), stored
#    as a large object and as an external file: IndexTerms, TopNTerms and
#    Occurrences give the right terms in the right order, each in a few
#    seconds at most (a sanity bound; bench/terms_bench.sh measures);
#  - an external document of 1,500,000 distinct words read under a
#    statement_timeout of 1 s is cancelled with 57014 soon after the second,
#    and the session goes on working (the WordNet tables and the document's
#    scan were left mid-way by the cancel); pg_cancel_backend and
#    pg_terminate_backend stop the same scan.
source "$(dirname "$0")/channel_common.bash"
setup_server
words() { python3 "$(dirname "$0")/../../tools/distinct_words.py" "$@"; }
big=$WORK/big.txt
{ words 200000 0; for _ in $(seq 30); do printf 'zebra mango '; done; printf 'zebra%.0s ' $(seq 10); echo; } >"$big"
cp "$big" "$DOC_SERVER_DIR/big.txt"; chmod 644 "$DOC_SERVER_DIR/big.txt"
words 1500000 0 >"$DOC_SERVER_DIR/huge.txt"; chmod 644 "$DOC_SERVER_DIR/huge.txt"

q -c "CREATE TABLE docs(id int PRIMARY KEY, d doc)"
q -c "INSERT INTO docs VALUES (1, 'format(ascii):$big')"
q -c "INSERT INTO docs VALUES (2, 'format(ascii),ExternalFile:$DOC_SERVER_DIR/big.txt')"
q -c "INSERT INTO docs VALUES (3, 'format(ascii),ExternalFile:$DOC_SERVER_DIR/huge.txt')"
printf 'dog dog cat\n' >"$DOC_SERVER_DIR/small.txt"; chmod 644 "$DOC_SERVER_DIR/small.txt"
q -c "INSERT INTO docs VALUES (4, 'format(ascii),ExternalFile:$DOC_SERVER_DIR/small.txt')"

# seconds STATEMENT: wall-clock seconds of one statement in the server.
seconds() {
    psql -X -qtA -v ON_ERROR_STOP=1 <<SQL | tail -1
CREATE TEMP TABLE r AS SELECT clock_timestamp() AS t0;
SELECT $1;
SELECT round(extract(epoch FROM clock_timestamp() - t0)::numeric, 2) FROM r;
SQL
}
under() { awk -v s="$1" -v b="$2" 'BEGIN { exit !(s != "" && s < b) }'; }

for id in 1 2; do
    kind=$([ $id = 1 ] && echo "large-object" || echo "external")
    terms=$(q -c "SELECT IndexTerms(d) FROM docs WHERE id = $id")
    n=$(tr ' ' '\n' <<<"$terms" | grep -c .)
    uniq=$(q -c "SELECT DocUWordCnt(d) FROM docs WHERE id = $id")
    same "$uniq" "$n" "IndexTerms of the $kind document lists every distinct term ($uniq)"
    check "at least 199,000 distinct terms in the $kind document" test "$n" -ge 199000
    same "zebra:40 mango:30 " "$(cut -d' ' -f1-2 <<<"$terms") " "IndexTerms of the $kind document: highest counts first"
    same "ok" "$(python3 -c "
import sys
c = [int(i.rsplit(':', 1)[1]) for i in sys.stdin.read().split(' ')[:-1]]
print('ok' if c == sorted(c, reverse=True) else 'unsorted')" <<<"$terms")" "IndexTerms of the $kind document: counts never rise"
    same "zebra:40 mango:30 " "$(q -c "SELECT TopNTerms(d, 2) FROM docs WHERE id = $id")" "TopNTerms(d, 2) of the $kind document"
    same "zebra:40 qa:1 " "$(q -c "SELECT Occurrences(d, 'qa zebras nothinghere') FROM docs WHERE id = $id")" \
         "Occurrences on the $kind document"
    for f in "IndexTerms(d)" "TopNTerms(d, 100)" "Occurrences(d, 'qa qb qc zebra')"; do
        s=$(seconds "length($f) FROM docs WHERE id = $id")
        check "$f of the $kind document of 200,000 distinct words in $s s (bound: 10 s)" under "$s" 10
    done
done

# ---- a statement timeout stops the reading of a long document ----------------
started=$(psql -X -qtA -c "SELECT pg_postmaster_start_time()")
out=$(psql -X -qtA -v VERBOSITY=verbose 2>&1 <<'SQL'
SELECT pg_backend_pid() AS pid \gset
SET statement_timeout = '1s';
CREATE TEMP TABLE r AS SELECT clock_timestamp() AS t0;
SELECT length(IndexTerms(d)) FROM docs WHERE id = 3;
RESET statement_timeout;
SELECT 'elapsed ' || (extract(epoch FROM clock_timestamp() - t0) < 10) FROM r;
SELECT 'same session ' || (pg_backend_pid() = :pid);
SELECT 'after ' || IndexTerms(d) || '|' || StemWord('mice') FROM docs WHERE id = 4;
SQL
)
has "ERROR:  57014: canceling statement due to statement timeout" "$out" "IndexTerms of 1,500,000 words cancelled by statement_timeout with 57014"
has "elapsed true" "$out" "the cancel came within 10 s of the start"
has "same session true" "$out" "the session survived the cancel"
has "after dog:2 cat:1 |mouse" "$out" "the term functions and WordNet work after the cancel"
same "$started" "$(psql -X -qtA -c "SELECT pg_postmaster_start_time()")" "the server did not restart"
# stop_scan HOW: starts IndexTerms of the 1,500,000-word document in a
# session of its own, calls HOW (pg_cancel_backend or pg_terminate_backend)
# on it once it runs, and prints that session's output.
stop_scan() {
    psql -X -qtA -c "SELECT length(IndexTerms(d)) FROM docs WHERE id = 3" >"$WORK/stop.out" 2>&1 &
    local bg=$! pid=
    for _ in $(seq 50); do
        pid=$(psql -X -qtA -c "SELECT pid FROM pg_stat_activity WHERE query LIKE 'SELECT length(IndexTerms%' AND state = 'active'")
        [ -n "$pid" ] && break
        sleep 0.1
    done
    sleep 0.3
    psql -X -qtA -c "SELECT $1($pid)" >/dev/null
    wait $bg
    cat "$WORK/stop.out"
}
has "canceling statement due to user request" "$(stop_scan pg_cancel_backend)" "IndexTerms of 1,500,000 words stopped by pg_cancel_backend"
t0=$(date +%s)
has "terminating connection due to administrator command" "$(stop_scan pg_terminate_backend)" "IndexTerms of 1,500,000 words ended by pg_terminate_backend"
check "the backend was gone within 10 s" test "$(( $(date +%s) - t0 ))" -lt 10
same "$started" "$(psql -X -qtA -c "SELECT pg_postmaster_start_time()")" "the server did not restart after the termination"
finish
