// The store's dirty flag, which no host can see: a store object is built
// here the way a host builds one (ObjectNew, its iObj table, InitDone) on a
// counting test heap, driven through its iRegistry table, and its flag read
// after each kind of change.
//
// The same store also carries the one check that needs a value whose stored
// size cannot be read: a tBINARY that fails GetData has to fail reads and
// writes with a level-300 line.
#include <cctype>
#include <cstdarg>
#include <cstring>
#include <cstdio>
#include <functional>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "module/trace.h"
#include "registry/iregistry.h"
#include "registry/value_conversion.h"
#include "registry/properties_map.h"
#include "registry/store_access.h"
#include "test_heap.h"
#include "tree/tree.h"

namespace propmap::testing {
namespace {

struct Line {
  uint32_t level;
  std::string text;
  bool operator==(const Line&) const = default;
};
std::vector<Line>* g_lines = nullptr;

// Formats the conversions the module uses; "%terr" prints the code in hex.
tERROR CaptureTrace(void* /*object*/, uint32_t level, const char* format, va_list args) {
  std::string text;
  for (const char* p = format; *p != '\0'; ++p) {
    if (*p != '%') {
      text += *p;
      continue;
    }
    char buf[32];
    if (std::strncmp(p + 1, "terr", 4) == 0) {
      std::snprintf(buf, sizeof buf, "%08X", static_cast<uint32_t>(va_arg(args, int)));
      text += buf;
      p += 4;
    } else if (p[1] == 's') {
      const char* s = va_arg(args, const char*);
      text += s != nullptr ? s : "(null)";
      ++p;
    } else if (p[1] == 'd' || p[1] == 'x' || p[1] == 'u') {
      std::snprintf(buf, sizeof buf, p[1] == 'd' ? "%d" : p[1] == 'x' ? "%x" : "%u", va_arg(args, int));
      text += buf;
      ++p;
    } else {
      text += *++p;
    }
  }
  if (g_lines != nullptr) g_lines->push_back({level, text});
  return ResultOk;
}

tERROR QueryService(void* /*host*/, void** out, uint32_t /*one*/, uint32_t service, uint32_t /*two*/) {
  *out = service == kTraceServiceId ? reinterpret_cast<void*>(&CaptureTrace) : nullptr;
  return ResultOk;
}

class StoreDirtyTest : public ::testing::Test {
 public:
  void SetUp() override {
    host_table_[kHostQueryServiceSlot] = reinterpret_cast<void*>(&QueryService);
    host_ = {host_table_, heap_.host()->table};
    SetModuleHost(&host_);
    g_lines = &lines_;
    ASSERT_EQ(ObjectNew(store_, 1), ResultOk);
    // As a host does: its services table at + 8, its account at + 16.
    store_->obj.table = heap_.host()->table;
    store_->host_word = reinterpret_cast<uint64_t>(&heap_);
    ASSERT_EQ(InitDone(store_), ResultOk);
  }
  void TearDown() override {
    EXPECT_EQ(ObjectNew(store_, 0), ResultOk);
    SetModuleHost(nullptr);
    g_lines = nullptr;
    // Only the root's one-byte empty name stays behind.
    EXPECT_EQ(heap_.live_blocks(), 1u);
    EXPECT_EQ(heap_.live_bytes(), 1u);
  }

  PropertiesMap* store() { return store_; }
  const iRegistryTable& ops() const { return *store_->registry.table; }
  iRegistry* self() { return &store_->registry; }
  tERROR Set(const char* name, tag_TYPE_ID type, const void* data, uint32_t size, uint32_t create = 1) {
    return ops().SetValue(self(), 0, name, type, data, size, create);
  }
  tERROR SetDword(const char* name, uint32_t value) { return Set(name, tDWORD, &value, 4); }
  tERROR SetText(const char* name, const char* text) {
    return Set(name, tSTRING, text, static_cast<uint32_t>(std::strlen(text) + 1));
  }
  tERROR SetObject(const char* name, const wchar_t* text) {
    std::wstring chars(text);
    StringObject object{chars.data(), static_cast<uint32_t>(chars.size())};
    return Set(name, tSTRING_OBJ, &object, 0);
  }
  void Open(const char* path) {
    hKey key = kInvalidHandle;
    EXPECT_GE(ops().OpenKey(self(), &key, 0, path, 1), 0) << path;
  }

