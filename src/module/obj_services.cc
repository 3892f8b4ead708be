#include "module/obj_services.h"

namespace propmap {

bool HeapAvailable(const iObj* host) {
  return host != nullptr && host->table != nullptr &&
         host->table[kObjAlloc] != PlaceholderObjTable()[kObjAlloc];
}

tERROR HeapAlloc(iObj* host, void** out, uint32_t size) {
  if (host == nullptr || host->table == nullptr) return ErrNotImplemented;
  auto alloc = reinterpret_cast<ObjAllocFn>(host->table[kObjAlloc]);
  void* block = nullptr;
  tERROR err = alloc(host, &block, size);
  if (Failed(err)) return err;
  if (block == nullptr) {
    // The host said yes but gave nothing: hand the null back and refuse.
    (void)reinterpret_cast<ObjFreeFn>(host->table[kObjFree])(host, nullptr);
    return ErrNoMemory;
  }
  *out = block;
  return err;
}

tERROR HeapRealloc(iObj* host, void** inout, void* old_block, uint32_t new_size) {
  if (host == nullptr || host->table == nullptr) return ErrNotImplemented;
  auto realloc_fn = reinterpret_cast<ObjReallocFn>(host->table[kObjRealloc]);
  return realloc_fn(host, inout, old_block, new_size);
}

void HeapFree(iObj* host, void* block) {
  if (host == nullptr || host->table == nullptr || block == nullptr) return;
  auto free_fn = reinterpret_cast<ObjFreeFn>(host->table[kObjFree]);
  (void)free_fn(host, block);
}

}  // namespace propmap
