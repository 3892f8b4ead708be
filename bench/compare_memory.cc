// Memory after loading the 10 MB profile, one side per process:
//   compare_memory propmap|pugixml|ptree [size index]
// prints one JSON object: entries (keys + values), heap bytes retained
// (malloc's in-use bytes, counting the allocator's overhead), host-heap bytes
// the module asked for (propmap only) and the growth of the resident set.
#include <malloc.h>

#include <boost/property_tree/ptree.hpp>
#include <boost/property_tree/xml_parser.hpp>
#include <pugixml.hpp>

#include <cstdio>
#include <cstdlib>
#include <memory>
#include <sstream>
#include <string>
#include <string_view>

#include "compare_inputs.h"
#include "module_loader.h"
#include "store.h"

namespace {

size_t ResidentBytes() {
  long pages = 0, resident = 0;
  std::FILE* f = std::fopen("/proc/self/statm", "r");
  if (f == nullptr || std::fscanf(f, "%ld %ld", &pages, &resident) != 2) std::abort();
  std::fclose(f);
  return static_cast<size_t>(resident) * static_cast<size_t>(sysconf(_SC_PAGESIZE));
}

size_t HeapInUse() { return mallinfo2().uordblks; }

size_t Entries(const std::string& doc) {
  size_t count = 0;
  for (size_t pos = doc.find("\n"); pos != std::string::npos; pos = doc.find('\n', pos + 1)) {
    const size_t lt = doc.find('<', pos);
    if (lt != std::string::npos && doc.compare(lt, 2, "</") != 0 && doc.compare(lt, 15, "</propertiesmap") != 0) {
      ++count;
    }
  }
  return count - 1;  // the root's end line
}

}  // namespace

int main(int argc, char** argv) {
  using namespace propmap::bench;
  const std::string side = argc > 1 ? argv[1] : "propmap";
  const int64_t size_index = argc > 2 ? std::atoi(argv[2]) : 2;
  const std::string& doc = Document(size_index);
  const std::string path = side == "propmap" || side == "propmap-host" ? WriteInput("memory.xml", doc) : "";
  std::shared_ptr<prhost::Module> module;
  if (side == "propmap" || side == "propmap-host") {
    prhost::LoadOptions options;
    options.host.plain_heap = side == "propmap";
    options.host.trace_level_limit = 400;
    module = prhost::Module::Load(options);
  }
  const size_t rss_before = ResidentBytes();
  const size_t heap_before = HeapInUse();
  size_t host_bytes = 0;
  std::unique_ptr<prhost::Store> store;
  pugi::xml_document pugi_doc;
  boost::property_tree::ptree tree;
  if (side == "propmap" || side == "propmap-host") {
    store = prhost::Store::Open(module, {.name = path});
    if (store->init_result().value_or(-1) != 0) return 1;
    host_bytes = store->heap().live_bytes();
  } else if (side == "pugixml") {
    if (!pugi_doc.load_buffer(doc.data(), doc.size())) return 1;
  } else if (side == "ptree") {
    std::istringstream in(doc);
    boost::property_tree::read_xml(in, tree);
  } else {
    std::fprintf(stderr, "usage: compare_memory propmap|propmap-host|pugixml|ptree [0|1|2]\n");
    return 2;
  }
  const size_t entries = Entries(doc);
  std::printf("{\"side\": \"%s\", \"entries\": %zu, \"heap_bytes\": %zu, \"host_heap_bytes\": %zu, "
              "\"rss_growth\": %zu}\n",
              side.c_str(), entries, HeapInUse() - heap_before, host_bytes, ResidentBytes() - rss_before);
  return 0;
}
