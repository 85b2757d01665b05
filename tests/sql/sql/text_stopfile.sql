-- The stop-word list of a process: where it comes from, what it holds, and
-- that it is read once.  This suite runs in a fresh server process: nothing
-- has looked at stop words yet.
\set VERBOSITY default
\getenv dir DOC_SERVER_DIR
\set home :dir/text_home
\setenv TS_HOME :home

-- No home: a clear error, and a later call may still load the list.
SET document.home = '';
SELECT IsStopWord('the');
\echo :LAST_ERROR_SQLSTATE
-- A home without the list.
SET document.home = '/nonexistent/home';
SELECT IsStopWord('the');
\echo :LAST_ERROR_SQLSTATE

-- A home of our own: "The" written with a capital, "where" twice, and a
-- last word without a newline after it.
\! mkdir -p "$TS_HOME/extend/document/install"
\! printf 'The\nwhere\nof\nwhere\nonly\n' > "$TS_HOME/extend/document/install/stopwords"; printf 'last' >> "$TS_HOME/extend/document/install/stopwords"
SET document.home = :'home';
SELECT IsStopWord('the') AS the, IsStopWord('THE') AS upper_the, IsStopWord('where') AS "where",
       IsStopWord('Where') AS upper_where, IsStopWord('last') AS last;
SELECT * FROM dt_StopWords() ORDER BY word;
-- Stop words are dropped from texts; "The" of the file never matches.
SELECT StripAndStemText('The only dogs of the world, where?');
-- Editing the file changes nothing in this process.
\! printf 'dogs\nthe\n' >> "$TS_HOME/extend/document/install/stopwords"
SELECT IsStopWord('the') AS the, IsStopWord('dogs') AS dogs;
SELECT count(*) FROM dt_StopWords();
RESET document.home;
SELECT IsStopWord('the') AS still_from_the_first_load;
\! rm -rf "$TS_HOME"
