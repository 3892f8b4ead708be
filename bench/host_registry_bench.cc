// Operations through the real shared library, as a host calls them: the
// iRegistry slot, the store lock (locking flag set), handle resolution and the
// value work. The host offers no trace service, so the numbers leave out the
// host's line formatting.
#include <benchmark/benchmark.h>

#include <cstdlib>
#include <string>

#include "module_loader.h"
#include "store.h"

namespace {

using prhost::hKey;

struct Fixture {
  Fixture() {
    prhost::LoadOptions options;
    options.host.offer_trace = false;
    module = prhost::Module::Load(options);
    store = prhost::Store::Open(module, {.locking = 1});
    registry = std::make_unique<prhost::Registry>(store->registry());
    // 10 x 10 x 10 keys, each leaf with a dword.
    char path[64];
    for (int a = 0; a < 10; ++a)
      for (int b = 0; b < 10; ++b)
        for (int c = 0; c < 10; ++c) {
          std::snprintf(path, sizeof path, "Vendor%d/Product%d/Section%d/Entry", a, b, c);
          hKey key = 0;
          uint32_t value = static_cast<uint32_t>(a * 100 + b * 10 + c);
          if (prhost::Failed(registry->OpenKey(&key, 0, path, 1)) ||
              prhost::Failed(registry->SetValue(key, "Value", prhost::tDWORD, &value, 4, 1))) {
            std::abort();
          }
        }
    if (prhost::Failed(registry->OpenKey(&leaf, 0, "Vendor3/Product4/Section5/Entry", 0))) std::abort();
  }
  std::shared_ptr<prhost::Module> module;
  std::unique_ptr<prhost::Store> store;
  std::unique_ptr<prhost::Registry> registry;
  hKey leaf = 0;
};

Fixture& Shared() {
  static Fixture fixture;
  return fixture;
}

void BM_OpenKeyByFourComponentPath(benchmark::State& state) {
  Fixture& f = Shared();
  hKey key = 0;
  for (auto _ : state) {
    benchmark::DoNotOptimize(f.registry->OpenKey(&key, 0, "vendor7/PRODUCT2/section9/entry", 0));
  }
}
BENCHMARK(BM_OpenKeyByFourComponentPath);

void BM_GetDwordSameType(benchmark::State& state) {
  Fixture& f = Shared();
  uint32_t value = 0, size = 0;
  for (auto _ : state) {
    uint32_t type = prhost::tDWORD;
    benchmark::DoNotOptimize(f.registry->GetValue(&size, f.leaf, "value", &type, &value, 4));
  }
}
BENCHMARK(BM_GetDwordSameType);

void BM_GetDwordAsText(benchmark::State& state) {
  Fixture& f = Shared();
  char text[16];
  uint32_t size = 0;
  for (auto _ : state) {
    uint32_t type = prhost::tSTRING;
    benchmark::DoNotOptimize(f.registry->GetValue(&size, f.leaf, "Value", &type, text, sizeof text));
  }
}
BENCHMARK(BM_GetDwordAsText);

void BM_SetDwordUnchanged(benchmark::State& state) {
  Fixture& f = Shared();
  const uint32_t value = 345;
  for (auto _ : state) {
    benchmark::DoNotOptimize(f.registry->SetValue(f.leaf, "Value", prhost::tDWORD, &value, 4, 0));
  }
}
BENCHMARK(BM_SetDwordUnchanged);

void BM_EnumerateSubKeysByIndex(benchmark::State& state) {
  Fixture& f = Shared();
  for (auto _ : state) {
    for (uint32_t i = 0; i < 10; ++i) {
      hKey key = 0;
      benchmark::DoNotOptimize(f.registry->OpenKeyByIndex(&key, 0, i));
    }
  }
  state.SetItemsProcessed(state.iterations() * 10);
}
BENCHMARK(BM_EnumerateSubKeysByIndex);

}  // namespace
