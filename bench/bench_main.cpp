// bench_main.cpp - the benchmarks' entry point: the private sandbox first
// (before any thread exists), then the benchmarks.
#include <stdio.h>

#include <string>

#include <benchmark/benchmark.h>

#include "bench/bench_support.h"

int main(int argc, char **argv) {
  benchmark::Initialize(&argc, argv);
  if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 1;
  std::string why;
  if (!nxc::bench::EnterSandbox(&why))
    fprintf(stderr, "no private sandbox (%s): the benchmarks that need it are skipped\n",
            why.c_str());
  benchmark::RunSpecifiedBenchmarks();
  benchmark::Shutdown();
  return 0;
}
