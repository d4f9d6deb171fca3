// Reads the version resource of each DLL named on the command line, the way
// Explorer and installers do, and checks it against the project version that
// CMake compiled in: FILEVERSION and PRODUCTVERSION, the FileVersion and
// ProductVersion strings, a ProductName, a FileDescription, and the
// OriginalFilename. Exits 0 when every DLL passes.
#ifndef WIN32_LEAN_AND_MEAN
#define WIN32_LEAN_AND_MEAN
#endif
#include <windows.h>

#include <cstdio>
#include <cwchar>
#include <string>
#include <vector>

namespace {

std::wstring Widen(const char* text) {
  const int size = MultiByteToWideChar(CP_ACP, 0, text, -1, nullptr, 0);
  if (size <= 0) return std::wstring();
  std::wstring wide(static_cast<size_t>(size), L'\0');
  MultiByteToWideChar(CP_ACP, 0, text, -1, wide.data(), size);
  wide.resize(static_cast<size_t>(size) - 1);
  return wide;
}

// The string `name` of the resource's first translation; empty when missing.
std::wstring StringValue(std::vector<unsigned char>& info, const wchar_t* name) {
  struct Translation {
    WORD language;
    WORD code_page;
  };
  void* data = nullptr;
  UINT size = 0;
  if (!VerQueryValueW(info.data(), L"\\VarFileInfo\\Translation", &data, &size) ||
      size < sizeof(Translation)) {
    return std::wstring();
  }
  const Translation* translation = static_cast<const Translation*>(data);
  wchar_t key[128];
  std::swprintf(key, sizeof key / sizeof key[0], L"\\StringFileInfo\\%04x%04x\\%ls",
                translation->language, translation->code_page, name);
  if (!VerQueryValueW(info.data(), key, &data, &size) || size == 0) return std::wstring();
  return std::wstring(static_cast<const wchar_t*>(data));
}

bool Check(const char* path) {
  const std::wstring wide_path = Widen(path);
  DWORD handle = 0;
  const DWORD info_size = GetFileVersionInfoSizeW(wide_path.c_str(), &handle);
  if (info_size == 0) {
    std::printf("%s: no version resource (error %lu)\n", path, GetLastError());
    return false;
  }
  std::vector<unsigned char> info(info_size);
  if (!GetFileVersionInfoW(wide_path.c_str(), 0, info_size, info.data())) {
    std::printf("%s: version resource unreadable (error %lu)\n", path, GetLastError());
    return false;
  }
  void* data = nullptr;
  UINT size = 0;
  if (!VerQueryValueW(info.data(), L"\\", &data, &size) || size < sizeof(VS_FIXEDFILEINFO)) {
    std::printf("%s: no fixed file information\n", path);
    return false;
  }
  const VS_FIXEDFILEINFO* fixed = static_cast<const VS_FIXEDFILEINFO*>(data);
  bool ok = fixed->dwSignature == 0xFEEF04BD;

  const DWORD expected_ms = (DWORD{EXPECTED_MAJOR} << 16) | DWORD{EXPECTED_MINOR};
  const DWORD expected_ls = (DWORD{EXPECTED_PATCH} << 16) | DWORD{EXPECTED_TWEAK};
  std::printf("%s: FILEVERSION %lu.%lu.%lu.%lu, PRODUCTVERSION %lu.%lu.%lu.%lu\n", path,
              fixed->dwFileVersionMS >> 16, fixed->dwFileVersionMS & 0xFFFF,
              fixed->dwFileVersionLS >> 16, fixed->dwFileVersionLS & 0xFFFF,
              fixed->dwProductVersionMS >> 16, fixed->dwProductVersionMS & 0xFFFF,
              fixed->dwProductVersionLS >> 16, fixed->dwProductVersionLS & 0xFFFF);
  ok = ok && fixed->dwFileVersionMS == expected_ms && fixed->dwFileVersionLS == expected_ls &&
       fixed->dwProductVersionMS == expected_ms && fixed->dwProductVersionLS == expected_ls;

  const std::wstring expected_version = Widen(EXPECTED_VERSION);
  std::wstring file_name = wide_path.substr(wide_path.find_last_of(L"\\/") + 1);
  for (const wchar_t* name : {L"FileVersion", L"ProductVersion", L"ProductName", L"FileDescription",
                              L"OriginalFilename"}) {
    const std::wstring value = StringValue(info, name);
    std::printf("  %ls: \"%ls\"\n", name, value.c_str());
    const std::wstring key = name;
    if (key == L"FileVersion" || key == L"ProductVersion") {
      ok = ok && value == expected_version;
    } else if (key == L"OriginalFilename") {
      ok = ok && value == file_name;
    } else {
      ok = ok && !value.empty();
    }
  }
  std::printf("  expected %s (%d.%d.%d.%d): %s\n", EXPECTED_VERSION, EXPECTED_MAJOR, EXPECTED_MINOR,
              EXPECTED_PATCH, EXPECTED_TWEAK, ok ? "ok" : "MISMATCH");
  return ok;
}

}  // namespace

int main(int argc, char** argv) {
  if (argc < 2) {
    std::printf("usage: dll_version_check DLL...\n");
    return 2;
  }
  bool ok = true;
  for (int i = 1; i < argc; ++i) ok = Check(argv[i]) && ok;
  return ok ? 0 : 1;
}
