#include "client.h"

#include <algorithm>
#include <functional>

namespace prhost {
namespace {

// Runs a text-out call twice: once for the size, then with a buffer of it.
// `call(buffer, buffer_size, &size)` wraps the operation.
Result<std::string> FetchText(const std::function<tERROR(void*, uint32_t, uint32_t*)>& call) {
  Result<std::string> out;
  uint32_t size = 0;
  out.code = call(nullptr, 0, &size);
  if (Failed(out.code) || size == 0) return out;
  std::string buffer(size, '\0');
  out.code = call(buffer.data(), size, &size);
  if (Failed(out.code)) return out;
  buffer.resize(std::min<size_t>(size, buffer.size()));
  // The text ends at its NUL; anything after it is not part of the text.
  out.value = buffer.substr(0, buffer.find('\0'));
  return out;
}

}  // namespace

Result<hKey> Client::OpenKey(const std::string& path, bool create, hKey parent) const {
  Result<hKey> out;
  out.value = kInvalidKey;
  out.code = registry_.OpenKey(&out.value, parent, path.c_str(), create ? 1 : 0);
  return out;
}

tERROR Client::SetDword(hKey key, const std::string& name, uint32_t value, bool create) const {
  return registry_.SetValue(key, name.c_str(), tDWORD, &value, sizeof value, create ? 1 : 0);
}

Result<uint32_t> Client::GetDword(hKey key, const std::string& name) const {
  Result<uint32_t> out;
  uint32_t type = tDWORD;
  uint32_t size = 0;
  out.code = registry_.GetValue(&size, key, name.c_str(), &type, &out.value, sizeof out.value);
  return out;
}

tERROR Client::SetString(hKey key, const std::string& name, const std::string& value, bool create) const {
  return registry_.SetValue(key, name.c_str(), tSTRING, value.c_str(), static_cast<uint32_t>(value.size() + 1),
                            create ? 1 : 0);
}

Result<std::string> Client::GetString(hKey key, const std::string& name) const {
  return FetchText([&](void* buffer, uint32_t buffer_size, uint32_t* size) {
    uint32_t type = tSTRING;
    return registry_.GetValue(size, key, name.c_str(), &type, buffer, buffer_size);
  });
}

Result<std::string> Client::ValueTextByIndex(hKey key, uint32_t index, TypeId* stored_type) const {
  if (stored_type != nullptr) {
    // Type 0 asks for the stored type; a zero-sized buffer only sizes the value.
    uint32_t type = 0;
    uint32_t size = 0;
    tERROR err = registry_.GetValueByIndex(&size, key, index, &type, nullptr, 0);
    if (Failed(err) && err != kErrBufferTooSmall) return {err, {}};
    *stored_type = type;
  }
  return FetchText([&](void* buffer, uint32_t buffer_size, uint32_t* size) {
    uint32_t type = tSTRING;
    return registry_.GetValueByIndex(size, key, index, &type, buffer, buffer_size);
  });
}

Result<std::string> Client::KeyName(hKey key, bool full_path) const {
  return FetchText([&](void* buffer, uint32_t buffer_size, uint32_t* size) {
    return registry_.GetKeyName(size, key, buffer, buffer_size, full_path ? 1 : 0);
  });
}

Result<std::vector<std::string>> Client::SubkeyNames(hKey key) const {
  Result<std::vector<std::string>> out;
  uint32_t count = 0;
  out.code = registry_.GetKeyCount(&count, key);
  for (uint32_t i = 0; i < count && Succeeded(out.code); ++i) {
    Result<std::string> name = FetchText([&](void* buffer, uint32_t buffer_size, uint32_t* size) {
      return registry_.GetKeyNameByIndex(size, key, i, buffer, buffer_size, 0);
    });
    out.code = name.code;
    if (name.ok()) out.value.push_back(std::move(name.value));
  }
  return out;
}

Result<std::vector<std::string>> Client::ValueNames(hKey key) const {
  Result<std::vector<std::string>> out;
  uint32_t count = 0;
  out.code = registry_.GetValueCount(&count, key);
  for (uint32_t i = 0; i < count && Succeeded(out.code); ++i) {
    Result<std::string> name = FetchText([&](void* buffer, uint32_t buffer_size, uint32_t* size) {
      return registry_.GetValueNameByIndex(size, key, i, buffer, buffer_size);
    });
    out.code = name.code;
    if (name.ok()) out.value.push_back(std::move(name.value));
  }
  return out;
}

}  // namespace prhost
