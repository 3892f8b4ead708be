// Copying subtrees into another store, of the same module instance or of an
// independent one, compared by enumerating both trees.
#include "registry_support.h"

namespace prhost::testing {
namespace {

class CopyKeyTest : public HostTest {};

// A source tree with values of several types, an empty key, names in mixed
// case and an empty string.
void Populate(const Store& s) {
  MakeKeys(s, {"Network/Proxy", "Network/MiXed/Leaf", "Data", "Empty"});
  const Client c = s.client();
  const hKey network = KeyAt(s, "network"), data = KeyAt(s, "data");
  EXPECT_EQ(Rc{c.SetString(0, "Version", "2.0")}, Rc{kOk});
  EXPECT_EQ(Rc{c.SetString(network, "Host", "a<b")}, Rc{kOk});
  EXPECT_EQ(Rc{c.SetDword(network, "Port", 8080)}, Rc{kOk});
  EXPECT_EQ(Rc{c.SetString(KeyAt(s, "network/mixed/leaf"), "Blank", "")}, Rc{kOk});
  const unsigned char blob[] = {0x00, 0x01, 0xFE, 0xFF};
  EXPECT_EQ(Rc{s.registry().SetValue(data, "Blob", tBINARY, blob, sizeof blob, 1)}, Rc{kOk});
  // One value of every storable type, filling its native width (0 for the
  // variable-sized ones, which get text), so that a copy dropping or
  // narrowing any type shows.
  const struct {
    TypeId type;
    uint32_t width;
  } kEveryType[] = {{1, 0},   {2, 1},   {3, 2},   {4, 4},   {5, 8},   {6, 4},   {7, 1},  {8, 4},  {9, 0},
                    {10, 0},  {11, 4},  {12, 0},  {13, 4},  {14, 4},  {15, 1},  {17, 2}, {18, 8}, {19, 8},
                    {20, 4},  {21, 4},  {22, 4},  {23, 4},  {24, 4},  {25, 4},  {26, 4}, {27, 4}, {28, 4},
                    {29, 8},  {30, 8},  {31, 8},  {32, 8},  {48, 0},  {54, 4}};
  const hKey every = KeyAt(s, "data");
  const char pattern[] = "\x01\x02\x03\x04\x05\x06\x07\x08";
  const char32_t wide[] = U"wide";
  for (const auto& t : kEveryType) {
    const std::string name = "type" + std::to_string(t.type);
    const void* bytes = t.type == 10 ? static_cast<const void*>(wide) : pattern;
    const uint32_t size = t.width != 0 ? t.width : t.type == 10 ? sizeof wide : t.type == 1 ? 0 : 4;
    EXPECT_GE(s.registry().SetValue(every, name.c_str(), t.type, bytes, size, 1), 0) << name;
  }
}

// A subtree goes into the destination key (its own name is not copied),
// merging with what is there already.
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
            (std::vector<std::string>{"|port|4|901f0000", "|Host|9|613c6200", "Proxy", "Proxy\\Old", "Keep", "MiXed",
                                      "MiXed\\Leaf", "MiXed\\Leaf|Blank|9|"}));
}

// The source path is taken below the source's current root, the copy goes to
// the destination's current root.
TEST_F(CopyKeyTest, CopyKeyByNameStartsAtBothRoots) {
  struct {
    const char* source_root;
    const char* path;
    const char* subtree;  // the part of the source that must arrive
  } cases[] = {
      {"", "NETWORK\\mixed", "network/mixed"},
      {"network", "MiXed", "network/mixed"},
      {"network", nullptr, "network"},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.path ? c.path : "(null)");
    Store& source = OpenStore({.locking = 1});
    Store& destination = OpenStore({.locking = 1});
    Populate(source);
    MakeKeys(destination, {"Elsewhere", "Home"});
    ASSERT_EQ(Rc{source.registry().SetRootStr(c.source_root)}, Rc{kOk});
    ASSERT_EQ(Rc{destination.registry().SetRootStr("home")}, Rc{kOk});

    EXPECT_EQ(Rc{source.registry().CopyKeyByName(c.path, destination.object())}, Rc{kOk});
    ASSERT_EQ(Rc{source.registry().SetRootStr("")}, Rc{kOk});
    EXPECT_EQ(Dump(destination.registry()), Dump(source.registry(), KeyAt(source, c.subtree)));
    ASSERT_EQ(Rc{destination.registry().SetRootStr("")}, Rc{kOk});
    EXPECT_EQ(destination.client().SubkeyNames().value, (std::vector<std::string>{"Elsewhere", "Home"}));
    EXPECT_EQ(Dump(destination.registry(), KeyAt(destination, "elsewhere")), std::vector<std::string>{});
  }
}

