// base.dll on Windows: the Win32 thread id, `char*` paths in the ANSI code
// page converted to UTF-8, the per-user default log directory, and the
// default logger writing into a directory whose name is not ASCII.
// Under Wine the ANSI code page follows LC_ALL (C.UTF-8 gives 1252,
// ja_JP.UTF-8 gives 932); CTest runs the conversion under both.
#ifndef WIN32_LEAN_AND_MEAN
#define WIN32_LEAN_AND_MEAN
#endif
#include <windows.h>

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <regex>
#include <string>
#include <thread>

#include "base/base.h"
#include "gtest/gtest.h"

namespace {

namespace fs = std::filesystem;

std::string Narrow(const std::wstring& wide, UINT code_page) {
  const int in = static_cast<int>(wide.size());
  const int size = WideCharToMultiByte(code_page, 0, wide.data(), in, nullptr, 0, nullptr, nullptr);
  std::string text(static_cast<size_t>(size), '\0');
  WideCharToMultiByte(code_page, 0, wide.data(), in, text.data(), size, nullptr, nullptr);
  return text;
}

// An empty directory under the temporary directory, named after the test,
// the code page and `suffix`. The name is the same in the child process of
// a death test, which runs the test body again from its start.
fs::path NewDir(const std::wstring& suffix) {
  const std::string test = ::testing::UnitTest::GetInstance()->current_test_info()->name();
  const fs::path dir =
      fs::temp_directory_path() / (L"base_windows_test_" + std::wstring(test.begin(), test.end()) +
                                   L"_" + std::to_wstring(GetACP()) + suffix);
  fs::remove_all(dir);
  fs::create_directories(dir);
  return dir;
}

// A character that the current ANSI code page has (and its bytes there), for
// the code pages these tests know; empty otherwise.
struct AnsiSample {
  std::wstring wide;
  std::string ansi;
};
AnsiSample SampleInAnsiCodePage() {
  switch (GetACP()) {
    case 1252: return {L"caf\u00e9", "caf\xe9"};
    case 932: return {L"\u3042", "\x82\xa0"};
    case CP_UTF8: return {L"caf\u00e9", "caf\xc3\xa9"};
    default: return {};
  }
}

// Thai, in neither code page 1252 nor 932.
const wchar_t kOutsideAnsi[] = L"\u0e01\u0e02";

void SetEnv(const char* name, const std::string& value) {
  ASSERT_EQ(0, _putenv_s(name, value.c_str()));
}

void SetWideEnv(const wchar_t* name, const std::wstring& value) {
  ASSERT_EQ(0, _wputenv_s(name, value.c_str()));
}

TEST(BaseWindowsTest, GetTidIsTheWin32ThreadId) {
  const int main_tid = base::GetTid();
  EXPECT_EQ(static_cast<int>(GetCurrentThreadId()), main_tid);
  int other_tid = 0;
  int other_win32_tid = -1;
  std::thread([&] {
    other_tid = base::GetTid();
    other_win32_tid = static_cast<int>(GetCurrentThreadId());
  }).join();
  EXPECT_EQ(other_win32_tid, other_tid);
  EXPECT_NE(main_tid, other_tid);
}

TEST(BaseWindowsTest, ToUtf8PathConvertsFromTheAnsiCodePage) {
  EXPECT_EQ("", base::CPathUtil::ToUtf8Path(nullptr));
  EXPECT_EQ("", base::CPathUtil::ToUtf8Path(""));
  EXPECT_EQ("C:\\logs/a.db", base::CPathUtil::ToUtf8Path("C:\\logs/a.db"));
  switch (GetACP()) {
    case 1252:
      EXPECT_EQ("C:\\caf\xc3\xa9\\\xe2\x82\xac.db",
                base::CPathUtil::ToUtf8Path("C:\\caf\xe9\\\x80.db"));
      break;
    case 932:
      EXPECT_EQ("C:\\\xe3\x81\x82.db", base::CPathUtil::ToUtf8Path("C:\\\x82\xa0.db"));
      // A lead byte without its trail byte is no character of code page 932.
      EXPECT_EQ("", base::CPathUtil::ToUtf8Path("C:\\\x82"));
      EXPECT_EQ("", base::CPathUtil::ToUtf8Path("\x82\x20.db"));
      break;
    case CP_UTF8:
      EXPECT_EQ("caf\xc3\xa9", base::CPathUtil::ToUtf8Path("caf\xc3\xa9"));
      EXPECT_EQ("", base::CPathUtil::ToUtf8Path("caf\xe9"));
      break;
    default: GTEST_SKIP() << "no expectations for ANSI code page " << GetACP();
  }
}

// BASE_LOG_PATH is returned as it is; empty means unset, and the default is
// %LOCALAPPDATA%\base\log\ in the ANSI code page, backslashes only, created;
// empty when that directory has no ANSI name.
TEST(BaseWindowsTest, DefaultLogPath) {
  SetEnv("BASE_LOG_PATH", "D:/mixed\\no-separator");
  EXPECT_EQ("D:/mixed\\no-separator", base::IBaseLogInterface::GetDefaultLogPath());
  SetEnv("BASE_LOG_PATH", "");
  EXPECT_EQ(nullptr, std::getenv("BASE_LOG_PATH"));
  const AnsiSample sample = SampleInAnsiCodePage();
  const fs::path local = NewDir(L"_" + sample.wide);
  std::wstring with_slashes = local.wstring();
  for (wchar_t& c : with_slashes) c = c == L'\\' ? L'/' : c;
  SetWideEnv(L"LOCALAPPDATA", with_slashes);
  const std::string path = base::IBaseLogInterface::GetDefaultLogPath();
  EXPECT_EQ(Narrow(local.wstring() + L"\\base\\log\\", CP_ACP), path);
  EXPECT_EQ(std::string::npos, path.find('/')) << path;
  EXPECT_TRUE(fs::is_directory(local / L"base" / L"log"));
  // The library opens its database through exactly this conversion.
  EXPECT_EQ(Narrow(local.wstring() + L"\\base\\log\\qzdata", CP_UTF8),
            base::CPathUtil::ToUtf8Path((path + "qzdata").c_str()));
  const fs::path outside = NewDir(kOutsideAnsi);
  SetWideEnv(L"LOCALAPPDATA", outside.wstring());
  EXPECT_EQ("", base::IBaseLogInterface::GetDefaultLogPath());
}

// Reads a whole file, by its wide name, as bytes.
std::string ReadFile(const fs::path& path) {
  std::string bytes;
  if (std::FILE* in = _wfopen(path.c_str(), L"rb")) {
    char buffer[4096];
    for (size_t n; (n = std::fread(buffer, 1, sizeof buffer, in)) > 0;) bytes.append(buffer, n);
    std::fclose(in);
  }
  return bytes;
}

// The default logger is process-wide: each scenario runs in a child process.
TEST(BaseWindowsTest, DefaultLoggerWritesInADirectoryOutsideTheAnsiCodePage) {
  const fs::path local = NewDir(std::wstring(L"_") + kOutsideAnsi);
  const fs::path log_file = local / L"base" / L"log" / L"base.log";
  EXPECT_EXIT(
      {
        SetEnv("BASE_LOG_PATH", "");
        SetWideEnv(L"LOCALAPPDATA", local.wstring());
        auto logger = base::IBaseLogInterface::GetLogInstance(nullptr);
        const bool named = logger->GetLogFile() == Narrow(log_file.wstring(), CP_UTF8);
        const bool written = logger->WriteLog(60, base::GetTid(), "[x]%s", "first") == 0 &&
                             logger->WriteLog(60, base::GetTid(), "[x]%s", "second") == 0;
        std::exit(named && written ? 0 : 1);
      },
      ::testing::ExitedWithCode(0), "");
  const std::string text = ReadFile(log_file);
  const std::regex two_lines(
      R"(\d{4}-\d\d-\d\d \d\d:\d\d:\d\d\.\d{3} \[60\] \[\d+\] \[x\]first\n)"
      R"(\d{4}-\d\d-\d\d \d\d:\d\d:\d\d\.\d{3} \[60\] \[\d+\] \[x\]second\n)");
  EXPECT_TRUE(std::regex_match(text, two_lines)) << text;
}

}  // namespace
