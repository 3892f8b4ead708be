// Opening, walking, naming and counting keys through the loaded module, and
// the store's root point and name: result codes, outputs on failure and the
// trace line of each call.
#include <functional>

#include "registry_support.h"

namespace prhost::testing {
namespace {

class KeyOperationsTest : public HostTest {};

const hKey kMadeUp = 0x1234567890ull;

// A store whose initialisation never ran: handle 0 does not resolve, a
// made-up handle is not followed; handles come back all ones, sizes zero.
const Row kWithoutTree[] = {
    {nullptr, nullptr, OP(r.OpenKey(&o.key, 0, "a", 1)), kErrInvalidHandle, "none"},
    {nullptr, nullptr, OP(r.OpenKey(&o.key, 0, nullptr, 0)), kErrInvalidHandle, "none"},
    {nullptr, nullptr, OP(r.OpenKeyByIndex(&o.key, 0, 0)), kErrNotFound, "none"},
    {nullptr, nullptr, OP(r.OpenNextKey(&o.key, kMadeUp)), kErrInvalidHandle, "none"},
    // Closing releases nothing, so any handle will do; traced as %x.
    {nullptr, nullptr, OP(r.CloseKey(kMadeUp)), kOk, ""},
    {nullptr, nullptr, OP(r.GetKeyName(nullptr, kMadeUp, o.text, 8, 1)), kErrInvalidHandle, ""},
    {nullptr, nullptr, OP(r.GetKeyNameByIndex(nullptr, 0, 3, o.text, 8, 0)), kErrNotFound, ""},
    {nullptr, nullptr, OP(r.GetKeyCount(&o.size, 0)), kErrInvalidHandle, "#0"},
    {nullptr, nullptr, OP(r.GetValueCount(&o.size, kMadeUp)), kErrInvalidHandle, "#0"},
    {nullptr, nullptr, OP(r.SetRootKey(0x1234)), kErrNotImplemented, ""},
    // The missing tree is reported before the missing path.
    {nullptr, nullptr, OP(r.SetRootStr(nullptr)), kErrNotImplemented, ""},
    {nullptr, nullptr, OP(s.SetRootKeyProperty(0)), kErrNotImplemented, ""},
    {nullptr, nullptr, OP(s.GetProperty(prop::kRootPoint, o.text, 8, &o.size)), kErrNotImplemented, "#0"},
    {nullptr, nullptr, OP((o.type = tDWORD, r.GetValue(&o.size, 0, "v", &o.type, o.text, 4))), kErrInvalidHandle, ""},
    {nullptr, nullptr, OP((o.type = tDWORD, r.GetValueByIndex(&o.size, 0, 0, &o.type, o.text, 4))), kErrInvalidHandle, ""},
    {nullptr, nullptr, OP(r.GetValueNameByIndex(&o.size, 0, 0, o.text, 8)), kErrInvalidHandle, "#0"},
};

TEST_F(KeyOperationsTest, WithoutTreeNothingResolves) {
  for (uint32_t locking : {0u, 1u}) {
    SCOPED_TRACE(locking);
    CheckRows(OpenStore({.locking = locking, .init = false}), kWithoutTree);
  }
}

// Walking, naming and counting on the tree a\{a1,a2}, Top\Alpha\Deep, Side
// with three values on a and one on the root. Handles stay valid whatever the
// current root; names and full paths are taken below it.
const Row kOnATree[] = {
    // By index in creation order; a failure writes all ones.
    {"", nullptr, OP(r.OpenKeyByIndex(&o.key, 0, 2)), kOk, "Side"},
    {"", nullptr, OP(r.OpenKeyByIndex(&o.key, 0, 3)), kErrNotFound, "none"},
    {"", nullptr, OP(r.OpenKeyByIndex(&o.key, 0, ~0u)), kErrNotFound, "none"},
    {"", "a", OP(r.OpenKeyByIndex(&o.key, h, 1)), kOk, "a\\a2"},
    {"", nullptr, OP(r.OpenKeyByIndex(nullptr, 0, 0)), kOk, ""},
    // The next sibling, only inside the current root's subtree.
    {"", "a", OP(r.OpenNextKey(&o.key, h)), kOk, "Top"},
    {"", "a/a1", OP(r.OpenNextKey(&o.key, h)), kOk, "a\\a2"},
    {"", "side", OP(r.OpenNextKey(&o.key, h)), kErrInvalidHandle, "none"},
    {"", "a/a2", OP(r.OpenNextKey(&o.key, h)), kErrInvalidHandle, "none"},
    {"", nullptr, OP(r.OpenNextKey(&o.key, h)), kErrInvalidHandle, "none"},  // 0 stays 0
    {"", "", OP(r.OpenNextKey(&o.key, h)), kErrInvalidHandle, "none"},  // the root's handle
    {"a", "a/a1", OP(r.OpenNextKey(&o.key, h)), kOk, "a\\a2"},
    {"a", "a", OP(r.OpenNextKey(&o.key, h)), kErrInvalidHandle, "none"},
    {"a", "top", OP(r.OpenNextKey(&o.key, h)), kErrInvalidHandle, "none"},
    {"", "a/a1", OP(r.OpenNextKey(nullptr, h)), kOk, ""},
    // Names follow the text-out convention (one helper for all names: its
    // every case once): "Alpha" needs 6 bytes, "Top\Alpha" 10.
    {"", "top/alpha", OP(r.GetKeyName(&o.size, h, nullptr, 0, 0)), kOk, "#6"},
    {"", "top/alpha", OP(r.GetKeyName(&o.size, h, nullptr, 6, 0)), kErrBadParameter, "#6"},
    {"", "top/alpha", OP(r.GetKeyName(&o.size, h, o.text, 5, 0)), kErrBufferTooSmall, "#6"},
    {"", "top/alpha", OP(r.GetKeyName(&o.size, h, o.text, 6, 0)), kOk, "#6 Alpha\\0"},
    {"", "top/alpha", OP(r.GetKeyName(nullptr, h, o.text, 8, 0)), kOk, " Alpha\\0"},
    {"", "top/alpha", OP(r.GetKeyName(&o.size, h, nullptr, 0, 1)), kOk, "#10"},
    {"", "top/alpha", OP(r.GetKeyName(&o.size, h, o.text, 9, 1)), kErrBufferTooSmall, "#10"},
    {"", "top/alpha", OP(r.GetKeyName(&o.size, h, o.text, 10, 1)), kOk, "#10 Top\\Alpha\\0"},
    {"", "top", OP(r.GetKeyNameByIndex(&o.size, h, 0, nullptr, 0, 0)), kOk, "#6"},
    {"", "top", OP(r.GetKeyNameByIndex(&o.size, h, 0, o.text, 10, 1)), kOk, "#10 Top\\Alpha\\0"},
    // Full paths start at the current root, whose own name leads unless it is the top.
    {"", nullptr, OP(r.GetKeyName(&o.size, h, o.text, 24, 1)), kOk, "#1 \\0"},
    {"top", "top/alpha/deep", OP(r.GetKeyName(&o.size, h, o.text, 24, 1)), kOk, "#15 Top\\Alpha\\Deep\\0"},
    {"top/alpha", "top/alpha/deep", OP(r.GetKeyName(&o.size, h, o.text, 24, 1)), kOk, "#11 Alpha\\Deep\\0"},
    {"top/alpha", nullptr, OP(r.GetKeyName(&o.size, h, o.text, 24, 1)), kOk, "#6 Alpha\\0"},
    {"top", "side", OP(r.GetKeyName(nullptr, h, o.text, 24, 1)), Code(0x8000004B), ""},
    // Counts (their values: the store model) may go nowhere.
    {"", "a", OP(r.GetKeyCount(nullptr, h)), kOk, ""},
    {"", "a", OP(r.GetValueCount(nullptr, h)), kOk, ""},
};

TEST_F(KeyOperationsTest, WalkingNamingAndCountingOnATree) {
  for (uint32_t locking : {0u, 1u}) {
    SCOPED_TRACE(locking);
    Store& s = OpenStore({.locking = locking});
    MakeKeys(s, {"a/a1", "a/a2", "Top/Alpha/Deep", "Side"});
    for (const char* name : {"one", "two", "three"}) EXPECT_EQ(Rc{s.client().SetDword(KeyAt(s, "a"), name, 1)}, Rc{});
    EXPECT_EQ(Rc{s.client().SetString(0, "top", "v")}, Rc{kOk});
    CheckRows(s, kOnATree);
  }
}

// OpenKey from the tree a\b, c, in order: what the store model (which always
// starts at handle 0 with a real path) leaves out. The root comes back as its
// real handle, never 0; the created code only for a key made directly below
// the start key.
const Row kOpenRows[] = {
    {"", nullptr, OP(r.OpenKey(&o.key, h, nullptr, 0)), kOk, "(root)"},
    {"", "a", OP(r.OpenKey(&o.key, h, nullptr, 0)), kOk, "a"},
    {"", nullptr, OP(r.OpenKey(&o.key, h, "", 0)), kOk, "(root)"},
    {"", nullptr, OP(r.OpenKey(&o.key, h, "a\\b", 0)), kOk, "a\\b"},
    {"", "a", OP(r.OpenKey(&o.key, h, "B", 0)), kOk, "a\\b"},
    {"", "a", OP(r.OpenKey(&o.key, h, "/b", 0)), kOk, "a"},  // stops at the start
    {"", nullptr, OP(r.OpenKey(&o.key, h, "x", 0)), kErrNotFound, "none"},
    {"", nullptr, OP(r.OpenKey(&o.key, h, "a/b", 1)), kOk, "a\\b"},
    {"", nullptr, OP(r.OpenKey(&o.key, h, "p/q/r", 1)), kKeyCreated, "p\\q\\r"},
    {"", "a", OP(r.OpenKey(&o.key, h, "u", 1)), kKeyCreated, "a\\u"},
    {"", nullptr, OP(r.OpenKey(nullptr, h, "k", 1)), kKeyCreated, ""},
    {"", nullptr, OP(r.GetKeyCount(&o.size, h)), kOk, "#4"},  // a, c, p, k
    {"", "a", OP(r.GetKeyCount(&o.size, h)), kOk, "#2"},  // b, u
    // Read-only from here on: existing keys still open.
    {"", nullptr, OP((s.SetField(prop::kReadOnly, 1), r.OpenKey(&o.key, h, "y", 1))), Code(0x800000C1), "none"},
    {"", nullptr, OP(r.OpenKey(&o.key, h, "a/b", 1)), kOk, "a\\b"},
    {"", nullptr, OP(r.OpenKey(&o.key, h, "y", 0)), kErrNotFound, "none"},
};

TEST_F(KeyOperationsTest, OpenKeyCodesHandlesAndLine) {
  for (uint32_t locking : {0u, 1u}) {
    SCOPED_TRACE(locking);
    Store& s = OpenStore({.locking = locking});
    MakeKeys(s, {"a/b", "c"});
    CheckRows(s, kOpenRows);
  }
}

// ---- The store's root point and name: SetRootKey / SetRootStr and the accessor properties.

hKey foreign_key = 0;  // a live key of another store

// On the tree a\b\c, d, Ab\Cd with a value on a\b. Rows with a null root
// continue from where the previous row left the root.
const Row kWithATree[] = {
    // SetRootStr walks from the top root; on failure the old root stays.
    {nullptr, nullptr, OP(r.SetRootStr("a/b")), kOk, "", "a\\b"},
    {nullptr, nullptr, OP(r.SetRootStr("missing")), kErrNotFound, "", "a\\b"},
    {nullptr, nullptr, OP(r.SetRootStr("c")), kErrNotFound, "", "a\\b"},
    {nullptr, nullptr, OP(r.SetRootStr("A\\B\\C")), kOk, "", "a\\b\\c"},
    {nullptr, nullptr, OP(r.SetRootStr("")), kOk, "", ""},
    {nullptr, nullptr, OP(r.SetRootStr(nullptr)), kErrBadParameter, "", ""},
    // SetRootKey and setRootKey take only keys of this tree, searched from the top.
    {"", "a/b", OP(r.SetRootKey(h)), kOk, "", "a\\b"},
    {nullptr, nullptr, OP(r.SetRootKey(foreign_key)), kErrNotFound, "", "a\\b"},
    {nullptr, nullptr, OP(r.SetRootKey(0x1234)), kErrNotFound, "", "a\\b"},
    {"a/b", "d", OP(r.SetRootKey(h)), kOk, "", "d"},
    {nullptr, nullptr, OP(r.SetRootKey(0)), kOk, "", ""},
    {"", "a/b", OP(s.SetRootKeyProperty(h)), kOk, "", "a\\b"},
    {nullptr, nullptr, OP(s.SetRootKeyProperty(foreign_key)), kErrNotFound, "", "a\\b"},
    {"a/b", "d", OP(s.SetRootKeyProperty(h)), kOk, "", "d"},
    {nullptr, nullptr, OP(s.SetRootKeyProperty(0)), kOk, "", ""},
    // setRootKey needs a whole handle.
    {"", "a", OP(s.SetProperty(prop::kRootKey, &h, 7, &o.size)), kErrBadParameter, "#0", ""},
    {"", "a", OP(s.SetProperty(prop::kRootKey, nullptr, 8, &o.size)), kErrBadParameter, "#0", ""},
    {"", "a", OP(s.SetProperty(prop::kRootKey, &h, 8, &o.size)), kOk, "#0", "a"},
    // Handle 0 and relative paths follow the root.
    {"a/b", nullptr, OP(r.GetKeyCount(&o.size, 0)), kOk, "#1"},
    {"a/b", nullptr, OP(r.GetValueCount(&o.size, 0)), kOk, "#1"},
    {"a/b", nullptr, OP(r.OpenKey(&o.key, 0, "c", 0)), kOk, "b\\c"},
    {"a/b", nullptr, OP(r.OpenKey(&o.key, 0, "d", 0)), kErrNotFound, "none"},
    {"a/b", nullptr, OP(r.OpenKey(&o.key, 0, nullptr, 0)), kOk, "b"},
    // getRootPoint and getRootKey follow the text-out convention ("Ab\Cd" needs 6).
    {"ab/cd", nullptr, OP(s.GetProperty(prop::kRootPoint, nullptr, 0, &o.size)), kOk, "#6"},
    {"ab/cd", nullptr, OP(s.GetProperty(prop::kRootPoint, o.text, 5, &o.size)), kErrBufferTooSmall, "#6"},
    {"ab/cd", nullptr, OP(s.GetProperty(prop::kRootPoint, o.text, 6, &o.size)), kOk, "#6 Ab\\Cd\\0"},
    // The one line without the component tag.
    {"a", nullptr, OP(s.GetProperty(prop::kRootKey, nullptr, 0, &o.size)), kOk, "#8"},
    {"a", nullptr, OP(s.GetProperty(prop::kRootKey, nullptr, 8, &o.size)), kErrBadParameter, "#8"},
    {"a", nullptr, OP(s.GetProperty(prop::kRootKey, &o.key, 7, &o.size)), kErrBufferTooSmall, "#8"},
    {"a", nullptr, OP(s.GetProperty(prop::kRootKey, &o.key, 8, &o.size)), kOk, "a#8"},
    // setRootPoint moves the root and says so in a line of its own.
    {"", nullptr, OP(s.SetProperty(prop::kRootPoint, "a/b", 4, &o.size)), kOk, "#0", "a\\b"},
    {nullptr, nullptr, OP(s.SetProperty(prop::kRootPoint, "nowhere", 8, &o.size)), kErrNotFound, "#0", "a\\b"},
    {nullptr, nullptr, OP(s.SetProperty(prop::kRootPoint, nullptr, 4, &o.size)), kErrBadParameter, "#0", "a\\b"},
};

TEST_F(KeyOperationsTest, RootPointAndRootKeyOnATree) {
  Store& other = OpenStore();
  MakeKeys(other, {"a/b"});
  foreign_key = KeyAt(other, "a/b");
  for (uint32_t locking : {0u, 1u}) {
    SCOPED_TRACE(locking);
    Store& s = OpenStore({.locking = locking});
    MakeKeys(s, {"a/b/c", "d", "Ab/Cd"});
    ASSERT_EQ(Rc{s.client().SetDword(KeyAt(s, "a/b"), "v", 7)}, Rc{kOk});
    CheckRows(s, kWithATree);
  }
}

// Before initialisation, on a store named "dir/p.xml" (10 bytes): the name,
// and the pending root point that getRootKey answers with.
const Row kBeforeInit[] = {
    {nullptr, nullptr, OP(s.GetProperty(prop::kName, nullptr, 0, &o.size)), kErrBufferTooSmall, "#10"},
    {nullptr, nullptr, OP(s.GetProperty(prop::kName, o.text, 9, &o.size)), kErrBufferTooSmall, "#10"},
    {nullptr, nullptr, OP(s.GetProperty(prop::kName, o.text, 10, &o.size)), kOk, "#10 dir/p.xml\\0"},
    // setName takes the size with the NUL; size 0 wraps to an impossible length.
    {nullptr, nullptr, OP(s.SetProperty(prop::kName, "abcdef", 4, &o.size)), kOk, "#0"},
    {nullptr, nullptr, OP(s.SetProperty(prop::kName, nullptr, 5, &o.size)), kErrBadParameter, ""},
    {nullptr, nullptr, OP(s.SetProperty(prop::kName, "x", 0, &o.size)), Code(0x80000151), ""},
    {nullptr, nullptr, OP(s.GetProperty(prop::kName, o.text, 24, &o.size)), kOk, "#4 abc\\0"},
    {nullptr, nullptr, OP(s.SetProperty(prop::kName, "", 1, &o.size)), kOk, "#0"},
    {nullptr, nullptr, OP(s.GetProperty(prop::kName, o.text, 24, &o.size)), kOk, "#1 \\0"},
    // No pending root point yet.
    {nullptr, nullptr, OP(s.GetProperty(prop::kRootKey, o.text, 4, &o.size)), kOk, "#0"},
    {nullptr, nullptr, OP(s.GetProperty(prop::kRootKey, nullptr, 4, &o.size)), kErrBadParameter, "#0"},
    // The pending text is copied and terminated after `size` bytes.
    {nullptr, nullptr, OP(s.SetProperty(prop::kRootPoint, "Soft\\App", 9, &o.size)), kOk, "#0"},
    {nullptr, nullptr, OP(s.GetProperty(prop::kRootKey, o.text, 24, &o.size)), kOk, "#9 Soft\\App\\0"},
    {nullptr, nullptr, OP(s.SetProperty(prop::kRootPoint, "abcdef", 3, &o.size)), kOk, "#0"},
    {nullptr, nullptr, OP(s.SetProperty(prop::kRootPoint, nullptr, 4, &o.size)), kErrBadParameter, "#0"},
    // A size of all ones cannot be copied with its NUL; the old text stays.
    {nullptr, nullptr, OP(s.SetProperty(prop::kRootPoint, "x", 0xFFFFFFFF, &o.size)), kErrNoMemory, "#0"},
    {nullptr, nullptr, OP(s.GetProperty(prop::kRootKey, nullptr, 0, &o.size)), kOk, "#4"},
    {nullptr, nullptr, OP(s.GetProperty(prop::kRootKey, nullptr, 4, &o.size)), kErrBadParameter, "#4"},
    {nullptr, nullptr, OP(s.GetProperty(prop::kRootKey, o.text, 4, &o.size)), kOk, "#4 abc\\0"},
};

TEST_F(KeyOperationsTest, NameAndPendingRootPointBeforeInitialisation) {
  CheckRows(OpenStore({.name = "dir/p.xml", .init = false}), kBeforeInit);
}

// Each operation's own line, once: the text before ": <result>". (Every
// call's line carrying its result is checked by the store model.)
TEST_F(KeyOperationsTest, EachOperationWritesItsLine) {
  Store& s = OpenStore();
  Store& other = OpenStore();
  MakeKeys(s, {"a/b"});
  const Registry r = s.registry();
  const hKey a = KeyAt(s, "a");
  const uint32_t v = 1;
  uint32_t n = 0, t = tDWORD;
  char b[32];
  hKey k = 0;
  char address[16];
  std::snprintf(address, sizeof address, "%x", static_cast<uint32_t>(reinterpret_cast<uintptr_t>(&v)));
  const std::pair<std::function<tERROR()>, std::string> rows[] = {
      {[&] { return r.OpenKey(&k, 0, "a/b", 0); }, "prmap\tOpening key ?\\a/b"},
      {[&] { return r.OpenKeyByIndex(&k, 0, 0); }, "prmap\tOpenKeyByIndex 0"},
      {[&] { return r.OpenNextKey(&k, a); }, "prmap\tOpenNextKey "},
      {[&] { return r.CloseKey(0x1234567890ull); }, "prmap\tClosing key 34567890"},
      {[&] { return r.GetKeyName(&n, a, b, sizeof b, 0); }, "prmap\tGetting key name " + std::to_string(int32_t(a))},
      {[&] { return r.GetKeyNameByIndex(&n, 0, 0, b, sizeof b, 0); }, "prmap\tGetting key name by index 0"},
      {[&] { return r.SetValue(a, "v", tDWORD, &v, 4, 1); }, "prmap\tSetValue v (0x" + std::string(address) + ":4)"},
      {[&] { return r.SetValueByIndex(a, 0, tDWORD, &v, 4, 0); }, "prmap\tSetValueByIndex 0 (0x" + std::string(address) + ":4)"},
      {[&] { return r.GetValue(&n, a, "v", &t, b, 4); }, "prmap\tGetting value ?\\v"},
      {[&] { return r.GetValueByIndex(&n, a, 0, &t, b, 4); }, "prmap\tGetting value by index 0"},
      {[&] { return r.GetValueNameByIndex(&n, a, 0, b, sizeof b); }, "prmap\tGetValueNameByIndex "},
      {[&] { return r.GetKeyCount(&n, 0); }, "prmap\tGetKeyCount "},
      {[&] { return r.GetValueCount(&n, 0); }, "prmap\tGetValueCount "},
      {[&] { return r.CopyKey(a, other.object(), 0); }, "prmap\tCopyKey "},
      {[&] { return r.CopyKeyByName("a", other.object()); }, "prmap\tCopyKeyByName "},
      {[&] { return r.DeleteValueByInd(a, 0); }, "prmap\tDeleteValueByInd 0"},
      {[&] { return r.DeleteValue(a, "x"); }, "prmap\tDeleteValue x"},
      {[&] { return r.DeleteKeyByInd(a, 3); }, "prmap\tDeleteKeyByInd 3 "},
      {[&] { return r.DeleteKey(0, "a/b"); }, "prmap\tDeleteKey a/b"},
      {[&] { return r.SetRootStr("a"); }, "prmap\tSetRootStr "},
      {[&] { return r.SetRootKey(0); }, "prmap\tSetRootKey "},
      {[&] { return r.Clean(); }, "prmap\tClean "},
      {[&] { return s.SetRootKeyProperty(0); }, "prmap\tsetRootKey "},
      {[&] { return s.GetProperty(prop::kRootKey, nullptr, 0, &n); }, "getRootKey "},
      {[&] { return s.GetProperty(prop::kRootPoint, nullptr, 0, &n); }, "prmap\tgetRootPoint "},
      {[&] { return s.SetProperty(prop::kRootPoint, nullptr, 4, &n); }, "prmap\tsetRootPoint "},
      {[&] { return s.GetProperty(prop::kName, nullptr, 0, &n); }, "prmap\tgetName "},
      {[&] { return s.SetProperty(prop::kName, "p.xml", 6, &n); }, "prmap\tsetName "},
  };
  for (const auto& [call, text] : rows) {  // a copy's reads of its source come first
    const tERROR code = call();
    EXPECT_EQ(s.TraceLines().back(), (TraceLine{600, s.object(), text + ": " + FormatResult(code), true}));
  }
  MakeKeys(s, {"a"});
  const size_t before = s.TraceLines().size();
  EXPECT_EQ(Rc{s.SetProperty(prop::kRootPoint, "a", 2, &n)}, Rc{kOk});
  EXPECT_EQ(s.TraceLines()[before].text, "Setting root to a: " + FormatResult(kOk)) << "the move's own line first";
}

}  // namespace
}  // namespace prhost::testing
