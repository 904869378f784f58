// MariaDB 10.10 or newer, for its collations that tell accents apart and ignore case.
#include "platform/odbc/ServerDatabase.h"

#include <array>

namespace qz::platform {

namespace {

constexpr std::array<std::string_view, 2> kSession{
    "SET SESSION collation_connection = utf8mb4_uca1400_nopad_as_ci",
    "SET SESSION sql_mode = 'ANSI_QUOTES,PIPES_AS_CONCAT,STRICT_TRANS_TABLES,NO_ENGINE_SUBSTITUTION', "
    "tx_isolation = 'READ-COMMITTED'",
};

// Names that are looked up have a width, for an index needs one.
constexpr std::array<std::string_view, 36> kFirstTables{
    R"sql(CREATE TABLE IF NOT EXISTS users (
    IDUserName bigint AUTO_INCREMENT PRIMARY KEY,
    UserName varchar(255),
    Password text,
    IMClientInUse text,
    FirstName text,
    LastName text,
    Email text,
    AccountActive smallint DEFAULT 1,
    CreationTime datetime DEFAULT CURRENT_TIMESTAMP,
    Phone text,
    Fax text,
    HomePage text,
    Country text) ENGINE=InnoDB DEFAULT CHARSET=utf8mb4 COLLATE=utf8mb4_uca1400_nopad_as_ci)sql",
    R"sql(CREATE TABLE IF NOT EXISTS buddies (
    IDBuddies bigint AUTO_INCREMENT PRIMARY KEY,
    UserName varchar(255),
    Buddy varchar(255),
    `key` text,
    Comment text,
    `Group` text,
    CreationTime datetime DEFAULT CURRENT_TIMESTAMP) ENGINE=InnoDB DEFAULT CHARSET=utf8mb4 COLLATE=utf8mb4_uca1400_nopad_as_ci)sql",
    R"sql(CREATE TABLE IF NOT EXISTS rooms (
    IDRoom bigint AUTO_INCREMENT PRIMARY KEY,
    RoomName varchar(255),
    CreationTime datetime DEFAULT CURRENT_TIMESTAMP,
    `key` text,
    UserName_Owner varchar(255)) ENGINE=InnoDB DEFAULT CHARSET=utf8mb4 COLLATE=utf8mb4_uca1400_nopad_as_ci)sql",
    R"sql(CREATE TABLE IF NOT EXISTS messages (
    IDMessage bigint AUTO_INCREMENT PRIMARY KEY,
    UserName_From varchar(255),
    UserName_To varchar(255),
    MsgID double,
    ReceiptRequested smallint DEFAULT 0,
    Sent smallint DEFAULT 0,
    SentTime datetime,
    ReceivedTime datetime,
    ExpirationTime datetime,
    Delivered smallint DEFAULT 0,
    DeliveredTime datetime,
    `Ignore` smallint DEFAULT 0) ENGINE=InnoDB DEFAULT CHARSET=utf8mb4 COLLATE=utf8mb4_uca1400_nopad_as_ci)sql",
    R"sql(CREATE TABLE IF NOT EXISTS log (
    IDLog bigint AUTO_INCREMENT PRIMARY KEY,
    ActionTime datetime DEFAULT CURRENT_TIMESTAMP,
    UserName varchar(255),
    RemoteIP text,
    Action text) ENGINE=InnoDB DEFAULT CHARSET=utf8mb4 COLLATE=utf8mb4_uca1400_nopad_as_ci)sql",
    R"sql(CREATE TABLE IF NOT EXISTS command (
    IDCommand bigint AUTO_INCREMENT PRIMARY KEY,
    action text,
    Parameters text) ENGINE=InnoDB DEFAULT CHARSET=utf8mb4 COLLATE=utf8mb4_uca1400_nopad_as_ci)sql",
    R"sql(CREATE TABLE IF NOT EXISTS autoreply (
    IDAutoReply bigint AUTO_INCREMENT PRIMARY KEY,
    UserName varchar(255),
    Message text,
    Enabled smallint DEFAULT 0) ENGINE=InnoDB DEFAULT CHARSET=utf8mb4 COLLATE=utf8mb4_uca1400_nopad_as_ci)sql",
    R"sql(CREATE UNIQUE INDEX IF NOT EXISTS users_UserName ON users (UserName))sql",
    R"sql(CREATE INDEX IF NOT EXISTS buddies_UserName_Buddy ON buddies (UserName, Buddy))sql",
    R"sql(CREATE INDEX IF NOT EXISTS buddies_Buddy ON buddies (Buddy))sql",
    R"sql(CREATE INDEX IF NOT EXISTS rooms_RoomName ON rooms (RoomName))sql",
    R"sql(CREATE INDEX IF NOT EXISTS messages_MsgID ON messages (MsgID))sql",
    R"sql(CREATE INDEX IF NOT EXISTS messages_UserName_From_UserName_To_MsgID ON messages (UserName_From, UserName_To, MsgID))sql",
    R"sql(CREATE INDEX IF NOT EXISTS log_UserName_ActionTime ON log (UserName, ActionTime))sql",
    R"sql(CREATE INDEX IF NOT EXISTS autoreply_UserName ON autoreply (UserName))sql",
    R"sql(CREATE TABLE IF NOT EXISTS velto_changes (name varchar(64) PRIMARY KEY, changes bigint NOT NULL)
    ENGINE=InnoDB DEFAULT CHARSET=utf8mb4)sql",
    R"sql(INSERT IGNORE INTO velto_changes VALUES ('users', 0))sql",
    R"sql(INSERT IGNORE INTO velto_changes VALUES ('buddies', 0))sql",
    R"sql(INSERT IGNORE INTO velto_changes VALUES ('rooms', 0))sql",
    R"sql(INSERT IGNORE INTO velto_changes VALUES ('command', 0))sql",
    R"sql(INSERT IGNORE INTO velto_changes VALUES ('autoreply', 0))sql",
    R"sql(CREATE OR REPLACE TRIGGER velto_users_insert AFTER INSERT ON users FOR EACH ROW
    UPDATE velto_changes SET changes = changes + 1 WHERE name = 'users')sql",
    R"sql(CREATE OR REPLACE TRIGGER velto_users_update AFTER UPDATE ON users FOR EACH ROW
    UPDATE velto_changes SET changes = changes + 1 WHERE name = 'users')sql",
    R"sql(CREATE OR REPLACE TRIGGER velto_users_delete AFTER DELETE ON users FOR EACH ROW
    UPDATE velto_changes SET changes = changes + 1 WHERE name = 'users')sql",
    R"sql(CREATE OR REPLACE TRIGGER velto_buddies_insert AFTER INSERT ON buddies FOR EACH ROW
    UPDATE velto_changes SET changes = changes + 1 WHERE name = 'buddies')sql",
    R"sql(CREATE OR REPLACE TRIGGER velto_buddies_update AFTER UPDATE ON buddies FOR EACH ROW
    UPDATE velto_changes SET changes = changes + 1 WHERE name = 'buddies')sql",
    R"sql(CREATE OR REPLACE TRIGGER velto_buddies_delete AFTER DELETE ON buddies FOR EACH ROW
    UPDATE velto_changes SET changes = changes + 1 WHERE name = 'buddies')sql",
    R"sql(CREATE OR REPLACE TRIGGER velto_rooms_insert AFTER INSERT ON rooms FOR EACH ROW
    UPDATE velto_changes SET changes = changes + 1 WHERE name = 'rooms')sql",
    R"sql(CREATE OR REPLACE TRIGGER velto_rooms_update AFTER UPDATE ON rooms FOR EACH ROW
    UPDATE velto_changes SET changes = changes + 1 WHERE name = 'rooms')sql",
    R"sql(CREATE OR REPLACE TRIGGER velto_rooms_delete AFTER DELETE ON rooms FOR EACH ROW
    UPDATE velto_changes SET changes = changes + 1 WHERE name = 'rooms')sql",
    R"sql(CREATE OR REPLACE TRIGGER velto_command_insert AFTER INSERT ON command FOR EACH ROW
    UPDATE velto_changes SET changes = changes + 1 WHERE name = 'command')sql",
    R"sql(CREATE OR REPLACE TRIGGER velto_command_update AFTER UPDATE ON command FOR EACH ROW
    UPDATE velto_changes SET changes = changes + 1 WHERE name = 'command')sql",
    R"sql(CREATE OR REPLACE TRIGGER velto_command_delete AFTER DELETE ON command FOR EACH ROW
    UPDATE velto_changes SET changes = changes + 1 WHERE name = 'command')sql",
    R"sql(CREATE OR REPLACE TRIGGER velto_autoreply_insert AFTER INSERT ON autoreply FOR EACH ROW
    UPDATE velto_changes SET changes = changes + 1 WHERE name = 'autoreply')sql",
    R"sql(CREATE OR REPLACE TRIGGER velto_autoreply_update AFTER UPDATE ON autoreply FOR EACH ROW
    UPDATE velto_changes SET changes = changes + 1 WHERE name = 'autoreply')sql",
    R"sql(CREATE OR REPLACE TRIGGER velto_autoreply_delete AFTER DELETE ON autoreply FOR EACH ROW
    UPDATE velto_changes SET changes = changes + 1 WHERE name = 'autoreply')sql",
};

