// Copying subtrees into another store, of the same module instance or of an
// independent one, compared by enumerating both trees.
#include <cstring>
#include <functional>

#include "host_fixture.h"
#include "key_test_support.h"

namespace prhost::testing {
namespace {

class CopyKeyTest : public HostTest {};

// A source tree with values of several types, an empty key, names in mixed
// case and an empty string.
void Populate(const Store& s) {
  const Registry r = s.registry();
  MakeKeys(s, {"Network/Proxy", "Network/MiXed/Leaf", "Data", "Empty"});
  const Client c = s.client();
  EXPECT_EQ(Rc{c.SetString(0, "Version", "2.0")}, Rc{kOk});
  const hKey network = KeyAt(s, "network");
  EXPECT_EQ(Rc{c.SetString(network, "Host", "a<b")}, Rc{kOk});
  EXPECT_EQ(Rc{c.SetDword(network, "Port", 8080)}, Rc{kOk});
  EXPECT_EQ(Rc{c.SetString(KeyAt(s, "network/mixed/leaf"), "Blank", "")}, Rc{kOk});
  const hKey data = KeyAt(s, "data");
  const unsigned char blob[] = {0x00, 0x01, 0xFE, 0xFF};
  EXPECT_EQ(Rc{r.SetValue(data, "Blob", tBINARY, blob, sizeof blob, 1)}, Rc{kOk});
  const uint64_t big = 0x0123456789ABCDEFull;
  EXPECT_EQ(Rc{r.SetValue(data, "Big", tQWORD, &big, sizeof big, 1)}, Rc{kOk});
}

TEST_F(CopyKeyTest, WholeTreeArrivesIntact) {
  for (uint32_t locking : {0u, 1u}) {
    SCOPED_TRACE(locking);
    Store& source = OpenStore({.locking = locking});
    Store& destination = OpenStore({.locking = locking});
    Populate(source);
    const std::vector<std::string> before = Dump(source.registry());
    ASSERT_GT(before.size(), 10u);

    auto [code, lines] = Traced(source, [&] { return source.registry().CopyKey(0, destination.object(), 0); });
    EXPECT_EQ(Rc{code}, Rc{kOk});
    EXPECT_EQ(Dump(destination.registry()), before);
    EXPECT_EQ(Dump(source.registry()), before) << "the source is only read";
    ASSERT_FALSE(lines.empty());
    EXPECT_EQ(lines.back(), OperationLines(source, {"prmap\tCopyKey : " + FormatResult(kOk)})[0]);
  }
}

// What lands where: a subtree goes into the destination key (its own name is
// not copied), merging with what is there already.
TEST_F(CopyKeyTest, SubtreeMergesIntoTheDestinationKey) {
  Store& source = OpenStore();
  Store& destination = OpenStore();
  Populate(source);
  MakeKeys(destination, {"Into/Proxy/Old", "Into/Keep"});
  EXPECT_EQ(Rc{destination.client().SetDword(KeyAt(destination, "into"), "port", 1)}, Rc{kOk});

  ASSERT_EQ(Rc{source.registry().CopyKey(KeyAt(source, "network"), destination.object(), KeyAt(destination, "into"))},
            Rc{kOk});
  // "port" existed in other case and keeps its name; the value is the copied one.
  EXPECT_EQ(Dump(destination.registry(), KeyAt(destination, "into")),
            (std::vector<std::string>{
                "|port|4|901f0000",
                "|Host|9|613c6200",
                "Proxy",
                "Proxy\\Old",
                "Keep",
                "MiXed",
                "MiXed\\Leaf",
                "MiXed\\Leaf|Blank|9|",  // an empty string reads as 0 bytes
            }));
}

// The source path is taken below the source's current root, the copy goes to
// the destination's current root.
TEST_F(CopyKeyTest, CopyKeyByNameStartsAtBothRoots) {
  struct {
    const char* name;
    const char* source_root;
    const char* path;
    const char* subtree;  // the part of the source that must arrive
  } cases[] = {
      {"Path", "", "Network", "network"},
      {"NestedPathAnyCase", "", "NETWORK\\mixed", "network/mixed"},
      {"BelowTheSourceRoot", "network", "MiXed", "network/mixed"},
      {"NullPathIsTheRoot", "network", nullptr, "network"},
      {"EmptyPathIsTheRoot", "", "", ""},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    Store& source = OpenStore({.locking = 1});
    Store& destination = OpenStore({.locking = 1});
    Populate(source);
    MakeKeys(destination, {"Elsewhere", "Home"});
    ASSERT_EQ(Rc{source.registry().SetRootStr(c.source_root)}, Rc{kOk});
    ASSERT_EQ(Rc{destination.registry().SetRootStr("home")}, Rc{kOk});

    auto [code, lines] = Traced(source, [&] { return source.registry().CopyKeyByName(c.path, destination.object()); });
    EXPECT_EQ(Rc{code}, Rc{kOk});
    ASSERT_FALSE(lines.empty());
    EXPECT_EQ(lines.back(), OperationLines(source, {"prmap\tCopyKeyByName : " + FormatResult(kOk)})[0]);

    ASSERT_EQ(Rc{source.registry().SetRootStr("")}, Rc{kOk});
    EXPECT_EQ(Dump(destination.registry()), Dump(source.registry(), KeyAt(source, c.subtree)));
    ASSERT_EQ(Rc{destination.registry().SetRootStr("")}, Rc{kOk});
    EXPECT_EQ(destination.client().SubkeyNames().value, (std::vector<std::string>{"Elsewhere", "Home"}));
    EXPECT_EQ(Dump(destination.registry(), KeyAt(destination, "elsewhere")), std::vector<std::string>{});
  }
}

// The destination is driven only through its own table, so a store of an
// independent module instance works the same.
TEST_F(CopyKeyTest, IntoAnotherModuleInstance) {
  auto other = Load({.private_copy = true});
  for (bool by_name : {false, true}) {
    SCOPED_TRACE(by_name ? "CopyKeyByName" : "CopyKey");
    Store& source = OpenStore({.locking = 1});
    Store& destination = OpenStore({.locking = 1}, other);
    ASSERT_NE(destination.registry_table(), source.registry_table()) << "not an independent instance";
    Populate(source);
    const tERROR code = by_name ? source.registry().CopyKeyByName(nullptr, destination.object())
                                : source.registry().CopyKey(0, destination.object(), 0);
    EXPECT_EQ(Rc{code}, Rc{kOk});
    EXPECT_EQ(Dump(destination.registry()), Dump(source.registry()));
    EXPECT_FALSE(destination.TraceLines().empty()) << "the destination traced through its own module";
  }
}

// A chain far deeper than any call stack would like; the copy walks it
// without recursion.
TEST_F(CopyKeyTest, DeepChainIsCopied) {
  Store& source = OpenStore();
  Store& destination = OpenStore();
  std::string path = "k";
  for (int depth = 1; depth < 3000; ++depth) path += "/k";
  MakeKeys(source, {path.c_str()});
  EXPECT_EQ(Rc{source.client().SetDword(KeyAt(source, path.c_str()), "bottom", 1)}, Rc{kOk});
  ASSERT_EQ(Rc{source.registry().CopyKey(0, destination.object(), 0)}, Rc{kOk});
  EXPECT_EQ(Dump(destination.registry()), Dump(source.registry()));
}

// ---- Failures -------------------------------------------------------------------

struct FailureCase {
  const char* name;
  StoreConfig source;
  StoreConfig destination;
  std::function<tERROR(const Store& source, void* destination)> call;
  tERROR code;
  const char* operation;  // of the source's last line
};

const FailureCase kFailures[] = {
    {"MissingPath", {}, {}, [](const Store& s, void* d) { return s.registry().CopyKeyByName("Nowhere", d); },
     kErrNotFound, "CopyKeyByName"},
    {"ReadOnlyDestination", {}, {.read_only = 1},
     [](const Store& s, void* d) { return s.registry().CopyKey(0, d, 0); }, Code(0x800000C1), "CopyKey"},
    {"ReadOnlyDestinationByName", {}, {.read_only = 1},
     [](const Store& s, void* d) { return s.registry().CopyKeyByName("network", d); }, Code(0x800000C1),
     "CopyKeyByName"},
    {"DestinationWithoutTree", {}, {.init = false},
     [](const Store& s, void* d) { return s.registry().CopyKey(0, d, 0); }, kErrInvalidHandle, "CopyKey"},
    {"SourceWithoutTree", {.init = false}, {},
     [](const Store& s, void* d) { return s.registry().CopyKey(0, d, 0); }, kErrInvalidHandle, "CopyKey"},
    {"SourceWithoutTreeByName", {.init = false}, {},
     [](const Store& s, void* d) { return s.registry().CopyKeyByName("network", d); }, kErrInvalidHandle,
     "CopyKeyByName"},
    {"NoDestination", {}, {}, [](const Store& s, void*) { return s.registry().CopyKey(0, nullptr, 0); },
     kErrBadParameter, "CopyKey"},
    {"NoDestinationByName", {}, {},
     [](const Store& s, void*) { return s.registry().CopyKeyByName("network", nullptr); }, kErrBadParameter,
     "CopyKeyByName"},
};

TEST_F(CopyKeyTest, FailuresLeaveTheDestinationAlone) {
  for (const FailureCase& c : kFailures) {
    for (uint32_t locking : {0u, 1u}) {
      SCOPED_TRACE(std::string(c.name) + (locking ? " locking" : ""));
      StoreConfig source_config = c.source;
      StoreConfig destination_config = c.destination;
      source_config.locking = destination_config.locking = locking;
      Store& source = OpenStore(source_config);
      Store& destination = OpenStore(destination_config);
      if (c.source.init) Populate(source);
      const std::vector<std::string> before = Dump(destination.registry());

      auto [code, lines] = Traced(source, [&] { return c.call(source, destination.object()); });
      EXPECT_EQ(Rc{code}, Rc{c.code});
      ASSERT_FALSE(lines.empty());
      EXPECT_EQ(lines.back(),
                OperationLines(source, {"prmap\t" + std::string(c.operation) + " : " + FormatResult(c.code)})[0]);
      EXPECT_EQ(Dump(destination.registry()), before);
    }
  }
}

}  // namespace
}  // namespace prhost::testing
