-- Every code of the module arrives in psql with its SQLSTATE, its message
-- and its parameters.
\set VERBOSITY default
SELECT count(*) AS codes FROM dt_ErrorCatalogue();
SELECT code, message FROM dt_ErrorCatalogue() ORDER BY code;

-- Each code raised as the module raises it; the SQLSTATE is the code.
CREATE FUNCTION pg_temp.raised(c text, VARIADIC p text[] DEFAULT '{}')
RETURNS TABLE(sqlstate text, message text, detail text) LANGUAGE plpgsql AS $$
DECLARE m text; d text; s text;
BEGIN
    PERFORM dt_RaiseError(c, VARIADIC p);
EXCEPTION WHEN OTHERS THEN
    GET STACKED DIAGNOSTICS s = RETURNED_SQLSTATE, m = MESSAGE_TEXT, d = PG_EXCEPTION_DETAIL;
    RETURN QUERY SELECT s, m, d;
END $$;

SELECT r.sqlstate, r.message FROM dt_ErrorCatalogue() c, pg_temp.raised(c.code,
    'NKEY','2', 'TABLE_NAME','t', 'COMP','indextuple', 'AM','dtree', 'OP','7',
    'TABNAME','wordnet_stems_index', 'FILENAME','/usr/tmp/a.1', 'IN','format(wp)',
    'OUT','format(ascii)', 'MODE','0', 'PERM','444', 'SIZE','8084', 'GOT_LEN','3',
    'EXPECT_LEN','4', 'TYPE','GetClientFile', 'STRING','(null)', 'SYNTAX','filename',
    'NAME','Client file error', 'OPERATION','Open of file /a', 'OBJECT','index',
    'OBJ_NAME','ix', 'ERRMSG','Can only create a dtree index on columns of type doc',
    'CLASS','table', 'VALUE','42') r ORDER BY 1;

-- Shown as psql shows them.
SELECT dt_RaiseError('XD00M', 'FILENAME', '/usr/tmp/a.txt.123');
\echo :LAST_ERROR_SQLSTATE
SELECT dt_RaiseError('TL001', 'NAME', 'Client file error', 'OPERATION', 'Read of client file /a');
\echo :LAST_ERROR_SQLSTATE
SELECT dt_RaiseError('XD00L');
\echo :LAST_ERROR_SQLSTATE
SELECT dt_RaiseError('22T02', 'TYPE', 'PutClientFile', 'STRING', '(null)', 'SYNTAX', 'string');
\echo :LAST_ERROR_SQLSTATE

-- An unknown code is itself a clear error.
SELECT dt_RaiseError('ZZZZZ');
\echo :LAST_ERROR_SQLSTATE

-- Parameters come in pairs of name and value, none of them null.
SELECT dt_RaiseError('XD00M', VARIADIC ARRAY[NULL,NULL]::text[]);
\echo :LAST_ERROR_SQLSTATE
SELECT dt_RaiseError('XD00M', 'FILENAME', NULL);
\echo :LAST_ERROR_SQLSTATE
SELECT dt_RaiseError('XD00M', 'FILENAME');
\echo :LAST_ERROR_SQLSTATE

-- Errors raised by real code paths.
SELECT 'NoCopyText:/a/b'::doc;
\echo :LAST_ERROR_SQLSTATE
SELECT 'format(ascii),ExternalFile:/no/such/file'::doc;
\echo :LAST_ERROR_SQLSTATE
SELECT 'format(ascii),ExternalFile:relative/path'::doc;
\echo :LAST_ERROR_SQLSTATE