 protected:
  TestHeap heap_;
  void* host_table_[16] = {};
  HostObject host_{};
  std::vector<Line> lines_;
  alignas(PropertiesMap) unsigned char memory_[sizeof(PropertiesMap)] = {};
  PropertiesMap* store_ = reinterpret_cast<PropertiesMap*>(memory_);
};

struct DirtyCase {
  const char* label;
  std::function<tERROR(StoreDirtyTest&)> action;
  tERROR code;
  bool dirty;
};

const uint8_t kBlock[] = {1, 2};
const wchar_t kWide[] = L"ab";

// Each action runs on: values d (dword 7), s (string "abc"), b (binary 01 02),
// w (wide "ab"), n (void), f (double 2.5); keys k/sub and e; flag cleared.
const DirtyCase kDirtyCases[] = {
    // Same type: the value decides whether anything changed.
    {"same dword", [](StoreDirtyTest& t) { return t.SetDword("d", 7); }, ResultOk, false},
    {"other dword", [](StoreDirtyTest& t) { return t.SetDword("d", 8); }, ResultOk, true},
    {"same string other case", [](StoreDirtyTest& t) { return t.SetText("S", "abc"); }, ResultOk, false},
    {"other string", [](StoreDirtyTest& t) { return t.SetText("s", "abd"); }, ResultOk, true},
    {"same block", [](StoreDirtyTest& t) { return t.Set("b", tBINARY, kBlock, 2); }, ResultOk, true},
    {"void", [](StoreDirtyTest& t) { return t.Set("n", tVOID, nullptr, 0); }, ResultOk, false},
    {"same wide", [](StoreDirtyTest& t) { return t.Set("w", tWSTRING, kWide, sizeof kWide); }, ResultOk, false},
    {"same wide as string object", [](StoreDirtyTest& t) { return t.SetObject("w", L"ab"); }, ResultOk, false},
    {"same by index",
     [](StoreDirtyTest& t) {
       const uint32_t seven = 7;
       return t.ops().SetValueByIndex(t.self(), 0, 0, tDWORD, &seven, 4, 0);
     },
     ResultOk, false},
    // Through text every successful write counts as a change.
    {"equal content through text", [](StoreDirtyTest& t) { return t.SetText("d", "7"); }, ResultOk, true},
    {"unparsed double through text", [](StoreDirtyTest& t) { return t.SetText("f", "abc"); }, ResultOk, true},
    {"equal string as string object", [](StoreDirtyTest& t) { return t.SetObject("s", L"abc"); }, ResultOk, true},
    {"refused text", [](StoreDirtyTest& t) { return t.SetText("d", "xyz"); }, ErrBadParameter, false},
    // Creation.
    {"created by name", [](StoreDirtyTest& t) { return t.SetDword("new", 1); }, ResultOk, true},
    {"created by index",
     [](StoreDirtyTest& t) {
       const uint32_t one = 1;
       return t.ops().SetValueByIndex(t.self(), 0, 6, tDWORD, &one, 4, 1);
     },
     ResultOk, true},
    {"missing without create",
     [](StoreDirtyTest& t) {
       const uint32_t one = 1;
       return t.Set("new", tDWORD, &one, 4, 0);
     },
     ErrNotFound, false},
    {"read through text",
     [](StoreDirtyTest& t) {
       char text[16];
       uint32_t type = tSTRING;
       uint32_t size = 0;
       return t.ops().GetValue(t.self(), &size, 0, "d", &type, text, sizeof text);
     },
     ResultOk, false},
    // Removals mark the store only when they removed something; Clean always.
    {"value removed", [](StoreDirtyTest& t) { return t.ops().DeleteValue(t.self(), 0, "D"); }, ResultOk, true},
    {"value missing", [](StoreDirtyTest& t) { return t.ops().DeleteValue(t.self(), 0, "x"); }, ErrNotFound, false},
    {"value removed by index", [](StoreDirtyTest& t) { return t.ops().DeleteValueByInd(t.self(), 0, 5); }, ResultOk,
     true},
    {"value index past the end", [](StoreDirtyTest& t) { return t.ops().DeleteValueByInd(t.self(), 0, 6); },
     ErrNotFound, false},
    {"key removed", [](StoreDirtyTest& t) { return t.ops().DeleteKey(t.self(), 0, "k\\sub"); }, ResultOk, true},
    {"key missing", [](StoreDirtyTest& t) { return t.ops().DeleteKey(t.self(), 0, "k/x"); }, ErrNotFound, false},
    {"key path naming the start", [](StoreDirtyTest& t) { return t.ops().DeleteKey(t.self(), 0, ""); },
     ErrBadParameter, false},
    {"key removed by index", [](StoreDirtyTest& t) { return t.ops().DeleteKeyByInd(t.self(), 0, 1); }, ResultOk,
     true},
    {"key index past the end", [](StoreDirtyTest& t) { return t.ops().DeleteKeyByInd(t.self(), 0, 2); },
     ErrNotFound, false},
    {"clean", [](StoreDirtyTest& t) { return t.ops().Clean(t.self()); }, ResultOk, true},
    {"clean of an empty key",
     [](StoreDirtyTest& t) {
       if (t.ops().SetRootStr(t.self(), "e") != ResultOk) return ErrUnexpected;
       return t.ops().Clean(t.self());
     },
     ResultOk, true},
    // A read-only store changes nothing.
    {"read-only set",
     [](StoreDirtyTest& t) {
       t.store()->config.read_only = 1;
       return t.SetDword("d", 8);
     },
     ErrReadOnly, false},
    {"read-only removal",
     [](StoreDirtyTest& t) {
       t.store()->config.read_only = 1;
       return t.ops().DeleteValue(t.self(), 0, "d");
     },
     ErrReadOnly, false},
    {"read-only clean",
     [](StoreDirtyTest& t) {
       t.store()->config.read_only = 1;
       return t.ops().Clean(t.self());
     },
     ErrReadOnly, false},
};

class DirtyFlagTest : public StoreDirtyTest, public ::testing::WithParamInterface<DirtyCase> {
 protected:
  void Populate() {
    ASSERT_EQ(SetDword("d", 7), ResultOk);
    ASSERT_EQ(SetText("s", "abc"), ResultOk);
    ASSERT_EQ(Set("b", tBINARY, kBlock, 2), ResultOk);
    ASSERT_EQ(Set("w", tWSTRING, kWide, sizeof kWide), ResultOk);
    ASSERT_EQ(Set("n", tVOID, nullptr, 0), ResultOk);
    const double number = 2.5;
    ASSERT_EQ(Set("f", tDOUBLE, &number, 8), ResultOk);
    Open("k/sub");
    Open("e");
  }
};

TEST_P(DirtyFlagTest, FollowsWhatTheOperationChanged) {
  Populate();
  EXPECT_TRUE(IsDirty(store_)) << "building the sample changed the store";
  ClearDirty(store_);
  EXPECT_EQ(GetParam().action(*this), GetParam().code);
  EXPECT_EQ(IsDirty(store_), GetParam().dirty);
}

INSTANTIATE_TEST_SUITE_P(Operations, DirtyFlagTest, ::testing::ValuesIn(kDirtyCases),
                         [](const ::testing::TestParamInfo<DirtyCase>& info) {
                           std::string name;
                           for (const char* p = info.param.label; *p != '\0'; ++p) {
                             name += std::isalnum(static_cast<unsigned char>(*p)) ? *p : '_';
                           }
                           return name;
                         });

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
  ASSERT_EQ(SetDword("b", 1), ResultOk);
  ValueEntry* entry = GetValueEntryByIndex(store_->tree()->root, 0);
  ASSERT_NE(entry, nullptr);
  iValue* real = entry->value;
  UnreadableBlock broken;
  entry->value = &broken;
  ClearDirty(store_);
  lines_.clear();

  uint32_t type = tDWORD;
  uint32_t size = 0;
  uint32_t out = 0;
  EXPECT_EQ(ops().GetValue(self(), &size, 0, "b", &type, &out, 4), ErrIo);
  EXPECT_EQ(SetDword("b", 2), ErrIo);
  entry->value = real;

  EXPECT_FALSE(IsDirty(store_));
  // The set's line carries the data address, known only inside SetDword.
  ASSERT_EQ(lines_.size(), 4u);
  EXPECT_EQ(lines_[0], (Line{300, "Failed to get value: 80000059"}));
  EXPECT_EQ(lines_[1], (Line{600, "prmap\tGetting value ?\\b: 80000059"}));
  EXPECT_EQ(lines_[2], (Line{300, "Failed to get value: 80000059"}));
  EXPECT_EQ(lines_[3].level, 600u);
  EXPECT_TRUE(lines_[3].text.starts_with("prmap\tSetValue b (0x")) << lines_[3].text;
  EXPECT_TRUE(lines_[3].text.ends_with(":4): 80000059")) << lines_[3].text;
}

}  // namespace
}  // namespace propmap::testing
