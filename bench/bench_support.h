// bench_support.h - what the benchmarks share: a private sandbox over the
// library's fixed paths, the library timed side by side with a floor
// written in plain C on the same work, database files of n records, and
// small file helpers.
//
// Every benchmark that has a floor prints three counters: lib_us and
// floor_us, the medians of the two sides' times, and ratio, the first
// divided by the second. The two run interleaved in one process (one after
// the other in every iteration, their order swapped each time), so that a
// busy machine slows both alike; the ratio is the figure to compare.
#pragma once

#include <stddef.h>
#include <stdint.h>
#include <time.h>

#include <string>
#include <vector>

#include <benchmark/benchmark.h>

namespace nxc::bench {

// ---- The sandbox -------------------------------------------------------------

// Moves the process into a private mount namespace where /etc/zymtra,
// /var/log, /run and /tmp are empty tmpfs (/etc itself gets a tmpfs overlay,
// so that /etc/zymtra can be made), so that the library's fixed paths and
// the benchmarks' files touch nothing of the machine's. Needs root; false,
// with *why, otherwise.
bool EnterSandbox(std::string *why);
// True once EnterSandbox succeeded. Benchmarks that use the library's
// fixed paths skip themselves otherwise.
bool InSandbox();
// Skips the benchmark (true) when it needs the sandbox and has none.
bool SkipWithoutSandbox(benchmark::State &state);

// ---- Timing ------------------------------------------------------------------

inline double NowSeconds() {
  struct timespec ts;
  clock_gettime(CLOCK_MONOTONIC, &ts);
  return static_cast<double>(ts.tv_sec) + static_cast<double>(ts.tv_nsec) * 1e-9;
}

// Seconds that f takes.
template <class F>
double Timed(F f) {
  double start = NowSeconds();
  f();
  return NowSeconds() - start;
}

// The median of the samples (which it reorders).
double Median(std::vector<double> *samples);

// Runs lib and floor once each per iteration, in swapped order every other
// iteration. Each returns the seconds it measured itself (so that it can
// leave its own set-up out, see Timed). Sets the iteration time (run with
// UseManualTime) and the counters lib_us, floor_us and ratio.
template <class Lib, class Floor>
void Interleave(benchmark::State &state, Lib lib, Floor floor) {
  std::vector<double> libTimes, floorTimes;
  bool libFirst = true;
  for (auto _ : state) {
    double l = 0, f = 0;
    if (libFirst) {
      l = lib();
      f = floor();
    } else {
      f = floor();
      l = lib();
    }
    libFirst = !libFirst;
    libTimes.push_back(l);
    floorTimes.push_back(f);
    state.SetIterationTime(l + f);
  }
  double libMedian = Median(&libTimes), floorMedian = Median(&floorTimes);
  state.counters["lib_us"] = libMedian * 1e6;
  state.counters["floor_us"] = floorMedian * 1e6;
  state.counters["ratio"] = floorMedian > 0 ? libMedian / floorMedian : 0;
}

// ---- Database files ----------------------------------------------------------

// What a database file of n records holds besides its version line.
enum class Journal {
  // Distinct answers, port forwards and DHCP mappings, 3 in 9 of each and
  // nothing removed: every record stays in the cache.
  kLive,
  // As kLive, but every tenth record removes an answer written before it,
  // as a long-used journal has them.
  kUsed,
};

// The records of such a file (without a version line).
std::string JournalRecords(size_t n, Journal kind);
// How many of those records a load keeps.
size_t LiveRecords(size_t n, Journal kind);

// The library's database path inside the sandbox.
inline constexpr char kDatabasePath[] = "/etc/zymtra/networking";

// ---- Files -------------------------------------------------------------------

// Writes text to path (created or truncated); aborts on failure, since a
// benchmark cannot go on without its file.
void WriteFileOrDie(const std::string &path, const std::string &text);
// The whole file, or "" when it cannot be read.
std::string ReadFile(const std::string &path);
// Writes text to path the way a careful program replaces a file: a new
// file, synced, renamed over path. Aborts on failure.
void ReplaceFileDurably(const std::string &path, const std::string &text);
// Lines of text, each with its '\n'.
std::vector<std::string> SplitLines(const std::string &text);

}  // namespace nxc::bench
