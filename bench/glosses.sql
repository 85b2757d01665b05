-- The WordNet noun glosses as a table glosses (id, txt): one row per
-- synset of /usr/share/wordnet/data.noun with a gloss.  Shared by the
-- benchmarks (psql -f bench/glosses.sql).
CREATE TABLE gloss_lines (id bigint GENERATED ALWAYS AS IDENTITY, line text);
COPY gloss_lines (line) FROM '/usr/share/wordnet/data.noun'
    WITH (FORMAT csv, DELIMITER E'\x1f', QUOTE E'\x1e');
CREATE TABLE glosses AS
SELECT row_number() OVER (ORDER BY id) AS id, split_part(line, ' | ', 2) AS txt
  FROM gloss_lines WHERE line NOT LIKE ' %' AND split_part(line, ' | ', 2) <> '';
DROP TABLE gloss_lines;
