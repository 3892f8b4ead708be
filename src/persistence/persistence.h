// Loading a store's profile at initialisation and saving it (Flush).
//
// Both work on a constructed PropertiesMap whose host has installed its
// object services. Loading runs once, before the store serves anyone, and so
// takes no lock; saving takes the store's shared lock only while the document
// text is built, so readers run beside a whole save and writers wait only for
// the text.
#pragma once

#include <algorithm>
#include <atomic>
#include <cstddef>
#include <cstdint>

#include "module/result_codes.h"
#include "registry/properties_map.h"

namespace propmap {

// Builds the tree from the profile file (or, with an empty name, the host
// stream), applies the pending root point, creates the lock whatever the
// result and records the outcome in `loaded`. Returns 0 or a positive code
// on success, the failure otherwise; every read buffer goes back to the heap.
[[nodiscard]] tERROR LoadProfile(PropertiesMap* store);

// Writes the tree back when it changed: to the host stream, or through a
// temporary file, fsync, the backups of the store's backup mode and a final
// move. Fails only when the text cannot be built or written or the final
// move fails; the dirty flag then stays set and the old profile is intact.
[[nodiscard]] tERROR SaveProfile(PropertiesMap* store);

// Reads a profile text into the store's tree, without a leading UTF-8
// byte-order mark; a success clears the dirty flag.
[[nodiscard]] tERROR ImportProfile(PropertiesMap* store, const char* text, size_t length);

// Keeps the size of a document just read or written as the next save's
// first reservation.
inline void RememberDocumentSize(PropertiesMap* store, size_t size) {
  std::atomic_ref<uint32_t>(store->document_size)
      .store(static_cast<uint32_t>(std::min<size_t>(size, UINT32_MAX)), std::memory_order_relaxed);
}

}  // namespace propmap
