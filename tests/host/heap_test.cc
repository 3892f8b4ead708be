// The host heap as the module sees it: iObj entries 52 to 54 called with
// self = store + 8, the account found through the host word at store + 16.
#include <cstring>
#include <thread>

#include <gtest/gtest.h>

#include "heap.h"

namespace prhost {
namespace {

// The first three words of a store, as the host prepares them.
class FakeStore {
 public:
  explicit FakeStore(StoreHeap* heap) {
    void* const* table = HostObjTable();
    std::memcpy(words_ + 1, &table, sizeof table);
    std::memcpy(words_ + 2, &heap, sizeof heap);
  }
  void* self() { return &words_[1]; }
  tERROR Alloc(void** out, uint32_t size) {
    return reinterpret_cast<ObjAllocFn>(Table()[kObjAlloc])(self(), out, size);
  }
  tERROR Realloc(void** inout, void* old_block, uint32_t size) {
    return reinterpret_cast<ObjReallocFn>(Table()[kObjRealloc])(self(), inout, old_block, size);
  }
  tERROR Free(void* block) { return reinterpret_cast<ObjFreeFn>(Table()[kObjFree])(self(), block); }

 private:
  void* const* Table() { return reinterpret_cast<void* const*>(words_[1]); }
  uintptr_t words_[3] = {};
};

TEST(HostHeapTest, FreshBlocksAreFilledAndCounted) {
  StoreHeap heap("h");
  FakeStore store(&heap);
  void* a = nullptr;
  void* b = nullptr;
  ASSERT_EQ(store.Alloc(&a, 16), kOk);
  ASSERT_EQ(store.Alloc(&b, 0), kOk);
  ASSERT_NE(a, nullptr);
  ASSERT_NE(b, nullptr);
  EXPECT_NE(a, b);
  for (int i = 0; i < 16; ++i) EXPECT_EQ(static_cast<uint8_t*>(a)[i], kFreshBlockFill);
  EXPECT_EQ(heap.live_blocks(), 2u);
  EXPECT_EQ(heap.live_bytes(), 16u);
  EXPECT_EQ(heap.BlockSize(a), 16u);
  EXPECT_EQ(store.Free(a), kOk);
  EXPECT_EQ(store.Free(b), kOk);
  EXPECT_EQ(store.Free(nullptr), kOk);
  EXPECT_TRUE(heap.balanced());
  EXPECT_EQ(heap.live_bytes(), 0u);
  EXPECT_EQ(heap.allocations(), 2u);
  EXPECT_EQ(heap.frees(), 2u);
}

TEST(HostHeapTest, ReallocateMovesKeepsContentAndFillsGrowth) {
  StoreHeap heap("h");
  FakeStore store(&heap);
  void* block = nullptr;
  ASSERT_EQ(store.Realloc(&block, nullptr, 4), kOk);  // null old block allocates
  std::memcpy(block, "abcd", 4);
  void* old = block;
  ASSERT_EQ(store.Realloc(&block, old, 8), kOk);
  EXPECT_NE(block, old);
  EXPECT_EQ(std::memcmp(block, "abcd", 4), 0);
  EXPECT_EQ(static_cast<uint8_t*>(block)[7], kFreshBlockFill);
  EXPECT_FALSE(heap.Owns(old));
  EXPECT_EQ(heap.live_bytes(), 8u);
  ASSERT_EQ(store.Realloc(&block, block, 2), kOk);
  EXPECT_EQ(std::memcmp(block, "ab", 2), 0);
  EXPECT_EQ(heap.live_bytes(), 2u);
  EXPECT_EQ(store.Free(block), kOk);
  EXPECT_TRUE(heap.balanced());
}

// FailAt(n, persistent): which of the next five calls fail.
struct FaultCase {
  uint64_t n;
  bool persistent;
  bool fails[5];
};

const FaultCase kFaultCases[] = {
    {0, false, {false, false, false, false, false}},
    {1, false, {true, false, false, false, false}},
    {3, false, {false, false, true, false, false}},
    {3, true, {false, false, true, true, true}},
    {1, true, {true, true, true, true, true}},
    {6, true, {false, false, false, false, false}},
};

class HostHeapFaultTest : public ::testing::TestWithParam<FaultCase> {};

TEST_P(HostHeapFaultTest, FailsTheNthCallFromNow) {
  const FaultCase& c = GetParam();
  StoreHeap heap("h");
  FakeStore store(&heap);
  void* warmup = nullptr;
  ASSERT_EQ(store.Alloc(&warmup, 1), kOk);  // counting starts at FailAt, not at creation
  heap.FailAt(c.n, c.persistent, Code(0x80000041));
  std::vector<void*> held;
  uint64_t expected_failures = 0;
  for (int i = 0; i < 5; ++i) {
    void* block = reinterpret_cast<void*>(uintptr_t{0x1});
    // Alternate the two fault points: reallocation counts like allocation.
    tERROR code = i % 2 == 0 ? store.Alloc(&block, 8) : store.Realloc(&block, nullptr, 8);
    if (c.fails[i]) {
      ++expected_failures;
      EXPECT_EQ(code, Code(0x80000041)) << "call " << i + 1;
      EXPECT_EQ(block, reinterpret_cast<void*>(uintptr_t{0x1})) << "a failed call must not write its output";
    } else {
      EXPECT_EQ(code, kOk) << "call " << i + 1;
      held.push_back(block);
    }
  }
  EXPECT_EQ(heap.failures(), expected_failures);
  heap.ClearFault();
  for (void* block : held) EXPECT_EQ(store.Free(block), kOk);
  EXPECT_EQ(store.Free(warmup), kOk);
  EXPECT_TRUE(heap.balanced());
}

INSTANTIATE_TEST_SUITE_P(Cases, HostHeapFaultTest, ::testing::ValuesIn(kFaultCases));

TEST(HostHeapTest, FailedReallocationKeepsTheOldBlock) {
  StoreHeap heap("h");
  FakeStore store(&heap);
  void* block = nullptr;
  ASSERT_EQ(store.Alloc(&block, 4), kOk);
  heap.FailAt(1, false, Code(0x800000C2));
  void* inout = block;
  EXPECT_EQ(store.Realloc(&inout, block, 64), Code(0x800000C2));
  EXPECT_EQ(inout, block);
  EXPECT_TRUE(heap.Owns(block));
  EXPECT_EQ(store.Free(block), kOk);
  EXPECT_TRUE(heap.balanced());
}

TEST(HostHeapTest, ConcurrentCallersBalance) {
  StoreHeap heap("h");
  FakeStore store(&heap);
  std::vector<std::thread> threads;
  for (int t = 0; t < 4; ++t) {
    threads.emplace_back([&] {
      for (int i = 0; i < 1000; ++i) {
        void* block = nullptr;
        ASSERT_EQ(store.Alloc(&block, 24), kOk);
        ASSERT_EQ(store.Realloc(&block, block, 48), kOk);
        ASSERT_EQ(store.Free(block), kOk);
      }
    });
  }
  for (auto& th : threads) th.join();
  EXPECT_TRUE(heap.balanced());
  EXPECT_EQ(heap.allocations(), 8000u);
}

TEST(HostHeapDeathTest, ReleasingAForeignBlockAborts) {
  StoreHeap mine("mine");
  StoreHeap other("other");
  FakeStore store(&mine);
  FakeStore elsewhere(&other);
  void* block = nullptr;
  ASSERT_EQ(elsewhere.Alloc(&block, 8), kOk);
  EXPECT_DEATH(store.Free(block), "release of unknown block");
  EXPECT_EQ(elsewhere.Free(block), kOk);
}

TEST(HostHeapDeathTest, StoreWithoutAccountAborts) {
  uintptr_t words[3] = {0, 0, 0};
  void* out = nullptr;
  EXPECT_DEATH(reinterpret_cast<ObjAllocFn>(HostObjTable()[kObjAlloc])(&words[1], &out, 8), "carries no host heap");
}

TEST(HostHeapTest, OtherEntriesAnswerNotImplemented) {
  StoreHeap heap("h");
  FakeStore store(&heap);
  for (uint32_t e = 0; e < kObjEntries; ++e) {
    if (e >= kObjAlloc && e <= kObjFree) continue;
    EXPECT_EQ(reinterpret_cast<ObjEntryFn>(HostObjTable()[e])(store.self()), kErrNotImplemented) << "entry " << e;
  }
}

}  // namespace
}  // namespace prhost
