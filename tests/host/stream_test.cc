// The memory-backed host stream, called through its table as the module does.
#include <cstring>
#include <functional>

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
  ASSERT_EQ(Read(s, &count, 0, buf, 6), kOk);
  EXPECT_EQ(count, 6u);
  EXPECT_EQ(std::string(buf, 6), "<doc/>");
  ASSERT_EQ(Write(s, nullptr, 0, "<document/>", 11), kOk);  // saving passes no count
  ASSERT_EQ(Flush(s), kOk);
  EXPECT_EQ(s.content(), "<document/>");
  ASSERT_EQ(Write(s, &count, 13, "x", 1), kOk);  // past the end: the gap is zero-filled
  EXPECT_EQ(s.content(), std::string("<document/>\0\0x", 14));
  MemoryStream::Calls calls = s.calls();
  EXPECT_EQ(calls.get_sizes, 1u);
  EXPECT_EQ(calls.reads, 1u);
  EXPECT_EQ(calls.writes, 2u);
  EXPECT_EQ(calls.flushes, 1u);
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

  const struct {
    const char* what;
    void (MemoryStream::*inject)(tERROR);
    std::function<tERROR()> call;
  } cases[] = {
      {"read", &MemoryStream::FailReads, [&] { return Read(s, &count, 0, buf, 1); }},
      {"write", &MemoryStream::FailWrites, [&] { return Write(s, &count, 0, "z", 1); }},
      {"size", &MemoryStream::FailGetSize, [&] { uint64_t n; return Size(s, &n); }},
      {"flush", &MemoryStream::FailFlush, [&] { return Flush(s); }},
  };
  for (const auto& c : cases) {
    (s.*c.inject)(Code(0x80000059));
    EXPECT_EQ(c.call(), Code(0x80000059)) << c.what;
    (s.*c.inject)(kOk);
    EXPECT_EQ(c.call(), kOk) << c.what;
  }
  EXPECT_EQ(s.content(), "zbcdef");
}

}  // namespace
}  // namespace prhost
