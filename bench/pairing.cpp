// The paired measurement and its statistics.
#include "pairing.h"

#include <algorithm>
#include <chrono>
#include <cmath>
#include <condition_variable>
#include <ctime>
#include <functional>
#include <mutex>
#include <thread>

namespace database_interface::bench {
namespace {

using Clock = std::chrono::steady_clock;

double NanosecondsBetween(Clock::time_point from, Clock::time_point to) {
  return std::chrono::duration<double, std::nano>(to - from).count();
}

// Nanoseconds on the plan's clock, from an arbitrary origin.
int64_t Now(Timing timing) {
  if (timing == Timing::kWall) {
    return std::chrono::duration_cast<std::chrono::nanoseconds>(Clock::now().time_since_epoch())
        .count();
  }
  timespec ts{};
  clock_gettime(CLOCK_THREAD_CPUTIME_ID, &ts);
  return int64_t{ts.tv_sec} * 1000000000 + ts.tv_nsec;
}

// Times `count` calls of `w` from call `next` on, and puts back, untimed,
// whatever they deleted. Returns the timed nanoseconds.
double TimeCalls(Timing timing, const Workload& w, OpenStore& store, const Inputs& in, Outputs& out,
                 size_t& next, size_t count) {
  double ns = 0;
  while (count > 0) {
    const size_t n = CallsBeforeRestore(w, in, next, count);
    const int64_t start = Now(timing);
    const bool ok = w.run(*store.db, in, out, next, n);
    ns += static_cast<double>(Now(timing) - start);
    Require(ok, w.name);
    RestoreAfter(w, store, in, next, n);
    next += n;
    count -= n;
  }
  return ns;
}

// Worker threads that each run their part of a block when told to. A
// block's time runs from the first worker's start to the last one's end, so
// the wake-up of the workers is not counted.
class Crew {
 public:
  explicit Crew(size_t size) : m_spans(size) {
    for (size_t t = 0; t < size; ++t) m_threads.emplace_back([this, t] { Work(t); });
  }
  ~Crew() {
    {
      std::lock_guard<std::mutex> lock(m_mutex);
      m_stop = true;
    }
    m_wake.notify_all();
    for (std::thread& thread : m_threads) thread.join();
  }
  Crew(const Crew&) = delete;
  Crew& operator=(const Crew&) = delete;

  // Runs job(t) on every worker t; returns the block's nanoseconds.
  double Run(const std::function<void(size_t)>& job) {
    std::unique_lock<std::mutex> lock(m_mutex);
    m_job = &job;
    m_pending = m_threads.size();
    ++m_generation;
    m_wake.notify_all();
    m_done.wait(lock, [this] { return m_pending == 0; });
    Clock::time_point first = m_spans[0].first;
    Clock::time_point last = m_spans[0].second;
    for (const auto& [start, end] : m_spans) {
      first = std::min(first, start);
      last = std::max(last, end);
    }
    return NanosecondsBetween(first, last);
  }

 private:
  void Work(size_t t) {
    uint64_t seen = 0;
    std::unique_lock<std::mutex> lock(m_mutex);
    for (;;) {
      m_wake.wait(lock, [&] { return m_stop || m_generation != seen; });
      if (m_stop) return;
      seen = m_generation;
      const std::function<void(size_t)>& job = *m_job;
      lock.unlock();
      const Clock::time_point start = Clock::now();
      job(t);
      const Clock::time_point end = Clock::now();
      lock.lock();
      m_spans[t] = {start, end};
      if (--m_pending == 0) m_done.notify_one();
    }
  }

