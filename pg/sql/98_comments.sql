
-- What every object of the extension is for (\dd, \df+, \dT+, \do+ and \dt+
-- show these).  Objects added later carry their COMMENT ON next to their
-- definition; a test fails when one has none.

-- The doc type.
COMMENT ON FUNCTION dt_DocInputFunc(cstring) IS
    'input function of doc: a literal "params:path" or "path"; the file is read from the client (through docsql), or named on the server with ExternalFile';
COMMENT ON FUNCTION dt_DocOutputFunc(doc) IS
    'output function of doc: "spec:path", or "spec,handle(H):path" for a document in a large object or a server file';
COMMENT ON FUNCTION dt_DocBytes(doc) IS 'the stored bytes of a doc value, for inspecting its layout';
COMMENT ON FUNCTION dt_Release() IS 'the release string of the document module';

-- Errors.
COMMENT ON FUNCTION dt_ErrorCatalogue() IS 'every error code the document module raises, with its message ({NAME} marks a parameter)';
COMMENT ON FUNCTION dt_RaiseError(text, text[]) IS
    'raises one of the module''s errors with name/value parameters, e.g. dt_RaiseError(''XD00M'', ''FILENAME'', ''/x'')';

-- Format specifications.
COMMENT ON FUNCTION findparamtx(text, text) IS
    'the value of a parameter of a format specification: findparamtx(''version'', ''format(wp),version(5.1):/p'') = 5.1';
COMMENT ON FUNCTION findparamdoc(text, doc) IS 'the value of a parameter of a document''s format specification';
COMMENT ON FUNCTION dt_GetPathText(text) IS 'the path of a specification "params:path" (after its first colon)';
COMMENT ON FUNCTION dt_GetPath(doc) IS 'the stored path of a document';
COMMENT ON FUNCTION dt_GetParams(doc) IS 'the parameter list of a document''s format specification';
COMMENT ON FUNCTION dt_GetFormat(doc) IS 'the format of a document (its format parameter)';

-- Words.
COMMENT ON FUNCTION IsStopWord(text) IS
    'whether a word, folded to lower case, is in the stop-word list (HOME/extend/document/install/stopwords, read once per server process)';
COMMENT ON FUNCTION StemWord(text) IS
    'the WordNet base form of a word: a base form or stop word comes back as given, any other word as its stem in lower case';
COMMENT ON FUNCTION StripAndStemText(text) IS
    'the stems of the words of a text separated by one blank; stop words and ( ) ! dropped, a :count after a word kept';
COMMENT ON FUNCTION OrTerms(text) IS 'the stems of the words of a text joined by " or ": a query for any of them';
COMMENT ON FUNCTION AndTerms(text) IS 'the stems of the words of a text joined by " and ": a query for all of them';
COMMENT ON FUNCTION dt_FileTerms(text) IS
    'a server file read as a document: its terms with their counts (needs superuser or pg_read_server_files)';
COMMENT ON FUNCTION dt_StopWords() IS 'the stop-word set of this server process, with how often each word is listed';
COMMENT ON FUNCTION dt_StemCacheStats() IS 'the stem cache of this server process: entries, hits, misses and resets';
COMMENT ON FUNCTION dt_WordnetIsOpen() IS 'whether the WordNet tables are open in this process (only while a stemming call runs)';
COMMENT ON FUNCTION dt_MorphWord(text) IS
    'the WordNet morphological rules alone (irregular forms, then detachment rules), without the base-form test of StemWord';
COMMENT ON FUNCTION dt_wordnet_changed() IS 'trigger function: counts changes of the WordNet tables so that stem caches are emptied';
COMMENT ON TABLE wordnet_stems IS 'WordNet base forms (nouns, verbs, adjectives, adverbs) except the stop words, from Debian''s wordnet-base';
COMMENT ON TABLE wordnet_excl IS 'WordNet irregular forms with their base forms, in file order (nouns, verbs, adjectives, adverbs)';
COMMENT ON TABLE wordnet_version IS 'counts changes of wordnet_stems and wordnet_excl; stem caches are kept only while it stays the same';

-- Documents.
COMMENT ON FUNCTION DocLength(doc) IS 'bytes of text of a document; for a server file (ExternalFile) its current size';
COMMENT ON FUNCTION DocWordCnt(doc) IS 'term occurrences of a document (stop words dropped, stems counted)';
COMMENT ON FUNCTION DocUWordCnt(doc) IS 'distinct terms of a document';
COMMENT ON FUNCTION DocLOHandle(doc) IS 'the handle of a document''s large object or server file (null for text kept in the row)';
COMMENT ON FUNCTION DocLOHandleExternal(doc) IS 'the handle of a document stored outside the row (null for text kept in the row)';
COMMENT ON FUNCTION dt_LOhandles(doc) IS 'the large-object handles a document owns (null for text in the row and server files)';
COMMENT ON FUNCTION dt_LOOid(doc) IS 'the large object a document owns (null for text in the row and server files)';
COMMENT ON FUNCTION GetDocText(doc) IS 'the text of a document as stored (a server file: the bytes it had when the document was made)';
COMMENT ON FUNCTION GetDocInternal(doc, text) IS
    'writes the text of a document to a new server file in the directory; returns "spec:file" (needs pg_write_server_files)';
