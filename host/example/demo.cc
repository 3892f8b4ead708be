// Loads the propmap module through the reference host and shows the whole
// store at work on a copy of a real profile: what the module registered, the
// profile loaded into a store, values read in other types and changed, the
// store flushed with backups, the new file's head, the backups on disk, the
// lines the store traced and the heap balance at the end.
//
// Usage: propmap_demo [profile]
// Works on a copy of the profile (by default the shipped sample) in a fresh
// temporary directory, which is removed at the end.
#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <exception>
#include <filesystem>
#include <fstream>
#include <sstream>
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
    case 13: return "int";
    case 19: return "longlong";
    case 30: return "datetime";
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
void PrintTree(const Registry& registry, hKey key, int depth, int max_depth = 64) {
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
    if (depth >= max_depth) {
      uint32_t keys = 0, values = 0;
      Check(registry.GetKeyCount(&keys, child), "GetKeyCount");
      Check(registry.GetValueCount(&values, child), "GetValueCount");
      std::printf("%s%s/ ... %u values, %u sub-keys\n", indent.c_str(), name.value.c_str(), values, keys);
      continue;
    }
    std::printf("%s%s/\n", indent.c_str(), name.value.c_str());
    PrintTree(registry, child, depth + 1, max_depth);
  }
}

// The first `count` lines of a file, CR LF shown as it is written.
void PrintHead(const std::string& path, int count) {
  std::ifstream in(path, std::ios::binary);
  std::string line;
  for (int i = 0; i < count && std::getline(in, line); ++i) {
    if (!line.empty() && line.back() == '\r') line.back() = '~';
    std::printf("  %s\n", line.c_str());
  }
  std::printf("  ('~' marks the CR of each CR LF line end)\n");
}

void ListDirectory(const std::string& dir) {
  std::vector<std::filesystem::directory_entry> entries(std::filesystem::directory_iterator(dir), {});
  std::sort(entries.begin(), entries.end());
  for (const auto& entry : entries) {
    std::printf("  %-24s %8ju bytes\n", entry.path().filename().c_str(), static_cast<uintmax_t>(entry.file_size()));
  }
}

void Exercise(prhost::Store& store, const std::string& dir) {
  const Registry registry = store.registry();
  const Client client = store.client();

  std::printf("\n== the loaded tree, two levels deep\n");
  PrintTree(registry, 0, 1, 2);

  std::printf("\n== reading values in other types\n");
  hKey window = Open(client, "Window", false);
  Result<std::string> width_text = client.GetString(window, "Width");
  std::printf("Window\\Width as string: %s \"%s\"\n", prhost::FormatResult(width_text.code).c_str(),
              width_text.value.c_str());
  uint64_t width = 0;
  uint32_t type = prhost::tQWORD, size = 0;
  prhost::tERROR err = registry.GetValue(&size, window, "Width", &type, &width, sizeof width);
  std::printf("Window\\Width as qword: %s %llu\n", prhost::FormatResult(err).c_str(),
              static_cast<unsigned long long>(width));
  Result<std::string> user = client.GetString(Open(client, "Users/User4", false), "Name");
  std::printf("Users\\User4\\Name: \"%s\"\n", user.value.c_str());

  std::printf("\n== changing values\n");
  Check(client.SetString(window, "Width", "1920"), "SetString into a dword");
  Check(client.SetDword(window, "Height", 1200), "SetDword");
  err = client.SetString(window, "Height", "tall");
  std::printf("Window\\Height given the text \"tall\": %s (unchanged)\n", prhost::FormatResult(err).c_str());
  hKey sync = Open(client, "Workspace\\Sync");
  const wchar_t greeting[] = L"Gr\u00fc\u00dfe \u2603";
  Check(registry.SetValue(sync, "Greeting", prhost::tWSTRING, greeting, sizeof greeting - sizeof(wchar_t), 1),
        "SetValue wstring");
  Check(client.SetString(sync, "Server", "sync.example.org:443"), "SetString");
  std::printf("DeleteKey RecentFiles\\Item00: %s\n",
              prhost::FormatResult(registry.DeleteKey(0, "RecentFiles\\Item00")).c_str());
  PrintTree(registry, sync, 1);

  std::printf("\n== Flush (backup mode 2: a first backup, then a rolling one)\n");
  Check(registry.Flush(0), "Flush");
  std::printf("Flush again without changes: %s\n", prhost::FormatResult(registry.Flush(0)).c_str());
  std::printf("\n== head of the new profile\n");
  PrintHead(dir + "/profiles.xml", 12);
  std::printf("\n== files beside the profile\n");
  ListDirectory(dir);
}

int Run(int argc, char** argv) {
  const std::string source = argc > 1 ? argv[1] : PROPMAP_SAMPLE_PROFILE;
  std::string pattern = (std::filesystem::temp_directory_path() / "propmap-demo-XXXXXX").string();
  if (mkdtemp(pattern.data()) == nullptr) {
    std::perror("mkdtemp");
    return 1;
  }
  const std::string temp_dir = pattern;
  const std::string profile = temp_dir + "/profiles.xml";
  std::filesystem::copy_file(source, profile);

  std::printf("== loading %s\n", PROPMAP_MODULE_PATH);
  auto module = prhost::Module::Load();
  const prhost::VersionRecord& v = module->version();
  std::printf("version record (%zu bytes): format %u, version %08X:%08X, second version %08X:%08X\n",
              module->version_symbol_size(), v.format, v.version[0], v.version[1], v.second_version[0],
              v.second_version[1]);

  std::printf("\n== registration\n%s", prhost::DescribeRegistration(module->registration()).c_str());

  std::printf("\n== a store on a copy of %s\n", source.c_str());
  {
    prhost::StoreConfig config;
    config.name = profile;
    config.locking = 1;
    config.backup_mode = 2;
    auto store = prhost::Store::Open(module, config, "demo");
    Check(store->init_result().value_or(0), "loading the profile");
    std::printf("object at %p, %u bytes; InitDone (the load): %s\n", store->object(), store->size(),
                prhost::FormatResult(store->init_result().value_or(0)).c_str());
    Exercise(*store, temp_dir);

    std::vector<prhost::TraceLine> operations, saving;
    for (const prhost::TraceLine& line : store->TraceLines()) {
      (line.level < 600 ? saving : operations).push_back(line);
    }
    std::printf("\n== trace lines of the store: one per operation at level 600, the last few\n");
    operations.erase(operations.begin(), operations.end() - std::min<size_t>(operations.size(), 6));
    PrintLines(operations);
    std::printf("\n== the lines of the saves, at levels 300 to 500\n");
    PrintLines(saving);
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

  std::filesystem::remove_all(temp_dir);
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
