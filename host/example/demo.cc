// Loads the propmap module through the reference host and shows it at work:
// what it registered, then one store in which keys are built by path, typed
// values are set and read back in other types, the tree is printed, parts of
// it are deleted and the store is cleaned, with the trace lines it wrote and
// the heap balance at the end.
//
// Usage: propmap_demo [profile-path]
// Without a path the store is named after a profile in a fresh temporary
// directory, which is removed at the end.
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <exception>
#include <filesystem>
#include <string>

#include "module_loader.h"
#include "result_names.h"
#include "store.h"

namespace {

using prhost::Client;
using prhost::hKey;
using prhost::Registry;
using prhost::Result;

// At most `limit` lines, then how many were left out.
void PrintLines(const std::vector<prhost::TraceLine>& lines, size_t limit = SIZE_MAX) {
  if (lines.empty()) std::printf("  (none)\n");
  for (size_t i = 0; i < lines.size() && i < limit; ++i) {
    std::printf("  %s\n", prhost::TraceSink::Describe(lines[i]).c_str());
  }
  if (lines.size() > limit) std::printf("  ... and %zu more\n", lines.size() - limit);
}

const char* TypeLabel(prhost::TypeId type) {
  switch (type) {
    case prhost::tWORD: return "word";
    case prhost::tDWORD: return "dword";
    case prhost::tQWORD: return "qword";
    case prhost::tBOOL: return "bool";
    case prhost::tSTRING: return "string";
    case prhost::tWSTRING: return "wstring";
    case prhost::tLONG: return "long";
    case prhost::tDOUBLE: return "double";
    case prhost::tBINARY: return "binary";
    default: return "?";
  }
}

// Fails loudly: the demonstration is also a smoke test of the module.
void Check(prhost::tERROR err, const char* what) {
  if (prhost::Failed(err)) throw std::runtime_error(std::string(what) + ": " + prhost::FormatResult(err));
}

hKey Open(const Client& client, const std::string& path, bool create = true) {
  Result<hKey> key = client.OpenKey(path, create);
  Check(key.code, ("OpenKey " + path).c_str());
  return key.value;
}

// The tree below `key`, two spaces per level: keys by name, values as
// "name (type) = text".
void PrintTree(const Registry& registry, hKey key, int depth) {
  Client client(registry);
  const std::string indent(2 * depth, ' ');
  Result<std::vector<std::string>> values = client.ValueNames(key);
  Check(values.code, "ValueNames");
  for (uint32_t i = 0; i < values.value.size(); ++i) {
    prhost::TypeId type = 0;
    Result<std::string> text = client.ValueTextByIndex(key, i, &type);
    std::printf("%s%s (%s) = %s\n", indent.c_str(), values.value[i].c_str(), TypeLabel(type),
                text.ok() ? text.value.c_str() : prhost::FormatResult(text.code).c_str());
  }
  uint32_t count = 0;
  Check(registry.GetKeyCount(&count, key), "GetKeyCount");
  for (uint32_t i = 0; i < count; ++i) {
    hKey child = 0;
    Check(registry.OpenKeyByIndex(&child, key, i), "OpenKeyByIndex");
    Result<std::string> name = client.KeyName(child);
    std::printf("%s%s\n", indent.c_str(), name.value.c_str());
    PrintTree(registry, child, depth + 1);
  }
}

void Exercise(prhost::Store& store) {
  const Registry registry = store.registry();
  const Client client = store.client();

  std::printf("\n== building keys by path (both separators name the same keys)\n");
  hKey window = Open(client, "Software/Example/Window");
  hKey recent = Open(client, "Software\\Example\\Recent");
  hKey colors = Open(client, "software/EXAMPLE/Colors");
  Check(client.SetDword(window, "Width", 1024), "SetDword");
  Check(client.SetDword(window, "Height", 768), "SetDword");
  const uint32_t maximised = 1;
  Check(registry.SetValue(window, "Maximised", prhost::tBOOL, &maximised, sizeof maximised, 1), "SetValue bool");
  const double zoom = 1.25;
  Check(registry.SetValue(window, "Zoom", prhost::tDOUBLE, &zoom, sizeof zoom, 1), "SetValue double");
  Check(client.SetString(recent, "File1", "/home/user/notes.txt"), "SetString");
  Check(client.SetString(recent, "File2", "/home/user/plan.odt"), "SetString");
  const uint8_t accent[] = {0x1E, 0x90, 0xFF};
  Check(registry.SetValue(colors, "Accent", prhost::tBINARY, accent, sizeof accent, 1), "SetValue binary");
  const wchar_t title[] = L"Gr\u00fc\u00dfe \u2603";
  Check(registry.SetValue(colors, "Title", prhost::tWSTRING, title, sizeof title - sizeof(wchar_t), 1),
        "SetValue wstring");

  std::printf("\n== the tree\n");
  PrintTree(registry, 0, 1);

  std::printf("\n== reading back in other types\n");
  Result<std::string> width_text = client.GetString(window, "Width");
  std::printf("Width as string: %s \"%s\"\n", prhost::FormatResult(width_text.code).c_str(),
              width_text.value.c_str());
  uint64_t height = 0;
  uint32_t type = prhost::tQWORD;
  uint32_t size = 0;
  prhost::tERROR err = registry.GetValue(&size, window, "Height", &type, &height, sizeof height);
  std::printf("Height as qword: %s %llu\n", prhost::FormatResult(err).c_str(),
              static_cast<unsigned long long>(height));
  Check(client.SetString(window, "Width", "1280"), "SetString into a dword");
  Result<uint32_t> width = client.GetDword(window, "Width");
  std::printf("Width after writing the text \"1280\": %s %u\n", prhost::FormatResult(width.code).c_str(),
              width.value);
  err = client.SetString(window, "Height", "tall");
  std::printf("Height given the text \"tall\": %s\n", prhost::FormatResult(err).c_str());

  std::printf("\n== deleting\n");
  std::printf("DeleteValue Window\\Zoom: %s\n", prhost::FormatResult(registry.DeleteValue(window, "Zoom")).c_str());
  std::printf("DeleteKey Software\\Example\\Recent: %s\n",
              prhost::FormatResult(registry.DeleteKey(0, "Software\\Example\\Recent")).c_str());
  std::printf("DeleteKey Software/Nowhere: %s\n",
              prhost::FormatResult(registry.DeleteKey(0, "Software/Nowhere")).c_str());
  PrintTree(registry, 0, 1);

  std::printf("\n== cleaning\n");
  Check(registry.Clean(), "Clean");
  uint32_t keys = 0;
  Check(registry.GetKeyCount(&keys, 0), "GetKeyCount");
  std::printf("keys below the root after Clean: %u\n", keys);
}

int Run(int argc, char** argv) {
  std::string temp_dir;
  std::string profile;
  if (argc > 1) {
    profile = argv[1];
  } else {
    std::string pattern = (std::filesystem::temp_directory_path() / "propmap-demo-XXXXXX").string();
    if (mkdtemp(pattern.data()) == nullptr) {
      std::perror("mkdtemp");
      return 1;
    }
    temp_dir = pattern;
    profile = temp_dir + "/profiles.xml";
  }

  std::printf("== loading %s\n", PROPMAP_MODULE_PATH);
  auto module = prhost::Module::Load();
  const prhost::VersionRecord& v = module->version();
  std::printf("version record (%zu bytes): format %u, version %08X:%08X, second version %08X:%08X\n",
              module->version_symbol_size(), v.format, v.version[0], v.version[1], v.second_version[0],
              v.second_version[1]);

  std::printf("\n== registration\n%s", prhost::DescribeRegistration(module->registration()).c_str());

  std::printf("\n== creating a store named %s\n", profile.c_str());
  {
    prhost::StoreConfig config;
    config.name = profile;
    config.locking = 1;
    auto store = prhost::Store::Open(module, config, "demo");
    std::printf("object at %p, %u bytes; InitDone: %s\n", store->object(), store->size(),
                prhost::FormatResult(store->init_result().value_or(0)).c_str());
    Exercise(*store);

    std::printf("\n== trace lines of the store (one per operation)\n");
    PrintLines(store->TraceLines(), 16);
    std::printf("\n== destroying the store\n");
    store.reset();
  }

  std::printf("\n== heap balance\n");
  bool balanced = true;
  for (const auto& heap : module->host().heaps()) {
    std::printf("  %s: %zu live blocks after %llu allocations (%zu of them one-byte empty names, kept on purpose)\n",
                heap->label().c_str(), heap->live_blocks(), static_cast<unsigned long long>(heap->allocations()),
                heap->live_blocks() - heap->leftover_blocks());
    balanced = balanced && heap->leftover_blocks() == 0;
  }
  for (const std::string& violation : module->host().violations()) {
    std::printf("contract violation: %s\n", violation.c_str());
  }

  if (!temp_dir.empty()) std::filesystem::remove_all(temp_dir);
  return balanced && module->host().violations().empty() ? 0 : 1;
}

}  // namespace

int main(int argc, char** argv) {
  try {
    return Run(argc, argv);
  } catch (const std::exception& e) {
    std::fprintf(stderr, "propmap_demo: %s\n", e.what());
    return 1;
  }
}
