// The session cache: one entry per key, found strictly before its expiry time and purged strictly
// before a given time.
#include "test_util.h"

namespace database_interface::test {

class SessionCacheTest : public StoreTest {};

TEST_F(SessionCacheTest, EntryIsFoundAndKeptStrictlyBeforeItsExpiryTime) {
  const int64_t expiry = 1700000000000;
  std::string value = "kept";
  ASSERT_EQ(0, m_db->InsertSessionCache("key", "value", expiry));
  EXPECT_EQ(std::vector<std::string>{"key|value|1700000000000"},
            RawColumn(m_db_path,
                      "SELECT session_key || '|' || session_value || '|' || "
                      "expire_time FROM session_cache"));
  EXPECT_EQ(0, m_db->SelectSessionCache("key", expiry, value));
  EXPECT_EQ(0, m_db->SelectSessionCache("absent", 0, value));
  EXPECT_EQ("kept", value);
  EXPECT_EQ(1, m_db->SelectSessionCache("key", expiry - 1, value));
  EXPECT_EQ("value", value);
  EXPECT_EQ(0, m_db->DeleteSessionCache(expiry));
  EXPECT_EQ(1, RawInt(m_db_path, "SELECT count(*) FROM session_cache"));
  EXPECT_EQ(0, m_db->DeleteSessionCache(expiry + 1));
  EXPECT_EQ(0, m_db->DeleteSessionCache(expiry + 1));
  EXPECT_EQ(0, RawInt(m_db_path, "SELECT count(*) FROM session_cache"));
  EXPECT_TRUE(Logged().empty());
}

TEST_F(SessionCacheTest, LastInsertForAKeyWinsAndEmptyTextsAreValid) {
  std::string value = "kept";
  EXPECT_EQ(-1, m_db->InsertSessionCache(nullptr, "value", 100));
  EXPECT_EQ(-1, m_db->InsertSessionCache("key", nullptr, 100));
  EXPECT_EQ(-1, m_db->SelectSessionCache(nullptr, 0, value));
  EXPECT_EQ(-1, m_db->DeleteSessionCacheWithKey(nullptr));
  EXPECT_TRUE(Logged().empty());
  ASSERT_EQ(0, m_db->InsertSessionCache("key", "first", 100));
  ASSERT_EQ(0, m_db->InsertSessionCache("key", "second", 50));
  ASSERT_EQ(0, m_db->InsertSessionCache("", "", 100));
  EXPECT_EQ((std::vector<std::string>{"text|text|100", "textkey|textsecond|50"}),
            RawColumn(m_db_path,
                      "SELECT typeof(session_key) || session_key || '|' || "
                      "typeof(session_value) || session_value || '|' || expire_time "
                      "FROM session_cache ORDER BY session_key"));
  EXPECT_EQ(0, m_db->SelectSessionCache("key", 50, value));
  EXPECT_EQ("kept", value);
  EXPECT_EQ(1, m_db->SelectSessionCache("key", 49, value));
  EXPECT_EQ("second", value);
  EXPECT_EQ(1, m_db->SelectSessionCache("", 0, value));
  EXPECT_EQ("", value);
  EXPECT_EQ(0, m_db->DeleteSessionCacheWithKey("absent"));
  EXPECT_EQ(0, m_db->DeleteSessionCacheWithKey("key"));
  EXPECT_EQ(std::vector<std::string>{""},
            RawColumn(m_db_path, "SELECT session_key FROM session_cache"));
  EXPECT_EQ(0, m_db->DeleteAllSessionCache());
  EXPECT_EQ(0, m_db->DeleteAllSessionCache());
  EXPECT_EQ(0, RawInt(m_db_path, "SELECT count(*) FROM session_cache"));
  EXPECT_TRUE(Logged().empty());
}

}  // namespace database_interface::test
