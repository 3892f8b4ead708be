// The memory-backed host stream, called through its table as the module does.
#include <cstring>
#include <vector>

#include <gtest/gtest.h>

#include "stream.h"

namespace prhost {
namespace {

using SeekReadFn = tERROR (*)(void*, uint32_t*, uint64_t, void*, uint32_t);
using SeekWriteFn = tERROR (*)(void*, uint32_t*, uint64_t, const void*, uint32_t);
using GetSizeFn = tERROR (*)(void*, uint64_t*, uint32_t);
using FlushFn = tERROR (*)(void*);

void* const* TableOf(MemoryStream& s) { return *static_cast<void* const**>(s.object()); }

tERROR Read(MemoryStream& s, uint32_t* count, uint64_t pos, void* buf, uint32_t size) {
  return reinterpret_cast<SeekReadFn>(TableOf(s)[kStreamSeekRead])(s.object(), count, pos, buf, size);
}
tERROR Write(MemoryStream& s, uint32_t* count, uint64_t pos, const void* buf, uint32_t size) {
  return reinterpret_cast<SeekWriteFn>(TableOf(s)[kStreamSeekWrite])(s.object(), count, pos, buf, size);
}
tERROR Size(MemoryStream& s, uint64_t* size) {
  return reinterpret_cast<GetSizeFn>(TableOf(s)[kStreamGetSize])(s.object(), size, 0);
}
tERROR Flush(MemoryStream& s) { return reinterpret_cast<FlushFn>(TableOf(s)[kStreamFlush])(s.object()); }

TEST(MemoryStreamTest, LoadThenSaveSequence) {
  MemoryStream s("<doc/>");
  uint64_t size = 0;
  ASSERT_EQ(Size(s, &size), kOk);
  EXPECT_EQ(size, 6u);
  char buf[16] = {};
  uint32_t count = 0;
  ASSERT_EQ(Read(s, &count, 0, buf, sizeof buf), kOk);  // a short read at the end
  EXPECT_EQ(std::string(buf, count), "<doc/>");
  ASSERT_EQ(Write(s, nullptr, 0, "<document/>", 11), kOk);  // saving passes no count
  ASSERT_EQ(Flush(s), kOk);
  EXPECT_EQ(s.content(), "<document/>");
  ASSERT_EQ(Write(s, &count, 13, "x", 1), kOk);  // past the end: the gap is zero-filled
  EXPECT_EQ(s.content(), std::string("<document/>\0\0x", 14));
  const MemoryStream::Calls calls = s.calls();
  EXPECT_EQ((std::vector<uint64_t>{calls.get_sizes, calls.reads, calls.writes, calls.flushes}),
            (std::vector<uint64_t>{1, 1, 2, 1}));
}

TEST(MemoryStreamTest, InjectedFailuresAndShortTransfers) {
  MemoryStream s("abcdef");
  char buf[8];
  uint32_t count = 99;
  s.LimitReads(2);
  EXPECT_EQ(Read(s, &count, 1, buf, 5), kOk);
  EXPECT_EQ(count, 2u);
  EXPECT_EQ(std::string(buf, 2), "bc");
  s.LimitWrites(1);
  EXPECT_EQ(Write(s, &count, 0, "XY", 2), kOk);
  EXPECT_EQ(count, 1u);
  EXPECT_EQ(s.content(), "Xbcdef");

  s.FailReads(Code(0x80000059));
  s.FailWrites(Code(0x80000059));
  s.FailGetSize(Code(0x80000059));
  s.FailFlush(Code(0x80000059));
  uint64_t size = 0;
  EXPECT_EQ(Read(s, &count, 0, buf, 1), Code(0x80000059));
  EXPECT_EQ(Write(s, &count, 0, "z", 1), Code(0x80000059));
  EXPECT_EQ(Size(s, &size), Code(0x80000059));
  EXPECT_EQ(Flush(s), Code(0x80000059));
  EXPECT_EQ(s.content(), "Xbcdef");
}

}  // namespace
}  // namespace prhost
