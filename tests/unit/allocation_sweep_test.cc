// Allocation failure, swept: one workload calling all 23 operations after a
// load from a file runs with the N-th allocation failing, for N = 1, 2, ...
// until a run meets no fault, once and persistently, first in the host's heap
// and then in the free store (name indexes, path searches, the copy's
// stack). The call that meets the fault returns ErrNoMemory or succeeds (a
// copy leaves a prefix, a key whose name cannot be copied is made nameless);
// calls that keep the tree leave it as it was; every key stays reachable by
// its name; nothing unwinds into the host; the heap balances after
// destruction, and a run past every fault point ends as the unfaulted run.
#include <atomic>
#include <cstdlib>
#include <fstream>
#include <functional>
#include <new>

#include <gtest/gtest.h>

#include "store_model.h"
#include "temp_dir.h"
#include "unit_store.h"

namespace {

// Armed, the N-th operator new from arming throws (every later one too when persistent).
std::atomic<bool> g_armed{false}, g_persistent{false};
std::atomic<long> g_countdown{0}, g_thrown{0};

void* Allocate(size_t size) {
  if (g_armed.load() && (g_countdown.fetch_sub(1) == 1 || (g_persistent && g_countdown.load() < 0))) {
    g_thrown.fetch_add(1);
    throw std::bad_alloc();
  }
  if (void* block = std::malloc(size == 0 ? 1 : size)) return block;
  throw std::bad_alloc();
}

}  // namespace

void* operator new(size_t size) { return Allocate(size); }
void* operator new[](size_t size) { return Allocate(size); }
void operator delete(void* block) noexcept { std::free(block); }
void operator delete[](void* block) noexcept { std::free(block); }
void operator delete(void* block, size_t) noexcept { std::free(block); }
void operator delete[](void* block, size_t) noexcept { std::free(block); }