COMMENT ON FUNCTION DocDisplay(doc, text, text) IS
    'runs a command (%s: a server copy of the text) with DISPLAY set; returns its exit status (needs pg_execute_server_program)';
COMMENT ON FUNCTION DocPrint(doc, text) IS
    'runs a print command (%s: a server copy of the text); returns its exit status (needs pg_execute_server_program)';
COMMENT ON FUNCTION GetDoc(doc, text) IS 'sends the text of a document to a client file in the directory (through docsql); returns "spec:client file"';
COMMENT ON FUNCTION dt_Export(doc, text) IS
    'sends a document to a client file (through docsql); returns a description that dt_Import reads back';
COMMENT ON FUNCTION dt_Import(text) IS
    'a new document from an export description: the client file is read again and a new term table built';
COMMENT ON FUNCTION dt_ConvertTx(doc, text, text) IS
    'converts a document to a format (through "DocumentConversions") into a client file in the directory; returns its specification';
COMMENT ON FUNCTION IndexTerms(doc) IS 'the terms of a document as "stem:count " items, most frequent first';
COMMENT ON FUNCTION Occurrences(doc, text) IS 'the counts in a document of the stems of the words of a text, as "stem:count " items';
COMMENT ON FUNCTION TopNTerms(doc, integer) IS 'the n most frequent terms of a document as "stem:count " items';

-- Large objects.
COMMENT ON EVENT TRIGGER dt_drop_large_objects IS 'removes the large objects of dropped tables and doc columns';
COMMENT ON EVENT TRIGGER dt_attach_large_object_triggers IS 'gives every new or altered table with doc columns its large-object triggers';
COMMENT ON EVENT TRIGGER dt_release_retyped_columns IS 'removes the large objects of doc columns an ALTER TABLE changes to another type';
COMMENT ON EVENT TRIGGER dt_refuse_materialized_docs IS 'refuses materialized views with doc columns';

-- Queries.
COMMENT ON FUNCTION Contains(doc, text) IS
    'whether a document matches a query: words joined by and, or (left to right), ! for not, parentheses';
COMMENT ON FUNCTION ContainsWords(doc, text) IS 'whether a document has any word of a list (an options prefix "=10 | %50 | " is skipped)';
COMMENT ON FUNCTION DocLike(doc, doc) IS 'whether a document has any term of another document';
COMMENT ON FUNCTION MakeQueryFromDoc(doc) IS 'the terms of a document as a query, each weighted by its count: "(dog:2 or cat:1)"';
COMMENT ON FUNCTION PrintExprTree(text) IS 'the rewritten tree of a query as text, e.g. "(dog andnot cat )"';
COMMENT ON FUNCTION dt_PrintWordList(text) IS 'the rewritten tree of a ContainsWords word list as text';
COMMENT ON FUNCTION dt_QueryTerms(text, boolean) IS 'the words of a rewritten query (or of a word list), left to right, with their weights';
COMMENT ON FUNCTION dt_QueryOptions(text) IS 'the options prefix of a word list: row limit, percentage, and the words after it';
COMMENT ON FUNCTION dt_querysel(internal, oid, internal, integer) IS 'restriction estimator of @@ (Contains)';
COMMENT ON FUNCTION dt_wordlistsel(internal, oid, internal, integer) IS 'restriction estimator of @@@ (ContainsWords)';
COMMENT ON FUNCTION dt_doclikesel(internal, oid, internal, integer) IS 'restriction estimator of % (DocLike)';
COMMENT ON OPERATOR @@ (doc, text) IS 'document matches query (Contains)';
COMMENT ON OPERATOR @@@ (doc, text) IS 'document has any word of the list (ContainsWords)';
COMMENT ON OPERATOR % (doc, doc) IS 'document has any term of the other document (DocLike)';

-- Conversion.
COMMENT ON FUNCTION formatconvert(text, text) IS
    'converts the server file of one specification into that of another; null when no conversion exists or a step failed';
COMMENT ON FUNCTION dt_ConversionPath(text, text) IS 'the steps a conversion between two formats would run, or null when there is none';
COMMENT ON FUNCTION IsConvertible(doc, text) IS 'whether a document can be converted to a format';
