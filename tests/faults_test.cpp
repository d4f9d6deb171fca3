// Faults under every call: a countdown (SQLite's test_syscall.c, test_malloc.c)
// fails call N of a shim VFS (vfstrace.c) or allocation N, alone or with all
// after it, for each N that Init and an Ops pass reach. A failed call is -1
// with its line; afterwards the file holds what the calls that worked stored.
// A power cut also writes out the disk as a reboot would find it, for a fresh
// process to find every acknowledged call's rows there.
#include <sqlite3.h>

#include <cctype>
#include <filesystem>
#include <fstream>
#include <map>
#include <random>
#include <regex>
#include <set>

#include "test_util.h"

namespace database_interface::test {
namespace {

// What a fault can fail, as bits: allocations and calls of a file.
constexpr unsigned kNone = 0, kMalloc = 1, kWrite = 2, kSync = 4, kRead = 8, kLock = 16,
                   kFileSize = 32, kTruncate = 64, kDelete = 128;
constexpr unsigned kPowerCut = kWrite | kSync | kTruncate | kDelete;

// When a file's creation or deletion becomes durable: on POSIX at a directory
// sync, which SQLite's unix VFS makes at the first sync of a journal it opened
// to create, and after deleting one with synchronous=EXTRA; on NTFS, whose
// metadata log FlushFileBuffers commits in order, at every sync.
enum DiskModel { kNoPowerCut, kPosix, kNtfs };

struct Fault {
  const char* name;
  unsigned points;
  int code;  // what a failing disk call returns
  bool sticky;
  const char* version;  // of the file opened; null: a new file
  DiskModel disk = kNoPowerCut;
};

// The armed countdown: call n at its points fails, and when sticky every later
// one; n == 0 disarms it.
struct {
  Fault fault{};
  int n = 0, calls = 0;
  bool fired = false;
  std::string images;  // a power cut writes the disk it leaves to images/<n>/
} g_armed;

// A file as a power cut leaves it: its bytes at its last sync, and what was
// written or truncated since.
struct Inode {
  struct Change {
    sqlite3_int64 offset;  // a truncation's new size
    std::string bytes;
    bool truncate;
  };
  std::string synced;
  std::vector<Change> unsynced;
};
// The files of one run, by name, as the process sees the directory and as
// its last directory sync left it.
struct Disk {
  std::map<std::string, std::shared_ptr<Inode>> names, durable;
} g_disk;

// Writes [from, to) of a change's file range over `data`.
void Apply(std::string& data, const Inode::Change& c, sqlite3_int64 from, sqlite3_int64 to) {
  if (c.truncate) return data.resize(static_cast<size_t>(c.offset));
  if (data.size() < static_cast<size_t>(to)) data.resize(static_cast<size_t>(to));
  data.replace(static_cast<size_t>(from), static_cast<size_t>(to - from), c.bytes,
               static_cast<size_t>(from - c.offset), static_cast<size_t>(to - from));
}

// Each durable name's file, with a random part of what was not synced: each
// change lost, made, or torn (each 512-byte sector of it made or not).
void WriteImage() {
  std::mt19937 random(static_cast<unsigned>(g_armed.n));
  const std::string dir = g_armed.images + "/" + std::to_string(g_armed.n) + "/";
  std::filesystem::create_directories(dir);
  for (const auto& [name, inode] : g_disk.durable) {
    std::string data = inode->synced;
    for (const Inode::Change& c : inode->unsynced) {
      const auto end = c.offset + static_cast<sqlite3_int64>(c.bytes.size());
      const auto how = random() % 3;
      if (how != 0 && c.truncate) Apply(data, c, end, end);
      for (auto at = c.offset, next = end; how != 0 && at < end; at = next) {
        next = std::min(end, (at / 512 + 1) * 512);
        if (how == 1 || random() % 2 == 0) Apply(data, c, at, next);
      }
    }
    const bool journal = name.size() > 8 && name.compare(name.size() - 8, 8, "-journal") == 0;
    std::ofstream(dir + (journal ? "test.db-journal" : "test.db"), std::ios::binary) << data;
  }
}

bool Fails(unsigned point) {
  if (g_armed.n == 0 || (g_armed.fault.points & point) == 0) return false;
  const bool now = !g_armed.fired && ++g_armed.calls == g_armed.n;
  if (now && g_armed.fault.disk != kNoPowerCut) WriteImage();
  g_armed.fired = g_armed.fired || now;
  return now || (g_armed.fired && g_armed.fault.sticky);
}

sqlite3_vfs* g_real = nullptr;
sqlite3_vfs g_shim;
sqlite3_mem_methods g_malloc;

// A shim file is this, followed by the real VFS's own file.
struct ShimFile {
  sqlite3_file base;
  Inode* inode;   // null when no power cut is armed
  bool dir_sync;  // the unix VFS syncs the directory at this file's first sync
  bool journal;
};

// When set, what happens to journals: 'w'rite, 't'runcate, 's'ync, 'd'elete;
// and to the database file: 'W'rite, 'F'etch of a memory-mapped page.
std::string* g_trace = nullptr;
ShimFile* Shim(sqlite3_file* file) { return reinterpret_cast<ShimFile*>(file); }
sqlite3_file* Real(sqlite3_file* file) { return reinterpret_cast<sqlite3_file*>(Shim(file) + 1); }
void Trace(sqlite3_file* f, char op) {
  if (g_trace != nullptr) *g_trace += Shim(f)->journal ? op : static_cast<char>(std::toupper(op));
}

template <auto kMember, unsigned kPoint, typename... Args>
int Forward(sqlite3_file* f, Args... args) {
  return Fails(kPoint) ? g_armed.fault.code : (Real(f)->pMethods->*kMember)(Real(f), args...);
}

int Fetch(sqlite3_file* f, sqlite3_int64 offset, int size, void** page) {
  const int rc = Real(f)->pMethods->xFetch(Real(f), offset, size, page);
  if (*page != nullptr) Trace(f, 'f');
  return rc;
}

int Write(sqlite3_file* f, const void* data, int size, sqlite3_int64 offset) {
  if (Fails(kWrite)) return g_armed.fault.code;
  Trace(f, 'w');
  if (Inode* inode = Shim(f)->inode) {
    inode->unsynced.push_back({offset, {static_cast<const char*>(data), size_t(size)}, false});
  }
  return Real(f)->pMethods->xWrite(Real(f), data, size, offset);
}

int Truncate(sqlite3_file* f, sqlite3_int64 size) {
  if (Fails(kTruncate)) return g_armed.fault.code;
  Trace(f, 't');
  if (Inode* inode = Shim(f)->inode) inode->unsynced.push_back({size, {}, true});
  return Real(f)->pMethods->xTruncate(Real(f), size);
}

// A sync never reaches the disk (thousands of runs cannot pay for them); it
// makes the file's changes durable, and the directory's as the disk model says.
int Sync(sqlite3_file* f, int) {
  if (Fails(kSync)) return g_armed.fault.code;
  Trace(f, 's');
  if (Inode* inode = Shim(f)->inode) {
    for (const Inode::Change& c : inode->unsynced) {
      Apply(inode->synced, c, c.offset, c.offset + static_cast<sqlite3_int64>(c.bytes.size()));
    }
    inode->unsynced.clear();
  }
  if (Shim(f)->dir_sync || g_armed.fault.disk == kNtfs) g_disk.durable = g_disk.names;
  Shim(f)->dir_sync = false;
  return SQLITE_OK;
}

// Version 3, so that SQLite would map the file if its settings let it.
using M = sqlite3_io_methods;
const M kShimMethods = {3,
                        Forward<&M::xClose, kNone>,
                        Forward<&M::xRead, kRead>,
                        Write,
                        Truncate,
                        Sync,
                        Forward<&M::xFileSize, kFileSize>,
                        Forward<&M::xLock, kLock>,
                        Forward<&M::xUnlock, kNone>,
                        Forward<&M::xCheckReservedLock, kNone>,
                        Forward<&M::xFileControl, kNone>,
                        Forward<&M::xSectorSize, kNone>,
                        Forward<&M::xDeviceCharacteristics, kNone>,
                        Forward<&M::xShmMap, kNone>,
                        Forward<&M::xShmLock, kNone>,
                        [](sqlite3_file* f) { Real(f)->pMethods->xShmBarrier(Real(f)); },
                        Forward<&M::xShmUnmap, kNone>,
                        Fetch,
                        Forward<&M::xUnfetch, kNone>};

// The database or journal `name` as the disk model knows it; a file that was
// there before the run is durable as it is.
Inode* Track(const std::string& name, bool existed) {
  if (const auto it = g_disk.names.find(name); it != g_disk.names.end()) return it->second.get();
  auto& inode = g_disk.names[name] = std::make_shared<Inode>();
  if (existed) {
    std::ifstream in(std::filesystem::u8path(name), std::ios::binary);
    inode->synced.assign(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
    g_disk.durable[name] = inode;
  }
  return inode.get();
}

int Open(sqlite3_vfs*, const char* name, sqlite3_file* f, int flags, int* out) {
  const bool tracked = g_armed.fault.disk != kNoPowerCut && name != nullptr &&
                       (flags & (SQLITE_OPEN_MAIN_DB | SQLITE_OPEN_MAIN_JOURNAL)) != 0;
  const bool existed = tracked && std::filesystem::exists(std::filesystem::u8path(name));
  const int rc = g_real->xOpen(g_real, name, Real(f), flags, out);
  f->pMethods = Real(f)->pMethods != nullptr ? &kShimMethods : nullptr;
  Shim(f)->inode = tracked && rc == SQLITE_OK ? Track(name, existed) : nullptr;
  Shim(f)->journal = (flags & SQLITE_OPEN_MAIN_JOURNAL) != 0;
  Shim(f)->dir_sync =
      g_armed.fault.disk == kPosix && Shim(f)->journal && (flags & SQLITE_OPEN_CREATE) != 0;
  return rc;
}

int Delete(sqlite3_vfs*, const char* name, int sync_dir) {
  if (Fails(kDelete)) return g_armed.fault.code;
  if (g_trace != nullptr) *g_trace += 'd';
  g_disk.names.erase(name);
  const int rc = g_real->xDelete(g_real, name, sync_dir);
  if (g_armed.fault.disk == kPosix && (sync_dir & 1) != 0) g_disk.durable = g_disk.names;
  return rc;
}

// What a store holds, as one text: integrity, version, then whether each row
// of an Ops pass (and the session id it updated) is there, and an older
// file's start record 5.
constexpr const char* kStateSql =
    "PRAGMA integrity_check; SELECT version FROM db_version; SELECT (SELECT count(*) FROM "
    "message_collect_key WHERE message_access_key = 'A') || (SELECT count(*) FROM start_recode "
    "WHERE sdk_version = 'C') || (SELECT count(*) FROM core_recode WHERE dump_file_path = 'E') "
    "|| (SELECT count(*) FROM instance_info) || (SELECT count(*) FROM instance_info WHERE "
    "session_id = 'J') || (SELECT count(*) FROM session_cache WHERE session_key = 'K') || "
    "(SELECT count(*) FROM start_recode WHERE id = 5)";

void PrintTo(const Fault& fault, std::ostream* out) { *out << fault.name; }

std::string Name(const Fault& f) {
  return std::string(f.name) +
         (f.points == kMalloc   ? ""
          : !f.version          ? "NewFile"
          : f.version[0] == '1' ? "OlderFile"
                                : "NewerFile") +
         (f.disk == kPosix  ? "Posix"
          : f.disk == kNtfs ? "Ntfs"
                            : "");
}

// Every chain a failed Init may write, its SQLite call failing with `error`.
std::set<Lines> InitChains(const std::string& path, const std::string& error) {
  std::set<Lines> chains = {
      {"[database]Open sqlite3 file[" + path + "] failed:" + error},
      {ExecLine("Init", "PRAGMA foreign_keys = ON;", error)},
      CheckChain(ExecLine("VersionChangeDb", kSchemaSqls[5], error), "VersionChangeDb"),
      CheckChain(ExecLine("ReCreateTable", kSchemaSqls[6], error), "ReCreateTable")};
  for (const char* op : {"SelectDbVersion", "InsertDbVersion", "UpdateDbVersion"}) {
    chains.insert(CheckChain(StepLine(op, error), op));
  }
  for (size_t i = 0; i < 6; ++i) {
    chains.insert({ExecLine("CreateTable", kSchemaSqls[i], error), "[database]CreateTable failed"});
    chains.insert(CheckChain(ExecLine("CreateTable", kSchemaSqls[i], error), "ReCreateTable"));
  }
  for (const auto& statement : kStatements) chains.insert(PrepareChain(statement.first, error));
  // The library's own settings can fail only when SQLite runs out of memory.
  if (error == "out of memory") {
    chains.insert({ExecLine("Init",
                            "PRAGMA journal_mode = TRUNCATE; PRAGMA synchronous = FULL; PRAGMA "
                            "temp_store = MEMORY; PRAGMA mmap_size = 0;",
                            error)});
  }
  return chains;
}

class FaultTest : public StoreTest, public ::testing::WithParamInterface<Fault> {
 protected:
  // The allocator can change only while SQLite is shut down, before any
  // connection exists. Both shims stay in place, disarmed, between sweeps.
  static void SetUpTestSuite() {
    if (g_real != nullptr) return;  // in place for the whole process
    sqlite3_shutdown();
    ASSERT_EQ(SQLITE_OK, sqlite3_config(SQLITE_CONFIG_GETMALLOC, &g_malloc));
    sqlite3_mem_methods countdown = g_malloc;
    countdown.xMalloc = [](int size) { return Fails(kMalloc) ? nullptr : g_malloc.xMalloc(size); };
    countdown.xRealloc = [](void* p, int size) {
      return Fails(kMalloc) ? nullptr : g_malloc.xRealloc(p, size);
    };
    ASSERT_EQ(SQLITE_OK, sqlite3_config(SQLITE_CONFIG_MALLOC, &countdown));
    ASSERT_EQ(SQLITE_OK, sqlite3_initialize());
    g_real = sqlite3_vfs_find(nullptr);
    g_shim = *g_real;  // its other methods, pAppData with them, stay the real VFS's
    g_shim.zName = "fault_shim";
    g_shim.szOsFile = static_cast<int>(sizeof(ShimFile)) + g_real->szOsFile;
    g_shim.xOpen = Open;
    g_shim.xDelete = Delete;
    ASSERT_EQ(SQLITE_OK, sqlite3_vfs_register(&g_shim, 1));
  }
};

TEST_P(FaultTest, EveryFailedCallLogsItsLineAndTheFileKeepsWhatWorked) {
  const Fault& param = GetParam();
  const bool older = param.version != nullptr && param.version[0] == '1';  // keeps its record 5
  if (param.version != nullptr) {
    MakeStore("seed",
              "INSERT INTO start_recode VALUES(5, 'v', 't', 1); UPDATE db_version SET "
              "version = '" +
                  std::string(param.version) + "'");
  }
  const bool disk = param.points != kMalloc;
  const std::vector<std::string> errors =
      disk ? std::vector<std::string>{"disk I/O error", "database or disk is full"}
           : std::vector<std::string>{"out of memory"};
  const std::regex fault(".* failed:(" + errors[0] + (disk ? "|" + errors[1] : "") + ")");
  std::set<std::string> reached;  // every line of every chain
  const std::string images = m_dir.File("images");
  for (int n = 1; n == 1 || (g_armed.fired && !HasFailure()); ++n) {
    SCOPED_TRACE("fault at call " + std::to_string(n));
    const std::string path = m_dir.File(std::to_string(n));
    if (param.version != nullptr) std::filesystem::copy_file(m_dir.File("seed"), path);
    g_disk = {};
    g_armed = {param, n, 0, false, images};
    const bool open = InitOn(path) == 0;
    const Lines chain = Take();
    bool known = open && chain.empty();
    for (const std::string& error : errors) known = known || InitChains(path, error).count(chain);
    EXPECT_TRUE(known) << ::testing::PrintToString(chain);
    reached.insert(chain.begin(), chain.end());
    Ops ops(*m_db, "");
    bool ok[18] = {};
    // The call in flight when the fault fired (-1: none); no later one is
    // acknowledged. When a sync failed, its commit may have been made: done
    // or not, either is right; a read of an insert, when one follows, tells.
    int cut = g_armed.fired ? -1 : 18;
    bool told = false, present = false;
    // A read finds what the call it names stored, when that call worked.
    const std::map<size_t, int> source = {{1, 0}, {3, 2}, {5, 4}, {9, 7}, {14, 13}};
    for (size_t i = 0; open && i < ops.ops.size(); ++i) {
      if (i >= 3 && i <= 11 && !ok[2]) continue;  // they need the start record
      const bool fired = g_armed.fired;
      const auto ids = [&] { return std::make_tuple(ops.start, ops.core.id, ops.instance.id); };
      const auto ids_before = ids();
      const int rc = ops.ops[i].call();
      EXPECT_TRUE(rc != -1 || ids() == ids_before) << "a failed insert handed out an id";
      const Lines lines = Take();
      const int result = ops.ops[i].result;
      const bool of_doubt = source.count(i) && source.at(i) == cut && (param.points & kSync);
      if (of_doubt && rc != -1) told = true, present = rc == result;
      ok[i] = rc == (source.count(i) && !ok[source.at(i)] && !(of_doubt && present) ? 0 : result);
      if (!fired && g_armed.fired) cut = int(i);
      const std::string op =
          "[database]database_interface::CDatabase::" + std::string(ops.ops[i].name);
      EXPECT_TRUE(rc == -1 ? lines.size() == 1 && std::regex_match(lines[0], fault) &&
                                 lines[0].rfind(op + " ", 0) == 0
                           : ok[i] && lines.empty())
          << op << " returned " << rc << ", logged " << ::testing::PrintToString(lines);
    }
    g_armed.n = 0;
    // Still open, the object serves the next call; opened again, so does it.
    EXPECT_EQ(open ? 0 : -1, m_db->InsertSessionCache("probe", "v", 1));
    ASSERT_EQ(0, InitOn(path));
    EXPECT_EQ(0, m_db->InsertSessionCache("probe", "v", 1));
    m_db->Uninit();
    // Which rows are there after the calls `acked`, and call `maybe` if
    // `done`: a delete or update by id works only when the insert that handed
    // out the id was acknowledged.
    const auto state = [older](const bool* acked, int maybe, bool done_too) {
      const auto done = [&](int i) { return acked[i] || (i == maybe && done_too); };
      const bool gone = (done(11) && acked[2]) || done(12);
      const bool instance = done(7) && !(done(10) && acked[7]) && !gone;
      std::string text = "ok,1.24.0,";
      for (const bool row : {done(0), done(2) && !gone, done(4) && !(done(6) && acked[4]) && !gone,
                             instance, instance && acked[7] && done(8),
                             done(13) && !done(15) && !done(16) && !done(17), older && !done(12)}) {
        text += row ? "1" : "0";
      }
      return text;
    };
    const int doubt = (param.points & kSync) != 0 ? cut : -1;
    std::set<std::string> states = {state(ok, doubt, present)};
    if (!told) states.insert(state(ok, doubt, !present));
    bool acked[18] = {};
    std::copy(ok, ok + std::max(cut, 0), acked);
    const std::set<std::string> after_cut = {state(acked, cut, false), state(acked, cut, true)};
    const std::string stored = Raw(path, kStateSql);
    EXPECT_EQ(1, states.count(stored))
        << stored << " is none of " << ::testing::PrintToString(states);
    if (param.disk != kNoPowerCut) {
      std::ofstream expected(images + "/" + std::to_string(n) + "/expected");
      for (const std::string& text : after_cut) expected << text << "\n";
    }
    std::filesystem::remove(path);
  }
  // No file makes a change of an older version fail: a failed lock does.
  EXPECT_TRUE(Name(param) != "LockAtOlderFile" ||
              reached.count("[database]VersionChangeDb failed"));
  if (param.disk == kNoPowerCut) return;
  // A fresh process opens each image the power cuts left: a verdict each.
  SetEnv("DBI_TEST_DIR", images.c_str());
  const int child = Child("PowerCutChild.DISABLED_OpensEveryImage").Wait();
  EXPECT_EQ(kChildPassed, child);
  std::ifstream in(images + "/verdicts");
  std::map<std::string, int> verdicts;
  int cuts = 0;
  for (std::string verdict; in >> verdict; ++cuts) ++verdicts[verdict];
  EXPECT_EQ(g_armed.calls, cuts);  // the last run, which no cut ended, reached them all
  std::cout << cuts << " power cuts: " << ::testing::PrintToString(verdicts) << "\n";
  EXPECT_EQ(cuts, verdicts["ok"]) << ::testing::PrintToString(verdicts);
}

TEST(PowerCutChild, DISABLED_OpensEveryImage) {
  ChildStarted();
  const std::string images = std::getenv("DBI_TEST_DIR");
  const auto log = LogCapture::Install();
  std::ofstream verdicts(images + "/verdicts");
  for (const auto& image : std::filesystem::directory_iterator(images)) {
    if (!image.is_directory()) continue;
    const std::string db = image.path().string() + "/test.db";
    std::set<std::string> expected;
    std::ifstream in(image.path() / "expected");
    for (std::string line; std::getline(in, line);) expected.insert(line);
    const auto store = IDatabaseInterface::CreateDatabaseInterface();
    const bool opens = store->Init(db.c_str()) == 0;
    store->Uninit();
    // A damaged file may fail the query too, and this test with it.
    const std::string state = opens ? Raw(db, kStateSql) : "";
    verdicts << (!opens                       ? "unopenable"
                 : state.rfind("ok,", 0) != 0 ? "corrupt"
                 : expected.count(state) == 0 ? "lost"
                                              : "ok")
             << "\n";
  }
  log->Uninstall();
}

// Every disk fault on a new file, an older one to upgrade and a newer one to
// empty; allocations where most of them are, creating and upgrading a store.
// Power cuts on either disk, on a new file and an older one.
std::vector<Fault> Faults() {
  std::vector<Fault> faults = {{"MallocAtNewFile", kMalloc, 0, false, nullptr},
                               {"MallocAtOlderFile", kMalloc, 0, false, "1.11.9"},
                               {"MallocFromOlderFile", kMalloc, 0, true, "1.11.9"}};
  for (const Fault& f : {Fault{"WriteAt", kWrite, SQLITE_IOERR_WRITE, false, nullptr},
                         Fault{"DiskFullFrom", kWrite, SQLITE_FULL, true, nullptr},
                         Fault{"SyncAt", kSync, SQLITE_IOERR_FSYNC, false, nullptr},
                         Fault{"SyncFrom", kSync, SQLITE_IOERR_FSYNC, true, nullptr},
                         Fault{"ReadAt", kRead, SQLITE_IOERR_READ, false, nullptr},
                         Fault{"LockAt", kLock, SQLITE_IOERR_LOCK, false, nullptr},
                         Fault{"FileSizeAt", kFileSize, SQLITE_IOERR_FSTAT, false, nullptr}}) {
    for (const char* version : {static_cast<const char*>(nullptr), "1.11.9", "2.0.0"}) {
      faults.push_back({f.name, f.points, f.code, f.sticky, version});
    }
  }
  for (const DiskModel disk : {kPosix, kNtfs}) {
    for (const char* version : {static_cast<const char*>(nullptr), "1.11.9"}) {
      faults.push_back({"PowerCutAt", kPowerCut, SQLITE_IOERR, true, version, disk});
    }
  }
  return faults;
}

INSTANTIATE_TEST_SUITE_P(, FaultTest, ::testing::ValuesIn(Faults()),
                         [](const auto& p) { return Name(p.param); });

// The settings, seen where they matter: every commit ends by truncating its
// journal and syncing that (no journal is deleted), and the file is read,
// never memory-mapped.
using SettingsTest = FaultTest;
TEST_F(SettingsTest, EveryCommitSyncsItsTruncatedJournalAndTheFileIsNeverMapped) {
  std::string trace;
  g_trace = &trace;
  Ops ops(*m_db, "");
  for (const Ops::Op& op : ops.ops) {
    trace.clear();
    ASSERT_EQ(op.result, op.call()) << op.name;
    EXPECT_EQ(std::string::npos, trace.find('F')) << op.name << " read a memory-mapped page";
    if (trace.find('W') == std::string::npos) continue;  // wrote nothing
    const std::string journal = std::regex_replace(trace, std::regex("[A-Z]"), "");
    EXPECT_TRUE(std::regex_match(journal, std::regex("[ws]+ts"))) << op.name << ": " << trace;
  }
  g_trace = nullptr;
}

}  // namespace
}  // namespace database_interface::test
