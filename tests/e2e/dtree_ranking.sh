# Ranked answers of a dtree index over WordNet glosses: weights equal an
# independent computation in SQL from IndexTerms of every document, index
# scans return rows by falling weight and ORDER BY body <=> q comes from
# the index without a sort, option prefixes cut the answer after
# visibility, the ranked functions cache one scan per query and call site,
# scrollable cursors move both ways, and the coefficients can be changed.
source "$(dirname "$0")/channel_common.bash"
source "$(dirname "$0")/dtree_common.bash"
N=${DTREE_RANK_DOCS:-3000}
Q=${DTREE_RANK_QUERIES:-60}
gloss_server "$WORK/g" "$N"
IX='SET enable_bitmapscan = off; SET enable_seqscan = off;'  # a plain index scan
q -c "CREATE TABLE g (id int, body doc)" \
  -c "INSERT INTO g SELECT i, gloss(i) FROM generate_series(1, $N) i" \
  -c "INSERT INTO g VALUES (0, NULL)" \
  -c "CREATE INDEX g_dt ON g USING dtree (body)" -c "VACUUM ANALYZE g" >/dev/null

# The reference: the weights of a word list computed in SQL from the
# documents' own terms and the index's counters.  Every word of the list is
# a term of the query of its own (a repeated word counts twice).
q >/dev/null <<'SQL'
CREATE TABLE terms AS
    SELECT t.ctid AS row_id, m[1] AS term, m[2]::float8 AS f, DocWordCnt(t.body)::float8 AS l
      FROM g t, regexp_matches(IndexTerms(t.body), '(\S+):(\d+) ', 'g') m;
CREATE INDEX ON terms (term);
CREATE FUNCTION ref_weights(words text) RETURNS TABLE (row_id tid, weight float8) LANGUAGE sql AS $$
  WITH qt AS (SELECT term, weight::float8 AS q FROM dt_QueryTerms(words, true)),
       qw AS (SELECT sum(q) AS qw FROM qt),
       meta AS (SELECT m[1]::float8 AS tt, m[2]::float8 AS td
                  FROM regexp_match(ReadMetaTerms('g_dt'), 'terms=(\d+), docs=(\d+)') m),
       hits AS (SELECT x.row_id, x.term, x.f, x.l, qt.q FROM terms x JOIN qt USING (term)),
       st AS (SELECT term, count(*)::float8 AS n, sum(f) AS cf FROM terms
               WHERE term IN (SELECT term FROM qt) GROUP BY term),
       z AS (SELECT h.row_id, h.l,
                    sum(-6.83 + ln(h.q) * 0.44 + ln(h.q / qw.qw) * 0.04 + ln(h.f) * 0.57
                        + ln(h.f / h.l) * -0.06 + ln(meta.td / st.n) * 1.13 + ln(st.cf / meta.tt) * 0.24
                        - (-6.725)) AS z
               FROM hits h JOIN st USING (term), qw, meta GROUP BY h.row_id, h.l)
  SELECT z.row_id, 1 / (1 + exp(-(-6.08 + 3.63 * ln(greatest(z.z, 1)) + -0.145 * ln(z.l) + -1 * ln(qw.qw))))
    FROM z, qw
$$;
SQL

# Word lists of 1 to 4 stems drawn from the documents, one repeated now and
# then (its weight in the query is then 2).
q -c "SELECT string_agg(term, ' ') FROM (SELECT DISTINCT term FROM terms WHERE length(term) > 2) t" \
    | tr ' ' '\n' >"$WORK/stems"
python3 - "$WORK/stems" "$Q" >"$WORK/queries" <<'PY'
import random, sys
random.seed(20261123)
stems = [s for s in open(sys.argv[1]).read().split() if s.isalpha()]
for _ in range(int(sys.argv[2])):
    ws = random.sample(stems, random.randint(1, 4))
    if random.random() < 0.2:
        ws.append(ws[0])
    print(" ".join(ws))
