#!/usr/bin/env bash
# Ranking quality on the CISI collection (make eval): MAP, P@10 and
# R-precision of the dtree index's ranking with the default coefficients
# and with coefficients learned on half of the queries (scored on the
# other half, both ways, averaged), beside PostgreSQL's ts_rank and
# ts_rank_cd on the same texts.  Runs under tools/pgserver.sh; the
# collection is read from CISI_DIR (default ../shared/eval/cisi) and never
# copied into the project.
set -euo pipefail
cd "$(dirname "$0")/.."
CISI_DIR=$(realpath "${CISI_DIR:-../shared/eval/cisi}")
for f in CISI.ALL CISI.QRY CISI.REL; do
    [ -r "$CISI_DIR/$f" ] || { echo "eval: $CISI_DIR/$f not found (set CISI_DIR)" >&2; exit 2; }
done
WORK=$(mktemp -d /tmp/doceval.XXXXXX)
trap 'rm -rf "$WORK"' EXIT
chmod 755 "$WORK"
python3 bench/cisi.py prepare "$CISI_DIR" "$WORK"
P() { psql -X -q -v ON_ERROR_STOP=1 "$@"; }
P -c "CREATE EXTENSION IF NOT EXISTS document" >/dev/null
P >/dev/null <<SQL
DROP TABLE IF EXISTS cisi, cisi_text, cisi_q, cisi_rel;
CREATE TABLE cisi_text (id int, t text);
\copy cisi_text FROM '$WORK/docs.tsv'
CREATE TABLE cisi_q (id int, words text);
\copy cisi_q FROM '$WORK/queries.tsv'
CREATE TABLE cisi_rel (qid int, did int);
\copy cisi_rel FROM '$WORK/rels.tsv'
DELETE FROM cisi_q WHERE id NOT IN (SELECT qid FROM cisi_rel);
ALTER TABLE cisi_q ADD tsq tsquery;
UPDATE cisi_q SET tsq = replace(plainto_tsquery('english', words)::text, '&', '|')::tsquery;
CREATE TABLE cisi AS SELECT id, dt_FromText(t) AS body, to_tsvector('english', t) AS tsv FROM cisi_text;
CREATE INDEX cisi_dt ON cisi USING dtree (body);
VACUUM ANALYZE cisi;
SQL
# run NAME SQL-SETUP FOLD: the ranking of the queries (of one fold, or all)
run_dtree() {  # SETUP WHERE
    P -At -F'|' -c "$1" -c "SELECT q.id, r.ord, c.id
          FROM cisi_q q, LATERAL dt_RankContainsWords('cisi_dt', q.words) WITH ORDINALITY r(row_id, weight, ord)
          JOIN cisi c ON c.ctid = r.row_id WHERE $2"
}
fit_sql() {  # WHERE over q
    echo "SELECT count(*) FROM dt_FitDocParams('cisi_dt', \$j\$SELECT q.words, c.ctid, true FROM cisi_rel r
            JOIN cisi_q q ON q.id = r.qid JOIN cisi c ON c.id = r.did WHERE $1\$j\$, true, true)"
}
run_dtree "SELECT 1" "true" | grep '|' >"$WORK/default.run"
run_dtree "$(fit_sql 'q.id % 2 = 0')" "q.id % 2 = 1" | grep '|' >"$WORK/learned.run"
run_dtree "$(fit_sql 'q.id % 2 = 1')" "q.id % 2 = 0" | grep '|' >>"$WORK/learned.run"
P -At -F'|' -c "$(fit_sql 'true')" -c "SELECT name, round(value::numeric, 4) FROM dt_DocParams() ORDER BY number" \
    | grep '|' >"$WORK/params"
for f in ts_rank ts_rank_cd; do
    P -At -F'|' -c "SELECT q.id, row_number() OVER (PARTITION BY q.id ORDER BY $f(c.tsv, q.tsq) DESC, c.id), c.id
                      FROM cisi_q q JOIN cisi c ON c.tsv @@ q.tsq" >"$WORK/$f.run"
done
cut -f1,2 "$WORK/rels.tsv" | tr '\t' ' ' >"$WORK/rels"
row() {  # LABEL RUN
    read -r map p10 rp n < <(python3 bench/cisi.py score "$WORK/rels" "$1")
    printf '| %-58s | %5s | %5s | %6s |\n' "$2" "$map" "$p10" "$rp"
    NQ=$n
}
{
    echo "# Ranking quality on CISI ($(date -u +%Y-%m-%d), $(nproc) cores)"
    echo
    echo "1,460 documents (title and abstract), judged queries as word lists (their words or'ed),"
    echo "the project's stems and stop words for dtree, to_tsvector('english') for ts_rank."
    echo
    echo "| ranking | MAP | P@10 | R-prec |"
    echo "|---|---|---|---|"
    row "$WORK/default.run" "dtree, default coefficients"
    row "$WORK/learned.run" "dtree, coefficients learned on the other half (2 folds)"
    row "$WORK/ts_rank.run" "PostgreSQL ts_rank"
    row "$WORK/ts_rank_cd.run" "PostgreSQL ts_rank_cd"
    echo
    echo "Queries scored: $NQ.  Coefficients learned on all judged queries:"
    echo
    sed 's/^/    /; s/|/ = /' "$WORK/params"
} | tee bench/results/ranking.txt
