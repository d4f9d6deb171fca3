// Message collection keys: every insert adds a pair and the select reads the first one. Also the
// step failure of every store's operations, which share one way of running a statement.
#include <functional>
#include <tuple>

#include "test_util.h"

namespace database_interface::test {

class MessageCollectKeyTest : public StoreTest {};
class LockedFileTest : public StoreTest {};

TEST_F(MessageCollectKeyTest, InsertsAddPairsWithTheCallersLengthsAndSelectReadsTheFirst) {
  std::string key = "kept", secret = "kept";
  EXPECT_EQ(0, m_db->SelectMessageCollectKey(key, secret));
  EXPECT_EQ(-1, m_db->InsertMessageCollectKey("key", -1, nullptr, 0));
  EXPECT_EQ("kept|kept", key + "|" + secret);
  EXPECT_TRUE(Logged().empty());
  EXPECT_EQ(0, m_db->InsertMessageCollectKey("ab\0cd", 5, "1.2.3", 3));
  EXPECT_EQ(0, m_db->InsertMessageCollectKey("unused", 0, "full", -1));
  EXPECT_EQ((std::vector<std::string>{"text6162006364|312E32", "text|66756C6C"}),
            RawColumn(m_db_path,
                      "SELECT typeof(message_access_key) || hex(message_access_key) || "
                      "'|' || hex(message_access_secret_key) FROM message_collect_key "
                      "ORDER BY rowid"));
  EXPECT_EQ(1, m_db->SelectMessageCollectKey(key, secret));
  EXPECT_EQ("ab|1.2", key + "|" + secret);
}

// A second connection holds the file exclusively, so every step fails at once with SQLITE_BUSY.
TEST_F(LockedFileTest, EveryOperationLogsOnlyItsStepLineAndSucceedsOnceTheLockIsGone) {
  int start = 0, id = -3;
  ASSERT_EQ(1, m_db->InsertStartRecode(start, "1.0", -1, "sdk", -1, 1));
  std::string key = "kept", secret = "kept", version = "kept", type = "kept", value = "kept";
  int64_t start_time = 7;
  CoreRecode core(-3, "DUMP-4711", "LOG-4711", start, 1);
  InstanceInfo instance(-3, "NO-4711", "SESSION-4711", 1, "PROTOCOL-4711", start, 1);
  std::vector<CoreRecode> cores(2);
  std::vector<InstanceInfo> instances(2);
  const std::vector<std::tuple<std::function<int()>, int, std::string, std::string>> calls{
      {[&] { return m_db->InsertMessageCollectKey("KEY-4711", -1, "SECRET-4711", -1); }, 0,
       "InsertMessageCollectKey",
       "INSERT INTO message_collect_key(message_access_key, message_access_secret_key) "
       "VALUES(:message_access_key, :message_access_secret_key)"},
      {[&] { return m_db->SelectMessageCollectKey(key, secret); }, 1, "SelectMessageCollectKey",
       "SELECT message_access_key, message_access_secret_key FROM message_collect_key LIMIT 1"},
      {[&] { return m_db->InsertStartRecode(id, "VERSION-4711", -1, "TYPE-4711", -1, 1); }, 1,
       "InsertStartRecode",
       "INSERT INTO start_recode (sdk_version, sdk_type, start_time) VALUES(:sdk_version, "
       ":sdk_type, :start_time) RETURNING id"},
      {[&] { return m_db->SelectStartRecode(start, version, type, start_time); }, 1,
       "SelectStartRecode",
       "SELECT sdk_version, sdk_type, start_time FROM start_recode WHERE id = :id LIMIT 1"},
      {[&] { return m_db->DeleteStartRecode(id); }, 0, "DeleteStartRecode",
       "DELETE FROM start_recode WHERE id = :id"},
      {[&] { return m_db->InsertCoreRecode(core); }, 1, "InsertCoreRecode",
       "INSERT INTO core_recode (dump_file_path, log_file_path, start_recode_id, create_time) "
       "VALUES(:dump_file_path, :log_file_path, :start_recode_id, :create_time) RETURNING id"},
      {[&] { return m_db->SelectAllCoreRecode(cores); }, 1, "SelectAllCoreRecode",
       "SELECT id, dump_file_path, log_file_path, start_recode_id, create_time FROM core_recode"},
      {[&] { return m_db->DeleteCoreRecode(core.id); }, 0, "DeleteCoreRecode",
       "DELETE FROM core_recode WHERE id = :id"},
      {[&] { return m_db->InsertInstanceInfo(instance); }, 1, "InsertInstanceInfo",
       "INSERT OR REPLACE INTO instance_info  (instance_no, session_id, business_type, "
       "protocol_type, start_recode_id, create_time) VALUES (:instance_no, :session_id, "
       ":business_type, :protocol_type, :start_recode_id, :create_time) RETURNING id"},
      {[&] { return m_db->SelectInstanceInfoWithStartRecodeId(start, instances); }, 1,
       "SelectInstanceInfoWithStartRecodeId",
       "SELECT id, instance_no, session_id, business_type, protocol_type, "
       "start_recode_id,create_time  FROM instance_info WHERE start_recode_id = :start_recode_id"},
      {[&] { return m_db->UpdataInstanceSessionId(instance.id, "UPDATED-4711", -1); }, 0,
       "UpdataInstanceSessionId",
       "UPDATE instance_info SET session_id = :session_id WHERE id = :id"},
      {[&] { return m_db->DeleteInstanceInfo(instance.id); }, 0, "DeleteInstanceInfo",
       "DELETE FROM instance_info WHERE id = :id"},
      {[&] { return m_db->InsertSessionCache("CACHE-KEY-4711", "CACHE-VALUE-4711", 100); }, 0,
       "InsertSessionCache",
       "INSERT OR REPLACE INTO session_cache(session_key, session_value, expire_time) VALUES "
       "(:session_key, :session_value, :expire_time);"},
      {[&] { return m_db->SelectSessionCache("CACHE-KEY-4711", 0, value); }, 1,
       "SelectSessionCache",
       "SELECT session_value FROM session_cache WHERE session_key = :session_key AND expire_time > "
       ":expire_time;"},
      {[&] { return m_db->DeleteSessionCacheWithKey("CACHE-KEY-4711"); }, 0,
       "DeleteSessionCacheWithKey", "DELETE FROM session_cache WHERE session_key = :session_key;"},
      {[&] { return m_db->DeleteSessionCache(200); }, 0, "DeleteSessionCache",
       "DELETE FROM session_cache WHERE expire_time < :expire_time"},
      {[&] { return m_db->DeleteAllSessionCache(); }, 0, "DeleteAllSessionCache",
       "DELETE FROM session_cache;"},
      {[&] { return m_db->DeleteAllStartRecode(); }, 0, "DeleteAllStartRecode",
       "DELETE FROM start_recode"}};
  sqlite3* raw = RawOpen();
  RawExec(raw, "BEGIN EXCLUSIVE;");
  std::vector<std::string> expected;
  for (const auto& [call, result, name, sql] : calls) {
    EXPECT_EQ(-1, call()) << name;
    expected.push_back("[database]database_interface::CDatabase::" + name +
                       " sqlite3_step with sql[" + sql + "] failed:database is locked");
  }
  RawExec(raw, "ROLLBACK;");
  EXPECT_EQ(expected, Logged());
  for (const std::string& line : Logged()) EXPECT_EQ(std::string::npos, line.find("4711"));
  EXPECT_EQ("kept|kept|kept|kept|kept|7|-3|-3|-3|2|2",
            key + "|" + secret + "|" + version + "|" + type + "|" + value + "|" +
                std::to_string(start_time) + "|" + std::to_string(id) + "|" +
                std::to_string(core.id) + "|" + std::to_string(instance.id) + "|" +
                std::to_string(cores.size()) + "|" + std::to_string(instances.size()));
  for (const auto& [call, result, name, sql] : calls) EXPECT_EQ(result, call()) << name;
  RawExec(raw, "BEGIN EXCLUSIVE;");  // fails if a statement that read a row was left unreset
  RawExec(raw, "ROLLBACK;");
  RawClose(raw);
  EXPECT_EQ("KEY-4711|SECRET-4711|CACHE-VALUE-4711|3|3", key + "|" + secret + "|" + value + "|" +
                                                             std::to_string(cores.size()) + "|" +
                                                             std::to_string(instances.size()));
  EXPECT_EQ(expected.size(), Logged().size());
}

}  // namespace database_interface::test
