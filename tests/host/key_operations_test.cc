// Opening, walking, naming and counting keys through the loaded module, and
// the store's root point and name: result codes, outputs on failure and the
// trace line of each call.
#include "registry_support.h"

namespace prhost::testing {
namespace {

class KeyOperationsTest : public HostTest {};

const hKey kMadeUp = 0x1234567890ull;
const std::string kName = "prmap\tGetting key name {h}", kByIndex = "prmap\tGetting key name by index 0";
const std::string kNext = "prmap\tOpenNextKey ", kKeys = "prmap\tGetKeyCount ", kValues = "prmap\tGetValueCount ";

// A store whose initialisation never ran: handle 0 does not resolve, a
// made-up handle is not followed; handles come back all ones, sizes zero.
const Row kWithoutTree[] = {
    {nullptr, nullptr, OP(r.OpenKey(&o.key, 0, "a", 1)), kErrInvalidHandle, "none", "prmap\tOpening key ?\\a"},
    {nullptr, nullptr, OP(r.OpenKey(&o.key, 0, nullptr, 0)), kErrInvalidHandle, "none", "prmap\tOpening key ?\\(null)"},
    {nullptr, nullptr, OP(r.OpenKeyByIndex(&o.key, 0, 0)), kErrNotFound, "none", "prmap\tOpenKeyByIndex 0"},
    {nullptr, nullptr, OP(r.OpenNextKey(&o.key, kMadeUp)), kErrInvalidHandle, "none", kNext},
    // Closing releases nothing, so any handle will do; traced as %x.
    {nullptr, nullptr, OP(r.CloseKey(kMadeUp)), kOk, "", "prmap\tClosing key 34567890"},
    {nullptr, nullptr, OP(r.GetKeyName(nullptr, kMadeUp, o.text, 8, 1)), kErrInvalidHandle, "",
     "prmap\tGetting key name 878082192"},
    {nullptr, nullptr, OP(r.GetKeyNameByIndex(nullptr, 0, 3, o.text, 8, 0)), kErrNotFound, "",
     "prmap\tGetting key name by index 3"},
    {nullptr, nullptr, OP(r.GetKeyCount(&o.size, 0)), kErrInvalidHandle, "#0", kKeys},
    {nullptr, nullptr, OP(r.GetValueCount(&o.size, kMadeUp)), kErrInvalidHandle, "#0", kValues},
    {nullptr, nullptr, OP(r.SetRootKey(0x1234)), kErrNotImplemented, "", "prmap\tSetRootKey "},
    // The missing tree is reported before the missing path.
    {nullptr, nullptr, OP(r.SetRootStr(nullptr)), kErrNotImplemented, "", "prmap\tSetRootStr "},
    {nullptr, nullptr, OP(s.SetRootKeyProperty(0)), kErrNotImplemented, "", "prmap\tsetRootKey "},
    {nullptr, nullptr, OP(s.GetProperty(prop::kRootPoint, o.text, 8, &o.size)), kErrNotImplemented, "#0",
     "prmap\tgetRootPoint "},
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
    {"", nullptr, OP(r.OpenKeyByIndex(&o.key, 0, 2)), kOk, "Side", "prmap\tOpenKeyByIndex 2"},
    {"", nullptr, OP(r.OpenKeyByIndex(&o.key, 0, 3)), kErrNotFound, "none", "prmap\tOpenKeyByIndex 3"},
    {"", nullptr, OP(r.OpenKeyByIndex(&o.key, 0, ~0u)), kErrNotFound, "none", "prmap\tOpenKeyByIndex -1"},
    {"", "a", OP(r.OpenKeyByIndex(&o.key, h, 1)), kOk, "a\\a2", "prmap\tOpenKeyByIndex 1"},
    {"", nullptr, OP(r.OpenKeyByIndex(nullptr, 0, 0)), kOk, "", "prmap\tOpenKeyByIndex 0"},
    // The next sibling, only inside the current root's subtree.
    {"", "a", OP(r.OpenNextKey(&o.key, h)), kOk, "Top", kNext},
    {"", "a/a1", OP(r.OpenNextKey(&o.key, h)), kOk, "a\\a2", kNext},
    {"", "side", OP(r.OpenNextKey(&o.key, h)), kErrInvalidHandle, "none", kNext},
    {"", "a/a2", OP(r.OpenNextKey(&o.key, h)), kErrInvalidHandle, "none", kNext},
    {"", nullptr, OP(r.OpenNextKey(&o.key, h)), kErrInvalidHandle, "none", kNext},  // 0 stays 0
    {"", "", OP(r.OpenNextKey(&o.key, h)), kErrInvalidHandle, "none", kNext},  // the root's handle
    {"a", "a/a1", OP(r.OpenNextKey(&o.key, h)), kOk, "a\\a2", kNext},
    {"a", "a", OP(r.OpenNextKey(&o.key, h)), kErrInvalidHandle, "none", kNext},
    {"a", "top", OP(r.OpenNextKey(&o.key, h)), kErrInvalidHandle, "none", kNext},
    {"", "a/a1", OP(r.OpenNextKey(nullptr, h)), kOk, "", kNext},
    // Names follow the text-out convention (one helper for all names: its
    // every case once): "Alpha" needs 6 bytes, "Top\Alpha" 10.
    {"", "top/alpha", OP(r.GetKeyName(&o.size, h, nullptr, 0, 0)), kOk, "#6", kName},
    {"", "top/alpha", OP(r.GetKeyName(&o.size, h, nullptr, 6, 0)), kErrBadParameter, "#6", kName},
    {"", "top/alpha", OP(r.GetKeyName(&o.size, h, o.text, 5, 0)), kErrBufferTooSmall, "#6", kName},
    {"", "top/alpha", OP(r.GetKeyName(&o.size, h, o.text, 6, 0)), kOk, "#6 Alpha\\0", kName},
    {"", "top/alpha", OP(r.GetKeyName(nullptr, h, o.text, 8, 0)), kOk, " Alpha\\0", kName},
    {"", "top/alpha", OP(r.GetKeyName(&o.size, h, nullptr, 0, 1)), kOk, "#10", kName},
    {"", "top/alpha", OP(r.GetKeyName(&o.size, h, o.text, 9, 1)), kErrBufferTooSmall, "#10", kName},
    {"", "top/alpha", OP(r.GetKeyName(&o.size, h, o.text, 10, 1)), kOk, "#10 Top\\Alpha\\0", kName},
    {"", "top", OP(r.GetKeyNameByIndex(&o.size, h, 0, nullptr, 0, 0)), kOk, "#6", kByIndex},
    {"", "top", OP(r.GetKeyNameByIndex(&o.size, h, 0, o.text, 10, 1)), kOk, "#10 Top\\Alpha\\0", kByIndex},
    // Full paths start at the current root, whose own name leads unless it is the top.
    {"", nullptr, OP(r.GetKeyName(&o.size, h, o.text, 24, 1)), kOk, "#1 \\0", kName},
    {"top", "top/alpha/deep", OP(r.GetKeyName(&o.size, h, o.text, 24, 1)), kOk, "#15 Top\\Alpha\\Deep\\0", kName},
    {"top/alpha", "top/alpha/deep", OP(r.GetKeyName(&o.size, h, o.text, 24, 1)), kOk, "#11 Alpha\\Deep\\0", kName},
    {"top/alpha", nullptr, OP(r.GetKeyName(&o.size, h, o.text, 24, 1)), kOk, "#6 Alpha\\0", kName},
    {"top", "side", OP(r.GetKeyName(nullptr, h, o.text, 24, 1)), Code(0x8000004B), "", kName},
    // Counts.
    {"", nullptr, OP(r.GetKeyCount(&o.size, h)), kOk, "#3", kKeys},
    {"", nullptr, OP(r.GetValueCount(&o.size, h)), kOk, "#1", kValues},
    {"", "a", OP(r.GetKeyCount(&o.size, h)), kOk, "#2", kKeys},
    {"", "a", OP(r.GetValueCount(&o.size, h)), kOk, "#3", kValues},
    {"", "side", OP(r.GetKeyCount(&o.size, h)), kOk, "#0", kKeys},
    {"", "a", OP(r.GetKeyCount(nullptr, h)), kOk, "", kKeys},
    {"", "a", OP(r.GetValueCount(nullptr, h)), kOk, "", kValues},
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

// OpenKey from the tree a\b, c, in order. The root comes back as its real
// handle, never 0. The created code only for a key made directly below the
// start key.
const std::string kOpen = "prmap\tOpening key ?\\";
const Row kOpenRows[] = {
    {"", nullptr, OP(r.OpenKey(&o.key, h, nullptr, 0)), kOk, "(root)", kOpen + "(null)"},
    {"", "a", OP(r.OpenKey(&o.key, h, nullptr, 0)), kOk, "a", kOpen + "(null)"},
    {"", nullptr, OP(r.OpenKey(&o.key, h, "", 0)), kOk, "(root)", kOpen},
    {"", nullptr, OP(r.OpenKey(&o.key, h, "A/B", 0)), kOk, "a\\b", kOpen + "A/B"},
    {"", nullptr, OP(r.OpenKey(&o.key, h, "a\\b", 0)), kOk, "a\\b", kOpen + "a\\b"},
    {"", "a", OP(r.OpenKey(&o.key, h, "B", 0)), kOk, "a\\b", kOpen + "B"},
    {"", "a", OP(r.OpenKey(&o.key, h, "/b", 0)), kOk, "a", kOpen + "/b"},  // stops at the start
    {"", nullptr, OP(r.OpenKey(&o.key, h, "x", 0)), kErrNotFound, "none", kOpen + "x"},
    {"", nullptr, OP(r.OpenKey(&o.key, h, "a/x", 0)), kErrNotFound, "none", kOpen + "a/x"},
    {"", nullptr, OP(r.OpenKey(&o.key, h, "a/b", 1)), kOk, "a\\b", kOpen + "a/b"},
    {"", nullptr, OP(r.OpenKey(&o.key, h, "x", 1)), kKeyCreated, "x", kOpen + "x"},
    {"", nullptr, OP(r.OpenKey(&o.key, h, "p/q/r", 1)), kKeyCreated, "p\\q\\r", kOpen + "p/q/r"},
    {"", nullptr, OP(r.OpenKey(&o.key, h, "a/m/n", 1)), kOk, "a\\m\\n", kOpen + "a/m/n"},
    {"", "a", OP(r.OpenKey(&o.key, h, "u", 1)), kKeyCreated, "a\\u", kOpen + "u"},
    {"", nullptr, OP(r.OpenKey(nullptr, h, "k", 1)), kKeyCreated, "", kOpen + "k"},
    {"", nullptr, OP(r.GetKeyCount(&o.size, h)), kOk, "#5", kKeys},  // a, c, x, p, k
    {"", "a", OP(r.GetKeyCount(&o.size, h)), kOk, "#3", kKeys},      // b, m, u
    // Read-only from here on: existing keys still open.
    {"", nullptr, OP((s.SetField(prop::kReadOnly, 1), r.OpenKey(&o.key, h, "y", 1))), Code(0x800000C1), "none",
     kOpen + "y"},
    {"", nullptr, OP(r.OpenKey(&o.key, h, "a/b", 1)), kOk, "a\\b", kOpen + "a/b"},
    {"", nullptr, OP(r.OpenKey(&o.key, h, "y", 0)), kErrNotFound, "none", kOpen + "y"},
};

TEST_F(KeyOperationsTest, OpenKeyCodesHandlesAndLine) {
  for (uint32_t locking : {0u, 1u}) {
    SCOPED_TRACE(locking);
    Store& s = OpenStore({.locking = locking});
    MakeKeys(s, {"a/b", "c"});
    CheckRows(s, kOpenRows);
  }
}

// `call` while the host heap fails its `n`th allocation from now on (every
// one from then on when persistent).
template <typename Call>
tERROR Starved(Store& s, uint64_t n, bool persistent, Call call) {
  s.heap().FailAt(n, persistent);
  const tERROR code = call();
  s.heap().ClearFault();
  return code;
}

// No handle, and keys made for earlier components stay (x's node and name
// come before y's).
const Row kOutOfMemory[] = {
    {"", nullptr, OP(Starved(s, 1, false, [&] { return r.OpenKey(&o.key, 0, "x", 1); })), kErrNoMemory, "none",
     kOpen + "x"},
    {"", nullptr, OP(Starved(s, 1, true, [&] { return r.OpenKey(&o.key, 0, "x", 1); })), kErrNoMemory, "none",
     kOpen + "x"},
    {"", nullptr, OP(Starved(s, 1, false, [&] { return r.OpenKey(&o.key, 0, "a/y", 1); })), kErrNoMemory, "none",
     kOpen + "a/y"},
    {"", nullptr, OP(Starved(s, 3, false, [&] { return r.OpenKey(&o.key, 0, "x/y", 1); })), kErrNoMemory, "none",
     kOpen + "x/y"},
    {"", nullptr, OP(r.GetKeyCount(&o.size, h)), kOk, "#2", kKeys},  // a and x
    {"", "x", OP(r.GetKeyCount(&o.size, h)), kOk, "#0", kKeys},
    {"", "a", OP(r.GetKeyCount(&o.size, h)), kOk, "#0", kKeys},
};

TEST_F(KeyOperationsTest, OpenKeyOutOfMemory) {
  Store& s = OpenStore();
  MakeKeys(s, {"a"});
  CheckRows(s, kOutOfMemory);
}

// ---- The store's root point and name: SetRootKey / SetRootStr and the accessor properties.

hKey foreign_key = 0;  // a live key of another store
const std::string kRootStr = "prmap\tSetRootStr ", kRootKey = "prmap\tSetRootKey ", kRootKeyProp = "prmap\tsetRootKey ";
const std::string kGetPoint = "prmap\tgetRootPoint ", kSetPoint = "prmap\tsetRootPoint ";
const std::string kGetName = "prmap\tgetName ", kSetName = "prmap\tsetName ";

// On the tree a\b\c, d, Ab\Cd with a value on a\b. Rows with a null root
// continue from where the previous row left the root.
const Row kWithATree[] = {
    // SetRootStr walks from the top root; on failure the old root stays.
    {nullptr, nullptr, OP(r.SetRootStr("a/b")), kOk, "", kRootStr, "a\\b"},
    {nullptr, nullptr, OP(r.SetRootStr("missing")), kErrNotFound, "", kRootStr, "a\\b"},
    {nullptr, nullptr, OP(r.SetRootStr("c")), kErrNotFound, "", kRootStr, "a\\b"},
    {nullptr, nullptr, OP(r.SetRootStr("A\\B\\C")), kOk, "", kRootStr, "a\\b\\c"},
    {nullptr, nullptr, OP(r.SetRootStr("")), kOk, "", kRootStr, ""},
    {nullptr, nullptr, OP(r.SetRootStr(nullptr)), kErrBadParameter, "", kRootStr, ""},
    // SetRootKey and setRootKey take only keys of this tree, searched from the top.
    {"", "a/b", OP(r.SetRootKey(h)), kOk, "", kRootKey, "a\\b"},
    {nullptr, nullptr, OP(r.SetRootKey(foreign_key)), kErrNotFound, "", kRootKey, "a\\b"},
    {nullptr, nullptr, OP(r.SetRootKey(0x1234)), kErrNotFound, "", kRootKey, "a\\b"},
    {"a/b", "d", OP(r.SetRootKey(h)), kOk, "", kRootKey, "d"},
    {nullptr, nullptr, OP(r.SetRootKey(0)), kOk, "", kRootKey, ""},
    {"", "a/b", OP(s.SetRootKeyProperty(h)), kOk, "", kRootKeyProp, "a\\b"},
    {nullptr, nullptr, OP(s.SetRootKeyProperty(foreign_key)), kErrNotFound, "", kRootKeyProp, "a\\b"},
    {"a/b", "d", OP(s.SetRootKeyProperty(h)), kOk, "", kRootKeyProp, "d"},
    {nullptr, nullptr, OP(s.SetRootKeyProperty(0)), kOk, "", kRootKeyProp, ""},
    // setRootKey needs a whole handle.
    {"", "a", OP(s.SetProperty(prop::kRootKey, &h, 7, &o.size)), kErrBadParameter, "#0", kRootKeyProp, ""},
    {"", "a", OP(s.SetProperty(prop::kRootKey, nullptr, 8, &o.size)), kErrBadParameter, "#0", kRootKeyProp, ""},
    {"", "a", OP(s.SetProperty(prop::kRootKey, &h, 8, &o.size)), kOk, "#0", kRootKeyProp, "a"},
    // Handle 0 and relative paths follow the root.
    {"a/b", nullptr, OP(r.GetKeyCount(&o.size, 0)), kOk, "#1", "prmap\tGetKeyCount "},
    {"a/b", nullptr, OP(r.GetValueCount(&o.size, 0)), kOk, "#1", "prmap\tGetValueCount "},
    {"a/b", nullptr, OP(r.OpenKey(&o.key, 0, "c", 0)), kOk, "b\\c", "prmap\tOpening key ?\\c"},
    {"a/b", nullptr, OP(r.OpenKey(&o.key, 0, "d", 0)), kErrNotFound, "none", "prmap\tOpening key ?\\d"},
    {"a/b", nullptr, OP(r.OpenKey(&o.key, 0, nullptr, 0)), kOk, "b", "prmap\tOpening key ?\\(null)"},
    // getRootPoint and getRootKey follow the text-out convention ("Ab\Cd" needs 6).
    {"ab/cd", nullptr, OP(s.GetProperty(prop::kRootPoint, nullptr, 0, &o.size)), kOk, "#6", kGetPoint},
    {"ab/cd", nullptr, OP(s.GetProperty(prop::kRootPoint, o.text, 5, &o.size)), kErrBufferTooSmall, "#6", kGetPoint},
    {"ab/cd", nullptr, OP(s.GetProperty(prop::kRootPoint, o.text, 6, &o.size)), kOk, "#6 Ab\\Cd\\0", kGetPoint},
    // The one line without the component tag.
    {"a", nullptr, OP(s.GetProperty(prop::kRootKey, nullptr, 0, &o.size)), kOk, "#8", "getRootKey "},
    {"a", nullptr, OP(s.GetProperty(prop::kRootKey, nullptr, 8, &o.size)), kErrBadParameter, "#8", "getRootKey "},
    {"a", nullptr, OP(s.GetProperty(prop::kRootKey, &o.key, 7, &o.size)), kErrBufferTooSmall, "#8", "getRootKey "},
    {"a", nullptr, OP(s.GetProperty(prop::kRootKey, &o.key, 8, &o.size)), kOk, "a#8", "getRootKey "},
    // setRootPoint moves the root and says so in a line of its own.
    {"", nullptr, OP(s.SetProperty(prop::kRootPoint, "a/b", 4, &o.size)), kOk, "#0",
     "Setting root to a/b\nprmap\tsetRootPoint ", "a\\b"},
    {nullptr, nullptr, OP(s.SetProperty(prop::kRootPoint, "nowhere", 8, &o.size)), kErrNotFound, "#0",
     "Setting root to nowhere\nprmap\tsetRootPoint ", "a\\b"},
    {nullptr, nullptr, OP(s.SetProperty(prop::kRootPoint, nullptr, 4, &o.size)), kErrBadParameter, "#0",
     kSetPoint, "a\\b"},
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
    {nullptr, nullptr, OP(s.GetProperty(prop::kName, nullptr, 0, &o.size)), kErrBufferTooSmall, "#10", kGetName},
    {nullptr, nullptr, OP(s.GetProperty(prop::kName, o.text, 9, &o.size)), kErrBufferTooSmall, "#10", kGetName},
    {nullptr, nullptr, OP(s.GetProperty(prop::kName, o.text, 10, &o.size)), kOk, "#10 dir/p.xml\\0", kGetName},
    // setName takes the size with the NUL; size 0 wraps to an impossible length.
    {nullptr, nullptr, OP(s.SetProperty(prop::kName, "abcdef", 4, &o.size)), kOk, "#0", kSetName},
    {nullptr, nullptr, OP(s.SetProperty(prop::kName, nullptr, 5, &o.size)), kErrBadParameter, "", ""},
    {nullptr, nullptr, OP(s.SetProperty(prop::kName, "x", 0, &o.size)), Code(0x80000151), "", kSetName},
    {nullptr, nullptr, OP(s.GetProperty(prop::kName, o.text, 24, &o.size)), kOk, "#4 abc\\0", kGetName},
    {nullptr, nullptr, OP(s.SetProperty(prop::kName, "", 1, &o.size)), kOk, "#0", kSetName},
    {nullptr, nullptr, OP(s.GetProperty(prop::kName, o.text, 24, &o.size)), kOk, "#1 \\0", kGetName},
    // No pending root point yet.
    {nullptr, nullptr, OP(s.GetProperty(prop::kRootKey, o.text, 4, &o.size)), kOk, "#0", "getRootKey "},
    {nullptr, nullptr, OP(s.GetProperty(prop::kRootKey, nullptr, 4, &o.size)), kErrBadParameter, "#0", "getRootKey "},
    // The pending text is copied and terminated after `size` bytes.
    {nullptr, nullptr, OP(s.SetProperty(prop::kRootPoint, "Soft\\App", 9, &o.size)), kOk, "#0", kSetPoint},
    {nullptr, nullptr, OP(s.GetProperty(prop::kRootKey, o.text, 24, &o.size)), kOk, "#9 Soft\\App\\0", "getRootKey "},
    {nullptr, nullptr, OP(s.SetProperty(prop::kRootPoint, "abcdef", 3, &o.size)), kOk, "#0", kSetPoint},
    {nullptr, nullptr, OP(s.SetProperty(prop::kRootPoint, nullptr, 4, &o.size)), kErrBadParameter, "#0", kSetPoint},
    // A size of all ones cannot be copied with its NUL; the old text stays.
    {nullptr, nullptr, OP(s.SetProperty(prop::kRootPoint, "x", 0xFFFFFFFF, &o.size)), kErrNoMemory, "#0", kSetPoint},
    {nullptr, nullptr, OP(s.GetProperty(prop::kRootKey, nullptr, 0, &o.size)), kOk, "#4", "getRootKey "},
    {nullptr, nullptr, OP(s.GetProperty(prop::kRootKey, nullptr, 4, &o.size)), kErrBadParameter, "#4", "getRootKey "},
    {nullptr, nullptr, OP(s.GetProperty(prop::kRootKey, o.text, 4, &o.size)), kOk, "#4 abc\\0", "getRootKey "},
};

TEST_F(KeyOperationsTest, NameAndPendingRootPointBeforeInitialisation) {
  CheckRows(OpenStore({.name = "dir/p.xml", .init = false}), kBeforeInit);
}

// Without the host's memory service the pending text cannot be kept.
TEST_F(KeyOperationsTest, PendingRootPointNeedsTheHostsMemoryService) {
  Store& s = NewStore();
  ASSERT_EQ(Rc{s.Construct()}, Rc{kOk});
  const Row row{nullptr, nullptr, OP(s.SetProperty(prop::kRootPoint, "a", 2)), kErrNotImplemented, "",
                kSetPoint};
  CheckRows(s, {&row, 1});
}

}  // namespace
}  // namespace prhost::testing
