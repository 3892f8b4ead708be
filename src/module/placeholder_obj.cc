// The module's own object-services table. ObjectNew installs it so that a
// store is well-formed before the host puts its real table in place; every
// entry answers a fixed code and touches none of its arguments.
#include <array>

#include "module/obj_services.h"

namespace propmap {
namespace {

template <tERROR kCode>
tERROR Placeholder(void* /*self*/, ...) {
  return kCode;
}

// The allocation services get their exact signatures; they refuse like the rest.
tERROR PlaceholderAlloc(void*, void**, uint32_t) { return ErrNotImplemented; }
tERROR PlaceholderRealloc(void*, void**, void*, uint32_t) { return ErrNotImplemented; }
tERROR PlaceholderFree(void*, void*) { return ErrNotImplemented; }

// Entries that answer success; all others answer ErrNotImplemented.
constexpr bool AnswersOk(uint32_t entry) {
  return (entry >= 1 && entry <= 5) || (entry >= 13 && entry <= 15) || entry == 27 ||
         entry == 62 || entry == 63 || entry == 68 || entry == 80;
}

std::array<void*, kObjTableEntries> BuildTable() {
  std::array<void*, kObjTableEntries> table{};
  for (uint32_t i = 0; i < kObjTableEntries; ++i) {
    table[i] = AnswersOk(i) ? reinterpret_cast<void*>(&Placeholder<ResultOk>)
                            : reinterpret_cast<void*>(&Placeholder<ErrNotImplemented>);
  }
  table[kObjAlloc] = reinterpret_cast<void*>(&PlaceholderAlloc);
  table[kObjRealloc] = reinterpret_cast<void*>(&PlaceholderRealloc);
  table[kObjFree] = reinterpret_cast<void*>(&PlaceholderFree);
  return table;
}

const std::array<void*, kObjTableEntries> kPlaceholderTable = BuildTable();

}  // namespace

void* const* PlaceholderObjTable() { return kPlaceholderTable.data(); }

}  // namespace propmap
