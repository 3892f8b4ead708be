// Construction, initialisation and destruction of a store.
#include <cstring>
#include <exception>
#include <new>

#include "module/trace.h"
#include "persistence/persistence.h"
#include "registry/properties_map.h"
#include "registry/store_lock.h"

namespace propmap {
namespace {

void InstallModuleTables(PropertiesMap* store) {
  store->registry.table = RegistryTable();
  store->obj.table = PlaceholderObjTable();
}

tERROR Construct(PropertiesMap* store) {
  InstallModuleTables(store);
  ResetTree(store->tree());
  new (&store->config.name) ixo::string_t();
  store->pending_root = nullptr;
  std::memset(&store->lock, 0, sizeof(store->lock));
  store->lock_created = 0;
  store->keep_old_profile = 0;
  store->loaded = 0;
  store->changes = 0;
  store->saved_changes = 0;
  store->removals = 0;
  if (Failed(CreateSaveGuard(store))) return ErrUnexpected;
  return ResultOk;
}

tERROR Destroy(PropertiesMap* store) noexcept {
  InstallModuleTables(store);
  if (HostObject* host = ModuleHost(); host != nullptr) store->obj.table = host->obj_table;
  DestroyStoreLock(store);
  DestroySaveGuard(store);
  HeapFree(&store->obj, store->pending_root);
  store->pending_root = nullptr;
  using ixo::string_t;
  store->config.name.~string_t();
  DestroyTree(store->tree());
  ResetTree(store->tree());
  return ResultOk;
}

}  // namespace

tERROR ObjectNew(void* object, uint32_t construct) {
  PropertiesMap* store = PropertiesMap::From(object);
  if (construct == 0) return Destroy(store);
  try {
    return Construct(store);
  } catch (const std::exception& e) {
    Trace(object, kTraceError, "krn\tException in PropertiesMap::ObjectNew: %s", e.what());
  } catch (...) {
    Trace(object, kTraceError, "krn\tException in PropertiesMap::ObjectNew");
  }
  return ErrUnexpected;
}

// Loading builds the tree, applies the pending root point and sets up the
// lock whatever the result.
tERROR InitDone(void* object) { return LoadProfile(PropertiesMap::From(object)); }

tERROR PreClose(void* object) {
  PropertiesMap* store = PropertiesMap::From(object);
  if (store->config.flush_on_close != 0) {
    (void)store->registry.table->Flush(&store->registry, 1);
  }
  return ResultOk;
}

}  // namespace propmap
