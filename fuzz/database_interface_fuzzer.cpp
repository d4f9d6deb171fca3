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

std::string Cut(const std::string& text) { return text.c_str(); }  // as read back: to the NUL

// A text argument: its bytes, the length passed with them (-1 when the
// operation takes none), and the pointer passed, now and then null.
struct Text {
  std::string bytes;
  int length;
  const char* ptr;
  // Read back: up to the length (any negative one, cast, exceeds the bytes), then to a NUL.
  std::string Read() const { return Cut(bytes.substr(0, static_cast<size_t>(length))); }
};

auto Fields(const CoreRecode& r) {
  return std::tie(r.id, r.dump_file_path, r.log_file_path, r.start_recode_id, r.create_time);
}
auto Fields(const InstanceInfo& r) {
  return std::tie(r.id, r.instance_no, r.session_id, r.business_type, r.protocol_type,
                  r.start_recode_id, r.create_time);
}

// A list read appended exactly `want` if `there`, else nothing, behind the
// caller's record.
template <class Record>
void ExpectRead(int rc, const std::vector<Record>& got, const Record& want, bool there) {
  CHECK(rc == there && got.size() == (there ? 2u : 1u) && got[0].id == kKeptId);
  CHECK(!there || Fields(got[1]) == Fields(want));
}

struct Rounds {
  FuzzedDataProvider& in;
  IDatabaseInterface& db;
  std::optional<std::pair<std::string, std::string>> first_key;  // the first pair stored
  int last_start = 0, last_core = 0, last_instance = 0;          // ids only ever grow

  std::string Bytes() { return in.ConsumeRandomLengthString(16); }
  Text NextText(bool sized) {
    Text text{Bytes(), -1, nullptr};
    const int length = in.ConsumeIntegralInRange(-3, static_cast<int>(text.bytes.size()));
    if (sized) text.length = length == -3 ? INT_MIN : length;
    text.ptr = in.ConsumeIntegralInRange(0, 15) == 0 ? nullptr : text.bytes.c_str();
    return text;
  }
  int64_t Time() {
    return in.ConsumeBool() ? in.ConsumeIntegralInRange(-2, 2) : in.ConsumeIntegral<int64_t>();
  }
  void Round();
};

void Rounds::Round() {
  std::string a = kKept, b = kKept;
  int64_t time = kKeptId;
  // Message collection key: every insert adds a pair, the select reads the first.
  const Text key = NextText(true), secret = NextText(true);
  int rc = db.InsertMessageCollectKey(key.ptr, key.length, secret.ptr, secret.length);
  CHECK(rc == (key.ptr && secret.ptr ? 0 : -1));
  if (rc == 0 && !first_key) first_key.emplace(key.Read(), secret.Read());
  rc = db.SelectMessageCollectKey(a, b);
  CHECK(first_key ? rc == 1 && std::make_pair(a, b) == *first_key
                  : rc == 0 && a == kKept && b == kKept);

  // A start record; then one that does not exist.
  const Text version = NextText(true), type = NextText(true);
  const int64_t start_time = Time();
  int start = kKeptId;
  rc = db.InsertStartRecode(start, version.ptr, version.length, type.ptr, type.length, start_time);
  CHECK(version.ptr && type.ptr ? rc == 1 && start > last_start : rc == -1 && start == kKeptId);
  if (rc == 1) {
    CHECK(db.SelectStartRecode(last_start = start, a, b, time) == 1);
    CHECK(std::tie(a, b, time) == std::make_tuple(version.Read(), type.Read(), start_time));
  }
  a = b = kKept, time = kKeptId;
  CHECK(db.SelectStartRecode(last_start + 1, a, b, time) == 0);
  CHECK(a == kKept && b == kKept && time == kKeptId);

  // A crash dump and an instance under it, or under no start record: the
  // foreign key refuses those, with their lines.
  const bool under = rc == 1 && in.ConsumeBool();
  const int parent = under ? start : last_start + 1;
  CoreRecode core{kKeptId, Bytes(), Bytes(), parent, 0};
  InstanceInfo instance{kKeptId, Bytes(), Bytes(), in.ConsumeIntegral<int>(), Bytes(), parent, 0};
  core.create_time = Time();
  instance.create_time = Time();
  rc = db.InsertCoreRecode(core);
  CHECK(under ? rc == 1 && core.id > last_core : rc == -1 && core.id == kKeptId);
  rc = db.InsertInstanceInfo(instance);
  CHECK(under ? rc == 1 && instance.id > last_instance : rc == -1 && instance.id == kKeptId);
  if (under) last_core = core.id, last_instance = instance.id;
  const Text session = NextText(true);
  rc = db.UpdataInstanceSessionId(instance.id, session.ptr, session.length);
  CHECK(rc == (session.ptr ? 0 : -1));
  for (std::string* text : {&core.dump_file_path, &core.log_file_path, &instance.instance_no,
                            &instance.session_id, &instance.protocol_type}) {
    *text = Cut(*text);
  }
  if (under && session.ptr) instance.session_id = session.Read();
  const auto expect_records = [&](bool core_there, bool instance_there) {
    std::vector<CoreRecode> cores(1, CoreRecode(kKeptId, kKept, kKept, 0, 0));
    std::vector<InstanceInfo> instances(1, InstanceInfo(kKeptId, kKept, kKept, 0, kKept, 0, 0));
    ExpectRead(db.SelectAllCoreRecode(cores), cores, core, core_there);
    ExpectRead(db.SelectInstanceInfoWithStartRecodeId(parent, instances), instances, instance,
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

  // Two entries under one key (the second replaces the first), then a purge
  // and a delete.
  const Text session_key = NextText(false);
  std::optional<std::pair<std::string, int64_t>> entry;
  for (int i = 0; i < 2; ++i) {
    const Text value = NextText(false);
    const int64_t expiry = Time();
    rc = db.InsertSessionCache(session_key.ptr, value.ptr, expiry);
    CHECK(rc == (session_key.ptr && value.ptr ? 0 : -1));
    if (rc == 0) entry.emplace(value.Read(), expiry);
  }
  const auto expect_entry = [&](int64_t now, bool there) {
    a = kKept;
    rc = db.SelectSessionCache(session_key.ptr, now, a);
    CHECK(there && entry->second > now ? rc == 1 && a == entry->first
                                       : rc == (session_key.ptr ? 0 : -1) && a == kKept);
  };
  expect_entry(Time(), entry.has_value());
  const int64_t purge = Time();
  CHECK(db.DeleteSessionCache(purge) == 0);
  expect_entry(INT64_MIN, entry && entry->second >= purge);
  rc =
      in.ConsumeBool() ? db.DeleteSessionCacheWithKey(session_key.ptr) : db.DeleteAllSessionCache();
  CHECK(rc == 0 || (rc == -1 && !session_key.ptr));
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
