// Opening a store of any variant, and catching the connection it opens.
#include "stores.h"

#include <sqlite3.h>

#include <atomic>
#include <cstdlib>
#include <filesystem>
#include <mutex>

#include "fixture.h"
#include "raw_store.h"
#include "sqlitecpp_store.h"

namespace database_interface::bench {
namespace {

// The last connection SQLite opened on this thread. SQLite runs every
// automatic extension inside sqlite3_open_v2, on the opening thread, so right
// after a store's Init this is the store's own connection, the library's
// included, without the library having to hand it out.
thread_local sqlite3* t_opened = nullptr;

int CatchConnection(sqlite3* db, char**, const sqlite3_api_routines*) {
  t_opened = db;
  return SQLITE_OK;
}

void InstallCatcher() {
  static std::once_flag once;
  std::call_once(once, [] {
    // SQLite declares its entry points as void(*)(void) and calls them with
    // the extension signature.
    Require(sqlite3_auto_extension(reinterpret_cast<void (*)()>(&CatchConnection)) == SQLITE_OK,
            "sqlite3_auto_extension");
  });
}

// A directory for the benchmark's files, removed with them at exit.
class ScratchDir {
 public:
  ScratchDir() {
    std::string templ = (std::filesystem::temp_directory_path() / "dbi_bench_XXXXXX").string();
    Require(mkdtemp(templ.data()) != nullptr, "mkdtemp");
    m_path = templ;
  }
  ~ScratchDir() {
    std::error_code ec;
    std::filesystem::remove_all(m_path, ec);
  }
  std::string NewFile(const char* stem) {
    return m_path + "/" + stem + "-" + std::to_string(m_count++) + ".db";
  }

 private:
  std::string m_path;
  std::atomic<int> m_count{0};
};

std::shared_ptr<IDatabaseInterface> Make(Variant variant) {
  switch (variant) {
    case Variant::kLib: return IDatabaseInterface::CreateDatabaseInterface();
    case Variant::kRaw: return MakeRawStore(RawLocking::kSerialized);
    case Variant::kRawNoMutex: return MakeRawStore(RawLocking::kNone);
    case Variant::kSqliteCpp: return MakeSqliteCppStore();
  }
  return nullptr;
}

}  // namespace

const char* Name(Variant variant) {
  switch (variant) {
    case Variant::kLib: return "lib";
    case Variant::kRaw: return "raw";
    case Variant::kRawNoMutex: return "raw_nomutex";
    case Variant::kSqliteCpp: return "sqlitecpp";
  }
  return "?";
}

const char* Name(Medium medium) { return medium == Medium::kMemory ? "memory" : "file"; }

OpenStore::~OpenStore() {
  if (db) db->Uninit();
  if (path == ":memory:") return;
  std::error_code ec;
  std::filesystem::remove(path, ec);
  std::filesystem::remove(path + "-journal", ec);
}

std::unique_ptr<OpenStore> Open(Variant variant, Medium medium) {
  static ScratchDir scratch;
  InstallCatcher();
  auto store = std::make_unique<OpenStore>();
  store->path = medium == Medium::kMemory ? ":memory:" : scratch.NewFile(Name(variant));
  store->db = Make(variant);
  t_opened = nullptr;
  Require(store->db->Init(store->path.c_str()) == 0, "Init");
  Require(t_opened != nullptr, "no connection caught");
  store->handle = t_opened;
  return store;
}

}  // namespace database_interface::bench
