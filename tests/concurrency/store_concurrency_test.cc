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
// A value read as tSTRING or tWSTRING (narrowed back; the texts are ASCII).
std::string ValueText(const Registry& r, hKey key, const char* name, uint32_t type = tSTRING) {
  wchar_t buffer[128] = {};
  uint32_t size = 0;
  if (r.GetValue(&size, key, name, &type, buffer, sizeof buffer) != kOk) return "";
  if (type == tSTRING) return reinterpret_cast<const char*>(buffer);
  return std::string(buffer, buffer + std::wcslen(buffer));
}

// Whether `text` is `prefix` and then a multiple of 3, as every number written here is.
bool Fits(const std::string& text, const std::string& prefix = "") {
  uint32_t n = 1;
  const char* last = text.data() + text.size();
  if (text.size() <= prefix.size() || text.compare(0, prefix.size(), prefix) != 0) return false;
  auto [end, ec] = std::from_chars(text.data() + prefix.size(), last, n);
  return ec == std::errc{} && end == last && n % 3 == 0;
}

// Keys are only appended, so child i is always "k<i>": a count once seen
// never shrinks, index, name and sibling walk agree, and a walk from inside
// the count reaches its end or runs on into keys added since.
TEST_F(ConcurrencyTest, ReadersEnumerateWhileAWriterAddsKeys) {
  constexpr uint32_t kAdded = 200, kReaders = 3, kRounds = 120;
  Store& store = OpenLockedStore();
  const Registry r = store.registry();
  hKey parent = kInvalidKey;
  ASSERT_EQ(Rc{r.OpenKey(&parent, 0, "Enum", 1)}, Rc{kKeyCreated});
  auto name = [](uint32_t i) { return "k" + Num(i); };

  Threads threads;
  threads.emplace_back("writer", [&](Notes& notes) {
    for (uint32_t i = 0; i < kAdded; ++i) {
      hKey child = kInvalidKey;
      notes.Check(r.OpenKey(&child, parent, name(i).c_str(), 1) == kKeyCreated, "create " + name(i));
      if (i % 2 == 0) notes.Check(r.OpenKey(nullptr, child, "sub", 1) == kKeyCreated, "create sub of " + name(i));
    }
  });
  for (uint32_t t = 0; t < kReaders; ++t) {
    threads.emplace_back("reader " + Num(t), [&, t](Notes& notes) {
      uint32_t seen = 0;
      for (uint32_t round = 0; round < kRounds && notes.clean(); ++round) {
        uint32_t count = ~0u;
        notes.Check(r.GetKeyCount(&count, parent) == kOk && count >= seen && count <= kAdded,
                    "count " + Num(count) + " after " + Num(seen));
        seen = count;
        if (count == 0) continue;
        uint32_t i = (round * 37 + t * 11) % count;
        hKey at = kInvalidKey;
        notes.Check(r.OpenKeyByIndex(&at, parent, i) == kOk, "OpenKeyByIndex " + Num(i));
        for (uint32_t step = 0; step < 16 && notes.clean(); ++step, ++i) {
          hKey by_index = kInvalidKey;
          notes.Check(r.OpenKeyByIndex(&by_index, parent, i) == kOk && by_index == at, "child " + Num(i));
          notes.Check(KeyName(r, parent, i) == name(i) && KeyName(r, at) == name(i), "name of " + name(i));
          hKey next = 0;
          const tERROR err = r.OpenNextKey(&next, at);
          if (err != kOk) {
            notes.Check(err == kErrInvalidHandle && next == kInvalidKey && i + 1 >= count,
                        "walk ended after " + name(i) + " of " + Num(count) + ": " + FormatResult(err));
            break;
          }
          at = next;
        }
        // By path, in any case: found with its stored name, or not yet there.
        const uint32_t j = (round * 13 + t * 5) % kAdded;
        hKey by_path = 0;
        const tERROR err = r.OpenKey(&by_path, parent, ("K" + Num(j)).c_str(), 0);
        notes.Check(err == kOk ? KeyName(r, by_path, {}, 1) == "Enum\\" + name(j)
                               : err == kErrNotFound && by_path == kInvalidKey && j >= seen,
                    "K" + Num(j) + ": " + FormatResult(err) + " with " + Num(seen) + " counted");
      }
    });
  }
  RunThreads(threads);

  std::vector<std::string> expected;
  for (uint32_t i = 0; i < kAdded; ++i) expected.push_back(name(i));
  EXPECT_EQ(store.client().SubkeyNames(parent).value, expected);
}

