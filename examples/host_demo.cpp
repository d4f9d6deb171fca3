// host_demo: how a host SDK uses the process-wide store during one start.
// It records the start, registers instances, keeps session tokens, records a
// crash dump, stores the message-collection keys once, then prints a report.
// Run it twice to see the records an earlier start left behind:
//   mkdir -p /tmp/demo_run && BASE_LOG_PATH=/tmp/demo_run/ ./host_demo
#include <chrono>
#include <cstdint>
#include <cstdio>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "base/base.h"
#include "database_interface/database_interface.h"

namespace {

using database_interface::CoreRecode;
using database_interface::IDatabaseInterface;
using database_interface::InstanceInfo;

const std::string kSdkVersion = "3.8.1";
const std::string kSdkType = "desktop";
constexpr int64_t kHourMs = 60 * 60 * 1000;

// The session cache's expiry times are in this unit: the store purges
// entries that expired before now when the process first opens it.
int64_t NowMs() {
  return std::chrono::duration_cast<std::chrono::milliseconds>(
             std::chrono::system_clock::now().time_since_epoch())
      .count();
}

int Len(const std::string& text) { return static_cast<int>(text.size()); }

// Every operation returns -1 on failure and writes the reason to the host log.
bool Succeeded(bool ok, const char* operation) {
  if (!ok) {
    std::fprintf(stderr, "host_demo: %s failed; see the host log %s\n", operation,
                 base::IBaseLogInterface::GetLogInstance(nullptr)->GetLogFile().c_str());
  }
  return ok;
}

// The store never waits for another process's lock: a call that meets one
// fails at once (-1, and "database is locked" in the host log). A host that
// may share its store, with a second copy of itself say, tries a write again a
// few times, a little later each time, before it gives up.
template <typename Write>
bool Retried(Write write) {
  for (int attempt = 1;; ++attempt) {
    if (write()) return true;
    if (attempt == 5) return false;
    std::this_thread::sleep_for(std::chrono::milliseconds(5 << attempt));
  }
}

// One row per start of the SDK; everything else of this start hangs off its id.
bool RecordStart(IDatabaseInterface& db, int& start_id) {
  return Succeeded(Retried([&] {
                     return db.InsertStartRecode(start_id, kSdkVersion.c_str(), Len(kSdkVersion),
                                                 kSdkType.c_str(), Len(kSdkType), NowMs()) == 1;
                   }),
                   "InsertStartRecode");
}

// Two instances run under this start; the first one gets its session id later.
bool RegisterInstances(IDatabaseInterface& db, int start_id) {
  InstanceInfo room(0, "room-1001", "", 1, "tcp", start_id, NowMs());
  InstanceInfo call(0, "call-2002", "pending", 2, "udp", start_id, NowMs());
  for (InstanceInfo* instance : {&room, &call}) {
    if (!Succeeded(Retried([&] { return db.InsertInstanceInfo(*instance) == 1; }),
                   "InsertInstanceInfo")) {
      return false;
    }
  }
  const std::string session_id = "session-" + std::to_string(start_id) + "-a7f3";
  return Succeeded(Retried([&] {
                     return db.UpdataInstanceSessionId(room.id, session_id.c_str(),
                                                       Len(session_id)) == 0;
                   }),
                   "UpdataInstanceSessionId");
}

// A token valid for an hour is found; one that expired a second ago is not.
bool UseSessionCache(IDatabaseInterface& db) {
  const int64_t now = NowMs();
  const auto store = [&](const char* key, const char* value, int64_t expiry) {
    return Succeeded(Retried([&] { return db.InsertSessionCache(key, value, expiry) == 0; }),
                     "InsertSessionCache");
  };
  if (!store("login_token", "tok-5e1b9c", now + kHourMs) ||
      !store("stale_token", "tok-0000", now - 1000)) {
    return false;
  }
  std::string value;
  if (!Succeeded(db.SelectSessionCache("login_token", now, value) == 1, "SelectSessionCache")) {
    return false;
  }
  std::printf("  session cache   login_token = %s (valid for an hour)\n", value.c_str());
  value.clear();
  if (!Succeeded(db.SelectSessionCache("stale_token", now, value) == 0, "SelectSessionCache")) {
    return false;
  }
  std::printf("                  stale_token not found: it has expired\n");
  return true;
}

// A crash dump record points at files the host wrote; the store keeps paths only.
bool RecordCrash(IDatabaseInterface& db, int start_id, const std::string& log_dir) {
  CoreRecode dump(0, log_dir + "host_sdk_" + std::to_string(start_id) + ".dmp",
                  log_dir + "host_sdk.log", start_id, NowMs());
  return Succeeded(Retried([&] { return db.InsertCoreRecode(dump) == 1; }), "InsertCoreRecode");
}

// Every insert adds a key pair, so store one only when none is stored yet.
bool StoreKeysOnce(IDatabaseInterface& db) {
  std::string key;
  std::string secret;
  const int found = db.SelectMessageCollectKey(key, secret);
  if (!Succeeded(found != -1, "SelectMessageCollectKey")) return false;
  if (found == 0) {
    const std::string new_key = "AK-demo-7Q2M";
    const std::string new_secret = "sk-demo-93f0c1d2e4";
    if (!Succeeded(Retried([&] {
                     return db.InsertMessageCollectKey(new_key.c_str(), Len(new_key),
                                                       new_secret.c_str(), Len(new_secret)) == 0;
                   }),
                   "InsertMessageCollectKey")) {
      return false;
    }
  }
  std::printf("  message keys    %s\n", found == 0 ? "stored by this start" : "already stored");
  return true;
}

bool ReportStart(IDatabaseInterface& db, int start_id) {
  std::string version;
  std::string type;
  int64_t start_time = 0;
  if (!Succeeded(db.SelectStartRecode(start_id, version, type, start_time) == 1,
                 "SelectStartRecode")) {
    return false;
  }
  std::printf("  start record    #%d: sdk %s (%s), started at %lld ms since 1970\n", start_id,
              version.c_str(), type.c_str(), static_cast<long long>(start_time));
  std::vector<InstanceInfo> instances;
  const int count = db.SelectInstanceInfoWithStartRecodeId(start_id, instances);
  if (!Succeeded(count >= 0, "SelectInstanceInfoWithStartRecodeId")) return false;
  std::printf("  instances       %d under start #%d\n", count, start_id);
  for (const InstanceInfo& info : instances) {
    std::printf("    #%d %s business %d over %s, session \"%s\"\n", info.id,
                info.instance_no.c_str(), info.business_type, info.protocol_type.c_str(),
                info.session_id.c_str());
  }
  return true;
}

bool ReportCrashes(IDatabaseInterface& db, int start_id) {
  std::vector<CoreRecode> dumps;
  const int count = db.SelectAllCoreRecode(dumps);
  if (!Succeeded(count >= 0, "SelectAllCoreRecode")) return false;
  int earlier = 0;
  for (const CoreRecode& dump : dumps) earlier += dump.start_recode_id != start_id ? 1 : 0;
  std::printf("  crash dumps     %d stored, %d of them left by earlier starts\n", count, earlier);
  for (const CoreRecode& dump : dumps) {
    std::printf("    #%d of start #%d: %s (log %s)\n", dump.id, dump.start_recode_id,
                dump.dump_file_path.c_str(), dump.log_file_path.c_str());
  }
  return true;
}

bool ReportKeys(IDatabaseInterface& db) {
  std::string key;
  std::string secret;
  if (!Succeeded(db.SelectMessageCollectKey(key, secret) == 1, "SelectMessageCollectKey")) {
    return false;
  }
  // Never print a secret: its first three characters identify it well enough.
  std::printf("                  key %s, secret %s****\n", key.c_str(),
              secret.substr(0, 3).c_str());
  return true;
}

}  // namespace

int main() {
  // The first call opens "qzdata" in the host's default log directory.
  const std::shared_ptr<IDatabaseInterface> db = IDatabaseInterface::GetDbInstance();
  const std::string log_dir = base::IBaseLogInterface::GetDefaultLogPath();
  std::printf("host_demo: one start of the host SDK\n");
  std::printf("  database file   %sqzdata\n", log_dir.c_str());

  int start_id = 0;
  // Store what this start produces, then report what the store holds.
  const bool ok = RecordStart(*db, start_id) && RegisterInstances(*db, start_id) &&
                  RecordCrash(*db, start_id, log_dir) && ReportStart(*db, start_id) &&
                  UseSessionCache(*db) && ReportCrashes(*db, start_id) && StoreKeysOnce(*db) &&
                  ReportKeys(*db);
  return ok ? 0 : 1;
}
