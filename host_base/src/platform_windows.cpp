// base on Windows: the Win32 thread id, the per-user local application data
// directory, `char*` paths in the ANSI code page converted through UTF-16.
#ifndef WIN32_LEAN_AND_MEAN
#define WIN32_LEAN_AND_MEAN
#endif
#ifndef NOMINMAX
#define NOMINMAX
#endif
#include <windows.h>

#include <climits>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <system_error>

#include "base/base.h"
#include "platform.h"

namespace base {
namespace {

// `text` (`length` bytes) in `code_page`, as UTF-16; empty when it holds a
// byte sequence that the code page does not define.
std::wstring ToWide(const char* text, size_t length, UINT code_page) {
  if (length == 0 || length > INT_MAX) return std::wstring();
  const int in = static_cast<int>(length);
  const int size = MultiByteToWideChar(code_page, MB_ERR_INVALID_CHARS, text, in, nullptr, 0);
  if (size <= 0) return std::wstring();
  std::wstring wide(static_cast<size_t>(size), L'\0');
  if (MultiByteToWideChar(code_page, MB_ERR_INVALID_CHARS, text, in, wide.data(), size) != size) {
    return std::wstring();
  }
  return wide;
}

// `wide` in `code_page`; empty when a character has no form there. Without
// this check an ANSI code page would turn such a character into '?' or a
// look-alike, naming another file.
std::string FromWide(const std::wstring& wide, UINT code_page) {
  if (wide.empty() || wide.size() > INT_MAX) return std::string();
  const int in = static_cast<int>(wide.size());
  // UTF-8 takes no "default character" and reports unpaired surrogates itself.
  const bool utf8 = code_page == CP_UTF8;
  const DWORD flags = utf8 ? WC_ERR_INVALID_CHARS : WC_NO_BEST_FIT_CHARS;
  BOOL defaulted = FALSE;
  BOOL* const used_default = utf8 ? nullptr : &defaulted;
  const int size =
      WideCharToMultiByte(code_page, flags, wide.data(), in, nullptr, 0, nullptr, used_default);
  if (size <= 0 || defaulted) return std::string();
  std::string text(static_cast<size_t>(size), '\0');
  if (WideCharToMultiByte(code_page, flags, wide.data(), in, text.data(), size, nullptr, nullptr) !=
      size) {
    return std::string();
  }
  return text;
}

// BASE_LOG_PATH when it is set. The C runtime removes a variable set to the
// empty string, so there is no empty setting to honour: null when unset.
const char* ConfiguredLogPath() {
  const char* configured = std::getenv("BASE_LOG_PATH");
  return configured != nullptr && *configured != '\0' ? configured : nullptr;
}

// %LOCALAPPDATA%\base\log\ (or base\log\ in the temporary directory when the
// variable is missing), created if missing, with backslashes only. Read wide,
// so that any user name survives.
std::wstring DefaultLogDirectory() {
  std::filesystem::path dir;
  if (const wchar_t* local = _wgetenv(L"LOCALAPPDATA"); local != nullptr && *local != L'\0') {
    dir = local;
  } else {
    std::error_code ec;
    dir = std::filesystem::temp_directory_path(ec);
  }
  dir /= L"base";
  dir /= L"log";
  dir.make_preferred();
  std::error_code ec;
  std::filesystem::create_directories(dir, ec);
  std::wstring result = dir.wstring();
  if (result.empty() || result.back() != L'\\') result.push_back(L'\\');
  return result;
}

}  // namespace

int GetTid() { return static_cast<int>(GetCurrentThreadId()); }

std::string IBaseLogInterface::GetDefaultLogPath() {
  if (const char* configured = ConfiguredLogPath()) return configured;
  // A `char*` path is in the ANSI code page. A directory that has no name
  // there gives the empty string, the current directory, rather than a
  // mangled name. GetACP() rather than CP_ACP: FromWide must know whether
  // that code page is UTF-8.
  return FromWide(DefaultLogDirectory(), GetACP());
}

std::string CPathUtil::ToUtf8Path(const char* path) {
  if (path == nullptr || *path == '\0') return std::string();
  return FromWide(ToWide(path, std::strlen(path), GetACP()), CP_UTF8);
}

namespace platform {

std::string DefaultLogFile() {
  if (const char* configured = ConfiguredLogPath()) {
    return CPathUtil::ToUtf8Path((std::string(configured) + "base.log").c_str());
  }
  // Straight from UTF-16, so that a directory outside the ANSI code page
  // still works.
  return FromWide(DefaultLogDirectory() + L"base.log", CP_UTF8);
}

std::FILE* OpenForAppend(const std::string& path) {
  const std::wstring wide = ToWide(path.data(), path.size(), CP_UTF8);
  // Binary: lines end in "\n" as on every other system, not "\r\n".
  return wide.empty() ? nullptr : _wfopen(wide.c_str(), L"ab");
}

std::tm LocalTime(std::time_t seconds) {
  std::tm local{};
  localtime_s(&local, &seconds);
  return local;
}

}  // namespace platform
}  // namespace base
