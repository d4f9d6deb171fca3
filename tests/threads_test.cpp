// Many threads on one object, running different operations and the same operation at once.
#include <atomic>
#include <future>
#include <set>
#include <thread>

#include "test_util.h"

namespace database_interface::test {

class ThreadsTest : public StoreTest {};

TEST_F(ThreadsTest, ConcurrentCallsNeverFailAndLoseNoRow) {
  constexpr size_t kThreads = 6, kIterations = 30;
  int core_start = 0;
  ASSERT_EQ(1, m_db->InsertStartRecode(core_start, "core", -1, "sdk", -1, 0));
  std::promise<void> go;
  const std::shared_future<void> gate = go.get_future().share();
  std::atomic<int> failures{0};
  std::vector<std::vector<int>> ids(kThreads);  // the start or core ids that a thread stored
  std::vector<std::thread> threads;
  for (size_t t = 0; t < kThreads; ++t) {
    threads.emplace_back([&, t, gate] {
      gate.wait();
      for (size_t i = 0; i < kIterations; ++i) {
        const std::string tag = std::to_string(t) + "-" + std::to_string(i);
        InstanceInfo instance(0, tag, "session", 1, "tcp", 0, 1);
        CoreRecode core(0, tag, "log", core_start, 1);
        std::string value;
        if (t % 3 == 0) {
          failures +=
              m_db->InsertStartRecode(instance.start_recode_id, tag.c_str(), -1, "sdk", -1, 1) != 1;
          failures += m_db->InsertInstanceInfo(instance) != 1;
          ids[t].push_back(instance.start_recode_id);
        } else if (t % 3 == 1) {
          failures += m_db->InsertSessionCache(tag.c_str(), tag.c_str(), 100) != 0;
          failures += m_db->SelectSessionCache(tag.c_str(), 0, value) != 1 || value != tag;
        } else {
          failures += m_db->InsertCoreRecode(core) != 1;
          ids[t].push_back(core.id);
        }
      }
    });
  }
  go.set_value();
  for (std::thread& thread : threads) thread.join();
  EXPECT_EQ(0, failures.load());
  std::set<int> core_ids, read_ids;
  for (size_t t = 0; t < kThreads; ++t) {
    for (size_t i = 0; i < ids[t].size(); ++i) {
      std::string version, type;
      int64_t start_time = 0;
      if (t % 3 == 2) {
        core_ids.insert(ids[t][i]);
      } else {
        EXPECT_EQ(1, m_db->SelectStartRecode(ids[t][i], version, type, start_time));
        EXPECT_EQ(std::to_string(t) + "-" + std::to_string(i), version);
      }
    }
  }
  std::vector<CoreRecode> cores;
  EXPECT_EQ(static_cast<int>(2 * kIterations), m_db->SelectAllCoreRecode(cores));
  for (const CoreRecode& core : cores) read_ids.insert(core.id);
  EXPECT_EQ(2 * kIterations, core_ids.size());
  EXPECT_EQ(core_ids, read_ids);
  EXPECT_EQ(2 * kIterations, RawInt(m_db_path,
                                    "SELECT count(*) FROM instance_info i JOIN "
                                    "start_recode s ON s.id = i.start_recode_id AND "
                                    "s.sdk_version = i.instance_no"));
  EXPECT_EQ(
      2 * kIterations,
      RawInt(m_db_path, "SELECT count(*) FROM session_cache WHERE session_key = session_value"));
  EXPECT_TRUE(Logged().empty());
}

}  // namespace database_interface::test
