// The raw-SQLite store: the library's SQL texts and binds by name, run with
// nothing but the C API, under each locking regime.
#include "raw_store.h"

#include <sqlite3.h>

#include <cstring>
#include <mutex>
#include <type_traits>

#include "fixture.h"
#include "partial_store.h"
#include "sqlite_copy.h"
#include "statements.h"
#include "stores.h"

namespace database_interface::bench {
namespace {

constexpr int kMaxParams = 6;

// The parameters of each statement, in the order the library binds them.
const char* const kParams[kStmtCount][kMaxParams] = {
    // SelectMessageCollectKey
    {},
    // InsertMessageCollectKey
    {":message_access_key", ":message_access_secret_key"},
    // InsertStartRecode
    {":sdk_version", ":sdk_type", ":start_time"},
    // DeleteStartRecode
    {":id"},
    // DeleteAllStartRecode
    {},
    // SelectStartRecode
    {":id"},
    // InsertCoreRecode
    {":dump_file_path", ":log_file_path", ":start_recode_id", ":create_time"},
    // SelectAllCoreRecode
    {},
    // DeleteCoreRecode
    {":id"},
    // InsertInstanceInfo
    {":instance_no", ":session_id", ":business_type", ":protocol_type", ":start_recode_id",
     ":create_time"},
    // SelectInstanceInfoWithStartRecodeId
    {":start_recode_id"},
    // UpdataInstanceSessionId
    {":session_id", ":id"},
    // DeleteInstanceInfo
    {":id"},
    // DeleteSessionCache
    {":expire_time"},
    // InsertSessionCache
    {":session_key", ":session_value", ":expire_time"},
    // SelectSessionCache
    {":session_key", ":expire_time"},
    // DeleteSessionCacheWithKey
    {":session_key"},
    // DeleteAllSessionCache
    {},
};

template <RawLocking Locking>
class RawStore final : public PartialStore {
  static constexpr bool kLocked = Locking == RawLocking::kSerialized;

  struct Slot {
    std::mutex mutex;  // taken only when kLocked
    sqlite3_stmt* stmt = nullptr;
    const char* const* names = nullptr;
    int index[kMaxParams] = {};  // used only when !kLocked
  };

  struct NoLock {
    explicit NoLock(std::mutex&) {}
  };
  using Lock = std::conditional_t<kLocked, std::lock_guard<std::mutex>, NoLock>;

  // One run of a statement: lock, binds, steps, and the reset in the
  // destructor body, before the lock member is released.
  class Run {
   public:
    explicit Run(Slot& slot) : m_lock(slot.mutex), m_slot(slot), m_stmt(slot.stmt) {}
    ~Run() { sqlite3_reset(m_stmt); }
    Run(const Run&) = delete;
    Run& operator=(const Run&) = delete;

    bool Text(int k, const char* text, int length) {
      return sqlite3_bind_text(m_stmt, Index(k), text, length, SQLITE_STATIC) == SQLITE_OK;
    }
    bool CString(int k, const char* text) {
      return Text(k, text, static_cast<int>(std::strlen(text)));
    }
    bool String(int k, const std::string& text) {
      return Text(k, text.data(), static_cast<int>(text.size()));
    }
    bool Int(int k, int value) { return sqlite3_bind_int(m_stmt, Index(k), value) == SQLITE_OK; }
    bool Int64(int k, int64_t value) {
      return sqlite3_bind_int64(m_stmt, Index(k), value) == SQLITE_OK;
    }

    int Step() { return sqlite3_step(m_stmt); }
    // For statements that yield no row: 0, or -1.
    int Exec() {
      const int rc = Step();
      return rc == SQLITE_DONE || rc == SQLITE_ROW ? 0 : -1;
    }
    // For single-row statements: 1 with a row to read, 0 without, -1.
    int Fetch() {
      const int rc = Step();
      return rc == SQLITE_ROW ? 1 : rc == SQLITE_DONE ? 0 : -1;
    }
    const char* Column(int column) {
      return reinterpret_cast<const char*>(sqlite3_column_text(m_stmt, column));
    }
    int ColumnInt(int column) { return sqlite3_column_int(m_stmt, column); }
    int64_t ColumnInt64(int column) { return sqlite3_column_int64(m_stmt, column); }

