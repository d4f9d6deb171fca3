// The rows every benchmarked store starts from and the arguments its calls
// take; sqlite_copy.h writes the rows.
#ifndef DATABASE_INTERFACE_BENCH_FIXTURE_H_
#define DATABASE_INTERFACE_BENCH_FIXTURE_H_

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace database_interface::bench {

// Expiry time of every stored session entry (2100-01-01 in milliseconds), and
// the time a read compares it with: every stored entry is live.
constexpr int64_t kFarFuture = 4102444800000;
constexpr int64_t kNow = 1795000000000;

// A fixture of `rows` rows per table:
//  - session_cache: entry i under session_keys[i];
//  - start_recode: ids 1..rows; the first rows/10 own children, the rest none;
//  - instance_info and core_recode: ids 1..rows, ten per parent start record
//    (row i belongs to start record 1 + i / 10);
//  - message_collect_key: one pair.
// Also the arguments of the calls: keys, random picks and permutations, drawn
// with a fixed seed so every variant and every run sees the same sequence.
// Requires: rows is a multiple of 10, at least 100.
struct Inputs {
  explicit Inputs(size_t rows);

  size_t rows;
  std::vector<std::string> session_keys;  // stored keys
  std::vector<std::string> absent_keys;   // keys never stored
  std::string session_value;              // 64 bytes
  std::string session_id;                 // the 36-byte session id of every stored instance
  // Other 36-byte session ids, for updates that change the row: SQLite
  // writes nothing for an update to the value already stored.
  std::vector<std::string> new_session_ids;

  // Uniform random row indices in [0, rows), used cyclically by keyed calls.
  std::vector<uint32_t> picks;
  // Orders in which calls that delete rows consume them, each a permutation
  // of the rows it may delete: every session entry, every instance and core
  // record, and the start records that own no children (their delete still
  // scans both child tables for rows to cascade to).
  std::vector<uint32_t> session_order;
  std::vector<uint32_t> childless_start_order;
  std::vector<uint32_t> instance_order;
  std::vector<uint32_t> core_order;

  // The texts of row `row` of instance_info and core_recode.
  static std::string InstanceNo(uint32_t row);
  static std::string DumpFilePath(uint32_t row);
  static std::string LogFilePath(uint32_t row);

  size_t parent_count() const { return rows / 10; }
  uint32_t Pick(size_t i) const { return picks[i % picks.size()]; }
};

// The rows of one table that calls may delete, and that are put back.
enum class Rows : int {
  kSessions,         // session_cache, in session_order
  kChildlessStarts,  // start_recode, in childless_start_order
  kInstances,        // instance_info, in instance_order
  kCores,            // core_recode, in core_order
};

// Aborts the benchmark with `what` when `ok` is false.
void Require(bool ok, const char* what);

}  // namespace database_interface::bench

#endif  // DATABASE_INTERFACE_BENCH_FIXTURE_H_
