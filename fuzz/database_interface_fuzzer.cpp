// libFuzzer target: rounds of all eighteen operations with hostile arguments
// (texts with NUL bytes, of any length, or null; any numbers) storing, reading
// back and deleting a record of every kind. Results and outputs must be what
// the arguments make them, log lines only fixed texts, never a bound value.
#include <fuzzer/FuzzedDataProvider.h>

#include <climits>
#include <optional>
#include <string>
#include <tuple>
#include <vector>

#include "fuzz_util.h"

namespace database_interface::fuzz {
namespace {

const std::string kRefused[] = {
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
  // Read back: up to the length (the NUL when negative), then to a NUL.
  std::string Read() const {
    return Cut(length < 0 ? bytes : bytes.substr(0, static_cast<size_t>(length)));
  }
};

auto Fields(const CoreRecode& r) {
  return std::tie(r.id, r.dump_file_path, r.log_file_path, r.start_recode_id, r.create_time);
}
auto Fields(const InstanceInfo& r) {
  return std::tie(r.id, r.instance_no, r.session_id, r.business_type, r.protocol_type,
                  r.start_recode_id, r.create_time);
}

class Rounds {
 public:
  Rounds(FuzzedDataProvider& in, IDatabaseInterface& db) : m_in(in), m_db(db) {}
  void Round();

 private:
  Text NextText(bool sized) {
    Text text{m_in.ConsumeRandomLengthString(16), -1, nullptr};
    const int length = m_in.ConsumeIntegralInRange(-3, static_cast<int>(text.bytes.size()));
    if (sized) text.length = length == -3 ? INT_MIN : length;
    text.ptr = m_in.ConsumeIntegralInRange(0, 15) == 0 ? nullptr : text.bytes.c_str();
    return text;
  }
  int64_t Time() {
    return m_in.ConsumeBool() ? m_in.ConsumeIntegralInRange<int64_t>(-2, 2)
                              : m_in.ConsumeIntegral<int64_t>();
  }
  // A list read appended exactly `want` behind the caller's record.
  template <class Record>
  static void ExpectRead(int rc, const std::vector<Record>& got, const std::vector<Record>& want) {
    CHECK(rc == static_cast<int>(want.size()) && got.size() == want.size() + 1);
    CHECK(got[0].id == kKeptId && (want.empty() || Fields(got[1]) == Fields(want[0])));
  }

