// libFuzzer target: rounds of all eighteen operations with hostile arguments
// (texts with NUL bytes, of any length, or null; any numbers) storing, reading
// back and deleting a record of every kind. Results and outputs must be what
// the arguments make them, log lines only fixed texts, never a bound value.
#include <fuzzer/FuzzedDataProvider.h>

#include <climits>
#include <optional>
#include <tuple>

#include "fuzz_util.h"

namespace database_interface::fuzz {
namespace {

const std::vector<std::string> kRefused = {
    "[database]database_interface::CDatabase::InsertCoreRecode sqlite3_step with sql[INSERT INTO "
    "core_recode (dump_file_path, log_file_path, start_recode_id, create_time) "
    "VALUES(:dump_file_path, :log_file_path, :start_recode_id, :create_time) RETURNING id] "
    "failed:constraint failed",
    "[database]database_interface::CDatabase::InsertInstanceInfo sqlite3_step with sql[INSERT OR "
    "REPLACE INTO instance_info  (instance_no, session_id, business_type, protocol_type, "
    "start_recode_id, create_time) VALUES (:instance_no, :session_id, :business_type, "
    ":protocol_type, :start_recode_id, :create_time) RETURNING id] failed:constraint failed"};
const std::string kKept = "kept";  // outputs start so and must stay so when no row is read
constexpr int kKeptId = -4711;

// A text argument: its bytes, the length passed with them (-1 when the
// operation takes none), and the pointer passed, now and then null.
struct Text {
  Text(FuzzedDataProvider& in, bool sized) : bytes(in.ConsumeRandomLengthString(16)) {
    const int n = in.ConsumeIntegralInRange(-3, static_cast<int>(bytes.size()));
    length = !sized ? -1 : n == -3 ? INT_MIN : n;
    ptr = in.ConsumeIntegralInRange(0, 15) == 0 ? nullptr : bytes.c_str();
  }
  // Read back: up to the length (any negative one, cast, exceeds the bytes), then to a NUL.
  std::string Read() const { return bytes.substr(0, static_cast<size_t>(length)).c_str(); }
  std::string bytes;
  int length;
  const char* ptr;
};

auto Fields(const CoreRecode& r) {
  return std::tie(r.id, r.dump_file_path, r.log_file_path, r.start_recode_id, r.create_time);
}
auto Fields(const InstanceInfo& r) {
  return std::tie(r.id, r.instance_no, r.session_id, r.business_type, r.protocol_type,
                  r.start_recode_id, r.create_time);
}

struct Rounds {
  FuzzedDataProvider& in;
  IDatabaseInterface& db;
  std::optional<std::pair<std::string, std::string>> first_key{};  // the first pair stored
  int last_start = 0, last_core = 0, last_instance = 0;            // ids only ever grow

