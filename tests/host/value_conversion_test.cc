// Reads and writes across types through iRegistry: the stored value's text
// form is parsed by a value of the other type. The text rules themselves are
// checked on the value classes (tests/unit/value_classes_test.cc); the rows here
// show each conversion path once: text out with the NUL added, first-byte
// and empty targets, kinds without a text form, refusals that keep the
// stored value, and the asymmetries a round trip through text produces.
// (Their allocation failures are swept in heap_sweep_test.cc.)
#include "value_test_support.h"

namespace prhost::testing {
namespace {

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

using ValueConversionTest = HostTest;

TEST_F(ValueConversionTest, ReadsParseTheStoredTextAndWritesStoreTheCallersTextForm) {
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
