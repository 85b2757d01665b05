# demo: a dtree index over 800 documents and ranked searches from it
set -euo pipefail
DOCSQL=${DOC_BUILD:-build}/docsql
# The sample collection: the copyright notices of every installed Debian
# package, entered from the client with \load (one transaction).
find /usr/share/doc -maxdepth 2 -name copyright -type f | sort >/tmp/demo_notices.$$
trap 'rm -f /tmp/demo_notices.$$' EXIT
"$DOCSQL" -X -q -c "CREATE TABLE notice_docs (id serial, body doc)"
"$DOCSQL" -X -q -c '\load notice_docs body -' </tmp/demo_notices.$$ >/dev/null
echo "loaded $("$DOCSQL" -X -qtA -c "SELECT count(*) FROM notice_docs") copyright notices through docsql"
"$DOCSQL" -X -e <<'SQL'
CREATE INDEX notice_docs_body ON notice_docs USING dtree (body);
SELECT ReadMetaTerms('notice_docs_body');
-- The five notices most about patents and licences, best first, straight
-- from the index (no sort): each row's weight is its probability of
-- relevance under the ranking model.
EXPLAIN (COSTS OFF) SELECT id FROM notice_docs WHERE body @@ 'patent or license or grant'
 ORDER BY body <=> 'patent or license or grant' LIMIT 5;
SELECT id, round((1 - (body <=> 'patent or license or grant'))::numeric, 4) AS weight,
       left(regexp_replace(GetDocText(body), '\s+', ' ', 'g'), 60) AS starts
  FROM notice_docs WHERE body @@ 'patent or license or grant'
 ORDER BY body <=> 'patent or license or grant' LIMIT 5;
-- Only the three best (an options prefix the index applies).
SELECT r.weight, n.id FROM dt_RankContainsWords('notice_docs_body', '=3|warranty merchantability fitness') r
  JOIN notice_docs n ON n.ctid = r.row_id;
SQL
