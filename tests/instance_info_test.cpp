// Instance records: stored under an existing start record, listed per start record by appending,
// session ids updated with the caller's length.
#include <algorithm>

#include "test_util.h"

namespace database_interface::test {

class InstanceInfoTest : public StoreTest {};

TEST_F(InstanceInfoTest, EqualRecordsGetTwoRowsAndSelectAppendsThoseOfItsStartRecord) {
  int start = 0, other = 0;
  ASSERT_EQ(1, m_db->InsertStartRecode(start, "1.0", -1, "sdk", -1, 1));
  ASSERT_EQ(1, m_db->InsertStartRecode(other, "1.0", -1, "sdk", -1, 1));
  std::vector<InstanceInfo> records(2);
  records[1].instance_no = "old";
  EXPECT_EQ(0, m_db->SelectInstanceInfoWithStartRecodeId(start, records));
  InstanceInfo a(-9, "no", "session", 77, "tcp", start, 4886718345), b = a;
  InstanceInfo empty(-9, "", "", 0, "", start, -1), elsewhere(-9, "x", "y", 5, "z", other, 6);
  for (InstanceInfo* r : {&a, &b, &empty, &elsewhere}) ASSERT_EQ(1, m_db->InsertInstanceInfo(*r));
  EXPECT_EQ("1|2|3|4", std::to_string(a.id) + "|" + std::to_string(b.id) + "|" +
                           std::to_string(empty.id) + "|" + std::to_string(elsewhere.id));
  const std::vector<std::string> rows{"1|no|session|77|tcp|1|4886718345",
                                      "2|no|session|77|tcp|1|4886718345", "3|||0||1|-1"};
  EXPECT_EQ(rows, RawColumn(m_db_path,
                            "SELECT id || '|' || instance_no || '|' || session_id || '|' "
                            "|| business_type || '|' || protocol_type || '|' || "
                            "start_recode_id || '|' || create_time FROM instance_info "
                            "WHERE start_recode_id = 1 ORDER BY id"));
  EXPECT_EQ(3, m_db->SelectInstanceInfoWithStartRecodeId(start, records));
  ASSERT_EQ(5u, records.size());
  EXPECT_EQ("|old", records[0].instance_no + "|" + records[1].instance_no);
  std::vector<std::string> read;
  for (auto r = records.begin() + 2; r != records.end(); ++r) {
    read.push_back(std::to_string(r->id) + "|" + r->instance_no + "|" + r->session_id + "|" +
                   std::to_string(r->business_type) + "|" + r->protocol_type + "|" +
                   std::to_string(r->start_recode_id) + "|" + std::to_string(r->create_time));
  }
  std::sort(read.begin(), read.end());
  EXPECT_EQ(rows, read);
  EXPECT_TRUE(Logged().empty());
}

TEST_F(InstanceInfoTest, UpdataAndDeleteTouchOnlyTheirRowAndIdsAreNeverReused) {
  int start = 0;
  ASSERT_EQ(1, m_db->InsertStartRecode(start, "1.0", -1, "sdk", -1, 1));
  InstanceInfo a(0, "no", "session", 1, "tcp", start, 1), b = a;
  ASSERT_EQ(1, m_db->InsertInstanceInfo(a));
  ASSERT_EQ(1, m_db->InsertInstanceInfo(b));
  const char* const sql = "SELECT typeof(session_id) || hex(session_id) FROM instance_info";
  EXPECT_EQ(-1, m_db->UpdataInstanceSessionId(a.id, nullptr, 0));
  EXPECT_EQ(0, m_db->UpdataInstanceSessionId(3, "none", -1));
  EXPECT_EQ(0, m_db->UpdataInstanceSessionId(a.id, "1.2.3", 3));
  EXPECT_EQ(0, m_db->UpdataInstanceSessionId(b.id, "ab\0cd", 5));
  EXPECT_EQ((std::vector<std::string>{"text312E32", "text6162006364"}), RawColumn(m_db_path, sql));
  std::vector<InstanceInfo> records;
  ASSERT_EQ(2, m_db->SelectInstanceInfoWithStartRecodeId(start, records));
  EXPECT_EQ("ab", records[0].id == b.id ? records[0].session_id : records[1].session_id);
  EXPECT_EQ(0, m_db->UpdataInstanceSessionId(a.id, "unused", 0));
  EXPECT_EQ(0, m_db->UpdataInstanceSessionId(b.id, "full", -1));
  EXPECT_EQ((std::vector<std::string>{"text", "text66756C6C"}), RawColumn(m_db_path, sql));
  EXPECT_EQ(0, m_db->DeleteInstanceInfo(3));
  EXPECT_EQ(0, m_db->DeleteInstanceInfo(b.id));
  EXPECT_EQ(std::vector<std::string>{"1"}, RawColumn(m_db_path, "SELECT id FROM instance_info"));
  ASSERT_EQ(1, m_db->InsertInstanceInfo(b));
  EXPECT_EQ(3, b.id);
  EXPECT_TRUE(Logged().empty());
}

TEST_F(InstanceInfoTest, InsertUnderAMissingStartRecordFailsInTheStepAndStoresNothing) {
  InstanceInfo record(-4, "no", "session", 1, "tcp", 1, 1);
  EXPECT_EQ(-1, m_db->InsertInstanceInfo(record));
  EXPECT_EQ(-4, record.id);
  EXPECT_EQ(0, RawInt(m_db_path, "SELECT count(*) FROM instance_info"));
  EXPECT_EQ(Logged(), std::vector<std::string>{
                          "[database]database_interface::CDatabase::InsertInstanceInfo "
                          "sqlite3_step with sql[INSERT OR REPLACE INTO instance_info  "
                          "(instance_no, session_id, business_type, protocol_type, "
                          "start_recode_id, create_time) VALUES (:instance_no, :session_id, "
                          ":business_type, :protocol_type, :start_recode_id, :create_time) "
                          "RETURNING id] failed:constraint failed"});
}

}  // namespace database_interface::test
