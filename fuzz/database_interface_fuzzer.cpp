// libFuzzer target. An input is decoded into a stored schema version, which
// one Init must accept, refuse or throw for, and then into a sequence of the
// eighteen data operations with random arguments (now and then Uninit and
// Init) on an object opened on ":memory:". Every result and output is checked
// against a model of the five stores, and every log line must be one of the
// library's fixed texts, so a bound value can never appear in one.
#include <fuzzer/FuzzedDataProvider.h>
#include <sqlite3.h>

#include <algorithm>
#include <cctype>
#include <climits>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <map>
#include <optional>
#include <stdexcept>
#include <string>
#include <tuple>
#include <vector>

#include "base/base.h"
#include "database_interface/database_interface.h"

namespace {

using database_interface::CoreRecode;
using database_interface::IDatabaseInterface;
using database_interface::InstanceInfo;

#define CHECK(condition)                                                                 \
  do {                                                                                   \
    if (!(condition)) {                                                                  \
      std::fprintf(stderr, "%s:%d: check failed: %s\n", __FILE__, __LINE__, #condition); \
      std::abort();                                                                      \
    }                                                                                    \
  } while (0)

// An in-memory database that a raw connection and the library share.
const char* const kVersionDb = "file:/database_interface_fuzz?vfs=memdb";
const char* const kCoreRefused =
    "[database]database_interface::CDatabase::InsertCoreRecode sqlite3_step with sql[INSERT INTO "
    "core_recode (dump_file_path, log_file_path, start_recode_id, create_time) "
    "VALUES(:dump_file_path, :log_file_path, :start_recode_id, :create_time) RETURNING id] "
    "failed:constraint failed";
const char* const kInstanceRefused =
    "[database]database_interface::CDatabase::InsertInstanceInfo sqlite3_step with sql[INSERT OR "
    "REPLACE INTO instance_info  (instance_no, session_id, business_type, protocol_type, "
    "start_recode_id, create_time) VALUES (:instance_no, :session_id, :business_type, "
    ":protocol_type, :start_recode_id, :create_time) RETURNING id] failed:constraint failed";
const std::string kKept = "kept";  // outputs start so and must stay so when no row is read
constexpr int kKeptId = -4711;

class Logger final : public base::IBaseLogInterface {
 public:
  BASE_PRINTF_FORMAT(4, 5)
  int WriteLog(const int& /*level*/, const int& /*tid*/, const char* format, ...) override {
    va_list args;
    va_start(args, format);
    char line[2048];
    std::vsnprintf(line, sizeof line, format, args);
    va_end(args);
    lines.emplace_back(line);
    return 0;
  }
  std::vector<std::string> lines;
};
Logger* g_logger = nullptr;

// The lines logged since the last call must be exactly `expected`.
void ExpectLines(const std::vector<std::string>& expected) {
  CHECK(g_logger->lines == expected);
  g_logger->lines.clear();
}

std::string Cut(const std::string& text) { return text.c_str(); }  // as read back: to the NUL

enum class Outcome { kOpened, kRefused, kInvalidArgument, kOutOfRange };

// What Init makes of a stored version. Its parts are the texts between dots
// (a last empty one does not count); the first three are read as base-10
// ints (leading blanks and a sign allowed, what follows the digits ignored)
// as they are reached; exactly three parts open the file.
Outcome ExpectedOutcome(const std::string& version, int (&numbers)[3]) {
  size_t parts = 0;
  for (size_t begin = 0; begin < version.size(); ++parts) {
    const size_t end = std::min(version.find('.', begin), version.size());
    const std::string part = version.substr(begin, end - begin);
    begin = end + 1;
    if (parts >= 3) continue;
    size_t i = part.find_first_not_of(" \t\n\v\f\r");
    const bool negative = i < part.size() && part[i] == '-';
    if (i < part.size() && (part[i] == '-' || part[i] == '+')) ++i;
    if (i >= part.size() || !std::isdigit(static_cast<unsigned char>(part[i]))) {
      return Outcome::kInvalidArgument;
    }
    long long value = 0;
    for (; i < part.size() && std::isdigit(static_cast<unsigned char>(part[i])); ++i) {
      value = std::min(value * 10 + (part[i] - '0'), 1LL << 40);
    }
    if (value > (negative ? 1LL << 31 : INT_MAX)) return Outcome::kOutOfRange;
    numbers[parts] = static_cast<int>(negative ? -value : value);
  }
  return parts == 3 ? Outcome::kOpened : Outcome::kRefused;
}

// Init on a database whose db_version holds `version` (no row when absent).
// Afterwards the object is closed again, whatever Init did.
void CheckVersion(IDatabaseInterface& db, const std::optional<std::string>& version) {
  sqlite3* raw = nullptr;
  sqlite3_stmt* stmt = nullptr;
  CHECK(sqlite3_open(kVersionDb, &raw) == SQLITE_OK);
  CHECK(sqlite3_exec(raw,
                     "CREATE TABLE db_version(id INTEGER PRIMARY KEY AUTOINCREMENT, version "
                     "VARCHAR(64) NOT NULL)",
                     nullptr, nullptr, nullptr) == SQLITE_OK);
  if (version) {
    sqlite3_prepare_v2(raw, "INSERT INTO db_version(version) VALUES(?1)", -1, &stmt, nullptr);
    sqlite3_bind_text(stmt, 1, version->data(), static_cast<int>(version->size()), nullptr);
    CHECK(sqlite3_step(stmt) == SQLITE_DONE);
    sqlite3_finalize(stmt);
  }
  const std::string read = version ? Cut(*version) : "1.24.0";
  int numbers[3] = {};
  const Outcome expected = ExpectedOutcome(read, numbers);
  Outcome outcome = Outcome::kOpened;
  try {
    outcome = db.Init(kVersionDb) == 0 ? Outcome::kOpened : Outcome::kRefused;
  } catch (const std::invalid_argument&) {
    outcome = Outcome::kInvalidArgument;
  } catch (const std::out_of_range&) {
    outcome = Outcome::kOutOfRange;
  }
  CHECK(outcome == expected);
  // Only an opened file that was not at 1.24.0 already gets the new text.
  sqlite3_prepare_v2(raw, "SELECT version FROM db_version", -1, &stmt, nullptr);
  CHECK(sqlite3_step(stmt) == SQLITE_ROW);
  const bool same = std::equal(numbers, numbers + 3, std::begin({1, 24, 0}));
  CHECK(reinterpret_cast<const char*>(sqlite3_column_text(stmt, 0)) ==
        (outcome != Outcome::kOpened || same ? read : "1.24.0"));
  sqlite3_finalize(stmt);
  // Open, or closed (after an exception too) with only the lines of a version
  // that does not split into three parts.
  CHECK(db.DeleteAllSessionCache() == (outcome == Outcome::kOpened ? 0 : -1));
  std::vector<std::string> lines;
  if (outcome == Outcome::kRefused) {
    lines = {"[database]database_interface::CDatabase::VersionCompare VersionSplit with version[" +
                 read + "] failed",
             "[database]VersionCompare with[" + read + "][1.24.0] failed",
             "[database]CheckAndUpdateDb failed"};
  }
  ExpectLines(lines);
  db.Uninit();
  CHECK(sqlite3_close(raw) == SQLITE_OK);
}

// A text argument: the caller's bytes and the length passed with them.
struct Text {
  std::string bytes;
  int length;
  // What is stored: up to the NUL for a negative length.
  std::string Stored() const {
    return length < 0 ? Cut(bytes) : bytes.substr(0, static_cast<size_t>(length));
  }
};

template <class Map, class Predicate>
void EraseIf(Map& map, Predicate predicate) {
  for (auto it = map.begin(); it != map.end();) it = predicate(*it) ? map.erase(it) : std::next(it);
}

auto Fields(const CoreRecode& r) {
  return std::tie(r.id, r.dump_file_path, r.log_file_path, r.start_recode_id, r.create_time);
}
auto Fields(const InstanceInfo& r) {
  return std::tie(r.id, r.instance_no, r.session_id, r.business_type, r.protocol_type,
                  r.start_recode_id, r.create_time);
}

// The decoder, and the model of what the object must hold.
class Run {
 public:
  Run(FuzzedDataProvider& in, IDatabaseInterface& db) : m_in(in), m_db(db) {}
  void Step();

 private:
  Text NextText() {
    Text text{m_in.ConsumeRandomLengthString(16), 0};
    const int length = m_in.ConsumeIntegralInRange(-3, static_cast<int>(text.bytes.size()));
    text.length = length == -3 ? INT_MIN : length;
    return text;
  }
  const char* Ptr(const std::string& text) {  // now and then null
    return m_in.ConsumeIntegralInRange(0, 15) == 0 ? nullptr : text.c_str();
  }
  int64_t Time() {
    return m_in.ConsumeBool() ? m_in.ConsumeIntegralInRange<int64_t>(-2, 2)
                              : m_in.ConsumeIntegral<int64_t>();
  }
  // An existing key of `map`, or `other`.
  template <class Map>
  typename Map::key_type Pick(const Map& map, typename Map::key_type other) {
    if (map.empty() || m_in.ConsumeBool()) return other;
    const size_t i = m_in.ConsumeIntegralInRange<size_t>(0, map.size() - 1);
    return std::next(map.begin(), static_cast<long>(i))->first;
  }
  int PickStart() { return Pick(m_starts, m_in.ConsumeIntegralInRange(-1, m_last_start + 1)); }
  // A call that returns 0 or -1: -1 exactly when the object is closed or a
  // text is null. True when it ran.
  bool Ran(int rc, bool null = false) {
    CHECK(rc == (m_open && !null ? 0 : -1));
    return rc == 0;
  }
  // A list read appended `want` (in some order) behind the caller's record.
  template <class Record>
  void ExpectAppended(int rc, std::vector<Record> got, const std::vector<Record>& want) {
    CHECK(got[0].id == kKeptId && rc == (m_open ? int(want.size()) : -1));
    CHECK(got.size() == (m_open ? want.size() : 0) + 1);
    std::sort(got.begin() + 1, got.end(), [](auto& x, auto& y) { return x.id < y.id; });
    for (size_t i = 1; i < got.size(); ++i) CHECK(Fields(got[i]) == Fields(want[i - 1]));
  }

  FuzzedDataProvider& m_in;
  IDatabaseInterface& m_db;
  bool m_open = true;
  std::optional<std::pair<std::string, std::string>> m_key;  // the first pair stored
  std::map<int, std::tuple<std::string, std::string, int64_t>> m_starts;
  std::map<int, CoreRecode> m_cores;
  std::map<int, InstanceInfo> m_instances;
  std::map<std::string, std::pair<std::string, int64_t>> m_sessions;
  int m_last_start = 0, m_last_core = 0, m_last_instance = 0;  // ids only ever grow
};

void Run::Step() {
  std::vector<std::string> lines;
  std::string a = kKept, b = kKept;
  int64_t time = kKeptId;
  // The eighteen operations, then Uninit, then Init (thrice as likely).
  const int pick = m_in.ConsumeIntegralInRange(0, 39);
  switch (const int op = pick < 36 ? pick / 2 : pick == 36 ? 18 : 19) {
    case 0: {
      const Text key = NextText(), secret = NextText();
      const char *k = Ptr(key.bytes), *s = Ptr(secret.bytes);
      if (Ran(m_db.InsertMessageCollectKey(k, key.length, s, secret.length), !k || !s) && !m_key) {
        m_key.emplace(Cut(key.Stored()), Cut(secret.Stored()));
      }
      break;
    }
    case 1: {
      const int rc = m_db.SelectMessageCollectKey(a, b);
      CHECK(m_open && m_key ? rc == 1 && std::tie(a, b) == std::tie(m_key->first, m_key->second)
                            : rc == (m_open ? 0 : -1) && a == kKept && b == kKept);
      break;
    }
    case 2: {
      const Text version = NextText(), type = NextText();
      const char *v = Ptr(version.bytes), *t = Ptr(type.bytes);
      int id = kKeptId;
      const int64_t start = Time();
      const int rc = m_db.InsertStartRecode(id, v, version.length, t, type.length, start);
      if (!m_open || !v || !t) {
        CHECK(rc == -1 && id == kKeptId);
        break;
      }
      CHECK(rc == 1 && id > m_last_start);
      m_starts[m_last_start = id] = {Cut(version.Stored()), Cut(type.Stored()), start};
      break;
    }
    case 3: {
      const int start = PickStart();
      const int rc = m_db.SelectStartRecode(start, a, b, time);
      const auto it = m_starts.find(start);
      CHECK(m_open && it != m_starts.end()
                ? rc == 1 && std::tie(a, b, time) == it->second
                : rc == (m_open ? 0 : -1) && a == kKept && b == kKept && time == kKeptId);
      break;
    }
    case 4:
    case 5: {
      const bool all = op == 5;
      const int start = all ? 0 : PickStart();
      if (!Ran(all ? m_db.DeleteAllStartRecode() : m_db.DeleteStartRecode(start))) break;
      const auto under = [&](const auto& row) {
        return all || row.second.start_recode_id == start;
      };
      EraseIf(m_cores, under), EraseIf(m_instances, under);
      EraseIf(m_starts, [&](const auto& row) { return all || row.first == start; });
      break;
    }
    case 6:
    case 9: {
      CoreRecode core;
      InstanceInfo instance;
      core.id = instance.id = kKeptId;
      core.dump_file_path = instance.instance_no = m_in.ConsumeRandomLengthString(16);
      core.log_file_path = instance.session_id = m_in.ConsumeRandomLengthString(16);
      instance.protocol_type = m_in.ConsumeRandomLengthString(16);
      instance.business_type = m_in.ConsumeIntegral<int>();
      core.start_recode_id = instance.start_recode_id = PickStart();
      core.create_time = instance.create_time = Time();
      const bool is_core = op == 6;
      const int rc = is_core ? m_db.InsertCoreRecode(core) : m_db.InsertInstanceInfo(instance);
      const int id = is_core ? core.id : instance.id;
      if (!m_open || !m_starts.count(core.start_recode_id)) {
        CHECK(rc == -1 && id == kKeptId);
        if (m_open) lines = {is_core ? kCoreRefused : kInstanceRefused};
        break;
      }
      int& last = is_core ? m_last_core : m_last_instance;
      CHECK(rc == 1 && id > last);
      last = id;
      for (std::string* text : {&core.dump_file_path, &core.log_file_path, &instance.instance_no,
                                &instance.session_id, &instance.protocol_type}) {
        *text = Cut(*text);
      }
      is_core ? void(m_cores[id] = core) : void(m_instances[id] = instance);
      break;
    }
    case 7: {
      std::vector<CoreRecode> got(1, CoreRecode(kKeptId, kKept, kKept, 0, 0)), want;
      for (const auto& row : m_cores) want.push_back(row.second);
      ExpectAppended(m_db.SelectAllCoreRecode(got), got, want);
      break;
    }
    case 10: {
      std::vector<InstanceInfo> got(1, InstanceInfo(kKeptId, kKept, kKept, 0, kKept, 0, 0)), want;
      const int start = PickStart();
      for (const auto& row : m_instances) {
        if (row.second.start_recode_id == start) want.push_back(row.second);
      }
      ExpectAppended(m_db.SelectInstanceInfoWithStartRecodeId(start, got), got, want);
      break;
    }
    case 8:
      if (const int id = Pick(m_cores, m_in.ConsumeIntegral<int>());
          Ran(m_db.DeleteCoreRecode(id))) {
        m_cores.erase(id);
      }
      break;
    case 12:
      if (const int id = Pick(m_instances, m_in.ConsumeIntegral<int>());
          Ran(m_db.DeleteInstanceInfo(id))) {
        m_instances.erase(id);
      }
      break;
    case 11: {
      const int id = Pick(m_instances, m_in.ConsumeIntegral<int>());
      const Text session = NextText();
      const char* s = Ptr(session.bytes);
      if (Ran(m_db.UpdataInstanceSessionId(id, s, session.length), !s) && m_instances.count(id)) {
        m_instances[id].session_id = Cut(session.Stored());
      }
      break;
    }
    case 13:
      if (const int64_t now = Time(); Ran(m_db.DeleteSessionCache(now))) {
        EraseIf(m_sessions, [&](const auto& row) { return row.second.second < now; });
      }
      break;
    case 14:
    case 15:
    case 16: {
      const std::string key = Pick(m_sessions, Cut(m_in.ConsumeRandomLengthString(6)));
      const std::string value = m_in.ConsumeRandomLengthString(16);
      const char *k = Ptr(key), *v = Ptr(value);
      const int64_t expiry = Time();
      if (op == 14 && Ran(m_db.DeleteSessionCacheWithKey(k), !k)) m_sessions.erase(key);
      if (op == 15 && Ran(m_db.InsertSessionCache(k, v, expiry), !k || !v)) {
        m_sessions[key] = {Cut(value), expiry};
      }
      if (op != 16) break;
      const int rc = m_db.SelectSessionCache(k, expiry, a);
      const auto it = m_sessions.find(key);
      CHECK(m_open && k && it != m_sessions.end() && it->second.second > expiry
                ? rc == 1 && a == it->second.first
                : rc == (m_open && k ? 0 : -1) && a == kKept);
      break;
    }
    case 17:
      if (Ran(m_db.DeleteAllSessionCache())) m_sessions.clear();
      break;
    case 18:
      m_db.Uninit();
      m_open = false;
      break;
    default:
      CHECK(m_db.Init(":memory:") == (m_open ? -1 : 0));
      if (m_open) break;
      // A new in-memory database: nothing stored, ids from 1 again.
      m_open = true;
      m_key.reset();
      m_starts.clear(), m_cores.clear(), m_instances.clear(), m_sessions.clear();
      m_last_start = m_last_core = m_last_instance = 0;
      break;
  }
  ExpectLines(lines);
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int* /*argc*/, char*** /*argv*/) {
  // The version database is named by a URI, whatever SQLite's build default.
  CHECK(sqlite3_config(SQLITE_CONFIG_URI, 1) == SQLITE_OK);
  // No lookaside or bulk page-cache blocks: AddressSanitizer then sees
  // SQLite's objects one by one.
  CHECK(sqlite3_config(SQLITE_CONFIG_LOOKASIDE, 0, 0) == SQLITE_OK);
  CHECK(sqlite3_config(SQLITE_CONFIG_PAGECACHE, nullptr, 0, 0) == SQLITE_OK);
  static const std::shared_ptr<Logger> logger = std::make_shared<Logger>();
  g_logger = logger.get();
  base::IBaseLogInterface::GetLogInstance(logger);
  return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  FuzzedDataProvider in(data, size);
  const std::shared_ptr<IDatabaseInterface> db = IDatabaseInterface::CreateDatabaseInterface();
  // No version row, or up to five parts: small numbers (1, 24 and 0 among
  // them), any 64-bit number, or a few random bytes.
  std::optional<std::string> version;
  const int parts = in.ConsumeIntegralInRange(-1, 5);
  if (parts >= 0) version = "";
  for (int i = 0; i < parts; ++i) {
    if (i > 0) *version += '.';
    const int kind = in.ConsumeIntegralInRange(0, 5);
    *version += kind < 4    ? std::to_string(in.ConsumeIntegralInRange(0, 30))
                : kind == 4 ? std::to_string(in.ConsumeIntegral<int64_t>())
                            : in.ConsumeRandomLengthString(4);
  }
  CheckVersion(*db, version);
  CHECK(db->Init(":memory:") == 0);
  Run run(in, *db);
  for (int steps = 0; steps < 256 && in.remaining_bytes() > 0; ++steps) run.Step();
  db->Uninit();
  return 0;
}
