-- The documents as jsonb with generated columns, partial indexes in the order of the pages, and trigram indexes.
CREATE EXTENSION IF NOT EXISTS pg_trgm;
DROP TABLE IF EXISTS assets;
CREATE TABLE assets (
  doc jsonb NOT NULL,
  n bigserial PRIMARY KEY,
  type smallint GENERATED ALWAYS AS ((doc->>'type')::smallint) STORED,
  project uuid GENERATED ALWAYS AS ((doc->>'project')::uuid) STORED,
  grp uuid GENERATED ALWAYS AS (nullif(doc->>'group', '')::uuid) STORED,
  trash boolean GENERATED ALWAYS AS ((doc->>'trash')::boolean) STORED,
  flagged boolean GENERATED ALWAYS AS ((doc->>'flagged')::boolean) STORED,
  islivefolder boolean GENERATED ALWAYS AS ((doc->>'islivefolder')::boolean) STORED,
  importdate bigint GENERATED ALWAYS AS ((doc->>'importdate')::bigint) STORED,
  importfrompath text GENERATED ALWAYS AS (lower(doc->>'importfrompath')) STORED,
  searchtext text GENERATED ALWAYS AS
    (lower((doc->>'name') || E'\n' || (doc->>'tags') || E'\n' || (doc->>'fileext'))) STORED
);
CREATE INDEX ON assets (importdate DESC) WHERE NOT trash;
CREATE INDEX ON assets (type, importdate DESC) WHERE NOT trash;
CREATE INDEX ON assets (project, grp, importdate DESC) WHERE NOT trash;
CREATE INDEX ON assets (importdate DESC) WHERE flagged AND NOT trash;
CREATE INDEX ON assets USING gin (importfrompath gin_trgm_ops) WHERE islivefolder;
CREATE INDEX ON assets USING gin (searchtext gin_trgm_ops);
