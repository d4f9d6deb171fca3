// What the stores keep: texts whole as the caller sized them, read back to
// their first NUL; ids never reused; lists appended to; deletes that cascade;
// expiry compared strictly; one session entry per key.
#include <sstream>

#include "test_util.h"

namespace database_interface::test {

using StoresTest = StoreTest;

TEST_F(StoresTest, RecordsKeepEveryFieldIdsAreNeverReusedAndDeletesCascade) {
  int start = 0, other = 0;
  std::string version = "kept", type = "kept";
  int64_t time = 7;
  ASSERT_EQ(1, m_db->InsertStartRecode(start, "1.2.3", 3, "ab\0cd", 5, 4886718345));
  ASSERT_EQ(1, m_db->InsertStartRecode(other, "x", 0, "y", -1, -1));
  EXPECT_EQ(0, m_db->SelectStartRecode(3, version, type, time));
  EXPECT_EQ("kept|kept|7", version + "|" + type + "|" + std::to_string(time));
  EXPECT_EQ(1, m_db->SelectStartRecode(start, version, type, time));
  EXPECT_EQ("1.2|ab|4886718345", version + "|" + type + "|" + std::to_string(time));
  std::vector<CoreRecode> cores{CoreRecode(101, "a", "b", 7, 8)};
  std::vector<InstanceInfo> instances(1);
  CoreRecode core(-9, std::string("d\0x", 3), "l", start, 4886718345), kept(-9, "k", "m", other, 6);
  InstanceInfo a(-9, "n", "s", 77, "p", start, 4886718345), b(-9, "x", "y", 5, "z", other, 6);
  for (CoreRecode* r : {&core, &kept}) ASSERT_EQ(1, m_db->InsertCoreRecode(*r));
  for (InstanceInfo* r : {&a, &a, &b}) ASSERT_EQ(1, m_db->InsertInstanceInfo(*r));  // 2 rows of a
  EXPECT_EQ(0, m_db->UpdataInstanceSessionId(1, "ab\0cd", 5));
  EXPECT_EQ(0, m_db->UpdataInstanceSessionId(2, "xyz", 2));
  EXPECT_EQ(0, m_db->UpdataInstanceSessionId(9, "none", -1));
  ASSERT_EQ(0, m_db->InsertMessageCollectKey("k\0ey", 4, "secret", 3));
  // The file holds every byte the caller sized, as text; reading back stops at a NUL.
  EXPECT_EQ("text312E32|text6162006364,text|text79,640078,6B,6162006364,7879,79,6B006579|736563",
            Raw(m_path,
                "SELECT typeof(sdk_version) || hex(sdk_version) || '|' || typeof(sdk_type) || "
                "hex(sdk_type) FROM start_recode "
                "UNION ALL SELECT hex(dump_file_path) FROM core_recode "
                "UNION ALL SELECT hex(session_id) FROM instance_info "
                "UNION ALL SELECT hex(message_access_key) || '|' || hex(message_access_secret_key) "
                "FROM message_collect_key"));
  EXPECT_EQ(1, m_db->SelectMessageCollectKey(version, type));
  EXPECT_EQ("k|sec", version + "|" + type);
  EXPECT_EQ(2, m_db->SelectAllCoreRecode(cores));
  EXPECT_EQ(2, m_db->SelectInstanceInfoWithStartRecodeId(start, instances));
  std::ostringstream read;
  for (const CoreRecode& r : cores) {
    read << r.id << '|' << r.dump_file_path << '|' << r.log_file_path << '|' << r.start_recode_id
         << '|' << r.create_time << ',';
  }
  for (const InstanceInfo& r : instances) {
    read << r.id << '|' << r.instance_no << '|' << r.session_id << '|' << r.business_type << '|'
         << r.protocol_type << '|' << r.start_recode_id << '|' << r.create_time << ',';
  }
  // SQLite returns rows in id order, though nothing promises it.
  EXPECT_EQ(
      "101|a|b|7|8,1|d|l|1|4886718345,2|k|m|2|6,0|||0||0|0,1|n|ab|77|p|1|4886718345,2|n|xy|77|p|1|"
      "4886718345,",
      read.str());

  EXPECT_EQ(0, m_db->DeleteCoreRecode(kept.id));
  EXPECT_EQ(0, m_db->DeleteInstanceInfo(b.id));
  for (int k = 0; k < 2; ++k) EXPECT_EQ(0, m_db->DeleteStartRecode(start));  // then none left
  const char* const ids =
      "SELECT group_concat(id) || (SELECT count(*) FROM core_recode) || (SELECT count(*) FROM "
      "instance_info) FROM start_recode";
  EXPECT_EQ("200", Raw(m_path, ids));
  ASSERT_EQ(1, m_db->InsertCoreRecode(kept));
  ASSERT_EQ(1, m_db->InsertInstanceInfo(b));
  for (int k = 0; k < 2; ++k) EXPECT_EQ(0, m_db->DeleteAllStartRecode());
  EXPECT_EQ("NULL", Raw(m_path, ids));
  ASSERT_EQ(1, m_db->InsertStartRecode(start, "v", -1, "t", -1, 1));
  EXPECT_EQ(std::make_tuple(3, 3, 4), std::make_tuple(start, kept.id, b.id));
  // Under no start record: refused by the foreign key, the id untouched.
  EXPECT_EQ(-1, m_db->InsertCoreRecode(kept));
  EXPECT_EQ(-1, m_db->InsertInstanceInfo(b));
  EXPECT_EQ(std::make_pair(3, 4), std::make_pair(kept.id, b.id));
  EXPECT_EQ((Lines{StepLine("InsertCoreRecode", "constraint failed"),
                   StepLine("InsertInstanceInfo", "constraint failed")}),
            Take());
}

TEST_F(StoresTest, SessionCacheFindsAndKeepsAnEntryStrictlyBeforeItsExpiryAndLastWriteWins) {
  const int64_t expiry = 1700000000000;
  std::string value = "kept";
  ASSERT_EQ(0, m_db->InsertSessionCache("key", "first", expiry + 5));
  ASSERT_EQ(0, m_db->InsertSessionCache("key", "value", expiry));
  ASSERT_EQ(0, m_db->InsertSessionCache("", "", expiry));
  EXPECT_EQ("text|text|1700000000000,textkey|textvalue|1700000000000",
            Raw(m_path,
                "SELECT typeof(session_key) || session_key || '|' || typeof(session_value) "
                "|| session_value || '|' || expire_time FROM session_cache ORDER BY "
                "session_key"));
  EXPECT_EQ(0, m_db->SelectSessionCache("key", expiry, value));
  EXPECT_EQ(0, m_db->SelectSessionCache("absent", 0, value));
  EXPECT_EQ("kept", value);
  EXPECT_EQ(1, m_db->SelectSessionCache("key", expiry - 1, value));
  EXPECT_EQ("value", value);
  EXPECT_EQ(1, m_db->SelectSessionCache("", 0, value));
  EXPECT_EQ("", value);
  EXPECT_EQ(0, m_db->DeleteSessionCache(expiry));
  for (int k = 0; k < 2; ++k) EXPECT_EQ(0, m_db->DeleteSessionCacheWithKey("key"));
  EXPECT_EQ("[]", Raw(m_path, "SELECT '[' || session_key || ']' FROM session_cache"));
  EXPECT_EQ(0, m_db->DeleteSessionCache(expiry + 1));
  EXPECT_EQ("0", Raw(m_path, "SELECT count(*) FROM session_cache"));
  ASSERT_EQ(0, m_db->InsertSessionCache("key", "value", expiry));
  EXPECT_EQ(0, m_db->DeleteAllSessionCache());
  EXPECT_EQ("0", Raw(m_path, "SELECT count(*) FROM session_cache"));
}

// Mebibyte values, SQL and printf metacharacters in every field (the fuzzer's
// corpus holds NUL bytes, odd lengths and null pointers).
TEST_F(StoresTest, HostileTextsInEveryFieldAreStoredAndReadBackExactly) {
  std::string mebibyte(size_t{1} << 20, ' ');
  for (size_t i = 0; i < mebibyte.size(); ++i) mebibyte[i] = static_cast<char>('!' + i % 90);
  for (const std::string& text : {mebibyte, std::string("'; DROP TABLE start_recode; --%s%n")}) {
    const std::string path = m_dir.File(std::to_string(text.size()));
    ASSERT_EQ(0, InitOn(path));
    Ops ops(*m_db, text);
    for (const Ops::Op& op : ops.ops) EXPECT_EQ(op.result, op.call()) << op.name;
    EXPECT_TRUE(ops.ReadBack()) << text.substr(0, 40);
    EXPECT_EQ("7", Raw(path, "SELECT count(*) FROM sqlite_master WHERE type = 'table'"));
  }
}

}  // namespace database_interface::test
