// Numbered generations of a store's content, and the check that a profile
// file holds exactly one of them: a dword "gen" and a block whose size and
// bytes both follow from it, so a mixture of two generations cannot pass.
#pragma once

#include <string>
#include <vector>

#include "unit_store.h"

namespace propmap::testing {

inline std::vector<uint8_t> GenerationBlock(uint32_t gen) {
  return std::vector<uint8_t>(1 + gen * 977 % 20000, static_cast<uint8_t>(gen * 31 + 7));
}

inline tERROR SetGeneration(UnitStore& s, uint32_t gen) {
  tERROR err = s.Set("gen", tDWORD, &gen, sizeof gen);
  const std::vector<uint8_t> block = GenerationBlock(gen);
  if (Succeeded(err)) err = s.Set("block", tBINARY, block.data(), static_cast<uint32_t>(block.size()));
  return err;
}

// The generation in the profile at `path`; 0 when it does not load with
// result 0 or its block does not match its number.
inline uint32_t GenerationIn(const std::string& path) {
  UnitStore s({.name = path});
  if (s.init_result() != ResultOk) return 0;
  uint32_t gen = 0;
  uint32_t size = 0;
  if (Failed(s.Get("gen", tDWORD, &gen, sizeof gen, &size))) return 0;
  const std::vector<uint8_t> expected = GenerationBlock(gen);
  std::vector<uint8_t> block(expected.size() + 1);
  if (Failed(s.Get("block", tBINARY, block.data(), static_cast<uint32_t>(block.size()), &size))) return 0;
  block.resize(size);
  return block == expected ? gen : 0;
}

}  // namespace propmap::testing