   private:
    int Index(int k) const {
      if constexpr (kLocked) {
        return sqlite3_bind_parameter_index(m_stmt, m_slot.names[k]);
      } else {
        return m_slot.index[k];
      }
    }

    Lock m_lock;
    const Slot& m_slot;
    sqlite3_stmt* const m_stmt;
  };

 public:
  RawStore() = default;
  ~RawStore() { Uninit(); }
  RawStore(const RawStore&) = delete;
  RawStore& operator=(const RawStore&) = delete;

  int Init(const char* path) override {
    // First: the first call opens a connection of its own.
    sqlite3* image = LibraryImage();
    const int flags = SQLITE_OPEN_READWRITE | SQLITE_OPEN_CREATE |
                      (kLocked ? SQLITE_OPEN_FULLMUTEX : SQLITE_OPEN_NOMUTEX);
    if (sqlite3_open_v2(path, &m_db, flags, nullptr) != SQLITE_OK) {
      Uninit();
      return -1;
    }
    MustExec(m_db, "PRAGMA foreign_keys = ON;");
    MustExec(m_db, kConnectionSettingsSql);
    CopyDatabase(image, m_db);
    for (size_t i = 0; i < kStmtCount; ++i) {
      Slot& slot = m_slots[i];
      if (sqlite3_prepare_v2(m_db, kStmtSqls[i], -1, &slot.stmt, nullptr) != SQLITE_OK) {
        Uninit();
        return -1;
      }
      slot.names = kParams[i];
      for (int k = 0; k < kMaxParams && slot.names[k] != nullptr; ++k) {
        slot.index[k] = sqlite3_bind_parameter_index(slot.stmt, slot.names[k]);
      }
    }
    return 0;
  }

  void Uninit() override {
    for (Slot& slot : m_slots) {
      sqlite3_finalize(slot.stmt);
      slot.stmt = nullptr;
    }
    sqlite3_close_v2(m_db);
    m_db = nullptr;
  }

  int SelectMessageCollectKey(std::string& message_access_key,
                              std::string& message_access_secret_key) override {
    Run run(At(StatementId::SelectMessageCollectKey));
    const int rc = run.Fetch();
    if (rc != 1) return rc;
    const char* key = run.Column(0);
    const char* secret = run.Column(1);
    if (key == nullptr || secret == nullptr) return -1;
    message_access_key.assign(key);
    message_access_secret_key.assign(secret);
    return 1;
  }

  int InsertStartRecode(int& id, const char* sdk_version, int sdk_version_len, const char* sdk_type,
                        int sdk_type_len, int64_t start_time) override {
    if (sdk_version == nullptr || sdk_type == nullptr) return -1;
    Run run(At(StatementId::InsertStartRecode));
    if (!run.Text(0, sdk_version, sdk_version_len) || !run.Text(1, sdk_type, sdk_type_len) ||
        !run.Int64(2, start_time)) {
      return -1;
    }
    const int rc = run.Fetch();
    if (rc == 1) id = run.ColumnInt(0);
    return rc;
  }

  int SelectStartRecode(int id, std::string& sdk_version, std::string& sdk_type,
                        int64_t& start_time) override {
    Run run(At(StatementId::SelectStartRecode));
    if (!run.Int(0, id)) return -1;
    const int rc = run.Fetch();
    if (rc != 1) return rc;
    const char* version = run.Column(0);
    const char* type = run.Column(1);
    if (version == nullptr || type == nullptr) return -1;
    sdk_version.assign(version);
    sdk_type.assign(type);
    start_time = run.ColumnInt64(2);
    return 1;
  }

  int DeleteStartRecode(int id) override { return DeleteById(StatementId::DeleteStartRecode, id); }

  int SelectAllCoreRecode(std::vector<CoreRecode>& records) override {
    Run run(At(StatementId::SelectAllCoreRecode));
    int count = 0;
    int rc;
    while ((rc = run.Step()) == SQLITE_ROW) {
      const char* dump_file_path = run.Column(1);
      const char* log_file_path = dump_file_path != nullptr ? run.Column(2) : nullptr;
      if (log_file_path == nullptr) return -1;
      records.emplace_back(run.ColumnInt(0), dump_file_path, log_file_path, run.ColumnInt(3),
                           run.ColumnInt64(4));
      ++count;
    }
    return rc == SQLITE_DONE ? count : -1;
  }

