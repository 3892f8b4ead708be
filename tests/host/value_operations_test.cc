// Reading and writing values through iRegistry beyond what the store model
// checks (reads in the stored type or type 0): the output protocol, the raw
// exchange of size-matched binary blocks, wide and string-object forms,
// creation, and conversions between types.
#include "registry_support.h"

namespace prhost::testing {
namespace {

using ValueOperationsTest = HostTest;

const Bytes kOne = BytesOf(uint32_t{1});

// Reads by name and by index and value names follow the output protocol, each
// with its one line; names compare without case; past the last value a name
// read gives no text and no error.
const Row kReadRows[] = {
    {nullptr, nullptr, OP((o.type = tDWORD, r.GetValue(&o.size, 0, "beta", &o.type, nullptr, 0))), kOk, "#4"},
    {nullptr, nullptr, OP((o.type = tDWORD, r.GetValue(&o.size, 0, "Beta", &o.type, nullptr, 4))), kErrBadParameter, "#4"},
    {nullptr, nullptr, OP((o.type = tDWORD, r.GetValue(&o.size, 0, "Beta", &o.type, o.text, 3))), kErrBufferTooSmall, "#4"},
    {nullptr, nullptr, OP((o.type = tSTRING, r.GetValue(&o.size, 0, "Beta", &o.type, o.text, 8))), kOk, "#2 1\\0"},
    {nullptr, nullptr, OP((o.type = tDWORD, r.GetValue(&o.size, 0, "other", &o.type, o.text, 4))), kErrNotFound, ""},
    {nullptr, nullptr, OP(r.GetValue(nullptr, 0, "Beta", nullptr, o.text, 4)), kErrBadParameter, ""},
    {nullptr, nullptr, OP((o.type = 0, r.GetValueByIndex(&o.size, 0, 1, &o.type, o.text, 8))), kOk, "#4 abc\\0"},
    {nullptr, nullptr, OP((o.type = tDWORD, r.GetValueByIndex(&o.size, 0, 2, &o.type, o.text, 4))), kErrNotFound, ""},
    {nullptr, nullptr, OP(r.GetValueNameByIndex(&o.size, 0, 1, o.text, 5)), kErrBufferTooSmall, "#6"},
    {nullptr, nullptr, OP(r.GetValueNameByIndex(&o.size, 0, 2, o.text, 8)), kOk, "#0"},
    {nullptr, nullptr, OP(r.GetValueNameByIndex(&o.size, 0, 1, o.text, 6)), kOk, "#6 alpha\\0"},
};
TEST_F(ValueOperationsTest, ReadsAndNamesFollowTheOutputProtocolAndWriteTheirLine) {
  Store& s = OpenStore();
  Seed(s.registry(), {{"Beta", tDWORD, kOne}, {"alpha", tSTRING, Text("abc")}});
  CheckRows(s, kReadRows);
}

// A tBINARY value whose stored size equals the caller's size is exchanged as
// raw bytes, whatever type the caller named; any other size converts.
TEST_F(ValueOperationsTest, SizeMatchedBinaryIsExchangedRaw) {
  Registry r = OpenStore().registry();
  const Bytes stored{0x01, 0x02, 0x03, 0x04};
  Seed(r, {{"b", tBINARY, stored}});
  const std::tuple<TypeId, uint32_t, Bytes> reads[] = {
      {tDWORD, 4, stored},
      {tSTRING, 4, stored},
      {tDWORD, 8, BytesOf(uint32_t{1020304})},  // text "01020304" read in decimal
      {tSTRING, 16, Text("01020304")},
  };
  for (const auto& [type, buffer_size, expected] : reads) {
    ReadResult got = ReadAs(r, 0, "b", type, buffer_size);
    EXPECT_EQ(Rc{got.code}, Rc{kOk}) << type << " into " << buffer_size;
    EXPECT_EQ(got.type, type) << "a non-zero type is left as the caller gave it";
    EXPECT_EQ(got.bytes, expected) << type << " into " << buffer_size;
  }
  const std::tuple<TypeId, Bytes, Bytes> writes[] = {
      {tDWORD, BytesOf(uint32_t{0x0A0B0C0D}), {0x0D, 0x0C, 0x0B, 0x0A}},  // 4 bytes land as they are
      {tSTRING, Text("0A0B"), {0x0A, 0x0B}},                              // 5 bytes are parsed
      {tSTRING, {'z', 0}, {'z', 0}},                                      // 2 bytes match the size now
  };
  for (const auto& [type, data, after] : writes) {
    EXPECT_EQ(Rc{Put(r, 0, "b", type, data)}, Rc{kOk});
    EXPECT_EQ(Stored(r, 0, "b").type, tBINARY);
    EXPECT_EQ(Stored(r, 0, "b").bytes, after);
  }
}

// Text read as a wide string is decoded from UTF-8 (a sequence cut short by
// the end becomes "?"); wide read as text is encoded; a stored wide string
// takes any other type's bytes as its raw units.
TEST_F(ValueOperationsTest, WideStringsCrossTheNarrowTextAsUtf8) {
  Registry r = OpenStore().registry();
  const std::pair<const char*, std::u32string> cases[] = {
      {"h\xC3\xA9", U"h\u00e9"}, {"\xF0\x9F\x98\x80", U"\U0001F600"}, {"a\xE2\x82", U"a?"}, {"a\xC3", U"a?"}};
  for (const auto& [text, wide] : cases) {
    Seed(r, {{"t", tSTRING, Text(text)}});
    ReadResult got = ReadAs(r, 0, "t", tWSTRING);
    EXPECT_EQ(Rc{got.code}, Rc{kOk}) << text;
    EXPECT_EQ(got.bytes, Wide(wide)) << text;
  }
  Seed(r, {{"w", tWSTRING, Wide(U"\u20ac\U0001F600")}});
  EXPECT_EQ(ReadAs(r, 0, "w", tSTRING).bytes, Text("\xE2\x82\xAC\xF0\x9F\x98\x80"));
  Seed(r, {{"w", tDWORD, BytesOf(uint32_t{'A'})}});
  EXPECT_EQ(Stored(r, 0, "w").bytes, Wide(U"A"));
  Seed(r, {{"w", tSTRING, Text("AB")}});
  EXPECT_EQ(Stored(r, 0, "w").bytes, Wide(U"\x4241"));
}

TEST_F(ValueOperationsTest, StringObjectsTakeCountCharactersAndComeFromTheStoreHeap) {
  Store& s = OpenStore();
  Registry r = s.registry();
  Seed(r, {{"n", tDWORD, kOne}, {"s", tSTRING, Text("old")}, {"w", tWSTRING, Wide(U"old")}});
  wchar_t digits[] = L"12345";
  wchar_t text[] = L"h\u00e9";
  const std::tuple<const char*, StringObject, Bytes> writes[] = {
      {"n", {digits, 2}, BytesOf(uint32_t{12})},
      {"s", {text, 2}, Text("h\xC3\xA9")},
      {"w", {digits, 3}, Wide(U"123")},
      {"s", {nullptr, 7}, Bytes{}},  // null characters: the empty text
  };
  for (const auto& [name, object, stored] : writes) {
    EXPECT_EQ(Rc{r.SetValue(0, name, tSTRING_OBJ, &object, 0, 0)}, Rc{kOk}) << name;
    EXPECT_EQ(Stored(r, 0, name).bytes, stored) << name;
  }
  EXPECT_EQ(Rc{r.SetValue(0, "n", tSTRING_OBJ, nullptr, 0, 0)}, Rc{kErrBadParameter});
  // More characters than a 32-bit byte count holds: refused before one is read.
  const StringObject huge{digits, (1u << 30) + 1};
  for (const char* name : {"s", "w"}) {
    const Bytes before = Stored(r, 0, name).bytes;
    EXPECT_EQ(Rc{r.SetValue(0, name, tSTRING_OBJ, &huge, 0, 0)}, Rc{kErrNoMemory}) << name;
    EXPECT_EQ(Stored(r, 0, name).bytes, before) << name;
  }
  // No value class exists for the string object itself, so it cannot be created.
  EXPECT_EQ(Rc{r.SetValue(0, "new", tSTRING_OBJ, &std::get<1>(writes[0]), 0, 1)}, Rc{kErrNoMemory});

  Seed(r, {{"s", tSTRING, Text("h\xC3\xA9!")}});
  StringObject object{nullptr, 0};
  uint32_t size = 99;
  TypeId type = tSTRING_OBJ;
  ASSERT_EQ(Rc{r.GetValue(&size, 0, "n", &type, &object, 0)}, Rc{kOk});
  EXPECT_EQ(size, 0u);
  ASSERT_TRUE(s.heap().Owns(object.chars));
  EXPECT_EQ(s.heap().BlockSize(object.chars), 3 * sizeof(wchar_t));
  EXPECT_EQ(std::wstring(object.chars, object.count + 1), std::wstring(L"12", 3));
  // A second read replaces the characters and frees the previous block.
  wchar_t* previous = object.chars;
  ASSERT_EQ(Rc{r.GetValue(&size, 0, "s", &type, &object, 0)}, Rc{kOk});
  EXPECT_FALSE(s.heap().Owns(previous));
  EXPECT_EQ(std::wstring(object.chars, object.count + 1), std::wstring(L"h\u00e9!", 4));
  EXPECT_EQ(Rc{s.heap().Release(object.chars)}, Rc{kOk});
  EXPECT_EQ(Rc{r.GetValue(&size, 0, "n", &type, nullptr, 0)}, Rc{kErrBadParameter});
}

TEST_F(ValueOperationsTest, SetsCreateOnlyWhenAskedAndOnlyAtTheEnd) {
  Registry r = OpenStore().registry();
  EXPECT_EQ(Rc{Put(r, 0, "First", tDWORD, kOne, 0)}, Rc{kErrNotFound});
  EXPECT_EQ(Rc{Put(r, 0, "First", tDWORD, BytesOf(uint32_t{2}), 1)}, Rc{kOk});
  EXPECT_EQ(Rc{Put(r, 0, "FIRST", tDWORD, kOne, 1)}, Rc{kOk}) << "existing name in other case";
  EXPECT_EQ(Rc{r.SetValueByIndex(0, 1, tDWORD, kOne.data(), 4, 0)}, Rc{kErrNotFound});
  EXPECT_EQ(Rc{r.SetValueByIndex(0, 2, tDWORD, kOne.data(), 4, 1)}, Rc{kErrBadParameter});
  EXPECT_EQ(Rc{r.SetValueByIndex(0, 1, tSTRING, Text("x").data(), 2, 1)}, Rc{kOk});
  EXPECT_EQ(Rc{Put(r, 0, "bad", 16, kOne, 1)}, Rc{kErrNoMemory}) << "no value class for the type";
  EXPECT_EQ(Rc{Put(r, 0, "bad", tDWORD, Bytes{1, 2}, 1)}, Rc{kErrBadParameter}) << "value refused the data";
  EXPECT_EQ(Dump(r), (std::vector<std::string>{"|First|4|01000000", "|noname1|9|7800"}));
}

// Reads and writes across types: the stored value's text form is parsed by a
// value of the other type. The text rules themselves are checked on the value
// classes (tests/unit/value_classes_test.cc); the rows here show each
// conversion path once: text out with the NUL added, first-byte and empty
// targets, kinds without a text form, refusals that keep the stored value, and
// the asymmetries a round trip through text produces.
struct ConversionCase {
  const char* label;
  TypeId stored_type;
  Bytes stored;
  TypeId type;  // requested (read) or written (write)
  Bytes data;   // write only: the caller's bytes
  tERROR code;
  Bytes expected;  // read: the bytes returned; write: the stored bytes after
};

const Bytes kDword = BytesOf(uint32_t{305419896});  // "305419896"
const Bytes kInt = BytesOf(int32_t{-5});              // "-5"
const Bytes kSeven = BytesOf(uint32_t{7});
const Bytes kWideA = BytesOf(uint32_t{'A'});

const ConversionCase kReads[] = {
    {"dword as string", tDWORD, kDword, tSTRING, {}, kOk, Text("305419896")},
    {"dword as bool: not normalised", tDWORD, kDword, tBOOL, {}, kOk, kDword},
    {"dword as char: first byte", tDWORD, kDword, tCHAR, {}, kOk, Bytes{'3'}},
    {"dword as code address: no text form", tDWORD, kDword, tFUNC_PTR, {}, kOk, BytesOf(uint64_t{0})},
    {"dword as classless type", tDWORD, kDword, 16, {}, kErrNoMemory, {}},
    {"int as qword: wraps", tINT, kInt, tQWORD, {}, kOk, BytesOf(uint64_t{18446744073709551611u})},
    {"int as dword: refused", tINT, kInt, tDWORD, {}, kErrBadParameter, {}},
    {"bool as dword: its text is 1", tBOOL, BytesOf(uint32_t{5}), tDWORD, {}, kOk, BytesOf(uint32_t{1})},
    {"double as bool: leading digits", tDOUBLE, BytesOf(1.5), tBOOL, {}, kOk, BytesOf(uint32_t{1})},
    {"binary as string: NUL added", tBINARY, Bytes{0x00, 0xAB}, tSTRING, {}, kOk, Text("00AB")},
    {"binary as dword: hexadecimal", tBINARY, Bytes{0x00, 0xAB}, tDWORD, {}, kOk, BytesOf(uint32_t{0xAB})},
    {"char as dword: NUL added", tCHAR, Bytes{'7'}, tDWORD, {}, kOk, kSeven},
    {"void as dword: empty text", tVOID, Bytes{}, tDWORD, {}, kOk, BytesOf(uint32_t{0})},
    {"wchar as string: no text form", tWCHAR, kWideA, tSTRING, {}, kErrNotApplicable, {}},
};

const ConversionCase kWrites[] = {
    {"string into dword", tDWORD, kSeven, tSTRING, Text("0x10"), kOk, BytesOf(uint32_t{16})},
    {"string into dword: refused", tDWORD, kSeven, tSTRING, Text("xyz"), kErrBadParameter, kSeven},
    {"bool into dword: normalised", tDWORD, kSeven, tBOOL, BytesOf(uint32_t{9}), kOk, BytesOf(uint32_t{1})},
    {"binary into dword: digits in decimal", tDWORD, kSeven, tBINARY, Bytes{0x12, 0x34}, kOk, BytesOf(uint32_t{1234})},
    {"dword into string", tSTRING, Text("old"), tDWORD, BytesOf(uint32_t{42}), kOk, Text("42")},
    {"wide into string: UTF-8", tSTRING, Text("old"), tWSTRING, Wide(U"h\u00e9"), kOk, Text("h\xC3\xA9")},
    {"void into string: empty", tSTRING, Text("old"), tVOID, Bytes{}, kOk, Bytes{}},
    {"string into double: nothing converted", tDOUBLE, BytesOf(2.5), tSTRING, Text("abc"), kOk, BytesOf(2.5)},
    {"classless type into dword", tDWORD, kSeven, 16, kSeven, kErrNoMemory, kSeven},
    {"string into wchar: no text form", tWCHAR, kWideA, tSTRING, Text("B"), kErrNotApplicable, kWideA},
    {"dword too short for its own type", tDWORD, kSeven, tDWORD, Bytes{1, 2}, kErrBadParameter, kSeven},
};

TEST_F(ValueOperationsTest, ReadsParseTheStoredTextAndWritesStoreTheCallersTextForm) {
  Registry r = OpenStore().registry();
  for (const ConversionCase& c : kReads) {
    (void)r.DeleteValue(0, "v");
    Seed(r, {{"v", c.stored_type, c.stored}});
    ReadResult got = ReadAs(r, 0, "v", c.type);
    EXPECT_EQ(Rc{got.code}, Rc{c.code}) << c.label;
    EXPECT_EQ(got.bytes, c.code == kOk ? c.expected : Bytes{}) << c.label;
    EXPECT_EQ(Stored(r, 0, "v").bytes, c.stored) << c.label << ": reading changes nothing";
  }
  for (const ConversionCase& c : kWrites) {
    (void)r.DeleteValue(0, "v");
    Seed(r, {{"v", c.stored_type, c.stored}});
    EXPECT_EQ(Rc{Put(r, 0, "v", c.type, c.data, 0)}, Rc{c.code}) << c.label;
    ReadResult after = Stored(r, 0, "v");
    EXPECT_EQ(after.type, c.stored_type) << c.label << ": the stored type never changes";
    EXPECT_EQ(after.bytes, c.expected) << c.label;
  }
}

}  // namespace
}  // namespace prhost::testing
