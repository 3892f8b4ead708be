// Construction, initialisation and destruction of a store.
#include <cstring>
#include <exception>
#include <new>

#include "module/trace.h"
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
  store->dirty = 0;
  store->loaded = 0;
  return ResultOk;
}

tERROR Destroy(PropertiesMap* store) noexcept {
  InstallModuleTables(store);
  if (HostObject* host = ModuleHost(); host != nullptr) store->obj.table = host->obj_table;
  DestroyStoreLock(store);
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

// Until profiles are loaded, initialisation makes an empty tree, applies a
// root point given beforehand and creates the lock; loading the profile will
// take its place between the tree and the root point.
tERROR InitDone(void* object) {
  PropertiesMap* store = PropertiesMap::From(object);
  tERROR err = InitTree(store->tree(), &store->obj);
  if (Succeeded(err) && store->pending_root != nullptr) {
    // A root point that does not resolve is the result; its text stays
    // pending (destruction frees it).
    err = SetCurrentKeyByPath(store->tree(), store->pending_root);
    if (Succeeded(err)) {
      HeapFree(&store->obj, store->pending_root);
      store->pending_root = nullptr;
    }
  }
  // The lock is set up whatever the result; if it cannot be, the store stays
  // without locking (lock_created clear).
  (void)CreateStoreLock(store);
  store->loaded = Failed(err) ? 0 : 1;
  return err;
}

tERROR PreClose(void* object) {
  PropertiesMap* store = PropertiesMap::From(object);
  if (store->config.flush_on_close != 0) {
    (void)store->registry.table->Flush(&store->registry, 1);
  }
  return ResultOk;
}

}  // namespace propmap
