# The ranked, list and search functions on queries and documents of very
# many terms are linear and give way to a statement timeout, a cancel and
# a termination.  Each statement runs under a statement_timeout of 1 s and
# must end (done, or cancelled with 57014) within 2 s of its start.
#  - A query of one word written 100,000 times (DOC_RANK_REPEATS), ranked
#    over an index of one document holding that word: 100,000 leaves match
#    the one document.  Before the weighing of a document looked its
#    matched leaves up by address (along a list, polling once per
#    document), each such statement ran about 12 s, deaf to the timeout.
#  - One document of 200,000 distinct words (DOC_RANK_WORDS), indexed
#    alone and ranked against itself (DocLike) or against a query or word
#    list of all its words; also the functions that read it without an
#    index.  (At 1,000,000 words the old weighing ran 11 minutes; at this
#    size reading the postings of the query's terms takes longer than the
#    timeout, so this part guards the reading; the weighing of such a
#    document is timed by the unit test
#    InterruptPoll.WeighingOneDocumentOfManyTermsIsLinearAndPolls.)
#  - pg_cancel_backend and pg_terminate_backend stop dt_RankDocLike of that
#    document within 2 s, and the server does not restart.
source "$(dirname "$0")/channel_common.bash"
setup_server
N=${DOC_RANK_WORDS:-200000}
R=${DOC_RANK_REPEATS:-100000}
python3 "$(dirname "$0")/../../tools/distinct_words.py" "$N" >"$DOC_SERVER_DIR/many.txt"
chmod 644 "$DOC_SERVER_DIR/many.txt"
psql -X -q -v ON_ERROR_STOP=1 >/dev/null <<SQL
CREATE TABLE big (id int, body doc);
INSERT INTO big VALUES (1, 'format(ascii),ExternalFile:$DOC_SERVER_DIR/many.txt');
CREATE INDEX big_dt ON big USING dtree (body);
-- The document's words as a query and as a word list.
CREATE TABLE bq AS SELECT MakeQueryFromDoc(body) AS q, IndexTerms(body) AS w FROM big;
CREATE TABLE one (id int, body doc);
INSERT INTO one VALUES (1, dt_FromText('zebra'));
CREATE INDEX one_dt ON one USING dtree (body);
CREATE TABLE rq AS SELECT repeat('zebra ', $R) AS w, repeat('zebra or ', $R - 1) || 'zebra' AS q;
SQL
terms=$(psql -X -qtA -c "SELECT DocUWordCnt(body) FROM big")
check "one document of $terms distinct terms (a few words are stop words or share a stem)" test "$terms" -ge $((N * 99 / 100))
started=$(psql -X -qtA -c "SELECT pg_postmaster_start_time()")

# bounded LABEL STATEMENT: runs the statement under a statement_timeout of
# 1 s; it must end within 2 s, done or cancelled with 57014.
bounded() {
    local out elapsed
    out=$(psql -X -qtA -v VERBOSITY=verbose 2>&1 <<SQL
SET enable_seqscan = off;
CREATE TEMP TABLE r AS SELECT clock_timestamp() AS t0;
SET statement_timeout = '1s';
$2;
RESET statement_timeout;
SELECT 'elapsed ' || round(extract(epoch FROM clock_timestamp() - t0)::numeric, 2) FROM r;
SQL
)
    elapsed=$(sed -n 's/^elapsed //p' <<<"$out")
    if [[ "$out" == *ERROR* && "$out" != *"57014: canceling statement due to statement timeout"* ]]; then
        fail "$1: an error other than the timeout: $out"
    elif awk -v s="$elapsed" 'BEGIN { exit !(s != "" && s < 2.0) }'; then
        pass "$1 ended within 2 s under a timeout of 1 s ($elapsed s$([[ "$out" == *57014* ]] && echo ", cancelled"))"
    else
        fail "$1 ran $elapsed s under a timeout of 1 s"
    fi
}

bounded "dt_RankContains of $R repeats" "SELECT count(*) FROM rq, dt_RankContains('one_dt', q)"
bounded "dt_RankContainsWords of $R repeats" "SELECT count(*) FROM rq, dt_RankContainsWords('one_dt', w)"
bounded "WeightContains of $R repeats" "SELECT WeightContains('one_dt', one.ctid, q) FROM one, rq"
bounded "WeightContainsWords of $R repeats" "SELECT WeightContainsWords('one_dt', one.ctid, w) FROM one, rq"
bounded "ListContains of $R repeats" "SELECT length(ListContains('one_dt', q)) FROM rq"
bounded "ListContainsWords of $R repeats" "SELECT length(ListContainsWords('one_dt', w)) FROM rq"
bounded "an index scan of @@ ordered by relevance, $R repeats" \
    "SELECT id FROM one WHERE body @@ (SELECT q FROM rq) ORDER BY body <=> (SELECT q FROM rq) LIMIT 1"