// "Stable" holds Number (a dword) and Label first, then temporaries the
// writer adds and deletes; its sub-keys are "Fixed" (whose handle readers
// keep) and children the writer deletes and recreates. Every number written
// is a multiple of 3, whatever type it was written or is read as.
constexpr uint32_t kWrites = 600, kValueReaders = 3, kValueRounds = 300, kTemps = 4, kChildren = 3;

void ValueWriter(const Registry& r, hKey stable, hKey fixed, Notes& notes) {
  std::deque<std::string> temps, children;  // present ones, oldest first
  for (uint32_t i = 1; i <= kWrites && notes.clean(); ++i) {
    const uint32_t v = 3 * i;
    const uint64_t q = v;
    const std::string text = Num(v), label = "label-" + text;
    const std::wstring wide(label.begin(), label.end());
    tERROR err = i % 4 == 0   ? r.SetValue(stable, "Number", tDWORD, &v, 4, 0)
                 : i % 4 == 1 ? r.SetValue(stable, "NUMBER", tSTRING, text.c_str(), text.size() + 1, 0)
                 : i % 4 == 2 ? r.SetValueByIndex(stable, 0, tDWORD, &v, 4, 0)
                              : r.SetValue(stable, "Number", tQWORD, &q, 8, 0);
    notes.Check(err == kOk, "set Number " + Num(i % 4) + ": " + FormatResult(err));
    err = i % 2 ? r.SetValue(stable, "Label", tSTRING, label.c_str(), label.size() + 1, 0)
                : r.SetValue(stable, "Label", tWSTRING, wide.c_str(), 4 * (wide.size() + 1), 0);
    notes.Check(err == kOk, "set Label: " + FormatResult(err));
    notes.Check(r.SetValue(fixed, "Mirror", tSTRING, text.c_str(), text.size() + 1, 1) == kOk, "set Mirror");

    // A temporary comes if absent, else goes by name or by index.
    const std::string temp = "Temp" + Num(i % kTemps);
    if (auto it = std::find(temps.begin(), temps.end(), temp); it == temps.end()) {
      notes.Check(r.SetValue(stable, temp.c_str(), tDWORD, &v, 4, 1) == kOk, "add " + temp);
      temps.push_back(temp);
    } else {
      const uint32_t index = 2 + static_cast<uint32_t>(it - temps.begin());
      notes.Check((i % 3 ? r.DeleteValue(stable, temp.c_str()) : r.DeleteValueByInd(stable, index)) == kOk,
                  "delete " + temp);
      temps.erase(it);
    }
    // Likewise a child key, made with content below it.
    const std::string child = "Child" + Num(i % kChildren);
    if (auto it = std::find(children.begin(), children.end(), child); it == children.end()) {
      hKey inner = kInvalidKey;
      notes.Check(r.OpenKey(&inner, stable, (child + "\\Inner").c_str(), 1) == kKeyCreated, "create " + child);
      notes.Check(r.SetValue(inner, "n", tDWORD, &v, 4, 1) == kOk, "fill " + child);
      children.push_back(child);
    } else {
      const uint32_t index = 1 + static_cast<uint32_t>(it - children.begin());
      notes.Check((i % 2 ? r.DeleteKey(stable, child.c_str()) : r.DeleteKeyByInd(stable, index)) == kOk,
                  "delete " + child);
      children.erase(it);
    }
  }
}

