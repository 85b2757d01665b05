-- The ranking coefficients are settings of the session
-- (document.rank_doc_len_coef ... document.rank_z_coef): dt_SetDocParam
-- sets one as SET does, and RESET, RESET ALL, DISCARD ALL, SET LOCAL and a
-- rolled-back transaction treat them as any other setting, so a
-- connection handed on after DISCARD ALL ranks with the defaults again.
\set VERBOSITY terse
CREATE TABLE rs (id int, body doc);
INSERT INTO rs VALUES (1, dt_FromText('dog cat dog bird')), (2, dt_FromText('dog fish')),
                      (3, dt_FromText('cat cat horse'));
CREATE INDEX rs_dt ON rs USING dtree (body);
CREATE VIEW rs_params AS
    SELECT string_agg(value::text, ',' ORDER BY number) AS params,
           bool_and(value = default_value) AS defaults FROM dt_DocParams();
CREATE VIEW rs_weights AS
    SELECT string_agg(r.id || ':' || round(w.weight::numeric, 6), ' ' ORDER BY r.id) AS weights
      FROM dt_RankContainsWords('rs_dt', 'dog cat') w JOIN rs r ON r.ctid = w.row_id;
CREATE TABLE rs_default AS SELECT weights FROM rs_weights;
SELECT * FROM rs_params;
SELECT name, setting FROM pg_settings WHERE name LIKE 'document.rank\_%' ORDER BY name;

-- dt_SetDocParam and SET are the same setting; numbers outside 0..11 are
-- ignored, a value that is not a finite number is refused.
SELECT dt_SetDocParam(11, 4.0), dt_SetDocParam(12, 9), dt_SetDocParam(-1, 9);
SHOW document.rank_z_coef;
SET document.rank_doc_len_coef = -0.5;
SELECT * FROM rs_params;
SELECT weights <> (SELECT weights FROM rs_default) AS changed FROM rs_weights;
SELECT dt_SetDocParam(3, 'NaN');
\set VERBOSITY sqlstate
SELECT dt_SetDocParam(3, 'Infinity');
SET document.rank_x1_coef = 'NaN';
\set VERBOSITY terse
SELECT dt_SetDocParam(5, -0.14499999999999999);
SELECT value = -0.145 AS exact FROM dt_DocParams() WHERE number = 5;

-- DISCARD ALL (what a pooler runs before handing the connection on) and
-- RESET ALL bring back the defaults, weights included.
DISCARD ALL;
SELECT * FROM rs_params;
SELECT weights = (SELECT weights FROM rs_default) AS default_weights FROM rs_weights;
SELECT dt_SetDocParam(0, 1.5), dt_SetDocParam(10, -3);
RESET ALL;
SELECT defaults FROM rs_params;
SELECT dt_SetDocParam(11, 2.5);
RESET document.rank_z_coef;
SELECT defaults FROM rs_params;

-- A rolled-back transaction undoes dt_SetDocParam, SET LOCAL lasts to the
-- end of its transaction.
BEGIN;
SELECT dt_SetDocParam(7, 2.0);
SELECT value FROM dt_DocParams() WHERE number = 7;
ROLLBACK;
SELECT value FROM dt_DocParams() WHERE number = 7;
BEGIN;
SET LOCAL document.rank_x5_coef = 3;
SELECT value FROM dt_DocParams() WHERE number = 7;
SELECT weights <> (SELECT weights FROM rs_default) AS changed FROM rs_weights;
COMMIT;
SELECT value FROM dt_DocParams() WHERE number = 7;
SELECT weights = (SELECT weights FROM rs_default) AS default_weights FROM rs_weights;
-- dt_FitDocParams(..., apply => true) in a transaction that rolls back
-- leaves the coefficients as they were.
CREATE TABLE rs_judged AS SELECT 'dog cat'::text AS q, ctid AS row_id, id = 1 AS relevant FROM rs;
BEGIN;
SELECT count(*) FROM dt_FitDocParams('rs_dt', 'SELECT q, row_id, relevant FROM rs_judged', true, true);
SELECT defaults FROM rs_params;
ROLLBACK;
SELECT defaults FROM rs_params;

-- Changing role keeps the session's settings, these as any other; the
-- other role sees what ranks (dt_DocParams agrees with SHOW) and may
-- reset them.
CREATE ROLE regress_rank_other;
GRANT SELECT ON rs, rs_default TO regress_rank_other;
GRANT SELECT ON rs_params, rs_weights TO regress_rank_other;
SELECT dt_SetDocParam(11, 4.0);
SET ROLE regress_rank_other;
SELECT current_setting('document.rank_z_coef') AS z, value FROM dt_DocParams() WHERE number = 11;
RESET document.rank_z_coef;
SELECT defaults FROM rs_params;
RESET ROLE;
SELECT dt_SetDocParam(11, 4.0);
SET SESSION AUTHORIZATION regress_rank_other;
SELECT current_setting('document.rank_z_coef') AS z, value FROM dt_DocParams() WHERE number = 11;
DISCARD ALL;
SELECT current_user, defaults FROM rs_params;
SELECT weights = (SELECT weights FROM rs_default) AS default_weights FROM rs_weights;
RESET SESSION AUTHORIZATION;
-- Per role: ALTER ROLE ... SET gives a role its coefficients at each login.
ALTER ROLE regress_rank_other SET document.rank_z_coef = 5;
SELECT setconfig FROM pg_db_role_setting s JOIN pg_roles r ON r.oid = s.setrole
 WHERE r.rolname = 'regress_rank_other';
ALTER ROLE regress_rank_other RESET ALL;

DROP TABLE rs_judged;
DROP VIEW rs_weights, rs_params;
DROP TABLE rs, rs_default;
DROP ROLE regress_rank_other;
