// Many threads run a random mix of all eighteen operations on one object,
// optionally while another thread closes and reopens it. What each read
// returns is checked against what was written; ids are never handed out
// twice; every row not deleted is readable at the end.
#include <atomic>
#include <map>
#include <random>
#include <regex>
#include <set>
#include <thread>

#include "test_util.h"

namespace database_interface {
namespace test {
namespace {

constexpr int kThreads = 8;
constexpr int kCallsPerThread = 150;
constexpr int64_t kFarFuture = 1'000'000'000'000'000;

struct StartRow {
  int id;
  std::string sdk_type;
  int delete_alls_before;     // DeleteAllStartRecode calls begun before the insert
  bool delete_all_in_flight;  // one had begun and not yet returned then
  bool deleted = false;
};

class StressTest : public StoreTest {
 protected:
  // Runs the workers; with `reopen`, another thread closes and reopens the
  // object meanwhile, so any call may be refused with -1 (and no log line).
  void Run(bool reopen);
  // Every start id is unique, and every row no delete reached is readable.
  void ExpectEveryLiveStartReadable();
  // The only lines: inserts refused by a foreign key after their start record
  // was deleted by another thread.
  void ExpectOnlyForeignKeyLines();

  // True when a DeleteAllStartRecode may have run after `row` was inserted.
  bool MaybeDeletedByAll(const StartRow& row) const {
    return row.delete_all_in_flight || m_delete_alls.load() != row.delete_alls_before;
  }

