// Loads the propmap module through the reference host and shows what it
// registered, then creates and destroys one store with its trace lines.
//
// Usage: propmap_demo [profile-path]
// Without a path the store is named after a profile in a fresh temporary
// directory, which is removed at the end.
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <filesystem>
#include <string>

#include "module_loader.h"
#include "result_names.h"
#include "store.h"

namespace {

void PrintLines(const std::vector<prhost::TraceLine>& lines) {
  if (lines.empty()) std::printf("  (none)\n");
  for (const prhost::TraceLine& line : lines) std::printf("  %s\n", prhost::TraceSink::Describe(line).c_str());
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
  std::printf("\n== module-level trace lines\n");
  PrintLines(module->trace().LinesFor(nullptr));

  std::printf("\n== creating a store named %s\n", profile.c_str());
  {
    prhost::StoreConfig config;
    config.name = profile;
    auto store = prhost::Store::Open(module, config, "demo");
    std::printf("object at %p, %u bytes; placeholder iObj table %p, host iObj table %p\n", store->object(),
                store->size(), static_cast<const void*>(store->placeholder_table()),
                static_cast<const void*>(store->obj_table()));
    std::printf("InitDone: %s\n", prhost::FormatResult(store->init_result().value_or(0)).c_str());
    prhost::Result<std::string> name = store->GetName();
    std::printf("getName: %s \"%s\"\n", prhost::FormatResult(name.code).c_str(), name.value.c_str());
    std::printf("\n== destroying the store\n");
    store.reset();
  }

  std::printf("\n== store trace lines\n");
  std::vector<prhost::TraceLine> store_lines;
  for (const prhost::TraceLine& line : module->trace().Lines()) {
    if (line.store != nullptr) store_lines.push_back(line);
  }
  PrintLines(store_lines);

  std::printf("\n== heap balance\n");
  bool balanced = true;
  for (const auto& heap : module->host().heaps()) {
    std::printf("  %s: %zu live blocks, %zu live bytes after %llu allocations\n", heap->label().c_str(),
                heap->live_blocks(), heap->live_bytes(), static_cast<unsigned long long>(heap->allocations()));
    balanced = balanced && heap->balanced();
  }
  for (const std::string& v : module->host().violations()) std::printf("contract violation: %s\n", v.c_str());

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
