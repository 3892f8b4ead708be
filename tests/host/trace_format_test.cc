// The host's trace formatting and line keeping, without a module.
#include <cstdio>

#include <gtest/gtest.h>

#include "result_names.h"
#include "trace_format.h"
#include "trace_sink.h"

namespace prhost {
namespace {

// The conversions the module uses; %terr prints the name and the code, or
// the bare code. Anything else stops the line and marks it malformed.
TEST(TraceFormatTest, FormatsAsTheHostPrints) {
  const struct {
    FormattedLine line;
    const char* text;
    bool well_formed;
  } cases[] = {
      {FormatTraceV("[%s]", static_cast<const char*>(nullptr)), "[(null)]", true},
      {FormatTraceV("%d %d %u", -5, 2147483647, 4294967295u), "-5 2147483647 4294967295", true},
      {FormatTraceV("%terr", 0xD001), "KeyCreated(0x0000D001)", true},
      {FormatTraceV("%terr", 0x12345678), "0x12345678", true},
      {FormatTraceV("%terr", Code(0x80060002)), "0x80060002", true},
      {FormatTraceV("prmap\t%s %s (0x%x:%d): %terr", "SetValue", "Host", 0xABCDEFu, 4, 0),
       "prmap\tSetValue Host (0xabcdef:4): ResultOk(0x00000000)", true},
      {FormatTraceV("a %ld b %d", 1L, 2), "a %ld b %d", false},  // no 64-bit length modifier
      {FormatTraceV("%d %p %s", 1, nullptr, "x"), "1 %p %s", false},
      {FormatTraceV("50%"), "50%", false},
      {FormatTraceV("%ter"), "%ter", false},
  };
  for (const auto& c : cases) {
    EXPECT_EQ(c.line.text, c.text);
    EXPECT_EQ(c.line.well_formed, c.well_formed) << c.text;
  }
}

TEST(ResultNamesTest, EveryNamedCodePrintsItsNameAndHex) {
  size_t count = 0;
  const NamedResult* names = NamedResults(&count);
  ASSERT_EQ(count, 34u);
  for (size_t i = 0; i < count; ++i) {
    char expected[64];
    std::snprintf(expected, sizeof expected, "%s(0x%08X)", names[i].name, static_cast<uint32_t>(names[i].code));
    EXPECT_EQ(FormatTraceV("%terr", names[i].code).text, expected);
    EXPECT_STREQ(ResultName(names[i].code), names[i].name);
    for (size_t j = 0; j < i; ++j) {
      EXPECT_NE(names[i].code, names[j].code) << names[i].name << " repeats " << names[j].name;
    }
  }
  EXPECT_STREQ(ResultName(0x47), "ValueUnchanged");
  EXPECT_STREQ(ResultName(Code(0x80010102)), "ErrFsNoEntry");
  EXPECT_EQ(ResultName(Code(0x80000000)), nullptr);
}

tERROR WriteLine(TraceSink& sink, const void* store, uint32_t level, const char* format, ...) {
  va_list args;
  va_start(args, format);
  tERROR code = sink.Write(store, level, format, args);
  va_end(args);
  return code;
}

TEST(TraceSinkTest, KeepsLevelStoreAndTextPerStore) {
  TraceSink sink;
  int a = 0, b = 0;
  EXPECT_EQ(WriteLine(sink, &a, 600, "prmap\t%s : %terr", "Clean", 0), 0);
  EXPECT_EQ(WriteLine(sink, nullptr, 200, "r [%terr]", Code(0x80000040)), 0);
  EXPECT_EQ(WriteLine(sink, &b, 300, "%ld", 1L), 0);

  const std::vector<TraceLine> expected = {
      {600, &a, "prmap\tClean : ResultOk(0x00000000)", true},
      {200, nullptr, "r [ErrUnexpected(0x80000040)]", true},
      {300, &b, "%ld", false},
  };
  EXPECT_EQ(sink.Lines(), expected);
  EXPECT_EQ(sink.LinesFor(&a), std::vector<TraceLine>{expected[0]});
  EXPECT_EQ(sink.TextsFor(nullptr), std::vector<std::string>{expected[1].text});
  EXPECT_EQ(sink.malformed(), 1u);
  EXPECT_EQ(sink.Take(), expected);
  EXPECT_EQ(sink.size(), 0u);
}

}  // namespace
}  // namespace prhost
