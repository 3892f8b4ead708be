// Helpers for the value, conversion and deletion tests: native byte images of
// values, reads and writes with an ample buffer, the trace lines written
// since a mark, and a listing of a subtree for before/after comparisons.
//
// Thread-safety: for the test's main thread only.
#pragma once

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <string>
#include <string_view>
#include <tuple>
#include <utility>
#include <vector>

#include "host_fixture.h"
#include "key_test_support.h"

namespace prhost::testing {

// Type identifiers beyond the ones abi.h names.
inline constexpr TypeId tVOID = 1, tCHAR = 7, tWCHAR = 8, tINT = 13, tFUNC_PTR = 31;
inline constexpr tERROR kErrReadOnly = Code(0x800000C1);
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

// How the set operations print the data address: its low 32 bits in "%x".
inline std::string AddressText(const void* data) {
  char text[16];
  std::snprintf(text, sizeof text, "%x", static_cast<uint32_t>(reinterpret_cast<uintptr_t>(data)));
  return text;
}

// Trace lines of one store written after the mark was taken.
struct TraceMark {
  const Store& store;
  const size_t start = store.TraceLines().size();
  std::vector<TraceLine> Lines() const {
    std::vector<TraceLine> all = store.TraceLines();
    return {all.begin() + static_cast<std::ptrdiff_t>(start), all.end()};
  }
  std::vector<std::string> Texts() const {
    std::vector<std::string> texts;
    for (const TraceLine& line : Lines()) texts.push_back(line.text);
    return texts;
  }
};

// Dump (key_test_support.h) with each value cut to "path|name" unless `with_data`.
inline std::vector<std::string> Listing(const Registry& r, hKey key = 0, bool with_data = false) {
  std::vector<std::string> out = Dump(r, key);
  for (std::string& e : out) {
    if (size_t bar = e.find('|'); bar != std::string::npos && !with_data) e.resize(e.find('|', bar + 1));
  }
  return out;
}

}  // namespace prhost::testing
