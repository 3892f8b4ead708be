// Reads and writes across types: the stored value's text form is parsed by a
// value of the other type. Every expectation below follows from the text
// forms of the two types (printf forms out; the unsigned, signed, double,
// boolean and hexadecimal rules in), worked out by hand.
//
// Also the allocation-failure sweeps of these paths: every failed attempt
// returns a code and leaves the stored value as it was; the fixture's
// teardown checks that nothing leaked.
#include <functional>
#include <limits>

#include "value_test_support.h"

namespace prhost::testing {
namespace {

inline constexpr uint64_t kAllOnes = std::numeric_limits<uint64_t>::max();

struct ConversionCase {
  const char* label;
  TypeId stored_type;
  Bytes stored;
  TypeId type;     // requested (read) or written (write)
  Bytes data;      // write only: the caller's bytes
  tERROR code;
  Bytes expected;  // read: the bytes returned; write: the stored bytes after
};

// Stored contents used by the read table, with their text forms.
const Bytes kDword = BytesOf(uint32_t{305419896});  // "305419896"
const Bytes kInt = BytesOf(int32_t{-5});              // "-5"
const Bytes kBool = BytesOf(uint32_t{5});             // "1"
const Bytes kDouble = BytesOf(1.5);                   // "1.500000"
const Bytes kQword = BytesOf(kAllOnes);               // "18446744073709551615"
const Bytes kBlock{0x00, 0xAB};                       // "00AB"

const ConversionCase kReads[] = {
    // Unsigned 32-bit source.
    {"dword as string", tDWORD, kDword, tSTRING, {}, kOk, Text("305419896")},
    {"dword as wide", tDWORD, kDword, tWSTRING, {}, kOk, Wide(U"305419896")},
    {"dword as byte: above 255", tDWORD, kDword, tBYTE, {}, kErrBadParameter, {}},
    {"dword as word: above 65535", tDWORD, kDword, tWORD, {}, kErrBadParameter, {}},
    {"dword as qword", tDWORD, kDword, tQWORD, {}, kOk, BytesOf(uint64_t{305419896})},
    {"dword as int", tDWORD, kDword, tINT, {}, kOk, BytesOf(int32_t{305419896})},
    {"dword as double", tDWORD, kDword, tDOUBLE, {}, kOk, BytesOf(305419896.0)},
    {"dword as bool: not normalised", tDWORD, kDword, tBOOL, {}, kOk, BytesOf(uint32_t{305419896})},
    {"dword as char: first byte", tDWORD, kDword, tCHAR, {}, kOk, Bytes{'3'}},
    {"dword as binary: odd digits", tDWORD, kDword, tBINARY, {}, kErrBadParameter, {}},
    {"dword as ptr: odd digits", tDWORD, kDword, tPTR, {}, kErrBadParameter, {}},
    {"dword as datetime", tDWORD, kDword, tDATETIME, {}, kOk, BytesOf(uint64_t{305419896})},
    {"dword as void", tDWORD, kDword, tVOID, {}, kOk, Bytes{}},
    {"dword as code address: no text form", tDWORD, kDword, tFUNC_PTR, {}, kOk, BytesOf(uint64_t{0})},
    {"dword as wchar: no text form", tDWORD, kDword, tWCHAR, {}, kErrNotApplicable, {}},
    {"dword as unnamed type", tDWORD, kDword, 16, {}, kErrNoMemory, {}},
    {"dword as classless type", tDWORD, kDword, 55, {}, kErrNoMemory, {}},
    // Signed source: a minus sign wraps for the unsigned kinds.
    {"int as string", tINT, kInt, tSTRING, {}, kOk, Text("-5")},
    {"int as dword: wraps above the maximum", tINT, kInt, tDWORD, {}, kErrBadParameter, {}},
    {"int as qword: wraps", tINT, kInt, tQWORD, {}, kOk, BytesOf(uint64_t{18446744073709551611u})},
    {"int as long", tINT, kInt, tLONG, {}, kOk, BytesOf(int64_t{-5})},
    {"int as sbyte", tINT, kInt, tSBYTE, {}, kOk, Bytes{0xFB}},
    {"int as double", tINT, kInt, tDOUBLE, {}, kOk, BytesOf(-5.0)},
    {"int as bool: no leading digit", tINT, kInt, tBOOL, {}, kErrBadParameter, {}},
    // Boolean and double sources.
    {"bool as dword", tBOOL, kBool, tDWORD, {}, kOk, BytesOf(uint32_t{1})},
    {"bool as string", tBOOL, kBool, tSTRING, {}, kOk, Text("1")},
    {"double as string", tDOUBLE, kDouble, tSTRING, {}, kOk, Text("1.500000")},
    {"double as dword: not a whole number", tDOUBLE, kDouble, tDWORD, {}, kErrBadParameter, {}},
    {"double as int", tDOUBLE, kDouble, tINT, {}, kErrBadParameter, {}},
    {"double as bool: leading digits", tDOUBLE, kDouble, tBOOL, {}, kOk, BytesOf(uint32_t{1})},
    // 64-bit extremes.
    {"qword as string", tQWORD, kQword, tSTRING, {}, kOk, Text("18446744073709551615")},
    {"qword as dword", tQWORD, kQword, tDWORD, {}, kErrBadParameter, {}},
    {"qword as long: decimal overflow taken", tQWORD, kQword, tLONG, {}, kOk,
     BytesOf(std::numeric_limits<int64_t>::max())},
    // Block source: hexadecimal digits without a NUL of their own.
    {"binary as string", tBINARY, kBlock, tSTRING, {}, kOk, Text("00AB")},
    {"binary as wide", tBINARY, kBlock, tWSTRING, {}, kOk, Wide(U"00AB")},
    {"binary as dword: hexadecimal", tBINARY, kBlock, tDWORD, {}, kOk, BytesOf(uint32_t{0xAB})},
    {"binary as bool: octal prefix", tBINARY, kBlock, tBOOL, {}, kOk, BytesOf(uint32_t{0})},
    // String sources.
    {"string as dword: hexadecimal", tSTRING, Text("ff"), tDWORD, {}, kOk, BytesOf(uint32_t{255})},
    {"string as byte", tSTRING, Text("ff"), tBYTE, {}, kOk, Bytes{0xFF}},
    {"string as int: hexadecimal", tSTRING, Text("ff"), tINT, {}, kOk, BytesOf(int32_t{255})},
    {"string as binary", tSTRING, Text("ff"), tBINARY, {}, kOk, Bytes{0xFF}},
    {"string as bool: no digit", tSTRING, Text("ff"), tBOOL, {}, kErrBadParameter, {}},
    {"string as double: nothing converted", tSTRING, Text("ff"), tDOUBLE, {}, kOk, BytesOf(0.0)},
    {"string as binary: two bytes", tSTRING, Text("00AB"), tBINARY, {}, kOk, kBlock},
    {"string as binary: odd", tSTRING, Text("abc"), tBINARY, {}, kErrBadParameter, {}},
    {"string as binary: not hex", tSTRING, Text("zz"), tBINARY, {}, kErrBadParameter, {}},
    {"string as word: 0x prefix", tSTRING, Text("0x1F"), tWORD, {}, kOk, BytesOf(uint16_t{31})},
    {"string as dword: leading blank", tSTRING, Text(" 7"), tDWORD, {}, kOk, BytesOf(uint32_t{7})},
    {"string as dword: trailing blank", tSTRING, Text("7 "), tDWORD, {}, kErrBadParameter, {}},
    {"string as dword: empty", tSTRING, Text(""), tDWORD, {}, kOk, BytesOf(uint32_t{0})},
    {"string as double: empty", tSTRING, Text(""), tDOUBLE, {}, kErrBadParameter, {}},
    {"string as bool: empty", tSTRING, Text(""), tBOOL, {}, kErrBadParameter, {}},
    {"string as bool: true", tSTRING, Text(" true"), tBOOL, {}, kOk, BytesOf(uint32_t{1})},
    {"string as bool: TRUE", tSTRING, Text("TRUE"), tBOOL, {}, kErrBadParameter, {}},
    {"string as bool: octal", tSTRING, Text("010"), tBOOL, {}, kOk, BytesOf(uint32_t{8})},
    {"string as byte: minus one", tSTRING, Text("-1"), tBYTE, {}, kErrBadParameter, {}},
    {"string as qword: minus one", tSTRING, Text("-1"), tQWORD, {}, kOk, BytesOf(kAllOnes)},
    {"string as qword: decimal overflow", tSTRING, Text("18446744073709551616"), tQWORD, {}, kOk,
     BytesOf(kAllOnes)},
    {"string as qword: hexadecimal overflow", tSTRING, Text("1FFFFFFFFFFFFFFFF"), tQWORD, {}, kErrBadParameter, {}},
    {"string as int: below the minimum wraps", tSTRING, Text("-3000000000"), tINT, {}, kOk,
     BytesOf(int32_t{1294967296})},
    {"string as int: above the maximum", tSTRING, Text("2147483648"), tINT, {}, kErrBadParameter, {}},
    {"string as sbyte: below the minimum wraps", tSTRING, Text("-129"), tSBYTE, {}, kOk, Bytes{0x7F}},
    {"string as short", tSTRING, Text("-129"), tSHORT, {}, kOk, BytesOf(int16_t{-129})},
    {"string as sbyte: above the maximum", tSTRING, Text("200"), tSBYTE, {}, kErrBadParameter, {}},
    {"string as double", tSTRING, Text("2.25"), tDOUBLE, {}, kOk, BytesOf(2.25)},
    {"string as char", tSTRING, Text("42"), tCHAR, {}, kOk, Bytes{'4'}},
    // Kinds without a usable text.
    {"char as dword", tCHAR, Bytes{'7'}, tDWORD, {}, kOk, BytesOf(uint32_t{7})},
    {"void as dword: empty text", tVOID, Bytes{}, tDWORD, {}, kOk, BytesOf(uint32_t{0})},
    {"wchar as string: no text form", tWCHAR, BytesOf(uint32_t{'A'}), tSTRING, {}, kErrNotApplicable, {}},
};

const ConversionCase kWrites[] = {
    {"string into dword: 0x prefix", tDWORD, BytesOf(uint32_t{7}), tSTRING, Text("0x10"), kOk,
     BytesOf(uint32_t{16})},
    {"string into dword: not a number", tDWORD, BytesOf(uint32_t{7}), tSTRING, Text("xyz"), kErrBadParameter,
     BytesOf(uint32_t{7})},
    {"double into dword", tDWORD, BytesOf(uint32_t{7}), tDOUBLE, BytesOf(2.5), kErrBadParameter,
     BytesOf(uint32_t{7})},
    {"bool into dword: normalised by its text", tDWORD, BytesOf(uint32_t{7}), tBOOL, BytesOf(uint32_t{9}), kOk,
     BytesOf(uint32_t{1})},
    {"binary into dword: its digits in decimal", tDWORD, BytesOf(uint32_t{7}), tBINARY, Bytes{0x12, 0x34}, kOk,
     BytesOf(uint32_t{1234})},
    {"int into dword: minus one", tDWORD, BytesOf(uint32_t{7}), tINT, BytesOf(int32_t{-1}), kErrBadParameter,
     BytesOf(uint32_t{7})},
    {"int into qword: minus one", tQWORD, BytesOf(uint64_t{0}), tINT, BytesOf(int32_t{-1}), kOk, BytesOf(kAllOnes)},
    {"dword into string", tSTRING, Text("old"), tDWORD, BytesOf(uint32_t{42}), kOk, Text("42")},
    {"double into string", tSTRING, Text("old"), tDOUBLE, BytesOf(1.5), kOk, Text("1.500000")},
    {"binary into string", tSTRING, Text("old"), tBINARY, Bytes{0xDE, 0xAD}, kOk, Text("DEAD")},
    {"bool into string", tSTRING, Text("old"), tBOOL, BytesOf(uint32_t{0}), kOk, Text("0")},
    {"char into string", tSTRING, Text("old"), tCHAR, Bytes{'q'}, kOk, Text("q")},
    {"wide into string: UTF-8", tSTRING, Text("old"), tWSTRING, Wide(U"h\u00e9"), kOk, Text("h\xC3\xA9")},
    {"void into string: empty", tSTRING, Text("old"), tVOID, Bytes{}, kOk, Bytes{}},
    {"string into binary: parsed", tBINARY, Bytes{1, 2, 3}, tSTRING, Text("0A0B"), kOk, Bytes{0x0A, 0x0B}},
    {"string into binary: size matches", tBINARY, Bytes{1, 2, 3}, tSTRING, Text("0A"), kOk, Bytes{'0', 'A', 0}},
    {"string into binary: odd", tBINARY, Bytes{1, 2, 3}, tSTRING, Text("0A1"), kErrBadParameter, Bytes{1, 2, 3}},
    {"string into bool: true", tBOOL, BytesOf(uint32_t{0}), tSTRING, Text("true"), kOk, BytesOf(uint32_t{1})},
    {"string into bool: TRUE", tBOOL, BytesOf(uint32_t{0}), tSTRING, Text("TRUE"), kErrBadParameter,
     BytesOf(uint32_t{0})},
    {"string into bool: leading blank", tBOOL, BytesOf(uint32_t{0}), tSTRING, Text(" 1"), kErrBadParameter,
     BytesOf(uint32_t{0})},
    {"string into bool: octal", tBOOL, BytesOf(uint32_t{0}), tSTRING, Text("010"), kOk, BytesOf(uint32_t{8})},
    {"string into int: wraps", tINT, BytesOf(int32_t{0}), tSTRING, Text("-3000000000"), kOk,
     BytesOf(int32_t{1294967296})},
    {"string into sbyte: wraps", tSBYTE, Bytes{0}, tSTRING, Text("-129"), kOk, Bytes{0x7F}},
    {"string into double: nothing converted", tDOUBLE, BytesOf(2.5), tSTRING, Text("abc"), kOk, BytesOf(2.5)},
    {"string into double: blanks", tDOUBLE, BytesOf(2.5), tSTRING, Text("  "), kErrBadParameter, BytesOf(2.5)},
    {"string into word: too large", tWORD, BytesOf(uint16_t{3}), tSTRING, Text("65536"), kErrBadParameter,
     BytesOf(uint16_t{3})},
    {"string into word: empty", tWORD, BytesOf(uint16_t{3}), tSTRING, Text(""), kOk, BytesOf(uint16_t{0})},
    {"string into datetime", tDATETIME, BytesOf(uint64_t{1}), tSTRING, Text("5"), kOk, BytesOf(uint64_t{5})},
    {"dword into char: first digit", tCHAR, Bytes{'a'}, tDWORD, BytesOf(uint32_t{66}), kOk, Bytes{'6'}},
    {"unnamed type into dword", tDWORD, BytesOf(uint32_t{7}), 16, BytesOf(uint32_t{1}), kErrNoMemory,
     BytesOf(uint32_t{7})},
    {"wchar into dword: no text form", tDWORD, BytesOf(uint32_t{7}), tWCHAR, BytesOf(uint32_t{'A'}),
     kErrNotApplicable, BytesOf(uint32_t{7})},
    {"string into wchar: no text form", tWCHAR, BytesOf(uint32_t{'A'}), tSTRING, Text("B"), kErrNotApplicable,
     BytesOf(uint32_t{'A'})},
    {"dword too short for its own type", tDWORD, BytesOf(uint32_t{7}), tDWORD, Bytes{1, 2}, kErrBadParameter,
     BytesOf(uint32_t{7})},
};

class ValueConversionTest : public HostTest {};

TEST_F(ValueConversionTest, ReadsParseTheStoredText) {
  Store& s = OpenStore();
  Registry r = s.registry();
  for (const ConversionCase& c : kReads) {
    SCOPED_TRACE(c.label);
    (void)r.DeleteValue(0, "v");
    ASSERT_EQ(Rc{Put(r, 0, "v", c.stored_type, c.stored)}, Rc{kOk});
    const ReadResult before = Stored(r, 0, "v");
    ReadResult got = ReadAs(r, 0, "v", c.type);
    EXPECT_EQ(Rc{got.code}, Rc{c.code});
    if (c.code == kOk) {
      EXPECT_EQ(got.bytes, c.expected);
      EXPECT_EQ(got.size, c.expected.size());
    }
    EXPECT_EQ(Stored(r, 0, "v").bytes, before.bytes) << "reading changes nothing";
  }
}

TEST_F(ValueConversionTest, WritesStoreTheCallersTextForm) {
  Store& s = OpenStore();
  Registry r = s.registry();
  for (const ConversionCase& c : kWrites) {
    SCOPED_TRACE(c.label);
    (void)r.DeleteValue(0, "v");
    ASSERT_EQ(Rc{Put(r, 0, "v", c.stored_type, c.stored)}, Rc{kOk});
    EXPECT_EQ(Rc{Put(r, 0, "v", c.type, c.data, 0)}, Rc{c.code});
    ReadResult after = Stored(r, 0, "v");
    EXPECT_EQ(after.type, c.stored_type) << "the stored type never changes";
    EXPECT_EQ(after.bytes, c.expected);
  }
}

// The allocation sweep: fail the n-th allocation for n = 1, 2, ... until the
// operation runs without an injected failure. Each failed attempt must
// report the failure and leave the store as `unchanged` checks.
void SweepAllocations(Store& s, const std::function<tERROR()>& operation, const std::function<void()>& unchanged) {
  StoreHeap& heap = s.heap();
  for (uint64_t n = 1;; ++n) {
    SCOPED_TRACE("failing allocation " + std::to_string(n));
    ASSERT_LT(n, 100u) << "the operation never completed";
    const uint64_t failures = heap.failures();
    heap.FailAt(n);
    const tERROR code = operation();
    heap.ClearFault();
    if (heap.failures() == failures) {
      EXPECT_EQ(Rc{code}, Rc{kOk});
      EXPECT_GT(n, 1u) << "the operation allocates nothing";
      return;
    }
    EXPECT_EQ(Rc{code}, Rc{kErrNoMemory});
    unchanged();
  }
}

struct SweepCase {
  const char* label;
  TypeId stored_type;
  Bytes stored;
  TypeId type;
  Bytes data;  // empty: a read; else a write of these bytes
  Bytes expected;
};

const SweepCase kSweeps[] = {
    {"read dword as string", tDWORD, BytesOf(uint32_t{4711}), tSTRING, {}, Text("4711")},
    {"read string as dword", tSTRING, Text("4711"), tDWORD, {}, BytesOf(uint32_t{4711})},
    {"read string as wide", tSTRING, Text("h\xC3\xA9"), tWSTRING, {}, Wide(U"h\u00e9")},
    {"read binary as string", tBINARY, Bytes{0xAB}, tSTRING, {}, Text("AB")},
    {"write string into dword", tDWORD, BytesOf(uint32_t{7}), tSTRING, Text("0x10"), BytesOf(uint32_t{16})},
    {"write dword into string", tSTRING, Text("old"), tDWORD, BytesOf(uint32_t{42}), Text("42")},
    {"write string into binary", tBINARY, Bytes{1, 2, 3}, tSTRING, Text("0A0B"), Bytes{0x0A, 0x0B}},
    {"write wide into string", tSTRING, Text("old"), tWSTRING, Wide(U"new"), Text("new")},
};

TEST_F(ValueConversionTest, AllocationFailuresLeaveTheValueAsItWas) {
  for (const SweepCase& c : kSweeps) {
    SCOPED_TRACE(c.label);
    Store& s = OpenStore();
    Registry r = s.registry();
    ASSERT_EQ(Rc{Put(r, 0, "v", c.stored_type, c.stored)}, Rc{kOk});
    auto unchanged = [&] { EXPECT_EQ(Stored(r, 0, "v").bytes, c.stored); };
    if (c.data.empty()) {
      ReadResult got;
      SweepAllocations(s, [&] { got = ReadAs(r, 0, "v", c.type); return got.code; }, unchanged);
      EXPECT_EQ(got.bytes, c.expected);
    } else {
      SweepAllocations(s, [&] { return Put(r, 0, "v", c.type, c.data, 0); }, unchanged);
      EXPECT_EQ(Stored(r, 0, "v").bytes, c.expected);
    }
  }
}

TEST_F(ValueConversionTest, AllocationFailuresInStringObjectsKeepBothSides) {
  Store& s = OpenStore();
  Registry r = s.registry();
  ASSERT_EQ(Rc{Put(r, 0, "n", tDWORD, BytesOf(uint32_t{4711}))}, Rc{kOk});
  ASSERT_EQ(Rc{Put(r, 0, "s", tSTRING, Text("old"))}, Rc{kOk});

  // Reading: the caller's object keeps its previous characters on failure.
  StringObject object{nullptr, 0};
  TypeId type = tSTRING_OBJ;
  uint32_t size = 0;
  ASSERT_EQ(Rc{r.GetValue(&size, 0, "s", &type, &object, 0)}, Rc{kOk});
  const wchar_t* first = object.chars;
  SweepAllocations(
      s, [&] { return r.GetValue(&size, 0, "n", &type, &object, 0); },
      [&] {
        EXPECT_EQ(object.chars, first);
        EXPECT_EQ(std::wstring(object.chars, object.count), L"old");
      });
  EXPECT_EQ(std::wstring(object.chars, object.count), L"4711");
  EXPECT_EQ(Rc{s.heap().Release(object.chars)}, Rc{kOk});

  // Writing into a value of another type.
  wchar_t text[] = L"new";
  StringObject input{text, 3};
  SweepAllocations(
      s, [&] { return r.SetValue(0, "s", tSTRING_OBJ, &input, 0, 0); },
      [&] { EXPECT_EQ(Stored(r, 0, "s").bytes, Text("old")); });
  EXPECT_EQ(Stored(r, 0, "s").bytes, Text("new"));
}

TEST_F(ValueConversionTest, AllocationFailuresWhileCreatingAddNothing) {
  Store& s = OpenStore();
  Registry r = s.registry();
  ASSERT_EQ(Rc{Put(r, 0, "first", tDWORD, BytesOf(uint32_t{1}))}, Rc{kOk});
  const std::string before = DumpKey(r, 0);
  SweepAllocations(
      s, [&] { return Put(r, 0, "second", tSTRING, Text("text")); },
      [&] { EXPECT_EQ(DumpKey(r, 0), before); });
  EXPECT_EQ(Stored(r, 0, "second").bytes, Text("text"));
}

}  // namespace
}  // namespace prhost::testing
