// The host's trace formatting and line keeping, without a module.
#include <cstdio>
#include <functional>
#include <thread>

#include <gtest/gtest.h>

#include "result_names.h"
#include "trace_format.h"
#include "trace_sink.h"

namespace prhost {
namespace {

struct FormatCase {
  const char* name;
  std::function<FormattedLine()> format;
  const char* expected;
  bool well_formed;
};

const FormatCase kFormatCases[] = {
    {"plain text", [] { return FormatTraceV("prmap\tno conversions"); }, "prmap\tno conversions", true},
    {"string", [] { return FormatTraceV("open %s!", "a/b"); }, "open a/b!", true},
    {"null string", [] { return FormatTraceV("[%s]", static_cast<const char*>(nullptr)); }, "[(null)]", true},
    {"signed", [] { return FormatTraceV("%d %d", -5, 2147483647); }, "-5 2147483647", true},
    {"unsigned", [] { return FormatTraceV("%u", 4294967295u); }, "4294967295", true},
    {"hex lower case", [] { return FormatTraceV("0x%x", 0xABCDEFu); }, "0xabcdef", true},
    {"percent", [] { return FormatTraceV("100%% done"); }, "100% done", true},
    {"width and zero pad", [] { return FormatTraceV("[%08x][%5d][%-3u]", 0x1Fu, -42, 7u); },
     "[0000001f][  -42][7  ]", true},
    {"zero pad keeps the sign first", [] { return FormatTraceV("%05d", -42); }, "-0042", true},
    {"named code", [] { return FormatTraceV("x: %terr", Code(0x8000D002)); }, "x: ErrNotFound(0x8000D002)", true},
    {"positive code", [] { return FormatTraceV("%terr", 0xD001); }, "KeyCreated(0x0000D001)", true},
    {"zero", [] { return FormatTraceV("%terr", 0); }, "ResultOk(0x00000000)", true},
    {"unknown code", [] { return FormatTraceV("%terr", 0x12345678); }, "0x12345678", true},
    {"system error code", [] { return FormatTraceV("%terr", Code(0x80060002)); }, "0x80060002", true},
    {"terr in the middle",
     [] { return FormatTraceV("Registry(IID_REGISTRY)registered [%terr]", Code(0x80000040)); },
     "Registry(IID_REGISTRY)registered [ErrUnexpected(0x80000040)]", true},
    {"mixed arguments in order",
     [] { return FormatTraceV("prmap\t%s %s (0x%x:%d): %terr", "SetValue", "Host", 0x1000u, 4, 0); },
     "prmap\tSetValue Host (0x1000:4): ResultOk(0x00000000)", true},
    {"64-bit length modifier stops", [] { return FormatTraceV("a %ld b %d", 1L, 2); }, "a %ld b %d", false},
    {"unknown conversion stops", [] { return FormatTraceV("%d %p %s", 1, nullptr, "x"); }, "1 %p %s", false},
    {"lone percent at the end", [] { return FormatTraceV("50%"); }, "50%", false},
    {"terr prefix only", [] { return FormatTraceV("%ter"); }, "%ter", false},
};

class TraceFormatTest : public ::testing::TestWithParam<FormatCase> {};

TEST_P(TraceFormatTest, FormatsAsTheHostPrints) {
  FormattedLine line = GetParam().format();
  EXPECT_EQ(line.text, GetParam().expected);
  EXPECT_EQ(line.well_formed, GetParam().well_formed);
}

INSTANTIATE_TEST_SUITE_P(Cases, TraceFormatTest, ::testing::ValuesIn(kFormatCases),
                         [](const auto& info) {
                           std::string name = info.param.name;
                           for (char& c : name) if (!isalnum(static_cast<unsigned char>(c))) c = '_';
                           return name;
                         });

TEST(ResultNamesTest, EveryNamedCodePrintsItsNameAndHex) {
  size_t count = 0;
  const NamedResult* names = NamedResults(&count);
  ASSERT_EQ(count, 34u);
  for (size_t i = 0; i < count; ++i) {
    char expected[64];
    std::snprintf(expected, sizeof expected, "%s(0x%08X)", names[i].name, static_cast<uint32_t>(names[i].code));
    EXPECT_EQ(FormatTraceV("%terr", names[i].code).text, expected);
    for (size_t j = 0; j < i; ++j) {
      EXPECT_NE(names[i].code, names[j].code) << names[i].name << " repeats " << names[j].name;
    }
  }
}

TEST(ResultNamesTest, CatalogueSpotChecks) {
  const NamedResult kSpot[] = {
      {0x47, "ValueUnchanged"},
      {Code(0x800000C2), "ErrNotImplemented"},
      {Code(0x80010102), "ErrFsNoEntry"},
      {Code(0x8000D004), "ErrInvalidHandle"},
  };
  for (const NamedResult& n : kSpot) EXPECT_STREQ(ResultName(n.code), n.name);
  EXPECT_EQ(ResultName(2), nullptr);
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

TEST(TraceSinkTest, ConcurrentWritersLoseNoLine) {
  TraceSink sink;
  constexpr int kThreads = 8;
  constexpr int kLines = 500;
  std::vector<std::thread> threads;
  std::vector<int> stores(kThreads);
  for (int t = 0; t < kThreads; ++t) {
    threads.emplace_back([&, t] {
      for (int i = 0; i < kLines; ++i) WriteLine(sink, &stores[t], 600, "line %d of %d", i, t);
    });
  }
  for (auto& th : threads) th.join();
  ASSERT_EQ(sink.size(), size_t{kThreads * kLines});
  for (int t = 0; t < kThreads; ++t) {
    std::vector<std::string> texts = sink.TextsFor(&stores[t]);
    ASSERT_EQ(texts.size(), size_t{kLines});
    // Each writer's lines stay in its own order.
    for (int i = 0; i < kLines; ++i) EXPECT_EQ(texts[i], "line " + std::to_string(i) + " of " + std::to_string(t));
  }
}

}  // namespace
}  // namespace prhost
