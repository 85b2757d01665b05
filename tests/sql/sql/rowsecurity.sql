-- Row-level security and the functions that read a dtree index or its table
-- directly: a role whose policies apply is refused (42501), since these
-- functions cannot filter rows by policy; a query with the index's
-- operators still applies the policies.
\set VERBOSITY default
CREATE ROLE rls_reader;
CREATE ROLE rls_owner;
GRANT USAGE, CREATE ON SCHEMA public TO rls_owner;
GRANT USAGE ON SCHEMA public TO rls_reader;
GRANT EXECUTE ON FUNCTION dt_CheckIndex(regclass), dt_IndexEntries(regclass) TO rls_reader, rls_owner;
SET ROLE rls_owner;
CREATE TABLE secret (id int, owner name, body doc);
INSERT INTO secret VALUES
    (1, 'rls_reader', dt_FromText('public cat notes')),
    (2, 'someone', dt_FromText('hidden cat secret plans')),
    (3, 'someone', dt_FromText('hidden cat secret payroll'));
CREATE INDEX secret_dt ON secret USING dtree (body);
ALTER TABLE secret ENABLE ROW LEVEL SECURITY;
CREATE POLICY own_rows ON secret USING (owner = current_user);
GRANT SELECT, UPDATE ON secret TO rls_reader;
RESET ROLE;

\set VERBOSITY terse
SET ROLE rls_reader;
-- The executor applies the policy: one row.
SELECT id FROM secret WHERE body @@ 'cat' ORDER BY id;
-- Every function that reads the index or the table directly is refused.
\set VERBOSITY default
SELECT row_id FROM dt_RankContains('secret_dt', 'secret');
\echo :LAST_ERROR_SQLSTATE
\set VERBOSITY terse
SELECT row_id FROM dt_RankContainsWords('secret_dt', 'secret');
SELECT row_id FROM dt_RankDocLike('secret_dt', dt_FromText('secret plans'));
SELECT WeightContains('secret_dt', '(0,2)', 'secret');
SELECT WeightContainsWords('secret_dt', '(0,2)', 'secret');
SELECT WeightDocLike('secret_dt', '(0,2)', dt_FromText('secret plans'));
SELECT ListContains('secret_dt', 'secret');
SELECT ListContainsWords('secret_dt', 'secret');
SELECT ListDocLike('secret_dt', dt_FromText('secret plans'));
SELECT count(*) FROM dt_FitDocParams('secret_dt', 'SELECT ''secret''::text, ''(0,2)''::tid, true', true, false);
SELECT AddIndexTerms('secret_dt', '(0,2)', 'planted');
\echo :LAST_ERROR_SQLSTATE
SELECT ReadMetaTerms('secret_dt');
SELECT * FROM dt_IndexStats('secret_dt');
SELECT * FROM dt_IndexEntries('secret_dt');
SELECT dt_CheckIndex('secret_dt');
SELECT * FROM dtstat('secret_dt');
SELECT dt_selectivity('secret', 'body');
RESET ROLE;

-- The owner is exempt unless the table forces its policies on him too.
SET ROLE rls_owner;
SELECT count(*) FROM dt_RankContains('secret_dt', 'secret');
SELECT ReadMetaTerms('secret_dt');
RESET ROLE;
ALTER TABLE secret FORCE ROW LEVEL SECURITY;
SET ROLE rls_owner;
SELECT count(*) FROM dt_RankContains('secret_dt', 'secret');
SELECT * FROM dt_IndexEntries('secret_dt');
SELECT id FROM secret WHERE body @@ 'cat' ORDER BY id;
RESET ROLE;
-- A superuser bypasses row-level security: the functions read every row.
SELECT count(*) FROM dt_RankContains('secret_dt', 'secret');
SELECT dt_CheckIndex('secret_dt');
-- No policy applies any more: the reader may call them again.
ALTER TABLE secret DISABLE ROW LEVEL SECURITY;
SET ROLE rls_reader;
SELECT count(*) FROM dt_RankContains('secret_dt', 'secret');
SELECT ReadMetaTerms('secret_dt');
RESET ROLE;
-- With row_security off, a role whose policies apply gets an error, not rows.
ALTER TABLE secret ENABLE ROW LEVEL SECURITY;
SET row_security = off;
SET ROLE rls_reader;
SELECT count(*) FROM dt_RankContains('secret_dt', 'secret');
RESET ROLE;
RESET row_security;
-- AddIndexTerms reads the row it adds to: UPDATE alone is not enough, or
-- it would tell which rows exist.
CREATE TABLE upd_only (id int, body doc);
INSERT INTO upd_only VALUES (1, dt_FromText('cat'));
CREATE INDEX upd_only_dt ON upd_only USING dtree (body);
GRANT UPDATE ON upd_only TO rls_reader;
SET ROLE rls_reader;
SELECT AddIndexTerms('upd_only_dt', '(0,1)', 'planted');
SELECT AddIndexTerms('upd_only_dt', '(0,9)', 'planted');
RESET ROLE;
SELECT count(*) FROM dt_IndexEntries('upd_only_dt') WHERE term = 'planted';
DROP TABLE secret, upd_only;
REVOKE ALL ON SCHEMA public FROM rls_reader, rls_owner;
DROP OWNED BY rls_reader, rls_owner;
DROP ROLE rls_reader, rls_owner;
