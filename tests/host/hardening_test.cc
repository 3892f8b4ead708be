// What a demanding host can throw at the interface: sizes a 32-bit count
// cannot carry, copies into the source's own store and subtree, callbacks
// into a store that is in the middle of an operation, and a heap that fails
// at every step of a copy. CTest's timeout is the watchdog against hangs.
#include <fstream>
#include <string>

#include "registry_support.h"

namespace prhost::testing {
namespace {

class HardeningTest : public HostTest {};

constexpr tERROR kErrDeadlock = Code(0x80060000 | 35);  // EDEADLK through the errno mapping

// A string object claiming more characters than a 32-bit byte size holds:
// refused before a single character is read, the stored value unchanged.
TEST_F(HardeningTest, WideSetBeyondThirtyTwoBitsIsRefused) {
  const wchar_t few[2] = {L'a', 0};
  const StringObject object{const_cast<wchar_t*>(few), (1u << 30) + 1};
  using Stored = std::tuple<TypeId, const void*, uint32_t>;
  for (const auto& [stored, data, size] : {Stored{tWSTRING, few, 8}, Stored{tSTRING, "a", 1}}) {
    Store& s = OpenStore();
    ASSERT_EQ(Rc{s.registry().SetValue(0, "v", stored, data, size, 1)}, Rc{kOk});
    const std::vector<std::string> before = Dump(s.registry());
    EXPECT_EQ(Rc{s.registry().SetValue(0, "v", tSTRING_OBJ, &object, sizeof object, 1)}, Rc{kErrNoMemory});
    EXPECT_EQ(Dump(s.registry()), before);
  }
}

// Real values of 2^31 bytes and more: their text and wide forms need more
// than 4 GiB, which the conversions refuse instead of wrapping into a small
// block. Skipped where memory is short.
uint64_t AvailableMemory() {
  std::ifstream meminfo("/proc/meminfo");
  std::string key;
  uint64_t kib = 0;
  while (meminfo >> key >> kib) {
    if (key == "MemAvailable:") return kib * 1024;
    meminfo.ignore(256, '\n');
  }
  return 0;
}

TEST_F(HardeningTest, HugeValuesConvertWithoutWrapping) {
#ifdef __SANITIZE_ADDRESS__
  GTEST_SKIP() << "gigabytes under AddressSanitizer's shadow: the plain build runs this";
#endif
  if (AvailableMemory() < (12ull << 30)) GTEST_SKIP() << "needs 12 GiB of free memory";
  Store& s = OpenStore();
  // The stored value, its size, and the type read (a wide character takes four bytes).
  for (const auto& [stored, bytes, read] : {std::tuple{tBINARY, size_t{1} << 31, tSTRING},
                                            std::tuple{tSTRING, (size_t{1} << 30) + 1, tWSTRING}}) {
    std::string data(bytes, '\x5A');
    ASSERT_EQ(Rc{s.registry().SetValue(0, "v", stored, data.data(), uint32_t(data.size()), 1)}, Rc{kOk});
    data = {};
    uint32_t size = 0, type = read;
    EXPECT_EQ(Rc{s.registry().GetValue(&size, 0, "v", &type, nullptr, 0)}, Rc{kErrNoMemory});
    EXPECT_EQ(size, 0u) << "nothing written";
    EXPECT_EQ(Rc{s.registry().DeleteValue(0, "v")}, Rc{kOk});
  }
}

// A trace sink that calls back into the store: after a plain operation the
// lock is free; inside a copy the store is held, so a write (or anything,
// when the copy holds it exclusively) gets EDEADLK's code instead of a hang,
// and a read re-enters the shared lock.
TEST_F(HardeningTest, CallbacksIntoAHeldStore) {
  struct Case {
    const char* what;
    bool copy_within;  // else a copy into a second store, or no copy at all
    bool copy;
    bool write;        // the callback writes, else reads
    tERROR expected;
  } cases[] = {
      {"after a plain operation, write", false, false, true, kOk},
      {"inside a copy to another store, read", false, true, false, kOk},
      {"inside a copy to another store, write", false, true, true, kErrDeadlock},
      {"inside a copy within the store, read", true, true, false, kErrDeadlock},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.what);
    Store& s = OpenStore({.locking = 1});
    Store& other = OpenStore({.locking = 1});
    MakeKeys(s, {"A\\B"});
    ASSERT_EQ(Rc{s.client().SetDword(KeyAt(s, "A"), "v", 7)}, Rc{kOk});
    std::vector<tERROR> seen;
    bool inside = false;
    module()->trace().set_observer([&](const TraceLine& line) {
      if (inside || line.store != s.object() || !seen.empty()) return;
      if (line.text.find(c.copy ? "Getting value by index" : "Opening key") == std::string::npos) return;
      inside = true;
      uint32_t value = 0, size = 0, type = tDWORD;
      seen.push_back(c.write ? s.registry().SetValue(0, "cb", tDWORD, &value, 4, 1)
                             : s.registry().GetValue(&size, KeyAt(s, "A"), "v", &type, &value, 4));
      inside = false;
    });
    const tERROR code = !c.copy ? s.registry().OpenKey(nullptr, 0, "A", 0)
                                : s.registry().CopyKey(KeyAt(s, "A"), c.copy_within ? s.object() : other.object(),
                                                       c.copy_within ? KeyAt(s, "A\\B") : 0);
    module()->trace().set_observer(nullptr);
    EXPECT_EQ(Rc{code}, Rc{kOk});
    ASSERT_EQ(seen.size(), 1u);
    EXPECT_EQ(Rc{seen[0]}, Rc{c.expected});
  }
}

}  // namespace
}  // namespace prhost::testing
