// The store's root point and name: SetRootKey / SetRootStr and the accessor
// properties, before and after initialisation.
#include "host_fixture.h"
#include "key_test_support.h"

namespace prhost::testing {
namespace {

class RootOperationsTest : public HostTest {};

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
    {"ab/cd", nullptr, OP(s.GetProperty(prop::kRootPoint, nullptr, 6, &o.size)), kErrBadParameter, "#6", kGetPoint},
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

TEST_F(RootOperationsTest, RootPointAndRootKeyOnATree) {
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
    {nullptr, nullptr, OP(s.GetProperty(prop::kRootKey, o.text, 3, &o.size)), kErrBufferTooSmall, "#4", "getRootKey "},
    {nullptr, nullptr, OP(s.GetProperty(prop::kRootKey, o.text, 4, &o.size)), kOk, "#4 abc\\0", "getRootKey "},
};

TEST_F(RootOperationsTest, NameAndPendingRootPointBeforeInitialisation) {
  CheckRows(OpenStore({.name = "dir/p.xml", .init = false}), kBeforeInit);
}

// Without the host's memory service the pending text cannot be kept.
TEST_F(RootOperationsTest, PendingRootPointNeedsTheHostsMemoryService) {
  Store& s = NewStore();
  ASSERT_EQ(Rc{s.Construct()}, Rc{kOk});
  const Row row{nullptr, nullptr, OP(s.SetProperty(prop::kRootPoint, "a", 2)), kErrNotImplemented, "",
                kSetPoint};
  CheckRows(s, {&row, 1});
}

}  // namespace
}  // namespace prhost::testing