  std::atomic<int> m_delete_alls{0};  // begun
  std::atomic<int> m_delete_alls_done{0};
  std::atomic<int> m_unexplained{0};  // -1 results no closed object explains
  std::atomic<int> m_completed{0};    // calls that were not refused
  std::atomic<bool> m_open{true};     // false from just before Uninit to after Init
  std::vector<std::vector<StartRow>> m_starts{kThreads};
};

void StressTest::Run(bool reopen) {
  std::atomic<int> arrived{0};  // start gate: all workers begin together
  std::atomic<int> finished{0};
  auto worker = [&](int t) {
    std::mt19937 rng(static_cast<unsigned>(1000 + t));
    std::vector<StartRow>& starts = m_starts[static_cast<size_t>(t)];
    auto fail = [&](int rc) {
      if (rc != -1)
        ++m_completed;
      else if (!reopen)
        ++m_unexplained;
    };
    auto own_start = [&]() -> StartRow* {
      if (starts.empty()) return nullptr;
      return &starts[std::uniform_int_distribution<size_t>(0, starts.size() - 1)(rng)];
    };
    ++arrived;
    while (arrived.load() < kThreads) std::this_thread::yield();
    for (int call = 0; call < kCallsPerThread; ++call) {
      // Calls made while the object is known to be closed would only be
      // refused; those already past this check race with the close.
      while (reopen && !m_open.load() && finished.load() == 0) std::this_thread::yield();
      const std::string key = "k" + std::to_string(t) + "-" + std::to_string(rng() % 4);
      StartRow* start = own_start();
      std::string a = "kept", b = "kept";
      int64_t time = 0;
      switch (rng() % 18) {
        case 0: {
          const int done = m_delete_alls_done.load();  // read first: see MaybeDeletedByAll
          const int delete_alls = m_delete_alls.load();
          const std::string type = "t" + std::to_string(t) + "-" + std::to_string(call);
          int id = 0;
          const int rc = m_db->InsertStartRecode(id, "v", -1, type.c_str(), -1, call);
          if (rc == 1) starts.push_back({id, type, delete_alls, done != delete_alls});
          fail(rc);
          break;
        }
        case 1:
          if (start == nullptr) break;
          if (const int rc = m_db->SelectStartRecode(start->id, a, b, time); rc == 1) {
            EXPECT_EQ(start->sdk_type, b);
          } else if (rc == 0) {
            EXPECT_TRUE(start->deleted || MaybeDeletedByAll(*start)) << start->id;
          } else {
            fail(rc);
          }
          break;
        case 2:
          if (start == nullptr) break;
          if (const int rc = m_db->DeleteStartRecode(start->id); rc == 0)
            start->deleted = true;
          else
            fail(rc);
          break;
        case 3:
          if (rng() % 8 != 0) break;  // rare: it empties every thread's records
          ++m_delete_alls;
          fail(m_db->DeleteAllStartRecode());
          ++m_delete_alls_done;
          break;
        case 4: {
          if (start == nullptr) break;
          const std::string tag = std::to_string(start->id);
          CoreRecode core(0, "d" + tag, "l" + tag, start->id, call);
          // A failed foreign key is explained by a delete of its start record.
          if (m_db->InsertCoreRecode(core) == -1 && !reopen && !start->deleted &&
              !MaybeDeletedByAll(*start)) {
            ++m_unexplained;
          }
          break;
        }
        case 5: {
          std::vector<CoreRecode> cores;
          fail(m_db->SelectAllCoreRecode(cores));
          for (const CoreRecode& core : cores) {
            EXPECT_EQ("d" + std::to_string(core.start_recode_id), core.dump_file_path);
          }
          break;
        }
        case 6: fail(m_db->DeleteCoreRecode(static_cast<int>(rng() % 50))); break;
        case 7: {
          if (start == nullptr) break;
          const std::string tag = std::to_string(start->id);
          InstanceInfo instance(0, "n" + tag, "s" + tag + "-0", t, "p", start->id, call);
          if (m_db->InsertInstanceInfo(instance) == -1 && !reopen && !start->deleted &&
              !MaybeDeletedByAll(*start)) {
            ++m_unexplained;
          }
          break;
        }
        case 8: {
          if (start == nullptr) break;
          std::vector<InstanceInfo> instances;
          fail(m_db->SelectInstanceInfoWithStartRecodeId(start->id, instances));
          const std::string tag = std::to_string(start->id);
          for (const InstanceInfo& instance : instances) {
            EXPECT_EQ("n" + tag, instance.instance_no);
            EXPECT_EQ(0u, instance.session_id.rfind("s" + tag + "-", 0)) << instance.session_id;
          }
          break;
        }
        case 9: {
          if (start == nullptr) break;
          // Updates one of this start's own instances, so its session id stays
          // tagged with its start record.
          const std::string session = "s" + std::to_string(start->id) + "-" + std::to_string(call);
          std::vector<InstanceInfo> instances;
          if (m_db->SelectInstanceInfoWithStartRecodeId(start->id, instances) > 0) {
            fail(m_db->UpdataInstanceSessionId(instances[0].id, session.c_str(), -1));
          }
          break;
        }
        case 10: fail(m_db->DeleteInstanceInfo(static_cast<int>(rng() % 50))); break;
        case 11: fail(m_db->DeleteSessionCache(static_cast<int64_t>(rng() % 100))); break;
        case 12: fail(m_db->DeleteSessionCacheWithKey(key.c_str())); break;
        case 13: {
          const std::string value = key + "=" + std::to_string(call);
          fail(m_db->InsertSessionCache(key.c_str(), value.c_str(), rng() % 2 ? kFarFuture : 50));
          break;
        }
        case 14:
          if (const int rc = m_db->SelectSessionCache(key.c_str(), 60, a); rc == 1) {
            EXPECT_EQ(0u, a.rfind(key + "=", 0)) << a;
          } else {
            fail(rc);
          }
          break;
        case 15:
          if (rng() % 8 == 0) fail(m_db->DeleteAllSessionCache());
          break;
        case 16: {
          const std::string mine = std::to_string(t);
          fail(m_db->InsertMessageCollectKey(("mk" + mine).c_str(), -1, ("ms" + mine).c_str(), -1));
          break;
        }
        case 17:
          if (const int rc = m_db->SelectMessageCollectKey(a, b); rc == 1) {
            EXPECT_EQ(a.substr(2), b.substr(2));  // both halves of one pair
          } else {
            fail(rc);
          }
          break;
      }
    }
    ++finished;
  };

  std::vector<std::thread> threads;
  for (int t = 0; t < kThreads; ++t) threads.emplace_back(worker, t);
  if (reopen) {
    while (arrived.load() < kThreads) std::this_thread::yield();
    // Reopens after every few completed calls, so calls run against each
    // opening and many are in flight when it closes.
    int reopened = 0;
    while (finished.load() < kThreads) {
      const int due = m_completed.load() + 25;
      while (m_completed.load() < due && finished.load() < kThreads) std::this_thread::yield();
      m_open = false;
      m_db->Uninit();
      const int rc = m_db->Init(m_db_path.c_str());
      m_open = true;
      if (rc != 0) {
        ADD_FAILURE() << "reopen " << reopened << " failed";
        break;
      }
      ++reopened;
    }
  }
  for (std::thread& thread : threads) thread.join();
}

void StressTest::ExpectEveryLiveStartReadable() {
  std::set<int> ids;
  for (const auto& rows : m_starts) {
    for (const StartRow& row : rows) {
      EXPECT_TRUE(ids.insert(row.id).second) << "start id handed out twice: " << row.id;
      std::string version, type;
      int64_t time = 0;
      if (row.deleted || MaybeDeletedByAll(row)) continue;
      EXPECT_EQ(1, m_db->SelectStartRecode(row.id, version, type, time)) << row.id;
      EXPECT_EQ(row.sdk_type, type);
    }
  }
}

void StressTest::ExpectOnlyForeignKeyLines() {
  const std::regex explained(
      R"(\[database\]database_interface::CDatabase::Insert(CoreRecode|InstanceInfo) )"
      R"(sqlite3_step with sql\[.*\] failed:constraint failed)");
  for (const std::string& line : Logged()) EXPECT_TRUE(std::regex_match(line, explained)) << line;
}

TEST_F(StressTest, AllOperationsFromManyThreadsKeepEveryRowConsistent) {
  Run(false);
  EXPECT_EQ(0, m_unexplained.load());
  ExpectEveryLiveStartReadable();
  ExpectOnlyForeignKeyLines();
}

TEST_F(StressTest, CallsRacingWithUninitAndInitCompleteOrAreRefused) {
  Run(true);
  ExpectEveryLiveStartReadable();
  ExpectOnlyForeignKeyLines();
}

}  // namespace
}  // namespace test
}  // namespace database_interface