  std::string Bytes() { return in.ConsumeRandomLengthString(16); }
  int64_t Time() {
    return in.ConsumeBool() ? in.ConsumeIntegralInRange(-2, 2) : in.ConsumeIntegral<int64_t>();
  }
  void Round();
};

void Rounds::Round() {
  // Message collection key: every insert adds a pair, the select reads the first.
  const Text key(in, true), secret(in, true);
  int rc = db.InsertMessageCollectKey(key.ptr, key.length, secret.ptr, secret.length);
  CHECK(rc == (key.ptr && secret.ptr ? 0 : -1));
  if (rc == 0 && !first_key) first_key.emplace(key.Read(), secret.Read());
  std::pair<std::string, std::string> got(kKept, kKept);
  rc = db.SelectMessageCollectKey(got.first, got.second);
  CHECK(first_key ? rc == 1 && got == *first_key : rc == 0 && got == std::make_pair(kKept, kKept));

  const Text version(in, true), type(in, true);
  const int64_t start_time = Time();
  int start = kKeptId;
  rc = db.InsertStartRecode(start, version.ptr, version.length, type.ptr, type.length, start_time);
  CHECK(version.ptr && type.ptr ? rc == 1 && start > last_start : rc == -1 && start == kKeptId);
  std::string a = kKept, b = kKept;
  int64_t time = kKeptId;
  CHECK(db.SelectStartRecode((rc == 1 ? start : last_start) + 1, a, b, time) == 0);
  CHECK(a == kKept && b == kKept && time == kKeptId);
  if (rc == 1) {
    CHECK(db.SelectStartRecode(last_start = start, a, b, time) == 1);
    CHECK(std::tie(a, b, time) == std::make_tuple(version.Read(), type.Read(), start_time));
  }

  // A crash dump and an instance under it, or under no start record: the
  // foreign key refuses those, with their lines.
  const bool under = rc == 1 && in.ConsumeBool();
  const int parent = under ? start : last_start + 1, business = in.ConsumeIntegral<int>();
  CoreRecode core{kKeptId, Bytes(), Bytes(), parent, Time()};
  InstanceInfo instance{kKeptId, Bytes(), Bytes(), business, Bytes(), parent, Time()};
  rc = db.InsertCoreRecode(core);
  CHECK(under ? rc == 1 && core.id > last_core : rc == -1 && core.id == kKeptId);
  rc = db.InsertInstanceInfo(instance);
  CHECK(under ? rc == 1 && instance.id > last_instance : rc == -1 && instance.id == kKeptId);
  if (under) last_core = core.id, last_instance = instance.id;
  const Text session(in, true);
  CHECK(db.UpdataInstanceSessionId(instance.id, session.ptr, session.length) ==
        (session.ptr ? 0 : -1));
  std::string* const texts[] = {&core.dump_file_path, &core.log_file_path, &instance.instance_no,
                                &instance.session_id, &instance.protocol_type};
  for (std::string* text : texts) *text = text->substr(0, text->find('\0'));  // as read back
  if (under && session.ptr) instance.session_id = session.Read();
  // A list read appended exactly `want` if `there`, else nothing, behind the caller's record.
  const auto expect_read = [](int rc, const auto& got, const auto& want, bool there) {
    CHECK(rc == there && got.size() == (there ? 2u : 1u) && got[0].id == kKeptId);
    CHECK(!there || Fields(got[1]) == Fields(want));
  };
  const auto expect_records = [&](bool core_there, bool instance_there) {
    std::vector<CoreRecode> cores(1, CoreRecode(kKeptId, kKept, kKept, 0, 0));
    std::vector<InstanceInfo> instances(1, InstanceInfo(kKeptId, kKept, kKept, 0, kKept, 0, 0));
    expect_read(db.SelectAllCoreRecode(cores), cores, core, core_there);
    expect_read(db.SelectInstanceInfoWithStartRecodeId(parent, instances), instances, instance,
                instance_there);
  };
  expect_records(under, under);
  // One delete (the crash dump, the instance or the start record), then every
  // start record: deletes of absent rows succeed too.
  const int deleted = in.ConsumeIntegralInRange(0, 2);
  CHECK((deleted == 0   ? db.DeleteCoreRecode(core.id)
         : deleted == 1 ? db.DeleteInstanceInfo(instance.id)
                        : db.DeleteStartRecode(start)) == 0);
  expect_records(under && deleted == 1, under && deleted == 0);
  CHECK(db.DeleteAllStartRecode() == 0);
  expect_records(false, false);

  // Two entries under one key (the second replaces the first), then a purge and a delete.
  const Text cache_key(in, false);
  std::optional<std::pair<std::string, int64_t>> entry;
  for (int i = 0; i < 2; ++i) {
    const Text value(in, false);
    const int64_t expiry = Time();
    rc = db.InsertSessionCache(cache_key.ptr, value.ptr, expiry);
    CHECK(rc == (cache_key.ptr && value.ptr ? 0 : -1));
    if (rc == 0) entry.emplace(value.Read(), expiry);
  }
  const auto expect_entry = [&](int64_t now, bool there) {
    a = kKept;
    rc = db.SelectSessionCache(cache_key.ptr, now, a);
    CHECK(there && entry->second > now ? rc == 1 && a == entry->first
                                       : rc == (cache_key.ptr ? 0 : -1) && a == kKept);
  };
  expect_entry(Time(), entry.has_value());
  const int64_t purge = Time();
  CHECK(db.DeleteSessionCache(purge) == 0);
  expect_entry(INT64_MIN, entry && entry->second >= purge);
  rc = in.ConsumeBool() ? db.DeleteSessionCacheWithKey(cache_key.ptr) : db.DeleteAllSessionCache();
  CHECK(rc == 0 || (rc == -1 && !cache_key.ptr));
  expect_entry(INT64_MIN, rc == -1 && entry && entry->second >= purge);
  CHECK(db.DeleteAllSessionCache() == 0);
  CHECK(g_logger->Take() == (under ? std::vector<std::string>() : kRefused));  // all its lines
}

}  // namespace
}  // namespace database_interface::fuzz

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  FuzzedDataProvider in(data, size);
  const auto db = database_interface::IDatabaseInterface::CreateDatabaseInterface();
  CHECK(db->Init(":memory:") == 0);
  database_interface::fuzz::Rounds rounds{in, *db};
  for (int round = 0; round < 32 && in.remaining_bytes() > 0; ++round) rounds.Round();
  db->Uninit();
  return 0;
}
