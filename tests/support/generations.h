// The one generation scheme: value "g" holds its generation and then a run
// whose length and byte follow from it, so a torn value or a mixture of two
// saves cannot pass for a whole generation. Through the iRegistry view, so
// unit and host tests share it.
#pragma once

#include <cstring>
#include <vector>

#include "registry.h"

namespace prhost::testing {

inline std::vector<uint8_t> GenerationBlock(uint32_t gen) {
  std::vector<uint8_t> block(4 + (gen * 977) % 20000, static_cast<uint8_t>(gen * 31));
  std::memcpy(block.data(), &gen, 4);
  return block;
}

inline tERROR SetGeneration(const Registry& r, uint32_t gen) {
  const std::vector<uint8_t> block = GenerationBlock(gen);
  return r.SetValue(0, "g", tBINARY, block.data(), static_cast<uint32_t>(block.size()), 1);
}

// The generation the store holds: 0 for none, ~0u for a torn one.
inline uint32_t GenerationOf(const Registry& r) {
  std::vector<uint8_t> block(4 + 20000);
  uint32_t size = 0, gen = 0, type = tBINARY;
  if (r.GetValue(&size, 0, "g", &type, block.data(), static_cast<uint32_t>(block.size())) != kOk) return 0;
  if (size >= 4) std::memcpy(&gen, block.data(), 4);
  block.resize(size);
  return size >= 4 && block == GenerationBlock(gen) ? gen : ~0u;
}

}  // namespace prhost::testing
