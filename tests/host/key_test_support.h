// Helpers for the key, root and copy tests: the trace lines one call wrote,
// a tree built from paths, and a whole subtree read back through the
// enumeration operations so two stores can be compared.
//
// Thread-safety: for the test's main thread.
#pragma once

#include <cstdio>
#include <initializer_list>
#include <string>
#include <utility>
#include <vector>

#include <gtest/gtest.h>

#include "result_names.h"
#include "store.h"

namespace prhost::testing {

inline constexpr uint32_t kOperationLevel = 600;

// Runs `call` and hands back its code together with the lines it made the
// module write for `store`.
template <typename Call>
std::pair<tERROR, std::vector<TraceLine>> Traced(const Store& store, Call&& call) {
  const size_t before = store.TraceLines().size();
  const tERROR code = call();
  std::vector<TraceLine> lines = store.TraceLines();
  lines.erase(lines.begin(), lines.begin() + static_cast<std::ptrdiff_t>(before));
  return {code, std::move(lines)};
}

// The lines expected for `store`, all at the operation level.
inline std::vector<TraceLine> OperationLines(const Store& store, std::initializer_list<std::string> texts) {
  std::vector<TraceLine> lines;
  for (const std::string& text : texts) lines.push_back(TraceLine{kOperationLevel, store.object(), text, true});
  return lines;
}

// Handles appear in lines by their low 32 bits, as "%x" or as "%d".
inline std::string HexLow(hKey key) {
  char text[16];
  std::snprintf(text, sizeof text, "%x", static_cast<uint32_t>(key));
  return text;
}
inline std::string SignedLow(hKey key) { return std::to_string(static_cast<int32_t>(static_cast<uint32_t>(key))); }

// Creates every path below the current root.
inline void MakeKeys(const Store& store, std::initializer_list<const char*> paths) {
  for (const char* path : paths) {
    hKey key = kInvalidKey;
    tERROR code = store.registry().OpenKey(&key, 0, path, 1);
    if (Failed(code)) ADD_FAILURE() << "creating " << path << ": " << FormatResult(code);
  }
}

// The handle of an existing path below the current root (all ones if absent).
inline hKey KeyAt(const Store& store, const char* path) {
  hKey key = kInvalidKey;
  (void)store.registry().OpenKey(&key, 0, path, 0);
  return key;
}

// Full path of a key below the current root, "" when it cannot be named.
inline std::string FullName(const Store& store, hKey key) {
  Result<std::string> name = store.client().KeyName(key, true);
  return name.ok() ? name.value : "<" + FormatResult(name.code) + ">";
}

// The subtree below `top` in enumeration order, one entry per key
// ("a\b") and per value ("a\b|Name|type|hex bytes"), names in their stored
// case. Walks with an explicit stack so deep chains are fine.
inline std::vector<std::string> Dump(const Registry& r, hKey top = 0) {
  std::vector<std::string> out;
  std::vector<std::pair<hKey, std::string>> pending{{top, ""}};
  while (!pending.empty()) {
    auto [key, path] = pending.back();
    pending.pop_back();
    uint32_t values = 0;
    uint32_t keys = 0;
    if (Failed(r.GetValueCount(&values, key)) || Failed(r.GetKeyCount(&keys, key))) {
      out.push_back(path + " <unreadable>");
      continue;
    }
    if (!path.empty()) out.push_back(path);
    for (uint32_t i = 0; i < values; ++i) {
      uint32_t size = 0;
      char name[256] = {};
      tERROR code = r.GetValueNameByIndex(&size, key, i, name, sizeof name);
      uint32_t type = 0;
      uint32_t data_size = 0;
      if (Succeeded(code)) code = r.GetValueByIndex(&data_size, key, i, &type, nullptr, 0);
      std::string bytes(data_size, '\0');
      if (Succeeded(code) && data_size != 0) {
        code = r.GetValueByIndex(&data_size, key, i, &type, bytes.data(), data_size);
      }
      std::string hex;
      for (unsigned char c : bytes) {
        char two[4];
        std::snprintf(two, sizeof two, "%02x", c);
        hex += two;
      }
      out.push_back(path + "|" + name + "|" + std::to_string(type) + "|" + hex +
                    (Failed(code) ? " <" + FormatResult(code) + ">" : ""));
    }
    // Pushed in reverse so that sub-keys come out in their order.
    for (uint32_t i = keys; i-- > 0;) {
      hKey child = kInvalidKey;
      uint32_t size = 0;
      char name[256] = {};
      if (Failed(r.OpenKeyByIndex(&child, key, i)) ||
          Failed(r.GetKeyNameByIndex(&size, key, i, name, sizeof name, 0))) {
        out.push_back(path + " <child " + std::to_string(i) + " unreadable>");
        continue;
      }
      pending.emplace_back(child, path.empty() ? std::string(name) : path + "\\" + name);
    }
  }
  return out;
}

}  // namespace prhost::testing
