// Reading and writing values through iRegistry: lookups, the stored-type
// write-back, the raw exchange of size-matched binary blocks, wide and
// string-object forms, creation, refusals, and the exact trace lines.
#include <cwchar>
#include <functional>

#include "value_test_support.h"

namespace prhost::testing {
namespace {

class ValueOperationsTest : public HostTest {
 protected:
  Store& Fresh() {
    Store& s = OpenStore();
    r_ = s.registry();
    return s;
  }
  Registry r_{nullptr};
};

struct NativeCase {
  const char* name;
  TypeId type;
  Bytes native;
};

const NativeCase kNative[] = {
    {"dword", tDWORD, BytesOf(uint32_t{305419896})},
    {"qword", tQWORD, BytesOf(uint64_t{0x1122334455667788})},
    {"bool", tBOOL, BytesOf(uint32_t{5})},
    {"double", tDOUBLE, BytesOf(2.5)},
    {"string", tSTRING, Text("hello")},
    {"wide", tWSTRING, Wide(U"h\u00e9")},
    {"binary", tBINARY, Bytes{0x00, 0xAB, 0xCD}},
    {"char", tCHAR, Bytes{'x'}},
};

TEST_F(ValueOperationsTest, TypeZeroReportsTheStoredTypeAndReadsTheNativeForm) {
  Fresh();
  for (const NativeCase& c : kNative) ASSERT_EQ(Rc{Put(r_, 0, c.name, c.type, c.native)}, Rc{kOk}) << c.name;
  for (uint32_t i = 0; i < std::size(kNative); ++i) {
    const NativeCase& c = kNative[i];
    SCOPED_TRACE(c.name);
    for (const ReadResult& got : {Stored(r_, 0, c.name), ReadByIndexAs(r_, 0, i, 0)}) {
      EXPECT_EQ(Rc{got.code}, Rc{kOk});
      EXPECT_EQ(got.type, c.type);
      EXPECT_EQ(got.size, c.native.size());
      EXPECT_EQ(got.bytes, c.native);
    }
    // Asking for the stored type by name gives the same bytes.
    EXPECT_EQ(ReadAs(r_, 0, c.name, c.type).bytes, c.native);
  }
}

TEST_F(ValueOperationsTest, SameTypeReadsFollowTheValuesOutputProtocol) {
  Fresh();
  ASSERT_EQ(Rc{Put(r_, 0, "d", tDWORD, BytesOf(uint32_t{7}))}, Rc{kOk});
  ASSERT_EQ(Rc{Put(r_, 0, "s", tSTRING, Text("abc"))}, Rc{kOk});
  struct Case {
    const char* name;
    TypeId type;
    bool with_buffer;
    uint32_t buffer_size;
    tERROR code;
    uint32_t size;
  } const cases[] = {
      {"d", tDWORD, false, 0, kOk, 4},       {"d", tDWORD, false, 4, kErrBadParameter, 4},
      {"d", tDWORD, true, 3, kErrBufferTooSmall, 4}, {"s", tSTRING, false, 0, kOk, 4},
      {"s", tSTRING, true, 3, kErrBufferTooSmall, 4}, {"s", tSTRING, true, 4, kOk, 4},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(std::string(c.name) + " buffer " + std::to_string(c.buffer_size));
    char buffer[8] = {};
    uint32_t size = 0;
    TypeId type = c.type;
    EXPECT_EQ(Rc{r_.GetValue(&size, 0, c.name, &type, c.with_buffer ? buffer : nullptr, c.buffer_size)},
              Rc{c.code});
    EXPECT_EQ(size, c.size);
  }
  // A null type argument is refused.
  uint32_t value = 0;
  EXPECT_EQ(Rc{r_.GetValue(nullptr, 0, "d", nullptr, &value, 4)}, Rc{kErrBadParameter});
}

TEST_F(ValueOperationsTest, MissingValuesAndKeysGiveTheirCodes) {
  Fresh();
  ASSERT_EQ(Rc{Put(r_, 0, "only", tDWORD, BytesOf(uint32_t{1}))}, Rc{kOk});
  EXPECT_EQ(Rc{ReadAs(r_, 0, "other", tDWORD).code}, Rc{kErrNotFound});
  EXPECT_EQ(Rc{ReadByIndexAs(r_, 0, 1, tDWORD).code}, Rc{kErrNotFound});
  EXPECT_EQ(Rc{ReadAs(r_, 0, "ONLY", tDWORD).code}, Rc{kOk}) << "names compare without case";

  Store& bare = OpenStore({.init = false});
  Registry r = bare.registry();
  EXPECT_EQ(Rc{ReadAs(r, 0, "only", tDWORD).code}, Rc{kErrInvalidHandle});
  EXPECT_EQ(Rc{ReadByIndexAs(r, 0, 0, tDWORD).code}, Rc{kErrInvalidHandle});
  uint32_t size = 99;
  char name[8];
  EXPECT_EQ(Rc{r.GetValueNameByIndex(&size, 0, 0, name, sizeof name)}, Rc{kErrInvalidHandle});
  EXPECT_EQ(size, 0u);
}

TEST_F(ValueOperationsTest, ValueNamesByIndexFollowTheTextOutConvention) {
  Fresh();
  ASSERT_EQ(Rc{Put(r_, 0, "Beta", tDWORD, BytesOf(uint32_t{1}))}, Rc{kOk});
  ASSERT_EQ(Rc{Put(r_, 0, "alpha", tDWORD, BytesOf(uint32_t{2}))}, Rc{kOk});
  struct Case {
    uint32_t index;
    bool with_buffer;
    uint32_t buffer_size;
    tERROR code;
    uint32_t size;
    const char* text;  // null: buffer untouched
  } const cases[] = {
      {0, true, 5, kOk, 5, "Beta"},
      {1, true, 6, kOk, 6, "alpha"},
      {1, true, 5, kErrBufferTooSmall, 6, nullptr},
      {1, false, 0, kOk, 6, nullptr},
      {1, false, 6, kErrBadParameter, 6, nullptr},
      {2, true, 8, kOk, 0, nullptr},  // past the last value: no text, no error
      {2, false, 8, kErrBadParameter, 0, nullptr},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE("index " + std::to_string(c.index) + " buffer " + std::to_string(c.buffer_size));
    char buffer[8];
    std::memset(buffer, '#', sizeof buffer);
    uint32_t size = 99;
    EXPECT_EQ(Rc{r_.GetValueNameByIndex(&size, 0, c.index, c.with_buffer ? buffer : nullptr, c.buffer_size)},
              Rc{c.code});
    EXPECT_EQ(size, c.size);
    if (c.text != nullptr) {
      EXPECT_STREQ(buffer, c.text);
    } else {
      EXPECT_EQ(buffer[0], '#');
    }
  }
}

// A tBINARY value whose stored size equals the caller's size is exchanged as
// raw bytes, whatever type the caller named; any other size converts.
TEST_F(ValueOperationsTest, SizeMatchedBinaryIsExchangedRaw) {
  Fresh();
  const Bytes stored{0x01, 0x02, 0x03, 0x04};
  ASSERT_EQ(Rc{Put(r_, 0, "b", tBINARY, stored)}, Rc{kOk});
  struct Case {
    TypeId type;
    uint32_t buffer_size;
    Bytes expected;
  } const reads[] = {
      {tDWORD, 4, stored},
      {tSTRING, 4, stored},
      {tDWORD, 8, BytesOf(uint32_t{1020304})},  // text "01020304" read in decimal
      {tSTRING, 16, Text("01020304")},
  };
  for (const Case& c : reads) {
    SCOPED_TRACE("type " + std::to_string(c.type) + " buffer " + std::to_string(c.buffer_size));
    ReadResult got = ReadAs(r_, 0, "b", c.type, c.buffer_size);
    EXPECT_EQ(Rc{got.code}, Rc{kOk});
    EXPECT_EQ(got.type, c.type) << "a non-zero type is left as the caller gave it";
    EXPECT_EQ(got.bytes, c.expected);
  }

  // Writing: 4 bytes of a dword land as they are; a 5-byte text is parsed.
  ASSERT_EQ(Rc{Put(r_, 0, "b", tDWORD, BytesOf(uint32_t{0x0A0B0C0D}))}, Rc{kOk});
  EXPECT_EQ(Stored(r_, 0, "b").bytes, (Bytes{0x0D, 0x0C, 0x0B, 0x0A}));
  ASSERT_EQ(Rc{Put(r_, 0, "b", tSTRING, Text("0A0B"))}, Rc{kOk});
  EXPECT_EQ(Stored(r_, 0, "b").bytes, (Bytes{0x0A, 0x0B}));
  ASSERT_EQ(Rc{Put(r_, 0, "b", tSTRING, Bytes{'z', 0})}, Rc{kOk});
  EXPECT_EQ(Stored(r_, 0, "b").bytes, (Bytes{'z', 0})) << "2 bytes match the stored size now";
  EXPECT_EQ(Stored(r_, 0, "b").type, tBINARY);
}

// Text read as a wide string is decoded from UTF-8; a sequence cut short by
// the end of the text becomes "?".
TEST_F(ValueOperationsTest, TextReadAsWideIsDecodedFromUtf8) {
  Fresh();
  struct Case {
    const char* text;
    std::u32string wide;
  } const cases[] = {
      {"plain", U"plain"},
      {"h\xC3\xA9", U"h\u00e9"},
      {"\xE2\x82\xAC!", U"\u20ac!"},
      {"\xF0\x9F\x98\x80", U"\U0001F600"},
      {"a\xE2\x82", U"a?"},
      {"a\xC3", U"a?"},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.text);
    ASSERT_EQ(Rc{Put(r_, 0, "t", tSTRING, Text(c.text))}, Rc{kOk});
    ReadResult got = ReadAs(r_, 0, "t", tWSTRING);
    EXPECT_EQ(Rc{got.code}, Rc{kOk});
    EXPECT_EQ(got.bytes, Wide(c.wide));
  }
  // And back: a wide value reads as UTF-8 text.
  ASSERT_EQ(Rc{Put(r_, 0, "w", tWSTRING, Wide(U"\u20ac\U0001F600"))}, Rc{kOk});
  EXPECT_EQ(ReadAs(r_, 0, "w", tSTRING).bytes, Text("\xE2\x82\xAC\xF0\x9F\x98\x80"));
}

// A stored wide string takes any other type's bytes as its raw units.
TEST_F(ValueOperationsTest, StoredWideStringTakesOtherTypesBytesAsTheyAre) {
  Fresh();
  ASSERT_EQ(Rc{Put(r_, 0, "w", tWSTRING, Wide(U"old"))}, Rc{kOk});
  ASSERT_EQ(Rc{Put(r_, 0, "w", tDWORD, BytesOf(uint32_t{'A'}))}, Rc{kOk});
  EXPECT_EQ(Stored(r_, 0, "w").bytes, Wide(U"A"));
  ASSERT_EQ(Rc{Put(r_, 0, "w", tSTRING, Text("AB"))}, Rc{kOk});
  EXPECT_EQ(Stored(r_, 0, "w").bytes, Wide(U"\x4241"));
}

class StringObjectTest : public ValueOperationsTest {
 protected:
  // Reads `name` into `object` as tSTRING_OBJ.
  tERROR ReadObject(const char* name, StringObject* object, uint32_t* size) {
    TypeId type = tSTRING_OBJ;
    return r_.GetValue(size, 0, name, &type, object, 0);
  }
};

TEST_F(StringObjectTest, ReadingFillsTheCallersObjectFromTheStoreHeap) {
  Store& s = Fresh();
  ASSERT_EQ(Rc{Put(r_, 0, "n", tDWORD, BytesOf(uint32_t{4711}))}, Rc{kOk});
  ASSERT_EQ(Rc{Put(r_, 0, "t", tSTRING, Text("h\xC3\xA9!"))}, Rc{kOk});
  ASSERT_EQ(Rc{Put(r_, 0, "e", tSTRING, Text(""))}, Rc{kOk});

  StringObject object{nullptr, 0};
  uint32_t size = 99;
  ASSERT_EQ(Rc{ReadObject("n", &object, &size)}, Rc{kOk});
  EXPECT_EQ(size, 0u);
  ASSERT_NE(object.chars, nullptr);
  EXPECT_TRUE(s.heap().Owns(object.chars));
  EXPECT_EQ(s.heap().BlockSize(object.chars), 5 * sizeof(wchar_t));
  EXPECT_EQ(std::wstring(object.chars, object.count + 1), std::wstring(L"4711", 5));

  // A second read replaces the characters and frees the previous block.
  wchar_t* previous = object.chars;
  ASSERT_EQ(Rc{ReadObject("t", &object, &size)}, Rc{kOk});
  EXPECT_FALSE(s.heap().Owns(previous));
  EXPECT_EQ(std::wstring(object.chars, object.count + 1), std::wstring(L"h\u00e9!", 4));

  ASSERT_EQ(Rc{ReadObject("e", &object, &size)}, Rc{kOk});
  EXPECT_EQ(object.count, 0u);
  ASSERT_NE(object.chars, nullptr);
  EXPECT_EQ(object.chars[0], L'\0');
  EXPECT_EQ(Rc{s.heap().Release(object.chars)}, Rc{kOk});

  TypeId type = tSTRING_OBJ;
  EXPECT_EQ(Rc{r_.GetValue(&size, 0, "n", &type, nullptr, 0)}, Rc{kErrBadParameter});
}

TEST_F(StringObjectTest, WritingTakesCountCharacters) {
  Fresh();
  ASSERT_EQ(Rc{Put(r_, 0, "n", tDWORD, BytesOf(uint32_t{1}))}, Rc{kOk});
  ASSERT_EQ(Rc{Put(r_, 0, "s", tSTRING, Text("old"))}, Rc{kOk});
  ASSERT_EQ(Rc{Put(r_, 0, "w", tWSTRING, Wide(U"old"))}, Rc{kOk});
  wchar_t digits[] = L"12345";
  wchar_t text[] = L"h\u00e9";
  struct Case {
    const char* name;
    StringObject object;
    Bytes stored;
  } const cases[] = {
      {"n", {digits, 2}, BytesOf(uint32_t{12})},
      {"s", {text, 2}, Text("h\xC3\xA9")},
      {"w", {digits, 3}, Wide(U"123")},
      {"s", {nullptr, 7}, Bytes{}},  // null characters: the empty text
      {"w", {nullptr, 7}, Bytes{}},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    EXPECT_EQ(Rc{r_.SetValue(0, c.name, tSTRING_OBJ, &c.object, 0, 0)}, Rc{kOk});
    EXPECT_EQ(Stored(r_, 0, c.name).bytes, c.stored);
  }
  EXPECT_EQ(Rc{r_.SetValue(0, "n", tSTRING_OBJ, nullptr, 0, 0)}, Rc{kErrBadParameter});
  EXPECT_EQ(Stored(r_, 0, "n").bytes, BytesOf(uint32_t{12}));
  // No value class exists for the string object itself, so it cannot be created.
  StringObject object{digits, 1};
  EXPECT_EQ(Rc{r_.SetValue(0, "new", tSTRING_OBJ, &object, 0, 1)}, Rc{kErrNoMemory});
}

TEST_F(ValueOperationsTest, SetsCreateOnlyWhenAskedAndOnlyAtTheEnd) {
  Fresh();
  const Bytes one = BytesOf(uint32_t{1});
  const Bytes two = BytesOf(uint32_t{2});
  EXPECT_EQ(Rc{Put(r_, 0, "First", tDWORD, one, 0)}, Rc{kErrNotFound});
  EXPECT_EQ(Rc{Put(r_, 0, "First", tDWORD, one, 1)}, Rc{kOk});
  EXPECT_EQ(Rc{Put(r_, 0, "FIRST", tDWORD, two, 1)}, Rc{kOk}) << "an existing name in other case is written";
  EXPECT_EQ(Rc{r_.SetValueByIndex(0, 1, tDWORD, one.data(), 4, 0)}, Rc{kErrNotFound});
  EXPECT_EQ(Rc{r_.SetValueByIndex(0, 2, tDWORD, one.data(), 4, 1)}, Rc{kErrBadParameter});
  EXPECT_EQ(Rc{r_.SetValueByIndex(0, 1, tSTRING, Text("x").data(), 2, 1)}, Rc{kOk});
  EXPECT_EQ(Rc{r_.SetValueByIndex(0, 0, tDWORD, one.data(), 4, 0)}, Rc{kOk});
  EXPECT_EQ(Rc{Put(r_, 0, "bad", 16, one, 1)}, Rc{kErrNoMemory}) << "no value class for the type";
  EXPECT_EQ(Rc{Put(r_, 0, "bad", tDWORD, Bytes{1, 2}, 1)}, Rc{kErrBadParameter}) << "value refused the data";

  Result<std::vector<std::string>> names = Client(r_).ValueNames(0);
  ASSERT_EQ(Rc{names.code}, Rc{kOk});
  EXPECT_EQ(names.value, (std::vector<std::string>{"First", "noname1"}));
  EXPECT_EQ(Stored(r_, 0, "first").bytes, one);
  EXPECT_EQ(Stored(r_, 0, "noname1").bytes, Text("x"));
}

// The read-only refusal comes before anything else: even without a tree and
// with arguments that would fail otherwise.
TEST_F(ValueOperationsTest, ReadOnlyStoresRefuseSetsFirst) {
  const Bytes one = BytesOf(uint32_t{1});
  for (bool with_tree : {true, false}) {
    SCOPED_TRACE(with_tree ? "with tree" : "without tree");
    Store& s = OpenStore({.read_only = 1, .init = with_tree});
    Registry r = s.registry();
    TraceMark mark(s);
    EXPECT_EQ(Rc{Put(r, 0, "v", tDWORD, one)}, Rc{kErrReadOnly});
    EXPECT_EQ(Rc{r.SetValue(0, nullptr, tDWORD, nullptr, 0, 1)}, Rc{kErrReadOnly});
    EXPECT_EQ(Rc{r.SetValueByIndex(0, 0, tDWORD, one.data(), 4, 1)}, Rc{kErrReadOnly});
    EXPECT_EQ(mark.Lines().size(), 3u) << "each refusal is traced";
  }
}

TEST_F(ValueOperationsTest, OnlySetValueIsSilentForAnUnresolvableKey) {
  Store& s = OpenStore({.init = false});
  Registry r = s.registry();
  const Bytes one = BytesOf(uint32_t{1});
  TraceMark mark(s);
  EXPECT_EQ(Rc{r.SetValue(0, "v", tDWORD, one.data(), 4, 1)}, Rc{kErrInvalidHandle});
  EXPECT_EQ(mark.Texts(), std::vector<std::string>{});
  EXPECT_EQ(Rc{r.SetValueByIndex(0, 0, tDWORD, one.data(), 4, 1)}, Rc{kErrInvalidHandle});
  EXPECT_EQ(mark.Texts(), std::vector<std::string>{"prmap\tSetValueByIndex 0 (0x" + AddressText(one.data()) +
                                                   ":4): ErrInvalidHandle(0x8000D004)"});
}

TEST_F(ValueOperationsTest, EachOperationWritesItsExactLine) {
  Store& s = Fresh();
  const Bytes seven = BytesOf(uint32_t{7});
  const Bytes text = Text("hi");
  const std::string ok = "ResultOk(0x00000000)";
  const std::string not_found = "ErrNotFound(0x8000D002)";
  struct Step {
    std::function<tERROR()> call;
    std::string line;
  };
  const std::vector<Step> steps = {
      {[&] { return Put(r_, 0, "Seven", tDWORD, seven); },
       "prmap\tSetValue Seven (0x" + AddressText(seven.data()) + ":4): " + ok},
      {[&] { return r_.SetValueByIndex(0, 1, tSTRING, text.data(), 3, 1); },
       "prmap\tSetValueByIndex 1 (0x" + AddressText(text.data()) + ":3): " + ok},
      {[&] { return r_.SetValue(0, "Absent", tDWORD, seven.data(), 4, 0); },
       "prmap\tSetValue Absent (0x" + AddressText(seven.data()) + ":4): " + not_found},
      {[&] { return ReadAs(r_, 0, "Seven", tSTRING).code; }, "prmap\tGetting value ?\\Seven: " + ok},
      {[&] { return ReadAs(r_, 0, "Absent", 0).code; }, "prmap\tGetting value ?\\Absent: " + not_found},
      {[&] { return ReadByIndexAs(r_, 0, 1, 0).code; }, "prmap\tGetting value by index 1: " + ok},
      {[&] { return ReadByIndexAs(r_, 0, 5, 0).code; }, "prmap\tGetting value by index 5: " + not_found},
      {[&] {
         uint32_t size = 0;
         return r_.GetValueNameByIndex(&size, 0, 0, nullptr, 0);
       },
       "prmap\tGetValueNameByIndex : " + ok},
      {[&] {
         uint32_t size = 0;
         return r_.GetValueNameByIndex(&size, 0, 0, nullptr, 1);
       },
       "prmap\tGetValueNameByIndex : ErrBadParameter(0x80000046)"},
  };
  for (const Step& step : steps) {
    SCOPED_TRACE(step.line);
    TraceMark mark(s);
    (void)step.call();
    const std::vector<TraceLine> lines = mark.Lines();
    ASSERT_EQ(lines.size(), 1u);
    EXPECT_EQ(lines[0].text, step.line);
    EXPECT_EQ(lines[0].level, 600u);
  }
}

}  // namespace
}  // namespace prhost::testing