/// Of the safeguards. The message is the one text that compares with case: it is never searched.
constexpr std::array<std::string_view, 4> kSafeguardTables{
    R"sql(CREATE TABLE IF NOT EXISTS queue (
    IDQueue bigint AUTO_INCREMENT PRIMARY KEY,
    UserName_From varchar(255),
    UserName_To varchar(255),
    MsgID double,
    Message longtext COLLATE utf8mb4_bin,
    RoomName varchar(255),
    ReceiptRequested smallint DEFAULT 0,
    ReceivedTime datetime,
    ExpirationTime datetime,
    Sent smallint DEFAULT 0,
    SentTime datetime) ENGINE=InnoDB DEFAULT CHARSET=utf8mb4 COLLATE=utf8mb4_uca1400_nopad_as_ci)sql",
    R"sql(CREATE TABLE IF NOT EXISTS queuecount (
    IDQueueCount bigint AUTO_INCREMENT PRIMARY KEY,
    Accepted bigint DEFAULT 0,
    Confirmed bigint DEFAULT 0,
    Expired bigint DEFAULT 0) ENGINE=InnoDB DEFAULT CHARSET=utf8mb4 COLLATE=utf8mb4_uca1400_nopad_as_ci)sql",
    R"sql(CREATE TABLE IF NOT EXISTS lastlogon (
    IDLastLogOn bigint AUTO_INCREMENT PRIMARY KEY,
    UserName varchar(255),
    LogOnTime datetime) ENGINE=InnoDB DEFAULT CHARSET=utf8mb4 COLLATE=utf8mb4_uca1400_nopad_as_ci)sql",
    R"sql(CREATE UNIQUE INDEX IF NOT EXISTS lastlogon_UserName ON lastlogon (UserName))sql",
};

