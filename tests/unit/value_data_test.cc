// Value objects: the factory, native bytes (GetData/SetData) and every
// allocation path under a failing or missing heap.
#include <gtest/gtest.h>

#include <bit>
#include <cmath>
#include <cstring>
#include <functional>
#include <string>
#include <vector>

#include "test_heap.h"
#include "values/value.h"

namespace propmap {
namespace {

using namespace std::string_literals;
using testing::TestHeap;

// `width` little-endian bytes of a number.
std::string Le(uint64_t number, size_t width) {
  std::string bytes(width, '\0');
  std::memcpy(bytes.data(), &number, width);
  return bytes;
}
std::string DoubleBytes(double d) { return Le(std::bit_cast<uint64_t>(d), 8); }
std::string Wide(const std::wstring& s) {
  return std::string(reinterpret_cast<const char*>(s.c_str()), 4 * (s.size() + 1));
}

// The value's native bytes; checks that nothing is written past the count.
std::string Data(const iValue* value) {
  uint32_t count = 0xDEAD;
  EXPECT_EQ(value->GetData(nullptr, 0, &count), ResultOk);
  std::string buffer(count + 1, '~');
  uint32_t again = 0;
  EXPECT_EQ(value->GetData(buffer.data(), count, &again), ResultOk);
  EXPECT_EQ(again, count);
  EXPECT_EQ(buffer[count], '~') << "written past the count";
  buffer.resize(count);
  return buffer;
}

// Values made on a counting heap; every test ends with the heap balanced.
class ValueTest : public ::testing::Test {
 protected:
  void TearDown() override {
    for (iValue* value : values_) DestroyValue(heap_.host(), value);
    EXPECT_EQ(heap_.live_blocks(), 0u);
  }
  iValue* Make(tag_TYPE_ID id) {
    iValue* value = CreateValue(heap_.host(), id);
    EXPECT_NE(value, nullptr) << id;
    if (value != nullptr) values_.push_back(value);
    return value;
  }
  TestHeap heap_;
  std::vector<iValue*> values_;
};

const tag_TYPE_ID kAllClasses[] = {1,  2,  3,  4,  5,  6,  7,  8,  9,  10, 11, 12, 13, 14, 15, 17, 18,
                                   19, 20, 21, 22, 23, 24, 25, 26, 27, 28, 29, 30, 31, 32, 48, 54};

TEST_F(ValueTest, CreatesEveryClassWithItsIdentifier) {
  for (tag_TYPE_ID id : kAllClasses) {
    iValue* value = Make(id);
    ASSERT_NE(value, nullptr);
    EXPECT_EQ(value->GetTypeId(), id);
  }
  for (tag_TYPE_ID id : {0u, 16u, 33u, 47u, 49u, 53u, 55u, 63u, 64u, 1000u}) {
    EXPECT_EQ(CreateValue(heap_.host(), id), nullptr) << id;
  }
}

// Initial content: zero numbers, unset strings and empty blocks report 0
// bytes; tBOOL keeps the word as the heap handed it over (0xA5 fill here).
TEST_F(ValueTest, InitialContent) {
  const struct {
    tag_TYPE_ID id;
    std::string bytes;
  } cases[] = {
      {tVOID, ""},           {tBYTE, Le(0, 1)},     {tWORD, Le(0, 2)},     {tDWORD, Le(0, 4)},
      {tQWORD, Le(0, 8)},    {tCHAR, Le(0, 1)},     {tWCHAR, Le(0, 4)},    {tSTRING, ""},
      {tWSTRING, ""},        {tINT, Le(0, 4)},      {tPTR, ""},            {tSBYTE, Le(0, 1)},
      {tSHORT, Le(0, 2)},    {tLONG, Le(0, 8)},     {tDATETIME, Le(0, 8)}, {tFUNC_PTR, Le(0, 8)},
      {tDOUBLE, Le(0, 8)},   {tBINARY, ""},         {tBOOL, "\xA5\xA5\xA5\xA5"s},
  };
  for (const auto& c : cases) EXPECT_EQ(Data(Make(c.id)), c.bytes) << c.id;
}

TEST_F(ValueTest, DestroyNullIsHarmless) { DestroyValue(heap_.host(), nullptr); }

TEST(ValueFactoryTest, PlaceholderOrMissingHeapGivesNoValue) {
  iObj placeholder{PlaceholderObjTable()};
  for (tag_TYPE_ID id : kAllClasses) {
    EXPECT_EQ(CreateValue(&placeholder, id), nullptr) << id;
    EXPECT_EQ(CreateValue(nullptr, id), nullptr) << id;
  }
}

TEST_F(ValueTest, CreateUnderFailingHeapGivesNoValue) {
  for (tag_TYPE_ID id : kAllClasses) {
    heap_.FailAt(1);
    EXPECT_EQ(CreateValue(heap_.host(), id), nullptr) << id;
  }
  EXPECT_TRUE(heap_.failed_any());
}

// The output protocol of GetData, shown on a tDWORD holding 0x11223344.
TEST_F(ValueTest, OutputProtocol) {
  iValue* value = Make(tDWORD);
  ASSERT_EQ(value->SetData("\x44\x33\x22\x11", 4), ResultOk);
  const struct {
    bool buffer;
    uint32_t size;
    tERROR code;
    std::string written;
  } cases[] = {
      {false, 0, ResultOk, ""},          {false, 4, ErrBadParameter, ""},
      {true, 0, ErrBufferTooSmall, ""},  {true, 3, ErrBufferTooSmall, ""},
      {true, 4, ResultOk, "\x44\x33\x22\x11"}, {true, 8, ResultOk, "\x44\x33\x22\x11"},
  };
  for (const auto& c : cases) {
    std::string buffer(8, '~');
    uint32_t needed = 0;
    EXPECT_EQ(value->GetData(c.buffer ? buffer.data() : nullptr, c.size, &needed), c.code) << c.size;
    EXPECT_EQ(needed, 4u);
    EXPECT_EQ(buffer, c.written + std::string(8 - c.written.size(), '~')) << c.size;
  }
  EXPECT_EQ(value->GetData(nullptr, 0, nullptr), ResultOk);  // `needed` is optional
}

// Each row: one SetData call on a fresh value, its code and the bytes after.
TEST_F(ValueTest, SetDataSizesAndContent) {
  const struct {
    tag_TYPE_ID id;
    std::string input;  // "<null>" passes a null buffer
    uint32_t size;
    tERROR code;
    std::string stored;
  } cases[] = {
      {tBYTE, "\x05", 0, ErrBadParameter, Le(0, 1)},
      {tBYTE, "\x05\x06", 2, ResultOk, "\x05"},  // more than needed: the first bytes count
      {tSHORT, "\x05", 1, ErrBadParameter, Le(0, 2)},
      {tUINT, "\x01\x02\x03", 3, ErrBadParameter, Le(0, 4)},
      {tBOOL, "\x05\x00\x00\x00"s, 4, ResultOk, "\x05\x00\x00\x00"s},  // any word
      {tLONGLONG, "1234567", 7, ErrBadParameter, Le(0, 8)},
      {tVOID, "<null>", 0, ValueUnchanged, ""},
      {tVOID, "abc", 3, ValueUnchanged, ""},
      {tSTRING, "<null>", 0, ErrBadParameter, ""},
      {tSTRING, "", 0, ResultOk, ""},  // first set of an empty string: a change, 0 bytes
      {tSTRING, "abc\0def"s, 7, ResultOk, "abc\0"s},
      {tWSTRING, "<null>", 0, ErrBadParameter, ""},
      // A byte count that is no multiple of 4: the last unit is zero-padded.
      {tWSTRING, Wide(L"ab"), 5, ResultOk, Wide(L"ab")},
      {tWSTRING, Wide(L"a\0b"s), 12, ResultOk, Wide(L"a")},
      {tBINARY, "<null>", 3, ErrBadParameter, ""},
      {tBINARY, "<null>", 0, ResultOk, ""},
  };
  for (const auto& c : cases) {
    iValue* value = Make(c.id);
    if (c.id == tBOOL) {
      ASSERT_EQ(value->SetData("\0\0\0\0", 4), ResultOk);
    }
    const void* input = c.input == "<null>" ? nullptr : c.input.data();
    EXPECT_EQ(value->SetData(input, c.size), c.code) << c.id << " size " << c.size;
    EXPECT_EQ(Data(value), c.stored) << c.id << " size " << c.size;
  }
}

// Setting the same content twice: blocks always report a change, tVOID never.
TEST_F(ValueTest, SecondEqualSetReportsUnchangedExceptForBlocks) {
  for (tag_TYPE_ID id : kAllClasses) {
    iValue* value = Make(id);
    const std::string bytes = id == tWSTRING ? Wide(L"x\u00e4") : "\x01\x02\x03\x04\x05\x06\x07\x08"s;
    const uint32_t size = id == tSTRING ? 3 : static_cast<uint32_t>(bytes.size());
    const bool block = id == tBINARY || id == tPTR;
    const tERROR first = id == tVOID ? ValueUnchanged : ResultOk;
    const tERROR second = block ? ResultOk : ValueUnchanged;
    if (id == tBOOL) {
      ASSERT_EQ(value->SetData("\0\0\0\0", 4), ResultOk);
    }
    EXPECT_EQ(value->SetData(bytes.data(), size), first) << id;
    EXPECT_EQ(value->SetData(bytes.data(), size), second) << id;
  }
  iValue* text = Make(tSTRING);
  EXPECT_EQ(text->SetData("", 0), ResultOk);
  EXPECT_EQ(text->SetData("", 0), ValueUnchanged);
  EXPECT_EQ(text->SetData("abc", 3), ResultOk);
  EXPECT_EQ(text->SetData("abc\0x", 5), ValueUnchanged);  // compared up to the NUL
  iValue* number = Make(tDOUBLE);
  EXPECT_EQ(number->SetData(DoubleBytes(0.0).data(), 8), ValueUnchanged);
  EXPECT_EQ(number->SetData(DoubleBytes(-0.0).data(), 8), ResultOk);  // compared as words
}

// Fixed-size values never use the heap after creation.
TEST_F(ValueTest, ScalarsAllocateNothingAfterCreation) {
  for (tag_TYPE_ID id : kAllClasses) {
    if (id == tSTRING || id == tWSTRING || id == tPTR || id == tBINARY) continue;
    iValue* value = Make(id);
    const uint64_t before = heap_.allocations();
    char buffer[300];
    uint32_t count = 0;
    (void)value->SetData("\x01\x02\x03\x04\x05\x06\x07\x08", 8);
    (void)value->GetData(buffer, sizeof buffer, &count);
    (void)value->SetText("12");
    (void)value->GetText(buffer, sizeof buffer, &count);
    EXPECT_EQ(heap_.allocations(), before) << id;
  }
}

// Every allocating operation, failed at each of its allocations in turn
// (once, then persistently): the heap's code comes back unchanged, the old
// content stays, and nothing leaks. Then the operation is run to success.
TEST_F(ValueTest, EveryAllocationPathUnderFailingHeap) {
  constexpr tERROR kHeapCode = Code(0x80001234);
  const struct {
    const char* name;
    tag_TYPE_ID id;
    std::function<tERROR(iValue*)> operation;
    std::string after;
  } cases[] = {
      {"string SetData", tSTRING, [](iValue* v) { return v->SetData("new", 3); }, "new\0"s},
      {"string SetText", tSTRING, [](iValue* v) { return v->SetText("new"); }, "new\0"s},
      {"wide SetData", tWSTRING, [](iValue* v) { return v->SetData(L"new", 12); }, Wide(L"new")},
      {"wide SetText", tWSTRING, [](iValue* v) { return v->SetText("41000000"); }, Wide(L"A")},
      {"wide SetText odd", tWSTRING, [](iValue* v) { return v->SetText("410"); }, ""},
      {"wide SetText bad", tWSTRING, [](iValue* v) { return v->SetText("zz"); }, ""},
      {"block SetData", tBINARY, [](iValue* v) { return v->SetData("\x09", 1); }, "\x09"},
      {"block SetText", tPTR, [](iValue* v) { return v->SetText("0a0B"); }, "\x0A\x0B"},
  };
  for (const auto& c : cases) {
    iValue* value = Make(c.id);
    const std::string old = c.id == tWSTRING ? Wide(L"old") : "old\0"s;
    ASSERT_EQ(value->SetData(old.data(), c.id == tSTRING ? 3 : static_cast<uint32_t>(old.size())), ResultOk);
    const std::string before = Data(value);
    for (bool persistent : {false, true}) {
      for (uint64_t n = 1;; ++n) {
        heap_.FailAt(n, persistent, kHeapCode);
        const uint64_t attempts = heap_.allocations();
        const tERROR err = c.operation(value);
        const bool reached = heap_.allocations() - attempts >= n;
        heap_.FailAt(0);
        if (!reached) {
          EXPECT_EQ(err, ResultOk) << c.name;
          EXPECT_EQ(Data(value), c.after) << c.name;
          ASSERT_EQ(value->SetData(old.data(), c.id == tSTRING ? 3 : static_cast<uint32_t>(old.size())), ResultOk);
          break;
        }
        EXPECT_EQ(err, kHeapCode) << c.name << " failing allocation " << n;
        EXPECT_EQ(Data(value), before) << c.name << " failing allocation " << n;
        ASSERT_LT(n, 5u) << c.name;
      }
    }
  }
  EXPECT_EQ(heap_.live_blocks(), values_.size() * 2);  // each object and its buffer
}

// With the module's placeholder table in place, every set that needs memory
// answers ErrNotImplemented and changes nothing.
TEST_F(ValueTest, PlaceholderHeapRefusesSetsThatNeedMemory) {
  iValue* text = Make(tSTRING);
  iValue* wide = Make(tWSTRING);
  iValue* block = Make(tBINARY);
  ASSERT_EQ(text->SetData("old", 3), ResultOk);
  ASSERT_EQ(wide->SetData(L"old", 12), ResultOk);
  ASSERT_EQ(block->SetData("old", 3), ResultOk);

  iObj* host = heap_.host();
  void* const* real_table = host->table;
  host->table = PlaceholderObjTable();
  EXPECT_EQ(text->SetData("new", 3), ErrNotImplemented);
  EXPECT_EQ(text->SetText("old"), ErrNotImplemented);  // the copy comes before the comparison
  EXPECT_EQ(wide->SetData(L"new", 12), ErrNotImplemented);
  EXPECT_EQ(wide->SetText("41000000"), ErrNotImplemented);
  EXPECT_EQ(wide->SetText("4"), ErrNotImplemented);
  EXPECT_EQ(block->SetData("new", 3), ErrNotImplemented);
  EXPECT_EQ(block->SetText("00"), ErrNotImplemented);
  EXPECT_EQ(Data(text), "old\0"s);
  EXPECT_EQ(Data(wide), Wide(L"old"));
  EXPECT_EQ(Data(block), "old");
  host->table = real_table;
}

}  // namespace
}  // namespace propmap
