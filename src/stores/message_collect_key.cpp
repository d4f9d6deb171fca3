// The message-collection key pair: CDatabase members on message_collect_key.
#include "database.h"

namespace database_interface {

int CDatabase::SelectMessageCollectKey(std::string& message_access_key,
                                       std::string& message_access_secret_key) {
  if (!IsReady()) return -1;
  StmtScope scope = Run(StatementId::SelectMessageCollectKey);
  const int rc = scope.Fetch();
  if (rc != 1) return rc;
  const char* key = scope.ColumnText(0);
  const char* secret = key != nullptr ? scope.ColumnText(1) : nullptr;
  if (secret == nullptr) return -1;
  message_access_key = key;
  message_access_secret_key = secret;
  return 1;
}

int CDatabase::InsertMessageCollectKey(const char* message_access_key, int message_access_key_len,
                                       const char* message_access_secret_key,
                                       int message_access_secret_key_len) {
  if (!IsReady() || message_access_key == nullptr || message_access_secret_key == nullptr) {
    return -1;
  }
  StmtScope scope = Run(StatementId::InsertMessageCollectKey);
  if (!scope.BindText(":message_access_key", message_access_key, message_access_key_len) ||
      !scope.BindText(":message_access_secret_key", message_access_secret_key,
                      message_access_secret_key_len)) {
    return -1;
  }
  return scope.Exec();
}

}  // namespace database_interface
