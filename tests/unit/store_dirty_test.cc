// The store's dirty flag, which no host can see: a store object built the
// way a host builds one on a counting test heap (UnitStore), driven through
// its iRegistry table, and its flag read after each kind of change.
//
// The same store also carries the one check that needs a value whose stored
// size cannot be read: a tBINARY that fails GetData has to fail reads and
// writes with a level-300 line.
#include <functional>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "registry/value_conversion.h"
#include "tree/tree.h"
#include "unit_store.h"

namespace propmap::testing {
namespace {

class StoreDirtyTest : public ::testing::Test {
 public:
  void TearDown() override {
    EXPECT_EQ(unit_.Close(), ResultOk);
    // Only the root's one-byte empty name stays behind.
    EXPECT_EQ(heap().live_blocks(), 1u);
    EXPECT_EQ(heap().live_bytes(), 1u);
  }

  const iRegistryTable& ops() const { return *store_->registry.table; }
  iRegistry* self() { return &store_->registry; }
  tERROR Set(const char* name, tag_TYPE_ID type, const void* data, uint32_t size, uint32_t create = 1) {
    return ops().SetValue(self(), 0, name, type, data, size, create);
  }
  TestHeap& heap() { return unit_.heap(); }
  StoreDirtyTest& ReadOnly() {
    store_->config.read_only = 1;
    return *this;
  }

