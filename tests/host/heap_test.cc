// The host heap as the module sees it: iObj entries 52 to 54 called with
// self = store + 8, the account found through the host word at store + 16.
#include <algorithm>
#include <cstring>
#include <vector>

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

// Fresh and grown bytes carry the fill; only one-byte empty texts are not
// counted as left over.
TEST(HostHeapTest, FillCountsAndLeftovers) {
  StoreHeap heap("h");
  FakeStore store(&heap);
  void* a = nullptr;
  void* empty = nullptr;
  ASSERT_EQ(store.Alloc(&a, 4), kOk);
  ASSERT_EQ(store.Alloc(&empty, 1), kOk);
  EXPECT_EQ(static_cast<uint8_t*>(a)[3], kFreshBlockFill);
  std::memcpy(a, "abcd", 4);
  ASSERT_EQ(store.Realloc(&a, a, 8), kOk);
  EXPECT_EQ(std::memcmp(a, "abcd", 4), 0);
  EXPECT_EQ(static_cast<uint8_t*>(a)[7], kFreshBlockFill);
  EXPECT_EQ(heap.live_bytes(), 9u);
  EXPECT_EQ(heap.leftover_blocks(), 2u);
  *static_cast<char*>(empty) = '\0';
  EXPECT_EQ(heap.leftover_blocks(), 1u);
  EXPECT_EQ(store.Free(a), kOk);
  EXPECT_EQ(heap.leftover_blocks(), 0u);
  EXPECT_FALSE(heap.balanced());
  EXPECT_EQ(store.Free(empty), kOk);
  EXPECT_EQ(store.Free(nullptr), kOk);
  EXPECT_TRUE(heap.balanced());
}

// FailAt(n, persistent): which of the next five calls fail. Allocation and
// reallocation alternate: both count; counting starts at FailAt; a failed
// call writes no output and a failed reallocation keeps the old block.
TEST(HostHeapTest, FailsTheNthCallFromNow) {
  const struct {
    uint64_t n;
    bool persistent;
    const char* fails;
  } cases[] = {{0, false, "....."}, {1, false, "x...."}, {3, false, "..x.."}, {3, true, "..xxx"}, {6, true, "....."}};
  for (const auto& c : cases) {
    StoreHeap heap("h");
    FakeStore store(&heap);
    void* old = nullptr;
    ASSERT_EQ(store.Alloc(&old, 1), kOk);
    heap.FailAt(c.n, c.persistent, Code(0x80000041));
    size_t allocated = 0;
    for (int i = 0; i < 5; ++i) {
      void* block = old;
      const bool alloc = i % 2 == 0;
      const tERROR code = alloc ? store.Alloc(&block, 8) : store.Realloc(&block, old, 8);
      if (c.fails[i] == 'x') {
        EXPECT_EQ(code, Code(0x80000041)) << c.n << " call " << i + 1;
        EXPECT_EQ(block, old) << "a failed call must not write its output";
        EXPECT_TRUE(heap.Owns(old));
      } else {
        EXPECT_EQ(code, kOk) << c.n << " call " << i + 1;
        if (alloc) ++allocated; else old = block;
      }
    }
    EXPECT_EQ(heap.failures(), static_cast<uint64_t>(std::count(c.fails, c.fails + 5, 'x'))) << c.n;
    EXPECT_EQ(heap.live_blocks(), 1 + allocated);  // the heap releases them when it goes
  }
}

TEST(HostHeapDeathTest, ForeignBlockOrMissingAccountAborts) {
  StoreHeap mine("mine");
  StoreHeap other("other");
  FakeStore store(&mine);
  FakeStore elsewhere(&other);
  void* block = nullptr;
  ASSERT_EQ(elsewhere.Alloc(&block, 8), kOk);
  EXPECT_DEATH(store.Free(block), "release of unknown block");
  EXPECT_DEATH(store.Realloc(&block, block, 16), "reallocation of unknown block");
  EXPECT_EQ(elsewhere.Free(block), kOk);
  uintptr_t words[3] = {0, 0, 0};
  void* out = nullptr;
  EXPECT_DEATH(reinterpret_cast<ObjAllocFn>(HostObjTable()[kObjAlloc])(&words[1], &out, 8), "carries no host heap");
}

}  // namespace
}  // namespace prhost
