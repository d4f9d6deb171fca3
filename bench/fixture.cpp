// The benchmark fixture: its rows' texts and the arguments of its calls.
#include "fixture.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <numeric>
#include <random>

namespace database_interface::bench {
namespace {

constexpr size_t kPickCount = size_t{1} << 16;
constexpr size_t kAbsentCount = 1024;

// prefix, i in ten digits, suffix.
std::string Numbered(const char* prefix, uint32_t i, const char* suffix) {
  char text[96];
  std::snprintf(text, sizeof text, "%s%010u%s", prefix, i, suffix);
  return text;
}

std::vector<uint32_t> Shuffled(uint32_t first, uint32_t last, std::mt19937& rng) {
  std::vector<uint32_t> order(last - first);
  std::iota(order.begin(), order.end(), first);
  std::shuffle(order.begin(), order.end(), rng);
  return order;
}

}  // namespace

Inputs::Inputs(size_t rows_) : rows(rows_) {
  Require(rows >= 100 && rows % 10 == 0, "fixture rows: a multiple of 10, at least 100");
  const auto n = static_cast<uint32_t>(rows);
  session_keys.reserve(rows);
  for (uint32_t i = 0; i < n; ++i) session_keys.push_back(Numbered("session/", i, "/ticket"));
  for (uint32_t i = 0; i < kAbsentCount; ++i) {
    absent_keys.push_back(Numbered("absent/", i, "/ticket"));
  }
  for (size_t i = 0; i < 64; ++i) session_value.push_back(static_cast<char>('a' + i % 26));
  session_id = "6f1c2a9e-51d4-4c8b-9a2e-0d3b7e5f1a64";
  // A prime count, so that no stride of calls keeps finding its own value.
  for (uint32_t i = 0; i < 257; ++i) {
    new_session_ids.push_back(Numbered("6f1c2a9e-51d4-4c8b-9a2e-", i, "ab"));
  }

  std::mt19937 rng(static_cast<uint32_t>(20261123u + n));
  std::uniform_int_distribution<uint32_t> pick(0, n - 1);
  picks.resize(kPickCount);
  for (uint32_t& p : picks) p = pick(rng);
  session_order = Shuffled(0, n, rng);
  childless_start_order = Shuffled(n / 10, n, rng);
  instance_order = Shuffled(0, n, rng);
  core_order = Shuffled(0, n, rng);
}

std::string Inputs::InstanceNo(uint32_t row) { return Numbered("instance-", row, ""); }

std::string Inputs::DumpFilePath(uint32_t row) {
  return Numbered("/var/log/host/dump/", row, ".dmp");
}

std::string Inputs::LogFilePath(uint32_t row) {
  return Numbered("/var/log/host/log/", row, ".log");
}

void Require(bool ok, const char* what) {
  if (ok) return;
  std::fprintf(stderr, "bench: failed: %s\n", what);
  std::abort();
}

}  // namespace database_interface::bench
