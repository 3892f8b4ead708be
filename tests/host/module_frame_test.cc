// The module frame seen from the host: DllMain, the registration call and
// its tables, the exported symbols, tracing with and without a trace
// service, and the placeholder object-services table. The host validates
// every registration's constants and tables itself (registration.cc).
#include <dlfcn.h>

#include <cstdio>
#include <cstring>
#include <map>
#include <set>
#include <tuple>

#include "host_fixture.h"

namespace prhost::testing {
namespace {

using ModuleFrameTest = HostTest;

bool InModule(const Module& m, const void* address) {
  Dl_info self{}, other{};
  return dladdr(m.version_address(), &self) != 0 && dladdr(address, &other) != 0 &&
         self.dli_fbase == other.dli_fbase;
}

TEST_F(ModuleFrameTest, OtherDllMainReasonsReturnOneAndRegisterNothing) {
  for (uint32_t reason : {0u, 1u, 2u, 3u, 99u, 101u, 0xFFFFFFFFu}) {
    SCOPED_TRACE(reason);
    auto m = Load({.private_copy = true, .register_now = false});
    tERROR result = Code(0x5A5A5A5A);
    EXPECT_EQ(m->CallDllMain(reason, &result), 1);
    EXPECT_EQ(result, Code(0x5A5A5A5A)) << "result must stay untouched";
    EXPECT_TRUE(m->host().registrations().empty() && m->host().service_queries().empty());
    EXPECT_EQ(m->trace().size(), 0u);
    EXPECT_EQ(m->CallDllMain(100, &result), 1) << "reason 100 still registers afterwards";
    EXPECT_EQ(Rc{result}, Rc{kOk});
    EXPECT_TRUE(m->registered());
  }
}

TraceLine Line(uint32_t level, const std::string& text) { return TraceLine{level, nullptr, text, true}; }

TEST_F(ModuleFrameTest, DllMainReportsTheHostsRegistrationAnswer) {
  const TraceLine cannot = Line(300, "cannot register \"Registry\" interface");
  const struct {
    tERROR host_answer;
    bool offer_trace;
    int dll_main_returns;
    std::vector<TraceLine> lines;  // module-level lines
  } cases[] = {
      {Code(0x80000040), true, 0, {Line(200, "Registry(IID_REGISTRY)registered [ErrUnexpected(0x80000040)]"), cannot}},
      {-1, true, 0, {Line(200, "Registry(IID_REGISTRY)registered [0xFFFFFFFF]"), cannot}},
      {Code(0x80000041), false, 0, {}},
      {0, true, 1, {}},
      {0xD001, true, 1, {}},  // positive is success
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(FormatResult(c.host_answer));
    auto m = Load({.private_copy = true,
                   .register_now = false,
                   .host = {.offer_trace = c.offer_trace, .register_result = c.host_answer}});
    tERROR result = Code(0x5A5A5A5A);
    EXPECT_EQ(m->CallDllMain(100, &result), c.dll_main_returns);
    EXPECT_EQ(Rc{result}, Rc{c.host_answer});
    EXPECT_EQ(m->trace().Lines(), c.lines);
    std::vector<Registration> calls = m->host().registrations();
    ASSERT_EQ(calls.size(), 1u);
    EXPECT_EQ(calls[0].error, "") << "the module's registration itself is valid";
    if (Failed(c.host_answer)) {  // tracing asked for the trace service with the fixed arguments
      std::vector<ServiceQuery> queries = m->host().service_queries();
      ASSERT_FALSE(queries.empty());
      EXPECT_EQ(std::tie(queries[0].one, queries[0].service_id, queries[0].two),
                std::make_tuple(1u, kTraceServiceId, 2u));
    }
  }
}

// What the host's validation does not pin: the callbacks and accessors live
// in the module, the version record's bytes, the object size's alignment.
TEST_F(ModuleFrameTest, CallbacksAccessorsAndVersionRecord) {
  auto m = module();
  const Registration& reg = m->registration();
  EXPECT_EQ(reg.host, m->host().object());
  EXPECT_EQ(reg.object_size % 8, 0u);
  std::set<const void*> code(reg.internal.begin(), reg.internal.end());
  code.erase(nullptr);
  EXPECT_EQ(code.size(), 3u);
  for (const void* slot : code) EXPECT_TRUE(InModule(*m, slot));
  std::set<uint64_t> accessors;
  for (const PropertyRecord& p : reg.property_records) {
    if (p.getter == 0 && p.setter == 0) continue;
    EXPECT_TRUE(InModule(*m, reinterpret_cast<void*>(p.getter)) && InModule(*m, reinterpret_cast<void*>(p.setter)));
    accessors.insert({p.getter, p.setter});
  }
  EXPECT_EQ(accessors.size(), 6u) << "three accessor pairs, all distinct";
  const uint32_t version[10] = {1, 0x0726001E, 0x02F80000, 0x0726001E, 0x02F80000, 0, 0, 0, 0, 0};
  EXPECT_EQ(m->version_symbol_size(), 40u);
  EXPECT_EQ(std::memcmp(m->version_address(), version, 40), 0);
}

TEST_F(ModuleFrameTest, DynamicSymbolTableHoldsExactlyTheTwoExports) {
  FILE* pipe = popen(("nm -D --defined-only '" + std::string(PROPMAP_MODULE_PATH) + "' 2>&1").c_str(), "r");
  ASSERT_NE(pipe, nullptr);
  std::map<std::string, char> symbols;
  char line[512], address[64], type = 0, name[400];
  while (std::fgets(line, sizeof line, pipe) != nullptr) {
    ASSERT_EQ(std::sscanf(line, "%63s %c %399s", address, &type, name), 3) << "unexpected nm line: " << line;
    symbols[std::string(name).substr(0, std::string(name).find('@'))] = type;
  }
  ASSERT_EQ(pclose(pipe), 0);
  EXPECT_EQ(symbols.size(), 2u);
  EXPECT_EQ(symbols["DllMain"], 'T');
  EXPECT_TRUE(symbols["ixoModuleVersion"] == 'R' || symbols["ixoModuleVersion"] == 'D') << "initialised data";
}

TEST_F(ModuleFrameTest, RegisteringTwiceRewritesTablesButFillsMethodsOnce) {
  // A private instance, because this test scribbles on the module's tables.
  auto m = Load({.private_copy = true, .host = {.register_result = kOk}});
  const Registration& first = m->registration();
  const_cast<uint64_t*>(first.method_list)[4] = 0xDEAD;
  const_cast<PropertyRecord*>(first.properties)[9].setter = 0;
  const_cast<void**>(first.internal_table)[3] = nullptr;
  tERROR result = -1;
  EXPECT_EQ(m->CallDllMain(100, &result), 1);
  EXPECT_EQ(Rc{result}, Rc{kOk});
  std::vector<Registration> calls = m->host().registrations();
  ASSERT_EQ(calls.size(), 2u);
  const Registration& second = calls[1];
  EXPECT_EQ(std::tie(second.internal_table, second.method_list, second.properties),
            std::tie(first.internal_table, first.method_list, first.properties));
  EXPECT_EQ(second.internal, first.internal) << "internal table rewritten";
  ASSERT_EQ(second.property_records.size(), 13u);
  EXPECT_EQ(std::memcmp(second.property_records.data(), first.property_records.data(), 13 * 48), 0);
  EXPECT_EQ(second.methods[4], 0xDEADu) << "method list filled only once";
  EXPECT_EQ(m->trace().size(), 0u) << "success is not traced";
}

TEST_F(ModuleFrameTest, WithoutATraceServiceOperationsWorkAndNothingIsWritten) {
  auto quiet = Load({.private_copy = true, .host = {.offer_trace = false}});
  Store& q = OpenStore({.init = false}, quiet);
  Store& t = OpenStore({.init = false}, module());
  for (Store* s : {&q, &t}) {
    EXPECT_EQ(Rc{s->SetName("profile.xml")}, Rc{kOk});
    EXPECT_EQ(s->GetName().value, "profile.xml");
    uint32_t size = 7;
    EXPECT_EQ(Rc{s->SetProperty(prop::kName, nullptr, 4, &size)}, Rc{kErrBadParameter});
  }
  EXPECT_EQ(quiet->trace().size(), 0u);
  EXPECT_FALSE(module()->trace().LinesFor(t.object()).empty()) << "the same calls trace with a service";
  std::vector<ServiceQuery> queries = quiet->host().service_queries();
  ASSERT_FALSE(queries.empty()) << "the module asked and got nothing";
  EXPECT_EQ(queries[0].service_id, kTraceServiceId);
}

// Construction installs the module's own table, whose entries answer
// ErrNotImplemented but for a fixed set that answers 0 (so a pending root
// point cannot be kept); destruction releases what the store holds and puts
// the host's table back, whether or not the host services were installed.
TEST_F(ModuleFrameTest, PlaceholderTableFromConstructionToDestruction) {
  const std::set<uint32_t> answering_zero = {1, 2, 3, 4, 5, 13, 14, 15, 27, 62, 63, 68, 80};
  for (bool install : {false, true}) {
    Store& s = NewStore();
    EXPECT_EQ(s.size(), module()->registration().object_size);
    EXPECT_EQ(s.obj_table(), nullptr) << "memory starts zero-filled";
    ASSERT_EQ(Rc{s.Construct()}, Rc{kOk});
    void* const* placeholder = s.placeholder_table();
    EXPECT_EQ(s.obj_table(), placeholder);
    EXPECT_TRUE(placeholder != module()->host().obj_table() && InModule(*module(), placeholder));
    EXPECT_TRUE(s.registry_table() != nullptr && InModule(*module(), s.registry_table()));
    EXPECT_EQ(s.host_word(), 0u) << "the host's word is not the module's";
    ASSERT_EQ(kObjEntries, 82u);
    for (uint32_t e = 0; e < kObjEntries; ++e) {
      const tERROR want = answering_zero.count(e) != 0 ? 0 : Code(0x800000C2);
      EXPECT_EQ(Rc{reinterpret_cast<ObjEntryFn>(placeholder[e])(s.obj_self())}, Rc{want}) << "entry " << e;
    }
    if (install) {  // the host's table and heap account; a pending root path held in the store's heap
      s.InstallHostServices();
      EXPECT_EQ(s.obj_table(), module()->host().obj_table());
      EXPECT_EQ(StoreHeap::FromSelf(s.obj_self()), &s.heap());
      EXPECT_EQ(Rc{s.SetRootPoint("Software\\Example")}, Rc{kOk});
      EXPECT_FALSE(s.heap().balanced());
    } else {  // no host memory service to keep the text in
      EXPECT_EQ(Rc{s.SetRootPoint("a")}, Rc{kErrNotImplemented});
    }
    EXPECT_EQ(Rc{s.Destroy()}, Rc{kOk});
    EXPECT_EQ(s.obj_table(), module()->host().obj_table());
    EXPECT_EQ(s.host_word(), install ? reinterpret_cast<uintptr_t>(&s.heap()) : 0u);
    EXPECT_EQ(s.stage(), Store::Stage::kDestroyed);
    EXPECT_TRUE(s.heap().balanced());
  }
}

}  // namespace
}  // namespace prhost::testing
