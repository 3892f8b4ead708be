// Host allocation N fails, once and then persistently, for N = 1, 2, ...
// until a scripted workload runs without meeting the fault. The workloads
// together call all 23 operations after a load from a file, and end with a
// Flush. The step that meets the fault must return one of its documented
// codes and, unless it is a copy, leave the tree as it was; the workload stops
// there, the store is destroyed and its heap must balance.
#include <functional>
#include <string>
#include <vector>

#include "host_fixture.h"
#include "key_test_support.h"
#include "temp_dir.h"

namespace prhost::testing {
namespace {

struct Step {
  const char* what;
  std::function<tERROR(const Registry& r, Store& other)> call;
  // A failure leaves the tree as it was; copies leave a prefix of the copy,
  // and a create keeps the keys it made for earlier components of the path.
  bool keeps_tree = true;
};
struct Workload {
  const char* name;
  std::vector<Step> steps;
};

hKey Open(const Registry& r, const char* path) {
  hKey key = kInvalidKey;
  (void)r.OpenKey(&key, 0, path, 0);
  return key;
}
tERROR Text(const Registry& r, const char* key, const char* name, const char* text) {
  return r.SetValue(Open(r, key), name, tSTRING, text, uint32_t(std::strlen(text) + 1), 1);
}
// Reads `name` in `type`, converting through text when it differs.
tERROR Read(const Registry& r, const char* key, const char* name, TypeId type) {
  char buffer[256];
  uint32_t size = 0;
  return r.GetValue(&size, Open(r, key), name, &type, buffer, sizeof buffer);
}

const char kProfile[] =
    "<propertiesmap>\n"
    " <key name=\"App/Window\"><tDWORD name=\"Width\">640</tDWORD><tSTRING name=\"Title\">main</tSTRING>\n"
    "  <tBINARY name=\"Blob\">00AB10FF</tBINARY><tWSTRING name=\"Wide\">41000000</tWSTRING></key>\n"
    " <key name=\"App/Recent\"><tQWORD name=\"Stamp\">31</tQWORD><tBOOL name=\"On\">true</tBOOL></key>\n"
    " <key name=\"Old\"/>\n"
    "</propertiesmap>\n";

const Workload kWorkloads[] = {
    {"keys",
     {
         {"OpenKey create", [](const Registry& r, Store&) { return r.OpenKey(nullptr, 0, "New/Deep\\Leaf", 1); }, false},
         {"OpenKey mixed case", [](const Registry& r, Store&) { return r.OpenKey(nullptr, 0, "app/WINDOW", 0); }},
         {"OpenKeyByIndex", [](const Registry& r, Store&) { hKey k; return r.OpenKeyByIndex(&k, 0, 1); }},
         {"OpenNextKey", [](const Registry& r, Store&) { hKey k; return r.OpenNextKey(&k, Open(r, "App")); }},
         {"CloseKey", [](const Registry& r, Store&) { return r.CloseKey(Open(r, "App")); }},
         {"GetKeyName", [](const Registry& r, Store&) {
            char b[64]; uint32_t n; return r.GetKeyName(&n, Open(r, "App/Window"), b, sizeof b, 1); }},
         {"GetKeyNameByIndex", [](const Registry& r, Store&) {
            char b[64]; uint32_t n; return r.GetKeyNameByIndex(&n, Open(r, "App"), 0, b, sizeof b, 1); }},
         {"GetKeyCount", [](const Registry& r, Store&) { uint32_t n; return r.GetKeyCount(&n, 0); }},
         {"SetRootStr", [](const Registry& r, Store&) { return r.SetRootStr("App/Window"); }},
         {"GetValueCount", [](const Registry& r, Store&) { uint32_t n; return r.GetValueCount(&n, 0); }},
         {"SetRootKey", [](const Registry& r, Store&) { return r.SetRootKey(0); }},
         {"SetRootStr top", [](const Registry& r, Store&) { return r.SetRootStr(""); }},
         {"DeleteKey", [](const Registry& r, Store&) { return r.DeleteKey(0, "new\\DEEP"); }},
         {"DeleteKeyByInd", [](const Registry& r, Store&) { return r.DeleteKeyByInd(0, 1); }},
         {"Flush", [](const Registry& r, Store&) { return r.Flush(0); }},
     }},
    {"values",
     {
         {"SetValue new", [](const Registry& r, Store&) { return Text(r, "App", "Name", "propmap"); }},
         {"SetValue same type", [](const Registry& r, Store&) { return Text(r, "App/Window", "Title", "second"); }},
         {"SetValue converted", [](const Registry& r, Store&) { return Text(r, "App/Window", "Width", "800"); }},
         {"SetValue wide", [](const Registry& r, Store&) { return Text(r, "App/Window", "Wide", "wide text"); }},
         {"GetValue as text", [](const Registry& r, Store&) { return Read(r, "App/Window", "Width", tSTRING); }},
         {"GetValue as wide", [](const Registry& r, Store&) { return Read(r, "App/Recent", "Stamp", tWSTRING); }},
         {"GetValue as qword", [](const Registry& r, Store&) { return Read(r, "App/Window", "Width", tQWORD); }},
         {"GetValueByIndex", [](const Registry& r, Store&) {
            char b[64]; uint32_t n, t = tSTRING; return r.GetValueByIndex(&n, Open(r, "App/Recent"), 1, &t, b, 64); }},
         {"GetValueNameByIndex", [](const Registry& r, Store&) {
            char b[64]; uint32_t n; return r.GetValueNameByIndex(&n, Open(r, "App/Window"), 0, b, sizeof b); }},
         {"SetValueByIndex converted", [](const Registry& r, Store&) {
            return r.SetValueByIndex(Open(r, "App/Recent"), 0, tSTRING, "99", 3, 0); }},
         {"SetValueByIndex new", [](const Registry& r, Store&) {
            const uint32_t v = 5; return r.SetValueByIndex(Open(r, "App/Recent"), 2, tDWORD, &v, 4, 1); }},
         {"DeleteValue", [](const Registry& r, Store&) { return r.DeleteValue(Open(r, "App/Window"), "BLOB"); }},
         {"DeleteValueByInd", [](const Registry& r, Store&) { return r.DeleteValueByInd(Open(r, "App/Recent"), 0); }},
         {"Flush", [](const Registry& r, Store&) { return r.Flush(0); }},
     }},
    {"copies and clean",
     {
         {"CopyKey to another store", [](const Registry& r, Store& o) { return r.CopyKey(Open(r, "App"), o.object(), 0); }, false},
         {"CopyKey within", [](const Registry& r, Store&) { return r.CopyKey(Open(r, "App"), r.object(), Open(r, "Old")); }, false},
         {"CopyKeyByName", [](const Registry& r, Store& o) { return r.CopyKeyByName("App/Recent", o.object()); }, false},
         {"Flush", [](const Registry& r, Store&) { return r.Flush(0); }},
         {"Clean", [](const Registry& r, Store&) { return r.Clean(); }},
         {"Flush empty", [](const Registry& r, Store&) { return r.Flush(0); }},
     }},
};

class HeapSweepTest : public HostTest {};

// Runs `workload` on a fresh store loaded from `profile` with allocation `n`
// failing (0: never). The test's own dumps are not counted. Returns whether
// the fault was met.
bool RunOnce(std::shared_ptr<Module> module, const std::string& profile, const Workload& workload, uint64_t n,
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
    const Registry r = s->registry();
    for (const Step& step : workload.steps) {
      if (met) break;
      SCOPED_TRACE(step.what);
      heap->ClearFault();
      const std::vector<std::string> before = Dump(r);
      arm();
      const uint64_t failures = heap->failures();
      const tERROR code = step.call(r, *other);
      met = heap->failures() > failures;
      heap->ClearFault();
      if (!met) {
        EXPECT_TRUE(Succeeded(code)) << FormatResult(code);
      } else if (Failed(code)) {
        EXPECT_EQ(Rc{code}, Rc{kErrNoMemory});
        if (step.keeps_tree) { EXPECT_EQ(Dump(r), before); }
      }
    }
    heap->ClearFault();
    if (!met && final_dump != nullptr) *final_dump = Dump(r);
  }
  EXPECT_EQ(heap->leftover_blocks(), 0u) << heap->live_bytes() << " bytes left";
  return met;
}

TEST_F(HeapSweepTest, EveryAllocationOfEveryOperationFails) {
  uint64_t swept = 0;
  for (const Workload& workload : kWorkloads) {
    TempDir dir;
    const std::string profile = dir.Join("profiles.xml");
    std::vector<std::string> reference, last;
    ASSERT_TRUE(WriteWholeFile(profile, kProfile));
    ASSERT_FALSE(RunOnce(module(), profile, workload, 0, false, &reference));
    for (bool persistent : {false, true}) {
      uint64_t n = 1;
      for (;; ++n) {
        SCOPED_TRACE(std::string(workload.name) + (persistent ? ": allocations from " : ": allocation ") +
                     std::to_string(n));
        ASSERT_TRUE(WriteWholeFile(profile, kProfile));
        if (!RunOnce(module(), profile, workload, n, persistent, &last)) break;
        ASSERT_LT(n, 5000u);
      }
      EXPECT_EQ(last, reference) << workload.name << ": the run past every fault point";
      swept += n - 1;
    }
  }
  RecordProperty("allocation_points", static_cast<int>(swept));
  std::printf("heap sweep: %llu failing allocations over %zu workloads\n",
              static_cast<unsigned long long>(swept), std::size(kWorkloads));
}

}  // namespace
}  // namespace prhost::testing