  int DeleteCoreRecode(int id) override { return DeleteById(StatementId::DeleteCoreRecode, id); }

  int InsertInstanceInfo(InstanceInfo& record) override {
    Run run(At(StatementId::InsertInstanceInfo));
    if (!run.String(0, record.instance_no) || !run.String(1, record.session_id) ||
        !run.Int(2, record.business_type) || !run.String(3, record.protocol_type) ||
        !run.Int(4, record.start_recode_id) || !run.Int64(5, record.create_time)) {
      return -1;
    }
    const int rc = run.Fetch();
    if (rc == 1) record.id = run.ColumnInt(0);
    return rc;
  }

  int SelectInstanceInfoWithStartRecodeId(int start_recode_id,
                                          std::vector<InstanceInfo>& records) override {
    Run run(At(StatementId::SelectInstanceInfoWithStartRecodeId));
    if (!run.Int(0, start_recode_id)) return -1;
    int count = 0;
    int rc;
    while ((rc = run.Step()) == SQLITE_ROW) {
      const char* instance_no = run.Column(1);
      const char* session_id = instance_no != nullptr ? run.Column(2) : nullptr;
      const char* protocol_type = session_id != nullptr ? run.Column(4) : nullptr;
      if (protocol_type == nullptr) return -1;
      records.emplace_back(run.ColumnInt(0), instance_no, session_id, run.ColumnInt(3),
                           protocol_type, run.ColumnInt(5), run.ColumnInt64(6));
      ++count;
    }
    return rc == SQLITE_DONE ? count : -1;
  }

  int UpdataInstanceSessionId(int id, const char* session_id, int session_id_len) override {
    if (session_id == nullptr) return -1;
    Run run(At(StatementId::UpdataInstanceSessionId));
    if (!run.Text(0, session_id, session_id_len) || !run.Int(1, id)) return -1;
    return run.Exec();
  }

  int DeleteInstanceInfo(int id) override {
    return DeleteById(StatementId::DeleteInstanceInfo, id);
  }

  int DeleteSessionCache(int64_t expire_time) override {
    Run run(At(StatementId::DeleteSessionCache));
    if (!run.Int64(0, expire_time)) return -1;
    return run.Exec();
  }

  int DeleteSessionCacheWithKey(const char* session_key) override {
    if (session_key == nullptr) return -1;
    Run run(At(StatementId::DeleteSessionCacheWithKey));
    if (!run.CString(0, session_key)) return -1;
    return run.Exec();
  }

  int InsertSessionCache(const char* session_key, const char* session_value,
                         int64_t expire_time) override {
    if (session_key == nullptr || session_value == nullptr) return -1;
    Run run(At(StatementId::InsertSessionCache));
    if (!run.CString(0, session_key) || !run.CString(1, session_value) ||
        !run.Int64(2, expire_time)) {
      return -1;
    }
    return run.Exec();
  }

  int SelectSessionCache(const char* session_key, int64_t expire_time,
                         std::string& session_value) override {
    if (session_key == nullptr) return -1;
    Run run(At(StatementId::SelectSessionCache));
    if (!run.CString(0, session_key) || !run.Int64(1, expire_time)) return -1;
    int count = 0;
    int rc;
    while ((rc = run.Step()) == SQLITE_ROW) {
      const char* value = run.Column(0);
      if (value == nullptr) return -1;
      session_value.assign(value);
      ++count;
    }
    return rc == SQLITE_DONE ? count : -1;
  }

 private:
  Slot& At(StatementId id) { return m_slots[Index(id)]; }

  int DeleteById(StatementId statement, int id) {
    Run run(At(statement));
    if (!run.Int(0, id)) return -1;
    return run.Exec();
  }

  Slot m_slots[kStmtCount];
  sqlite3* m_db = nullptr;
};

}  // namespace

std::shared_ptr<IDatabaseInterface> MakeRawStore(RawLocking locking) {
  if (locking == RawLocking::kSerialized) {
    return std::make_shared<RawStore<RawLocking::kSerialized>>();
  }
  return std::make_shared<RawStore<RawLocking::kNone>>();
}

}  // namespace database_interface::bench
