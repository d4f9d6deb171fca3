// Conversion of a host path to UTF-8.
#include <cstring>

#include "base/base.h"

namespace base {
namespace {

// Well-formed UTF-8 as Unicode defines it: no overlong forms, no surrogates,
// nothing above U+10FFFF.
bool IsValidUtf8(const unsigned char* s, size_t n) {
  size_t i = 0;
  while (i < n) {
    const unsigned char c = s[i];
    size_t extra = 0;
    unsigned char lo = 0x80;
    unsigned char hi = 0xBF;
    if (c < 0x80) {
      ++i;
      continue;
    } else if (c >= 0xC2 && c <= 0xDF) {
      extra = 1;
    } else if (c >= 0xE0 && c <= 0xEF) {
      extra = 2;
      if (c == 0xE0) lo = 0xA0;
      if (c == 0xED) hi = 0x9F;
    } else if (c >= 0xF0 && c <= 0xF4) {
      extra = 3;
      if (c == 0xF0) lo = 0x90;
      if (c == 0xF4) hi = 0x8F;
    } else {
      return false;
    }
    if (n - i <= extra) return false;
    if (s[i + 1] < lo || s[i + 1] > hi) return false;
    for (size_t k = 2; k <= extra; ++k) {
      if (s[i + k] < 0x80 || s[i + k] > 0xBF) return false;
    }
    i += extra + 1;
  }
  return true;
}

}  // namespace

std::string CPathUtil::ToUtf8Path(const char* path) {
  if (path == nullptr || *path == '\0') return std::string();
  const size_t length = std::strlen(path);
  if (!IsValidUtf8(reinterpret_cast<const unsigned char*>(path), length)) return std::string();
  return std::string(path, length);
}

}  // namespace base
