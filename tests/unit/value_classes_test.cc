// Value objects: the factory, native bytes (GetData/SetData), text forms
// (GetText/SetText) per storage kind, round trips through text, the guard of
// the number work buffer, the UTF-8 codec behind wide strings, and every
// allocation path under a failing or missing heap.
#include <gtest/gtest.h>

#include <bit>
#include <cfloat>
#include <climits>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <random>
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
size_t Width(tag_TYPE_ID id) {
  switch (id) {
    case tBYTE: case tSBYTE: case tCHAR: return 1;
    case tWORD: case tSHORT: return 2;
    case tQWORD: case tDATA: case tLONG: case tLONGLONG: case tDATETIME: case tFUNC_PTR: case tDOUBLE: return 8;
    default: return 4;
  }
}

// The `count` bytes GetData or GetText reports, '~' where nothing was
// written; checks that nothing lands past the count.
template <typename Get>
std::string Read(const iValue* value, Get get) {
  uint32_t count = 0xDEAD;
  EXPECT_EQ((value->*get)(nullptr, 0, &count), ResultOk);
  std::string buffer(count + 1, '~');
  uint32_t again = 0;
  EXPECT_EQ((value->*get)(buffer.data(), count, &again), ResultOk);
  EXPECT_EQ(again, count);
  EXPECT_EQ(buffer[count], '~') << "written past the count";
  buffer.resize(count);
  return buffer;
}
std::string Data(const iValue* value) { return Read(value, &iValue::GetData); }
std::string Text(const iValue* value) { return Read(value, &iValue::GetText); }

