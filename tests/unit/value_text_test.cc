// Value objects: text forms (GetText/SetText) per storage kind, round trips
// through text, and the guard of the number work buffer.
#include <gtest/gtest.h>

#include <bit>
#include <cfloat>
#include <climits>
#include <cmath>
#include <cstring>
#include <string>
#include <vector>

#include "support/utf8.h"
#include "test_heap.h"
#include "values/value.h"

namespace propmap {
namespace {

using namespace std::string_literals;
using testing::TestHeap;

std::string Le(uint64_t number, size_t width) {
  std::string bytes(width, '\0');
  std::memcpy(bytes.data(), &number, width);
  return bytes;
}
std::string DoubleBytes(double d) { return Le(std::bit_cast<uint64_t>(d), 8); }
std::string Wide(const std::wstring& s) {
  return s.empty() ? "" : std::string(reinterpret_cast<const char*>(s.c_str()), 4 * (s.size() + 1));
}

// Native width of the number kinds.
size_t Width(tag_TYPE_ID id) {
  switch (id) {
    case tBYTE: case tSBYTE: case tCHAR: return 1;
    case tWORD: case tSHORT: return 2;
    case tQWORD: case tDATA: case tLONG: case tLONGLONG: case tDATETIME: case tFUNC_PTR: case tDOUBLE: return 8;
    default: return 4;
  }
}

std::string Data(const iValue* value) {
  uint32_t count = 0;
  EXPECT_EQ(value->GetData(nullptr, 0, &count), ResultOk);
  std::string buffer(count, '\0');
  EXPECT_EQ(value->GetData(buffer.data(), count, &count), ResultOk);
  return buffer;
}

// The `count` bytes GetText reports, '~' where it wrote nothing; checks that
// nothing lands past the count.
std::string Text(const iValue* value) {
  uint32_t count = 0xDEAD;
  EXPECT_EQ(value->GetText(nullptr, 0, &count), ResultOk);
  std::string buffer(count + 1, '~');
  uint32_t again = 0;
  EXPECT_EQ(value->GetText(buffer.data(), count, &again), ResultOk);
  EXPECT_EQ(again, count);
  EXPECT_EQ(buffer[count], '~') << "written past the count";
  buffer.resize(count);
  return buffer;
}

// The text as a caller converting through text sees it: ended right after
// the bytes that GetText wrote.
std::string TerminatedText(const iValue* value) {
  uint32_t count = 0;
  EXPECT_EQ(value->GetText(nullptr, 0, &count), ResultOk);
  std::string buffer(count + 1, '\0');
  EXPECT_EQ(value->GetText(buffer.data(), count, &count), ResultOk);
  return std::string(buffer.c_str());
}

class ValueTextTest : public ::testing::Test {
 protected:
  void TearDown() override {
    for (iValue* value : values_) DestroyValue(heap_.host(), value);
    EXPECT_EQ(heap_.live_blocks(), 0u);
  }
  iValue* Make(tag_TYPE_ID id) {
    iValue* value = CreateValue(heap_.host(), id);
    EXPECT_NE(value, nullptr) << id;
    values_.push_back(value);
    return value;
  }

  // One SetText per row on a fresh value preset to `preset` (native bytes):
  // the code, the bytes stored afterwards and the text read back.
  struct Row {
    tag_TYPE_ID id;
    const char* input;
    tERROR code;
    std::string stored;
    std::string text;
  };
  void Run(const std::string& preset, const std::vector<Row>& rows) {
    for (const Row& row : rows) {
      iValue* value = Make(row.id);
      ASSERT_GE(value->SetData(preset.data(), static_cast<uint32_t>(preset.size())), 0);
      EXPECT_EQ(value->SetText(row.input), row.code) << row.id << " '" << row.input << "'";
      EXPECT_EQ(Data(value), row.stored) << row.id << " '" << row.input << "'";
      EXPECT_EQ(Text(value), row.text) << row.id << " '" << row.input << "'";
    }
  }

