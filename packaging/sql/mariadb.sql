-- Schema and tables of the till's queue for MariaDB; mysql.sql has the same for MySQL.
-- By hand: mariadb < mariadb.sql, then a user with SELECT, INSERT, UPDATE, DELETE on queues.*
-- Texts compare by their bytes: type names and excise marks differ by case, and a blank at the end counts,
-- which utf8mb4_bin ignores.

CREATE DATABASE IF NOT EXISTS queues CHARACTER SET utf8mb4 COLLATE utf8mb4_nopad_bin;

CREATE TABLE IF NOT EXISTS queues.message (
    messageid    INT NOT NULL AUTO_INCREMENT,
    type         VARCHAR(64) CHARACTER SET utf8mb4 COLLATE utf8mb4_nopad_bin NOT NULL,
    body         LONGTEXT CHARACTER SET utf8mb4 COLLATE utf8mb4_nopad_bin NOT NULL,
    cardnumber   VARCHAR(128) CHARACTER SET utf8mb4 COLLATE utf8mb4_nopad_bin NOT NULL DEFAULT '',
    statuscode   VARCHAR(255) CHARACTER SET utf8mb4 COLLATE utf8mb4_nopad_bin NOT NULL DEFAULT '',
    creationtime DATETIME NOT NULL DEFAULT CURRENT_TIMESTAMP,
    -- The rows of a type lie together. With the number alone as the key the server walks past the waiting
    -- rows of other types in front, all of them for each row that is read.
    PRIMARY KEY (type, messageid),
    UNIQUE INDEX message_id (messageid),
    -- The rows by type are counted in it, without their bodies.
    INDEX message_type (type),
    INDEX message_card (type, cardnumber),
    -- Counting the rows mostly reads this index alone, and the time it shows is that of the oldest row; some
    -- servers read a small table itself and show another row's.
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
