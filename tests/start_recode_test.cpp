// Start records: new ids from the insert, texts stored with the caller's lengths, and deletes that
// take the dependent records along.
#include "test_util.h"

namespace database_interface::test {

class StartRecodeTest : public StoreTest {};

TEST_F(StartRecodeTest, InsertStoresTheCallersLengthsAndSelectReadsThemBack) {
  int id = -5, empty = 0, nul = 0;
  std::string version = "kept", type = "kept";
  int64_t start_time = 7;
  auto read = [&] { return version + "|" + type + "|" + std::to_string(start_time); };
  EXPECT_EQ(-1, m_db->InsertStartRecode(id, "1.0", -1, nullptr, 0, 1));
  EXPECT_EQ(-5, id);
  EXPECT_TRUE(Logged().empty());
  ASSERT_EQ(1, m_db->InsertStartRecode(id, "1.2.3", 3, "android", -1, 4886718345));
  ASSERT_EQ(1, m_db->InsertStartRecode(empty, "x", 0, "y", 0, -1));
  ASSERT_EQ(1, m_db->InsertStartRecode(nul, "ab\0cd", 5, "type", 1, 3));
  EXPECT_EQ("1|2|3", std::to_string(id) + "|" + std::to_string(empty) + "|" + std::to_string(nul));
  EXPECT_EQ((std::vector<std::string>{"1|text312E32|textandroid|4886718345", "2|text|text|-1",
                                      "3|text6162006364|textt|3"}),
            RawColumn(m_db_path,
                      "SELECT id || '|' || typeof(sdk_version) || hex(sdk_version) || "
                      "'|' || typeof(sdk_type) || sdk_type || '|' || start_time FROM "
                      "start_recode ORDER BY id"));
  EXPECT_EQ(0, m_db->SelectStartRecode(4, version, type, start_time));
  EXPECT_EQ("kept|kept|7", read());
  EXPECT_EQ(1, m_db->SelectStartRecode(1, version, type, start_time));
  EXPECT_EQ("1.2|android|4886718345", read());
  EXPECT_EQ(1, m_db->SelectStartRecode(3, version, type, start_time));
  EXPECT_EQ("ab|t|3", read());
}

TEST_F(StartRecodeTest, DeletesTakeDependentRecordsAlongAndIdsAreNeverReused) {
  int first = 0, second = 0;
  ASSERT_EQ(1, m_db->InsertStartRecode(first, "v", -1, "t", -1, 1));
  ASSERT_EQ(1, m_db->InsertStartRecode(second, "v", -1, "t", -1, 1));
  CoreRecode core(0, "dump", "log", first, 1), kept(0, "dump", "log", second, 1);
  InstanceInfo instance(0, "no", "session", 1, "tcp", first, 1);
  ASSERT_EQ(1, m_db->InsertCoreRecode(core));
  ASSERT_EQ(1, m_db->InsertCoreRecode(kept));
  ASSERT_EQ(1, m_db->InsertInstanceInfo(instance));
  EXPECT_EQ(0, m_db->DeleteStartRecode(3));
  EXPECT_EQ(0, m_db->DeleteStartRecode(first));
  const char* const rows =
      "SELECT (SELECT group_concat(id) FROM start_recode) || '|' || (SELECT "
      "group_concat(id) FROM core_recode) || '|' || (SELECT count(*) FROM "
      "instance_info)";
  EXPECT_EQ(std::vector<std::string>{"2|2|0"}, RawColumn(m_db_path, rows));
  EXPECT_EQ(0, m_db->DeleteAllStartRecode());
  EXPECT_EQ(0, m_db->DeleteAllStartRecode());
  EXPECT_EQ(std::vector<std::string>{"NULL"}, RawColumn(m_db_path, rows));
  ASSERT_EQ(1, m_db->InsertStartRecode(first, "v", -1, "t", -1, 1));
  EXPECT_EQ(3, first);
  EXPECT_TRUE(Logged().empty());
}

}  // namespace database_interface::test
