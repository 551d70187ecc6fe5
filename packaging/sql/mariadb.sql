-- Schema and tables of the till's queue for MariaDB; mysql.sql has the same for MySQL.
-- By hand: mariadb < mariadb.sql, then a user with SELECT, INSERT, UPDATE, DELETE on queues.*
-- Texts are compared by bytes: type names and excise marks differ by case, and trailing blanks
-- count, which utf8mb4_bin ignores.

CREATE DATABASE IF NOT EXISTS queues CHARACTER SET utf8mb4 COLLATE utf8mb4_nopad_bin;

CREATE TABLE IF NOT EXISTS queues.message (
    messageid    INT NOT NULL AUTO_INCREMENT,
    type         VARCHAR(64) CHARACTER SET utf8mb4 COLLATE utf8mb4_nopad_bin NOT NULL,
    body         LONGTEXT CHARACTER SET utf8mb4 COLLATE utf8mb4_nopad_bin NOT NULL,
    cardnumber   VARCHAR(128) CHARACTER SET utf8mb4 COLLATE utf8mb4_nopad_bin NOT NULL DEFAULT '',
    statuscode   VARCHAR(255) CHARACTER SET utf8mb4 COLLATE utf8mb4_nopad_bin NOT NULL DEFAULT '',
    creationtime DATETIME NOT NULL DEFAULT CURRENT_TIMESTAMP,
    -- Clusters the rows of each type. With messageid alone as the key the server would scan the
    -- waiting rows of other types before each row that it reads.
    PRIMARY KEY (type, messageid),
    UNIQUE INDEX message_id (messageid),
    -- A small index for counting the rows by type without reading bodies.
    INDEX message_type (type),
    INDEX message_card (type, cardnumber),
    -- For counting all rows the server mostly reads only this index, so the time it returns is that
    -- of the oldest row. Some servers scan a small table itself and return another row's time.
    INDEX message_creationtime (creationtime)
) ENGINE = InnoDB;

CREATE TABLE IF NOT EXISTS queues.documentcard (
    id            INT NOT NULL AUTO_INCREMENT PRIMARY KEY,
    chequenumber  VARCHAR(64) CHARACTER SET utf8mb4 COLLATE utf8mb4_nopad_bin NOT NULL DEFAULT '',
    cardnumber    VARCHAR(128) CHARACTER SET utf8mb4 COLLATE utf8mb4_nopad_bin NOT NULL DEFAULT '',
    operationid   VARCHAR(255) CHARACTER SET utf8mb4 COLLATE utf8mb4_nopad_bin NOT NULL DEFAULT '',
    operationinfo LONGTEXT CHARACTER SET utf8mb4 COLLATE utf8mb4_nopad_bin NOT NULL,
    INDEX documentcard_cheque (chequenumber)
) ENGINE = InnoDB;
