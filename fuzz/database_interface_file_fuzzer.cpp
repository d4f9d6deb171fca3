// libFuzzer target: the input is the store file, as another program may have
// left it. Init opens it, each data operation runs once, Uninit closes it.
#include <unistd.h>

#include <filesystem>
#include <stdexcept>

#include "fuzz_util.h"

namespace database_interface::fuzz {
namespace {

// One store per process, so parallel jobs never share it.
const std::string g_path = std::filesystem::temp_directory_path() /
                           ("database_interface_file_fuzzer." + std::to_string(getpid()));

// -1 with one "[database]" line (with `chain`, one or more); any other result with none.
int Call(int rc, bool chain = false) {
  const std::vector<std::string> lines = g_logger->Take();
  CHECK(rc >= -1 && (rc == -1 ? lines.size() == 1 || (chain && lines.size() > 1) : lines.empty()));
  for (const std::string& line : lines) CHECK(line.rfind("[database]", 0) == 0);
  return rc;
}

void RemoveStore() {
  for (const char* end : {"", "-journal", "-wal", "-shm"}) std::filesystem::remove(g_path + end);
}

}  // namespace

// "--make-seed <file> <sql>" writes a seed instead: a new store the library made, then <sql>.
extern "C" int LLVMFuzzerInitialize(int* argc, char*** argv) {
  if (*argc == 4 && std::string((*argv)[1]) == "--make-seed") {
    const auto db = IDatabaseInterface::CreateDatabaseInterface();
    CHECK(db->Init((*argv)[2]) == 0);
    db->Uninit();
    sqlite3* raw = nullptr;
    CHECK(sqlite3_open((*argv)[2], &raw) == SQLITE_OK &&
          sqlite3_exec(raw, (*argv)[3], nullptr, nullptr, nullptr) == SQLITE_OK);
    std::exit(sqlite3_close(raw));
  }
  std::atexit(RemoveStore);
  return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  RemoveStore();  // nothing an input left may be read with the next
  std::FILE* const file = std::fopen(g_path.c_str(), "wb");
  CHECK(file && std::fwrite(data, 1, size, file) == size && std::fclose(file) == 0);
  const auto db = IDatabaseInterface::CreateDatabaseInterface();
  int rc = -1;
  try {
    rc = Call(db->Init(g_path.c_str()), true);
  } catch (const std::invalid_argument&) {  // a stored version with a part that is not a number
  } catch (const std::out_of_range&) {
  }
  if (rc == 0) {  // each data operation once, reads first, to meet a seed's id 1 and key "k"
    std::string a, b;
    int64_t time = 0;
    std::vector<CoreRecode> cores;
    std::vector<InstanceInfo> instances;
    Call(db->SelectMessageCollectKey(a, b));
    Call(db->SelectStartRecode(1, a, b, time));
    const int core_count = Call(db->SelectAllCoreRecode(cores));
    CHECK(core_count == -1 || core_count == static_cast<int>(cores.size()));
    const int instance_count = Call(db->SelectInstanceInfoWithStartRecodeId(1, instances));
    CHECK(instance_count == -1 || instance_count == static_cast<int>(instances.size()));
    Call(db->SelectSessionCache("k", 0, a));
    Call(db->InsertMessageCollectKey("k", 1, "s", -1));
    CoreRecode core(0, "d", "l", 1, 1);
    Call(db->InsertStartRecode(core.start_recode_id, "v", 1, "t", -1, 1));
    InstanceInfo instance(0, "n", "s", 1, "p", core.start_recode_id, 1);
    Call(db->InsertCoreRecode(core));
    Call(db->InsertInstanceInfo(instance));
    Call(db->UpdataInstanceSessionId(instance.id, "s", 1));
    Call(db->InsertSessionCache("k", "v", 9));
    Call(db->DeleteCoreRecode(core.id));
    Call(db->DeleteInstanceInfo(instance.id));
    Call(db->DeleteStartRecode(core.start_recode_id));
    Call(db->DeleteSessionCacheWithKey("k"));
    Call(db->DeleteSessionCache(9));
    Call(db->DeleteAllStartRecode());
    Call(db->DeleteAllSessionCache());
  }
  db->Uninit();
  CHECK(db->DeleteAllSessionCache() == -1 && g_logger->lines.empty());  // closed: a silent refusal
  CHECK(std::filesystem::is_regular_file(std::filesystem::symlink_status(g_path)));
  return 0;
}

}  // namespace database_interface::fuzz