 protected:
  TraceCapture trace_;  // before the store: lines other than the operations' own
  UnitStore unit_{{}};
  PropertiesMap* store_ = unit_.store();
};

struct DirtyCase {
  const char* label;
  std::function<tERROR(StoreDirtyTest&)> action;
  tERROR code;
  bool dirty;
};
void PrintTo(const DirtyCase& c, std::ostream* os) { *os << c.label; }

const uint32_t k1 = 1, k7 = 7, k8 = 8;
const uint8_t kBlock[] = {1, 2};
const wchar_t kWide[] = L"ab";
wchar_t kAbChars[] = L"ab", kAbcChars[] = L"abc";
const StringObject kAb{kAbChars, 2}, kAbc{kAbcChars, 3};

// Each action runs on: values d (dword 7), s (string "abc"), b (binary 01 02),
// w (wide "ab"); keys k/sub and e; flag cleared.
const DirtyCase kDirtyCases[] = {
    // Same type: the value decides whether anything changed.
    {"same dword", [](auto& t) { return t.Set("d", tDWORD, &k7, 4); }, ResultOk, false},
    {"other dword", [](auto& t) { return t.Set("d", tDWORD, &k8, 4); }, ResultOk, true},
    {"same string other case", [](auto& t) { return t.Set("S", tSTRING, "abc", 4); }, ResultOk, false},
    {"same block", [](auto& t) { return t.Set("b", tBINARY, kBlock, 2); }, ResultOk, true},
    {"same wide as string object", [](auto& t) { return t.Set("w", tSTRING_OBJ, &kAb, 0); }, ResultOk, false},
    {"same by index", [](auto& t) { return t.ops().SetValueByIndex(t.self(), 0, 0, tDWORD, &k7, 4, 0); }, ResultOk,
     false},
    // Through text every successful write counts as a change.
    {"equal content through text", [](auto& t) { return t.Set("d", tSTRING, "7", 2); }, ResultOk, true},
    {"equal string as string object", [](auto& t) { return t.Set("s", tSTRING_OBJ, &kAbc, 0); }, ResultOk, true},
    {"refused text", [](auto& t) { return t.Set("d", tSTRING, "xyz", 4); }, ErrBadParameter, false},
    {"created by name", [](auto& t) { return t.Set("new", tDWORD, &k1, 4); }, ResultOk, true},
    {"created by index", [](auto& t) { return t.ops().SetValueByIndex(t.self(), 0, 4, tDWORD, &k1, 4, 1); },
     ResultOk, true},
    {"missing without create", [](auto& t) { return t.Set("new", tDWORD, &k1, 4, 0); }, ErrNotFound, false},
    {"key created", [](auto& t) { hKey k; return t.ops().OpenKey(t.self(), &k, 0, "new", 1); }, KeyCreated, true},
    // The first key stays when the second cannot be made: still a change.
    {"key made, deeper one refused",
     [](auto& t) {
       hKey k;
       t.heap().FailAt(3, true);  // the first key's node and name, then nothing
       tERROR err = t.ops().OpenKey(t.self(), &k, 0, "new/deeper", 1);
       t.heap().FailAt(0);
       return err;
     },
     ErrNoMemory, true},
    {"key opened", [](auto& t) { hKey k; return t.ops().OpenKey(t.self(), &k, 0, "K/SUB", 1); }, ResultOk, false},
    // Removals mark the store only when they removed something; Clean always.
    {"value removed", [](auto& t) { return t.ops().DeleteValue(t.self(), 0, "D"); }, ResultOk, true},
    {"value missing", [](auto& t) { return t.ops().DeleteValue(t.self(), 0, "x"); }, ErrNotFound, false},
    {"value removed by index", [](auto& t) { return t.ops().DeleteValueByInd(t.self(), 0, 3); }, ResultOk, true},
    {"key removed", [](auto& t) { return t.ops().DeleteKey(t.self(), 0, "k\\sub"); }, ResultOk, true},
    {"key path naming the start", [](auto& t) { return t.ops().DeleteKey(t.self(), 0, ""); }, ErrBadParameter,
     false},
    {"key removed by index", [](auto& t) { return t.ops().DeleteKeyByInd(t.self(), 0, 1); }, ResultOk, true},
    // A copy marks its source store, also when it is the destination.
    {"copy within the store",
     [](auto& t) { hKey k, e; t.ops().OpenKey(t.self(), &k, 0, "k", 0); t.ops().OpenKey(t.self(), &e, 0, "e", 0);
                   return t.ops().CopyKey(t.self(), k, t.self(), e); },
     ResultOk, true},
    {"clean of an empty key",
     [](auto& t) { return t.ops().SetRootStr(t.self(), "e") == ResultOk ? t.ops().Clean(t.self()) : ErrUnexpected; },
     ResultOk, true},
    // A read-only store changes nothing.
    {"read-only set", [](auto& t) { return t.ReadOnly().Set("d", tDWORD, &k8, 4); }, ErrReadOnly, false},
    {"read-only clean", [](auto& t) { return t.ReadOnly().ops().Clean(t.self()); }, ErrReadOnly, false},
};

class DirtyFlagTest : public StoreDirtyTest, public ::testing::WithParamInterface<DirtyCase> {};

TEST_P(DirtyFlagTest, FollowsWhatTheOperationChanged) {
  ASSERT_EQ(Set("d", tDWORD, &k7, 4), ResultOk);
  ASSERT_EQ(Set("s", tSTRING, "abc", 4), ResultOk);
  ASSERT_EQ(Set("b", tBINARY, kBlock, 2), ResultOk);
  ASSERT_EQ(Set("w", tWSTRING, kWide, sizeof kWide), ResultOk);
  for (const char* path : {"k/sub", "e"}) {
    hKey key;
    ASSERT_EQ(ops().OpenKey(self(), &key, 0, path, 1), KeyCreated) << path;
  }
  EXPECT_TRUE(IsDirty(store_)) << "building the sample changed the store";
  ClearDirty(store_);
  EXPECT_EQ(GetParam().action(*this), GetParam().code);
  EXPECT_EQ(IsDirty(store_), GetParam().dirty);
}

INSTANTIATE_TEST_SUITE_P(Operations, DirtyFlagTest, ::testing::ValuesIn(kDirtyCases));

// A value that claims to be a block but cannot report its size.
class UnreadableBlock final : public iValue {
 public:
  tag_TYPE_ID GetTypeId() const override { return tBINARY; }
  tERROR GetData(void*, uint32_t, uint32_t*) const override { return ErrIo; }
  tERROR SetData(const void*, uint32_t) override { return ErrIo; }
  tERROR GetText(char*, uint32_t, uint32_t*) const override { return ErrIo; }
  tERROR SetText(const char*) override { return ErrIo; }
};

TEST_F(StoreDirtyTest, UnreadableBlockSizeFailsBothDirectionsWithALevel300Line) {
  ASSERT_EQ(Set("b", tDWORD, &k1, 4), ResultOk);
  ValueEntry* entry = GetValueEntryByIndex(store_->tree()->root, 0);
  ASSERT_NE(entry, nullptr);
  iValue* real = entry->value;
  UnreadableBlock broken;
  entry->value = &broken;
  ClearDirty(store_);
  TraceCapture::Lines().clear();
  uint32_t type = tDWORD, size = 0, out = 0;
  EXPECT_EQ(ops().GetValue(self(), &size, 0, "b", &type, &out, 4), ErrIo);
  EXPECT_EQ(Set("b", tDWORD, &k8, 4), ErrIo);
  entry->value = real;
  EXPECT_FALSE(IsDirty(store_));
  const std::vector<std::string> expected(2, "300 Failed to get value: 80000059");
  EXPECT_EQ(TraceCapture::Lines(), expected);
}

}  // namespace
}  // namespace propmap::testing
