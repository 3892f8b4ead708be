// Removing keys and values and cleaning the current root key through
// iRegistry: what goes, what stays, the codes, and the exact trace lines
// (the two by-index formats differ by one blank before the colon).
#include <functional>

#include "value_test_support.h"

namespace prhost::testing {
namespace {

const std::string kOkText = "ResultOk(0x00000000)";
const std::string kNotFoundText = "ErrNotFound(0x8000D002)";
const std::string kBadParameterText = "ErrBadParameter(0x80000046)";

// Every key below `key` as a '/'-joined path, depth-first in store order,
// followed by its values' names in brackets.
void CollectPaths(const Client& c, hKey key, const std::string& prefix, std::vector<std::string>* out) {
  Result<std::vector<std::string>> values = c.ValueNames(key);
  for (const std::string& v : values.value) out->push_back(prefix + "[" + v + "]");
  Result<std::vector<std::string>> keys = c.SubkeyNames(key);
  for (const std::string& k : keys.value) {
    out->push_back(prefix + k);
    Result<hKey> child = c.OpenKey(k, false, key);
    CollectPaths(c, child.value, prefix + k + "/", out);
  }
}
std::vector<std::string> Paths(const Store& s) {
  std::vector<std::string> out;
  CollectPaths(s.client(), 0, "", &out);
  return out;
}

class DeleteOperationsTest : public HostTest {
 protected:
  // root: values v1, V2; keys a (value x; keys b (key c), d) and e.
  Store& Sample(StoreConfig config = {}) {
    Store& s = OpenStore(config);
    Client c = s.client();
    for (const char* path : {"a/b/c", "a/d", "e"}) EXPECT_TRUE(c.OpenKey(path, true).ok()) << path;
    EXPECT_EQ(Rc{c.SetDword(0, "v1", 1)}, Rc{kOk});
    EXPECT_EQ(Rc{c.SetString(0, "V2", "two")}, Rc{kOk});
    EXPECT_EQ(Rc{c.SetDword(c.OpenKey("a").value, "x", 3)}, Rc{kOk});
    return s;
  }
  const std::vector<std::string> kAll = {"[v1]", "[V2]", "a", "a/[x]", "a/b", "a/b/c", "a/d", "e"};
};

TEST_F(DeleteOperationsTest, DeleteKeyTakesEitherSeparatorAndRemovesTheSubtree) {
  struct Case {
    const char* parent;  // null: the current root
    const char* path;
    tERROR code;
    std::vector<std::string> left;
  } const cases[] = {
      {nullptr, "a/b", kOk, {"[v1]", "[V2]", "a", "a/[x]", "a/d", "e"}},
      {nullptr, "a\\b", kOk, {"[v1]", "[V2]", "a", "a/[x]", "a/d", "e"}},
      {nullptr, "A/B/c", kOk, {"[v1]", "[V2]", "a", "a/[x]", "a/b", "a/d", "e"}},
      {nullptr, "a", kOk, {"[v1]", "[V2]", "e"}},
      {"a", "b", kOk, {"[v1]", "[V2]", "a", "a/[x]", "a/d", "e"}},
      {"a", "b\\c", kOk, {"[v1]", "[V2]", "a", "a/[x]", "a/b", "a/d", "e"}},
      {nullptr, "a/zz", kErrNotFound, kAll},
      {nullptr, "b", kErrNotFound, kAll},
      // Paths that name the starting key itself are refused.
      {nullptr, "", kErrBadParameter, kAll},
      {nullptr, "/a", kErrBadParameter, kAll},
      {nullptr, "\\a", kErrBadParameter, kAll},
      {"a", "", kErrBadParameter, kAll},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(std::string(c.parent ? c.parent : "") + " : " + c.path);
    Store& s = Sample();
    ASSERT_EQ(Paths(s), kAll);
    const hKey parent = c.parent != nullptr ? s.client().OpenKey(c.parent).value : 0;
    TraceMark mark(s);
    EXPECT_EQ(Rc{s.registry().DeleteKey(parent, c.path)}, Rc{c.code});
    EXPECT_EQ(mark.Texts(), std::vector<std::string>{"prmap\tDeleteKey " + std::string(c.path) + ": " +
                                                     FormatResult(c.code)});
    EXPECT_EQ(Paths(s), c.left);
  }
}

// One step after another on one store; each step's line is compared exactly.
TEST_F(DeleteOperationsTest, ByIndexAndByNameRemovalsTraceTheirOwnFormats) {
  Store& s = Sample();
  Registry r = s.registry();
  const hKey a = s.client().OpenKey("a").value;
  struct Step {
    std::function<tERROR()> call;
    tERROR code;
    std::string line;
    std::vector<std::string> left;
  };
  const std::vector<Step> steps = {
      {[&] { return r.DeleteValue(0, "V1"); }, kOk, "prmap\tDeleteValue V1: " + kOkText,
       {"[V2]", "a", "a/[x]", "a/b", "a/b/c", "a/d", "e"}},
      {[&] { return r.DeleteValue(0, "v1"); }, kErrNotFound, "prmap\tDeleteValue v1: " + kNotFoundText,
       {"[V2]", "a", "a/[x]", "a/b", "a/b/c", "a/d", "e"}},
      {[&] { return r.DeleteValueByInd(a, 0); }, kOk, "prmap\tDeleteValueByInd 0: " + kOkText,
       {"[V2]", "a", "a/b", "a/b/c", "a/d", "e"}},
      {[&] { return r.DeleteValueByInd(a, 0); }, kErrNotFound, "prmap\tDeleteValueByInd 0: " + kNotFoundText,
       {"[V2]", "a", "a/b", "a/b/c", "a/d", "e"}},
      {[&] { return r.DeleteValueByInd(0, 1); }, kErrNotFound, "prmap\tDeleteValueByInd 1: " + kNotFoundText,
       {"[V2]", "a", "a/b", "a/b/c", "a/d", "e"}},
      {[&] { return r.DeleteKeyByInd(a, 2); }, kErrNotFound, "prmap\tDeleteKeyByInd 2 : " + kNotFoundText,
       {"[V2]", "a", "a/b", "a/b/c", "a/d", "e"}},
      {[&] { return r.DeleteKeyByInd(a, 0); }, kOk, "prmap\tDeleteKeyByInd 0 : " + kOkText,
       {"[V2]", "a", "a/d", "e"}},
      {[&] { return r.DeleteKeyByInd(0, 1); }, kOk, "prmap\tDeleteKeyByInd 1 : " + kOkText, {"[V2]", "a", "a/d"}},
      {[&] { return r.DeleteKeyByInd(0, 1); }, kErrNotFound, "prmap\tDeleteKeyByInd 1 : " + kNotFoundText,
       {"[V2]", "a", "a/d"}},
      {[&] { return r.DeleteValueByInd(0, 0); }, kOk, "prmap\tDeleteValueByInd 0: " + kOkText, {"a", "a/d"}},
  };
  for (const Step& step : steps) {
    SCOPED_TRACE(step.line);
    TraceMark mark(s);
    EXPECT_EQ(Rc{step.call()}, Rc{step.code});
    EXPECT_EQ(mark.Texts(), std::vector<std::string>{step.line});
    EXPECT_EQ(Paths(s), step.left);
  }
}

TEST_F(DeleteOperationsTest, CleanEmptiesTheCurrentRootKeyOnly) {
  struct Case {
    const char* root;
    std::vector<std::string> left;
  } const cases[] = {
      {"", {}},
      {"a", {"[v1]", "[V2]", "a", "e"}},
      {"a/b/c", kAll},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(std::string("root ") + c.root);
    Store& s = Sample();
    ASSERT_EQ(Rc{s.registry().SetRootStr(c.root)}, Rc{kOk});
    TraceMark mark(s);
    EXPECT_EQ(Rc{s.registry().Clean()}, Rc{kOk});
    EXPECT_EQ(Rc{s.registry().Clean()}, Rc{kOk}) << "an empty key cleans again";
    EXPECT_EQ(mark.Texts(), std::vector<std::string>(2, "prmap\tClean : " + kOkText));
    ASSERT_EQ(Rc{s.registry().SetRootStr("")}, Rc{kOk});
    EXPECT_EQ(Paths(s), c.left);
  }
}

// Each modifying operation with the arguments it is called with below.
struct Modification {
  const char* label;
  std::function<tERROR(const Registry&)> call;
  std::string line_start;  // the trace line up to the result
};

std::vector<Modification> Modifications() {
  static const Bytes kOne = BytesOf(uint32_t{1});
  return {
      {"DeleteKey", [](const Registry& r) { return r.DeleteKey(0, "a"); }, "prmap\tDeleteKey a: "},
      {"DeleteKeyByInd", [](const Registry& r) { return r.DeleteKeyByInd(0, 0); }, "prmap\tDeleteKeyByInd 0 : "},
      {"DeleteValue", [](const Registry& r) { return r.DeleteValue(0, "v1"); }, "prmap\tDeleteValue v1: "},
      {"DeleteValueByInd", [](const Registry& r) { return r.DeleteValueByInd(0, 0); },
       "prmap\tDeleteValueByInd 0: "},
      {"Clean", [](const Registry& r) { return r.Clean(); }, "prmap\tClean : "},
      {"SetValue", [](const Registry& r) { return r.SetValue(0, "v1", tDWORD, kOne.data(), 4, 1); },
       "prmap\tSetValue v1 (0x" + AddressText(kOne.data()) + ":4): "},
      {"SetValueByIndex", [](const Registry& r) { return r.SetValueByIndex(0, 2, tDWORD, kOne.data(), 4, 1); },
       "prmap\tSetValueByIndex 2 (0x" + AddressText(kOne.data()) + ":4): "},
  };
}

TEST_F(DeleteOperationsTest, ReadOnlyStoresRefuseEveryChange) {
  Store& s = Sample();
  s.SetField(prop::kReadOnly, 1);
  Registry r = s.registry();
  const std::string before = DumpKey(r, 0);
  for (const Modification& m : Modifications()) {
    SCOPED_TRACE(m.label);
    TraceMark mark(s);
    EXPECT_EQ(Rc{m.call(r)}, Rc{kErrReadOnly});
    EXPECT_EQ(mark.Texts(), std::vector<std::string>{m.line_start + "ErrReadOnly(0x800000C1)"});
    EXPECT_EQ(DumpKey(r, 0), before);
  }
  hKey key = 0;
  EXPECT_EQ(Rc{r.OpenKey(&key, 0, "new", 1)}, Rc{kErrReadOnly});
  EXPECT_EQ(DumpKey(r, 0), before);
}

// Without a tree nothing resolves; every removal traces its line (set
// operations are covered with the value tests).
TEST_F(DeleteOperationsTest, WithoutATreeRemovalsFailWithTheHandleCode) {
  Store& s = OpenStore({.init = false});
  Registry r = s.registry();
  for (const Modification& m : Modifications()) {
    if (std::string(m.label).starts_with("Set")) continue;
    SCOPED_TRACE(m.label);
    TraceMark mark(s);
    EXPECT_EQ(Rc{m.call(r)}, Rc{kErrInvalidHandle});
    EXPECT_EQ(mark.Texts(), std::vector<std::string>{m.line_start + "ErrInvalidHandle(0x8000D004)"});
  }
}

}  // namespace
}  // namespace prhost::testing
