// The module's side of the peer comparison, through the real shared library
// as a host uses it: a store loading its profile at initialisation, Flush of a
// changed store, OpenKey + GetValue with the lock on, enumeration by index and
// CopyKey into another store. The host's trace sink drops operation lines
// before formatting them and the heap is plain malloc, as in production.
#include <benchmark/benchmark.h>

#include <cstdio>
#include <cstdlib>
#include <memory>
#include <mutex>
#include <string>

#include "compare_inputs.h"
#include "module_loader.h"
#include "store.h"

namespace propmap::bench {
namespace {

using prhost::hKey;

// Keeps errors, warnings and progress; drops the per-operation lines.
constexpr uint32_t kTraceLimit = 400;

std::shared_ptr<prhost::Module>& SharedModule() {
  static std::shared_ptr<prhost::Module> module = [] {
    prhost::LoadOptions options;
    options.host.plain_heap = true;
    options.host.trace_level_limit = kTraceLimit;
    return prhost::Module::Load(options);
  }();
  return module;
}

std::unique_ptr<prhost::Store> OpenProfile(const std::string& path) {
  auto store = prhost::Store::Open(SharedModule(), {.name = path, .locking = 1});
  if (store->init_result().value_or(-1) != 0) {
    std::fprintf(stderr, "loading %s failed\n", path.c_str());
    std::abort();
  }
  return store;
}

const std::string& ProfilePath(int64_t size_index) {
  static std::string paths[3];
  if (paths[size_index].empty()) {
    paths[size_index] = WriteInput("load" + std::to_string(size_index) + ".xml", Document(size_index));
  }
  return paths[size_index];
}

// A loaded store per size, shared by the lookup and copy cases (and by the
// reader threads, which may ask at the same time).
prhost::Store& Loaded(int64_t size_index) {
  static std::mutex mutex;
  static std::unique_ptr<prhost::Store> stores[3];
  std::lock_guard lock(mutex);
  if (!stores[size_index]) stores[size_index] = OpenProfile(ProfilePath(size_index));
  return *stores[size_index];
}

void BM_Load_propmap(benchmark::State& state) {
  const std::string& path = ProfilePath(state.range(0));
  for (auto _ : state) {
    auto store = OpenProfile(path);
    state.PauseTiming();
    store.reset();
    SettleFreedBlocks();
    state.ResumeTiming();
  }
  state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * Document(state.range(0)).size()));
}
BENCHMARK(BM_Load_propmap)->Apply(SizeArgs)->Unit(benchmark::kMillisecond);

void BM_Save_propmap(benchmark::State& state) {
  const std::string path = WriteInput("save" + std::to_string(state.range(0)) + ".xml", Document(state.range(0)));
  auto store = OpenProfile(path);
  const prhost::Registry registry = store->registry();
  const Lookup& changed = Lookups(state.range(0)).front();
  hKey key = 0;
  if (prhost::Failed(registry.OpenKey(&key, 0, changed.path.c_str(), 0))) std::abort();
  uint32_t value = 0;
  for (auto _ : state) {
    state.PauseTiming();
    ++value;
    if (prhost::Failed(registry.SetValue(key, changed.value.c_str(), prhost::tDWORD, &value, 4, 0))) std::abort();
    state.ResumeTiming();
    if (prhost::Failed(registry.Flush(0))) std::abort();
  }
  state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * Document(state.range(0)).size()));
}
BENCHMARK(BM_Save_propmap)->Apply(SizeArgs)->Unit(benchmark::kMillisecond);

// The floor of every save: the same bytes written, synced and renamed.
void BM_Save_raw(benchmark::State& state) {
  const std::string& doc = Document(state.range(0));
  const std::string path = ScratchDir() + "/raw" + std::to_string(state.range(0)) + ".xml";
  for (auto _ : state) WriteSyncRename(path, doc.data(), doc.size());
  state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * doc.size()));
}
BENCHMARK(BM_Save_raw)->Apply(SizeArgs)->Unit(benchmark::kMillisecond);

void BM_Lookup_propmap(benchmark::State& state) {
  const std::vector<Lookup>& lookups = Lookups(state.range(0));
  const prhost::Registry registry = Loaded(state.range(0)).registry();
  size_t i = static_cast<size_t>(state.thread_index()) * 7919;
  for (auto _ : state) {
    const Lookup& l = lookups[i++ % lookups.size()];
    hKey key = 0;
    uint32_t value = 0, size = 0, type = prhost::tDWORD;
    if (prhost::Failed(registry.OpenKey(&key, 0, l.path.c_str(), 0)) ||
        prhost::Failed(registry.GetValue(&size, key, l.value.c_str(), &type, &value, 4)) || value != l.expected) {
      std::abort();
    }
  }
  state.SetItemsProcessed(static_cast<int64_t>(state.iterations()));
}
BENCHMARK(BM_Lookup_propmap)->Apply(SizeArgs);

// Lookups per second with one and two readers under the store's shared lock.
BENCHMARK(BM_Lookup_propmap)->Arg(2)->Threads(1)->Threads(2)->UseRealTime()->Name("BM_Readers_propmap");

void BM_Enumerate_propmap(benchmark::State& state) {
  static const std::string path = WriteInput("wide.xml", WideDocument());
  auto store = OpenProfile(path);
  const prhost::Registry registry = store->registry();
  hKey wide = 0;
  if (prhost::Failed(registry.OpenKey(&wide, 0, "Wide", 0))) std::abort();
  for (auto _ : state) {
    for (uint32_t i = 0; i < kWideKeys; ++i) {
      hKey child = 0;
      if (prhost::Failed(registry.OpenKeyByIndex(&child, wide, i))) std::abort();
      benchmark::DoNotOptimize(child);
    }
  }
  state.SetItemsProcessed(static_cast<int64_t>(state.iterations() * kWideKeys));
}
BENCHMARK(BM_Enumerate_propmap)->Unit(benchmark::kMicrosecond);

void BM_Copy_propmap(benchmark::State& state) {
  const prhost::Registry source = Loaded(state.range(0)).registry();
  for (auto _ : state) {
    state.PauseTiming();
    auto target = prhost::Store::Open(SharedModule(), {.locking = 1});
    state.ResumeTiming();
    if (prhost::Failed(source.CopyKey(0, target->object(), 0))) std::abort();
    state.PauseTiming();
    target.reset();
    SettleFreedBlocks();
    state.ResumeTiming();
  }
}
BENCHMARK(BM_Copy_propmap)->Apply(SizeArgs)->Unit(benchmark::kMillisecond);

}  // namespace
}  // namespace propmap::bench
