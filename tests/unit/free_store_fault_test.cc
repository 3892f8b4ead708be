// The ordinary free store (the name indexes, path searches, the copy's
// stack) failing at every one of its allocations inside a workload that
// calls every iRegistry operation: each call returns a code, nothing unwinds
// into the host (the table's functions are noexcept, so an escape would end
// the process) and the host heap balances after destruction.
#include <algorithm>
#include <atomic>
#include <cstdlib>
#include <cstring>
#include <new>

#include <gtest/gtest.h>

#include "module/trace.h"
#include "registry/iregistry.h"
#include "registry/properties_map.h"

namespace {

// Armed, the N-th operator new of this process throws.
std::atomic<bool> g_armed{false};
std::atomic<long> g_countdown{0};
std::atomic<long> g_thrown{0};

void* Allocate(size_t size) {
  if (g_armed.load() && g_countdown.fetch_sub(1) == 1) {
    g_thrown.fetch_add(1);
    throw std::bad_alloc();
  }
  if (void* block = std::malloc(size == 0 ? 1 : size)) return block;
  throw std::bad_alloc();
}

}  // namespace

void* operator new(size_t size) { return Allocate(size); }
void* operator new[](size_t size) { return Allocate(size); }
void operator delete(void* block) noexcept { std::free(block); }
void operator delete[](void* block) noexcept { std::free(block); }
void operator delete(void* block, size_t) noexcept { std::free(block); }
void operator delete[](void* block, size_t) noexcept { std::free(block); }

namespace propmap {
namespace {

// A host heap of plain malloc that never touches the free store, its live
// blocks in one list. The one-byte names of empty-named keys are never given
// back, on purpose: only larger blocks left after destruction are leaks.
struct alignas(16) Block {
  Block* prev;
  Block* next;
  uint32_t size;
};
Block g_live{&g_live, &g_live, 0};
tERROR HeapAllocate(void*, void** out, uint32_t size) {
  auto* b = static_cast<Block*>(std::malloc(sizeof(Block) + size));
  if (b == nullptr) return ErrNoMemory;
  *b = {&g_live, g_live.next, size};
  g_live.next = g_live.next->prev = b;
  *out = b + 1;
  return ResultOk;
}
tERROR HeapRelease(void*, void* block) {
  if (block == nullptr) return ResultOk;
  Block* b = static_cast<Block*>(block) - 1;
  b->prev->next = b->next;
  b->next->prev = b->prev;
  std::free(b);
  return ResultOk;
}
tERROR HeapReallocate(void* self, void** inout, void* old_block, uint32_t size) {
  void* grown = nullptr;
  if (HeapAllocate(self, &grown, size) != ResultOk) return ErrNoMemory;
  if (old_block != nullptr) {
    std::memcpy(grown, old_block, std::min(size, (static_cast<Block*>(old_block) - 1)->size));
    HeapRelease(self, old_block);
  }
  *inout = grown;
  return ResultOk;
}
// Frees what is left; returns how many of those blocks were leaks.
long ReleaseLeft() {
  long leaks = 0;
  while (g_live.next != &g_live) {
    leaks += g_live.next->size > 1;
    HeapRelease(nullptr, g_live.next + 1);
  }
  return leaks;
}

// A host without a trace service; its iObj table is the one a store gets back
// at destruction.
tERROR NoServices(void*, void** out, uint32_t, uint32_t, uint32_t) {
  *out = nullptr;
  return ResultOk;
}

struct UnitStore {
  explicit UnitStore(void* const* table) {
    EXPECT_EQ(ObjectNew(memory, 1), ResultOk);
    map()->obj.table = table;
    map()->config.locking = 1;
    EXPECT_EQ(InitDone(memory), ResultOk);
  }
  ~UnitStore() { EXPECT_EQ(ObjectNew(memory, 0), ResultOk); }
  PropertiesMap* map() { return PropertiesMap::From(static_cast<void*>(memory)); }
  iRegistry* self() { return &map()->registry; }
  alignas(PropertiesMap) unsigned char memory[sizeof(PropertiesMap)] = {};
};

TEST(FreeStoreFaultTest, EveryOperationReturnsACode) {
  void* table[kObjTableEntries];
  for (uint32_t i = 0; i < kObjTableEntries; ++i) table[i] = PlaceholderObjTable()[i];
  table[kObjAlloc] = reinterpret_cast<void*>(&HeapAllocate);
  table[kObjRealloc] = reinterpret_cast<void*>(&HeapReallocate);
  table[kObjFree] = reinterpret_cast<void*>(&HeapRelease);
  void* host_table[16] = {};
  host_table[kHostQueryServiceSlot] = reinterpret_cast<void*>(&NoServices);
  HostObject host{host_table, table};
  SetModuleHost(&host);

  long faults = 0;
  for (long n = 1;; ++n) {
    SCOPED_TRACE(n);
    bool hit = false;
    {
      UnitStore a(table), b(table);
      const iRegistryTable& op = *a.self()->table;
      uint32_t dword = 7, size = 0, type = 0;
      char text[64];
      hKey key = 0;
      // One call armed at a time, so the test's own allocations never fail.
      auto armed = [&](auto call) {
        g_thrown = 0;
        g_armed = true;
        const tERROR err = call();
        g_armed = false;
        hit |= g_thrown.load() != 0;
        if (g_thrown.load() != 0) {
          EXPECT_LT(err, 0) << "a failure code";
        }
        return err;
      };
      g_countdown = n;
      armed([&] { return op.OpenKey(a.self(), &key, 0, "a/b/c", 1); });
      armed([&] { return op.SetValue(a.self(), 0, "v", tDWORD, &dword, 4, 1); });
      armed([&] { return op.SetValueByIndex(a.self(), 0, 1, tDWORD, &dword, 4, 1); });
      armed([&] { return op.GetValue(a.self(), &size, 0, "v", &type, text, sizeof text); });
      armed([&] { return op.GetKeyName(a.self(), &size, key, text, sizeof text, 1); });
      armed([&] { return op.OpenNextKey(a.self(), &key, key); });
      armed([&] { return op.CopyKey(a.self(), 0, b.self(), 0); });
      armed([&] { return op.CopyKeyByName(a.self(), "a", a.self()); });
      armed([&] { return op.SetRootStr(a.self(), "a"); });
      armed([&] { return op.DeleteKey(a.self(), 0, "b"); });
      armed([&] { return op.Clean(a.self()); });
      g_armed = false;
    }
    EXPECT_EQ(ReleaseLeft(), 0);
    if (!hit) break;
    ++faults;
    ASSERT_LT(n, 5000);
  }
  SetModuleHost(nullptr);
  EXPECT_GT(faults, 10) << "the workload reaches the free store";
}

}  // namespace
}  // namespace propmap
