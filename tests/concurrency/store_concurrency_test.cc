// Several threads on one store with the locking flag set: readers walk keys
// and read values while a writer creates, changes and deletes. Each reader
// only checks what holds under any interleaving: names and values the writer
// could have produced, counts that move the way the writer moves them.
// Readers never keep a handle to a key that may be deleted, since such a
// handle is stale the moment the key goes.
#include <algorithm>
#include <charconv>
#include <cstring>
#include <deque>
#include <optional>
#include <string>

#include "concurrency/concurrency_fixture.h"
#include "host/registry_support.h"
#include "temp_dir.h"

namespace prhost::testing {
namespace {

std::string Num(uint64_t n) { return std::to_string(n); }

// The stress: eight threads on two file-backed locking stores: writers on both, readers
// on both, a thread flushing both, a copier from the first store into the
// second and one copying within the first (opposite copies have their own
// test). Every call must succeed; afterwards each
// copy equals its source and a saved profile loads back as the store's tree.
// Run under ThreadSanitizer by scripts/test.sh.
constexpr uint32_t kOps = 2000;

bool Ok(tERROR code) { return code == kOk || code == kKeyCreated; }

TEST_F(ConcurrencyTest, EightThreadsWithFlushesAndCopies) {
  TempDir dir;
  Store& a = OpenStore({.name = dir.Join("a.xml"), .locking = 1, .loader_flags = 2, .backup_mode = 1});
  Store& b = OpenStore({.name = dir.Join("b.xml"), .locking = 1, .loader_flags = 2});
  const Registry ra = a.registry(), rb = b.registry();
  MakeKeys(a, {"src\\s0", "mirror"});
  MakeKeys(b, {"copy"});

  // Keys under "src" and "copy" are only ever added, so readers may open them
  // by path at any time; each writer deletes only inside its own key.
  auto writer = [](const Registry& r, std::string own, std::string shared) {
    return [=](Notes& notes) {
      for (uint32_t i = 0; i < kOps && notes.clean(); ++i) {
        hKey key = kInvalidKey;
        const std::string path = (i % 3 == 0 ? shared + "\\s" + Num(i % 5) : own + "\\k" + Num(i % 8));
        notes.Check(Ok(r.OpenKey(&key, 0, path.c_str(), 1)), "create " + path);
        notes.Check(r.SetValue(key, "n", tDWORD, &i, 4, 1) == kOk, "set n in " + path);
        const std::string text = "v" + Num(i);
        notes.Check(r.SetValue(key, "t", tSTRING, text.c_str(), uint32_t(text.size() + 1), 1) == kOk, "set t");
        if (i % 4 == 3) {
          const tERROR gone = r.DeleteKey(0, (own + "\\k" + Num((i + 4) % 8)).c_str());
          notes.Check(gone == kOk || gone == kErrNotFound, "delete in " + own);
        }
      }
    };
  };
  auto reader = [](const Registry& r, std::string top) {
    return [=](Notes& notes) {
      for (uint32_t i = 0; i < kOps && notes.clean(); ++i) {
        uint32_t count = 0, n = 0, size = 0, type = tSTRING;
        char text[32];
        hKey key = kInvalidKey;
        notes.Check(r.OpenKey(&key, 0, top.c_str(), 0) == kOk && r.GetKeyCount(&count, key) == kOk, "count");
        if (count == 0) continue;
        hKey child = kInvalidKey;
        notes.Check(r.OpenKeyByIndex(&child, key, i % count) == kOk, "child");
        const tERROR got = r.GetValue(&size, child, "n", &type, text, sizeof text);  // converted to text
        notes.Check(got == kOk || got == kErrNotFound, "read n as text");
        type = tDWORD;
        const tERROR raw = r.GetValue(&size, child, "n", &type, &n, 4);
        notes.Check((raw == kOk && n < kOps) || raw == kErrNotFound, "read n");
      }
    };
  };
  Threads threads;
  threads.emplace_back("writer a0", writer(ra, "w0", "src"));
  threads.emplace_back("writer a1", writer(ra, "w1", "src"));
  threads.emplace_back("writer b", writer(rb, "own", "shared"));
  threads.emplace_back("reader a", reader(ra, "src"));
  threads.emplace_back("reader b", reader(rb, "copy"));
  threads.emplace_back("flusher", [&](Notes& notes) {
    for (uint32_t i = 0; i < kOps / 20 && notes.clean(); ++i) {
      notes.Check(ra.Flush(0) == kOk && rb.Flush(0) == kOk, "flush");
    }
  });
  threads.emplace_back("copier a to b", [&](Notes& notes) {
    for (uint32_t i = 0; i < kOps / 20 && notes.clean(); ++i) {
      notes.Check(ra.CopyKey(KeyAt(a, "src"), rb.object(), KeyAt(b, "copy")) == kOk, "copy into b");
    }
  });
  threads.emplace_back("copier within a", [&](Notes& notes) {
    for (uint32_t i = 0; i < kOps / 20 && notes.clean(); ++i) {
      notes.Check(ra.CopyKey(KeyAt(a, "src"), ra.object(), KeyAt(a, "mirror")) == kOk, "copy within a");
    }
  });
  RunThreads(threads);

  ASSERT_EQ(Rc{ra.CopyKey(KeyAt(a, "src"), rb.object(), KeyAt(b, "copy"))}, Rc{kOk});
  ASSERT_EQ(Rc{ra.CopyKey(KeyAt(a, "src"), ra.object(), KeyAt(a, "mirror"))}, Rc{kOk});
  EXPECT_EQ(Dump(rb, KeyAt(b, "copy")), Dump(ra, KeyAt(a, "src")));
  EXPECT_EQ(Dump(ra, KeyAt(a, "mirror")), Dump(ra, KeyAt(a, "src")));
  // A flush racing a change may leave it unsaved until the next change.
  ASSERT_EQ(Rc{a.client().SetDword(0, "last", 1)}, Rc{kOk});
  ASSERT_EQ(Rc{ra.Flush(0)}, Rc{kOk});
  Store& reloaded = OpenStore({.name = dir.Join("a.xml")});
  EXPECT_EQ(Dump(reloaded.registry()), Dump(ra));
}

}  // namespace
}  // namespace prhost::testing
