// Paired measurement: every contender open at once, blocks of calls
// alternated in a palindrome (A B ... B A) within each round, so a machine
// that slows down or speeds up during a round weighs on all of them alike;
// a ratio is then taken within each round, and summarised over the rounds.
#ifndef DATABASE_INTERFACE_BENCH_PAIRING_H_
#define DATABASE_INTERFACE_BENCH_PAIRING_H_

#include <cstddef>
#include <memory>
#include <vector>

#include "fixture.h"
#include "stores.h"
#include "workloads.h"

namespace database_interface::bench {

// What a block's duration is taken from.
enum class Timing {
  // The calling thread's CPU time: on a machine shared with other work, the
  // time the thread spent descheduled is not counted. For single-threaded
  // runs that never wait on a device.
  kThreadCpu,
  // Elapsed time: for files (fsync waits) and for threads (lock waits).
  kWall,
};

struct Plan {
  Medium medium = Medium::kMemory;
  Timing timing = Timing::kThreadCpu;
  double budget_seconds = 1.5;    // rounds stop once this is spent, after min_rounds
  double block_seconds = 0.0005;  // aimed duration of one block of calls
  // Palindromes per round; a contender's cost in a round is the median of
  // its 2 * passes blocks, so one block cut by an interrupt does not count.
  int passes = 3;
  int min_rounds = 11;
  int max_rounds = 61;
};

// Nanoseconds per call of each contender, one sample per round: ns[c][r].
struct Samples {
  std::vector<std::vector<double>> ns;
  size_t calls_per_block = 0;
};

// Median and interquartile range.
struct Spread {
  double median = 0;
  double q1 = 0;
  double q3 = 0;
};
Spread Summarize(std::vector<double> values);
// Of the per-round ratios of contender a's cost to contender b's.
Spread RatioOf(const Samples& samples, size_t a, size_t b);

using StoreSet = std::vector<std::unique_ptr<OpenStore>>;
// Opens one store per contender, starting with contender `first`, and loads
// the fixture into each; stores[c] is contender c's.
StoreSet OpenLoaded(const std::vector<Variant>& contenders, Medium medium, const Inputs& in,
                    size_t first = 0);

// For stores that serve every round, built once in each order (a crossover):
// the ratio of contender a to b, from `first` (a's store built first) and
// `second` (b's built first). Whatever being built first is worth multiplies
// one half's ratios and divides the other's; scaling each half by the
// square root of the quotient of their medians cancels it, and the spread
// of the scaled ratios is the noise left.
Spread CrossoverRatioOf(const Samples& first, const Samples& second, size_t a, size_t b);

// Measures `mix` on every contender. One workload runs on the calling
// thread; several run on as many threads at once, thread t running mix[t]
// on the same store, and a call then costs the block's wall time divided by
// all the calls made in it. With `stores` null each round opens and loads
// fresh stores; otherwise every round uses `stores` (one per contender).
Samples Measure(const std::vector<const Workload*>& mix, const std::vector<Variant>& contenders,
                const Inputs& in, const Plan& plan, StoreSet* stores);

}  // namespace database_interface::bench

#endif  // DATABASE_INTERFACE_BENCH_PAIRING_H_
