// The store's root point and name: the SetRootKey / SetRootStr operations and
// the six accessor properties, before and after initialisation.
#include <cstring>
#include <functional>

#include "host_fixture.h"
#include "key_test_support.h"

namespace prhost::testing {
namespace {

class RootOperationsTest : public HostTest {};

const std::string kNotImplementedText = FormatResult(kErrNotImplemented);

// The current root's path from the top root, as getRootPoint gives it.
std::string RootPoint(Store& s) {
  Result<std::string> point = s.GetRootPoint();
  return point.ok() ? point.value : "<" + FormatResult(point.code) + ">";
}

// ---- Without a tree ----------------------------------------------------------------

struct NoTreeCase {
  const char* name;
  std::function<tERROR(Store&)> call;
  std::string line;
};

const NoTreeCase kNoTreeCases[] = {
    {"SetRootKeyZero", [](Store& s) { return s.registry().SetRootKey(0); },
     "prmap\tSetRootKey : " + kNotImplementedText},
    {"SetRootKeyMadeUp", [](Store& s) { return s.registry().SetRootKey(0x1234); },
     "prmap\tSetRootKey : " + kNotImplementedText},
    {"SetRootStr", [](Store& s) { return s.registry().SetRootStr("a"); },
     "prmap\tSetRootStr : " + kNotImplementedText},
    // The missing tree is reported before the missing path.
    {"SetRootStrNull", [](Store& s) { return s.registry().SetRootStr(nullptr); },
     "prmap\tSetRootStr : " + kNotImplementedText},
    {"setRootKey", [](Store& s) { return s.SetRootKeyProperty(0); }, "prmap\tsetRootKey : " + kNotImplementedText},
    {"getRootPoint",
     [](Store& s) {
       char buffer[8];
       uint32_t size = 0x5A5A;
       tERROR code = s.GetProperty(prop::kRootPoint, buffer, sizeof buffer, &size);
       EXPECT_EQ(size, 0u);
       return code;
     },
     "prmap\tgetRootPoint : " + kNotImplementedText},
};

TEST_F(RootOperationsTest, RootOperationsNeedATree) {
  Store& s = OpenStore({.init = false});
  for (const NoTreeCase& c : kNoTreeCases) {
    SCOPED_TRACE(c.name);
    auto [code, lines] = Traced(s, [&] { return c.call(s); });
    EXPECT_EQ(Rc{code}, Rc{kErrNotImplemented});
    EXPECT_EQ(lines, OperationLines(s, {c.line}));
  }
}

// ---- SetRootStr / SetRootKey ----------------------------------------------------------

TEST_F(RootOperationsTest, SetRootStrWalksFromTheTopRoot) {
  Store& s = OpenStore();
  MakeKeys(s, {"a/b/c", "d"});
  struct {
    const char* path;
    tERROR code;
    const char* root_after;
  } steps[] = {
      {"a/b", kOk, "a\\b"},
      {"missing", kErrNotFound, "a\\b"},   // the old root stays
      {"c", kErrNotFound, "a\\b"},         // not relative to the current root
      {"A\\B\\C", kOk, "a\\b\\c"},
      {"d", kOk, "d"},
      {"", kOk, ""},
      {nullptr, kErrBadParameter, ""},
  };
  for (const auto& step : steps) {
    SCOPED_TRACE(step.path ? step.path : "(null)");
    auto [code, lines] = Traced(s, [&] { return s.registry().SetRootStr(step.path); });
    EXPECT_EQ(Rc{code}, Rc{step.code});
    EXPECT_EQ(lines, OperationLines(s, {"prmap\tSetRootStr : " + FormatResult(step.code)}));
    EXPECT_EQ(RootPoint(s), step.root_after);
  }
}

// SetRootKey and the setRootKey property take the same handles; a handle of
// another store, even a live one, is not in this tree.
TEST_F(RootOperationsTest, SetRootKeyAcceptsOnlyKeysOfThisTree) {
  Store& other = OpenStore();
  MakeKeys(other, {"a/b"});
  const hKey foreign = KeyAt(other, "a/b");

  for (bool property : {false, true}) {
    SCOPED_TRACE(property ? "setRootKey" : "SetRootKey");
    Store& s = OpenStore({.locking = 1});
    MakeKeys(s, {"a/b", "c"});
    struct {
      hKey key;
      tERROR code;
      const char* root_after;
    } steps[] = {
        {KeyAt(s, "a/b"), kOk, "a\\b"},
        {foreign, kErrNotFound, "a\\b"},
        {0x1234, kErrNotFound, "a\\b"},
        {KeyAt(s, "c"), kOk, "c"},  // searched from the top, not the current root
        {0, kOk, ""},
    };
    for (const auto& step : steps) {
      auto [code, lines] = Traced(s, [&] {
        return property ? s.SetRootKeyProperty(step.key) : s.registry().SetRootKey(step.key);
      });
      EXPECT_EQ(Rc{code}, Rc{step.code});
      EXPECT_EQ(lines, OperationLines(s, {std::string("prmap\t") + (property ? "setRootKey" : "SetRootKey") + " : " +
                                          FormatResult(step.code)}));
      EXPECT_EQ(RootPoint(s), step.root_after);
    }
  }
}

TEST_F(RootOperationsTest, HandleZeroFollowsTheRoot) {
  Store& s = OpenStore();
  MakeKeys(s, {"a/b/x", "a/b/y", "b"});
  ASSERT_EQ(Rc{s.client().SetDword(KeyAt(s, "a/b"), "v", 7)}, Rc{kOk});
  ASSERT_EQ(Rc{s.registry().SetRootStr("a/b")}, Rc{kOk});

  uint32_t count = 0;
  EXPECT_EQ(Rc{s.registry().GetKeyCount(&count, 0)}, Rc{kOk});
  EXPECT_EQ(count, 2u);
  EXPECT_EQ(Rc{s.registry().GetValueCount(&count, 0)}, Rc{kOk});
  EXPECT_EQ(count, 1u);
  EXPECT_EQ(s.client().SubkeyNames().value, (std::vector<std::string>{"x", "y"}));
  EXPECT_NE(KeyAt(s, "x"), kInvalidKey) << "relative paths start at the root point";
  EXPECT_EQ(KeyAt(s, "b"), kInvalidKey);

  hKey root = kInvalidKey;
  EXPECT_EQ(Rc{s.registry().OpenKey(&root, 0, nullptr, 0)}, Rc{kOk});
  ASSERT_EQ(Rc{s.registry().SetRootStr("")}, Rc{kOk});
  EXPECT_EQ(root, KeyAt(s, "a/b"));
}

// ---- Name ------------------------------------------------------------------------------

struct GetTextCase {
  const char* name;
  bool with_buffer;
  uint32_t buffer_size;
  tERROR code;
  bool copied;
};

// The name "dir/p.xml" needs 10 bytes.
const GetTextCase kGetNameCases[] = {
    {"NoBuffer", false, 0, kErrBufferTooSmall, false},
    {"OneShort", true, 9, kErrBufferTooSmall, false},
    {"Exact", true, 10, kOk, true},
    {"Roomy", true, 32, kOk, true},
};

TEST_F(RootOperationsTest, GetNameReportsTheSizeAndCopiesWhenItFits) {
  Store& s = OpenStore({.name = "dir/p.xml", .init = false});
  for (const GetTextCase& c : kGetNameCases) {
    SCOPED_TRACE(c.name);
    char buffer[32];
    std::memset(buffer, '#', sizeof buffer);
    uint32_t size = 0x5A5A;
    auto [code, lines] = Traced(s, [&] {
      return s.GetProperty(prop::kName, c.with_buffer ? buffer : nullptr, c.buffer_size, &size);
    });
    EXPECT_EQ(Rc{code}, Rc{c.code});
    EXPECT_EQ(size, 10u);
    EXPECT_EQ(std::string(buffer, 10), c.copied ? std::string("dir/p.xml\0", 10) : std::string(10, '#'));
    EXPECT_EQ(lines, OperationLines(s, {"prmap\tgetName : " + FormatResult(c.code)}));
  }
}

TEST_F(RootOperationsTest, SetNameTakesTheSizeWithItsNul) {
  Store& s = OpenStore({.init = false});
  struct {
    const char* name;
    const char* text;
    uint32_t size;
    tERROR code;
    bool traced;
    const char* name_after;
    uint32_t size_after;
  } steps[] = {
      {"Whole", "profile.xml", 12, kOk, true, "profile.xml", 0},
      {"SizeCutsTheText", "abcdef", 4, kOk, true, "abc", 0},
      {"NullBuffer", nullptr, 5, kErrBadParameter, false, "abc", 0x5A5A},
      // Size 0 wraps to an impossible length: the exception carries no code.
      {"ZeroSize", "x", 0, Code(0x80000151), true, "abc", 0x5A5A},
      {"Empty", "", 1, kOk, true, "", 0},
  };
  for (const auto& step : steps) {
    SCOPED_TRACE(step.name);
    uint32_t size = 0x5A5A;
    auto [code, lines] = Traced(s, [&] { return s.SetProperty(prop::kName, step.text, step.size, &size); });
    EXPECT_EQ(Rc{code}, Rc{step.code});
    EXPECT_EQ(size, step.size_after);
    if (step.traced) {
      EXPECT_EQ(lines, OperationLines(s, {"prmap\tsetName : " + FormatResult(step.code)}));
    } else {
      EXPECT_EQ(lines, std::vector<TraceLine>{});
    }
    EXPECT_EQ(s.GetName().value, step.name_after);
  }
}

// ---- getRootKey / setRootKey arguments --------------------------------------------------

struct RootKeyCase {
  const char* name;
  bool with_buffer;
  uint32_t buffer_size;
  tERROR code;
};

const RootKeyCase kGetRootKeyCases[] = {
    {"SizeQuery", false, 0, kOk},
    {"NoBufferWithSize", false, 8, kErrBadParameter},
    {"Short", true, 7, kErrBufferTooSmall},
    {"Exact", true, 8, kOk},
    {"Roomy", true, 16, kOk},
};

TEST_F(RootOperationsTest, GetRootKeyGivesTheCurrentRootsHandle) {
  Store& s = OpenStore();
  MakeKeys(s, {"a"});
  ASSERT_EQ(Rc{s.registry().SetRootStr("a")}, Rc{kOk});
  for (const RootKeyCase& c : kGetRootKeyCases) {
    SCOPED_TRACE(c.name);
    hKey buffer[2] = {0x5A5A, 0x5A5A};
    uint32_t size = 0x5A5A;
    auto [code, lines] = Traced(s, [&] {
      return s.GetProperty(prop::kRootKey, c.with_buffer ? buffer : nullptr, c.buffer_size, &size);
    });
    EXPECT_EQ(Rc{code}, Rc{c.code});
    EXPECT_EQ(size, 8u);
    EXPECT_EQ(buffer[0], c.with_buffer && c.code == kOk ? KeyAt(s, "") : hKey{0x5A5A});
    EXPECT_EQ(buffer[1], hKey{0x5A5A});
    // The one line without the component tag.
    EXPECT_EQ(lines, OperationLines(s, {"getRootKey : " + FormatResult(c.code)}));
  }
}

TEST_F(RootOperationsTest, SetRootKeyNeedsAWholeHandle) {
  Store& s = OpenStore();
  MakeKeys(s, {"a"});
  const hKey a = KeyAt(s, "a");
  struct {
    const char* name;
    bool with_buffer;
    uint32_t buffer_size;
    tERROR code;
    const char* root_after;
  } cases[] = {
      {"NoBuffer", false, 8, kErrBadParameter, ""},
      {"Short", true, 7, kErrBadParameter, ""},
      {"Exact", true, 8, kOk, "a"},
      {"Roomy", true, 12, kOk, "a"},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    ASSERT_EQ(Rc{s.registry().SetRootKey(0)}, Rc{kOk});
    char buffer[12] = {};
    std::memcpy(buffer, &a, sizeof a);
    uint32_t size = 0x5A5A;
    auto [code, lines] = Traced(s, [&] {
      return s.SetProperty(prop::kRootKey, c.with_buffer ? buffer : nullptr, c.buffer_size, &size);
    });
    EXPECT_EQ(Rc{code}, Rc{c.code});
    EXPECT_EQ(size, 0u);
    EXPECT_EQ(lines, OperationLines(s, {"prmap\tsetRootKey : " + FormatResult(c.code)}));
    EXPECT_EQ(RootPoint(s), c.root_after);
  }
}

// ---- getRootPoint / setRootPoint with a tree ----------------------------------------------

TEST_F(RootOperationsTest, GetRootPointFollowsTheTextOutConvention) {
  Store& s = OpenStore();
  MakeKeys(s, {"Ab/Cd"});
  ASSERT_EQ(Rc{s.registry().SetRootStr("ab/cd")}, Rc{kOk});
  // "Ab\Cd" needs 6 bytes.
  const GetTextCase cases[] = {
      {"SizeQuery", false, 0, kOk, false},
      {"NoBufferWithSize", false, 6, kErrBadParameter, false},
      {"OneShort", true, 5, kErrBufferTooSmall, false},
      {"Exact", true, 6, kOk, true},
  };
  for (const GetTextCase& c : cases) {
    SCOPED_TRACE(c.name);
    char buffer[16];
    std::memset(buffer, '#', sizeof buffer);
    uint32_t size = 0x5A5A;
    auto [code, lines] = Traced(s, [&] {
      return s.GetProperty(prop::kRootPoint, c.with_buffer ? buffer : nullptr, c.buffer_size, &size);
    });
    EXPECT_EQ(Rc{code}, Rc{c.code});
    EXPECT_EQ(size, 6u);
    EXPECT_EQ(std::string(buffer, 7), c.copied ? std::string("Ab\\Cd\0#", 7) : std::string(7, '#'));
    EXPECT_EQ(lines, OperationLines(s, {"prmap\tgetRootPoint : " + FormatResult(c.code)}));
  }
  ASSERT_EQ(Rc{s.registry().SetRootStr("")}, Rc{kOk});
  EXPECT_EQ(RootPoint(s), "");
}

TEST_F(RootOperationsTest, SetRootPointWithATreeMovesTheRoot) {
  Store& s = OpenStore();
  MakeKeys(s, {"a/b"});
  struct {
    const char* text;
    tERROR code;
    const char* root_after;
  } steps[] = {
      {"a/b", kOk, "a\\b"},
      {"nowhere", kErrNotFound, "a\\b"},
      {"", kOk, ""},
      {nullptr, kErrBadParameter, ""},
  };
  for (const auto& step : steps) {
    SCOPED_TRACE(step.text ? step.text : "(null)");
    uint32_t size = 0x5A5A;
    auto [code, lines] = Traced(s, [&] {
      return s.SetProperty(prop::kRootPoint, step.text, step.text ? std::strlen(step.text) + 1 : 4, &size);
    });
    EXPECT_EQ(Rc{code}, Rc{step.code});
    EXPECT_EQ(size, 0u);
    const std::string result = FormatResult(step.code);
    if (step.text != nullptr) {
      EXPECT_EQ(lines, OperationLines(s, {"Setting root to " + std::string(step.text) + ": " + result,
                                          "prmap\tsetRootPoint : " + result}));
    } else {
      EXPECT_EQ(lines, OperationLines(s, {"prmap\tsetRootPoint : " + result}));
    }
    EXPECT_EQ(RootPoint(s), step.root_after);
  }
}

// ---- Pending root point (before initialisation) ---------------------------------------------

TEST_F(RootOperationsTest, PendingRootPointIsCopiedAndTerminated) {
  Store& s = OpenStore({.init = false});
  struct {
    const char* name;
    const char* text;
    uint32_t size;
    tERROR code;
    const char* pending_after;  // nullptr: none
  } steps[] = {
      {"Whole", "Soft\\App", 9, kOk, "Soft\\App"},
      // The size counts the NUL; the copy is terminated after size bytes
      // whatever the caller's text holds there.
      {"SizeCutsTheText", "abcdef", 3, kOk, "abc"},
      {"NullText", nullptr, 4, kErrBadParameter, "abc"},
      {"Replaced", "x/y", 4, kOk, "x/y"},
  };
  for (const auto& step : steps) {
    SCOPED_TRACE(step.name);
    uint32_t size = 0x5A5A;
    auto [code, lines] = Traced(s, [&] { return s.SetProperty(prop::kRootPoint, step.text, step.size, &size); });
    EXPECT_EQ(Rc{code}, Rc{step.code});
    EXPECT_EQ(size, 0u);
    EXPECT_EQ(lines, OperationLines(s, {"prmap\tsetRootPoint : " + FormatResult(step.code)}));

    // Before initialisation getRootKey answers with the pending text.
    char text[16];
    std::memset(text, '#', sizeof text);
    uint32_t needed = 0;
    EXPECT_EQ(Rc{s.GetProperty(prop::kRootKey, text, sizeof text, &needed)}, Rc{kOk});
    EXPECT_EQ(needed, std::strlen(step.pending_after) + 1);
    EXPECT_EQ(std::string(text, needed), std::string(step.pending_after, needed));
  }
  // The previous texts went back to the heap; the last one goes at destruction.
  EXPECT_FALSE(s.heap().balanced());
}

TEST_F(RootOperationsTest, GetRootKeyBeforeInitialisationUsesTheTextConvention) {
  struct {
    const char* name;
    const char* pending;  // nullptr: none set
    bool with_buffer;
    uint32_t buffer_size;
    tERROR code;
    uint32_t size;
    const char* copied;  // nullptr: buffer untouched
  } cases[] = {
      {"NoneSizeQuery", nullptr, false, 0, kOk, 0, nullptr},
      {"NoneWithBuffer", nullptr, true, 4, kOk, 0, nullptr},
      {"NoneNoBufferWithSize", nullptr, false, 4, kErrBadParameter, 0, nullptr},
      {"SizeQuery", "a/b", false, 0, kOk, 4, nullptr},
      {"NoBufferWithSize", "a/b", false, 4, kErrBadParameter, 4, nullptr},
      {"OneShort", "a/b", true, 3, kErrBufferTooSmall, 4, nullptr},
      {"Exact", "a/b", true, 4, kOk, 4, "a/b"},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    Store& s = OpenStore({.init = false});
    if (c.pending != nullptr) {
      ASSERT_EQ(Rc{s.SetRootPoint(c.pending)}, Rc{kOk});
    }
    char buffer[8];
    std::memset(buffer, '#', sizeof buffer);
    uint32_t size = 0x5A5A;
    auto [code, lines] = Traced(s, [&] {
      return s.GetProperty(prop::kRootKey, c.with_buffer ? buffer : nullptr, c.buffer_size, &size);
    });
    EXPECT_EQ(Rc{code}, Rc{c.code});
    EXPECT_EQ(size, c.size);
    EXPECT_EQ(std::string(buffer, 4), c.copied ? std::string(c.copied, 4) : std::string(4, '#'));
    EXPECT_EQ(lines, OperationLines(s, {"getRootKey : " + FormatResult(c.code)}));
  }
}

TEST_F(RootOperationsTest, PendingRootPointNeedsTheHostsMemoryService) {
  Store& s = NewStore();
  ASSERT_EQ(Rc{s.Construct()}, Rc{kOk});
  // The module's own placeholder table is still installed.
  uint32_t size = 0x5A5A;
  auto [code, lines] = Traced(s, [&] { return s.SetProperty(prop::kRootPoint, "a", 2, &size); });
  EXPECT_EQ(Rc{code}, Rc{kErrNotImplemented});
  EXPECT_EQ(lines, OperationLines(s, {"prmap\tsetRootPoint : " + kNotImplementedText}));
}

TEST_F(RootOperationsTest, InitialisationTakesThePendingRootPoint) {
  for (const char* pending : {"", "Missing\\Key"}) {
    SCOPED_TRACE(pending);
    Store& s = OpenStore({.root_point = pending, .init = false});
    ASSERT_EQ(Rc{s.InitDone()}, Rc{kOk});
    // An empty tree holds no such key: the root stays at the top.
    EXPECT_EQ(RootPoint(s), "");
    Result<hKey> root = s.GetRootKeyProperty();
    EXPECT_EQ(Rc{root.code}, Rc{kOk});
    EXPECT_EQ(root.value, KeyAt(s, ""));
  }
}

}  // namespace
}  // namespace prhost::testing