  std::mutex m_mutex;
  std::condition_variable m_wake;
  std::condition_variable m_done;
  std::vector<std::pair<Clock::time_point, Clock::time_point>> m_spans;  // guarded by m_mutex
  const std::function<void(size_t)>* m_job = nullptr;                    // guarded by m_mutex
  uint64_t m_generation = 0;                                             // guarded by m_mutex
  size_t m_pending = 0;                                                  // guarded by m_mutex
  bool m_stop = false;                                                   // guarded by m_mutex
  std::vector<std::thread> m_threads;
};

double Quantile(const std::vector<double>& sorted, double p) {
  const double position = p * static_cast<double>(sorted.size() - 1);
  const auto below = static_cast<size_t>(position);
  if (below + 1 >= sorted.size()) return sorted.back();
  const double fraction = position - static_cast<double>(below);
  return sorted[below] + fraction * (sorted[below + 1] - sorted[below]);
}

}  // namespace

Spread Summarize(std::vector<double> values) {
  Require(!values.empty(), "no samples");
  std::sort(values.begin(), values.end());
  return Spread{Quantile(values, 0.5), Quantile(values, 0.25), Quantile(values, 0.75)};
}

Spread RatioOf(const Samples& samples, size_t a, size_t b) {
  std::vector<double> ratios;
  for (size_t r = 0; r < samples.ns[a].size(); ++r) {
    ratios.push_back(samples.ns[a][r] / samples.ns[b][r]);
  }
  return Summarize(std::move(ratios));
}

Spread CrossoverRatioOf(const Samples& first, const Samples& second, size_t a, size_t b) {
  std::vector<double> ratios[2];
  const Samples* halves[2] = {&first, &second};
  for (int h = 0; h < 2; ++h) {
    for (size_t r = 0; r < halves[h]->ns[a].size(); ++r) {
      ratios[h].push_back(halves[h]->ns[a][r] / halves[h]->ns[b][r]);
    }
  }
  const double bias = std::sqrt(Summarize(ratios[0]).median / Summarize(ratios[1]).median);
  std::vector<double> scaled;
  for (double ratio : ratios[0]) scaled.push_back(ratio / bias);
  for (double ratio : ratios[1]) scaled.push_back(ratio * bias);
  return Summarize(std::move(scaled));
}

StoreSet OpenLoaded(const std::vector<Variant>& contenders, Medium medium, const Inputs& in,
                    size_t first) {
  const size_t n = contenders.size();
  StoreSet stores(n);
  for (size_t k = 0; k < n; ++k) {
    const size_t c = (first + k) % n;
    stores[c] = Open(contenders[c], medium);
    stores[c]->LoadFixture(in);
  }
  return stores;
}

Samples Measure(const std::vector<const Workload*>& mix, const std::vector<Variant>& contenders,
                const Inputs& in, const Plan& plan, StoreSet* stores) {
  const size_t threads = mix.size();
  const size_t n = contenders.size();
  for (const Workload* w : mix) {
    Require(threads == 1 || w->cycle == nullptr, "a workload that deletes runs on one thread");
  }
  Require(threads == 1 || plan.timing == Timing::kWall, "threads are timed by the wall clock");
  std::vector<std::vector<Outputs>> outputs(n, std::vector<Outputs>(threads));
  std::vector<std::vector<size_t>> next(n, std::vector<size_t>(threads, 0));
  std::unique_ptr<Crew> crew = threads > 1 ? std::make_unique<Crew>(threads) : nullptr;
  StoreSet fresh;
  StoreSet& set = stores != nullptr ? *stores : fresh;

  auto block = [&](size_t c, size_t calls) {
    if (!crew) {
      return TimeCalls(plan.timing, *mix[0], *set[c], in, outputs[c][0], next[c][0], calls);
    }
    return crew->Run([&](size_t t) {
      Require(mix[t]->run(*set[c]->db, in, outputs[c][t], next[c][t], calls), mix[t]->name);
      next[c][t] += calls;
    });
  };

  Samples samples;
  samples.ns.assign(n, {});
  const double block_ns = plan.block_seconds * 1e9;
  int passes = plan.passes;
  const Clock::time_point started = Clock::now();
  for (int round = 0; round < plan.max_rounds; ++round) {
    // Stores and outputs are made, and warmed, in an order that rotates with
    // the round: where a contender's memory lands depends on what was
    // allocated before it, and that must not favour one contender.
    const auto first = static_cast<size_t>(round);
    if (stores == nullptr) {
      set.clear();
      outputs.assign(n, {});
      set = OpenLoaded(contenders, plan.medium, in, first);
      for (size_t k = 0; k < n; ++k) outputs[(first + k) % n].resize(threads);
    }
    if (round == 0) {
      // Grow a block until it lasts long enough to be timed, then size it.
      size_t calls = 1;
      double ns = block(0, calls);
      while (ns < block_ns / 4 && calls < (size_t{1} << 20)) {
        calls *= 2;
        ns = block(0, calls);
      }
      samples.calls_per_block =
          std::max<size_t>(1, static_cast<size_t>(block_ns * static_cast<double>(calls) / ns));
      // A call that alone outlasts a block is long enough to be timed once.
      if (ns > 2 * block_ns) passes = 1;
    }
    const size_t calls = samples.calls_per_block;
    if (stores == nullptr || round == 0) {
      // The first calls on a store warm its statements, pages and caches.
      for (size_t k = 0; k < n; ++k) block((first + k) % n, std::max<size_t>(1, calls / 4));
    }
    // A palindrome over the contenders, rotated by round so that none is
    // always first after the open or always next to the same neighbour.
    std::vector<size_t> order(2 * n);
    for (size_t i = 0; i < n; ++i) order[i] = order[2 * n - 1 - i] = (first + i) % n;
    std::vector<std::vector<double>> blocks(n);
    for (int pass = 0; pass < passes; ++pass) {
      for (size_t c : order) blocks[c].push_back(block(c, calls));
    }
    for (size_t c = 0; c < n; ++c) {
      samples.ns[c].push_back(Summarize(blocks[c]).median / static_cast<double>(calls * threads));
    }
    const double elapsed = NanosecondsBetween(started, Clock::now()) / 1e9;
    if (round + 1 >= plan.min_rounds && elapsed >= plan.budget_seconds) break;
  }
  return samples;
}

}  // namespace database_interface::bench
