// Instance records: CDatabase members on instance_info.
#include "database.h"

namespace database_interface {

int CDatabase::InsertInstanceInfo(InstanceInfo& record) {
  if (!IsReady()) return -1;
  StmtScope scope = Run(StatementId::InsertInstanceInfo);
  if (!scope.BindString(":instance_no", record.instance_no) ||
      !scope.BindString(":session_id", record.session_id) ||
      !scope.BindInt(":business_type", record.business_type) ||
      !scope.BindString(":protocol_type", record.protocol_type) ||
      !scope.BindInt(":start_recode_id", record.start_recode_id) ||
      !scope.BindInt64(":create_time", record.create_time)) {
    return -1;
  }
  return scope.FetchInsertedId(record.id);
}

int CDatabase::SelectInstanceInfoWithStartRecodeId(int start_recode_id,
                                                   std::vector<InstanceInfo>& records) {
  if (!IsReady()) return -1;
  StmtScope scope = Run(StatementId::SelectInstanceInfoWithStartRecodeId);
  if (!scope.BindInt(":start_recode_id", start_recode_id)) return -1;
  int count = 0;
  StmtScope::Step step;
  while ((step = scope.Next()) == StmtScope::Step::kRow) {
    const char* instance_no = scope.ColumnText(1);
    const char* session_id = instance_no != nullptr ? scope.ColumnText(2) : nullptr;
    const char* protocol_type = session_id != nullptr ? scope.ColumnText(4) : nullptr;
    if (protocol_type == nullptr) return -1;
    records.emplace_back(scope.ColumnInt(0), instance_no, session_id, scope.ColumnInt(3),
                         protocol_type, scope.ColumnInt(5), scope.ColumnInt64(6));
    ++count;
  }
  return step == StmtScope::Step::kDone ? count : -1;
}

int CDatabase::UpdataInstanceSessionId(int id, const char* session_id, int session_id_len) {
  if (session_id == nullptr || !IsReady()) return -1;
  StmtScope scope = Run(StatementId::UpdataInstanceSessionId);
  if (!scope.BindText(":session_id", session_id, session_id_len) || !scope.BindInt(":id", id)) {
    return -1;
  }
  return scope.Exec();
}

int CDatabase::DeleteInstanceInfo(int id) {
  if (!IsReady()) return -1;
  StmtScope scope = Run(StatementId::DeleteInstanceInfo);
  if (!scope.BindInt(":id", id)) return -1;
  return scope.Exec();
}

}  // namespace database_interface
