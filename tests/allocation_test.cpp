// C++ heap allocations per call, counted by replacing the global operator
// new of this executable: after warm-up a call allocates nothing beyond the
// strings and vector elements it hands back.
#include <atomic>
#include <cstdlib>
#include <functional>
#include <new>
#include <string>
#include <vector>

#include "test_util.h"

namespace {

// Every operator new of the process, the library's included: a shared
// library's calls bind to the executable's definitions.
std::atomic<size_t> g_allocations{0};

void* Allocate(std::size_t size) {
  g_allocations.fetch_add(1, std::memory_order_relaxed);
  if (void* p = std::malloc(size == 0 ? 1 : size)) return p;
  throw std::bad_alloc();
}

void* AllocateAligned(std::size_t size, std::align_val_t alignment) {
  g_allocations.fetch_add(1, std::memory_order_relaxed);
  const auto align = static_cast<std::size_t>(alignment);
  // aligned_alloc wants a size that is a multiple of the alignment.
  const std::size_t rounded = (size + align - 1) / align * align;
  if (void* p = std::aligned_alloc(align, rounded == 0 ? align : rounded)) return p;
  throw std::bad_alloc();
}

void* AllocateOrNull(std::size_t size) noexcept {
  try {
    return Allocate(size);
  } catch (const std::bad_alloc&) {
    return nullptr;
  }
}

}  // namespace

void* operator new(std::size_t size) { return Allocate(size); }
void* operator new[](std::size_t size) { return Allocate(size); }
void* operator new(std::size_t size, std::align_val_t alignment) {
  return AllocateAligned(size, alignment);
}
void* operator new[](std::size_t size, std::align_val_t alignment) {
  return AllocateAligned(size, alignment);
}
void* operator new(std::size_t size, const std::nothrow_t&) noexcept {
  return AllocateOrNull(size);
}
void* operator new[](std::size_t size, const std::nothrow_t&) noexcept {
  return AllocateOrNull(size);
}
void operator delete(void* p) noexcept { std::free(p); }
void operator delete[](void* p) noexcept { std::free(p); }
void operator delete(void* p, std::size_t) noexcept { std::free(p); }
void operator delete[](void* p, std::size_t) noexcept { std::free(p); }
void operator delete(void* p, std::align_val_t) noexcept { std::free(p); }
void operator delete[](void* p, std::align_val_t) noexcept { std::free(p); }
void operator delete(void* p, std::size_t, std::align_val_t) noexcept { std::free(p); }
void operator delete[](void* p, std::size_t, std::align_val_t) noexcept { std::free(p); }
void operator delete(void* p, const std::nothrow_t&) noexcept { std::free(p); }
void operator delete[](void* p, const std::nothrow_t&) noexcept { std::free(p); }

namespace database_interface::test {

class AllocationTest : public StoreTest {
 protected:
  static constexpr int kCalls = 20;

  // One operation to count: call(i) makes call i and returns its result,
  // which must be `expected`.
  struct Counted {
    const char* name;
    int expected;
    std::function<int(int)> call;
  };

  // Makes call 0 to warm up, then calls 1 .. kCalls; returns the allocations
  // those kCalls made.
  static size_t AllocationsAfterWarmUp(const Counted& c) {
    EXPECT_EQ(c.expected, c.call(0)) << c.name;
    const size_t before = g_allocations.load();
    int unexpected = 0;
    for (int i = 1; i <= kCalls; ++i) unexpected += c.call(i) != c.expected ? 1 : 0;
    const size_t allocations = g_allocations.load() - before;
    EXPECT_EQ(0, unexpected) << c.name;
    return allocations;
  }

  // Start records 1 .. count, each with one crash dump and one instance
  // record of the same id.
  void AddStartsWithChildren(int count) {
    for (int i = 1; i <= count; ++i) {
      int id = 0;
      ASSERT_EQ(1, m_db->InsertStartRecode(id, "1.24.0", 6, "desktop", 7, kTime));
      ASSERT_EQ(i, id);
      CoreRecode core(0, kDumpPath, kLogPath, id, kTime);
      ASSERT_EQ(1, m_db->InsertCoreRecode(core));
      InstanceInfo instance(0, kInstanceNo, kSessionId, 2, "quic", id, kTime);
      ASSERT_EQ(1, m_db->InsertInstanceInfo(instance));
    }
  }

