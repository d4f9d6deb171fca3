// Crash dump records: stored under an existing start record and listed by appending.
#include <algorithm>

#include "test_util.h"

namespace database_interface::test {

class CoreRecodeTest : public StoreTest {};

TEST_F(CoreRecodeTest, InsertSetsTheIdAndSelectAllAppendsEveryColumn) {
  int start = 0;
  ASSERT_EQ(1, m_db->InsertStartRecode(start, "1.0", -1, "sdk", -1, 1));
  std::vector<CoreRecode> records{CoreRecode(101, "a", "b", 7, 8),
                                  CoreRecode(102, "c", "d", 9, 10)};
  EXPECT_EQ(0, m_db->SelectAllCoreRecode(records));
  CoreRecode full(-9, std::string("dump\0x", 6), "log", start, 4886718345),
      empty(-9, "", "", start, -1);
  CoreRecode again = full;
  for (CoreRecode* record : {&full, &empty, &again}) ASSERT_EQ(1, m_db->InsertCoreRecode(*record));
  EXPECT_EQ(0, m_db->DeleteCoreRecode(again.id));
  EXPECT_EQ(0, m_db->DeleteCoreRecode(again.id));
  ASSERT_EQ(1, m_db->InsertCoreRecode(again));
  EXPECT_EQ("1|2|4", std::to_string(full.id) + "|" + std::to_string(empty.id) + "|" +
                         std::to_string(again.id));
  EXPECT_EQ((std::vector<std::string>{"1|64756D700078|log|1|4886718345", "2|||1|-1",
                                      "4|64756D700078|log|1|4886718345"}),
            RawColumn(m_db_path,
                      "SELECT id || '|' || hex(dump_file_path) || '|' || log_file_path "
                      "|| '|' || start_recode_id || '|' || create_time FROM core_recode "
                      "ORDER BY id"));
  EXPECT_EQ(3, m_db->SelectAllCoreRecode(records));
  std::vector<std::string> read;
  for (const CoreRecode& r : records) {
    read.push_back(std::to_string(r.id) + "|" + r.dump_file_path + "|" + r.log_file_path + "|" +
                   std::to_string(r.start_recode_id) + "|" + std::to_string(r.create_time));
  }
  std::sort(read.begin() + 2, read.end());
  EXPECT_EQ((std::vector<std::string>{"101|a|b|7|8", "102|c|d|9|10", "1|dump|log|1|4886718345",
                                      "2|||1|-1", "4|dump|log|1|4886718345"}),
            read);
  EXPECT_TRUE(Logged().empty());
}

TEST_F(CoreRecodeTest, InsertUnderAMissingStartRecordFailsInTheStepAndStoresNothing) {
  CoreRecode record(-4, "dump", "log", 1, 1);
  EXPECT_EQ(-1, m_db->InsertCoreRecode(record));
  EXPECT_EQ(-4, record.id);
  EXPECT_EQ(0, RawInt(m_db_path, "SELECT count(*) FROM core_recode"));
  EXPECT_EQ(Logged(),
            std::vector<std::string>{
                "[database]database_interface::CDatabase::InsertCoreRecode sqlite3_step "
                "with sql[INSERT INTO core_recode (dump_file_path, log_file_path, "
                "start_recode_id, create_time) VALUES(:dump_file_path, :log_file_path, "
                ":start_recode_id, :create_time) RETURNING id] failed:constraint failed"});
}

}  // namespace database_interface::test
