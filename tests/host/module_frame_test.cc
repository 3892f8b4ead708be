// The module frame seen from the host: DllMain, the registration call and
// its tables, the version record, the exported symbols, tracing with and
// without a trace service, and the placeholder object-services table.
#include <dlfcn.h>

#include <cstdio>
#include <cstring>
#include <map>
#include <set>
#include <tuple>

#include "host_fixture.h"

namespace prhost::testing {
namespace {

// ---- DllMain reasons ----------------------------------------------------------

class DllMainReasonTest : public HostTest, public ::testing::WithParamInterface<uint32_t> {};

TEST_P(DllMainReasonTest, OtherReasonsReturnOneAndRegisterNothing) {
  auto m = Load({.register_now = false});
  tERROR result = Code(0x5A5A5A5A);
  EXPECT_EQ(m->CallDllMain(GetParam(), &result), 1);
  EXPECT_EQ(result, Code(0x5A5A5A5A)) << "result must stay untouched";
  EXPECT_TRUE(m->host().registrations().empty() && m->host().service_queries().empty());
  EXPECT_EQ(m->trace().size(), 0u);

  // Reason 100 still registers afterwards.
  EXPECT_EQ(m->CallDllMain(100, &result), 1);
  EXPECT_EQ(Rc{result}, Rc{kOk});
  EXPECT_TRUE(m->registered());
}

INSTANTIATE_TEST_SUITE_P(Reasons, DllMainReasonTest, ::testing::Values(0u, 1u, 2u, 3u, 99u, 101u, 0xFFFFFFFFu),
                         [](const auto& info) { return "Reason" + std::to_string(info.param); });

// ---- Registration result -------------------------------------------------------

struct RegisterCase {
  const char* name;
  tERROR host_answer;
  bool offer_trace;
  int dll_main_returns;
  std::vector<TraceLine> lines;  // store pointer null: module-level lines
};

void PrintTo(const RegisterCase& c, std::ostream* os) { *os << c.name; }

TraceLine Line(uint32_t level, const std::string& text) { return TraceLine{level, nullptr, text, true}; }

const TraceLine kCannotRegister = Line(300, "cannot register \"Registry\" interface");

const RegisterCase kRegisterCases[] = {
    {"Unexpected", Code(0x80000040), true, 0,
     {Line(200, "Registry(IID_REGISTRY)registered [ErrUnexpected(0x80000040)]"), kCannotRegister}},
    {"MinusOne", -1, true, 0, {Line(200, "Registry(IID_REGISTRY)registered [0xFFFFFFFF]"), kCannotRegister}},
    {"FailureWithoutTraceService", Code(0x80000041), false, 0, {}},
    {"Zero", 0, true, 1, {}},
    {"PositiveIsSuccess", 0xD001, true, 1, {}},
};

class RegistrationResultTest : public HostTest, public ::testing::WithParamInterface<RegisterCase> {};

TEST_P(RegistrationResultTest, DllMainReportsTheHostAnswer) {
  const RegisterCase& c = GetParam();
  auto m = Load({.register_now = false, .host = {.offer_trace = c.offer_trace, .register_result = c.host_answer}});
  tERROR result = Code(0x5A5A5A5A);
  EXPECT_EQ(m->CallDllMain(100, &result), c.dll_main_returns);
  EXPECT_EQ(Rc{result}, Rc{c.host_answer});
  EXPECT_EQ(m->trace().Lines(), c.lines);

  std::vector<Registration> calls = m->host().registrations();
  ASSERT_EQ(calls.size(), 1u);
  EXPECT_EQ(calls[0].error, "") << "the module's registration itself is valid";

  if (Failed(c.host_answer)) {
    // Tracing asked the host for its trace service, with the fixed arguments.
    std::vector<ServiceQuery> queries = m->host().service_queries();
    ASSERT_FALSE(queries.empty());
    EXPECT_EQ(std::tie(queries[0].one, queries[0].service_id, queries[0].two),
              std::make_tuple(1u, kTraceServiceId, 2u));
  }
}

INSTANTIATE_TEST_SUITE_P(Answers, RegistrationResultTest, ::testing::ValuesIn(kRegisterCases),
                         [](const auto& info) { return std::string(info.param.name); });

// ---- Registration contents -----------------------------------------------------

class RegistrationTest : public HostTest {};

bool InModule(const Module& m, const void* address) {
  Dl_info self{};
  Dl_info other{};
  if (dladdr(m.version_address(), &self) == 0 || dladdr(address, &other) == 0) return false;
  return self.dli_fbase == other.dli_fbase;
}

// The constant arguments, the method list (slot offsets plus one) and the
// internal table, which holds only the three callbacks.
TEST_F(RegistrationTest, ArgumentsMethodListAndInternalSlots) {
  auto m = module();
  const Registration& reg = m->registration();
  const uint64_t got[] = {reg.a13, reg.iid, reg.a0, reg.a1, reg.a55, reg.internal_count, reg.method_count,
                          reg.property_count, reg.final0};
  const uint64_t want[] = {13, 0xA7FB, 0, 1, 0x55, 12, 23, 13, 0};
  for (size_t i = 0; i < std::size(want); ++i) EXPECT_EQ(got[i], want[i]) << "argument " << i;
  EXPECT_EQ(reg.host, m->host().object());
  EXPECT_EQ(reg.error, "");
  EXPECT_GE(reg.object_size, 24u + 117u);  // the three words and the whole configuration block
  EXPECT_EQ(reg.object_size % 8, 0u);

  ASSERT_EQ(reg.methods.size(), 23u);
  for (uint64_t k = 0; k < 23; ++k) EXPECT_EQ(reg.methods[k], 8 * k + 1) << "entry " << k;

  ASSERT_EQ(reg.internal.size(), 12u);
  std::set<void*> distinct;
  for (uint32_t slot = 0; slot < 12; ++slot) {
    if (slot == 1 || slot == 3 || slot == 5) {
      EXPECT_TRUE(reg.internal[slot] != nullptr && InModule(*m, reg.internal[slot])) << "slot " << slot;
      distinct.insert(reg.internal[slot]);
    } else {
      EXPECT_EQ(reg.internal[slot], nullptr) << "slot " << slot;
    }
  }
  EXPECT_EQ(distinct.size(), 3u);
}

constexpr uint64_t kAccessor = ~uint64_t{0};
constexpr uint64_t kData = ~uint64_t{0} - 1;

// Per record: id, position or constant (or one of the two markers), size, flags.
const uint64_t kExpectedProperties[13][4] = {
    {0x21A00082, 1, 4, 4},         {0x20900083, kData, 15, 12},   {0x20601000, 24, 4, 3},
    {0x20401002, 28, 4, 35},       {0x20401003, 32, 4, 1},        {0x20601004, 36, 4, 3},
    {0x2040004A, 96, 4, 35},       {0x20901005, kAccessor, 0, 0}, {0x20C01006, kAccessor, 0, 0},
    {0x20900040, kAccessor, 0, 0}, {0x33201000, 104, 8, 35},      {0x30601001, 112, 4, 3},
    {0x30201002, 116, 1, 3},
};

TEST_F(RegistrationTest, PropertyTableBytes) {
  auto m = module();
  const Registration& reg = m->registration();
  ASSERT_EQ(reg.property_records.size(), 13u);
  std::set<uint64_t> accessors;
  for (size_t i = 0; i < 13; ++i) {
    const auto& [id, value, size, flags] = kExpectedProperties[i];
    const PropertyRecord& got = reg.property_records[i];
    SCOPED_TRACE("record " + std::to_string(i));
    EXPECT_EQ(got.id, id);
    EXPECT_EQ(got.size, size);
    EXPECT_EQ(got.flags, flags);
    const bool accessor = value == kAccessor;
    EXPECT_EQ(got.getter != 0 && got.setter != 0, accessor);
    EXPECT_EQ(got.getter == 0 && got.setter == 0, !accessor);
    if (accessor) {
      EXPECT_EQ(got.value_or_position, 0u);
      EXPECT_TRUE(InModule(*m, reinterpret_cast<void*>(got.getter)));
      EXPECT_TRUE(InModule(*m, reinterpret_cast<void*>(got.setter)));
      accessors.insert({got.getter, got.setter});
    } else if (value == kData) {
      const char* text = reinterpret_cast<const char*>(got.value_or_position);
      ASSERT_TRUE(text != nullptr && InModule(*m, text));
      EXPECT_EQ(std::memcmp(text, "properties map", 15), 0) << "14 characters and the NUL";
    } else {
      EXPECT_EQ(got.value_or_position, value);
    }
  }
  EXPECT_EQ(accessors.size(), 6u) << "six distinct accessor functions";
  // The host's copy is the module's table as it stands.
  EXPECT_EQ(std::memcmp(reg.properties, reg.property_records.data(), 13 * sizeof(PropertyRecord)), 0);
}

TEST_F(RegistrationTest, VersionRecordBytes) {
  auto m = module();
  const uint32_t expected[10] = {1, 0x0726001E, 0x02F80000, 0x0726001E, 0x02F80000, 0, 0, 0, 0, 0};
  EXPECT_EQ(m->version_symbol_size(), 40u);
  EXPECT_EQ(std::memcmp(m->version_address(), expected, 40), 0);
}

TEST_F(RegistrationTest, DynamicSymbolTableHoldsExactlyTheTwoExports) {
  std::string command = "nm -D --defined-only '" + std::string(PROPMAP_MODULE_PATH) + "' 2>&1";
  FILE* pipe = popen(command.c_str(), "r");
  ASSERT_NE(pipe, nullptr);
  std::map<std::string, char> symbols;
  char line[512];
  while (std::fgets(line, sizeof line, pipe) != nullptr) {
    char address[64], type = 0, name[400];
    ASSERT_EQ(std::sscanf(line, "%63s %c %399s", address, &type, name), 3) << "unexpected nm line: " << line;
    std::string n = name;
    symbols[n.substr(0, n.find('@'))] = type;
  }
  ASSERT_EQ(pclose(pipe), 0);
  ASSERT_EQ(symbols.size(), 2u);
  EXPECT_EQ(symbols["DllMain"], 'T');
  EXPECT_TRUE(symbols["ixoModuleVersion"] == 'R' || symbols["ixoModuleVersion"] == 'D')
      << "ixoModuleVersion must be initialised data, got " << symbols["ixoModuleVersion"];
}

TEST_F(RegistrationTest, RegisteringTwiceRewritesTablesButFillsMethodsOnce) {
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
  EXPECT_EQ(second.internal_table, first.internal_table);
  EXPECT_EQ(second.method_list, first.method_list);
  EXPECT_EQ(second.properties, first.properties);
  EXPECT_EQ(second.internal, first.internal) << "internal table rewritten";
  ASSERT_EQ(second.property_records.size(), 13u);
  EXPECT_EQ(std::memcmp(second.property_records.data(), first.property_records.data(), 13 * 48), 0)
      << "property table rewritten";
  EXPECT_EQ(second.methods[4], 0xDEADu) << "method list filled only once";
  EXPECT_EQ(m->trace().size(), 0u) << "success is not traced";
}

// ---- Tracing without a trace service -------------------------------------------

class NoTraceServiceTest : public HostTest {};

TEST_F(NoTraceServiceTest, OperationsWorkAndNothingIsWritten) {
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

// ---- The placeholder object-services table --------------------------------------

class PlaceholderTableTest : public HostTest {};

// Construction installs the module's own table; its entries answer
// ErrNotImplemented but for a fixed set that answers 0.
TEST_F(PlaceholderTableTest, ConstructionInstallsTheModuleTable) {
  Store& s = NewStore();
  EXPECT_EQ(s.obj_table(), nullptr) << "memory starts zero-filled";
  ASSERT_EQ(Rc{s.Construct()}, Rc{kOk});
  void* const* placeholder = s.placeholder_table();
  EXPECT_EQ(s.obj_table(), placeholder);
  EXPECT_TRUE(placeholder != module()->host().obj_table() && InModule(*module(), placeholder));
  EXPECT_TRUE(s.registry_table() != nullptr && InModule(*module(), s.registry_table()));
  EXPECT_EQ(s.host_word(), 0u) << "the host's word is not the module's";
  const std::set<uint32_t> answering_zero = {1, 2, 3, 4, 5, 13, 14, 15, 27, 62, 63, 68, 80};
  ASSERT_EQ(kObjEntries, 82u);
  for (uint32_t e = 0; e < kObjEntries; ++e) {
    const tERROR want = answering_zero.count(e) != 0 ? 0 : Code(0x800000C2);
    EXPECT_EQ(Rc{reinterpret_cast<ObjEntryFn>(placeholder[e])(s.obj_self())}, Rc{want}) << "entry " << e;
  }
}

class DestructionTest : public HostTest, public ::testing::WithParamInterface<bool> {};

TEST_P(DestructionTest, RestoresTheHostTable) {
  const bool install = GetParam();
  Store& s = NewStore();
  ASSERT_EQ(Rc{s.Construct()}, Rc{kOk});
  if (install) s.InstallHostServices();
  EXPECT_EQ(s.obj_table(), install ? module()->host().obj_table() : s.placeholder_table());
  EXPECT_EQ(Rc{s.Destroy()}, Rc{kOk});
  EXPECT_EQ(s.obj_table(), module()->host().obj_table());
  EXPECT_EQ(s.host_word(), install ? reinterpret_cast<uintptr_t>(&s.heap()) : 0u);
  EXPECT_EQ(s.stage(), Store::Stage::kDestroyed);
  EXPECT_TRUE(s.heap().balanced());
}

INSTANTIATE_TEST_SUITE_P(HostServices, DestructionTest, ::testing::Bool(),
                         [](const auto& info) { return info.param ? "Installed" : "NeverInstalled"; });

}  // namespace
}  // namespace prhost::testing
