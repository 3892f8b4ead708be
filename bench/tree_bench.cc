// Tree benchmarks: path lookup, sequential enumeration and clearing.
// Records come from a plain malloc-backed object-services table so that the
// numbers measure the tree, not a test heap's bookkeeping.
#include <benchmark/benchmark.h>

#include <cstdio>
#include <cstdlib>
#include <string>
#include <vector>

#include "malloc_heap.h"
#include "tree/tree.h"

namespace propmap {
namespace {

using bench::MallocHeap;

struct Tree {
  explicit Tree(MallocHeap* heap) {
    ResetTree(&tree);
    if (Failed(InitTree(&tree, heap->host()))) std::abort();
  }
  ~Tree() { DestroyTree(&tree); }
  PropertiesTree tree;
};

// 100,000 keys: 10 x 10 x 100 x 10 under four levels named like settings.
void BuildWide(KeyNode* root) {
  char path[128];
  for (int a = 0; a < 10; ++a)
    for (int b = 0; b < 10; ++b)
      for (int c = 0; c < 100; ++c)
        for (int d = 0; d < 10; ++d) {
          std::snprintf(path, sizeof(path), "Vendor%d/Product%d/Section%d/Entry%d", a, b, c, d);
          if (OpenOrCreateKey(root, path, false) == nullptr) std::abort();
        }
}

void BM_FindFourComponentPath(benchmark::State& state) {
  MallocHeap heap;
  Tree t(&heap);
  BuildWide(t.tree.root);
  // Mixed case, as callers write them; half with each separator.
  std::vector<std::string> paths;
  for (int i = 0; i < 1024; ++i) {
    const char* sep = i % 2 == 0 ? "/" : "\\";
    paths.push_back("vendor" + std::to_string(i % 10) + sep + "PRODUCT" + std::to_string((i / 10) % 10) + sep +
                    "section" + std::to_string((i * 7) % 100) + sep + "Entry" + std::to_string(i % 10));
    if (FindKey(t.tree.root, paths.back().c_str()) == nullptr) std::abort();
  }
  size_t i = 0;
  for (auto _ : state) {
    KeyNode* k = FindKey(t.tree.root, paths[i++ & 1023].c_str());
    benchmark::DoNotOptimize(k);
  }
}
BENCHMARK(BM_FindFourComponentPath);

void BM_EnumerateTenThousandSubKeys(benchmark::State& state) {
  MallocHeap heap;
  Tree t(&heap);
  for (int i = 0; i < 10000; ++i) {
    if (OpenOrCreateKey(t.tree.root, ("key" + std::to_string(i)).c_str(), false) == nullptr) std::abort();
  }
  for (auto _ : state) {
    for (uint32_t i = 0; i < 10000; ++i) benchmark::DoNotOptimize(GetKeyByIndex(t.tree.root, i));
  }
  state.SetItemsProcessed(state.iterations() * 10000);
}
BENCHMARK(BM_EnumerateTenThousandSubKeys);

void BM_ClearHundredThousandKeys(benchmark::State& state) {
  MallocHeap heap;
  for (auto _ : state) {
    state.PauseTiming();
    Tree t(&heap);
    BuildWide(t.tree.root);
    state.ResumeTiming();
    ClearKey(t.tree.root);
  }
  state.SetItemsProcessed(state.iterations() * 100000);
}
BENCHMARK(BM_ClearHundredThousandKeys)->Unit(benchmark::kMillisecond);

}  // namespace
}  // namespace propmap
