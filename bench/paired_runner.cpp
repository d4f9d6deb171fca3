// Prints the comparison table: for each workload the cost of a call through
// the library, raw SQLite, raw SQLite without locks and SQLiteCpp, and the
// paired ratios of the library to each; then the cost of keyed calls and list
// reads as the tables grow. The library runs on the SQLite it was built with
// (its own, or the system's); the others on the system's.
//
//   database_interface_paired [--quick] [--sections=memory,threads,file,scale]
//                             [--max-rows=N] [--only=WORKLOAD]
#include <array>
#include <cstdio>
#include <cstring>
#include <ctime>
#include <optional>
#include <set>
#include <sstream>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "fixture.h"
#include "pairing.h"
#include "sqlite_copy.h"
#include "stores.h"
#include "workloads.h"

namespace database_interface::bench {
namespace {

struct Options {
  bool quick = false;
  std::set<std::string> sections = {"memory", "threads", "file", "scale"};
  size_t max_rows = 1000000;
  std::string only;  // measure only workloads whose name contains this

  bool Wants(const Workload& w) const {
    return only.empty() || std::string(w.name).find(only) != std::string::npos;
  }
};

// Contenders of the single-thread sections, in column order; the second raw
// store is the null pair.
const std::vector<Variant> kAll = {Variant::kLib, Variant::kRaw, Variant::kRawNoMutex,
                                   Variant::kSqliteCpp, Variant::kRaw};
constexpr size_t kLib = 0;
constexpr size_t kRaw = 1;
constexpr size_t kNoMutex = 2;
constexpr size_t kCpp = 3;
constexpr size_t kRawAgain = 4;

struct Row {
  std::string label;
  Access access = Access::kRead;
  std::optional<double> ns[4];  // lib, raw, raw_nomutex, sqlitecpp
  std::optional<Spread> lib_raw, lib_nomutex, lib_cpp, null_pair;
};

struct Section {
  std::string title;
  std::vector<Row> rows;
};

std::string Ratio(const std::optional<Spread>& s) {
  if (!s) return "–";
  char text[64];
  std::snprintf(text, sizeof text, "%.2f (%.2f–%.2f)", s->median, s->q1, s->q3);
  return text;
}

std::string Nanoseconds(const std::optional<double>& ns) {
  if (!ns) return "–";
  char text[32];
  if (*ns >= 100000) {
    std::snprintf(text, sizeof text, "%.0f µs", *ns / 1000);
  } else {
    std::snprintf(text, sizeof text, "%.0f", *ns);
  }
  return text;
}

// "lib / raw unit", in µs or, from 1 ms, in ms.
std::string LibAndRaw(double lib_ns, double raw_ns) {
  const bool ms = raw_ns >= 1e6;
  const double unit = ms ? 1e6 : 1e3;
  char text[64];
  if (ms) {
    std::snprintf(text, sizeof text, "%.1f / %.1f ms", lib_ns / unit, raw_ns / unit);
  } else {
    std::snprintf(text, sizeof text, "%.2f / %.2f µs", lib_ns / unit, raw_ns / unit);
  }
  return text;
}

void Progress(const std::string& what) { std::fprintf(stderr, "  %s\n", what.c_str()); }

Plan PlanFor(const std::string& section, const Options& options) {
  Plan plan;
  if (section == "file") {
    plan.medium = Medium::kFile;
    plan.timing = Timing::kWall;
    plan.passes = 1;
    plan.budget_seconds = options.quick ? 0.4 : 2.0;
    plan.block_seconds = 0.005;
    plan.min_rounds = options.quick ? 3 : 7;
    plan.max_rounds = 31;
  } else if (section == "threads") {
    plan.timing = Timing::kWall;
    plan.budget_seconds = options.quick ? 0.3 : 1.5;
    plan.block_seconds = 0.002;
    plan.min_rounds = options.quick ? 3 : 11;
  } else if (section == "scale") {
    // Spent twice: the stores are built once in each order.
    plan.budget_seconds = options.quick ? 0.15 : 0.6;
    plan.block_seconds = 0.002;
    plan.min_rounds = options.quick ? 2 : 5;
    plan.max_rounds = 31;
  } else {
    plan.budget_seconds = options.quick ? 0.3 : 1.5;
    plan.min_rounds = options.quick ? 5 : 15;
  }
  return plan;
}

Row RowOf(const Workload& w, const Samples& s, bool with_null) {
  Row row;
  row.label = w.name;
  row.access = w.access;
  for (size_t c = 0; c < 4; ++c) row.ns[c] = Summarize(s.ns[c]).median;
  row.lib_raw = RatioOf(s, kLib, kRaw);
  row.lib_nomutex = RatioOf(s, kLib, kNoMutex);
  row.lib_cpp = RatioOf(s, kLib, kCpp);
  if (with_null) row.null_pair = RatioOf(s, kRawAgain, kRaw);
  return row;
}

Section SingleThread(const std::string& section, const Options& options, const Inputs& in) {
  const Plan plan = PlanFor(section, options);
  const bool memory = plan.medium == Medium::kMemory;
  std::vector<Variant> contenders = kAll;
  if (!memory) contenders.pop_back();  // on a file the null pair would only show the disk
  Section out{memory ? "on \":memory:\""
                     : "on a file (the library's settings: TRUNCATE journal, synchronous FULL)",
              {}};
  for (const Workload& w : Workloads()) {
    if (!w.in_table || !options.Wants(w)) continue;
    Progress(std::string(Name(plan.medium)) + ": " + w.name);
    const Samples s = Measure({&w}, contenders, in, plan, nullptr);
    out.rows.push_back(RowOf(w, s, memory));
  }
  return out;
}

Section Threads(const Options& options, const Inputs& in) {
  const Plan plan = PlanFor("threads", options);
  const Workload& hit = FindWorkload("SelectSessionCache hit");
  const std::vector<const Workload*> others = {&FindWorkload("SelectStartRecode"),
                                               &FindWorkload("InsertSessionCache"),
                                               &FindWorkload("SelectMessageCollectKey")};
  Section out{"on \":memory:\", threads sharing one object (lib and raw only)", {}};
  for (size_t threads : {size_t{2}, size_t{4}}) {
    std::vector<const Workload*> same(threads, &hit);
    std::vector<const Workload*> different = {&hit};
    for (size_t t = 1; t < threads; ++t) different.push_back(others[t - 1]);
    for (const auto& [label, mix] : {std::pair{std::string("same operation"), same},
                                     std::pair{std::string("different operations"), different}}) {
      Row row;
      row.label = std::to_string(threads) + " threads, " + label;
      Progress(row.label);
      const Samples s = Measure(mix, {Variant::kLib, Variant::kRaw}, in, plan, nullptr);
      row.ns[kLib] = Summarize(s.ns[kLib]).median;
      row.ns[kRaw] = Summarize(s.ns[kRaw]).median;
      row.lib_raw = RatioOf(s, kLib, kRaw);
      out.rows.push_back(row);
    }
  }
  return out;
}

void PrintTable(const std::vector<Section>& sections) {
  std::printf(
      "| workload | lib ns | raw ns | raw_nomutex ns | sqlitecpp ns | lib/raw | lib/raw_nomutex "
      "| lib/sqlitecpp | null: raw/raw |\n");
  std::printf("|---|--:|--:|--:|--:|--:|--:|--:|--:|\n");
  for (const Section& section : sections) {
    std::printf("| **%s** | | | | | | | | |\n", section.title.c_str());
    for (const Row& r : section.rows) {
      std::printf("| %s | %s | %s | %s | %s | %s | %s | %s | %s |\n", r.label.c_str(),
                  Nanoseconds(r.ns[0]).c_str(), Nanoseconds(r.ns[1]).c_str(),
                  Nanoseconds(r.ns[2]).c_str(), Nanoseconds(r.ns[3]).c_str(),
                  Ratio(r.lib_raw).c_str(), Ratio(r.lib_nomutex).c_str(), Ratio(r.lib_cpp).c_str(),
                  Ratio(r.null_pair).c_str());
    }
  }
}

using Results = std::vector<std::pair<std::string, Spread>>;

std::string Named(const std::string& name, const Spread& s) { return name + " " + Ratio(s); }

// One line per target: whether every workload's median lies in [low, high],
// with the one closest to a bound when it holds, each one outside when not.
void Check(const char* target, const Results& results, double low, double high) {
  if (results.empty()) return;
  auto margin = [&](const Spread& s) { return std::min(s.median - low, high - s.median); };
  std::string misses;
  const std::pair<std::string, Spread>* closest = &results.front();
  for (const auto& result : results) {
    if (margin(result.second) < margin(closest->second)) closest = &result;
    if (margin(result.second) >= 0) continue;
    misses += (misses.empty() ? "" : "; ") + Named(result.first, result.second);
  }
  if (misses.empty()) {
    std::printf("- %s: holds (closest: %s)\n", target,
                Named(closest->first, closest->second).c_str());
  } else {
    std::printf("- %s: misses: %s\n", target, misses.c_str());
  }
}

void PrintTargets(const std::vector<Section>& sections) {
  Results lib_raw, lib_nomutex, lib_cpp, cpp_reads, cpp_writes, threads, null_pair, file_reads,
      file_writes;
  for (const Section& section : sections) {
    const bool memory = section.title.find("memory") != std::string::npos;
    for (const Row& r : section.rows) {
      if (!memory) {
        if (r.lib_raw) {
          (r.access == Access::kRead ? file_reads : file_writes).emplace_back(r.label, *r.lib_raw);
        }
        continue;
      }
      if (r.null_pair) null_pair.emplace_back(r.label, *r.null_pair);
      if (!r.lib_nomutex) {
        if (r.lib_raw) threads.emplace_back(r.label, *r.lib_raw);
        continue;
      }
      lib_raw.emplace_back(r.label, *r.lib_raw);
      lib_nomutex.emplace_back(r.label, *r.lib_nomutex);
      lib_cpp.emplace_back(r.label, *r.lib_cpp);
      (r.access == Access::kRead ? cpp_reads : cpp_writes).emplace_back(r.label, *r.lib_cpp);
    }
  }
  std::printf("\nTargets (median (interquartile range) of the paired ratios):\n");
  if (LibraryHasItsOwnSqlite()) {
    // What a host gains: the library on its own SQLite against the system's
    // SQLite called directly or through SQLiteCpp.
    Check("lib/raw <= 0.65 on \":memory:\"", lib_raw, 0, 0.65);
    Check("lib/sqlitecpp <= 0.60 on \":memory:\"", lib_cpp, 0, 0.60);
    Check("on a file, reads: lib/raw <= 1.00", file_reads, 0, 1.00);
  } else {
    // What the library itself costs, all on one SQLite.
    Check("lib/raw <= 1.00 on \":memory:\"", lib_raw, 0, 1.00);
    Check("lib/raw_nomutex <= 1.12 on \":memory:\"", lib_nomutex, 0, 1.12);
    Check("lib/sqlitecpp <= 0.90 on \":memory:\" reads", cpp_reads, 0, 0.90);
    Check("lib/sqlitecpp <= 0.97 on \":memory:\" writes", cpp_writes, 0, 0.97);
    Check("threads: lib/raw <= 1.05", threads, 0, 1.05);
  }
  // fsync-bound: the same for every variant, within the disk's noise.
  Check("on a file, writes: lib/raw within 1.00 ± 0.10", file_writes, 0.90, 1.10);
  Check("null pair raw/raw within 1.00 ± 0.01", null_pair, 0.99, 1.01);
}

void Scale(const Options& options) {
  const Plan plan = PlanFor("scale", options);
  std::vector<size_t> sizes;
  for (size_t rows : {size_t{1000}, size_t{100000}, size_t{1000000}}) {
    if (rows <= options.max_rows) sizes.push_back(rows);
  }
  std::vector<const Workload*> workloads;
  for (const Workload& w : Workloads()) {
    if (w.in_scale && options.Wants(w)) workloads.push_back(&w);
  }
  // cells[w][size]: "lib / raw µs", "ratio"
  std::vector<std::vector<std::pair<std::string, std::string>>> cells(workloads.size());
  for (size_t rows : sizes) {
    const Inputs in(rows);
    // samples[w][0]: lib's store built first; [1]: raw's.
    std::vector<std::array<Samples, 2>> samples(workloads.size());
    // The stores live through every workload, so they are built twice, once
    // in each order: the store built first does not cost the same as the
    // second (where its memory lies), and each contender gets each place.
    for (const int order : {0, 1}) {
      Progress("scale: loading " + std::to_string(rows) + " rows per table");
      std::vector<Variant> contenders = {Variant::kLib, Variant::kRaw};
      if (order == 1) std::swap(contenders[0], contenders[1]);
      StoreSet stores = OpenLoaded(contenders, Medium::kMemory, in);
      for (size_t i = 0; i < workloads.size(); ++i) {
        Progress("scale " + std::to_string(rows) + ": " + workloads[i]->name);
        Samples s = Measure({workloads[i]}, contenders, in, plan, &stores);
        if (order == 1) std::swap(s.ns[kLib], s.ns[kRaw]);
        samples[i][static_cast<size_t>(order)] = std::move(s);
      }
    }
    for (size_t i = 0; i < workloads.size(); ++i) {
      const Samples& first = samples[i][0];
      const Samples& second = samples[i][1];
      // A contender's cost: the mean of its medians in the two orders.
      auto cost_of = [&](size_t c) {
        return (Summarize(first.ns[c]).median + Summarize(second.ns[c]).median) / 2;
      };
      cells[i].emplace_back(LibAndRaw(cost_of(kLib), cost_of(kRaw)),
                            Ratio(CrossoverRatioOf(first, second, kLib, kRaw)));
    }
  }
  std::printf(
      "\nCost per call as every table grows (\":memory:\", random keys and ids; "
      "lib / raw, and the paired lib/raw):\n\n| operation |");
  for (size_t rows : sizes) std::printf(" %zu rows | lib/raw |", rows);
  std::printf("\n|---|");
  for (size_t i = 0; i < sizes.size(); ++i) std::printf("--:|--:|");
  std::printf("\n");
  for (size_t i = 0; i < workloads.size(); ++i) {
    std::printf("| %s |", workloads[i]->name);
    for (const auto& [cost, ratio] : cells[i])
      std::printf(" %s | %s |", cost.c_str(), ratio.c_str());
    std::printf("\n");
  }
}

bool Parse(int argc, char** argv, Options& options) {
  for (int i = 1; i < argc; ++i) {
    const std::string arg = argv[i];
    if (arg == "--quick") {
      options.quick = true;
    } else if (arg.rfind("--sections=", 0) == 0) {
      options.sections.clear();
      std::stringstream list(arg.substr(std::strlen("--sections=")));
      for (std::string name; std::getline(list, name, ',');) options.sections.insert(name);
    } else if (arg.rfind("--max-rows=", 0) == 0) {
      options.max_rows = std::stoul(arg.substr(std::strlen("--max-rows=")));
    } else if (arg.rfind("--only=", 0) == 0) {
      options.only = arg.substr(std::strlen("--only="));
    } else {
      std::fprintf(stderr,
                   "usage: %s [--quick] [--sections=memory,threads,file,scale] [--max-rows=N] "
                   "[--only=WORKLOAD]\n",
                   argv[0]);
      return false;
    }
  }
  return true;
}

int Main(int argc, char** argv) {
  Options options;
  if (!Parse(argc, argv, options)) return 2;
  char date[16];
  const std::time_t now = std::time(nullptr);
  std::strftime(date, sizeof date, "%Y-%m-%d", std::localtime(&now));
  const char* system_version = SqliteOf(Variant::kRaw).version();
  if (LibraryHasItsOwnSqlite()) {
    std::printf(
        "database_interface benchmarks, %s: lib on its own SQLite %s (compiled in); raw, "
        "raw_nomutex and sqlitecpp on the system's SQLite %s; %u cores%s\n\n",
        date, SqliteOf(Variant::kLib).version(), system_version,
        std::thread::hardware_concurrency(), options.quick ? " (quick run: wide spreads)" : "");
  } else {
    std::printf(
        "database_interface benchmarks, %s: every variant on the system's SQLite %s; %u cores%s"
        "\n\n",
        date, system_version, std::thread::hardware_concurrency(),
        options.quick ? " (quick run: wide spreads)" : "");
  }
  std::fflush(stdout);

  const Inputs in(100);
  std::vector<Section> sections;
  if (options.sections.count("memory")) sections.push_back(SingleThread("memory", options, in));
  if (options.sections.count("threads")) sections.push_back(Threads(options, in));
  if (options.sections.count("file")) sections.push_back(SingleThread("file", options, in));
  if (!sections.empty()) {
    std::printf(
        "ns per call (median over rounds; on \":memory:\" the thread's CPU time, on a file and "
        "with threads the elapsed time); ratios: median (interquartile range) of the per-round "
        "paired ratios.\n\n");
    PrintTable(sections);
    PrintTargets(sections);
    std::fflush(stdout);
  }
  if (options.sections.count("scale")) Scale(options);
  return 0;
}

}  // namespace
}  // namespace database_interface::bench

int main(int argc, char** argv) { return database_interface::bench::Main(argc, argv); }
