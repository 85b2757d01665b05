
-- Words: stop words, WordNet stemming, texts turned into terms.

-- Whether a word (folded to lower case) is in the stop-word list, which is
-- read once per server process from HOME/extend/document/install/stopwords.
CREATE FUNCTION IsStopWord(word text) RETURNS boolean
    AS 'MODULE_PATHNAME', 'pgdoc_IsStopWord' LANGUAGE C STABLE STRICT PARALLEL SAFE;

-- The WordNet base form of a word: a base form or stop word comes back as
-- given, any other word as its stem in lower case.
CREATE FUNCTION StemWord(word text) RETURNS text
    AS 'MODULE_PATHNAME', 'pgdoc_StemWord' LANGUAGE C STABLE STRICT PARALLEL RESTRICTED;

-- The stems of a text separated by one blank; stop words and "(", ")", "!"
-- are dropped, a ":digits" count after a word is kept.
CREATE FUNCTION StripAndStemText(input text) RETURNS text
    AS 'MODULE_PATHNAME', 'pgdoc_StripAndStemText' LANGUAGE C STABLE STRICT PARALLEL RESTRICTED;

-- The same stems joined by " or " and by " and ": query strings.
CREATE FUNCTION OrTerms(input text) RETURNS text
    AS 'MODULE_PATHNAME', 'pgdoc_OrTerms' LANGUAGE C STABLE STRICT PARALLEL RESTRICTED;
CREATE FUNCTION AndTerms(input text) RETURNS text
    AS 'MODULE_PATHNAME', 'pgdoc_AndTerms' LANGUAGE C STABLE STRICT PARALLEL RESTRICTED;

-- A server file read as a document: its terms and their counts.  Needs the
-- rights of COPY FROM a file (superuser or pg_read_server_files).
CREATE FUNCTION dt_FileTerms(path text, OUT term text, OUT count integer) RETURNS SETOF record
    AS 'MODULE_PATHNAME', 'pgdoc_dt_FileTerms' LANGUAGE C VOLATILE STRICT PARALLEL RESTRICTED;

-- The stop-word set of this server process, with the number of times each
-- word is listed.
CREATE FUNCTION dt_StopWords(OUT word text, OUT count integer) RETURNS SETOF record
    AS 'MODULE_PATHNAME', 'pgdoc_dt_StopWords' LANGUAGE C STABLE STRICT PARALLEL SAFE;

-- The per-process stem cache: entries, hits, misses, and how often it was
-- emptied because the WordNet tables changed.
CREATE FUNCTION dt_StemCacheStats(OUT entries bigint, OUT hits bigint, OUT misses bigint,
                                  OUT resets bigint) RETURNS record
    AS 'MODULE_PATHNAME', 'pgdoc_dt_StemCacheStats' LANGUAGE C VOLATILE STRICT;

-- Whether the WordNet tables are open in this process right now (they are
-- open only while a stemming call runs).
CREATE FUNCTION dt_WordnetIsOpen() RETURNS boolean
    AS 'MODULE_PATHNAME', 'pgdoc_dt_WordnetIsOpen' LANGUAGE C VOLATILE STRICT;

-- The morphological reduction alone (irregular forms, then the detachment
-- rules), without the base-form test StemWord makes first.
CREATE FUNCTION dt_MorphWord(word text, OUT stem text, OUT isstop boolean) RETURNS record
    AS 'MODULE_PATHNAME', 'pgdoc_dt_MorphWord' LANGUAGE C STABLE STRICT PARALLEL RESTRICTED;
