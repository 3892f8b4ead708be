// cMemChunk against a counting heap that can refuse: growth keeps or drops the
// old block as asked, a refused growth leaves a usable chunk, and nothing leaks.
#include <gtest/gtest.h>

#include <numeric>

#include "module/mem_chunk.h"
#include "module/trace.h"
#include "test_heap.h"

namespace propmap {
namespace {

using testing::TestHeap;

// Fills the chunk's first `n` bytes with 0, 1, 2, ...
void Fill(cMemChunk& chunk, uint32_t n) {
  std::iota(static_cast<unsigned char*>(chunk.data()), static_cast<unsigned char*>(chunk.data()) + n, 0);
  chunk.set_used(n);
}
bool HoldsPattern(const cMemChunk& chunk, uint32_t n) {
  std::vector<unsigned char> pattern(n);
  std::iota(pattern.begin(), pattern.end(), 0);
  return std::equal(pattern.begin(), pattern.end(), static_cast<const unsigned char*>(chunk.data()));
}

// Within the capacity nothing is allocated; Ensure takes every size as a real
// size (all ones is 4 GiB - 1, refused here by the heap; beyond 32 bits the
// heap is not even asked).
TEST(MemChunkTest, SizesWithinCapacityAndBeyond) {
  TestHeap heap;
  cMemChunk chunk(heap.host());
  EXPECT_EQ(chunk.Reserve(kWholeSize, true), nullptr);  // nothing yet
  void* data = chunk.Reserve(64, false);
  ASSERT_NE(data, nullptr);
  const uint64_t allocations = heap.allocations();
  for (uint32_t size : {64u, 1u, kWholeSize}) EXPECT_EQ(chunk.Reserve(size, size == 64), data) << size;
  EXPECT_EQ(chunk.Ensure(uint64_t{1} << 32, true), ErrNoMemory);
  EXPECT_EQ(heap.allocations(), allocations);
  heap.FailAt(1);
  EXPECT_EQ(chunk.Ensure(kWholeSize, true), ErrNoMemory);
  EXPECT_EQ(chunk.capacity(), 64u);
}

// Growth with and without keep, with the heap granting or refusing the call.
TEST(MemChunkTest, GrowthKeepsOrDropsTheOldBlock) {
  const struct {
    bool keep, refuse;
    uint32_t capacity;  // 0: no block left
  } cases[] = {{true, false, 256}, {true, true, 16}, {false, false, 256}, {false, true, 0}};
  for (const auto& c : cases) {
    SCOPED_TRACE(std::to_string(c.keep) + " " + std::to_string(c.refuse));
    TestHeap heap;
    {
      cMemChunk chunk(heap.host());
      ASSERT_NE(chunk.Reserve(16, false), nullptr);
      Fill(chunk, 16);
      heap.FailAt(c.refuse ? 1 : 0);
      EXPECT_EQ(chunk.Reserve(256, c.keep) != nullptr, !c.refuse);
      EXPECT_EQ(chunk.data() != nullptr, c.capacity != 0);
      EXPECT_EQ(chunk.capacity(), c.capacity);
      if (c.keep) {
        EXPECT_TRUE(HoldsPattern(chunk, 16));  // also when refused
      }
      EXPECT_EQ(heap.live_blocks(), c.capacity != 0 ? 1u : 0u);
    }
    EXPECT_EQ(heap.live_blocks(), 0u) << "the destructor releases the block";
  }
}

TEST(MemChunkTest, FitClearAndPlaceholderServices) {
  TestHeap heap;
  cMemChunk chunk(heap.host());
  ASSERT_NE(chunk.Reserve(100, false), nullptr);
  Fill(chunk, 10);
  ASSERT_EQ(chunk.Fit(kWholeSize, true), ResultOk);  // down to the used size
  EXPECT_EQ(chunk.capacity(), 10u);
  heap.FailAt(1);
  EXPECT_EQ(chunk.Fit(40, true), ErrNoMemory);
  heap.FailAt(0);
  EXPECT_EQ(chunk.capacity(), 10u);
  EXPECT_TRUE(HoldsPattern(chunk, 10));
  ASSERT_EQ(chunk.Fit(0, true), ResultOk);
  EXPECT_EQ(chunk.data(), nullptr);
  EXPECT_EQ(chunk.capacity(), 0u);
  EXPECT_EQ(heap.live_blocks(), 0u);
  EXPECT_EQ(chunk.Fit(0, false), ResultOk);  // nothing to release twice

  ASSERT_NE(chunk.Reserve(32, false), nullptr);
  Fill(chunk, 8);
  chunk.Clear();
  EXPECT_EQ(chunk.data(), nullptr);
  EXPECT_EQ(chunk.used(), 0u);
  EXPECT_EQ(heap.live_blocks(), 0u);
  EXPECT_NE(chunk.Reserve(8, true), nullptr);  // nothing to keep: allocates afresh
  EXPECT_EQ(heap.live_blocks(), 1u);

  iObj placeholder{PlaceholderObjTable()};
  cMemChunk none(&placeholder);
  EXPECT_EQ(none.Reserve(8, false), nullptr);
  EXPECT_EQ(none.Fit(8, false), ErrNotImplemented);
  EXPECT_EQ(none.data(), nullptr);

  HostObject* saved = ModuleHost();  // without a host no trace line is written
  SetModuleHost(nullptr);
  EXPECT_EQ(Trace(nullptr, kTraceOperation, "prmap\t%s", "x"), ErrUnexpected);
  SetModuleHost(saved);
}

}  // namespace
}  // namespace propmap
