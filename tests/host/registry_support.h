// Helpers for the host tests of the registry operations: a tree built from
// paths, tables of calls (Row) that pin code and outputs of each call in one
// line, native byte images of values and reads and writes with an ample
// buffer. The tree dump is the model's (store_model.h).
//
// Thread-safety: for the test's main thread.
#pragma once

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <functional>
#include <initializer_list>
#include <span>
#include <sstream>
#include <string>
#include <string_view>
#include <tuple>
#include <utility>
#include <vector>

#include <gtest/gtest.h>

#include "host_fixture.h"
#include "store_model.h"

namespace prhost::testing {

using model::Dump;

inline void MakeKeys(const Store& store, std::initializer_list<const char*> paths) {
  for (const char* path : paths) {
    if (Failed(store.registry().OpenKey(nullptr, 0, path, 1))) ADD_FAILURE() << "creating " << path;
  }
}

// The handle of an existing path below the current root (all ones if absent).
inline hKey KeyAt(const Store& store, const char* path) {
  hKey key = kInvalidKey;
  (void)store.registry().OpenKey(&key, 0, path, 0);
  return key;
}

// Full path of a key below the current root, "none" for all ones, or the error code.
inline std::string FullName(const Store& store, hKey key) {
  if (key == kInvalidKey) return "none";
  Result<std::string> name = store.client().KeyName(key, true);
  return name.ok() ? name.value : "<" + FormatResult(name.code) + ">";
}

// What one call wrote through its outputs; untouched fields keep their fill.
struct Out {
  static constexpr uint32_t kFill = 0x5A5A;
  hKey key = kFill;
  uint32_t size = kFill;
  TypeId type = 0;  // an in/out type argument, not rendered
  char text[24];
  Out() { std::memset(text, '#', sizeof text); }
};

// A written handle as its full name ("none" for all ones, "(root)" for the
// root's real handle, "0" for 0), then "#size", then
// the text bytes up to the first untouched one, a NUL shown as "\0".
inline std::string Render(const Store& s, const Out& o) {
  const std::string name = FullName(s, o.key);
  std::string out = o.key == Out::kFill ? "" : o.key == 0 ? "0" : name.empty() ? "(root)" : name;
  if (o.size != Out::kFill) out += "#" + std::to_string(o.size);
  if (o.text[0] != '#') out += " ";
  for (size_t i = 0; i < sizeof o.text && o.text[i] != '#'; ++i) out += o.text[i] ? std::string(1, o.text[i]) : "\\0";
  return out;
}

// One call of a table. Unless `root` is null (root left as it is, `h` 0), `h`
// is the handle of `at` (0 when null) and the root is then set to `root`.
// With `root_after`, the root point is checked afterwards.
struct Row {
  const char* root;
  const char* at;
  std::function<tERROR(Store& s, hKey h, Out& o)> call;
  tERROR code;
  std::string out;
  const char* root_after = nullptr;
};
#define OP(expr) \
  [](Store & s, hKey h, Out & o) -> tERROR { \
    [[maybe_unused]] const Registry r = s.registry(); \
    return expr; \
  }

inline void CheckRows(Store& s, std::span<const Row> rows) {
  for (const Row& row : rows) {
    SCOPED_TRACE("row " + std::to_string(&row - rows.data()) + (row.root ? " at root " + std::string(row.root) : ""));
    hKey h = 0;
    if (row.root != nullptr) {  // handles are looked up from the top root
      ASSERT_EQ(Rc{s.registry().SetRootStr("")}, Rc{kOk});
      h = row.at == nullptr ? 0 : KeyAt(s, row.at);
      ASSERT_EQ(Rc{s.registry().SetRootStr(row.root)}, Rc{kOk});
    }
    Out o;
    EXPECT_EQ(Rc{row.call(s, h, o)}, Rc{row.code});
    EXPECT_EQ(Render(s, o), row.out);
    if (row.root_after != nullptr) {
      EXPECT_EQ(s.GetRootPoint().value, row.root_after);
    }
  }
}

// Type identifiers beyond the ones abi.h names.
inline constexpr TypeId tVOID = 1, tCHAR = 7, tWCHAR = 8, tINT = 13, tFUNC_PTR = 31;
inline constexpr tERROR kErrNotApplicable = Code(0x8000004B);

using Bytes = std::vector<uint8_t>;

template <typename T>
Bytes BytesOf(const T& value) {
  Bytes out(sizeof value);
  std::memcpy(out.data(), &value, sizeof value);
  return out;
}
// A narrow text with its NUL, as tSTRING exchanges it.
inline Bytes Text(std::string_view s) {
  Bytes out(s.begin(), s.end());
  out.push_back(0);
  return out;
}
// A wide text of 32-bit units with the zero terminator, as tWSTRING exchanges it.
inline Bytes Wide(std::u32string_view s) {
  Bytes out((s.size() + 1) * 4, 0);
  std::memcpy(out.data(), s.data(), s.size() * 4);
  return out;
}

// What a read produced: the code, the type left in the in/out argument, and
// the bytes the size output announced. `index` < 0 reads by name.
struct ReadResult {
  tERROR code = kOk;
  TypeId type = 0;
  uint32_t size = 0;
  Bytes bytes;
};
inline ReadResult ReadAs(const Registry& r, hKey key, const char* name, TypeId type, uint32_t buffer_size = 256,
                         int index = -1) {
  ReadResult out;
  out.type = type;
  Bytes buffer(buffer_size + 1, 0xEE);
  out.code = index < 0 ? r.GetValue(&out.size, key, name, &out.type, buffer.data(), buffer_size)
                       : r.GetValueByIndex(&out.size, key, index, &out.type, buffer.data(), buffer_size);
  if (Succeeded(out.code)) out.bytes.assign(buffer.begin(), buffer.begin() + std::min(out.size, buffer_size));
  return out;
}
// The stored type and native bytes of a value (read with type 0).
inline ReadResult Stored(const Registry& r, hKey key, const char* name) { return ReadAs(r, key, name, 0); }

inline tERROR Put(const Registry& r, hKey key, const char* name, TypeId type, const Bytes& data,
                  uint32_t create = 1) {
  return r.SetValue(key, name, type, data.data(), static_cast<uint32_t>(data.size()), create);
}

// Creates or overwrites each (name, type, bytes) below `key`, expecting success.
using Seeds = std::vector<std::tuple<const char*, TypeId, Bytes>>;
inline void Seed(const Registry& r, const Seeds& values, hKey key = 0) {
  for (const auto& [name, type, data] : values) EXPECT_EQ(Rc{Put(r, key, name, type, data)}, Rc{kOk}) << name;
}

}  // namespace prhost::testing
