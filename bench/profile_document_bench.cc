// Reading and writing generated profiles of 1 MB and 10 MB; throughput is
// reported per byte of document. Reading goes into a fresh tree each time
// (its creation and destruction are not timed). Writing runs first, on a
// tree read into a heap that no earlier run has fragmented, as a store's tree
// is read once when the store starts.
#include <benchmark/benchmark.h>

#include <cstdio>
#include <cstdlib>
#include <string>

#include "malloc_heap.h"
#include "profile_generator.h"
#include "settle_heap.h"
#include "profile_xml/document.h"

namespace propmap {
namespace {

const std::string& Document(size_t megabytes) {
  static const std::string one = bench::GenerateProfile(1u << 20);
  static const std::string ten = bench::GenerateProfile(10u << 20);
  return megabytes == 1 ? one : ten;
}

struct FreshTree {
  explicit FreshTree(iObj* host) {
    ResetTree(&tree);
    if (Failed(InitTree(&tree, host))) std::abort();
  }
  ~FreshTree() { DestroyTree(&tree); }
  PropertiesTree tree;
};

void BM_WriteProfile(benchmark::State& state) {
  const std::string& text = Document(static_cast<size_t>(state.range(0)));
  bench::MallocHeap heap;
  FreshTree tree(heap.host());
  if (Failed(ReadProfileDocument(&tree.tree, text.data(), text.size()))) std::abort();
  {
    // The generator writes the writer's own form: a check that both agree.
    std::string again;
    if (Failed(WriteProfileDocument(&tree.tree, &again)) || again != text) {
      std::fprintf(stderr, "generated profile does not survive a read and a write\n");
      std::abort();
    }
  }
  for (auto _ : state) {
    std::string output;
    if (Failed(WriteProfileDocument(&tree.tree, &output))) std::abort();
    benchmark::DoNotOptimize(output.data());
  }
  state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * text.size()));
}
BENCHMARK(BM_WriteProfile)->Arg(1)->Arg(10)->Unit(benchmark::kMillisecond);

// As Flush writes: the output reserved at the last document's size (here
// the same document's) plus its slack, so the text is never regrown.
void BM_WriteProfileReserved(benchmark::State& state) {
  const std::string& text = Document(static_cast<size_t>(state.range(0)));
  bench::MallocHeap heap;
  FreshTree tree(heap.host());
  if (Failed(ReadProfileDocument(&tree.tree, text.data(), text.size()))) std::abort();
  for (auto _ : state) {
    std::string output;
    output.reserve(text.size() + text.size() / 16 + 4096);
    if (Failed(WriteProfileDocument(&tree.tree, &output))) std::abort();
    benchmark::DoNotOptimize(output.data());
  }
  state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * text.size()));
}
BENCHMARK(BM_WriteProfileReserved)->Arg(1)->Arg(10)->Unit(benchmark::kMillisecond);


void BM_ReadProfile(benchmark::State& state) {
  const std::string& text = Document(static_cast<size_t>(state.range(0)));
  bench::MallocHeap heap;
  for (auto _ : state) {
    state.PauseTiming();
    {
      auto* tree = new FreshTree(heap.host());
      state.ResumeTiming();
      if (Failed(ReadProfileDocument(&tree->tree, text.data(), text.size()))) std::abort();
      state.PauseTiming();
      delete tree;
      bench::SettleFreedBlocks();
    }
    state.ResumeTiming();
  }
  state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * text.size()));
}
BENCHMARK(BM_ReadProfile)->Arg(1)->Arg(10)->Unit(benchmark::kMillisecond);

}  // namespace
}  // namespace propmap
