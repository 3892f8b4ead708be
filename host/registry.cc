#include "registry.h"

namespace prhost {

tERROR Registry::OpenKey(hKey* key, hKey parent, const char* path, uint32_t create) const {
  return Call<hKey*, hKey, const char*, uint32_t>(kOpenKey, key, parent, path, create);
}

tERROR Registry::OpenKeyByIndex(hKey* key, hKey parent, uint32_t index) const {
  return Call<hKey*, hKey, uint32_t>(kOpenKeyByIndex, key, parent, index);
}

tERROR Registry::OpenNextKey(hKey* next, hKey key) const {
  return Call<hKey*, hKey>(kOpenNextKey, next, key);
}

tERROR Registry::CloseKey(hKey key) const { return Call<hKey>(kCloseKey, key); }

tERROR Registry::GetKeyName(uint32_t* size, hKey key, void* buffer, uint32_t buffer_size, uint32_t full_path) const {
  return Call<uint32_t*, hKey, void*, uint32_t, uint32_t>(kGetKeyName, size, key, buffer, buffer_size, full_path);
}

tERROR Registry::GetKeyNameByIndex(uint32_t* size, hKey parent, uint32_t index, void* buffer, uint32_t buffer_size,
                                   uint32_t full_path) const {
  return Call<uint32_t*, hKey, uint32_t, void*, uint32_t, uint32_t>(kGetKeyNameByIndex, size, parent, index, buffer,
                                                                    buffer_size, full_path);
}

tERROR Registry::GetValue(uint32_t* size, hKey key, const char* name, uint32_t* type, void* buffer,
                          uint32_t buffer_size) const {
  return Call<uint32_t*, hKey, const char*, uint32_t*, void*, uint32_t>(kGetValue, size, key, name, type, buffer,
                                                                        buffer_size);
}

tERROR Registry::GetValueByIndex(uint32_t* size, hKey key, uint32_t index, uint32_t* type, void* buffer,
                                 uint32_t buffer_size) const {
  return Call<uint32_t*, hKey, uint32_t, uint32_t*, void*, uint32_t>(kGetValueByIndex, size, key, index, type,
                                                                     buffer, buffer_size);
}

tERROR Registry::GetValueNameByIndex(uint32_t* size, hKey key, uint32_t index, void* buffer,
                                     uint32_t buffer_size) const {
  return Call<uint32_t*, hKey, uint32_t, void*, uint32_t>(kGetValueNameByIndex, size, key, index, buffer,
                                                          buffer_size);
}

tERROR Registry::SetValue(hKey key, const char* name, uint32_t type, const void* data, uint32_t size,
                          uint32_t create) const {
  return Call<hKey, const char*, uint32_t, const void*, uint32_t, uint32_t>(kSetValue, key, name, type, data, size,
                                                                            create);
}

tERROR Registry::SetValueByIndex(hKey key, uint32_t index, uint32_t type, const void* data, uint32_t size,
                                 uint32_t create) const {
  return Call<hKey, uint32_t, uint32_t, const void*, uint32_t, uint32_t>(kSetValueByIndex, key, index, type, data,
                                                                         size, create);
}

tERROR Registry::GetKeyCount(uint32_t* count, hKey key) const {
  return Call<uint32_t*, hKey>(kGetKeyCount, count, key);
}

tERROR Registry::GetValueCount(uint32_t* count, hKey key) const {
  return Call<uint32_t*, hKey>(kGetValueCount, count, key);
}

tERROR Registry::DeleteKey(hKey parent, const char* path) const {
  return Call<hKey, const char*>(kDeleteKey, parent, path);
}

tERROR Registry::DeleteKeyByInd(hKey parent, uint32_t index) const {
  return Call<hKey, uint32_t>(kDeleteKeyByInd, parent, index);
}

tERROR Registry::DeleteValue(hKey key, const char* name) const {
  return Call<hKey, const char*>(kDeleteValue, key, name);
}

tERROR Registry::DeleteValueByInd(hKey key, uint32_t index) const {
  return Call<hKey, uint32_t>(kDeleteValueByInd, key, index);
}

tERROR Registry::Clean() const { return Call<>(kClean); }

tERROR Registry::CopyKey(hKey source, void* destination_store, hKey destination_key) const {
  return Call<hKey, void*, hKey>(kCopyKey, source, destination_store, destination_key);
}

tERROR Registry::CopyKeyByName(const char* path, void* destination_store) const {
  return Call<const char*, void*>(kCopyKeyByName, path, destination_store);
}

tERROR Registry::SetRootKey(hKey key) const { return Call<hKey>(kSetRootKey, key); }

tERROR Registry::SetRootStr(const char* path) const { return Call<const char*>(kSetRootStr, path); }

tERROR Registry::Flush(uint32_t flag) const { return Call<uint32_t>(kFlush, flag); }

}  // namespace prhost
