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

// Texts are read into a fixed buffer in one call: the two-call protocol would
// race with a writer changing the value in between. "" on failure.
// The name of `key`, or with an index that of its index-th sub-key.
std::string KeyName(const Registry& r, hKey key, std::optional<uint32_t> index = {}, uint32_t full = 0) {
  char buffer[128] = {};
  uint32_t size = 0;
  const tERROR err = index ? r.GetKeyNameByIndex(&size, key, *index, buffer, sizeof buffer, full)
                           : r.GetKeyName(&size, key, buffer, sizeof buffer, full);
  return err == kOk ? buffer : "";
}

// "Tree" of the source: child i is "c<i>" with n = 3i; the first kBranches,
// made before the threads start, hold leaves b<j> with y = {i, j}; the writer
// appends the rest. A copy adds missing keys in the source's order and never
// removes, so every reader, on the source or a target, sees a prefix of that
// order and only values the source held.
constexpr uint32_t kBranches = 4, kLeaves = 3, kExtras = 40, kCopies = 20, kTreeRounds = 200;

void TreeReader(const Registry& r, hKey tree, uint32_t seed, Notes& notes) {
  uint32_t seen = 0;
  for (uint32_t round = 0; round < kTreeRounds && notes.clean(); ++round) {
    uint32_t count = 0;
    notes.Check(r.GetKeyCount(&count, tree) == kOk && count >= seen && count <= kBranches + kExtras,
                "count " + Num(count) + " after " + Num(seen));
    seen = count;
    if (count == 0) continue;
    const uint32_t i = (round * 5 + seed) % count;
    hKey child = kInvalidKey;  // keys are never deleted here
    notes.Check(KeyName(r, tree, i) == "c" + Num(i) && r.OpenKeyByIndex(&child, tree, i) == kOk, "c" + Num(i));
    uint32_t n = 1, size = 0, type = tDWORD, leaves = 0;
    tERROR err = r.GetValue(&size, child, "n", &type, &n, sizeof n);
    notes.Check(err == kErrNotFound || (err == kOk && n == 3 * i), "n of c" + Num(i) + " is " + Num(n));
    notes.Check(r.GetKeyCount(&leaves, child) == kOk && leaves <= (i < kBranches ? kLeaves : 0), "leaf count");
    for (uint32_t j = 0; j < leaves && j < kLeaves; ++j) {
      hKey leaf = kInvalidKey;
      uint32_t pair[2] = {~0u, ~0u};
      type = tBINARY;
      notes.Check(r.OpenKeyByIndex(&leaf, child, j) == kOk, "leaf " + Num(j));
      err = r.GetValue(&size, leaf, "y", &type, pair, sizeof pair);
      notes.Check(err == kErrNotFound || (err == kOk && pair[0] == i && pair[1] == j), "y of c" + Num(i));
    }
  }
}

TEST_F(ConcurrencyTest, CopiesRunAlongsideReadersAndAWriter) {
  Store& source = OpenLockedStore();
  Store& near = OpenLockedStore();
  Store& far = OpenLockedStore(Load({.private_copy = true}));  // an independent module instance
  const Registry src = source.registry(), dst1 = near.registry(), dst2 = far.registry();
  hKey tree = kInvalidKey, into = kInvalidKey;
  ASSERT_EQ(Rc{src.OpenKey(&tree, 0, "Tree", 1)}, Rc{kKeyCreated});
  ASSERT_EQ(Rc{dst2.OpenKey(&into, 0, "Into", 1)}, Rc{kKeyCreated});
  auto add = [&](uint32_t i) {
    hKey child = kInvalidKey, leaf = kInvalidKey;
    const uint32_t n = 3 * i;
    bool ok = src.OpenKey(&child, tree, ("c" + Num(i)).c_str(), 1) == kKeyCreated &&
              src.SetValue(child, "n", tDWORD, &n, 4, 1) == kOk;
    for (uint32_t j = 0, pair[2] = {i, 0}; i < kBranches && j < kLeaves; pair[1] = ++j) {
      ok = ok && src.OpenKey(&leaf, child, ("b" + Num(j)).c_str(), 1) == kKeyCreated &&
           src.SetValue(leaf, "y", tBINARY, pair, sizeof pair, 1) == kOk;
    }
    return ok;
  };
  for (uint32_t i = 0; i < kBranches; ++i) ASSERT_TRUE(add(i));

  Threads threads;
  threads.emplace_back("writer", [&](Notes& notes) {
    for (uint32_t i = kBranches; i < kBranches + kExtras; ++i) notes.Check(add(i), "add c" + Num(i));
  });
  threads.emplace_back("copier near", [&](Notes& notes) {
    for (uint32_t c = 0; c < kCopies; ++c) notes.Check(src.CopyKey(tree, dst1.object(), 0) == kOk, "CopyKey near");
  });
  threads.emplace_back("copier far", [&](Notes& notes) {
    for (uint32_t c = 0; c < kCopies; ++c) notes.Check(src.CopyKey(tree, dst2.object(), into) == kOk, "CopyKey far");
  });
  threads.emplace_back("source reader", [&](Notes& notes) { TreeReader(src, tree, 0, notes); });
  threads.emplace_back("near reader", [&](Notes& notes) { TreeReader(dst1, 0, 1, notes); });
  threads.emplace_back("far reader", [&](Notes& notes) { TreeReader(dst2, into, 2, notes); });
  RunThreads(threads);

  // One more copy each brings both targets level with the finished source.
  ASSERT_EQ(Rc{src.CopyKey(tree, dst1.object(), 0)}, Rc{kOk});
  ASSERT_EQ(Rc{src.CopyKey(tree, dst2.object(), into)}, Rc{kOk});
  const std::vector<std::string> expected = Dump(src, tree);
  EXPECT_EQ(expected.size(), (kBranches + kExtras) * 2 + kBranches * kLeaves * 2);
  EXPECT_EQ(Dump(dst1), expected);
  EXPECT_EQ(Dump(dst2, into), expected);
}

// The stress: eight threads on two file-backed locking stores: writers on both, readers
// on both, a thread flushing both, a copier from the first store into the
// second and one copying within the first (never the opposite direction at
// the same time: each copy holds its source's read lock while it waits for
// the destination's write lock). Every call must succeed; afterwards each
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
