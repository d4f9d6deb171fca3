// Crash dump records: CDatabase members on core_recode.
#include "database.h"

namespace database_interface {

int CDatabase::InsertCoreRecode(CoreRecode& record) {
  if (!IsReady()) return -1;
  StmtScope scope = Run(StatementId::InsertCoreRecode);
  if (!scope.BindString(":dump_file_path", record.dump_file_path) ||
      !scope.BindString(":log_file_path", record.log_file_path) ||
      !scope.BindInt(":start_recode_id", record.start_recode_id) ||
      !scope.BindInt64(":create_time", record.create_time)) {
    return -1;
  }
  return scope.FetchInsertedId(record.id);
}

int CDatabase::SelectAllCoreRecode(std::vector<CoreRecode>& records) {
  if (!IsReady()) return -1;
  StmtScope scope = Run(StatementId::SelectAllCoreRecode);
  int count = 0;
  StmtScope::Step step;
  while ((step = scope.Next()) == StmtScope::Step::kRow) {
    const char* dump_file_path = scope.ColumnText(1);
    const char* log_file_path = dump_file_path != nullptr ? scope.ColumnText(2) : nullptr;
    if (log_file_path == nullptr) return -1;
    records.emplace_back(scope.ColumnInt(0), dump_file_path, log_file_path, scope.ColumnInt(3),
                         scope.ColumnInt64(4));
    ++count;
  }
  return step == StmtScope::Step::kDone ? count : -1;
}

int CDatabase::DeleteCoreRecode(int id) {
  if (!IsReady()) return -1;
  StmtScope scope = Run(StatementId::DeleteCoreRecode);
  if (!scope.BindInt(":id", id)) return -1;
  return scope.Exec();
}

}  // namespace database_interface
