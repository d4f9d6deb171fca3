// A damaged file, and hostile texts in every field: mebibyte values, SQL and
// printf metacharacters (the fuzzer's corpus holds NUL bytes, odd lengths and
// null pointers).
#include <fstream>

#include "test_util.h"

namespace database_interface::test {

using BadInputTest = StoreTest;

std::string Bytes(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  return {std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
}

// Its header overwritten, the file is no database; the open is lazy, so the
// first statement that reads the file fails, and nothing is written to it.
TEST_F(BadInputTest, DamagedFileFailsInitWithItsLinesAndIsLeftAsItWas) {
  const std::string path = MakeStore("damaged", "");
  std::fstream(path, std::ios::in | std::ios::out | std::ios::binary) << std::string(16, '\xff');
  const std::string before = Bytes(path);
  EXPECT_EQ(-1, InitOn(path));
  EXPECT_EQ((Lines{ExecLine("CreateTable", kSchemaSqls[0], "file is not a database"),
                   "[database]CreateTable failed"}),
            Take());
  EXPECT_TRUE(before == Bytes(path));
}

TEST_F(BadInputTest, HostileTextsInEveryFieldAreStoredAndReadBackExactly) {
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
