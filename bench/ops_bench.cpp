// Google Benchmark runs of every workload on every variant, on ":memory:"
// and on a file, and of threads sharing one object. Names read
// <workload>/<variant>/<medium> and threads/<mix>/<variant>/threads:N.
// For the ratios, whose few percent these unpaired runs cannot resolve on a
// noisy machine, use database_interface_paired.
#include <benchmark/benchmark.h>

#include <algorithm>
#include <string>

#include "fixture.h"
#include "stores.h"
#include "workloads.h"

namespace database_interface::bench {
namespace {

constexpr size_t kBatch = 32;

const Inputs& TableInputs() {
  static const Inputs in(100);
  return in;
}

void RunWorkload(benchmark::State& state, const Workload* w, Variant variant, Medium medium) {
  const Inputs& in = TableInputs();
  const std::unique_ptr<OpenStore> store = Open(variant, medium);
  store->LoadFixture(in);
  Outputs out;
  size_t next = 0;
  for (;;) {
    const size_t n = CallsBeforeRestore(*w, in, next, kBatch);
    if (!state.KeepRunningBatch(static_cast<benchmark::IterationCount>(n))) break;
    if (!w->run(*store->db, in, out, next, n)) {
      state.SkipWithError("unexpected result");
      break;
    }
    if (w->deletes) {
      state.PauseTiming();
      RestoreAfter(*w, *store, in, next, n);
      state.ResumeTiming();
    }
    next += n;
  }
}

// The object every thread of a threaded run shares. Thread 0 opens it before
// the timed loop and closes it after; Google Benchmark holds every thread at
// a barrier on entering and on leaving the loop, so the others use it only
// in between.
std::unique_ptr<OpenStore> g_shared;

void RunThreaded(benchmark::State& state, std::vector<const Workload*> mix, Variant variant) {
  const Inputs& in = TableInputs();
  if (state.thread_index() == 0) {
    g_shared = Open(variant, Medium::kMemory);
    g_shared->LoadFixture(in);
  }
  const Workload& w = *mix[static_cast<size_t>(state.thread_index()) % mix.size()];
  Outputs out;
  size_t next = 0;
  while (state.KeepRunningBatch(kBatch)) {
    if (!w.run(*g_shared->db, in, out, next, kBatch)) {
      state.SkipWithError("unexpected result");
      break;
    }
    next += kBatch;
  }
  if (state.thread_index() == 0) g_shared.reset();
}

void Register() {
  for (const Workload& w : Workloads()) {
    if (!w.in_table) continue;
    for (Medium medium : {Medium::kMemory, Medium::kFile}) {
      for (int v = 0; v < kVariantCount; ++v) {
        const auto variant = static_cast<Variant>(v);
        std::string name = std::string(w.name) + "/" + Name(variant) + "/" + Name(medium);
        std::replace(name.begin(), name.end(), ' ', '_');
        benchmark::RegisterBenchmark(name.c_str(), RunWorkload, &w, variant, medium);
      }
    }
  }
  const Workload* hit = &FindWorkload("SelectSessionCache hit");
  const std::vector<const Workload*> same = {hit};
  const std::vector<const Workload*> different = {hit, &FindWorkload("SelectStartRecode"),
                                                  &FindWorkload("InsertSessionCache"),
                                                  &FindWorkload("SelectMessageCollectKey")};
  for (Variant variant : {Variant::kLib, Variant::kRaw}) {
    for (const auto& [label, mix] : {std::pair{"same", same}, std::pair{"different", different}}) {
      const std::string name = std::string("threads/") + label + "/" + Name(variant);
      benchmark::RegisterBenchmark(name.c_str(), RunThreaded, mix, variant)
          ->Threads(1)
          ->Threads(2)
          ->Threads(4)
          ->UseRealTime();
    }
  }
}

}  // namespace
}  // namespace database_interface::bench

int main(int argc, char** argv) {
  database_interface::bench::Register();
  benchmark::Initialize(&argc, argv);
  if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 1;
  benchmark::RunSpecifiedBenchmarks();
  benchmark::Shutdown();
  return 0;
}
