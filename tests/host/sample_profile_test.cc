// The shipped sample profile: a realistic application's settings load
// through the module and, once the store is dirty, are written back byte for
// byte as they were shipped.
#include "host_fixture.h"
#include "key_test_support.h"
#include "temp_dir.h"

namespace prhost::testing {
namespace {

class SampleProfileTest : public HostTest {};

TEST_F(SampleProfileTest, LoadsAndSavesByteForByte) {
  const std::optional<std::string> shipped = ReadWholeFile(PROPMAP_SOURCE_DIR "/examples/profiles.xml");
  ASSERT_TRUE(shipped.has_value());
  TempDir dir;
  const std::string path = dir.Join("settings.xml");
  ASSERT_TRUE(WriteWholeFile(path, *shipped));
  Store& s = OpenStore({.name = path, .locking = 1});
  ASSERT_EQ(Rc{s.init_result().value_or(kOk)}, Rc{kOk});
  uint32_t keys = 0;
  EXPECT_EQ(Rc{s.registry().GetKeyCount(&keys, 0)}, Rc{kOk});
  EXPECT_EQ(keys, 8u);
  EXPECT_EQ(s.client().GetString(KeyAt(s, "Users\\User4"), "Name").value, "\xE5\xB1\xB1\xE7\x94\xB0\xE5\xA4\xAA\xE9\x83\x8E");
  // A change and its undoing leave the tree as loaded, but dirty.
  ASSERT_EQ(Rc{s.client().SetString(0, "ProfileVersion", "8")}, Rc{kOk});
  ASSERT_EQ(Rc{s.client().SetString(0, "ProfileVersion", "7")}, Rc{kOk});
  ASSERT_EQ(Rc{s.registry().Flush(0)}, Rc{kOk});
  EXPECT_EQ(ReadWholeFile(path), shipped);
}

}  // namespace
}  // namespace prhost::testing
