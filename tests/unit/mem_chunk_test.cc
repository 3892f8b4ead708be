// cMemChunk against a counting heap that can refuse: growth keeps or drops the
// old block as asked, a refused growth leaves a usable chunk, and nothing leaks.
#include <cstring>

#include <gtest/gtest.h>

#include "module/mem_chunk.h"
#include "module/trace.h"
#include "test_heap.h"

namespace propmap {
namespace {

using testing::TestHeap;

// Fills the chunk's first `n` bytes with 0, 1, 2, ...
void Fill(cMemChunk& chunk, uint32_t n) {
  auto* bytes = static_cast<unsigned char*>(chunk.data());
  for (uint32_t i = 0; i < n; ++i) bytes[i] = static_cast<unsigned char>(i);
  chunk.set_used(n);
}

bool HoldsPattern(const cMemChunk& chunk, uint32_t n) {
  const auto* bytes = static_cast<const unsigned char*>(chunk.data());
  for (uint32_t i = 0; i < n; ++i) {
    if (bytes[i] != static_cast<unsigned char>(i)) return false;
  }
  return true;
}

TEST(MemChunkTest, ReserveWithinCapacityOrWholeSizeDoesNotAllocate) {
  TestHeap heap;
  cMemChunk chunk(heap.host());
  EXPECT_EQ(chunk.Reserve(kWholeSize, true), nullptr);  // nothing yet
  void* data = chunk.Reserve(64, false);
  ASSERT_NE(data, nullptr);
  const uint64_t allocations = heap.allocations();
  EXPECT_EQ(chunk.Reserve(64, true), data);
  EXPECT_EQ(chunk.Reserve(1, false), data);
  EXPECT_EQ(chunk.Reserve(kWholeSize, false), data);
  EXPECT_EQ(heap.allocations(), allocations);
  EXPECT_EQ(chunk.capacity(), 64u);
}

// Ensure takes every size as a real size: all ones is a request for 4 GiB - 1
// (refused here by the heap), never the current block; beyond 32 bits the
// heap is not even asked.
TEST(MemChunkTest, EnsureNeverTakesASizeForTheCurrentBlock) {
  TestHeap heap;
  cMemChunk chunk(heap.host());
  ASSERT_EQ(chunk.Ensure(64, false), ResultOk);
  heap.FailAt(1);
  EXPECT_EQ(chunk.Ensure(kWholeSize, true), ErrNoMemory);
  heap.FailAt(0);
  const uint64_t allocations = heap.allocations();
  EXPECT_EQ(chunk.Ensure(uint64_t{1} << 32, true), ErrNoMemory);
  EXPECT_EQ(heap.allocations(), allocations);
  EXPECT_EQ(chunk.capacity(), 64u);
}

// Growth with and without keep, with the heap granting or refusing the call.
TEST(MemChunkTest, GrowthKeepsOrDropsTheOldBlock) {
  struct Case {
    const char* name;
    bool keep;
    bool refuse;
    bool expect_data;
    uint32_t expect_capacity;
    bool expect_contents;
  } cases[] = {
      {"keep, granted", true, false, true, 256, true},
      {"keep, refused", true, true, true, 16, true},      // old block and contents stay
      {"drop, granted", false, false, true, 256, false},
      {"drop, refused", false, true, false, 0, false},   // old block already released
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    TestHeap heap;
    {
      cMemChunk chunk(heap.host());
      ASSERT_NE(chunk.Reserve(16, false), nullptr);
      Fill(chunk, 16);
      if (c.refuse) heap.FailAt(1);
      void* grown = chunk.Reserve(256, c.keep);
      heap.FailAt(0);
      EXPECT_EQ(grown != nullptr, !c.refuse);
      EXPECT_EQ(chunk.data() != nullptr, c.expect_data);
      EXPECT_EQ(chunk.capacity(), c.expect_capacity);
      if (c.expect_contents) {
        EXPECT_TRUE(HoldsPattern(chunk, 16));
      }
      EXPECT_EQ(heap.live_blocks(), c.expect_data ? 1u : 0u);
    }
    EXPECT_EQ(heap.live_blocks(), 0u) << "the destructor releases the block";
  }
}

TEST(MemChunkTest, FitMakesTheCapacityExact) {
  TestHeap heap;
  cMemChunk chunk(heap.host());
  ASSERT_NE(chunk.Reserve(100, false), nullptr);
  Fill(chunk, 10);
  ASSERT_EQ(chunk.Fit(kWholeSize, true), ResultOk);  // down to the used size
  EXPECT_EQ(chunk.capacity(), 10u);
  EXPECT_TRUE(HoldsPattern(chunk, 10));

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
}

TEST(MemChunkTest, ClearReleasesAndResets) {
  TestHeap heap;
  cMemChunk chunk(heap.host());
  ASSERT_NE(chunk.Reserve(32, false), nullptr);
  Fill(chunk, 8);
  chunk.Clear();
  EXPECT_EQ(chunk.data(), nullptr);
  EXPECT_EQ(chunk.used(), 0u);
  EXPECT_EQ(heap.live_blocks(), 0u);
  // Nothing to keep: a growth after clearing allocates afresh.
  EXPECT_NE(chunk.Reserve(8, true), nullptr);
  EXPECT_EQ(heap.live_blocks(), 1u);
}

TEST(MemChunkTest, PlaceholderServicesAllocateNothing) {
  iObj placeholder{PlaceholderObjTable()};
  cMemChunk chunk(&placeholder);
  EXPECT_EQ(chunk.Reserve(8, false), nullptr);
  EXPECT_EQ(chunk.Fit(8, false), ErrNotImplemented);
  EXPECT_EQ(chunk.data(), nullptr);
}

TEST(TraceTest, WithoutAHostNothingIsWritten) {
  HostObject* saved = ModuleHost();
  SetModuleHost(nullptr);
  EXPECT_EQ(Trace(nullptr, kTraceOperation, "prmap\t%s", "x"), ErrUnexpected);
  SetModuleHost(saved);
}

}  // namespace
}  // namespace propmap