void ValueReader(const Registry& r, hKey stable, hKey fixed, uint32_t seed, Notes& notes) {
  for (uint32_t round = 0; round < kValueRounds && notes.clean(); ++round) {
    uint32_t number = 1, size = 0, type = tDWORD;
    tERROR err = r.GetValue(&size, stable, "Number", &type, &number, sizeof number);
    notes.Check(err == kOk && size == 4 && number % 3 == 0, "Number " + Num(number) + ": " + FormatResult(err));
    uint64_t wide_number = 1;
    type = tQWORD;
    err = r.GetValue(&size, stable, "Number", &type, &wide_number, sizeof wide_number);
    notes.Check(err == kOk && wide_number % 3 == 0, "Number as a qword " + Num(wide_number));
    type = 0;
    (void)r.GetValue(&size, stable, "Number", &type, nullptr, 0);
    notes.Check(type == tDWORD, "stored type of Number became " + Num(type));
    notes.Check(Fits(ValueText(r, stable, "number")), "Number as text");
    notes.Check(Fits(ValueText(r, stable, "Label"), "label-"), "Label as text");
    notes.Check(Fits(ValueText(r, stable, "LABEL", tWSTRING), "label-"), "Label as wide text");
    notes.Check(Fits(ValueText(r, fixed, "Mirror")), "Mirror");

    // A temporary by name is there with a written number, or gone.
    const std::string temp = "Temp" + Num((round + seed) % kTemps);
    uint32_t temp_value = 1;
    type = tDWORD;
    err = r.GetValue(&size, stable, temp.c_str(), &type, &temp_value, sizeof temp_value);
    notes.Check(err == kErrNotFound || (err == kOk && temp_value % 3 == 0), temp + ": " + FormatResult(err));

    // By index: the fixed values keep their places, the rest read as numbers.
    uint32_t count = 0;
    notes.Check(r.GetValueCount(&count, stable) == kOk && count >= 2 && count <= 2 + kTemps, "value count");
    const uint32_t index = (round * 7 + seed) % (2 + kTemps);
    char text[128] = {};
    type = tSTRING;
    err = r.GetValueByIndex(&size, stable, index, &type, text, sizeof text);
    notes.Check(err == kErrNotFound ? index >= 2 : err == kOk && Fits(text, index == 1 ? "label-" : ""),
                "value " + Num(index) + " '" + text + "': " + FormatResult(err));

    // Sub-keys come and go; "Fixed" stays first.
    notes.Check(KeyName(r, stable, 0) == "Fixed", "first sub-key");
    const std::string inner = "Child" + Num((round + seed) % kChildren) + "/Inner";
    err = r.OpenKey(nullptr, stable, inner.c_str(), 0);
    notes.Check(err == kOk || err == kErrNotFound, "OpenKey " + inner + ": " + FormatResult(err));
  }
}

TEST_F(ConcurrencyTest, ReadersSeeOnlyWrittenValuesWhileAWriterChangesThem) {
  Store& store = OpenLockedStore();
  const Registry r = store.registry();
  hKey stable = kInvalidKey, fixed = kInvalidKey;
  ASSERT_EQ(Rc{r.OpenKey(&stable, 0, "Stable", 1)}, Rc{kKeyCreated});
  ASSERT_EQ(Rc{r.OpenKey(&fixed, stable, "Fixed", 1)}, Rc{kKeyCreated});
  const uint32_t zero = 0;
  ASSERT_EQ(Rc{r.SetValue(stable, "Number", tDWORD, &zero, 4, 1)}, Rc{kOk});
  ASSERT_EQ(Rc{r.SetValue(stable, "Label", tSTRING, "label-0", 8, 1)}, Rc{kOk});
  ASSERT_EQ(Rc{r.SetValue(fixed, "Mirror", tSTRING, "0", 2, 1)}, Rc{kOk});

  Threads threads;
  threads.emplace_back("writer", [&](Notes& notes) { ValueWriter(r, stable, fixed, notes); });
  for (uint32_t t = 0; t < kValueReaders; ++t) {
    threads.emplace_back("reader " + Num(t), [&, t](Notes& notes) { ValueReader(r, stable, fixed, t, notes); });
  }
  RunThreads(threads);

  const Client client = store.client();
  EXPECT_EQ(client.GetDword(stable, "Number").value, 3 * kWrites);
  EXPECT_EQ(client.GetString(stable, "Label").value, "label-" + Num(3 * kWrites));
  EXPECT_EQ(client.GetString(fixed, "Mirror").value, Num(3 * kWrites));
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
