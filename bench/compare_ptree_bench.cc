// Boost.PropertyTree's side of the peer comparison: read_xml of the same
// bytes, write_xml + write + fsync + rename, get_child + get<unsigned> for the
// same lookups, iteration over 10k children and the copy constructor.
//
// read_xml keeps the document's shape (elements named "key" with the name in
// an attribute), which get_child cannot search by name; the lookups run on the
// tree a PropertyTree user would keep instead, keyed by the names, converted
// once from the read tree.
#include <benchmark/benchmark.h>

#include <boost/property_tree/ptree.hpp>
#include <boost/property_tree/xml_parser.hpp>

#include <cstdlib>
#include <sstream>
#include <string>

#include "compare_inputs.h"

namespace propmap::bench {
namespace {

using boost::property_tree::ptree;

ptree Read(const std::string& bytes) {
  std::istringstream in(bytes);
  ptree tree;
  boost::property_tree::read_xml(in, tree);
  return tree;
}

const ptree& ReadTree(int64_t size_index) {
  static ptree trees[3];
  if (trees[size_index].empty()) trees[size_index] = Read(Document(size_index));
  return trees[size_index];
}

// Children named by their name attribute; values as the element's text.
ptree ByName(const ptree& element) {
  ptree out;
  for (const auto& [tag, child] : element) {
    if (tag == "<xmlattr>") continue;
    const std::string name = child.get<std::string>("<xmlattr>.name");
    if (tag == "key") {
      out.push_back({name, ByName(child)});
    } else {
      out.push_back({name, ptree(child.data())});
    }
  }
  return out;
}

const ptree& NamedTree(int64_t size_index) {
  static ptree trees[3];
  if (trees[size_index].empty()) trees[size_index] = ByName(ReadTree(size_index).get_child("propertiesmap"));
  return trees[size_index];
}

void BM_Load_ptree(benchmark::State& state) {
  const std::string& bytes = Document(state.range(0));
  for (auto _ : state) {
    auto* tree = new ptree(Read(bytes));
    state.PauseTiming();
    delete tree;
    SettleFreedBlocks();
    state.ResumeTiming();
  }
  state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * bytes.size()));
}
BENCHMARK(BM_Load_ptree)->Apply(SizeArgs)->Unit(benchmark::kMillisecond);

void BM_Save_ptree(benchmark::State& state) {
  const ptree& tree = ReadTree(state.range(0));
  const std::string path = ScratchDir() + "/ptree" + std::to_string(state.range(0)) + ".xml";
  const auto settings = boost::property_tree::xml_writer_make_settings<std::string>(' ', 4);
  for (auto _ : state) {
    std::ostringstream out;
    boost::property_tree::write_xml(out, tree, settings);
    const std::string bytes = std::move(out).str();
    WriteSyncRename(path, bytes.data(), bytes.size());
  }
  state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * Document(state.range(0)).size()));
}
BENCHMARK(BM_Save_ptree)->Apply(SizeArgs)->Unit(benchmark::kMillisecond);

void BM_Lookup_ptree(benchmark::State& state) {
  const std::vector<Lookup>& lookups = Lookups(state.range(0));
  const ptree& tree = NamedTree(state.range(0));
  size_t i = 0;
  for (auto _ : state) {
    const Lookup& l = lookups[i++ % lookups.size()];
    const ptree& key = tree.get_child(ptree::path_type(l.path, '/'));
    if (key.get<unsigned>(ptree::path_type(l.value, '/')) != l.expected) std::abort();
  }
  state.SetItemsProcessed(static_cast<int64_t>(state.iterations()));
}
BENCHMARK(BM_Lookup_ptree)->Apply(SizeArgs);

void BM_Enumerate_ptree(benchmark::State& state) {
  const ptree tree = ByName(Read(WideDocument()).get_child("propertiesmap"));
  const ptree& wide = tree.get_child("Wide");
  for (auto _ : state) {
    uint32_t count = 0;
    for (const auto& child : wide) {
      benchmark::DoNotOptimize(&child);
      ++count;
    }
    if (count != kWideKeys) std::abort();
  }
  state.SetItemsProcessed(static_cast<int64_t>(state.iterations() * kWideKeys));
}
BENCHMARK(BM_Enumerate_ptree)->Unit(benchmark::kMicrosecond);

void BM_Copy_ptree(benchmark::State& state) {
  const ptree& tree = NamedTree(state.range(0));
  for (auto _ : state) {
    auto* copy = new ptree(tree);
    state.PauseTiming();
    delete copy;
    SettleFreedBlocks();
    state.ResumeTiming();
  }
}
BENCHMARK(BM_Copy_ptree)->Apply(SizeArgs)->Unit(benchmark::kMillisecond);

}  // namespace
}  // namespace propmap::bench
