// SQL texts: the connection settings, the prepared statements and the names
// of their operations.
#include "statements.h"

namespace database_interface {

// How every connection keeps the file, set once its tables exist:
// - A commit ends by truncating the journal and syncing that, so a power cut
//   right after a call returns cannot bring the journal back to roll the call
//   back. Deleting the journal instead (SQLite's default) is durable only
//   once the directory is synced, which SQLite's unix VFS does only with
//   synchronous=EXTRA and its win32 VFS never does. synchronous is stated
//   because a system SQLite may be built with another default.
// - Temporary tables, indices and statement journals stay in memory: no
//   secret is ever written to a temporary file.
// - The file is read, never mapped: a file changed under the process cannot
//   fault it with SIGBUS.
// cell_size_check is left off: it checks a page each time the page is read
// into the cache, which is free while the cache stays warm but cost 11% to 74%
// more instructions per call (callgrind, bench/) whenever another process's
// write had emptied it, as it does for a store that processes share.
const char* const kConnectionSettingsSql =
    "PRAGMA journal_mode = TRUNCATE; PRAGMA synchronous = FULL; PRAGMA temp_store = MEMORY; "
    "PRAGMA mmap_size = 0;";

const char* const kDbVersionSqls[kDbVersionStmtCount] = {
    "SELECT id, version from db_version LIMIT 1",
    "INSERT INTO db_version (version) VALUES (:version)",
    "UPDATE db_version SET version = :version WHERE id = :id",
};

const char* const kDbVersionStmtNames[kDbVersionStmtCount] = {
    "database_interface::CDatabase::SelectDbVersion",
    "database_interface::CDatabase::InsertDbVersion",
    "database_interface::CDatabase::UpdateDbVersion",
};

const char* const kStmtSqls[kStmtCount] = {
    // message_collect_key
    "SELECT message_access_key, message_access_secret_key FROM message_collect_key LIMIT 1",
    "INSERT INTO message_collect_key(message_access_key, message_access_secret_key) "
    "VALUES(:message_access_key, :message_access_secret_key)",
    // start_recode
    "INSERT INTO start_recode (sdk_version, sdk_type, start_time) "
    "VALUES(:sdk_version, :sdk_type, :start_time) RETURNING id",
    "DELETE FROM start_recode WHERE id = :id",
    "DELETE FROM start_recode",
    "SELECT sdk_version, sdk_type, start_time FROM start_recode WHERE id = :id LIMIT 1",
    // core_recode
    "INSERT INTO core_recode (dump_file_path, log_file_path, start_recode_id, create_time) "
    "VALUES(:dump_file_path, :log_file_path, :start_recode_id, :create_time) RETURNING id",
    "SELECT id, dump_file_path, log_file_path, start_recode_id, create_time FROM core_recode",
    "DELETE FROM core_recode WHERE id = :id",
    // instance_info
    "INSERT OR REPLACE INTO instance_info  (instance_no, session_id, business_type, "
    "protocol_type, start_recode_id, create_time) VALUES (:instance_no, :session_id, "
    ":business_type, :protocol_type, :start_recode_id, :create_time) RETURNING id",
    "SELECT id, instance_no, session_id, business_type, protocol_type, start_recode_id,"
    "create_time  FROM instance_info WHERE start_recode_id = :start_recode_id",
    "UPDATE instance_info SET session_id = :session_id WHERE id = :id",
    "DELETE FROM instance_info WHERE id = :id",
    // session_cache
    "DELETE FROM session_cache WHERE expire_time < :expire_time",
    "INSERT OR REPLACE INTO session_cache(session_key, session_value, expire_time) "
    "VALUES (:session_key, :session_value, :expire_time);",
    "SELECT session_value FROM session_cache WHERE session_key = :session_key "
    "AND expire_time > :expire_time;",
    "DELETE FROM session_cache WHERE session_key = :session_key;",
    "DELETE FROM session_cache;",
};

const char* const kStmtNames[kStmtCount] = {
    "database_interface::CDatabase::SelectMessageCollectKey",
    "database_interface::CDatabase::InsertMessageCollectKey",
    "database_interface::CDatabase::InsertStartRecode",
    "database_interface::CDatabase::DeleteStartRecode",
    "database_interface::CDatabase::DeleteAllStartRecode",
    "database_interface::CDatabase::SelectStartRecode",
    "database_interface::CDatabase::InsertCoreRecode",
    "database_interface::CDatabase::SelectAllCoreRecode",
    "database_interface::CDatabase::DeleteCoreRecode",
    "database_interface::CDatabase::InsertInstanceInfo",
    "database_interface::CDatabase::SelectInstanceInfoWithStartRecodeId",
    "database_interface::CDatabase::UpdataInstanceSessionId",
    "database_interface::CDatabase::DeleteInstanceInfo",
    "database_interface::CDatabase::DeleteSessionCache",
    "database_interface::CDatabase::InsertSessionCache",
    "database_interface::CDatabase::SelectSessionCache",
    "database_interface::CDatabase::DeleteSessionCacheWithKey",
    "database_interface::CDatabase::DeleteAllSessionCache",
};

}  // namespace database_interface