class ValueTest : public ::testing::Test {
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

const tag_TYPE_ID kAllClasses[] = {1,  2,  3,  4,  5,  6,  7,  8,  9,  10, 11, 12, 13, 14, 15, 17, 18,
                                   19, 20, 21, 22, 23, 24, 25, 26, 27, 28, 29, 30, 31, 32, 48, 54};

// Every class: the factory makes it (nothing for other numbers); a
// fixed-width class stores exactly its native width (a pattern fills every
// byte); setting equal content again reports ValueUnchanged, except for
// blocks (always a change) and tVOID (never one).
TEST_F(ValueTest, FactoryWidthAndRepeatedSetPerType) {
  for (tag_TYPE_ID id : kAllClasses) {
    iValue* value = Make(id);
    EXPECT_EQ(value->GetTypeId(), id);
    if (id == tBOOL) {
      ASSERT_EQ(value->SetData("\0\0\0\0", 4), ResultOk);
    }
    // Eight bytes, more than any fixed width needs (three for a string).
    const std::string bytes = id == tWSTRING ? Wide(L"x\u00e4") : "\x01\x02\x03\x04\x05\x06\x07\x08"s;
    const uint32_t size = id == tSTRING ? 3 : static_cast<uint32_t>(bytes.size());
    const bool variable = id == tVOID || id == tSTRING || id == tWSTRING || id == tPTR || id == tBINARY;
    EXPECT_EQ(value->SetData(bytes.data(), size), id == tVOID ? ValueUnchanged : ResultOk) << id;
    if (!variable) {
      EXPECT_EQ(Data(value), bytes.substr(0, Width(id))) << id;
    }
    EXPECT_EQ(value->SetData(bytes.data(), size), id == tBINARY || id == tPTR ? ResultOk : ValueUnchanged) << id;
  }
  for (tag_TYPE_ID id : {0u, 16u, 33u, 47u, 49u, 53u, 55u, 1000u}) EXPECT_EQ(CreateValue(heap_.host(), id), nullptr);
  iValue* number = Make(tDOUBLE);
  EXPECT_EQ(number->SetData(DoubleBytes(0.0).data(), 8), ValueUnchanged);
  EXPECT_EQ(number->SetData(DoubleBytes(-0.0).data(), 8), ResultOk);  // compared as words
}

// One SetText per row on a fresh value preset to the group's native bytes;
// numbers start at 7, which a refused text keeps (stored in the kind's width).
// Any non-zero boolean word reads "1" with its NUL inside the count. Wide
// strings take raw little-endian units in hexadecimal; odd or malformed text
// empties the string and still succeeds.
TEST_F(ValueTest, TextRulesPerKind) {
  auto N = [](tag_TYPE_ID id, int64_t n) { return Le(static_cast<uint64_t>(n), Width(id)); };
  auto W = [](uint32_t w) { return Le(w, 4); };
  const uint64_t ones = UINT64_MAX;
  const std::pair<std::string, std::vector<Row>> groups[] = {
      {Le(7, 8), {
      {tBYTE, "255", ResultOk, N(tBYTE, 255), "255"},
      {tBYTE, "256", ErrBadParameter, N(tBYTE, 7), "7"},
      {tPROPID, "4294967296", ErrBadParameter, N(tPROPID, 7), "7"},
      {tBYTE, "", ResultOk, N(tBYTE, 0), "0"},
      {tBYTE, "ff", ResultOk, N(tBYTE, 255), "255"},  // hexadecimal without a prefix
      {tBYTE, "9 ", ErrBadParameter, N(tBYTE, 7), "7"},
      {tBYTE, "-1", ErrBadParameter, N(tBYTE, 7), "7"},
      {tBYTE, "7", ResultOk, N(tBYTE, 7), "7"},  // never ValueUnchanged
      {tQWORD, "18446744073709551616", ResultOk, N(tQWORD, ones), "18446744073709551615"},  // decimal overflow
      {tQWORD, "ffffffffffffffff", ErrBadParameter, N(tQWORD, 7), "7"},  // hexadecimal all ones
      {tQWORD, "fffffffffffffffe", ResultOk, N(tQWORD, ones - 1), "18446744073709551614"},
      {tDATETIME, "0x0102030405060708", ResultOk, "\x08\x07\x06\x05\x04\x03\x02\x01", "72623859790382856"},
      {tINT, "-3000000000", ResultOk, N(tINT, 1294967296), "1294967296"},  // below the minimum: truncated
      {tINT, "7fffffff", ResultOk, N(tINT, INT_MAX), "2147483647"},
      {tINT, "0x80000000", ErrBadParameter, N(tINT, 7), "7"},
      {tERROR_TYPE, "-1", ResultOk, N(tERROR_TYPE, -1), "-1"},
      {tSBYTE, "-129", ResultOk, N(tSBYTE, 127), "127"},
      {tSBYTE, "-ff", ResultOk, N(tSBYTE, 1), "1"},  // -255 in hexadecimal, truncated
      {tLONG, "9223372036854775808", ResultOk, N(tLONG, LONG_MAX), "9223372036854775807"},
      {tLONG, "7fffffffffffffff", ErrBadParameter, N(tLONG, 7), "7"},
      {tLONG, "-0x8000000000000000", ErrBadParameter, N(tLONG, 7), "7"},  // exactly the minimum
      {tLONG, "7ffffffffffffffe", ResultOk, N(tLONG, LONG_MAX - 1), "9223372036854775806"},
      {tFUNC_PTR, "123", ResultOk, Le(7, 8), ""},  // reads back as it was
      {tVOID, "123", ResultOk, "", ""},
      }},
      {DoubleBytes(2.5), {
      {tDOUBLE, " 3.25xyz", ResultOk, DoubleBytes(3.25), "3.250000"},
      {tDOUBLE, "abc", ResultOk, DoubleBytes(2.5), "2.500000"},  // nothing converted: kept
      {tDOUBLE, "", ErrBadParameter, DoubleBytes(2.5), "2.500000"},
      {tDOUBLE, "0x10", ResultOk, DoubleBytes(16), "16.000000"},
      {tDOUBLE, "0.0000001", ResultOk, DoubleBytes(1e-7), "0.000000"},
      }},
      {W(7), {
      {tBOOL, "true junk", ResultOk, W(1), "1\0"s},
      {tBOOL, "false1", ErrBadParameter, W(7), "1\0"s},
      {tBOOL, "TRUE", ErrBadParameter, W(7), "1\0"s},
      {tBOOL, " 1", ErrBadParameter, W(7), "1\0"s},
      {tBOOL, "010", ResultOk, W(8), "1\0"s},
      {tBOOL, "7abc", ResultOk, W(7), "1\0"s},
      {tBOOL, "4294967297", ResultOk, W(1), "1\0"s},  // truncated to 32 bits
      }},
      {"q", {
      {tCHAR, "xyz", ResultOk, "x", "x"},
      {tCHAR, "", ResultOk, "\0"s, "\0"s},
      {tCHAR, "q", ResultOk, "q", "q"},  // never ValueUnchanged
      }},
      {"old", {
      {tSTRING, "abc", ResultOk, "abc\0"s, "abc\0"s},
      {tSTRING, "old", ValueUnchanged, "old\0"s, "old\0"s},
      }},
      {Wide(L"old"), {
      {tWSTRING, "e4000000", ResultOk, Wide(L"\u00e4"), "\xC3\xA4\0"s},
      {tWSTRING, "6F0000006C00000064000000", ResultOk, Wide(L"old"), "old\0"s},  // never ValueUnchanged
      {tWSTRING, "4100", ResultOk, Wide(L"A"), "A\0"s},  // a partial unit is zero-padded
      {tWSTRING, "abc", ResultOk, "", ""},
      {tWSTRING, "0x410000", ResultOk, "", ""},
      }},
  };
  for (const auto& [preset, rows] : groups) Run(preset, rows);
}

TEST_F(ValueTest, BlockHexadecimalRule) {
  for (tag_TYPE_ID id : {tBINARY, tPTR}) {
    // The count has room for a NUL that is never written ('~').
    Run("\x01\x02", {
        {id, "00aBfF", ResultOk, "\x00\xAB\xFF"s, "00ABFF~"},
        {id, "", ResultOk, "", "~"},
        {id, "0A1", ErrBadParameter, "\x01\x02", "0102~"},
        {id, "zz", ErrBadParameter, "\x01\x02", "0102~"},
        {id, "+1", ErrBadParameter, "\x01\x02", "0102~"},
        {id, "0g", ErrBadParameter, "\x01\x02", "0102~"},
        {id, " 1", ErrBadParameter, "\x01\x02", "0102~"},
        {id, "0x", ErrBadParameter, "\x01\x02", "0102~"},
    });
  }
}

// UTF-8 of wide strings: the count and the bytes written disagree on purpose
// for units above 0x10FFFF; the count stays the limit of what is written.
TEST_F(ValueTest, WideStringUtf8Text) {
  const struct {
    std::u32string units;
    std::string text;  // the count bytes, '~' where nothing was written
  } cases[] = {
      {U"\u00e4\u20ac\U0001F600", "\xC3\xA4\xE2\x82\xAC\xF0\x9F\x98\x80\0"s},
      {{0x7F, 0x80, 0x7FF, 0x800}, "\x7F\xC2\x80\xDF\xBF\xE0\xA0\x80\0"s},
      {{0xD800}, "\xED\xA0\x80\0"s},  // surrogates are encoded like any unit
      {{0x110000}, "?"},              // counted 0, written 1: no room for the NUL
      {{0x110000, 0x110000, 'B', 'C'}, "??B"},
      {{0xFFFFFFFF}, "\xFF"},  // negative: its low byte
  };
  for (const auto& c : cases) {
    iValue* value = Make(tWSTRING);
    ASSERT_EQ(value->SetData(c.units.c_str(), static_cast<uint32_t>(4 * c.units.size())), ResultOk);
    EXPECT_EQ(Text(value), c.text);
  }
}

// Number texts live in a 256-byte work buffer: 255 characters fit; a longer
// double has no text form (refused, never cut or fatal).
TEST_F(ValueTest, DoubleTextBeyond255CharactersIsRefused) {
  for (double d : {9e247, -1e247}) {
    iValue* value = Make(tDOUBLE);
    ASSERT_EQ(value->SetData(DoubleBytes(d).data(), 8), ResultOk);
    EXPECT_EQ(Text(value).size(), 255u) << d;
  }
  for (double d : {1e248, -2e247, DBL_MAX}) {
    iValue* value = Make(tDOUBLE);
    ASSERT_EQ(value->SetData(DoubleBytes(d).data(), 8), ResultOk);
    char buffer[400] = "x";
    uint32_t count = 7;
    EXPECT_EQ(value->GetText(buffer, sizeof buffer, &count), ErrNotApplicable) << d;
    EXPECT_EQ(value->GetText(nullptr, 0, &count), ErrNotApplicable) << d;
    EXPECT_EQ(buffer[0], 'x');
  }
}

// Number texts take shortcuts past the C library; each must give exactly
// the bytes printf gives, ties and extremes included.
TEST_F(ValueTest, NumberTextsMatchPrintf) {
  auto printed = [](const char* format, auto number) {
    char text[512];
    std::snprintf(text, sizeof text, format, number);
    return std::string(text);
  };
  iValue* number = Make(tDOUBLE);
  auto text_of = [&](iValue* value, const std::string& bytes) {
    EXPECT_GE(value->SetData(bytes.data(), static_cast<uint32_t>(bytes.size())), 0);
    return Text(value);
  };
  const double table[] = {0.0, -0.0, 0.0078125, -0.0078125, 0.5e-6, 2.5e-6, 1.0 / 3, 123456.1234565, 1e15 + 0.5,
                          -1e-7, 1e247, -1e246, DBL_MIN, INFINITY, -INFINITY, NAN, -NAN};
  for (double d : table) {
    EXPECT_EQ(text_of(number, DoubleBytes(d)), printed("%lf", d)) << d;
  }
  std::mt19937_64 random(7);
  for (int i = 0; i < 20000; ++i) {  // magnitudes 2^-323 .. 2^376
    const uint64_t bits = (random() & ~(uint64_t{0x7FF} << 52)) | (uint64_t{700 + random() % 700} << 52);
    ASSERT_EQ(text_of(number, Le(bits, 8)), printed("%lf", std::bit_cast<double>(bits)));
  }
  for (uint64_t n : {uint64_t{0}, uint64_t{7}, uint64_t{4294967295u}, UINT64_MAX}) {
    EXPECT_EQ(text_of(Make(tQWORD), Le(n, 8)), printed("%llu", n));
    EXPECT_EQ(text_of(Make(tLONG), Le(n, 8)), printed("%lli", static_cast<int64_t>(n)));
  }
  for (int64_t n : {INT64_MIN, INT64_MAX}) EXPECT_EQ(text_of(Make(tLONG), Le(n, 8)), printed("%lli", n));
}

// The codec on its own: decoding counted input (no terminator to lean on).
TEST(Utf8Test, DecodeSequencesAndEveryCodePoint) {
  const uint32_t q = '?';
  const struct {
    std::string text;
    std::vector<uint32_t> units;
  } cases[] = {
      {"\xF4\x8F\xBF\xBF", {0x10FFFF}},
      {"A\xF0\x9F\x98", {'A', q}},         // cut short by the end
      {"\xE2\x82" "A\xC3\xA4", {q, 'A', 0xE4}},  // cut short by a non-continuation byte
      {"\x80", {q}},                       // stray continuation byte
      {"\xC0\x80", {0}},                   // shape only, no validation
  };
  for (const auto& c : cases) {
    std::vector<char> exact(c.text.begin(), c.text.end());
    std::vector<uint32_t> out(exact.size());
    out.resize(Utf8Decode(exact.data(), exact.size(), out.data()));
    EXPECT_EQ(out, c.units) << c.text;
  }
  uint32_t out[2] = {7, 7};
  EXPECT_EQ(Utf8Decode("\xC3\xA4", 1, out), 1u);
  EXPECT_EQ(out[0], q);
  EXPECT_EQ(out[1], 7u);
  // Every scalar value and surrogate survives encode then decode, and the
  // byte count agrees with what is written inside the valid range.
  for (uint32_t cp = 0; cp <= 0x10FFFF; ++cp) {
    const wchar_t unit = static_cast<wchar_t>(cp);
    char bytes[4];
    const size_t written = Utf8EncodeWide(&unit, 1, bytes, sizeof bytes);
    ASSERT_EQ(written, Utf8CountWide(&unit, 1)) << cp;
    uint32_t back[4];
    ASSERT_EQ(Utf8Decode(bytes, written, back), 1u) << cp;
    ASSERT_EQ(back[0], cp);
  }
}

}  // namespace
}  // namespace propmap
