// Benchmark entry: warns when the numbers cannot be trusted.
#include <benchmark/benchmark.h>

#include <cstdio>

int main(int argc, char** argv) {
#if !defined(__OPTIMIZE__)
  std::fprintf(stderr, "WARNING: built without optimisation; timings are not representative\n");
#endif
#if !defined(NDEBUG)
  std::fprintf(stderr, "WARNING: assertions are enabled; timings include them\n");
#endif
  benchmark::Initialize(&argc, argv);
  if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 1;
  benchmark::RunSpecifiedBenchmarks();
  benchmark::Shutdown();
  return 0;
}
