// The base of the stores that stand in for the library: the operations no
// benchmark runs fail with -1.
#ifndef DATABASE_INTERFACE_BENCH_PARTIAL_STORE_H_
#define DATABASE_INTERFACE_BENCH_PARTIAL_STORE_H_

#include "database_interface/database_interface.h"

namespace database_interface::bench {

class PartialStore : public IDatabaseInterface {
 public:
  int InsertMessageCollectKey(const char*, int, const char*, int) override { return -1; }
  int DeleteAllStartRecode() override { return -1; }
  int InsertCoreRecode(CoreRecode&) override { return -1; }
  int DeleteAllSessionCache() override { return -1; }

 protected:
  // Owned through std::shared_ptr of the final class only.
  ~PartialStore() = default;
};

}  // namespace database_interface::bench

#endif  // DATABASE_INTERFACE_BENCH_PARTIAL_STORE_H_
