// Two locking stores copying into each other at once: each copy holds its
// source's lock only while it reads, so neither waits for the other's lock
// forever (the fixture's watchdog fails a deadlock), and a deletion racing
// a copy ends it with a code instead of a freed key.
#include <latch>

#include "concurrency/concurrency_fixture.h"

namespace prhost::testing {
namespace {

constexpr tERROR kErrBusy = Code(0x8000004F);

TEST_F(ConcurrencyTest, OppositeCopiesComplete) {
  Store& a = OpenLockedStore();
  Store& b = OpenLockedStore();
  for (Store* s : {&a, &b}) {
    for (int k = 0; k < 4; ++k) {
      const hKey key = s->client().OpenKey("src\\k" + std::to_string(k), true).value;
      ASSERT_EQ(Rc{s->client().SetDword(key, "v", k)}, Rc{kOk});
    }
    ASSERT_EQ(Rc{s->client().OpenKey("copies", true).code}, Rc{Code(0xD001)});
  }
  constexpr int kCopies = 100;
  // Both copies meet while reading their sources (at their first nested
  // read's trace line), so that each then calls a destination whose own
  // copy has just read it: a copy that still held its source's lock there
  // would wait forever, every time.
  static thread_local bool t_meet = false;
  std::latch reading(2);
  module()->trace().set_observer([&](const TraceLine& line) {
    if (!t_meet || line.text.find("GetValueCount") == std::string::npos) return;
    t_meet = false;
    reading.arrive_and_wait();
  });
  auto copier = [](Store& from, Store& to) {
    return [&from, &to](Notes& notes) {
      const hKey source = from.client().OpenKey("src").value;
      const hKey into = to.client().OpenKey("copies").value;
      t_meet = true;
      for (int i = 0; i < kCopies && notes.clean(); ++i) {
        notes.Check(from.registry().CopyKey(source, to.object(), into) == kOk, "copy");
      }
    };
  };
  RunThreads({{"a to b", copier(a, b)}, {"b to a", copier(b, a)}});
  EXPECT_EQ(b.client().SubkeyNames(b.client().OpenKey("copies").value).value.size(), 4u);
  EXPECT_EQ(a.client().SubkeyNames(a.client().OpenKey("copies").value).value.size(), 4u);
  module()->trace().set_observer(nullptr);

  // A copy from a key that another thread deletes and makes again: every
  // copy either completes or stops with ErrBusy, and nothing freed is read
  // (AddressSanitizer and ThreadSanitizer would report it).
  Store& c = OpenLockedStore();
  RunThreads({{"churn", [&](Notes& notes) {
                 for (int i = 0; i < kCopies && notes.clean(); ++i) {
                   for (int k = 0; k < 8; ++k) {
                     const hKey key = c.client().OpenKey("gone\\k" + std::to_string(k), true).value;
                     notes.Check(c.client().SetDword(key, "v", i) == kOk, "set");
                   }
                   notes.Check(c.registry().DeleteKey(0, "gone") == kOk, "delete");
                 }
               }},
              {"copy", [&](Notes& notes) {
                 for (int i = 0; i < kCopies && notes.clean(); ++i) {
                   const tERROR copied = c.registry().CopyKeyByName("gone", a.object());
                   notes.Check(copied == kOk || copied == kErrBusy || copied == Code(0x8000D002), "copy by name");
                 }
               }}});
}

}  // namespace
}  // namespace prhost::testing
