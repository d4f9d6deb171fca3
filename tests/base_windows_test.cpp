// What the library needs of base.dll on Windows: `char*` paths in the ANSI
// code page converted to UTF-8, the name it hands SQLite. Under Wine the ANSI
// code page follows LC_ALL (C.UTF-8: 1252, ja_JP.UTF-8: 932).
#include <windows.h>

#include <string>

#include "base/base.h"
#include "gtest/gtest.h"

namespace {

TEST(BaseWindowsTest, ToUtf8PathConvertsFromTheAnsiCodePage) {
  EXPECT_EQ("", base::CPathUtil::ToUtf8Path(nullptr));
  EXPECT_EQ("", base::CPathUtil::ToUtf8Path(""));
  EXPECT_EQ("C:\\logs/a.db", base::CPathUtil::ToUtf8Path("C:\\logs/a.db"));
  if (GetACP() == 1252) {
    EXPECT_EQ("C:\\caf\xc3\xa9\\\xe2\x82\xac.db",
              base::CPathUtil::ToUtf8Path("C:\\caf\xe9\\\x80.db"));
  } else if (GetACP() == 932) {
    EXPECT_EQ("C:\\\xe3\x81\x82.db", base::CPathUtil::ToUtf8Path("C:\\\x82\xa0.db"));
    // A lead byte without its trail byte is no character of code page 932.
    EXPECT_EQ("", base::CPathUtil::ToUtf8Path("C:\\\x82"));
  } else {
    GTEST_SKIP() << "no expectations for ANSI code page " << GetACP();
  }
}

}  // namespace
