// Removing keys and values and cleaning the current root key through
// iRegistry: what goes, what stays, the codes, and the exact trace lines
// (the two by-index formats differ by one blank before the colon).
#include <functional>

#include "registry_support.h"

namespace prhost::testing {
namespace {

using Paths = std::vector<std::string>;

class DeleteOperationsTest : public HostTest {
 protected:
  // root: values v1, V2; keys a (value x; keys b (key c), d) and e.
  Store& Sample() {
    Store& s = OpenStore();
    for (const char* path : {"a/b/c", "a/d", "e"}) EXPECT_TRUE(s.client().OpenKey(path, true).ok()) << path;
    Seed(s.registry(), {{"v1", tDWORD, BytesOf(1u)}, {"V2", tSTRING, Text("two")}});
    Seed(s.registry(), {{"x", tDWORD, BytesOf(3u)}}, s.client().OpenKey("a").value);
    return s;
  }
  const Paths kAll = {"|v1", "|V2", "a", "a|x", "a\\b", "a\\b\\c", "a\\d", "e"};
};

TEST_F(DeleteOperationsTest, DeleteKeyTakesEitherSeparatorAndRemovesTheSubtree) {
  const Paths without_b = {"|v1", "|V2", "a", "a|x", "a\\d", "e"};
  // The parent (null: the current root), the path, the code, what is left.
  const std::tuple<const char*, const char*, tERROR, Paths> cases[] = {
      {nullptr, "a/b", kOk, without_b},
      {nullptr, "a\\b", kOk, without_b},
      {"a", "B\\c", kOk, {"|v1", "|V2", "a", "a|x", "a\\b", "a\\d", "e"}},
      {nullptr, "a/zz", kErrNotFound, kAll},
      // Paths that name the starting key itself are refused.
      {nullptr, "", kErrBadParameter, kAll},
      {nullptr, "/a", kErrBadParameter, kAll},
      {nullptr, "\\a", kErrBadParameter, kAll},
      {"a", "", kErrBadParameter, kAll},
  };
  for (const auto& [parent_path, path, code, left] : cases) {
    SCOPED_TRACE(std::string(parent_path ? parent_path : "") + " : " + path);
    Store& s = Sample();
    const hKey parent = parent_path != nullptr ? s.client().OpenKey(parent_path).value : 0;
    TraceMark mark{s};
    EXPECT_EQ(Rc{s.registry().DeleteKey(parent, path)}, Rc{code});
    EXPECT_EQ(mark.Texts(), Paths{"prmap\tDeleteKey " + std::string(path) + ": " + FormatResult(code)});
    EXPECT_EQ(Listing(s.registry()), left);
  }
}

// One step after another on one store; each step's line is compared
// exactly, and a failed step leaves what the previous one left.
TEST_F(DeleteOperationsTest, ByIndexAndByNameRemovalsTraceTheirOwnFormats) {
  Store& s = Sample();
  Registry r = s.registry();
  const hKey a = s.client().OpenKey("a").value;
  const std::string ok = ": ResultOk(0x00000000)", not_found = ": ErrNotFound(0x8000D002)";
  const std::tuple<std::function<tERROR()>, std::string, Paths> steps[] = {
      {[&] { return r.DeleteValue(0, "V1"); }, "DeleteValue V1" + ok,
       {"|V2", "a", "a|x", "a\\b", "a\\b\\c", "a\\d", "e"}},
      {[&] { return r.DeleteValue(0, "v1"); }, "DeleteValue v1" + not_found, {}},
      {[&] { return r.DeleteValueByInd(a, 0); }, "DeleteValueByInd 0" + ok, {"|V2", "a", "a\\b", "a\\b\\c", "a\\d", "e"}},
      {[&] { return r.DeleteValueByInd(a, 0); }, "DeleteValueByInd 0" + not_found, {}},
      {[&] { return r.DeleteKeyByInd(a, 0); }, "DeleteKeyByInd 0 " + ok, {"|V2", "a", "a\\d", "e"}},
      {[&] { return r.DeleteKeyByInd(0, 1); }, "DeleteKeyByInd 1 " + ok, {"|V2", "a", "a\\d"}},
      {[&] { return r.DeleteKeyByInd(0, 1); }, "DeleteKeyByInd 1 " + not_found, {}},
  };
  Paths left;
  for (const auto& [call, line, after] : steps) {
    TraceMark mark{s};
    EXPECT_EQ(Rc{call()}, Rc{after.empty() ? kErrNotFound : kOk}) << line;
    EXPECT_EQ(mark.Texts(), Paths{"prmap\t" + line});
    if (!after.empty()) left = after;
    EXPECT_EQ(Listing(r), left) << line;
  }
}

TEST_F(DeleteOperationsTest, CleanEmptiesTheCurrentRootKeyOnly) {
  const std::pair<const char*, Paths> cases[] = {{"", {}}, {"a", {"|v1", "|V2", "a", "e"}}, {"a/b/c", kAll}};
  for (const auto& [root, left] : cases) {
    SCOPED_TRACE(std::string("root ") + root);
    Store& s = Sample();
    ASSERT_EQ(Rc{s.registry().SetRootStr(root)}, Rc{kOk});
    TraceMark mark{s};
    EXPECT_EQ(Rc{s.registry().Clean()}, Rc{kOk});
    EXPECT_EQ(mark.Texts(), Paths{"prmap\tClean : ResultOk(0x00000000)"});
    ASSERT_EQ(Rc{s.registry().SetRootStr("")}, Rc{kOk});
    EXPECT_EQ(Listing(s.registry()), left);
  }
}

// The read-only refusal comes first, with or without a tree, and changes
// nothing; without a tree every operation fails with the handle code, and
// only SetValue stays silent.
TEST_F(DeleteOperationsTest, ReadOnlyAndTreelessStoresRefuse) {
  // Each modifying operation, and its trace line up to the result. The set
  // operations pass arguments that would fail otherwise (no name, no data).
  const Bytes one = BytesOf(uint32_t{1});
  const std::string at = " (0x" + AddressText(one.data()) + ":4): ";
  const std::pair<std::function<tERROR(const Registry&)>, std::string> modifications[] = {
      {[](const Registry& r) { return r.DeleteKey(0, "a"); }, "DeleteKey a: "},
      {[](const Registry& r) { return r.DeleteKeyByInd(0, 0); }, "DeleteKeyByInd 0 : "},
      {[](const Registry& r) { return r.DeleteValue(0, "v1"); }, "DeleteValue v1: "},
      {[](const Registry& r) { return r.DeleteValueByInd(0, 0); }, "DeleteValueByInd 0: "},
      {[](const Registry& r) { return r.Clean(); }, "Clean : "},
      {[&](const Registry& r) { return r.SetValue(0, "v1", tDWORD, one.data(), 4, 1); }, "SetValue v1" + at},
      {[](const Registry& r) { return r.SetValue(0, nullptr, tDWORD, nullptr, 0, 1); }, "SetValue (null) (0x0:0): "},
      {[&](const Registry& r) { return r.SetValueByIndex(0, 2, tDWORD, one.data(), 4, 1); }, "SetValueByIndex 2" + at},
  };
  Store& read_only = Sample();
  read_only.SetField(prop::kReadOnly, 1);
  const Paths before = Listing(read_only.registry(), 0, true);
  Store& read_only_treeless = OpenStore({.read_only = 1, .init = false});
  Store& treeless = OpenStore({.init = false});
  for (const auto& [call, line] : modifications) {
    for (Store* s : {&read_only, &read_only_treeless}) {
      TraceMark mark{*s};
      EXPECT_EQ(Rc{call(s->registry())}, Rc{kErrReadOnly}) << line;
      EXPECT_EQ(mark.Texts(), Paths{"prmap\t" + line + "ErrReadOnly(0x800000C1)"});
    }
    EXPECT_EQ(Listing(read_only.registry(), 0, true), before) << line;
    TraceMark mark{treeless};
    EXPECT_EQ(Rc{call(treeless.registry())}, Rc{kErrInvalidHandle}) << line;
    EXPECT_EQ(mark.Texts(), line.starts_with("SetValue ") ? Paths{}
                                                          : Paths{"prmap\t" + line + "ErrInvalidHandle(0x8000D004)"});
  }
  hKey key = 0;
  EXPECT_EQ(Rc{read_only.registry().OpenKey(&key, 0, "new", 1)}, Rc{kErrReadOnly});
  EXPECT_EQ(Listing(read_only.registry(), 0, true), before);
}

}  // namespace
}  // namespace prhost::testing
