// The tests' operating-system layer on Windows.
#include <windows.h>

#include <cstdlib>
#include <filesystem>

#include "portable.h"

namespace database_interface::test {

// _putenv_s updates both the C runtime's copy, which getenv reads, and the
// process's, which children inherit.
void SetEnv(const char* name, const char* value) {
  if (_putenv_s(name, value != nullptr ? value : "") != 0) std::abort();
}

std::string NarrowPath(const std::string& utf8) {
  const std::wstring wide = std::filesystem::u8path(utf8).wstring();
  std::string narrow(wide.size() * 2, '\0');
  BOOL defaulted = FALSE;
  narrow.resize(static_cast<size_t>(
      WideCharToMultiByte(CP_ACP, WC_NO_BEST_FIT_CHARS, wide.data(), static_cast<int>(wide.size()),
                          narrow.data(), static_cast<int>(narrow.size()), nullptr, &defaulted)));
  return defaulted ? std::string() : narrow;
}

// A file some handle holds cannot be opened to share nothing.
bool HeldOpen(const std::string& utf8) {
  for (const std::string& name : {utf8, utf8 + "-journal"}) {
    const HANDLE file = CreateFileW(std::filesystem::u8path(name).c_str(), GENERIC_READ, 0, nullptr,
                                    OPEN_EXISTING, 0, nullptr);
    if (file != INVALID_HANDLE_VALUE) CloseHandle(file);
    if (file == INVALID_HANDLE_VALUE && GetLastError() == ERROR_SHARING_VIOLATION) return true;
  }
  return false;
}

Child::Child(const std::string& test) {
  wchar_t self[MAX_PATH + 1] = {};
  if (GetModuleFileNameW(nullptr, self, MAX_PATH + 1) == 0) std::abort();
  std::wstring command = L"\"" + std::wstring(self) + L"\" --gtest_filter=" +
                         std::wstring(test.begin(), test.end()) +
                         L" --gtest_also_run_disabled_tests";
  STARTUPINFOW startup{};
  startup.cb = sizeof startup;
  PROCESS_INFORMATION process{};
  if (!CreateProcessW(self, command.data(), nullptr, nullptr, FALSE, 0, nullptr, nullptr, &startup,
                      &process)) {
    std::abort();
  }
  CloseHandle(process.hThread);
  m_handle = reinterpret_cast<intptr_t>(process.hProcess);
}

int Child::Wait() {
  const HANDLE process = reinterpret_cast<HANDLE>(m_handle);
  DWORD code = 0;
  if (m_handle == 0 || WaitForSingleObject(process, INFINITE) != WAIT_OBJECT_0 ||
      !GetExitCodeProcess(process, &code)) {
    return m_code;
  }
  CloseHandle(process);
  m_handle = 0;
  return m_code = static_cast<int>(code);
}

// 137, what a POSIX shell reports for SIGKILL: one code on both systems.
void Child::Kill() {
  if (m_handle != 0) TerminateProcess(reinterpret_cast<HANDLE>(m_handle), 137);
}

}  // namespace database_interface::test
