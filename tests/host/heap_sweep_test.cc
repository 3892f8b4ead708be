// Host allocation N fails, once and then persistently, for N = 1, 2, ...
// until a scripted workload runs without meeting the fault. The workloads
// together call all 23 operations after a load from a file, and end with a
// Flush. The step that meets the fault must return ErrNoMemory and leave the
// tree as it was (copies leave a prefix, a create keeps the keys made for
// earlier components, so those may also succeed); the workload stops there,
// the store is destroyed and its heap must balance.
#include <functional>
#include <string>
#include <vector>

#include "registry_support.h"
#include "temp_dir.h"

namespace prhost::testing {
namespace {

struct Step {
  const char* what;
  std::function<tERROR(Store& s, Store& other)> call;
  bool keeps_tree = true;
};
#define FN(...) \
  [](Store & s, [[maybe_unused]] Store & o) -> tERROR { \
    [[maybe_unused]] const Registry r = s.registry(); \
    [[maybe_unused]] char b[64]; \
    [[maybe_unused]] uint32_t n = 0, t = tSTRING; \
    __VA_ARGS__; \
  }
#define STEP(what, ...) {what, FN(__VA_ARGS__)}

tERROR SetText(const Store& s, const char* key, const char* name, const char* text) {
  return Put(s.registry(), KeyAt(s, key), name, tSTRING, Text(text));
}
// Reads `name` in `type`, converting through text when it differs.
tERROR Read(const Store& s, const char* key, const char* name, TypeId type) {
  return ReadAs(s.registry(), KeyAt(s, key), name, type).code;
}
// Reads into a string object twice; a failed read leaves the caller's
// characters as they were; the characters come from the store's heap.
tERROR ReadObjects(Store& s) {
  StringObject object{nullptr, 0};
  uint32_t size = 0, type = tSTRING_OBJ;
  tERROR code = s.registry().GetValue(&size, KeyAt(s, "App/Window"), "Title", &type, &object, 0);
  if (Succeeded(code)) {
    const wchar_t* first = object.chars;
    code = s.registry().GetValue(&size, KeyAt(s, "App/Window"), "Width", &type, &object, 0);
    if (Failed(code)) {
      EXPECT_TRUE(object.chars == first && std::wstring(object.chars, object.count) == L"second");
    }
  }
  if (object.chars != nullptr) {
    EXPECT_EQ(Rc{s.heap().Release(object.chars)}, Rc{kOk});
  }
  return code;
}

const char kProfile[] =
    "<propertiesmap>\n"
    " <key name=\"App/Window\"><tDWORD name=\"Width\">640</tDWORD><tSTRING name=\"Title\">main</tSTRING>\n"
    "  <tBINARY name=\"Blob\">00AB10FF</tBINARY><tWSTRING name=\"Wide\">41000000</tWSTRING></key>\n"
    " <key name=\"App/Recent\"><tQWORD name=\"Stamp\">31</tQWORD><tBOOL name=\"On\">true</tBOOL></key>\n"
    " <key name=\"Old\"/>\n"
    "</propertiesmap>\n";

const std::pair<const char*, std::vector<Step>> kWorkloads[] = {
    {"keys",
     {
         {"OpenKey create", FN(return r.OpenKey(nullptr, 0, "New/Deep\\Leaf", 1)), false},
         STEP("OpenKey mixed case", return r.OpenKey(nullptr, 0, "app/WINDOW", 0)),
         STEP("OpenKeyByIndex", hKey k; return r.OpenKeyByIndex(&k, 0, 1)),
         STEP("OpenNextKey", hKey k; return r.OpenNextKey(&k, KeyAt(s, "App"))),
         STEP("CloseKey", return r.CloseKey(KeyAt(s, "App"))),
         STEP("GetKeyName", return r.GetKeyName(&n, KeyAt(s, "App/Window"), b, sizeof b, 1)),
         STEP("GetKeyNameByIndex", return r.GetKeyNameByIndex(&n, KeyAt(s, "App"), 0, b, sizeof b, 1)),
         STEP("GetKeyCount", return r.GetKeyCount(&n, 0)),
         STEP("SetRootStr", return r.SetRootStr("App/Window")),
         STEP("GetValueCount", return r.GetValueCount(&n, 0)),
         STEP("SetRootKey", return r.SetRootKey(0)),
         STEP("SetRootStr top", return r.SetRootStr("")),
         STEP("DeleteKey", return r.DeleteKey(0, "new\\DEEP")),
         STEP("DeleteKeyByInd", return r.DeleteKeyByInd(0, 1)),
         STEP("Flush", return r.Flush(0)),
     }},
    {"values",
     {
         STEP("SetValue new", return SetText(s, "App", "Name", "propmap")),
         STEP("SetValue same type", return SetText(s, "App/Window", "Title", "second")),
         STEP("SetValue converted", return SetText(s, "App/Window", "Width", "800")),
         STEP("SetValue wide", return SetText(s, "App/Window", "Wide", "wide text")),
         STEP("SetValue binary from text", return SetText(s, "App/Window", "Blob", "0A0B")),
         STEP("SetValue string from dword", const uint32_t v = 42; return r.SetValue(KeyAt(s, "App"), "Name", tDWORD, &v, 4, 0)),
         STEP("SetValue string object", wchar_t c[] = L"0x20"; const StringObject so{c, 4};
              return r.SetValue(KeyAt(s, "App/Window"), "Width", tSTRING_OBJ, &so, 0, 0)),
         STEP("GetValue string objects", return ReadObjects(s)),
         STEP("GetValue as text", return Read(s, "App/Window", "Width", tSTRING)),
         STEP("GetValue as wide", return Read(s, "App/Recent", "Stamp", tWSTRING)),
         STEP("GetValue text as wide", return Read(s, "App/Window", "Title", tWSTRING)),
         STEP("GetValue as qword", return Read(s, "App/Window", "Width", tQWORD)),
         STEP("GetValueByIndex", return r.GetValueByIndex(&n, KeyAt(s, "App/Recent"), 1, &t, b, 64)),
         STEP("GetValueNameByIndex", return r.GetValueNameByIndex(&n, KeyAt(s, "App/Window"), 0, b, sizeof b)),
         STEP("SetValueByIndex converted", return r.SetValueByIndex(KeyAt(s, "App/Recent"), 0, tSTRING, "99", 3, 0)),
         STEP("SetValueByIndex new", const uint32_t v = 5; return r.SetValueByIndex(KeyAt(s, "App/Recent"), 2, tDWORD, &v, 4, 1)),
         STEP("DeleteValue", return r.DeleteValue(KeyAt(s, "App/Window"), "BLOB")),
         STEP("DeleteValueByInd", return r.DeleteValueByInd(KeyAt(s, "App/Recent"), 0)),
         STEP("Flush", return r.Flush(0)),
     }},
    {"copies and clean",
     {
         {"CopyKey to another store", FN(return r.CopyKey(KeyAt(s, "App"), o.object(), 0)), false},
         {"CopyKey within", FN(return r.CopyKey(KeyAt(s, "App"), r.object(), KeyAt(s, "Old"))), false},
         {"CopyKeyByName", FN(return r.CopyKeyByName("App/Recent", o.object())), false},
         STEP("Flush", return r.Flush(0)),
         STEP("Clean", return r.Clean()),
         STEP("Flush empty", return r.Flush(0)),
     }},
};

// Runs `steps` on a fresh store loaded from `profile` with allocation `n`
// failing (0: never). The test's own dumps are not counted. Returns whether
// the fault was met.
bool RunOnce(std::shared_ptr<Module> module, const std::string& profile, const std::vector<Step>& steps, uint64_t n,
             bool persistent, std::vector<std::string>* final_dump) {
  std::shared_ptr<StoreHeap> heap;
  bool met = false;
  {
    std::unique_ptr<Store> other = Store::Open(module, {.locking = 1}, "other");
    std::unique_ptr<Store> s = Store::Open(module, {.name = profile, .locking = 1, .init = false}, "swept");
    heap = s->heap_ptr();
    const uint64_t target = heap->allocations() + n;
    auto arm = [&] {
      if (n != 0) heap->FailAt(target - heap->allocations(), persistent);
    };
    arm();
    const tERROR loaded = s->InitDone();
    met = heap->failures() > 0;
    // A name that cannot be copied leaves its key nameless, and loading goes on.
    EXPECT_TRUE(loaded == kOk || (met && loaded == kErrNoMemory)) << "load: " << FormatResult(loaded);
    for (const Step& step : steps) {
      if (met) break;
      SCOPED_TRACE(step.what);
      heap->ClearFault();
      const std::vector<std::string> before = Dump(s->registry());
      arm();
      const uint64_t failures = heap->failures();
      const tERROR code = step.call(*s, *other);
      met = heap->failures() > failures;
      heap->ClearFault();
      if (!met) {
        EXPECT_TRUE(Succeeded(code)) << FormatResult(code);
      } else if (step.keeps_tree || Failed(code)) {
        EXPECT_EQ(Rc{code}, Rc{kErrNoMemory});
        if (step.keeps_tree) {
          EXPECT_EQ(Dump(s->registry()), before);
        }
      }
    }
    heap->ClearFault();
    if (!met && final_dump != nullptr) *final_dump = Dump(s->registry());
  }
  EXPECT_EQ(heap->leftover_blocks(), 0u) << heap->live_bytes() << " bytes left";
  return met;
}

using HeapSweepTest = HostTest;

TEST_F(HeapSweepTest, EveryAllocationOfEveryOperationFails) {
  uint64_t swept = 0;
  for (const auto& [name, steps] : kWorkloads) {
    TempDir dir;
    const std::string profile = dir.Join("profiles.xml");
    std::vector<std::string> reference, last;
    ASSERT_TRUE(WriteWholeFile(profile, kProfile));
    ASSERT_FALSE(RunOnce(module(), profile, steps, 0, false, &reference));
    for (bool persistent : {false, true}) {
      uint64_t n = 1;
      for (;; ++n) {
        SCOPED_TRACE(std::string(name) + (persistent ? ": allocations from " : ": allocation ") + std::to_string(n));
        ASSERT_TRUE(WriteWholeFile(profile, kProfile));
        if (!RunOnce(module(), profile, steps, n, persistent, &last)) break;
        ASSERT_LT(n, 5000u);
      }
      EXPECT_EQ(last, reference) << name << ": the run past every fault point";
      swept += n - 1;
    }
  }
  RecordProperty("allocation_points", static_cast<int>(swept));
  std::printf("heap sweep: %llu failing allocations over %zu workloads\n", static_cast<unsigned long long>(swept),
              std::size(kWorkloads));
}

}  // namespace
}  // namespace prhost::testing
