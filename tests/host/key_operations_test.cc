// Opening, walking, naming and counting keys through the loaded module:
// result codes, outputs on failure and the one trace line of each call.
#include <cstring>
#include <functional>

#include "host_fixture.h"
#include "key_test_support.h"

namespace prhost::testing {
namespace {

class KeyOperationsTest : public HostTest {};

const std::string kInvalidHandleText = FormatResult(kErrInvalidHandle);
const std::string kNotFoundText = FormatResult(kErrNotFound);
const std::string kOkText = FormatResult(kOk);

// ---- Before any tree exists -----------------------------------------------------

// Every operation on a store whose initialisation never ran; handle 0 does
// not resolve either, and a made-up handle must not be followed.
struct NoTreeCase {
  const char* name;
  std::function<tERROR(const Registry&, hKey* out, uint32_t* size)> call;
  tERROR code;
  std::string line;
  bool writes_invalid_key = false;
  bool writes_zero_size = false;
};

const hKey kMadeUp = 0x1234567890ull;

const NoTreeCase kNoTreeCases[] = {
    {"OpenKey", [](const Registry& r, hKey* k, uint32_t*) { return r.OpenKey(k, 0, "a", 0); }, kErrInvalidHandle,
     "prmap\tOpening key ?\\a: " + kInvalidHandleText, true},
    {"OpenKeyCreate", [](const Registry& r, hKey* k, uint32_t*) { return r.OpenKey(k, 0, "a", 1); },
     kErrInvalidHandle, "prmap\tOpening key ?\\a: " + kInvalidHandleText, true},
    {"OpenKeyNullPath", [](const Registry& r, hKey* k, uint32_t*) { return r.OpenKey(k, 0, nullptr, 0); },
     kErrInvalidHandle, "prmap\tOpening key ?\\(null): " + kInvalidHandleText, true},
    {"OpenKeyByIndex", [](const Registry& r, hKey* k, uint32_t*) { return r.OpenKeyByIndex(k, 0, 0); },
     kErrNotFound, "prmap\tOpenKeyByIndex 0: " + kNotFoundText, true},
    {"OpenNextKeyZero", [](const Registry& r, hKey* k, uint32_t*) { return r.OpenNextKey(k, 0); },
     kErrInvalidHandle, "prmap\tOpenNextKey : " + kInvalidHandleText, true},
    {"OpenNextKeyMadeUp", [](const Registry& r, hKey* k, uint32_t*) { return r.OpenNextKey(k, kMadeUp); },
     kErrInvalidHandle, "prmap\tOpenNextKey : " + kInvalidHandleText, true},
    {"CloseKey", [](const Registry& r, hKey*, uint32_t*) { return r.CloseKey(kMadeUp); }, kOk,
     "prmap\tClosing key 34567890: " + kOkText},
    {"GetKeyName",
     [](const Registry& r, hKey*, uint32_t* size) {
       char buffer[8];
       return r.GetKeyName(size, 0, buffer, sizeof buffer, 0);
     },
     kErrInvalidHandle, "prmap\tGetting key name 0: " + kInvalidHandleText},
    {"GetKeyNameFullPathMadeUp",
     [](const Registry& r, hKey*, uint32_t* size) {
       char buffer[8];
       return r.GetKeyName(size, kMadeUp, buffer, sizeof buffer, 1);
     },
     kErrInvalidHandle, "prmap\tGetting key name 878082192: " + kInvalidHandleText},
    {"GetKeyNameByIndex",
     [](const Registry& r, hKey*, uint32_t* size) { return r.GetKeyNameByIndex(size, 0, 3, nullptr, 0, 0); },
     kErrNotFound, "prmap\tGetting key name by index 3: " + kNotFoundText},
    {"GetKeyCount", [](const Registry& r, hKey*, uint32_t* size) { return r.GetKeyCount(size, 0); },
     kErrInvalidHandle, "prmap\tGetKeyCount : " + kInvalidHandleText, false, true},
    {"GetValueCountMadeUp", [](const Registry& r, hKey*, uint32_t* size) { return r.GetValueCount(size, kMadeUp); },
     kErrInvalidHandle, "prmap\tGetValueCount : " + kInvalidHandleText, false, true},
};

TEST_F(KeyOperationsTest, WithoutTreeNothingResolves) {
  for (uint32_t locking : {0u, 1u}) {
    Store& s = OpenStore({.locking = locking, .init = false});
    for (const NoTreeCase& c : kNoTreeCases) {
      SCOPED_TRACE(std::string(c.name) + (locking ? " locking" : ""));
      hKey key = 0x5A5A;
      uint32_t size = 0x5A5A;
      auto [code, lines] = Traced(s, [&] { return c.call(s.registry(), &key, &size); });
      EXPECT_EQ(Rc{code}, Rc{c.code});
      EXPECT_EQ(lines, OperationLines(s, {c.line}));
      if (c.writes_invalid_key) {
        EXPECT_EQ(key, kInvalidKey);
      }
      if (c.writes_zero_size) {
        EXPECT_EQ(size, 0u);
      }
    }
  }
}

// ---- OpenKey ------------------------------------------------------------------

// Start tree: a\b and c. `expect` is the opened key's path, "" for the root,
// nullptr when the output must be all ones.
struct OpenCase {
  const char* name;
  const char* parent;  // path of the parent handle, nullptr for handle 0
  const char* path;
  uint32_t create;
  uint32_t read_only;
  tERROR code;
  const char* expect;
  uint32_t keys_added;  // keys in the whole tree afterwards minus before
};

const OpenCase kOpenCases[] = {
    {"NullPathIsTheParent", nullptr, nullptr, 0, 0, kOk, "", 0},
    {"NullPathBelowAKey", "a", nullptr, 0, 0, kOk, "a", 0},
    {"EmptyPathIsTheParent", nullptr, "", 0, 0, kOk, "", 0},
    {"Existing", nullptr, "a", 0, 0, kOk, "a", 0},
    {"NestedIgnoresCase", nullptr, "A/B", 0, 0, kOk, "a\\b", 0},
    {"BackslashSeparates", nullptr, "a\\b", 0, 0, kOk, "a\\b", 0},
    {"RelativeToParent", "a", "B", 0, 0, kOk, "a\\b", 0},
    {"LeadingSeparatorStopsAtStart", "a", "/b", 0, 0, kOk, "a", 0},
    {"Missing", nullptr, "x", 0, 0, kErrNotFound, nullptr, 0},
    {"MissingBelowExisting", nullptr, "a/x", 0, 0, kErrNotFound, nullptr, 0},
    {"CreateExistingIsPlainSuccess", nullptr, "a/b", 1, 0, kOk, "a\\b", 0},
    {"CreateDirectlyBelowStart", nullptr, "x", 1, 0, kKeyCreated, "x", 1},
    {"CreateWholeChain", nullptr, "x/y/z", 1, 0, kKeyCreated, "x\\y\\z", 3},
    // The first component exists: what is made lies deeper, so no created code.
    {"CreateBelowExistingFirst", nullptr, "a/x/y", 1, 0, kOk, "a\\x\\y", 2},
    {"CreateBelowHandle", "a", "x", 1, 0, kKeyCreated, "a\\x", 1},
    {"ReadOnlyRefusesCreation", nullptr, "x", 1, 1, Code(0x800000C1), nullptr, 0},
    {"ReadOnlyStillOpens", nullptr, "a/b", 1, 1, kOk, "a\\b", 0},
    {"ReadOnlyWithoutCreate", nullptr, "x", 0, 1, kErrNotFound, nullptr, 0},
};

size_t CountKeys(const Store& s) {
  size_t keys = 0;
  for (const std::string& entry : Dump(s.registry())) keys += entry.find('|') == std::string::npos;
  return keys;
}

TEST_F(KeyOperationsTest, OpenKeyCodesHandlesAndLine) {
  for (uint32_t locking : {0u, 1u}) {
    for (const OpenCase& c : kOpenCases) {
      SCOPED_TRACE(std::string(c.name) + (locking ? " locking" : ""));
      Store& s = OpenStore({.locking = locking});
      MakeKeys(s, {"a/b", "c"});
      s.SetField(prop::kReadOnly, c.read_only);
      const size_t keys_before = CountKeys(s);
      const hKey parent = c.parent == nullptr ? 0 : KeyAt(s, c.parent);

      hKey key = 0x5A5A;
      auto [code, lines] = Traced(s, [&] { return s.registry().OpenKey(&key, parent, c.path, c.create); });
      EXPECT_EQ(Rc{code}, Rc{c.code});
      EXPECT_EQ(lines, OperationLines(s, {"prmap\tOpening key ?\\" + std::string(c.path ? c.path : "(null)") +
                                          ": " + FormatResult(c.code)}));
      if (c.expect == nullptr) {
        EXPECT_EQ(key, kInvalidKey);
      } else {
        EXPECT_EQ(FullName(s, key), c.expect);
        EXPECT_NE(key, 0u) << "a real handle, also for the root";
      }
      EXPECT_EQ(CountKeys(s), keys_before + c.keys_added);
    }
  }
}

TEST_F(KeyOperationsTest, OpenKeyNullPathGivesTheRootsRealHandle) {
  Store& s = OpenStore();
  hKey root = kInvalidKey;
  ASSERT_EQ(Rc{s.registry().OpenKey(&root, 0, nullptr, 0)}, Rc{kOk});
  Result<hKey> property = s.GetRootKeyProperty();
  EXPECT_EQ(Rc{property.code}, Rc{kOk});
  EXPECT_EQ(root, property.value);
  // The real handle and 0 name the same key.
  MakeKeys(s, {"k"});
  hKey k = kInvalidKey;
  EXPECT_EQ(Rc{s.registry().OpenKey(&k, root, "k", 0)}, Rc{kOk});
  EXPECT_EQ(k, KeyAt(s, "k"));
}

TEST_F(KeyOperationsTest, OpenKeyWithoutOutputStillWorks) {
  Store& s = OpenStore();
  EXPECT_EQ(Rc{s.registry().OpenKey(nullptr, 0, "k", 1)}, Rc{kKeyCreated});
  EXPECT_EQ(Rc{s.registry().OpenKey(nullptr, 0, "k", 0)}, Rc{kOk});
  EXPECT_EQ(Rc{s.registry().OpenKey(nullptr, 0, "missing", 0)}, Rc{kErrNotFound});
  EXPECT_EQ(CountKeys(s), 1u);
}

// The walk cannot get a key node from the host heap: no handle, and the keys
// made for earlier components stay.
TEST_F(KeyOperationsTest, OpenKeyOutOfMemory) {
  struct {
    const char* path;
    uint64_t fail_at;  // host allocation that fails, counted from the call
    bool persistent;
    std::vector<std::string> keys_after;
  } cases[] = {
      {"x", 1, false, {}},
      {"x", 1, true, {}},
      {"x/y", 1, false, {}},
      {"x/y", 3, false, {"x"}},  // x's node and name came first
      {"a/y", 1, false, {"a"}},  // below an existing key
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(std::string(c.path) + " #" + std::to_string(c.fail_at));
    Store& s = OpenStore();
    if (c.path[0] == 'a') MakeKeys(s, {"a"});
    s.heap().FailAt(c.fail_at, c.persistent);
    hKey key = 0x5A5A;
    auto [code, lines] = Traced(s, [&] { return s.registry().OpenKey(&key, 0, c.path, 1); });
    s.heap().ClearFault();
    EXPECT_EQ(Rc{code}, Rc{kErrNoMemory});
    EXPECT_EQ(key, kInvalidKey);
    EXPECT_EQ(lines, OperationLines(s, {"prmap\tOpening key ?\\" + std::string(c.path) + ": " +
                                        FormatResult(kErrNoMemory)}));
    EXPECT_EQ(Dump(s.registry()), c.keys_after);
  }
}

// ---- Enumeration ----------------------------------------------------------------

TEST_F(KeyOperationsTest, OpenKeyByIndexFollowsCreationOrder) {
  for (uint32_t locking : {0u, 1u}) {
    SCOPED_TRACE(locking);
    Store& s = OpenStore({.locking = locking});
    MakeKeys(s, {"Zeta", "alpha", "Mid/inner"});
    const hKey mid = KeyAt(s, "mid");
    struct {
      hKey parent;
      uint32_t index;
      tERROR code;
      const char* expect;
    } cases[] = {
        {0, 0, kOk, "Zeta"},      {0, 1, kOk, "alpha"},      {0, 2, kOk, "Mid"},
        {0, 1, kOk, "alpha"},     {0, 3, kErrNotFound, nullptr}, {0, 0xFFFFFFFF, kErrNotFound, nullptr},
        {mid, 0, kOk, "Mid\\inner"}, {mid, 1, kErrNotFound, nullptr},
    };
    for (const auto& c : cases) {
      SCOPED_TRACE(c.index);
      hKey key = 0x5A5A;
      auto [code, lines] = Traced(s, [&] { return s.registry().OpenKeyByIndex(&key, c.parent, c.index); });
      EXPECT_EQ(Rc{code}, Rc{c.code});
      EXPECT_EQ(lines, OperationLines(s, {"prmap\tOpenKeyByIndex " + std::to_string(static_cast<int32_t>(c.index)) +
                                          ": " + FormatResult(c.code)}));
      if (c.expect == nullptr) {
        EXPECT_EQ(key, kInvalidKey);
      } else {
        EXPECT_EQ(FullName(s, key), c.expect);
      }
    }
    EXPECT_EQ(Rc{s.registry().OpenKeyByIndex(nullptr, 0, 0)}, Rc{kOk}) << "output may be null";
  }
}

TEST_F(KeyOperationsTest, OpenNextKeyWalksSiblingsBelowTheCurrentRoot) {
  Store& s = OpenStore();
  MakeKeys(s, {"a/a1", "a/a2", "a/a3", "b", "c"});
  const hKey a = KeyAt(s, "a"), a1 = KeyAt(s, "a/a1"), a2 = KeyAt(s, "a/a2"), a3 = KeyAt(s, "a/a3");
  const hKey b = KeyAt(s, "b"), c = KeyAt(s, "c");
  hKey root = kInvalidKey;
  ASSERT_EQ(Rc{s.registry().OpenKey(&root, 0, nullptr, 0)}, Rc{kOk});

  struct Case {
    const char* root_point;
    hKey key;
    hKey next;  // kInvalidKey: no next key
  };
  const Case cases[] = {
      {"", a, b},     {"", b, c},      {"", a1, a2},   {"", a2, a3},
      {"", c, kInvalidKey},   // last child
      {"", a3, kInvalidKey},  // last of a nested list
      {"", 0, kInvalidKey},   // 0 is not resolved to the root here
      {"", root, kInvalidKey},  // the current root has no next key
      {"a", a1, a2},
      {"a", a, kInvalidKey},  // now the current root itself
      {"a", b, kInvalidKey},  // outside the current root's subtree
      {"a", a3, kInvalidKey},
  };
  for (const Case& k : cases) {
    SCOPED_TRACE(std::string(k.root_point) + " " + FullName(s, k.key));
    ASSERT_EQ(Rc{s.registry().SetRootStr(k.root_point)}, Rc{kOk});
    hKey next = 0x5A5A;
    auto [code, lines] = Traced(s, [&] { return s.registry().OpenNextKey(&next, k.key); });
    const tERROR want = k.next == kInvalidKey ? kErrInvalidHandle : kOk;
    EXPECT_EQ(Rc{code}, Rc{want});
    EXPECT_EQ(next, k.next);
    EXPECT_EQ(lines, OperationLines(s, {"prmap\tOpenNextKey : " + FormatResult(want)}));
  }
  EXPECT_EQ(Rc{s.registry().OpenNextKey(nullptr, a1)}, Rc{kOk}) << "output may be null";
}

TEST_F(KeyOperationsTest, CloseKeyAcceptsAnyHandle) {
  Store& s = OpenStore({.locking = 1});
  MakeKeys(s, {"k"});
  const hKey k = KeyAt(s, "k");
  for (hKey handle : {hKey{0}, k, kInvalidKey, hKey{0xABCDEF0012345678}}) {
    SCOPED_TRACE(handle);
    auto [code, lines] = Traced(s, [&] { return s.registry().CloseKey(handle); });
    EXPECT_EQ(Rc{code}, Rc{kOk});
    EXPECT_EQ(lines, OperationLines(s, {"prmap\tClosing key " + HexLow(handle) + ": " + kOkText}));
  }
  EXPECT_EQ(KeyAt(s, "k"), k) << "closing releases nothing";
}

// ---- Names ------------------------------------------------------------------------

// The text-out convention on the key "Top\Alpha" (own name "Alpha", 6 bytes
// with the NUL; full path "Top\Alpha", 10 bytes).
struct NameCase {
  const char* name;
  uint32_t full_path;
  bool with_buffer;
  uint32_t buffer_size;
  tERROR code;
  uint32_t size;        // written to the size output
  const char* copied;   // nullptr: the buffer stays untouched
};

const NameCase kNameCases[] = {
    {"SizeQuery", 0, false, 0, kOk, 6, nullptr},
    {"NullBufferWithSize", 0, false, 6, kErrBadParameter, 6, nullptr},
    {"OneShort", 0, true, 5, kErrBufferTooSmall, 6, nullptr},
    {"Exact", 0, true, 6, kOk, 6, "Alpha"},
    {"Roomy", 0, true, 64, kOk, 6, "Alpha"},
    {"ZeroSizedBuffer", 0, true, 0, kErrBufferTooSmall, 6, nullptr},
    {"FullSizeQuery", 1, false, 0, kOk, 10, nullptr},
    {"FullNullBufferWithSize", 1, false, 10, kErrBadParameter, 10, nullptr},
    {"FullOneShort", 1, true, 9, kErrBufferTooSmall, 10, nullptr},
    {"FullExact", 1, true, 10, kOk, 10, "Top\\Alpha"},
};

TEST_F(KeyOperationsTest, KeyNamesFollowTheTextOutConvention) {
  Store& s = OpenStore();
  MakeKeys(s, {"Other", "Top/Alpha"});
  const hKey alpha = KeyAt(s, "top/alpha");
  const hKey top = KeyAt(s, "top");
  for (const NameCase& c : kNameCases) {
    for (bool by_index : {false, true}) {
      SCOPED_TRACE(std::string(c.name) + (by_index ? " by index" : ""));
      char buffer[64];
      std::memset(buffer, '#', sizeof buffer);
      uint32_t size = 0x5A5A;
      void* out = c.with_buffer ? buffer : nullptr;
      auto [code, lines] = Traced(s, [&] {
        return by_index ? s.registry().GetKeyNameByIndex(&size, top, 0, out, c.buffer_size, c.full_path)
                        : s.registry().GetKeyName(&size, alpha, out, c.buffer_size, c.full_path);
      });
      EXPECT_EQ(Rc{code}, Rc{c.code});
      EXPECT_EQ(size, c.size);
      if (c.copied != nullptr) {
        EXPECT_EQ(std::string(buffer, c.size), std::string(c.copied, c.size));
        EXPECT_EQ(buffer[c.size], '#') << "nothing past the NUL";
      } else {
        EXPECT_EQ(buffer[0], '#');
      }
      const std::string text = by_index ? "prmap\tGetting key name by index 0: " + FormatResult(c.code)
                                        : "prmap\tGetting key name " + SignedLow(alpha) + ": " + FormatResult(c.code);
      EXPECT_EQ(lines, OperationLines(s, {text}));
    }
  }
  char buffer[8];
  EXPECT_EQ(Rc{s.registry().GetKeyName(nullptr, alpha, buffer, sizeof buffer, 0)}, Rc{kOk}) << "size may be null";
  EXPECT_STREQ(buffer, "Alpha");
}

// Full paths are taken below the current root; the root's own name leads
// unless it is the unnamed top root.
TEST_F(KeyOperationsTest, FullPathIsBelowTheCurrentRoot) {
  Store& s = OpenStore();
  MakeKeys(s, {"Top/Alpha/Deep", "Side"});
  const hKey deep = KeyAt(s, "top/alpha/deep");
  const hKey side = KeyAt(s, "side");
  struct {
    const char* root_point;
    hKey key;
    tERROR code;
    const char* path;
  } cases[] = {
      {"", 0, kOk, ""},
      {"", deep, kOk, "Top\\Alpha\\Deep"},
      {"top", deep, kOk, "Top\\Alpha\\Deep"},
      {"top/alpha", deep, kOk, "Alpha\\Deep"},
      {"top/alpha", 0, kOk, "Alpha"},
      {"top", side, Code(0x8000004B), nullptr},  // not below the current root
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(std::string(c.root_point) + " " + HexLow(c.key));
    ASSERT_EQ(Rc{s.registry().SetRootStr(c.root_point)}, Rc{kOk});
    char buffer[64] = {};
    uint32_t size = 0x5A5A;
    EXPECT_EQ(Rc{s.registry().GetKeyName(&size, c.key, buffer, sizeof buffer, 1)}, Rc{c.code});
    if (c.path != nullptr) {
      EXPECT_EQ(std::string(buffer), c.path);
      EXPECT_EQ(size, std::strlen(c.path) + 1);
    }
  }
}

TEST_F(KeyOperationsTest, RootNameIsEmptyButPresent) {
  Store& s = OpenStore();
  char buffer[4] = {'#', '#', '#', '#'};
  uint32_t size = 0;
  EXPECT_EQ(Rc{s.registry().GetKeyName(&size, 0, buffer, sizeof buffer, 0)}, Rc{kOk});
  EXPECT_EQ(size, 1u);
  EXPECT_EQ(buffer[0], '\0');
}

// ---- Counts -----------------------------------------------------------------------

TEST_F(KeyOperationsTest, CountsOfKeysAndValues) {
  for (uint32_t locking : {0u, 1u}) {
    SCOPED_TRACE(locking);
    Store& s = OpenStore({.locking = locking});
    MakeKeys(s, {"a/x", "a/y", "b"});
    const hKey a = KeyAt(s, "a");
    const Client client = s.client();
    for (const char* name : {"one", "two", "three"}) EXPECT_EQ(Rc{client.SetDword(a, name, 1)}, Rc{kOk});
    EXPECT_EQ(Rc{client.SetString(0, "top", "v")}, Rc{kOk});

    struct {
      hKey key;
      bool values;
      uint32_t count;
    } cases[] = {{0, false, 2}, {0, true, 1}, {a, false, 2}, {a, true, 3}, {KeyAt(s, "b"), false, 0},
                 {KeyAt(s, "b"), true, 0}};
    for (const auto& c : cases) {
      const char* op = c.values ? "GetValueCount" : "GetKeyCount";
      SCOPED_TRACE(std::string(op) + " " + FullName(s, c.key));
      uint32_t count = 0x5A5A;
      auto [code, lines] = Traced(s, [&] {
        return c.values ? s.registry().GetValueCount(&count, c.key) : s.registry().GetKeyCount(&count, c.key);
      });
      EXPECT_EQ(Rc{code}, Rc{kOk});
      EXPECT_EQ(count, c.count);
      EXPECT_EQ(lines, OperationLines(s, {"prmap\t" + std::string(op) + " : " + kOkText}));
    }
    EXPECT_EQ(Rc{s.registry().GetKeyCount(nullptr, a)}, Rc{kOk}) << "output may be null";
    EXPECT_EQ(Rc{s.registry().GetValueCount(nullptr, a)}, Rc{kOk});
  }
}

}  // namespace
}  // namespace prhost::testing
