// Properties set and read through the registered records (the store's steps
// are checked in module_frame_test.cc).
#include <cstring>

#include "host_fixture.h"

namespace prhost::testing {
namespace {

using StoreLifecycleTest = HostTest;

// Object-field properties land at store + 24 + position with their width,
// and nothing past the field is written.
TEST_F(StoreLifecycleTest, FieldPropertiesAreWrittenInPlace) {
  const struct {
    uint32_t id;
    size_t offset;  // from the start of the object
    uint32_t width;
  } fields[] = {{prop::kReadOnly, 48, 4},     {prop::kHostSetting28, 52, 4}, {prop::kHostSetting32, 56, 4},
                {prop::kFlushOnClose, 60, 4}, {prop::kLoaderFlags, 120, 4},  {prop::kSourceObject, 128, 8},
                {prop::kLocking, 136, 4},     {prop::kBackupMode, 140, 1}};
  Store& s = OpenStore({.init = false});
  const uint64_t value = 0x8877665544332211ull;
  for (const auto& f : fields) {
    SCOPED_TRACE(FormatResult(Code(f.id)));
    char* const at = static_cast<char*>(s.object()) + f.offset;
    uint8_t after[8];
    std::memcpy(after, at + f.width, sizeof after);
    ASSERT_EQ(Rc{s.SetProperty(f.id, &value, f.width)}, Rc{kOk});
    EXPECT_EQ(std::memcmp(at, &value, f.width), 0);
    EXPECT_EQ(std::memcmp(at + f.width, after, sizeof after), 0);
    const uint64_t mask = f.width == 8 ? ~0ull : (1ull << (8 * f.width)) - 1;
    EXPECT_EQ(s.Field(f.id), value & mask);
    uint64_t read = 0;
    uint32_t size = 0;
    EXPECT_EQ(Rc{s.GetProperty(f.id, nullptr, 0, &size)}, Rc{kOk});
    EXPECT_EQ(size, f.width);
    EXPECT_EQ(Rc{s.GetProperty(f.id, &read, f.width - 1, &size)}, Rc{kErrBufferTooSmall});
    EXPECT_EQ(Rc{s.GetProperty(f.id, &read, 8, &size)}, Rc{kOk});
    EXPECT_EQ(read, value & mask);
    EXPECT_EQ(Rc{s.SetProperty(f.id, &value, f.width + 1)}, Rc{kErrBadParameter});
  }
}

TEST_F(StoreLifecycleTest, ConstantPropertiesReadBackAndRefuseWrites) {
  Store& s = OpenStore({.init = false});
  uint32_t one = 0, size = 0;
  EXPECT_EQ(Rc{s.GetProperty(prop::kConstantOne, &one, 4, &size)}, Rc{kOk});
  EXPECT_EQ(std::make_pair(one, size), std::make_pair(1u, 4u));
  char text[15];
  EXPECT_EQ(Rc{s.GetProperty(prop::kDescription, text, sizeof text, &size)}, Rc{kOk});
  EXPECT_EQ(std::memcmp(text, "properties map", 15), 0);
  EXPECT_EQ(Rc{s.SetProperty(prop::kConstantOne, &one, 4)}, Rc{kErrNotImplemented});
}

}  // namespace
}  // namespace prhost::testing