  TestHeap heap_;
  std::vector<iValue*> values_;
};

// Preset 7 throughout; the stored column is the number in the kind's width.
TEST_F(ValueTextTest, UnsignedRule) {
  auto N = [](tag_TYPE_ID id, uint64_t n) { return Le(n, Width(id)); };
  const uint64_t ones = UINT64_MAX;
  std::vector<Row> rows = {
      {tBYTE, "255", ResultOk, N(tBYTE, 255), "255"},
      {tBYTE, "256", ErrBadParameter, N(tBYTE, 7), "7"},
      {tBYTE, "", ResultOk, N(tBYTE, 0), "0"},
      {tBYTE, "ff", ResultOk, N(tBYTE, 255), "255"},
      {tBYTE, "0x1F", ResultOk, N(tBYTE, 31), "31"},
      {tBYTE, " 9", ResultOk, N(tBYTE, 9), "9"},
      {tBYTE, "9 ", ErrBadParameter, N(tBYTE, 7), "7"},
      {tBYTE, "  ", ErrBadParameter, N(tBYTE, 7), "7"},
      {tBYTE, "0x", ErrBadParameter, N(tBYTE, 7), "7"},
      {tBYTE, "-1", ErrBadParameter, N(tBYTE, 7), "7"},
      {tBYTE, "7", ResultOk, N(tBYTE, 7), "7"},  // never ValueUnchanged
      {tWORD, "0x10", ResultOk, N(tWORD, 16), "16"},
      {tWORD, "65536", ErrBadParameter, N(tWORD, 7), "7"},
      {tDWORD, "305419896", ResultOk, N(tDWORD, 305419896), "305419896"},
      {tDWORD, "0x100000000", ErrBadParameter, N(tDWORD, 7), "7"},
      {tDWORD, "-1", ErrBadParameter, N(tDWORD, 7), "7"},
      {tQWORD, "-1", ResultOk, N(tQWORD, ones), "18446744073709551615"},
      {tQWORD, "18446744073709551616", ResultOk, N(tQWORD, ones), "18446744073709551615"},  // decimal overflow
      {tQWORD, "ffffffffffffffff", ErrBadParameter, N(tQWORD, 7), "7"},  // hexadecimal all ones
      {tQWORD, "1ffffffffffffffff", ErrBadParameter, N(tQWORD, 7), "7"},
      {tQWORD, "fffffffffffffffe", ResultOk, N(tQWORD, ones - 1), "18446744073709551614"},
      {tDATETIME, "0x0102030405060708", ResultOk, "\x08\x07\x06\x05\x04\x03\x02\x01", "72623859790382856"},
      {tDATETIME, "ffffffffffffffff", ErrBadParameter, N(tDATETIME, 7), "7"},
  };
  for (tag_TYPE_ID id : {tDWORD, tUINT, tIID, tPID, tORIG_ID, tOS_ID, tVID, tPROPID, tVERSION, tCODEPAGE, tLCID,
                         tTYPE_ID}) {
    rows.push_back({id, "4294967295", ResultOk, N(id, 0xFFFFFFFF), "4294967295"});
    rows.push_back({id, "4294967296", ErrBadParameter, N(id, 7), "7"});
  }
  Run(Le(7, 8), rows);
}

TEST_F(ValueTextTest, SignedRule) {
  auto N = [](tag_TYPE_ID id, int64_t n) { return Le(static_cast<uint64_t>(n), Width(id)); };
  Run(Le(7, 8), {
      {tINT, "-5", ResultOk, N(tINT, -5), "-5"},
      {tINT, "2147483648", ErrBadParameter, N(tINT, 7), "7"},
      {tINT, "-2147483648", ResultOk, N(tINT, INT_MIN), "-2147483648"},
      {tINT, "-3000000000", ResultOk, N(tINT, 1294967296), "1294967296"},  // below the minimum: truncated
      {tINT, "7fffffff", ResultOk, N(tINT, INT_MAX), "2147483647"},
      {tINT, "0x80000000", ErrBadParameter, N(tINT, 7), "7"},
      {tINT, " -3", ResultOk, N(tINT, -3), "-3"},
      {tINT, "7", ResultOk, N(tINT, 7), "7"},
      {tERROR_TYPE, "-1", ResultOk, N(tERROR_TYPE, -1), "-1"},
      {tSBYTE, "-129", ResultOk, N(tSBYTE, 127), "127"},
      {tSBYTE, "-128", ResultOk, N(tSBYTE, -128), "-128"},
      {tSBYTE, "7f", ResultOk, N(tSBYTE, 127), "127"},
      {tSBYTE, "-ff", ResultOk, N(tSBYTE, 1), "1"},  // -255 in hexadecimal, truncated
      {tSHORT, "32768", ErrBadParameter, N(tSHORT, 7), "7"},
      {tSHORT, "-32769", ResultOk, N(tSHORT, 32767), "32767"},
      {tLONG, "9223372036854775808", ResultOk, N(tLONG, LONG_MAX), "9223372036854775807"},
      {tLONG, "-9223372036854775809", ResultOk, N(tLONG, LONG_MIN), "-9223372036854775808"},
      {tLONG, "7fffffffffffffff", ErrBadParameter, N(tLONG, 7), "7"},
      {tLONG, "-0x8000000000000000", ErrBadParameter, N(tLONG, 7), "7"},  // exactly the minimum
      {tLONG, "7ffffffffffffffe", ResultOk, N(tLONG, LONG_MAX - 1), "9223372036854775806"},
      {tLONGLONG, "-1", ResultOk, N(tLONGLONG, -1), "-1"},
  });
}

TEST_F(ValueTextTest, DoubleRule) {
  const double nan = std::nan("");
  Run(DoubleBytes(2.5), {
      {tDOUBLE, "1.5", ResultOk, DoubleBytes(1.5), "1.500000"},
      {tDOUBLE, "abc", ResultOk, DoubleBytes(2.5), "2.500000"},  // nothing converted: kept
      {tDOUBLE, "  ", ErrBadParameter, DoubleBytes(2.5), "2.500000"},
      {tDOUBLE, "", ErrBadParameter, DoubleBytes(2.5), "2.500000"},
      {tDOUBLE, " 3.25xyz", ResultOk, DoubleBytes(3.25), "3.250000"},
      {tDOUBLE, "-0", ResultOk, DoubleBytes(-0.0), "-0.000000"},
      {tDOUBLE, "0x10", ResultOk, DoubleBytes(16), "16.000000"},
      {tDOUBLE, "0.0000001", ResultOk, DoubleBytes(1e-7), "0.000000"},
      {tDOUBLE, "inf", ResultOk, DoubleBytes(INFINITY), "inf"},
      {tDOUBLE, "nan", ResultOk, DoubleBytes(nan), "nan"},
      {tDOUBLE, "2.5", ResultOk, DoubleBytes(2.5), "2.500000"},
  });
}

TEST_F(ValueTextTest, BooleanRule) {
  auto W = [](uint32_t w) { return Le(w, 4); };
  Run(W(7), {
      {tBOOL, "true", ResultOk, W(1), "1\0"s},
      {tBOOL, " true", ResultOk, W(1), "1\0"s},
      {tBOOL, "true junk", ResultOk, W(1), "1\0"s},
      {tBOOL, "false", ResultOk, W(0), "0\0"s},
      {tBOOL, "false1", ErrBadParameter, W(7), "1\0"s},
      {tBOOL, "TRUE", ErrBadParameter, W(7), "1\0"s},
      {tBOOL, " 1", ErrBadParameter, W(7), "1\0"s},
      {tBOOL, "", ErrBadParameter, W(7), "1\0"s},
      {tBOOL, "-1", ErrBadParameter, W(7), "1\0"s},
      {tBOOL, "2", ResultOk, W(2), "1\0"s},
      {tBOOL, "010", ResultOk, W(8), "1\0"s},
      {tBOOL, "0x10", ResultOk, W(16), "1\0"s},
      {tBOOL, "7abc", ResultOk, W(7), "1\0"s},
      {tBOOL, "4294967297", ResultOk, W(1), "1\0"s},  // truncated to 32 bits
  });
}

TEST_F(ValueTextTest, CharacterVoidAndCodeAddress) {
  Run("q", {
      {tCHAR, "a", ResultOk, "a", "a"},
      {tCHAR, "xyz", ResultOk, "x", "x"},
      {tCHAR, "", ResultOk, "\0"s, "\0"s},
      {tCHAR, "q", ResultOk, "q", "q"},  // never ValueUnchanged
  });
  Run(Le(7, 8), {
      {tFUNC_PTR, "123", ResultOk, Le(7, 8), ""},  // reads back as it was
      {tVOID, "123", ResultOk, "", ""},
  });
}

TEST_F(ValueTextTest, StringText) {
  Run("old", {
      {tSTRING, "abc", ResultOk, "abc\0"s, "abc\0"s},
      {tSTRING, "old", ValueUnchanged, "old\0"s, "old\0"s},
      {tSTRING, "", ResultOk, "", ""},
      {tSTRING, "caf\xC3\xA9", ResultOk, "caf\xC3\xA9\0"s, "caf\xC3\xA9\0"s},
  });
}

// Raw little-endian units in hexadecimal; odd or malformed text empties the
// string and still succeeds.
TEST_F(ValueTextTest, WideStringHexadecimalRule) {
  Run(Wide(L"old"), {
      {tWSTRING, "41000000", ResultOk, Wide(L"A"), "A\0"s},
      {tWSTRING, "e4000000", ResultOk, Wide(L"\u00e4"), "\xC3\xA4\0"s},
      {tWSTRING, "6F0000006C00000064000000", ResultOk, Wide(L"old"), "old\0"s},  // never ValueUnchanged
      {tWSTRING, "4100", ResultOk, Wide(L"A"), "A\0"s},  // a partial unit is zero-padded
      {tWSTRING, "abc", ResultOk, "", ""},
      {tWSTRING, "410000ZZ", ResultOk, "", ""},
      {tWSTRING, "0x410000", ResultOk, "", ""},
      {tWSTRING, "", ResultOk, "", ""},
  });
}

TEST_F(ValueTextTest, BlockHexadecimalRule) {
  for (tag_TYPE_ID id : {tBINARY, tPTR}) {
    // The count has room for a NUL that is never written ('~').
    Run("\x01\x02", {
        {id, "00AB", ResultOk, "\x00\xAB"s, "00AB~"},
        {id, "00ab", ResultOk, "\x00\xAB"s, "00AB~"},
        {id, "", ResultOk, "", "~"},
        {id, "0A1", ErrBadParameter, "\x01\x02", "0102~"},
        {id, "zz", ErrBadParameter, "\x01\x02", "0102~"},
        {id, "+1", ErrBadParameter, "\x01\x02", "0102~"},
        {id, "0x", ErrBadParameter, "\x01\x02", "0102~"},
    });
  }
  iValue* value = Make(tBINARY);
  ASSERT_EQ(value->SetData("\x00\xAB", 2), ResultOk);
  char buffer[4] = {'~', '~', '~', '~'};
  uint32_t count = 0;
  EXPECT_EQ(value->GetText(buffer, 4, &count), ErrBufferTooSmall);
  EXPECT_EQ(count, 5u);
  EXPECT_EQ(std::string(buffer, 4), "~~~~");
}

TEST_F(ValueTextTest, NullTextAndWideCharacter) {
  for (tag_TYPE_ID id : {tBYTE, tWORD, tDWORD, tQWORD, tBOOL, tCHAR, tSTRING, tWSTRING, tINT, tPTR, tSBYTE,
                         tSHORT, tLONG, tDATETIME, tDOUBLE, tBINARY}) {
    EXPECT_EQ(Make(id)->SetText(nullptr), ErrBadParameter) << id;
  }
  EXPECT_EQ(Make(tVOID)->SetText(nullptr), ResultOk);
  EXPECT_EQ(Make(tFUNC_PTR)->SetText(nullptr), ResultOk);

  iValue* wide = Make(tWCHAR);
  ASSERT_EQ(wide->SetData("A\0\0\0", 4), ResultOk);
  char buffer[8] = {};
  uint32_t count = 0xDEAD;
  EXPECT_EQ(wide->GetText(buffer, sizeof buffer, &count), ErrNotApplicable);
  EXPECT_EQ(wide->GetText(nullptr, 0, &count), ErrNotApplicable);
  EXPECT_EQ(wide->SetText("B"), ErrNotApplicable);
  EXPECT_EQ(Data(wide), "A\0\0\0"s);
}

// UTF-8 of wide strings: the count and the bytes written disagree on purpose
// for units above 0x10FFFF; the count stays the limit of what is written.
TEST_F(ValueTextTest, WideStringUtf8Text) {
  const struct {
    std::u32string units;
    std::string text;  // the count bytes, '~' where nothing was written
  } cases[] = {
      {U"A", "A\0"s},
      {U"\u00e4\u20ac\U0001F600", "\xC3\xA4\xE2\x82\xAC\xF0\x9F\x98\x80\0"s},
      {{0x7F, 0x80, 0x7FF, 0x800}, "\x7F\xC2\x80\xDF\xBF\xE0\xA0\x80\0"s},
      {{0xD800}, "\xED\xA0\x80\0"s},  // surrogates are encoded like any unit
      {{0x110000}, "?"},              // counted 0, written 1: no room for the NUL
      {{'A', 0x110000, 'B'}, "A?B"},
      {{0x110000, 0x110000, 'B', 'C'}, "??B"},
      {{0xFFFFFFFF}, "\xFF"},  // negative: its low byte
  };
  for (const auto& c : cases) {
    iValue* value = Make(tWSTRING);
    ASSERT_EQ(value->SetData(c.units.c_str(), static_cast<uint32_t>(4 * c.units.size())), ResultOk);
    EXPECT_EQ(Text(value), c.text);
  }
  iValue* unset = Make(tWSTRING);
  EXPECT_EQ(Text(unset), "");
  uint32_t count = 0xDEAD;
  EXPECT_EQ(unset->GetText(nullptr, 1, &count), ErrBadParameter);
  EXPECT_EQ(count, 0u);
  iValue* wide = Make(tWSTRING);
  ASSERT_EQ(wide->SetData(L"\u00e4", 4), ResultOk);
  char two[2] = {'~', '~'};
  EXPECT_EQ(wide->GetText(two, 2, &count), ErrBufferTooSmall);
  EXPECT_EQ(count, 3u);
  EXPECT_EQ(std::string(two, 2), "~~");
}

// SetText(GetText(v)) restores the native bytes for every kind with a text
// form, across boundary values.
TEST_F(ValueTextTest, RoundTripThroughText) {
  std::vector<std::pair<tag_TYPE_ID, std::string>> cases;
  auto add = [&](std::initializer_list<tag_TYPE_ID> ids, std::initializer_list<uint64_t> numbers) {
    for (tag_TYPE_ID id : ids) {
      for (uint64_t n : numbers) cases.push_back({id, Le(n, Width(id))});
    }
  };
  add({tBYTE, tSBYTE}, {0, 1, 0x7F, 0x80, 0xFF});
  add({tWORD, tSHORT}, {0, 0x7FFF, 0x8000, 0xFFFF});
  add({tDWORD, tUINT, tIID, tPID, tORIG_ID, tOS_ID, tVID, tPROPID, tVERSION, tCODEPAGE, tLCID, tTYPE_ID, tINT,
       tERROR_TYPE},
      {0, 305419896, 0x7FFFFFFF, 0x80000000, 0xFFFFFFFF});
  add({tQWORD, tDATA, tLONG, tLONGLONG, tDATETIME}, {0, 1, 0x7FFFFFFFFFFFFFFF, 0x8000000000000000, UINT64_MAX});
  add({tBOOL}, {0, 1});
  for (double d : {0.0, -0.0, 1.5, -2.25, 123456789.125, 9e247, -1e247, DBL_MAX / 1e61, (double)INFINITY,
                   -(double)INFINITY, std::nan(""), -std::nan("")}) {
    cases.push_back({tDOUBLE, DoubleBytes(d)});
  }
  for (char c : {'a', '\0', '\x80', '\xFF'}) cases.push_back({tCHAR, std::string(1, c)});
  for (const char* s : {"", "abc", "caf\xC3\xA9", "<&>\"'"}) cases.push_back({tSTRING, s});
  std::string all_bytes;
  for (int b = 0; b < 256; ++b) all_bytes += static_cast<char>(b);
  for (tag_TYPE_ID id : {tBINARY, tPTR}) {
    for (const std::string& b : {""s, "\x00"s, "\xFF"s, all_bytes}) cases.push_back({id, b});
  }
  cases.push_back({tVOID, ""});

  for (const auto& [id, bytes] : cases) {
    iValue* original = Make(id);
    ASSERT_GE(original->SetData(bytes.data(), static_cast<uint32_t>(bytes.size())), 0);
    const std::string text = TerminatedText(original);
    iValue* copy = Make(id);
    if (id == tBOOL || id == tDOUBLE) {
      ASSERT_EQ(copy->SetData("\x11\x11\x11\x11\x11\x11\x11\x11", 8), ResultOk);
    }
    EXPECT_GE(copy->SetText(text.c_str()), 0) << id << " '" << text << "'";
    EXPECT_EQ(Data(copy), Data(original)) << id << " '" << text << "'";
  }
}

// Wide strings leave as UTF-8 and come back decoded, as conversions do.
TEST_F(ValueTextTest, WideStringRoundTrips) {
  const std::u32string strings[] = {U"", U"A", U"\u00e4\u20ac\U0001F600", U"\x7F\x80\u07FF\u0800\uFFFF\U00010000\U0010FFFF",
                                    {0xD800, 'x'}};
  for (const std::u32string& s : strings) {
    iValue* original = Make(tWSTRING);
    ASSERT_EQ(original->SetData(s.c_str(), static_cast<uint32_t>(4 * s.size())), ResultOk);
    const std::string utf8 = TerminatedText(original);
    std::vector<uint32_t> units(utf8.size() + 1);
    const size_t n = Utf8Decode(utf8.data(), utf8.size(), units.data());
    iValue* decoded = Make(tWSTRING);
    ASSERT_EQ(decoded->SetData(units.data(), static_cast<uint32_t>(4 * n)), ResultOk);
    EXPECT_EQ(Data(decoded), Data(original));
  }
}

using ValueTextDeathTest = ValueTextTest;

// Number texts live in a 256-byte work buffer: 255 characters fit, more stop
// the process rather than store a cut number.
TEST_F(ValueTextDeathTest, DoubleTextBeyond255CharactersStopsTheProcess) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  for (double d : {9e247, -1e247}) {
    iValue* value = Make(tDOUBLE);
    ASSERT_EQ(value->SetData(DoubleBytes(d).data(), 8), ResultOk);
    EXPECT_EQ(Text(value).size(), 255u) << d;
  }
  for (double d : {1e248, -2e247, DBL_MAX, -DBL_MAX}) {
    iValue* value = Make(tDOUBLE);
    ASSERT_EQ(value->SetData(DoubleBytes(d).data(), 8), ResultOk);
    char buffer[400];
    uint32_t count = 0;
    EXPECT_DEATH((void)value->GetText(buffer, sizeof buffer, &count), "") << d;
    EXPECT_DEATH((void)value->GetText(nullptr, 0, &count), "") << d;
  }
}

}  // namespace
}  // namespace propmap
