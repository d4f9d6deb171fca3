#include "test_util.h"

namespace database_interface {
namespace test {
namespace {

class SmokeTest : public StoreTest {};

TEST_F(SmokeTest, OpensAndStoresASessionEntry) {
  std::string value = "untouched";
  EXPECT_EQ(0, m_db->InsertSessionCache("k", "v", 10));
  EXPECT_EQ(1, m_db->SelectSessionCache("k", 9, value));
  EXPECT_EQ("v", value);
  EXPECT_EQ(std::vector<std::string>{"1.24.0"}, RawColumn(m_db_path, "SELECT version FROM db_version"));
}

}  // namespace
}  // namespace test
}  // namespace database_interface
