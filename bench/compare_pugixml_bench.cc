// pugixml's side of the peer comparison: DOM parse of the same bytes, save +
// write + fsync + rename, a walk by name attribute for the same lookups, the
// sibling walk of 10k keys and the copy of a whole document.
#include <benchmark/benchmark.h>

#include <pugixml.hpp>

#include <cstdlib>
#include <cstring>
#include <string>

#include "compare_inputs.h"

namespace propmap::bench {
namespace {

void Parse(pugi::xml_document* doc, const std::string& bytes) {
  if (!doc->load_buffer(bytes.data(), bytes.size())) std::abort();
}

const pugi::xml_document& Parsed(int64_t size_index) {
  static pugi::xml_document docs[3];
  if (!docs[size_index].first_child()) Parse(&docs[size_index], Document(size_index));
  return docs[size_index];
}

void BM_Load_pugixml(benchmark::State& state) {
  const std::string& bytes = Document(state.range(0));
  for (auto _ : state) {
    auto* doc = new pugi::xml_document;
    Parse(doc, bytes);
    state.PauseTiming();
    delete doc;
    SettleFreedBlocks();
    state.ResumeTiming();
  }
  state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * bytes.size()));
}
BENCHMARK(BM_Load_pugixml)->Apply(SizeArgs)->Unit(benchmark::kMillisecond);

struct StringWriter : pugi::xml_writer {
  void write(const void* data, size_t size) override { out.append(static_cast<const char*>(data), size); }
  std::string out;
};

void BM_Save_pugixml(benchmark::State& state) {
  const pugi::xml_document& doc = Parsed(state.range(0));
  const std::string path = ScratchDir() + "/pugixml" + std::to_string(state.range(0)) + ".xml";
  for (auto _ : state) {
    StringWriter writer;
    doc.save(writer, "    ", pugi::format_default | pugi::format_no_declaration);
    WriteSyncRename(path, writer.out.data(), writer.out.size());
  }
  state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * Document(state.range(0)).size()));
}
BENCHMARK(BM_Save_pugixml)->Apply(SizeArgs)->Unit(benchmark::kMillisecond);

void BM_Lookup_pugixml(benchmark::State& state) {
  const std::vector<Lookup>& lookups = Lookups(state.range(0));
  const pugi::xml_node root = Parsed(state.range(0)).child("propertiesmap");
  size_t i = 0;
  char component[128];
  for (auto _ : state) {
    const Lookup& l = lookups[i++ % lookups.size()];
    pugi::xml_node node = root;
    for (const char* p = l.path.c_str(); node;) {
      const char* end = std::strchr(p, '/');
      const size_t length = end != nullptr ? static_cast<size_t>(end - p) : std::strlen(p);
      std::memcpy(component, p, length);
      component[length] = '\0';
      node = node.find_child_by_attribute("key", "name", component);
      if (end == nullptr) break;
      p = end + 1;
    }
    const unsigned value = node.find_child_by_attribute("tDWORD", "name", l.value.c_str()).text().as_uint();
    if (value != l.expected) std::abort();
  }
  state.SetItemsProcessed(static_cast<int64_t>(state.iterations()));
}
BENCHMARK(BM_Lookup_pugixml)->Apply(SizeArgs);

void BM_Enumerate_pugixml(benchmark::State& state) {
  pugi::xml_document doc;
  Parse(&doc, WideDocument());
  const pugi::xml_node wide = doc.child("propertiesmap").child("key");
  for (auto _ : state) {
    uint32_t count = 0;
    for (pugi::xml_node child = wide.first_child(); child; child = child.next_sibling()) {
      benchmark::DoNotOptimize(child);
      ++count;
    }
    if (count != kWideKeys) std::abort();
  }
  state.SetItemsProcessed(static_cast<int64_t>(state.iterations() * kWideKeys));
}
BENCHMARK(BM_Enumerate_pugixml)->Unit(benchmark::kMicrosecond);

void BM_Copy_pugixml(benchmark::State& state) {
  const pugi::xml_document& doc = Parsed(state.range(0));
  for (auto _ : state) {
    auto* copy = new pugi::xml_document;
    copy->reset(doc);
    state.PauseTiming();
    delete copy;
    SettleFreedBlocks();
    state.ResumeTiming();
  }
}
BENCHMARK(BM_Copy_pugixml)->Apply(SizeArgs)->Unit(benchmark::kMillisecond);

}  // namespace
}  // namespace propmap::bench
