// Start records: CDatabase members on start_recode.
#include "database.h"

namespace database_interface {

int CDatabase::InsertStartRecode(int& id, const char* sdk_version, int sdk_version_len,
                                 const char* sdk_type, int sdk_type_len, int64_t start_time) {
  if (!IsReady() || sdk_version == nullptr || sdk_type == nullptr) return -1;
  StmtScope scope = Run(StatementId::InsertStartRecode);
  if (!scope.BindText(":sdk_version", sdk_version, sdk_version_len) ||
      !scope.BindText(":sdk_type", sdk_type, sdk_type_len) ||
      !scope.BindInt64(":start_time", start_time)) {
    return -1;
  }
  return scope.FetchInsertedId(id);
}

int CDatabase::SelectStartRecode(int id, std::string& sdk_version, std::string& sdk_type,
                                 int64_t& start_time) {
  if (!IsReady()) return -1;
  StmtScope scope = Run(StatementId::SelectStartRecode);
  if (!scope.BindInt(":id", id)) return -1;
  const int rc = scope.Fetch();
  if (rc != 1) return rc;
  const char* version = scope.ColumnText(0);
  const char* type = version != nullptr ? scope.ColumnText(1) : nullptr;
  if (type == nullptr) return -1;
  sdk_version = version;
  sdk_type = type;
  start_time = scope.ColumnInt64(2);
  return 1;
}

int CDatabase::DeleteStartRecode(int id) {
  if (!IsReady()) return -1;
  StmtScope scope = Run(StatementId::DeleteStartRecode);
  if (!scope.BindInt(":id", id)) return -1;
  return scope.Exec();
}

int CDatabase::DeleteAllStartRecode() {
  if (!IsReady()) return -1;
  StmtScope scope = Run(StatementId::DeleteAllStartRecode);
  return scope.Exec();
}

}  // namespace database_interface