bounded "Contains of $R repeats" "SELECT Contains(body, q) FROM one, rq"
bounded "ContainsWords of $R repeats" "SELECT ContainsWords(body, w) FROM one, rq"
same "1" "$(psql -X -qtA -c "SELECT count(*) FROM rq, dt_RankContainsWords('one_dt', w)")" "the query of $R repeats ranks its row"

DOC='(SELECT body FROM big)'
bounded "dt_RankDocLike" "SELECT count(*) FROM dt_RankDocLike('big_dt', $DOC)"
bounded "dt_RankContains" "SELECT count(*) FROM bq, dt_RankContains('big_dt', q)"
bounded "dt_RankContainsWords" "SELECT count(*) FROM bq, dt_RankContainsWords('big_dt', w)"
bounded "WeightDocLike" "SELECT WeightDocLike('big_dt', ctid, body) FROM big"
bounded "WeightContains" "SELECT WeightContains('big_dt', big.ctid, q) FROM big, bq"
bounded "WeightContainsWords" "SELECT WeightContainsWords('big_dt', big.ctid, w) FROM big, bq"
bounded "ListDocLike" "SELECT length(ListDocLike('big_dt', body)) FROM big"
bounded "ListContains" "SELECT length(ListContains('big_dt', q)) FROM bq"
bounded "ListContainsWords" "SELECT length(ListContainsWords('big_dt', w)) FROM bq"
bounded "an index scan of @@ ordered by relevance" \
    "SELECT id FROM big WHERE body @@ (SELECT q FROM bq) ORDER BY body <=> (SELECT q FROM bq) LIMIT 1"
bounded "an index scan of body % doc" "SELECT count(*) FROM big WHERE body % $DOC"
bounded "DocLike" "SELECT DocLike(body, body) FROM big"
bounded "MakeQueryFromDoc" "SELECT length(MakeQueryFromDoc(body)) FROM big"
bounded "TopNTerms" "SELECT length(TopNTerms(body, 10)) FROM big"
bounded "Contains with the huge query" "SELECT Contains(body, q) FROM big, bq"
bounded "ContainsWords with the huge word list" "SELECT ContainsWords(body, w) FROM big, bq"
bounded "PrintExprTree of the huge query" "SELECT length(PrintExprTree(q)) FROM bq"

# stop_ranking HOW: starts dt_RankDocLike in a session of its own, calls HOW
# (pg_cancel_backend or pg_terminate_backend) on it once it runs, and prints
# that session's output and the seconds from the call to its end.
stop_ranking() {
    psql -X -qtA -c "SELECT count(*) FROM dt_RankDocLike('big_dt', $DOC)" >"$WORK/stop.out" 2>&1 &
    local bg=$! pid=
    for _ in $(seq 50); do
        pid=$(psql -X -qtA -c "SELECT pid FROM pg_stat_activity WHERE query LIKE 'SELECT count(*) FROM dt_RankDocLike%' AND state = 'active'")
        [ -n "$pid" ] && break
        sleep 0.1
    done
    sleep 0.5
    local t0
    t0=$(date +%s.%N)
    psql -X -qtA -c "SELECT $1($pid)" >/dev/null
    wait $bg
    cat "$WORK/stop.out"
    echo "stopped after $(awk -v a="$t0" -v b="$(date +%s.%N)" 'BEGIN { printf "%.2f", b - a }') s"
}
out=$(stop_ranking pg_cancel_backend)
has "canceling statement due to user request" "$out" "dt_RankDocLike stopped by pg_cancel_backend"
check "the cancel took effect within 2 s ($(sed -n 's/^stopped after //p' <<<"$out"))" \
    awk -v s="$(sed -n 's/^stopped after \(.*\) s$/\1/p' <<<"$out")" 'BEGIN { exit !(s < 2.0) }'
out=$(stop_ranking pg_terminate_backend)
has "terminating connection due to administrator command" "$out" "dt_RankDocLike ended by pg_terminate_backend"
check "the termination took effect within 2 s ($(sed -n 's/^stopped after //p' <<<"$out"))" \
    awk -v s="$(sed -n 's/^stopped after \(.*\) s$/\1/p' <<<"$out")" 'BEGIN { exit !(s < 2.0) }'
same "$started" "$(psql -X -qtA -c "SELECT pg_postmaster_start_time()")" "the server did not restart"
same "1" "$(psql -X -qtA -c "SELECT count(*) FROM dt_RankContainsWords('big_dt', 'qa qb')")" \
    "the index ranks after the cancels"
finish