namespace propmap::testing {
namespace {

using prhost::Registry;
using prhost::model::Dump;

hKey At(const Registry& r, const char* path) {
  hKey key = ~hKey{0};
  (void)r.OpenKey(&key, 0, path, 0);
  return key;
}
tERROR SetText(const Registry& r, const char* key, const char* name, const char* text) {
  return r.SetValue(At(r, key), name, tSTRING, text, static_cast<uint32_t>(std::strlen(text) + 1), 1);
}
tERROR Read(const Registry& r, const char* key, const char* name, uint32_t type) {
  char buffer[64];
  uint32_t size = 0;
  return r.GetValue(&size, At(r, key), name, &type, buffer, sizeof buffer);
}

struct Step {
  const char* what;
  std::function<tERROR(const Registry& r, UnitStore& s, UnitStore& other)> call;
  bool keeps_tree = true;
};
#define STEP(what, keeps, ...) \
  {what, [](const Registry& r, [[maybe_unused]] UnitStore& s, [[maybe_unused]] UnitStore& o) -> tERROR { \
     [[maybe_unused]] char b[64]; \
     [[maybe_unused]] uint32_t n = 0, t = tSTRING; \
     [[maybe_unused]] hKey k = 0; \
     __VA_ARGS__; \
   }, keeps}

const char kProfile[] =
    "<propertiesmap>\n"
    " <key name=\"App/Window\"><tDWORD name=\"Width\">640</tDWORD><tSTRING name=\"Title\">main</tSTRING>\n"
    "  <tBINARY name=\"Blob\">00AB10FF</tBINARY><tWSTRING name=\"Wide\">41000000</tWSTRING></key>\n"
    " <key name=\"App/Recent\"><tQWORD name=\"Stamp\">31</tQWORD><tBOOL name=\"On\">true</tBOOL></key>\n"
    " <key name=\"Old\"/>\n"
    "</propertiesmap>\n";

const Step kWorkload[] = {
    STEP("OpenKey create", false, return r.OpenKey(nullptr, 0, "New/Deep\\Leaf", 1)),
    STEP("OpenKey mixed case", true, return r.OpenKey(nullptr, 0, "app/WINDOW", 0)),
    STEP("OpenKeyByIndex", true, return r.OpenKeyByIndex(&k, 0, 1)),
    STEP("OpenNextKey", true, return r.OpenNextKey(&k, At(r, "App"))),
    STEP("CloseKey", true, return r.CloseKey(At(r, "App"))),
    STEP("GetKeyName", true, return r.GetKeyName(&n, At(r, "App/Window"), b, sizeof b, 1)),
    STEP("GetKeyNameByIndex", true, return r.GetKeyNameByIndex(&n, At(r, "App"), 0, b, sizeof b, 1)),
    STEP("GetKeyCount", true, return r.GetKeyCount(&n, 0)),
    STEP("SetRootStr", true, return r.SetRootStr("App/Window")),
    STEP("GetValueCount", true, return r.GetValueCount(&n, 0)),
    STEP("SetRootKey", true, return r.SetRootKey(0)),
    STEP("SetValue new", true, return SetText(r, "App", "Name", "propmap")),
    STEP("SetValue same type", true, return SetText(r, "App/Window", "Title", "second")),
    STEP("SetValue converted", true, return SetText(r, "App/Window", "Width", "800")),
    STEP("SetValue wide", true, return SetText(r, "App/Window", "Wide", "wide text")),
    STEP("SetValue binary from text", true, return SetText(r, "App/Window", "Blob", "0A0B")),
    STEP("SetValue string object", true, wchar_t c[] = L"0x20"; const prhost::StringObject so{c, 4};
         return r.SetValue(At(r, "App/Window"), "Width", prhost::tSTRING_OBJ, &so, 0, 0)),
    STEP("GetValue string object", true, prhost::StringObject so{nullptr, 0}; t = prhost::tSTRING_OBJ;
         const tERROR e = r.GetValue(&n, At(r, "App/Window"), "Title", &t, &so, 0);
         s.heap().Release(so.chars); return e),
    STEP("GetValue as text", true, return Read(r, "App/Window", "Width", tSTRING)),
    STEP("GetValue as wide", true, return Read(r, "App/Recent", "Stamp", tWSTRING)),
    STEP("GetValue text as wide", true, return Read(r, "App/Window", "Title", tWSTRING)),
    STEP("GetValueByIndex", true, return r.GetValueByIndex(&n, At(r, "App/Recent"), 1, &t, b, 64)),
    STEP("GetValueNameByIndex", true, return r.GetValueNameByIndex(&n, At(r, "App/Window"), 0, b, sizeof b)),
    STEP("SetValueByIndex converted", true, return r.SetValueByIndex(At(r, "App/Recent"), 0, tSTRING, "99", 3, 0)),
    STEP("SetValueByIndex new", true, const uint32_t v = 5; return r.SetValueByIndex(At(r, "App/Recent"), 2, tDWORD, &v, 4, 1)),
    STEP("DeleteValue", true, return r.DeleteValue(At(r, "App/Window"), "BLOB")),
    STEP("DeleteValueByInd", true, return r.DeleteValueByInd(At(r, "App/Recent"), 0)),
    STEP("DeleteKey", true, return r.DeleteKey(0, "new\\DEEP")),
    STEP("Flush", true, return r.Flush(0)),
    STEP("CopyKey to another store", false, return r.CopyKey(At(r, "App"), o.store(), 0)),
    STEP("CopyKey within", false, return r.CopyKey(At(r, "App"), s.store(), At(r, "Old"))),
    STEP("CopyKeyByName", false, return r.CopyKeyByName("App/Recent", o.store())),
    STEP("DeleteKeyByInd", true, return r.DeleteKeyByInd(0, 1)),
    STEP("Flush", true, return r.Flush(0)),
    STEP("Clean", true, return r.Clean()),
    STEP("Flush empty", true, return r.Flush(0)),
};

enum class Fault { kNone, kHostHeap, kFreeStore };

// Runs the workload with the n-th allocation of kind `fault` failing,
// counted over the load and the calls only. Returns whether the fault was met.
bool RunOnce(const std::string& profile, Fault fault, long n, bool persistent, std::vector<std::string>* dump) {
  std::ofstream(profile) << kProfile;
  TraceCapture trace;
  TraceCapture::quiet = true;
  UnitStore other({});
  UnitStore s({.name = profile, .locking = 1, .init = false});
  const Registry r(s.store());
  bool met = false;
  long done = 0;  // host-heap allocations made by armed calls
  g_countdown = n;
  g_persistent = persistent;
  auto armed = [&](auto call) {
    const uint64_t before = s.heap().allocations();
    if (fault == Fault::kHostHeap) s.heap().FailAt(n - done, persistent);
    g_thrown = 0;
    g_armed = fault == Fault::kFreeStore;
    const tERROR code = call();
    g_armed = false;
    met = met || (fault == Fault::kHostHeap ? s.heap().failed_any() : g_thrown > 0);
    s.heap().FailAt(0);
    done += static_cast<long>(s.heap().allocations() - before);
    return code;
  };
  const tERROR loaded = armed([&] { return s.Init(); });
  // The free store's failures surface as the failing step's own code.
  const auto expected_failure = [&](tERROR code) { return fault == Fault::kFreeStore ? Failed(code) : code == ErrNoMemory; };
  EXPECT_TRUE(loaded == ResultOk || (met && expected_failure(loaded))) << std::hex << loaded;
  for (const Step& step : kWorkload) {
    if (met) break;
    SCOPED_TRACE(step.what);
    const std::vector<std::string> before = Dump(r);
    const tERROR code = armed([&] { return step.call(r, s, other); });
    if (!met) {
      EXPECT_TRUE(Succeeded(code)) << std::hex << code;
      continue;
    }
    // A save may absorb a free-store failure (its reservation is only a hint).
    if (Failed(code) || (step.keeps_tree && fault == Fault::kHostHeap)) { EXPECT_TRUE(expected_failure(code)) << std::hex << code; }
    if (step.keeps_tree) { EXPECT_EQ(Dump(r), before); }
  }
  uint32_t keys = 0;
  if (Succeeded(r.GetKeyCount(&keys, 0))) { EXPECT_EQ(prhost::model::Unreachable(r), std::vector<std::string>{}); }
  if (!met && dump != nullptr) *dump = Dump(r);
  TraceCapture::quiet = false;
  return met;  // the stores' heaps are checked as they close
}

TEST(AllocationSweepTest, EveryAllocationOfTheWorkloadFails) {
  prhost::TempDir dir;
  const std::string profile = dir.Join("profiles.xml");
  std::vector<std::string> reference, last;
  ASSERT_FALSE(RunOnce(profile, Fault::kNone, 0, false, &reference));
  for (Fault fault : {Fault::kHostHeap, Fault::kFreeStore}) {
    for (bool persistent : {false, true}) {
      long n = 1;
      for (;; ++n) {
        SCOPED_TRACE((fault == Fault::kHostHeap ? "host heap, " : "free store, ") +
                     std::string(persistent ? "from allocation " : "allocation ") + std::to_string(n));
        if (!RunOnce(profile, fault, n, persistent, &last)) break;
        ASSERT_LT(n, 20000);
      }
      EXPECT_EQ(last, reference);
      std::printf("allocation sweep: %ld fault points\n", n - 1);
    }
  }
}

}  // namespace
}  // namespace propmap::testing
