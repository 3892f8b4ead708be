// Numbered generations of a store's content, and the check that a profile
// file holds whole ones: value "g<t>" (one per writing thread t) holds t and
// its generation, then a run whose length and byte follow from both, so a
// torn value or a mixture of two generations cannot pass.
#pragma once

#include <cstring>
#include <string>
#include <vector>

#include "unit_store.h"

namespace propmap::testing {

inline std::vector<uint8_t> GenerationBlock(uint32_t gen, uint32_t t) {
  std::vector<uint8_t> block(8 + (gen * 977 + t * 131) % 20000, static_cast<uint8_t>(gen * 31 + t));
  std::memcpy(block.data(), &t, 4);
  std::memcpy(block.data() + 4, &gen, 4);
  return block;
}

inline tERROR SetGeneration(UnitStore& s, uint32_t gen, uint32_t t = 0) {
  const std::vector<uint8_t> block = GenerationBlock(gen, t);
  return s.Set(("g" + std::to_string(t)).c_str(), tBINARY, block.data(), static_cast<uint32_t>(block.size()));
}

// The generations of g0 .. g<threads-1> in the profile at `path` (0 for a
// value not saved yet); empty when it does not load with result 0 or a value
// is torn.
inline std::vector<uint32_t> GenerationsIn(const std::string& path, uint32_t threads) {
  UnitStore s({.name = path});
  if (s.init_result() != ResultOk) return {};
  std::vector<uint32_t> gens;
  for (uint32_t t = 0; t < threads; ++t) {
    std::vector<uint8_t> block(8 + 20000);
    uint32_t size = 0, gen = 0;
    const tERROR got = s.Get(("g" + std::to_string(t)).c_str(), tBINARY, block.data(), block.size(), &size);
    if (got != ErrNotFound && (Failed(got) || size < 8)) return {};
    if (got != ErrNotFound) std::memcpy(&gen, block.data() + 4, 4);
    block.resize(size);
    if (got != ErrNotFound && block != GenerationBlock(gen, t)) return {};
    gens.push_back(gen);
  }
  return gens;
}

// The one generation of a single writer's profile; 0 when none is whole.
inline uint32_t GenerationIn(const std::string& path) {
  const std::vector<uint32_t> gens = GenerationsIn(path, 1);
  return gens.empty() ? 0 : gens[0];
}

}  // namespace propmap::testing
