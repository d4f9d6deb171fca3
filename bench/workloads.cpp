// The table of workloads.
#include "workloads.h"

#include <cstdlib>

namespace database_interface::bench {
namespace {

constexpr const char* kSdkVersion = "1.24.0";
constexpr int kSdkVersionLen = 6;
constexpr const char* kSdkType = "desktop";
constexpr int kSdkTypeLen = 7;

// Calls `call(i)` for i in [begin, begin + count); true when every call gave
// what it should. The results are folded without a branch, so checking costs
// every variant the same one compare.
template <class Call>
bool Calls(size_t begin, size_t count, Call call) {
  bool ok = true;
  for (size_t i = begin; i < begin + count; ++i) ok &= call(i);
  return ok;
}

// Fixture ids are row indices plus one.
int RowId(uint32_t row) { return static_cast<int>(row) + 1; }

size_t SessionCycle(const Inputs& in) { return in.session_order.size(); }
size_t StartCycle(const Inputs& in) { return in.childless_start_order.size(); }
size_t InstanceCycle(const Inputs& in) { return in.instance_order.size(); }
size_t CoreCycle(const Inputs& in) { return in.core_order.size(); }

std::vector<Workload> MakeWorkloads() {
  using Db = IDatabaseInterface;
  return {
      {"InsertSessionCache", Access::kWrite, true, true,
       [](Db& db, const Inputs& in, Outputs&, size_t begin, size_t count) {
         // Every key is stored: each call replaces a row.
         return Calls(begin, count, [&](size_t i) {
           return db.InsertSessionCache(in.session_keys[in.Pick(i)].c_str(),
                                        in.session_value.c_str(), kFarFuture) == 0;
         });
       },
       nullptr, std::nullopt},
      {"SelectSessionCache hit", Access::kRead, true, true,
       [](Db& db, const Inputs& in, Outputs& out, size_t begin, size_t count) {
         return Calls(begin, count, [&](size_t i) {
           return db.SelectSessionCache(in.session_keys[in.Pick(i)].c_str(), kNow, out.text) == 1;
         });
       },
       nullptr, std::nullopt},
      {"SelectSessionCache miss", Access::kRead, true, false,
       [](Db& db, const Inputs& in, Outputs& out, size_t begin, size_t count) {
         return Calls(begin, count, [&](size_t i) {
           const std::string& key = in.absent_keys[i % in.absent_keys.size()];
           return db.SelectSessionCache(key.c_str(), kNow, out.text) == 0;
         });
       },
       nullptr, std::nullopt},
      {"DeleteSessionCacheWithKey", Access::kWrite, true, true,
       [](Db& db, const Inputs& in, Outputs&, size_t begin, size_t count) {
         return Calls(begin, count, [&](size_t i) {
           const std::string& key = in.session_keys[in.session_order[i % SessionCycle(in)]];
           return db.DeleteSessionCacheWithKey(key.c_str()) == 0;
         });
       },
       SessionCycle, Rows::kSessions},
      {"InsertStartRecode", Access::kWrite, true, false,
       [](Db& db, const Inputs&, Outputs& out, size_t begin, size_t count) {
         return Calls(begin, count, [&](size_t i) {
           return db.InsertStartRecode(out.id, kSdkVersion, kSdkVersionLen, kSdkType, kSdkTypeLen,
                                       kNow + static_cast<int64_t>(i)) == 1;
         });
       },
       nullptr, std::nullopt},
      {"SelectStartRecode", Access::kRead, true, true,
       [](Db& db, const Inputs& in, Outputs& out, size_t begin, size_t count) {
         return Calls(begin, count, [&](size_t i) {
           return db.SelectStartRecode(RowId(in.Pick(i)), out.text, out.second_text, out.time) == 1;
         });
       },
       nullptr, std::nullopt},
      {"DeleteStartRecode", Access::kWrite, false, true,
       [](Db& db, const Inputs& in, Outputs&, size_t begin, size_t count) {
         return Calls(begin, count, [&](size_t i) {
           return db.DeleteStartRecode(RowId(in.childless_start_order[i % StartCycle(in)])) == 0;
         });
       },
       StartCycle, Rows::kChildlessStarts},
      {"InsertInstanceInfo", Access::kWrite, true, false,
       [](Db& db, const Inputs& in, Outputs& out, size_t begin, size_t count) {
         InstanceInfo& record = out.instance;
         record.instance_no = "instance-00000001";
         record.session_id = in.session_id;
         record.business_type = 1;
         record.protocol_type = "quic";
         record.create_time = kNow;
         return Calls(begin, count, [&](size_t i) {
           record.start_recode_id = RowId(static_cast<uint32_t>(i % in.parent_count()));
           return db.InsertInstanceInfo(record) == 1;
         });
       },
       nullptr, std::nullopt},
      {"SelectInstanceInfoWithStartRecodeId", Access::kRead, true, true,
       [](Db& db, const Inputs& in, Outputs& out, size_t begin, size_t count) {
         return Calls(begin, count, [&](size_t i) {
           out.instances.clear();
           const int id = RowId(static_cast<uint32_t>(in.Pick(i) % in.parent_count()));
           return db.SelectInstanceInfoWithStartRecodeId(id, out.instances) == 10;
         });
       },
       nullptr, std::nullopt},
      {"UpdataInstanceSessionId", Access::kWrite, true, true,
       [](Db& db, const Inputs& in, Outputs&, size_t begin, size_t count) {
         return Calls(begin, count, [&](size_t i) {
           const std::string& session_id = in.new_session_ids[i % in.new_session_ids.size()];
           return db.UpdataInstanceSessionId(RowId(in.Pick(i)), session_id.c_str(),
                                             static_cast<int>(session_id.size())) == 0;
         });
       },
       nullptr, std::nullopt},
      {"DeleteInstanceInfo", Access::kWrite, false, true,
       [](Db& db, const Inputs& in, Outputs&, size_t begin, size_t count) {
         return Calls(begin, count, [&](size_t i) {
           return db.DeleteInstanceInfo(RowId(in.instance_order[i % InstanceCycle(in)])) == 0;
         });
       },
       InstanceCycle, Rows::kInstances},
      {"DeleteSessionCache, none expired", Access::kWrite, false, true,
       [](Db& db, const Inputs&, Outputs&, size_t begin, size_t count) {
         // The purge the shared object runs when it opens: a scan of the
         // whole table, here deleting nothing.
         return Calls(begin, count, [&](size_t) { return db.DeleteSessionCache(kNow) == 0; });
       },
       nullptr, std::nullopt},
      {"SelectAllCoreRecode", Access::kRead, true, true,
       [](Db& db, const Inputs& in, Outputs& out, size_t begin, size_t count) {
         return Calls(begin, count, [&](size_t) {
           out.cores.clear();
           return db.SelectAllCoreRecode(out.cores) == static_cast<int>(in.rows);
         });
       },
       nullptr, std::nullopt},
      {"DeleteCoreRecode", Access::kWrite, false, true,
       [](Db& db, const Inputs& in, Outputs&, size_t begin, size_t count) {
         return Calls(begin, count, [&](size_t i) {
           return db.DeleteCoreRecode(RowId(in.core_order[i % CoreCycle(in)])) == 0;
         });
       },
       CoreCycle, Rows::kCores},
      {"SelectMessageCollectKey", Access::kRead, true, false,
       [](Db& db, const Inputs&, Outputs& out, size_t begin, size_t count) {
         return Calls(begin, count, [&](size_t) {
           return db.SelectMessageCollectKey(out.text, out.second_text) == 1;
         });
       },
       nullptr, std::nullopt},
  };
}

}  // namespace

const std::vector<Workload>& Workloads() {
  static const std::vector<Workload> workloads = MakeWorkloads();
  return workloads;
}

const Workload& FindWorkload(const std::string& name) {
  for (const Workload& w : Workloads()) {
    if (name == w.name) return w;
  }
  Require(false, "no such workload");
  std::abort();
}

size_t CallsBeforeRestore(const Workload& w, const Inputs& in, size_t next, size_t wanted) {
  if (w.cycle == nullptr) return wanted;
  const size_t cycle = w.cycle(in);
  const size_t left = cycle - next % cycle;
  return wanted < left ? wanted : left;
}

void RestoreAfter(const Workload& w, const OpenStore& store, const Inputs& in, size_t next,
                  size_t count) {
  if (w.deletes) store.Restore(*w.deletes, in, next % w.cycle(in), count);
}

}  // namespace database_interface::bench
