// The trace level limit the benchmarks' host applies before formatting a
// line. (Its plain heap never gives back the module's one-byte names, which
// LeakSanitizer would report here; the benchmarks' smoke runs exercise it.)
#include <gtest/gtest.h>

#include <cstdint>

#include "module_loader.h"
#include "store.h"

namespace prhost::testing {
namespace {

std::shared_ptr<Module> LoadWith(HostOptions host) {
  LoadOptions options;
  options.private_copy = true;  // other tests of this process hold the module
  options.host = host;
  return Module::Load(options);
}

TEST(BenchHostOptionsTest, LevelLimitKeepsOnlyLinesAtOrBelowIt) {
  const struct {
    uint32_t limit;
    bool operation_lines;  // the OpenKey line is written at level 600
  } rows[] = {{UINT32_MAX, true}, {600, true}, {599, false}, {0, false}};
  for (const auto& row : rows) {
    SCOPED_TRACE(row.limit);
    auto module = LoadWith({.trace_level_limit = row.limit});
    auto store = Store::Open(module);
    hKey key = 0;
    ASSERT_FALSE(Failed(store->registry().OpenKey(&key, 0, "a", 1)));
    bool seen = false;
    for (const TraceLine& line : module->trace().Lines()) {
      EXPECT_LE(line.level, row.limit) << line;
      seen = seen || line.level == 600;
    }
    EXPECT_EQ(seen, row.operation_lines);
  }
}

}  // namespace
}  // namespace prhost::testing
