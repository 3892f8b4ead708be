// Helpers for the value, conversion and deletion tests: native byte images of
// values, reads and writes with an ample buffer, the trace lines written
// since a mark, and a text dump of a subtree for before/after comparisons.
//
// Thread-safety: for the test's main thread only.
#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <string>
#include <string_view>
#include <vector>

#include "host_fixture.h"

namespace prhost::testing {

// Type identifiers beyond the ones abi.h names.
inline constexpr TypeId tVOID = 1;
inline constexpr TypeId tBYTE = 2;
inline constexpr TypeId tCHAR = 7;
inline constexpr TypeId tWCHAR = 8;
inline constexpr TypeId tINT = 13;
inline constexpr TypeId tSBYTE = 15;
inline constexpr TypeId tSHORT = 17;
inline constexpr TypeId tDATETIME = 30;
inline constexpr TypeId tFUNC_PTR = 31;
inline constexpr TypeId tPTR = 12;

inline constexpr tERROR kValueUnchanged = 0x47;
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
  std::u32string terminated(s);
  terminated.push_back(0);
  Bytes out(terminated.size() * 4);
  std::memcpy(out.data(), terminated.data(), out.size());
  return out;
}

// What a read produced: the code, the type left in the in/out argument, and
// the bytes the size output announced (as many as the buffer held).
struct ReadResult {
  tERROR code = kOk;
  TypeId type = 0;
  uint32_t size = 0;
  Bytes bytes;
};

inline constexpr uint32_t kAmpleBuffer = 256;

inline ReadResult ReadAs(const Registry& r, hKey key, const char* name, TypeId type,
                         uint32_t buffer_size = kAmpleBuffer) {
  ReadResult out;
  out.type = type;
  Bytes buffer(buffer_size == 0 ? 1 : buffer_size, 0xEE);
  out.code = r.GetValue(&out.size, key, name, &out.type, buffer.data(), buffer_size);
  if (Succeeded(out.code)) out.bytes.assign(buffer.begin(), buffer.begin() + std::min(out.size, buffer_size));
  return out;
}

inline ReadResult ReadByIndexAs(const Registry& r, hKey key, uint32_t index, TypeId type,
                                uint32_t buffer_size = kAmpleBuffer) {
  ReadResult out;
  out.type = type;
  Bytes buffer(buffer_size == 0 ? 1 : buffer_size, 0xEE);
  out.code = r.GetValueByIndex(&out.size, key, index, &out.type, buffer.data(), buffer_size);
  if (Succeeded(out.code)) out.bytes.assign(buffer.begin(), buffer.begin() + std::min(out.size, buffer_size));
  return out;
}

inline tERROR Put(const Registry& r, hKey key, const char* name, TypeId type, const Bytes& data,
                  uint32_t create = 1) {
  return r.SetValue(key, name, type, data.data(), static_cast<uint32_t>(data.size()), create);
}

// The stored type and native bytes of a value (read with type 0).
inline ReadResult Stored(const Registry& r, hKey key, const char* name) { return ReadAs(r, key, name, 0); }

// How the set operations print the data address: its low 32 bits in "%x".
inline std::string AddressText(const void* data) {
  char text[16];
  std::snprintf(text, sizeof text, "%x", static_cast<uint32_t>(reinterpret_cast<uintptr_t>(data)));
  return text;
}

// Trace lines of one store written after the mark was taken.
class TraceMark {
 public:
  explicit TraceMark(const Store& store) : store_(store), start_(store.TraceLines().size()) {}
  std::vector<TraceLine> Lines() const {
    std::vector<TraceLine> all = store_.TraceLines();
    return {all.begin() + static_cast<std::ptrdiff_t>(start_), all.end()};
  }
  std::vector<std::string> Texts() const {
    std::vector<std::string> texts;
    for (const TraceLine& line : Lines()) texts.push_back(line.text);
    return texts;
  }

 private:
  const Store& store_;
  size_t start_;
};

// "name{value:type=hex;...[child{...}]}" for a key and everything below it,
// in the store's order, read through the interface.
inline std::string DumpKey(const Registry& r, hKey key, const std::string& name = "") {
  std::string out = name + "{";
  uint32_t values = 0;
  uint32_t keys = 0;
  if (Failed(r.GetValueCount(&values, key)) || Failed(r.GetKeyCount(&keys, key))) return out + "?}";
  for (uint32_t i = 0; i < values; ++i) {
    char value_name[128] = {};
    uint32_t size = 0;
    (void)r.GetValueNameByIndex(&size, key, i, value_name, sizeof value_name);
    ReadResult v = ReadByIndexAs(r, key, i, 0);
    out += std::string(value_name) + ":" + std::to_string(v.type) + "=";
    for (uint8_t b : v.bytes) {
      static const char kHex[] = "0123456789abcdef";
      out += kHex[b >> 4];
      out += kHex[b & 15];
    }
    out += ";";
  }
  for (uint32_t i = 0; i < keys; ++i) {
    hKey child = kInvalidKey;
    char child_name[128] = {};
    uint32_t size = 0;
    (void)r.OpenKeyByIndex(&child, key, i);
    (void)r.GetKeyNameByIndex(&size, key, i, child_name, sizeof child_name, 0);
    out += DumpKey(r, child, child_name);
  }
  return out + "}";
}

}  // namespace prhost::testing