PY
bad=0
total=0
while read -r words; do
    total=$((total + 1))
    r=$(q -c "SELECT count(*) FILTER (WHERE a.row_id IS NULL OR b.row_id IS NULL OR abs(a.weight - b.weight) > 1e-12)
                     || ' ' || count(*)
                FROM dt_RankContainsWords('g_dt', '$words') a FULL JOIN ref_weights('$words') b USING (row_id)")
    if [ "${r%% *}" != 0 ]; then
        bad=$((bad + 1))
        [ $bad -le 3 ] && echo "  differs: '$words': $r"
    fi
done <"$WORK/queries"
same 0 "$bad" "$total word lists: the index's weights equal the SQL computation (1e-12), same rows"

# Conjunctions: a word's counts come from its whole list (pieces of it on
# all-visible pages by their headers), its hits only from rows of the
# intersection.  The reference: rows holding every word, weighed as above.
q >/dev/null <<'SQL'
CREATE FUNCTION ref_and(words text) RETURNS TABLE (row_id tid, weight float8) LANGUAGE sql AS $$
  SELECT w.* FROM ref_weights(words) w
    JOIN (SELECT x.row_id FROM terms x WHERE x.term IN (SELECT term FROM dt_QueryTerms(words, true))
           GROUP BY x.row_id
          HAVING count(DISTINCT x.term) = (SELECT count(DISTINCT term) FROM dt_QueryTerms(words, true))) h
   USING (row_id)
$$;
SQL
# and_check LABEL: 40 conjunctions of one of the most frequent terms (its
# list on several posting pages) and one or two other terms of a gloss.
and_check() {
    q -c "SELECT setseed(0.77)" -c "WITH freq AS (SELECT term FROM terms WHERE term ~ '^[a-z]{3,}$'
                                                  GROUP BY term HAVING count(*) >= 2500)
        SELECT (SELECT string_agg(term, ' ') FROM (
                  (SELECT min(term) AS term FROM terms x WHERE x.row_id = r.row_id AND term IN (SELECT term FROM freq))
                  UNION ALL
                  (SELECT DISTINCT term FROM terms x WHERE x.row_id = r.row_id AND term ~ '^[a-z]{4,}$'
                      AND term NOT IN (SELECT term FROM freq) ORDER BY 1 LIMIT 1 + (i % 2))) s)
          FROM generate_series(1, 40) i,
               LATERAL (SELECT row_id FROM terms WHERE term IN (SELECT term FROM freq) AND id < 100000 AND i > 0
                         ORDER BY random() LIMIT 1) r" \
      | sed 1d | grep ' ' >"$WORK/ands"
    local bad=0 total=0 words r
    while read -r words; do
        total=$((total + 1))
        r=$(q -c "SELECT count(*) FILTER (WHERE a.row_id IS NULL OR b.row_id IS NULL OR abs(a.weight - b.weight) > 1e-12)
                         || ' ' || count(*)
                    FROM dt_RankContains('g_dt', '${words// / and }') a FULL JOIN ref_and('$words') b USING (row_id)")
        if [ "${r%% *}" != 0 ] || [ "${r##* }" = 0 ]; then
            bad=$((bad + 1))
            [ $bad -le 3 ] && echo "  differs: '$words': $r"
        fi
    done <"$WORK/ands"
    same 0 "$bad" "$total conjunctions $1: weights equal the SQL computation (1e-12), same rows"
}
# ORDER BY relevance comes from the index in rank order, without a sort.
plan=$(q -c "EXPLAIN SELECT id FROM g WHERE body @@ 'dog or cat' ORDER BY body <=> 'dog or cat' LIMIT 10")
has "Index Scan using g_dt" "$plan" "EXPLAIN: ORDER BY body <=> q is an index scan"
lacks "Sort" "$plan" "EXPLAIN: no sort node"
a=$(q -c "SELECT string_agg(id::text, ',') FROM (SELECT id FROM g WHERE body @@ 'dog or cat'
                                                  ORDER BY body <=> 'dog or cat' LIMIT 10) s")
# rank_ids FUNCTION-CALL [LIMIT]: the ids of a ranked function's rows, in its order.
rank_ids() {
    q -c "SELECT string_agg(g.id::text, '${3:-,}' ORDER BY r.ord) FROM $1 WITH ORDINALITY r(row_id, weight, ord)
            JOIN g ON g.ctid = r.row_id WHERE r.ord <= ${2:-1000000}"
}
b=$(rank_ids "dt_RankContains('g_dt', 'dog or cat')" 10)
same "$b" "$a" "ORDER BY body <=> q LIMIT 10 gives the ranked function's first ten rows, in its order"
w=$(q -c "SELECT string_agg(round(w::numeric, 12)::text, ',') FROM (
            SELECT WeightContains('g_dt', ctid, 'dog or cat') w FROM g WHERE body @@ 'dog or cat'
             ORDER BY body <=> 'dog or cat' LIMIT 10) s")
ws=$(q -c "SELECT string_agg(round(weight::numeric, 12)::text, ',') FROM (
             SELECT weight FROM ref_weights('dog cat') ORDER BY weight DESC LIMIT 10) s")
same "$ws" "$w" "the rows come by falling weight: the ten largest weights of the SQL computation"
plain=$(q -c "SET enable_bitmapscan = off" -c "SET enable_seqscan = off" -c "SELECT string_agg(id::text, ',') FROM g WHERE body @@ 'dog or cat'")
all=$(rank_ids "dt_RankContains('g_dt', 'dog or cat')")
same "$all" "$plain" "a plain index scan returns its rows in rank order"
o=$(q -c "SELECT string_agg(id::text, ',') FROM (SELECT id FROM g WHERE body @@ 'dog or cat'
                                                 ORDER BY body <=> 'cat' LIMIT 5) s")
first=$(q -c "SELECT round(max(WeightContains('g_dt', ctid, 'cat'))::numeric, 12) FROM g WHERE body @@ 'dog or cat'")
top=$(q -c "SELECT round(WeightContains('g_dt', ctid, 'cat')::numeric, 12) FROM g WHERE id = ${o%%,*}")
same "$first" "$top" "ORDER BY another query than the condition's orders by that query's weight"
d=$(q -c "SELECT count(*) FROM (SELECT body <=> 'dog or cat' AS d, WeightContains('g_dt', ctid, 'dog or cat') AS w
                               FROM g WHERE body @@ 'dog or cat' ORDER BY body <=> 'dog or cat') s WHERE d <> 1 - w")
same "0" "$d" "SELECT body <=> q next to ORDER BY body <=> q gives each row's 1 - weight"
err=$(q -c "SELECT id, body <=> 'dog' FROM g" 2>&1)
has "needs a dtree index scan" "$err" "the distance outside an index scan is a clear error"
# Another document column of the rows the scan hands out is not the
# indexed one: its distance is not the row's.
err=$(q -c "CREATE TEMP TABLE two AS SELECT id, body, dt_FromText('zebra ' || id) AS other FROM g WHERE id < 2000" \
        -c "CREATE INDEX ON two USING dtree (body)" -c "ANALYZE two" -c "SET enable_seqscan = off" \
        -c "SELECT id, other <=> 'dog or cat' FROM two WHERE body @@ 'dog or cat' ORDER BY body <=> 'dog or cat' LIMIT 3" 2>&1)
has "needs a dtree index scan" "$err" "the distance of another column of the scanned rows is an error, not the row's"

# Scans of several conditions, of stop words only, of a negated stop word,
# and rescans with new keys.
same "$(q -c "SET enable_indexscan = off; SET enable_bitmapscan = off; SELECT count(*) FROM g WHERE body @@ 'cat' AND body @@ 'dog'")" \
     "$(q -c "$IX SELECT count(*) FROM g WHERE body @@ 'cat' AND body @@ 'dog'")" "two conditions: only rows matching both"
same "$(q -c "SELECT count(*) FROM dt_IndexEntries('g_dt') WHERE term = '' AND count > 0")" \
     "$(q -c "$IX SELECT count(*) FROM g WHERE body @@ 'the'")" "a query of stop words only: every indexed document with a term"
same "0" "$(q -c "$IX SELECT count(*) FROM g WHERE body @@ '!the'")" "a negated stop word: no row"
same "$(q -c "SELECT string_agg(n::text, ',' ORDER BY w) FROM (SELECT w, (SELECT count(*) FROM g WHERE Contains(g.body, w)) n
                FROM unnest(ARRAY['dog', 'cat', 'horse', 'bird']) w) s")" \
     "$(q -c "SET enable_seqscan = off; SET enable_bitmapscan = off; SET enable_hashjoin = off; SET enable_mergejoin = off;
              SELECT string_agg(n::text, ',' ORDER BY w) FROM (SELECT v.w, count(g.id) n FROM unnest(ARRAY['dog', 'cat', 'horse', 'bird']) v(w)
                LEFT JOIN g ON g.body @@ v.w GROUP BY v.w) s")" "a rescan with a new key evaluates it afresh"

# A merge join over the index scan in rank order marks and restores it
# (the outer side repeats every distance, so the inner is read again from
# its mark).
q -c "CREATE TABLE dd AS SELECT 1 - weight AS x FROM dt_RankContains('g_dt', 'dog or cat')
        UNION ALL SELECT 1 - weight FROM dt_RankContains('g_dt', 'dog or cat')" -c "ANALYZE dd" >/dev/null
MJ="SET enable_hashjoin = off; SET enable_nestloop = off; SET enable_seqscan = off; SET enable_bitmapscan = off;"
MQ="SELECT g.id, dd.x FROM dd JOIN g ON dd.x = (g.body <=> 'dog or cat') WHERE g.body @@ 'dog or cat' ORDER BY g.body <=> 'dog or cat'"
mplan=$(q -c "$MJ EXPLAIN $MQ")
has "Merge Join" "$mplan" "EXPLAIN: a merge join"
has "Index Scan using g_dt" "$mplan" "EXPLAIN: its inner side is the dtree scan in rank order"
same "$(q -c "SELECT count(*) FROM dd JOIN dt_RankContains('g_dt', 'dog or cat') r ON dd.x = 1 - r.weight")" \
     "$(q -c "$MJ SELECT count(*) FROM ($MQ) s")" "the merge join pairs every row with each equal distance (mark and restore)"

# Option prefixes cut the answer: rows, then threshold; visibility first.
# (The operator on one row ignores the prefix: with the index only.)
same "3" "$(q -c "$IX SELECT count(*) FROM g WHERE body @@@ '=3|dog cat'")" "=3| gives three rows (index scan)"
same "3" "$(q -c "SET enable_indexscan = off" -c "SET enable_seqscan = off" -c "SELECT count(*) FROM g WHERE body @@@ '=3|dog cat'")" "=3| gives three rows (bitmap scan)"
t3=$(rank_ids "dt_RankContainsWords('g_dt', 'dog cat')" 3)
c3=$(q -c "$IX SELECT string_agg(id::text, ',') FROM g WHERE body @@@ '=3|dog cat'")
same "$t3" "$c3" "=3| keeps the three heaviest"
thr=$(q -c "SELECT round((weight + 1e-9)::numeric, 9) FROM dt_RankContainsWords('g_dt', 'dog cat') OFFSET 4 LIMIT 1")
pc=$(python3 -c "print(repr($thr * 100))")
same "$(q -c "SELECT count(*) FROM dt_RankContainsWords('g_dt', 'dog cat') WHERE weight >= ($pc / 100)::real")" \
     "$(q -c "$IX SELECT count(*) FROM g WHERE body @@@ '%$pc|dog cat'")" "%P| keeps the rows weighing at least P/100"
top1=$(rank_ids "dt_RankContainsWords('g_dt', 'dog cat')" 1)
q -c "DELETE FROM g WHERE id = $top1" >/dev/null
c3b=$(q -c "$IX SELECT count(*) FROM g WHERE body @@@ '=3|dog cat'")
same "3" "$c3b" "a deleted (not yet vacuumed) row does not take a place of =3|"
lacks ",$top1," ",$(rank_ids "dt_RankContainsWords('g_dt', 'dog cat')")," "the deleted row is not in the ranked answer"

# The ranked functions: one scan per query and call site, 0 outside the answer.
mix=$(q -c "SELECT count(*) FROM g WHERE body IS NOT NULL AND
              WeightContains('g_dt', ctid, CASE WHEN id % 2 = 0 THEN 'dog' ELSE 'cat' END)
              IS DISTINCT FROM coalesce((SELECT weight FROM dt_RankContains('g_dt', CASE WHEN id % 2 = 0 THEN 'dog' ELSE 'cat' END) r
                                          WHERE r.row_id = g.ctid), 0)")
same "0" "$mix" "a call site whose query changes from row to row gets each query's weights"
same "0" "$(q -c "SELECT WeightContains('g_dt', ctid, 'dog') FROM g WHERE NOT Contains(body, 'dog') LIMIT 1")" "a row outside the answer weighs 0"
same "0" "$(q -c "SELECT octet_length(ListContains('g_dt', 'zzqqxx'))")" "the list of an empty answer is empty"
ll=$(q -c "SELECT octet_length(ListContains('g_dt', 'dog'))")
ls=$(q -c "SELECT sum((octet_length(dt_DocBytes(body)) + 3) / 4 * 4) FROM g WHERE body @@ 'dog'")
same "$ls" "$ll" "ListContains holds every document of the answer, each padded to 4 bytes"
same "$(q -c "SELECT count(*) FROM g WHERE body % (SELECT body FROM g WHERE id = 7)")" \
     "$(q -c "SELECT count(*) FROM dt_RankDocLike('g_dt', (SELECT body FROM g WHERE id = 7))")" "dt_RankDocLike ranks the rows DocLike finds"
has "index not a dtree index" "$(q -c "CREATE INDEX g_id ON g (id)" -c "SELECT WeightContains('g_id', '(0,1)', 'dog')" 2>&1)" "a btree index name: index not a dtree index"
has "L0002" "$(q -v VERBOSITY=verbose -c "SELECT WeightContains('nosuch', '(0,1)', 'dog')" 2>&1)" "a missing index: L0002"
q -c "CREATE ROLE ranker LOGIN" >/dev/null
has "permission denied" "$(q -U ranker -c "SELECT * FROM dt_RankContains('g_dt', 'dog')" 2>&1)" "a role that may not read the table cannot rank it"

# Coefficients, for this session.
d1=$(q -c "SELECT weight FROM dt_RankContains('g_dt', 'dog') LIMIT 1")
d2=$(q -c "SELECT count(*) FROM (SELECT dt_SetDocParam(11, 4.0), dt_SetDocParam(12, 9), dt_SetDocParam(-1, 9)) s" \
       -c "SELECT string_agg(value::text, ',' ORDER BY number) FROM dt_DocParams()" -c "SELECT weight FROM dt_RankContains('g_dt', 'dog') LIMIT 1")
same "-0.145,-1,-6.83,0.44,0.04,0.57,-0.06,1.13,0.24,-6.725,-6.08,4" "$(echo "$d2" | sed -n 2p)" "dt_SetDocParam(11, 4.0) sets ZCoef; 12 and -1 change nothing"
[ "$(echo "$d2" | sed -n 3p)" != "$d1" ] && pass "a new ZCoef changes the weights" || fail "a new ZCoef changes the weights"

# Rows updated in place (HOT: the document unchanged) keep their postings
# at the root of the chain; the functions name them by their ctid.
q >/dev/null <<'SQL'
CREATE TABLE h (id int, body doc) WITH (fillfactor = 50);
INSERT INTO h SELECT id, body FROM g WHERE id BETWEEN 1 AND 400;
CREATE INDEX h_dt ON h USING dtree (body);
UPDATE h SET id = -id WHERE body @@ 'plant or animal or person';
SQL
nh=$(q -c "SELECT count(*) FROM h WHERE id < 0")
[ "$nh" -gt 10 ] && pass "$nh rows updated in place" || fail "rows updated in place: only $nh"
HQ="'plant or animal or person'"
same "$nh" "$(q -c "$IX SELECT count(*) FROM h WHERE body @@ $HQ")" "an index scan finds rows updated in place"
same "$nh" "$(q -c "SELECT count(*) FROM dt_RankContains('h_dt', $HQ) r JOIN h ON h.ctid = r.row_id")" "dt_RankContains names them by their ctid"
same "0" "$(q -c "SELECT count(*) FROM h WHERE id < 0 AND WeightContains('h_dt', ctid, $HQ) = 0")" "WeightContains finds them by their ctid"
hid=$(q -c "SELECT ctid FROM h WHERE id < 0 LIMIT 1")
q -c "SELECT AddIndexTerms('h_dt', '$hid', 'zebrafishery')" >/dev/null
same "1" "$(q -c "$IX SELECT count(*) FROM h WHERE body @@ 'zebrafishery'")" "AddIndexTerms by the ctid of a row updated in place: the index finds the term"

# Learning the coefficients from judgments.
q -c "CREATE TABLE judged AS SELECT 'dog cat horse'::text AS query, ctid AS row_id, Contains(body, 'dog') AS relevant
        FROM g WHERE body @@@ 'dog cat horse'" >/dev/null
fit=$(q -c "SELECT count(*), bool_and(converged), min(observations) > 0, sum(relevant) > 0
              FROM dt_FitDocParams('g_dt', 'SELECT query, row_id, relevant FROM judged')")
same "12|t|t|t" "$fit" "dt_FitDocParams learns twelve coefficients from judged answers"
before=$(q -c "SELECT string_agg(value::text, ',' ORDER BY number) FROM dt_DocParams()")
after=$(q -c "SELECT count(*) FROM dt_FitDocParams('g_dt', 'SELECT query, row_id, relevant FROM judged', true, true)" \
          -c "SELECT string_agg(value::text, ',' ORDER BY number) FROM dt_DocParams()" \
          -c "SELECT avg(weight) FILTER (WHERE Contains(g.body, 'dog')) > 2 * avg(weight) FILTER (WHERE NOT Contains(g.body, 'dog'))
                FROM dt_RankContainsWords('g_dt', 'dog cat horse') r JOIN g ON g.ctid = r.row_id")
[ "$(echo "$after" | sed -n 2p)" != "$before" ] && pass "apply sets the learned coefficients" || fail "apply sets the learned coefficients"
same "t" "$(echo "$after" | sed -n 3p)" "with learned coefficients the judged relevant rows weigh more"
has "22023" "$(q -v VERBOSITY=verbose -c "SELECT * FROM dt_FitDocParams('g_dt', 'SELECT query, row_id, false FROM judged')" 2>&1)" "judgments without a relevant row: 22023"
has "42804" "$(q -v VERBOSITY=verbose -c "SELECT * FROM dt_FitDocParams('g_dt', 'SELECT query, row_id FROM judged')" 2>&1)" "judgments of the wrong shape: 42804"
has "permission denied" "$(q -U ranker -c "SELECT * FROM dt_FitDocParams('g_dt', 'SELECT query, row_id, relevant FROM judged')" 2>&1)" "a role that may not read the table cannot fit on it"

# make_terms: the reference's table of every visible document's terms.
make_terms() {
    q -c "DROP TABLE terms" -c "CREATE TABLE terms AS
            SELECT t.ctid AS row_id, t.id, m[1] AS term, m[2]::float8 AS f, DocWordCnt(t.body)::float8 AS l
              FROM g t, regexp_matches(IndexTerms(t.body), '(\S+):(\d+) ', 'g') m" >/dev/null
}
# 6,000 more documents of one word make its list span several posting
# pages, most of them without a row of the conjunctions below.
q -c "INSERT INTO g SELECT 100000 + i, dt_FromText('act') FROM generate_series(1, 6000) i" \
  -c "VACUUM ANALYZE g" >/dev/null
make_terms
same "act" "$(q -c "SELECT string_agg(term, ',') FROM (SELECT term FROM terms GROUP BY term HAVING count(*) >= 2500) s")" \
    "one term in 2,500 documents or more"
and_check "on an all-visible table"
# Deleted rows not yet vacuumed: the pages that held them are not
# all-visible, so their pieces are read posting by posting and the
# deleted rows count nowhere.
q -c "DELETE FROM g WHERE id % 7 = 3" >/dev/null
make_terms
and_check "after deletes, before VACUUM"
# Another session's uncommitted inserts: their postings are in the lists
# (and in the index's counters, which both sides read) but on heap pages
# no longer all-visible, so they count nowhere.
q -c "VACUUM g" >/dev/null
q -c "BEGIN" -c "INSERT INTO g SELECT 300000 + i, dt_FromText('act') FROM generate_series(1, 500) i" \
  -c "SELECT pg_sleep(120)" -c "COMMIT" >/dev/null 2>&1 &
held=$!
for _ in $(seq 1 100); do
    [ "$(q -c "SELECT count(*) FROM pg_stat_activity WHERE query = 'SELECT pg_sleep(120)'")" = 1 ] && break
    sleep 0.2
done
make_terms
and_check "beside another session's uncommitted inserts"
q -c "SELECT pg_terminate_backend(pid) FROM pg_stat_activity WHERE query = 'SELECT pg_sleep(120)'" >/dev/null
wait $held || true

# Scrollable cursors over an index scan.
order=$(rank_ids "dt_RankContains('g_dt', 'dog')" 1000000 ' ')
set -- $order
n=$#
last=${!n}
prev=$((n - 1)); prev=${!prev}
cur=$(q -c "SET enable_bitmapscan = off" -c "SET enable_seqscan = off" -c "BEGIN" \
        -c "DECLARE c SCROLL CURSOR FOR SELECT id FROM g WHERE body @@ 'dog'" \
        -c "FETCH BACKWARD 1 FROM c" -c "SELECT 'x'" -c "FETCH 3 FROM c" -c "FETCH BACKWARD 2 FROM c" \
        -c "FETCH ABSOLUTE -1 FROM c" -c "FETCH FORWARD 1 FROM c" -c "SELECT 'y'" -c "FETCH BACKWARD 2 FROM c" \
        -c "MOVE ABSOLUTE 0 IN c" -c "FETCH NEXT FROM c" -c "COMMIT" | tr '\n' ' ')
same "x $1 $2 $3 $2 $1 $last y $last $prev $1 " "$cur" "cursor: FETCH BACKWARD first, FORWARD, BACKWARD, ABSOLUTE, past the end and back, MOVE"
finish
