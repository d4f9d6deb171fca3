// The measured workloads: which operation is called, with which arguments,
// and what each call must return.
#ifndef DATABASE_INTERFACE_BENCH_WORKLOADS_H_
#define DATABASE_INTERFACE_BENCH_WORKLOADS_H_

#include <cstddef>
#include <optional>
#include <string>
#include <vector>

#include "database_interface/database_interface.h"
#include "fixture.h"
#include "stores.h"

namespace database_interface::bench {

// What the caller hands in to be filled, one set per calling thread. Kept
// across calls, as a host keeps its buffers: strings keep their capacity and
// vectors are cleared before each list read.
struct Outputs {
  std::string text;
  std::string second_text;
  int64_t time = 0;
  int id = 0;
  InstanceInfo instance;
  std::vector<CoreRecode> cores;
  std::vector<InstanceInfo> instances;
};

enum class Access { kRead, kWrite };

struct Workload {
  const char* name;
  Access access;
  bool in_table;  // in the per-workload table (a fixture of 100 rows)
  bool in_scale;  // in the table of growing sizes
  // Runs calls [begin, begin + count); false when a call returned what the
  // fixture rules out (a failure, a miss where a row exists).
  bool (*run)(IDatabaseInterface& db, const Inputs& in, Outputs& out, size_t begin, size_t count);
  // For workloads whose calls delete rows: the number of calls before the
  // rows run out, and the rows they delete. Null and empty for the others.
  size_t (*cycle)(const Inputs& in);
  std::optional<Rows> deletes;
};

const std::vector<Workload>& Workloads();
const Workload& FindWorkload(const std::string& name);

// How many of `wanted` calls starting at call `next` fit before the
// workload's rows run out (all of them for a workload that deletes nothing).
size_t CallsBeforeRestore(const Workload& w, const Inputs& in, size_t next, size_t wanted);
// Restores what calls [next, next + count) deleted, if anything. Requires:
// they lie within one cycle.
void RestoreAfter(const Workload& w, const OpenStore& store, const Inputs& in, size_t next,
                  size_t count);

}  // namespace database_interface::bench

#endif  // DATABASE_INTERFACE_BENCH_WORKLOADS_H_
