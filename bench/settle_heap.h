// Shared by every benchmark that frees a large tree between timed runs.
#pragma once

#include <cstdlib>

namespace propmap::bench {

// glibc keeps freed small blocks unmerged until the next large request, which
// then merges them all. After a tree of a million blocks is freed outside the
// timed region, that merge would land in the next timed run; this request
// settles it where the freeing happened. Every side calls it after freeing.
inline void SettleFreedBlocks() {
  void* volatile block = std::malloc(4096);  // volatile: the pair must not be elided
  std::free(block);
}

}  // namespace propmap::bench