// CopyKey of the whole tree or CopyKeyByName: the last line of the source
// names the operation; on success the copied part arrives intact and the
// source is only read, on failure the destination stays as it was. The
// destination is driven only through its own table, so a store of an
// independent module instance works the same; a chain far deeper than any
// call stack would like is copied without recursion.
struct Case {
  StoreConfig source;
  StoreConfig destination;
  bool by_name;
  const char* path;  // of CopyKeyByName
  bool no_destination;
  bool independent;
  tERROR code;
};

const Case kCases[] = {
    {{}, {}, false, nullptr, false, false, kOk},
    {{}, {}, false, nullptr, false, true, kOk},
    {{}, {}, true, nullptr, false, false, kOk},
    {{}, {}, true, nullptr, false, true, kOk},
    {{}, {}, true, "network", false, false, kOk},
    {{}, {}, true, "Nowhere", false, false, kErrNotFound},
    {{}, {.read_only = 1}, false, nullptr, false, false, Code(0x800000C1)},
    {{}, {.read_only = 1}, true, "network", false, false, Code(0x800000C1)},
    {{}, {.init = false}, false, nullptr, false, false, kErrInvalidHandle},
    {{.init = false}, {}, true, "network", false, false, kErrInvalidHandle},
    {{}, {}, false, nullptr, true, false, kErrBadParameter},
    {{}, {}, true, "network", true, false, kErrBadParameter},
};

TEST_F(CopyKeyTest, OutcomesAndLines) {
  std::string chain = "Chain";
  for (int depth = 1; depth < 3000; ++depth) chain += "/k";
  const std::shared_ptr<Module> independent = Load({.private_copy = true});
  for (const Case& c : kCases) {
    for (uint32_t locking : {0u, 1u}) {
      SCOPED_TRACE(std::to_string(&c - kCases) + (locking ? " locking" : ""));
      StoreConfig source_config = c.source, destination_config = c.destination;
      source_config.locking = destination_config.locking = locking;
      Store& source = OpenStore(source_config);
      Store& destination = OpenStore(destination_config, c.independent ? independent : nullptr);
      ASSERT_EQ(destination.registry_table() != source.registry_table(), c.independent);
      if (c.source.init) {
        Populate(source);
        MakeKeys(source, {chain.c_str()});
      }
      const std::vector<std::string> before = Dump(destination.registry()), source_before = Dump(source.registry());
      void* const to = c.no_destination ? nullptr : destination.object();
      auto [code, lines] = Traced(source, [&] {
        return c.by_name ? source.registry().CopyKeyByName(c.path, to) : source.registry().CopyKey(0, to, 0);
      });
      EXPECT_EQ(Rc{code}, Rc{c.code});
      ASSERT_FALSE(lines.empty());
      EXPECT_EQ(lines.back(), Line(source, std::string("prmap\t") + (c.by_name ? "CopyKeyByName : " : "CopyKey : ") +
                                               FormatResult(c.code)));
      EXPECT_EQ(Dump(destination.registry()),
                code != kOk ? before : Dump(source.registry(), c.path != nullptr ? KeyAt(source, c.path) : 0));
      EXPECT_EQ(Dump(source.registry()), source_before) << "the source is only read";
    }
  }
}

}  // namespace
}  // namespace prhost::testing