  // Texts longer than any string's inline buffer.
  static constexpr const char* kDumpPath = "/var/log/host/dump/core-0000001.dmp";
  static constexpr const char* kLogPath = "/var/log/host/log/core-0000001.log";
  static constexpr const char* kInstanceNo = "instance-0000001";
  static constexpr const char* kSessionId = "6f1c2a9e-51d4-4c8b-9a2e-0d3b7e5f1a64";
  static constexpr const char* kNewSessionId = "0b7d2c1e-9f3a-4e6b-8c5d-2a1f0e9d8c7b";
  static constexpr int64_t kTime = 1700000000000;
  const std::string m_key = "session/0000000001/ticket";
  const std::string m_value = std::string(64, 'v');
  const std::string m_secret = std::string(40, 's');
};

TEST_F(AllocationTest, CounterSeesTheLibrarysAllocations) {
  // The counter itself: a read into an empty string allocates the value.
  ASSERT_EQ(0, m_db->InsertSessionCache(m_key.c_str(), m_value.c_str(), kTime));
  std::string value;
  const size_t before = g_allocations.load();
  ASSERT_EQ(1, m_db->SelectSessionCache(m_key.c_str(), 0, value));
  EXPECT_LE(1u, g_allocations.load() - before);
  EXPECT_EQ(m_value, value);
}

TEST_F(AllocationTest, OperationsThatReturnNoTextAllocateNothing) {
  AddStartsWithChildren(kCalls + 1);
  int id = 0;
  CoreRecode core(0, kDumpPath, kLogPath, 0, kTime);
  InstanceInfo instance(0, kInstanceNo, kSessionId, 2, "quic", 0, kTime);
  // In this order: the deletes by id take the rows made above, the inserts
  // of children go under the start record inserted before them.
  const Counted operations[] = {
      {"InsertMessageCollectKey", 0,
       [&](int) { return m_db->InsertMessageCollectKey(m_key.c_str(), -1, m_secret.c_str(), 40); }},
      {"InsertSessionCache", 0,
       [&](int i) { return m_db->InsertSessionCache(m_key.c_str(), m_value.c_str(), kTime + i); }},
      {"UpdataInstanceSessionId", 0,
       [&](int i) { return m_db->UpdataInstanceSessionId(i + 1, kNewSessionId, 36); }},
      {"DeleteCoreRecode", 0, [&](int i) { return m_db->DeleteCoreRecode(i + 1); }},
      {"DeleteInstanceInfo", 0, [&](int i) { return m_db->DeleteInstanceInfo(i + 1); }},
      {"DeleteStartRecode", 0, [&](int i) { return m_db->DeleteStartRecode(i + 1); }},
      {"InsertStartRecode", 1,
       [&](int i) { return m_db->InsertStartRecode(id, "1.24.0", -1, "desktop", 7, kTime + i); }},
      {"InsertCoreRecode", 1,
       [&](int) {
         core.start_recode_id = id;
         return m_db->InsertCoreRecode(core);
       }},
      {"InsertInstanceInfo", 1,
       [&](int) {
         instance.start_recode_id = id;
         return m_db->InsertInstanceInfo(instance);
       }},
      {"DeleteSessionCacheWithKey", 0,
       [&](int) { return m_db->DeleteSessionCacheWithKey(m_key.c_str()); }},
      {"DeleteSessionCache", 0, [&](int i) { return m_db->DeleteSessionCache(kTime + i); }},
      {"DeleteAllSessionCache", 0, [&](int) { return m_db->DeleteAllSessionCache(); }},
      {"DeleteAllStartRecode", 0, [&](int) { return m_db->DeleteAllStartRecode(); }},
  };
  for (const Counted& operation : operations) {
    EXPECT_EQ(0u, AllocationsAfterWarmUp(operation)) << operation.name;
  }
  EXPECT_TRUE(Logged().empty());
}

TEST_F(AllocationTest, ReadsIntoStringsWithRoomAllocateNothing) {
  AddStartsWithChildren(1);
  ASSERT_EQ(0, m_db->InsertMessageCollectKey(m_key.c_str(), -1, m_secret.c_str(), -1));
  ASSERT_EQ(0, m_db->InsertSessionCache(m_key.c_str(), m_value.c_str(), kTime));
  // Strings that already hold more than the texts read into them.
  std::string first(256, 'x');
  std::string second(256, 'x');
  int64_t time = 0;
  const Counted reads[] = {
      {"SelectSessionCache", 1,
       [&](int) { return m_db->SelectSessionCache(m_key.c_str(), 0, first); }},
      {"SelectSessionCache, no entry", 0,
       [&](int) { return m_db->SelectSessionCache("absent", 0, first); }},
      {"SelectMessageCollectKey", 1,
       [&](int) { return m_db->SelectMessageCollectKey(first, second); }},
      {"SelectStartRecode", 1,
       [&](int) { return m_db->SelectStartRecode(1, first, second, time); }},
      {"SelectStartRecode, no record", 0,
       [&](int) { return m_db->SelectStartRecode(2, first, second, time); }},
  };
  for (const Counted& read : reads) EXPECT_EQ(0u, AllocationsAfterWarmUp(read)) << read.name;
  // What the last successful read of each kind handed back.
  EXPECT_EQ("1.24.0", first);
  EXPECT_EQ("desktop", second);
  EXPECT_EQ(kTime, time);
  EXPECT_TRUE(Logged().empty());
}

TEST_F(AllocationTest, ListReadsAllocateOnlyTheTextsOfTheRecords) {
  AddStartsWithChildren(1);
  // Both records hold two texts too long for a string's inline buffer (the
  // paths; the instance number and session id): read into a vector with
  // room, one record costs exactly those two.
  std::vector<CoreRecode> cores;
  cores.reserve(kCalls + 1);
  std::vector<InstanceInfo> instances;
  instances.reserve(kCalls + 1);
  const Counted reads[] = {
      {"SelectAllCoreRecode", 1, [&](int) { return m_db->SelectAllCoreRecode(cores); }},
      {"SelectInstanceInfoWithStartRecodeId", 1,
       [&](int) { return m_db->SelectInstanceInfoWithStartRecodeId(1, instances); }},
  };
  for (const Counted& read : reads) {
    EXPECT_EQ(static_cast<size_t>(2 * kCalls), AllocationsAfterWarmUp(read)) << read.name;
  }
  ASSERT_EQ(static_cast<size_t>(kCalls + 1), cores.size());
  EXPECT_EQ(kLogPath, cores.back().log_file_path);
  ASSERT_EQ(static_cast<size_t>(kCalls + 1), instances.size());
  EXPECT_EQ(kSessionId, instances.back().session_id);
  EXPECT_TRUE(Logged().empty());
}

}  // namespace database_interface::test
