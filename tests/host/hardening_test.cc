// Callbacks into a store that is in the middle of an operation. CTest's
// timeout is the watchdog against hangs.
#include <string>

#include "registry_support.h"

namespace prhost::testing {
namespace {

class HardeningTest : public HostTest {};

constexpr tERROR kErrDeadlock = Code(0x80060000 | 35);  // EDEADLK through the errno mapping

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
