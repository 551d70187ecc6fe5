-- The tables of the till's queue for SQLite. The service creates missing tables with their indexes
-- and does not change existing ones.
-- By hand: sqlite3 /tallocash/cash/queue/queues.db < sqlite.sql

CREATE TABLE IF NOT EXISTS message (
    -- AUTOINCREMENT never reuses the id of a deleted row.
    messageid    INTEGER PRIMARY KEY AUTOINCREMENT CHECK (messageid <= 2147483647),
    type         TEXT NOT NULL,
    body         TEXT NOT NULL,
    cardnumber   TEXT NOT NULL DEFAULT '',
    statuscode   TEXT NOT NULL DEFAULT '',
    creationtime TEXT NOT NULL DEFAULT (datetime('now', 'localtime'))
);
CREATE INDEX IF NOT EXISTS message_type ON message (type, messageid);
CREATE INDEX IF NOT EXISTS message_card ON message (type, cardnumber);
-- Counting the rows reads only this index, so the time it returns is that of the oldest row.
CREATE INDEX IF NOT EXISTS message_creationtime ON message (creationtime);

CREATE TABLE IF NOT EXISTS documentcard (
    id            INTEGER PRIMARY KEY,
    chequenumber  TEXT NOT NULL DEFAULT '',
    cardnumber    TEXT NOT NULL DEFAULT '',
    operationid   TEXT NOT NULL DEFAULT '',
    operationinfo TEXT NOT NULL DEFAULT ''
);
CREATE INDEX IF NOT EXISTS documentcard_cheque ON documentcard (chequenumber);
