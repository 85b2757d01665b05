# demo: the extension is installed: release, format specifications, errors
set -euo pipefail
psql -X -e <<'SQL'
SELECT dt_Release();
SELECT findparamtx('version', ' format ( wp ) ,, version(5.1):/p') AS version;
SELECT findparamtx('format', 'format(wordperfect),version(5.1):/home/docs/report.wp') AS format;
\echo
\echo 'Intended error: a literal with a parameter list must name its format; NoCopyText alone'
\echo 'is refused with XD00U.'
SELECT 'NoCopyText:/a/b'::doc;
SQL
