# demo: words: stop words, WordNet stems, a sentence stripped and stemmed
set -euo pipefail
psql -X -e <<'SQL'
SELECT IsStopWord('The') AS the_is_a_stop_word, IsStopWord('library') AS library_is_not;
SELECT w AS word, StemWord(w) AS stem
  FROM unnest(ARRAY['Libraries', 'churches', 'mice', 'geese', 'walked', 'happily', 'Dog']) AS w;
SELECT StripAndStemText('The librarians were indexing thousands of old books, maps and letters.');
SELECT OrTerms('Searching the indexed libraries'), AndTerms('dogs:3 chasing mice');
SQL
f="${DOC_SERVER_DIR:-/tmp}/demo_sentence.txt"
printf 'The quick brown foxes jumped over the lazy dogs.\nThe dogs were sleeping; the foxes ran away.\n' > "$f"
psql -X -e -v f="$f" -c "SELECT * FROM dt_FileTerms('$f') ORDER BY count DESC, term;"
rm -f "$f"
