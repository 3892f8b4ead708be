// A small typed client over a store's iRegistry: open keys by path, read and
// write dword and string values, list sub-keys and values. Sizes and buffers
// are handled here with the two-call protocol (ask the size, then fetch), so
// callers deal in std::string.
//
// Thread-safety: a Client holds only its Registry view; concurrent use is as
// safe as the store's own locking.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "abi.h"
#include "registry.h"
#include "result.h"

namespace prhost {

class Client {
 public:
  explicit Client(Registry registry) : registry_(registry) {}

  const Registry& registry() const { return registry_; }

  // OpenKey(parent, path, create); value is the handle (all ones on failure).
  Result<hKey> OpenKey(const std::string& path, bool create = false, hKey parent = 0) const;

  // Strings travel with their NUL (size = length + 1).
  tERROR SetDword(hKey key, const std::string& name, uint32_t value, bool create = true) const;
  Result<uint32_t> GetDword(hKey key, const std::string& name) const;
  tERROR SetString(hKey key, const std::string& name, const std::string& value, bool create = true) const;
  Result<std::string> GetString(hKey key, const std::string& name) const;

  // The index-th value of a key as text (read as tSTRING, so the store
  // converts it); its stored type goes to *stored_type when given.
  Result<std::string> ValueTextByIndex(hKey key, uint32_t index, TypeId* stored_type = nullptr) const;

  Result<std::string> KeyName(hKey key, bool full_path = false) const;
  // Names of the sub-keys / values of a key, in the store's order.
  Result<std::vector<std::string>> SubkeyNames(hKey key = 0) const;
  Result<std::vector<std::string>> ValueNames(hKey key = 0) const;

 private:
  Registry registry_;
};

}  // namespace prhost