  FuzzedDataProvider& m_in;
  IDatabaseInterface& m_db;
  std::optional<std::pair<std::string, std::string>> m_key;    // the first pair stored
  int m_last_start = 0, m_last_core = 0, m_last_instance = 0;  // ids only ever grow
};

void Rounds::Round() {
  std::vector<std::string> lines;
  std::string a = kKept, b = kKept;
  int64_t time = kKeptId;
  // Message collection key: every insert adds a pair, the select reads the first.
  const Text key = NextText(true), secret = NextText(true);
  int rc = m_db.InsertMessageCollectKey(key.ptr, key.length, secret.ptr, secret.length);
  CHECK(rc == (key.ptr && secret.ptr ? 0 : -1));
  if (rc == 0 && !m_key) m_key.emplace(key.Read(), secret.Read());
  rc = m_db.SelectMessageCollectKey(a, b);
  CHECK(m_key ? rc == 1 && std::tie(a, b) == std::tie(m_key->first, m_key->second)
              : rc == 0 && a == kKept && b == kKept);

  // A start record; then one that does not exist.
  const Text version = NextText(true), type = NextText(true);
  const int64_t start_time = Time();
  int start = kKeptId;
  rc =
      m_db.InsertStartRecode(start, version.ptr, version.length, type.ptr, type.length, start_time);
  CHECK(version.ptr && type.ptr ? rc == 1 && start > m_last_start : rc == -1 && start == kKeptId);
  a = b = kKept;
  if (rc == 1) {
    CHECK(m_db.SelectStartRecode(m_last_start = start, a, b, time) == 1);
    CHECK(std::tie(a, b, time) == std::make_tuple(version.Read(), type.Read(), start_time));
    a = b = kKept, time = kKeptId;
  }
  CHECK(m_db.SelectStartRecode(m_last_start + 1, a, b, time) == 0);
  CHECK(a == kKept && b == kKept && time == kKeptId);

  // A crash dump and an instance under it, or under no start record: the
  // foreign key refuses those, with their lines.
  const bool under = rc == 1 && m_in.ConsumeBool();
  CoreRecode core;
  InstanceInfo instance;
  core.id = instance.id = kKeptId;
  core.start_recode_id = instance.start_recode_id = under ? start : m_last_start + 1;
  for (std::string* text : {&core.dump_file_path, &core.log_file_path, &instance.instance_no,
                            &instance.session_id, &instance.protocol_type}) {
    *text = m_in.ConsumeRandomLengthString(16);
  }
  instance.business_type = m_in.ConsumeIntegral<int>();
  core.create_time = Time();
  instance.create_time = Time();
  for (const bool is_core : {true, false}) {
    rc = is_core ? m_db.InsertCoreRecode(core) : m_db.InsertInstanceInfo(instance);
    int& id = is_core ? core.id : instance.id;
    int& last = is_core ? m_last_core : m_last_instance;
    CHECK(under ? rc == 1 && id > last : rc == -1 && id == kKeptId);
    if (!under) lines.push_back(kRefused[is_core ? 0 : 1]);
    if (under) last = id;
  }
  const Text session = NextText(true);
  rc = m_db.UpdataInstanceSessionId(instance.id, session.ptr, session.length);
  CHECK(rc == (session.ptr ? 0 : -1));
  for (std::string* text : {&core.dump_file_path, &core.log_file_path, &instance.instance_no,
                            &instance.session_id, &instance.protocol_type}) {
    *text = Cut(*text);
  }
  if (under && session.ptr) instance.session_id = session.Read();
  std::vector<CoreRecode> cores(1, CoreRecode(kKeptId, kKept, kKept, 0, 0));
  std::vector<InstanceInfo> instances(1, InstanceInfo(kKeptId, kKept, kKept, 0, kKept, 0, 0));
  const auto expect_records = [&](bool core_there, bool instance_there) {
    cores.resize(1), instances.resize(1);
    ExpectRead(m_db.SelectAllCoreRecode(cores), cores,
               core_there ? std::vector<CoreRecode>{core} : std::vector<CoreRecode>{});
    ExpectRead(m_db.SelectInstanceInfoWithStartRecodeId(core.start_recode_id, instances), instances,
               instance_there ? std::vector<InstanceInfo>{instance} : std::vector<InstanceInfo>{});
  };
  expect_records(under, under);
  // One delete, then every start record: deletes of absent rows succeed too.
  switch (m_in.ConsumeIntegralInRange(0, 2)) {
    case 0:
      CHECK(m_db.DeleteCoreRecode(core.id) == 0);
      expect_records(false, under);
      break;
    case 1:
      CHECK(m_db.DeleteInstanceInfo(instance.id) == 0);
      expect_records(under, false);
      break;
    default: CHECK(m_db.DeleteStartRecode(start) == 0); expect_records(false, false);
  }
  CHECK(m_db.DeleteAllStartRecode() == 0);
  expect_records(false, false);

  // Two entries under one key (the second replaces the first), then a purge
  // and a delete.
  const Text session_key = NextText(false);
  std::optional<std::pair<std::string, int64_t>> entry;
  for (int i = 0; i < 2; ++i) {
    const Text value = NextText(false);
    const int64_t expiry = Time();
    rc = m_db.InsertSessionCache(session_key.ptr, value.ptr, expiry);
    CHECK(rc == (session_key.ptr && value.ptr ? 0 : -1));
    if (rc == 0) entry.emplace(Cut(value.bytes), expiry);
  }
  const auto expect_entry = [&](int64_t now, bool there) {
    a = kKept;
    rc = m_db.SelectSessionCache(session_key.ptr, now, a);
    CHECK(there && entry->second > now ? rc == 1 && a == entry->first
                                       : rc == (session_key.ptr ? 0 : -1) && a == kKept);
  };
  expect_entry(Time(), entry.has_value());
  const int64_t purge = Time();
  CHECK(m_db.DeleteSessionCache(purge) == 0);
  expect_entry(INT64_MIN, entry && entry->second >= purge);
  rc = m_in.ConsumeBool() ? m_db.DeleteSessionCacheWithKey(session_key.ptr)
                          : m_db.DeleteAllSessionCache();
  CHECK(rc == 0 || (rc == -1 && !session_key.ptr));
  expect_entry(INT64_MIN, rc == -1 && entry && entry->second >= purge);
  CHECK(m_db.DeleteAllSessionCache() == 0);

  CHECK(g_logger->lines == lines);  // exactly the lines the round must write
  g_logger->lines.clear();
}

}  // namespace
}  // namespace database_interface::fuzz

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  FuzzedDataProvider in(data, size);
  const auto db = database_interface::IDatabaseInterface::CreateDatabaseInterface();
  CHECK(db->Init(":memory:") == 0);
  database_interface::fuzz::Rounds rounds(in, *db);
  for (int round = 0; round < 32 && in.remaining_bytes() > 0; ++round) rounds.Round();
  db->Uninit();
  return 0;
}
