// The SQLiteCpp store.
#include "sqlitecpp_store.h"

#include <SQLiteCpp/SQLiteCpp.h>

#include "fixture.h"
#include "partial_store.h"
#include "sqlite_copy.h"
#include "statements.h"
#include "stores.h"

namespace database_interface::bench {
namespace {

class SqliteCppStore final : public PartialStore {
 public:
  SqliteCppStore() = default;
  ~SqliteCppStore() { Uninit(); }
  SqliteCppStore(const SqliteCppStore&) = delete;
  SqliteCppStore& operator=(const SqliteCppStore&) = delete;

  int Init(const char* path) override {
    // First: the first call opens a connection of its own.
    sqlite3* image = LibraryImage();
    try {
      m_db = std::make_unique<SQLite::Database>(path, SQLite::OPEN_READWRITE | SQLite::OPEN_CREATE);
      m_db->exec("PRAGMA foreign_keys = ON;");
      m_db->exec(kConnectionSettingsSql);
      CopyDatabase(image, m_db->getHandle());
      for (size_t i = 0; i < kStmtCount; ++i) {
        m_stmts[i] = std::make_unique<SQLite::Statement>(*m_db, kStmtSqls[i]);
      }
    } catch (const SQLite::Exception&) {
      Uninit();
      return -1;
    }
    return 0;
  }

  void Uninit() override {
    for (std::unique_ptr<SQLite::Statement>& stmt : m_stmts) stmt.reset();
    m_db.reset();
  }

  int SelectMessageCollectKey(std::string& message_access_key,
                              std::string& message_access_secret_key) override {
    return Run(StatementId::SelectMessageCollectKey, [&](SQLite::Statement& query) {
      if (!query.executeStep()) return 0;
      message_access_key = query.getColumn(0).getString();
      message_access_secret_key = query.getColumn(1).getString();
      return 1;
    });
  }

  int InsertStartRecode(int& id, const char* sdk_version, int, const char* sdk_type, int,
                        int64_t start_time) override {
    if (sdk_version == nullptr || sdk_type == nullptr) return -1;
    return Run(StatementId::InsertStartRecode, [&](SQLite::Statement& query) {
      query.bind(":sdk_version", sdk_version);
      query.bind(":sdk_type", sdk_type);
      query.bind(":start_time", start_time);
      if (!query.executeStep()) return 0;
      id = query.getColumn(0).getInt();
      return 1;
    });
  }

  int SelectStartRecode(int id, std::string& sdk_version, std::string& sdk_type,
                        int64_t& start_time) override {
    return Run(StatementId::SelectStartRecode, [&](SQLite::Statement& query) {
      query.bind(":id", id);
      if (!query.executeStep()) return 0;
      sdk_version = query.getColumn(0).getString();
      sdk_type = query.getColumn(1).getString();
      start_time = query.getColumn(2).getInt64();
      return 1;
    });
  }

  int DeleteStartRecode(int id) override { return DeleteById(StatementId::DeleteStartRecode, id); }

  int SelectAllCoreRecode(std::vector<CoreRecode>& records) override {
    return Run(StatementId::SelectAllCoreRecode, [&](SQLite::Statement& query) {
      int count = 0;
      while (query.executeStep()) {
        records.emplace_back(query.getColumn(0).getInt(), query.getColumn(1).getString(),
                             query.getColumn(2).getString(), query.getColumn(3).getInt(),
                             query.getColumn(4).getInt64());
        ++count;
      }
      return count;
    });
  }

  int DeleteCoreRecode(int id) override { return DeleteById(StatementId::DeleteCoreRecode, id); }

  int InsertInstanceInfo(InstanceInfo& record) override {
    return Run(StatementId::InsertInstanceInfo, [&](SQLite::Statement& query) {
      query.bind(":instance_no", record.instance_no);
      query.bind(":session_id", record.session_id);
      query.bind(":business_type", record.business_type);
      query.bind(":protocol_type", record.protocol_type);
      query.bind(":start_recode_id", record.start_recode_id);
      query.bind(":create_time", record.create_time);
      if (!query.executeStep()) return 0;
      record.id = query.getColumn(0).getInt();
      return 1;
    });
  }

  int SelectInstanceInfoWithStartRecodeId(int start_recode_id,
                                          std::vector<InstanceInfo>& records) override {
    return Run(StatementId::SelectInstanceInfoWithStartRecodeId, [&](SQLite::Statement& query) {
      query.bind(":start_recode_id", start_recode_id);
      int count = 0;
      while (query.executeStep()) {
        records.emplace_back(query.getColumn(0).getInt(), query.getColumn(1).getString(),
                             query.getColumn(2).getString(), query.getColumn(3).getInt(),
                             query.getColumn(4).getString(), query.getColumn(5).getInt(),
                             query.getColumn(6).getInt64());
        ++count;
      }
      return count;
    });
  }

  int UpdataInstanceSessionId(int id, const char* session_id, int) override {
    if (session_id == nullptr) return -1;
    return Run(StatementId::UpdataInstanceSessionId, [&](SQLite::Statement& query) {
      query.bind(":session_id", session_id);
      query.bind(":id", id);
      query.exec();
      return 0;
    });
  }

  int DeleteInstanceInfo(int id) override {
    return DeleteById(StatementId::DeleteInstanceInfo, id);
  }

  int DeleteSessionCache(int64_t expire_time) override {
    return Run(StatementId::DeleteSessionCache, [&](SQLite::Statement& query) {
      query.bind(":expire_time", expire_time);
      query.exec();
      return 0;
    });
  }

  int DeleteSessionCacheWithKey(const char* session_key) override {
    if (session_key == nullptr) return -1;
    return Run(StatementId::DeleteSessionCacheWithKey, [&](SQLite::Statement& query) {
      query.bind(":session_key", session_key);
      query.exec();
      return 0;
    });
  }

  int InsertSessionCache(const char* session_key, const char* session_value,
                         int64_t expire_time) override {
    if (session_key == nullptr || session_value == nullptr) return -1;
    return Run(StatementId::InsertSessionCache, [&](SQLite::Statement& query) {
      query.bind(":session_key", session_key);
      query.bind(":session_value", session_value);
      query.bind(":expire_time", expire_time);
      query.exec();
      return 0;
    });
  }

  int SelectSessionCache(const char* session_key, int64_t expire_time,
                         std::string& session_value) override {
    if (session_key == nullptr) return -1;
    return Run(StatementId::SelectSessionCache, [&](SQLite::Statement& query) {
      query.bind(":session_key", session_key);
      query.bind(":expire_time", expire_time);
      int count = 0;
      while (query.executeStep()) {
        session_value = query.getColumn(0).getString();
        ++count;
      }
      return count;
    });
  }

 private:
  // Runs `body` on the operation's statement and resets it; an exception
  // from SQLiteCpp becomes -1.
  template <class Body>
  int Run(StatementId id, Body body) {
    SQLite::Statement& query = *m_stmts[Index(id)];
    try {
      const int result = body(query);
      query.reset();
      return result;
    } catch (const SQLite::Exception&) {
      query.tryReset();
      return -1;
    }
  }

  int DeleteById(StatementId statement, int id) {
    return Run(statement, [&](SQLite::Statement& query) {
      query.bind(":id", id);
      query.exec();
      return 0;
    });
  }

  std::unique_ptr<SQLite::Database> m_db;
  std::unique_ptr<SQLite::Statement> m_stmts[kStmtCount];
};

}  // namespace

std::shared_ptr<IDatabaseInterface> MakeSqliteCppStore() {
  return std::make_shared<SqliteCppStore>();
}

}  // namespace database_interface::bench
