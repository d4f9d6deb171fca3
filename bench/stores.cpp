// Opening a store of any variant, on the SQLite it runs on.
#include "stores.h"

#include <sqlite3.h>

#include <atomic>
#include <cstdlib>
#include <filesystem>

#include "library_plugin.h"
#include "raw_store.h"
#include "sqlitecpp_store.h"

namespace database_interface::bench {
namespace {

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

ScratchDir& Scratch() {
  static ScratchDir scratch;
  return scratch;
}

const LibraryPlugin& Plugin() {
  static const LibraryPlugin& plugin = *database_interface_bench_library();
  return plugin;
}

std::shared_ptr<IDatabaseInterface> Make(Variant variant) {
  switch (variant) {
    case Variant::kLib: return Plugin().create();
    case Variant::kRaw: return MakeRawStore(RawLocking::kSerialized);
    case Variant::kRawNoMutex: return MakeRawStore(RawLocking::kNone);
    case Variant::kSqliteCpp: return MakeSqliteCppStore();
  }
  return nullptr;
}

sqlite3* MakeLibraryImage() {
  // The library writes the file with its SQLite and closes it before the
  // system's SQLite opens it: two copies of SQLite must never have one file
  // open at once, as neither sees the other's locks.
  const std::unique_ptr<OpenStore> library = Open(Variant::kLib, Medium::kFile);
  library->db->Uninit();
  sqlite3* file = nullptr;
  Require(sqlite3_open_v2(library->path.c_str(), &file, SQLITE_OPEN_READONLY, nullptr) == SQLITE_OK,
          "opening the library's image");
  sqlite3* image = nullptr;
  Require(sqlite3_open(":memory:", &image) == SQLITE_OK, "sqlite3_open");
  CopyDatabase(file, image);
  Require(sqlite3_close(file) == SQLITE_OK, "sqlite3_close");
  return image;
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

const SqliteCopy& SqliteOf(Variant variant) {
  return variant == Variant::kLib ? *Plugin().sqlite : LinkedSqlite();
}

bool LibraryHasItsOwnSqlite() { return SqliteOf(Variant::kLib).version != LinkedSqlite().version; }

const char* Name(Medium medium) { return medium == Medium::kMemory ? "memory" : "file"; }

OpenStore::~OpenStore() {
  if (db) db->Uninit();
  if (path == ":memory:") return;
  std::error_code ec;
  std::filesystem::remove(path, ec);
  std::filesystem::remove(path + "-journal", ec);
}

std::unique_ptr<OpenStore> Open(Variant variant, Medium medium) {
  auto store = std::make_unique<OpenStore>();
  store->path = medium == Medium::kMemory ? ":memory:" : Scratch().NewFile(Name(variant));
  store->db = Make(variant);
  store->sqlite = &SqliteOf(variant);
  store->connection = store->sqlite->open(*store->db, store->path.c_str());
  Require(store->connection != nullptr, "Init");
  return store;
}

sqlite3* LibraryImage() {
  static sqlite3* const image = MakeLibraryImage();
  return image;
}

}  // namespace database_interface::bench
