// What the library needs of base.dll on Windows: `char*` paths in the ANSI
// code page converted to UTF-8, and the per-user default log directory. Under
// Wine the ANSI code page follows LC_ALL (C.UTF-8: 1252, ja_JP.UTF-8: 932).
#include <windows.h>

#include <cstdlib>
#include <filesystem>
#include <string>

#include "base/base.h"
#include "gtest/gtest.h"

namespace {

namespace fs = std::filesystem;

std::string Narrow(const std::wstring& wide, UINT code_page) {
  std::string text(wide.size() * 4, '\0');
  text.resize(static_cast<size_t>(
      WideCharToMultiByte(code_page, 0, wide.data(), static_cast<int>(wide.size()), text.data(),
                          static_cast<int>(text.size()), nullptr, nullptr)));
  return text;
}

// An empty directory under the temporary directory; its name ends in `name`.
fs::path NewDir(const std::wstring& name) {
  const fs::path dir = fs::temp_directory_path() / (L"base_windows_test_" + name);
  fs::remove_all(dir);
  fs::create_directories(dir);
  return dir;
}

const wchar_t kOutsideAnsi[] = L"\u0e01\u0e02";  // Thai: in neither 1252 nor 932

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

TEST(BaseWindowsTest, DefaultLogPathIsBaseLogPathOrLocalAppDataInTheAnsiCodePage) {
  ASSERT_EQ(0, _putenv_s("BASE_LOG_PATH", "D:/mixed\\no-separator"));
  EXPECT_EQ("D:/mixed\\no-separator", base::IBaseLogInterface::GetDefaultLogPath());
  // The C runtime cannot hold an empty variable: setting one removes it.
  ASSERT_EQ(0, _putenv_s("BASE_LOG_PATH", ""));
  EXPECT_EQ(nullptr, std::getenv("BASE_LOG_PATH"));
  const fs::path local = NewDir(L"caf\u00e9");
  std::wstring with_slashes = local.wstring();
  for (wchar_t& c : with_slashes) c = c == L'\\' ? L'/' : c;
  ASSERT_EQ(0, _wputenv_s(L"LOCALAPPDATA", with_slashes.c_str()));
  const std::string path = base::IBaseLogInterface::GetDefaultLogPath();
  EXPECT_EQ(Narrow(local.wstring() + L"\\base\\log\\", CP_ACP), path);
  EXPECT_TRUE(fs::is_directory(local / L"base" / L"log"));
  // The library opens its database through exactly this conversion.
  EXPECT_EQ(Narrow(local.wstring() + L"\\base\\log\\qzdata", CP_UTF8),
            base::CPathUtil::ToUtf8Path((path + "qzdata").c_str()));
  // No name in the code page: the current directory rather than a wrong name.
  ASSERT_EQ(0, _wputenv_s(L"LOCALAPPDATA", NewDir(kOutsideAnsi).c_str()));
  EXPECT_EQ("", base::IBaseLogInterface::GetDefaultLogPath());
}

}  // namespace
