// The host's side of a store's life: memory, the words it owns, and
// properties set and read through the registered records.
#include <cstring>

#include "host_fixture.h"
#include "stream.h"

namespace prhost::testing {
namespace {

class StoreLifecycleTest : public HostTest {};

// Object-field properties land at store + 24 + position with their width.
struct FieldCase {
  uint32_t id;
  size_t offset;  // from the start of the object
  size_t width;
};

const FieldCase kFields[] = {
    {prop::kReadOnly, 48, 4},       {prop::kHostSetting28, 52, 4}, {prop::kHostSetting32, 56, 4},
    {prop::kFlushOnClose, 60, 4},   {prop::kLoaderFlags, 120, 4},  {prop::kSourceObject, 128, 8},
    {prop::kLocking, 136, 4},       {prop::kBackupMode, 140, 1},
};

TEST_F(StoreLifecycleTest, FieldPropertiesAreWrittenInPlace) {
  Store& s = OpenStore({.init = false});
  for (const FieldCase& f : kFields) {
    SCOPED_TRACE(FormatResult(Code(f.id)));
    const uint64_t value = 0x8877665544332211ull;
    uint8_t before[8];
    std::memcpy(before, static_cast<char*>(s.object()) + f.offset + f.width, sizeof before);
    ASSERT_EQ(Rc{s.SetProperty(f.id, &value, static_cast<uint32_t>(f.width))}, Rc{kOk});
    EXPECT_EQ(std::memcmp(static_cast<char*>(s.object()) + f.offset, &value, f.width), 0);
    EXPECT_EQ(std::memcmp(static_cast<char*>(s.object()) + f.offset + f.width, before, sizeof before), 0)
        << "nothing past the field is written";
    uint64_t mask = f.width == 8 ? ~0ull : (1ull << (8 * f.width)) - 1;
    EXPECT_EQ(s.Field(f.id), value & mask);

    uint64_t read = 0;
    uint32_t size = 0;
    EXPECT_EQ(Rc{s.GetProperty(f.id, nullptr, 0, &size)}, Rc{kOk});
    EXPECT_EQ(size, f.width);
    EXPECT_EQ(Rc{s.GetProperty(f.id, &read, static_cast<uint32_t>(f.width) - 1, &size)}, Rc{kErrBufferTooSmall});
    EXPECT_EQ(Rc{s.GetProperty(f.id, &read, 8, &size)}, Rc{kOk});
    EXPECT_EQ(read, value & mask);
    EXPECT_EQ(Rc{s.SetProperty(f.id, &value, static_cast<uint32_t>(f.width) + 1)}, Rc{kErrBadParameter});
  }
}

TEST_F(StoreLifecycleTest, ConstantPropertiesReadBackAndRefuseWrites) {
  Store& s = OpenStore({.init = false});
  uint32_t one = 0;
  uint32_t size = 0;
  EXPECT_EQ(Rc{s.GetProperty(prop::kConstantOne, &one, 4, &size)}, Rc{kOk});
  EXPECT_EQ(one, 1u);
  EXPECT_EQ(size, 4u);
  char text[15];
  EXPECT_EQ(Rc{s.GetProperty(prop::kDescription, text, sizeof text, &size)}, Rc{kOk});
  EXPECT_EQ(std::memcmp(text, "properties map", 15), 0);
  EXPECT_EQ(Rc{s.SetProperty(prop::kConstantOne, &one, 4)}, Rc{kErrNotImplemented});
}

// The steps install the tables and the heap account; the destructor runs
// the remaining ones.
TEST_F(StoreLifecycleTest, StepsAndDestructor) {
  auto heap = [&] {
    auto s = std::make_unique<Store>(module(), "short-lived");
    EXPECT_EQ(s->size(), module()->registration().object_size);
    EXPECT_EQ(Rc{s->Construct()}, Rc{kOk});
    EXPECT_EQ(s->stage(), Store::Stage::kConstructed);
    s->InstallHostServices();
    EXPECT_EQ(s->obj_table(), module()->host().obj_table());
    EXPECT_EQ(s->host_word(), reinterpret_cast<uintptr_t>(&s->heap()));
    EXPECT_EQ(StoreHeap::FromSelf(s->obj_self()), &s->heap());
    EXPECT_EQ(Rc{s->SetRootPoint("Software\\Example")}, Rc{kOk});
    EXPECT_FALSE(s->heap().balanced()) << "the pending root path is held in the store's heap";
    return s->heap_ptr();
  }();
  // ObjectNew(0) ran in the destructor and released the pending path.
  EXPECT_TRUE(heap->balanced());
  EXPECT_EQ(module()->host().violations(), std::vector<std::string>{});
}

}  // namespace
}  // namespace prhost::testing
