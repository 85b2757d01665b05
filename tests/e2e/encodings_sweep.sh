# Every function of the extension that takes text or documents, called as
# the first thing a new session does with bytes beyond ASCII, in SQL_ASCII,
# LATIN1, WIN1251 and UTF8 databases: each answers or raises an error of its
# own, and no backend dies.  (A database encoding with no letters beyond
# ASCII once left the word classes without a table on first use.)
source "$(dirname "$0")/channel_common.bash"
mkdir -p "$SERVER_TMP"; chown postgres: "$SERVER_TMP" 2>/dev/null || true
started=$(psql -X -qtA -c "SELECT pg_postmaster_start_time()")

for enc in SQL_ASCII LATIN1 WIN1251 UTF8; do
    db=sweep_$(echo $enc | tr 'A-Z' 'a-z')
    createdb -E $enc -T template0 --locale=C $db
    psql -X -q -d $db -c "CREATE EXTENSION document" \
        -c "ALTER DATABASE $db SET document.tmpdir = '$SERVER_TMP'" \
        -c "CREATE TABLE sweep (id int, body doc)" \
        -c "CREATE INDEX sweep_body ON sweep USING dtree (body)" >/dev/null
    if [ $enc = UTF8 ]; then lit="E'Caf\\xc3\\xa9 STRA\\xc3\\x9fE na\\xc3\\xafve'"
    else lit="E'Caf\\xc3\\xa9 \\xc9T\\xc9 \\xe0\\xff'"; fi
    psql -X -q -d $db -c "INSERT INTO sweep VALUES (1, dt_FromText($lit || ' dog')), (2, dt_FromText(repeat($lit || ' cat ', 40)))" >/dev/null
    # One call per function: arguments made from the text, a document of it,
    # the index, the first row; functions that run programs are left out.
    calls=$(psql -X -qtA -d $db -v lit="$lit" <<'SQL'
SELECT format('SELECT %s(%s)', p.oid::regproc,
       string_agg(CASE t.typname
           WHEN 'text' THEN :'lit'
           WHEN 'doc' THEN format('dt_FromText(%s)', :'lit')
           WHEN '_text' THEN format('ARRAY[%s]', :'lit')
           WHEN 'regclass' THEN '''sweep_body''::regclass'
           WHEN 'tid' THEN '''(0,1)''::tid'
           WHEN 'bool' THEN 'true'
           WHEN 'float4' THEN '0.5' WHEN 'float8' THEN '0.5'
           ELSE '1' END, ', ' ORDER BY a.n))
  FROM pg_proc p
  JOIN pg_depend d ON d.classid = 'pg_proc'::regclass AND d.objid = p.oid AND d.deptype = 'e'
  JOIN pg_extension e ON e.oid = d.refobjid AND e.extname = 'document'
  CROSS JOIN LATERAL unnest(p.proargtypes::oid[]) WITH ORDINALITY a(t, n)
  JOIN pg_type t ON t.oid = a.t
 WHERE p.prokind = 'f'
   AND p.prorettype NOT IN ('trigger'::regtype, 'event_trigger'::regtype, 'internal'::regtype)
   AND p.proname NOT IN ('docdisplay', 'docprint')
 GROUP BY p.oid
HAVING bool_and(t.typname IN ('text','doc','_text','regclass','tid','bool','float4','float8','int2','int4','int8'))
   AND bool_or(t.typname IN ('text','doc','_text'))
 ORDER BY 1
SQL
)
    n=0; died=0
    while IFS= read -r call; do
        [ -n "$call" ] || continue
        n=$((n + 1))
        out=$(psql -X -qtA -d $db -c "SET statement_timeout = '10s'" -c "$call" 2>&1)
        if [[ "$out" == *"server closed the connection"* || "$out" == *"terminated abnormally"* ||
              "$out" == *"connection to server was lost"* || "$out" == *"ERROR:  XX"* ]]; then
            died=$((died + 1)); echo "  died: $enc: $call: $out" | head -3
        fi
    done <<<"$calls"
    check "$enc: more than 60 functions called ($n)" [ $n -gt 60 ]
    same 0 $died "$enc: no call killed its backend or failed inside"
    same "$started" "$(psql -X -qtA -c "SELECT pg_postmaster_start_time()")" "$enc: the server never restarted"
    same 1 "$(psql -X -qtA -d $db -c "SELECT DocWordCnt(dt_FromText(E'caf\\xc3\\xa9'))" 2>&1)" \
         "$enc: a new session's first word beyond ASCII is counted"
done
finish
