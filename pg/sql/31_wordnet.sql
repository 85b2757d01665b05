
-- WordNet, loaded from Debian's wordnet-base.
--
-- wordnet_stems: every base form of the index files (nouns, verbs,
-- adjectives, adverbs), except the stop words: a stop word that stayed a
-- base form would be looked up in queries although documents never index
-- it.  wordnet_excl: the irregular forms of the *.exc files with their base
-- forms (one row per base form, in file order: nouns, verbs, adjectives,
-- adverbs; a lookup uses the first).  All text in the "C" collation.
--
-- wordnet_version counts changes of the two tables (a trigger bumps it); a
-- server process keeps its stem cache only while the version row it sees
-- stays the same.
CREATE TABLE wordnet_stems (stem text COLLATE "C" NOT NULL);
CREATE TABLE wordnet_excl (inflected text COLLATE "C" NOT NULL, base text COLLATE "C" NOT NULL);
CREATE TABLE wordnet_version (n bigint NOT NULL);
INSERT INTO wordnet_version VALUES (1);

-- Staging: one row per line of a file, in file order.
CREATE TABLE wordnet_load (id bigint GENERATED ALWAYS AS IDENTITY, line text);
COPY wordnet_load (line) FROM '/usr/share/wordnet/index.noun' WITH (FORMAT csv, DELIMITER E'\x1f', QUOTE E'\x1e');
COPY wordnet_load (line) FROM '/usr/share/wordnet/index.verb' WITH (FORMAT csv, DELIMITER E'\x1f', QUOTE E'\x1e');
COPY wordnet_load (line) FROM '/usr/share/wordnet/index.adj' WITH (FORMAT csv, DELIMITER E'\x1f', QUOTE E'\x1e');
COPY wordnet_load (line) FROM '/usr/share/wordnet/index.adv' WITH (FORMAT csv, DELIMITER E'\x1f', QUOTE E'\x1e');
-- Lines beginning with a blank are the files' licence header.
INSERT INTO wordnet_stems (stem)
    SELECT DISTINCT split_part(line, ' ', 1) FROM wordnet_load
     WHERE line IS NOT NULL AND line NOT LIKE ' %' AND split_part(line, ' ', 1) <> ''
    EXCEPT SELECT word FROM dt_StopWords();
TRUNCATE wordnet_load;
COPY wordnet_load (line) FROM '/usr/share/wordnet/noun.exc' WITH (FORMAT csv, DELIMITER E'\x1f', QUOTE E'\x1e');
COPY wordnet_load (line) FROM '/usr/share/wordnet/verb.exc' WITH (FORMAT csv, DELIMITER E'\x1f', QUOTE E'\x1e');
COPY wordnet_load (line) FROM '/usr/share/wordnet/adj.exc' WITH (FORMAT csv, DELIMITER E'\x1f', QUOTE E'\x1e');
COPY wordnet_load (line) FROM '/usr/share/wordnet/adv.exc' WITH (FORMAT csv, DELIMITER E'\x1f', QUOTE E'\x1e');
INSERT INTO wordnet_excl (inflected, base)
    SELECT f[1], b.base
      FROM (SELECT id, string_to_array(btrim(line), ' ') AS f FROM wordnet_load
             WHERE line IS NOT NULL AND btrim(line) <> '') l,
           unnest(l.f[2:]) WITH ORDINALITY AS b(base, nr)
     WHERE b.base <> ''
     ORDER BY l.id, b.nr;
DROP TABLE wordnet_load;

CREATE INDEX wordnet_stems_index ON wordnet_stems (stem);
CREATE INDEX wordnet_excl_index ON wordnet_excl (inflected);
GRANT SELECT ON wordnet_stems, wordnet_excl, wordnet_version TO PUBLIC;

CREATE FUNCTION dt_wordnet_changed() RETURNS trigger LANGUAGE plpgsql
    SECURITY DEFINER SET search_path = pg_catalog, pg_temp AS $$
BEGIN
    UPDATE @extschema@.wordnet_version SET n = n + 1;
    RETURN NULL;
END
$$;
CREATE TRIGGER wordnet_stems_changed
    AFTER INSERT OR UPDATE OR DELETE OR TRUNCATE ON wordnet_stems
    FOR EACH STATEMENT EXECUTE FUNCTION dt_wordnet_changed();
CREATE TRIGGER wordnet_excl_changed
    AFTER INSERT OR UPDATE OR DELETE OR TRUNCATE ON wordnet_excl
    FOR EACH STATEMENT EXECUTE FUNCTION dt_wordnet_changed();