constexpr std::array<std::string_view, 2> kBeginReading{
    "SET TRANSACTION ISOLATION LEVEL REPEATABLE READ",
    "START TRANSACTION WITH CONSISTENT SNAPSHOT, READ ONLY",
};

/// Texts of waiting messages with several recipients: the rows of `queue` refer to them.
constexpr std::array<std::string_view, 2> kQueueTexts{
    R"sql(CREATE TABLE IF NOT EXISTS queuetext (
    IDQueueText bigint AUTO_INCREMENT PRIMARY KEY,
    Message longtext COLLATE utf8mb4_bin) ENGINE=InnoDB DEFAULT CHARSET=utf8mb4 COLLATE=utf8mb4_uca1400_nopad_as_ci)sql",
    R"sql(ALTER TABLE queue ADD COLUMN IF NOT EXISTS IDQueueText bigint)sql",
};

constexpr std::array<std::span<const std::string_view>, 3> kMigrations{
    kFirstTables, kSafeguardTables, kQueueTexts};

} // namespace

const ServerDatabase kMariaDb{
    .name = "MariaDB",
    .overrides = &DatabaseOverrides::mariadb,
    .session = kSession,
    .lock_patience = "SET SESSION innodb_lock_wait_timeout = {}, lock_wait_timeout = {}",
    .lock_patience_in_seconds = true,
    .time_zone = "SET time_zone = '{}'",
    .begin = "BEGIN",
    .begin_reading = kBeginReading,
    .commit = "COMMIT",
    .rollback = "ROLLBACK",
    .transaction_count = "SELECT @@in_transaction",
    // Sessions get the same numbers again after a restart; a lock lasts as long as its session.
    .name_session = "SELECT 'velto {}' FROM DUAL WHERE GET_LOCK('velto {}', 0) = 1",
    .find_session = "SELECT id FROM (SELECT IS_USED_LOCK(?) AS id) AS holder WHERE id IS NOT NULL",
    .end_session = "KILL {}",
    .key_at_end = " RETURNING {}",
    .default_values = " () VALUES ()",
    .reserve_keys = "INSERT INTO {} ({key}) SELECT NULL FROM seq_1_to_{count} RETURNING {key}",
    .counts_rows = true,
    .columns = "SELECT table_name, column_name, data_type FROM information_schema.columns "
               "WHERE table_schema = DATABASE() ORDER BY table_name, ordinal_position",
    .before_keys = "",
    .after_keys = "",
    .advance_counter = "",
    .migrations = kMigrations,
};

} // namespace qz::platform
