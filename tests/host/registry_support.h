// Helpers for the host tests of the registry operations: the trace lines one
// call wrote, a tree built from paths, a whole subtree read back through the
// enumeration operations so two stores can be compared, tables of calls (Row)
// that pin code, outputs and trace lines of each call in one line, native
// byte images of values and reads and writes with an ample buffer.
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

namespace prhost::testing {

// Runs `call`; returns its code and the lines it made the module write for `store`.
template <typename Call>
std::pair<tERROR, std::vector<TraceLine>> Traced(const Store& store, Call&& call) {
  const size_t before = store.TraceLines().size();
  const tERROR code = call();
  std::vector<TraceLine> lines = store.TraceLines();
  lines.erase(lines.begin(), lines.begin() + static_cast<std::ptrdiff_t>(before));
  return {code, std::move(lines)};
}

// A line expected for `store` at the operation level.
inline TraceLine Line(const Store& store, std::string text) { return TraceLine{600, store.object(), text, true}; }

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

// The subtree below `top` in enumeration order, one entry per key ("a\b")
// and per value ("a\b|Name|type|hex bytes"). Iterative, so deep chains are fine.
inline std::vector<std::string> Dump(const Registry& r, hKey top = 0) {
  std::vector<std::string> out;
  std::vector<std::pair<hKey, std::string>> pending{{top, ""}};
  while (!pending.empty()) {
    auto [key, path] = pending.back();
    pending.pop_back();
    uint32_t values = 0, keys = 0;
    const bool readable = Succeeded(r.GetValueCount(&values, key)) && Succeeded(r.GetKeyCount(&keys, key));
    if (!readable) {
      out.push_back(path + " <unreadable>");
      continue;
    }
    if (!path.empty()) out.push_back(path);
    for (uint32_t i = 0; i < values; ++i) {
      char name[256] = {};
      unsigned char bytes[256] = {};
      uint32_t size = 0, type = 0;
      tERROR code = r.GetValueNameByIndex(&size, key, i, name, sizeof name);
      if (Succeeded(code)) code = r.GetValueByIndex(&size, key, i, &type, bytes, sizeof bytes);
      std::string entry = path + "|" + name + "|" + std::to_string(type) + "|";
      if (Failed(code)) entry += FormatResult(code);
      const char* hex = "0123456789abcdef";
      for (uint32_t b = 0; Succeeded(code) && b < size; ++b) entry += {hex[bytes[b] >> 4], hex[bytes[b] & 15]};
      out.push_back(entry);
    }
    for (uint32_t i = keys; i-- > 0;) {  // reversed so sub-keys come out in order
      hKey child = kInvalidKey;
      char name[256] = {};
      uint32_t size = 0;
      if (Failed(r.OpenKeyByIndex(&child, key, i)) || Failed(r.GetKeyNameByIndex(&size, key, i, name, sizeof name, 0)))
        out.push_back(path + " <child unreadable>");
      else
        pending.emplace_back(child, path.empty() ? std::string(name) : path + "\\" + name);
    }
  }
  return out;
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
// `line` holds the trace lines without their ": <result>" tail, separated by
// newlines, "{h}" standing for h's low half as %d. With `root_after`, the
// root point is checked afterwards.
struct Row {
  const char* root;
  const char* at;
  std::function<tERROR(Store& s, hKey h, Out& o)> call;
  tERROR code;
  std::string out;
  std::string line;
  const char* root_after = nullptr;
};
#define OP(expr) \
  [](Store & s, hKey h, Out & o) -> tERROR { \
    [[maybe_unused]] const Registry r = s.registry(); \
    return expr; \
  }

inline void CheckRows(Store& s, std::span<const Row> rows) {
  for (const Row& row : rows) {
    SCOPED_TRACE(row.line + (row.root ? " at root " + std::string(row.root) : ""));
    hKey h = 0;
    if (row.root != nullptr) {  // handles are looked up from the top root
      ASSERT_EQ(Rc{s.registry().SetRootStr("")}, Rc{kOk});
      h = row.at == nullptr ? 0 : KeyAt(s, row.at);
      ASSERT_EQ(Rc{s.registry().SetRootStr(row.root)}, Rc{kOk});
    }
    Out o;
    auto [code, lines] = Traced(s, [&] { return row.call(s, h, o); });
    EXPECT_EQ(Rc{code}, Rc{row.code});
    EXPECT_EQ(Render(s, o), row.out);
    std::vector<TraceLine> want;
    std::istringstream texts(row.line);
    for (std::string text; std::getline(texts, text);) {
      if (size_t at = text.find("{h}"); at != std::string::npos) text.replace(at, 3, std::to_string(int32_t(h)));
      want.push_back(Line(s, text + ": " + FormatResult(row.code)));
    }
    EXPECT_EQ(lines, want);
    if (row.root_after != nullptr) {
      EXPECT_EQ(s.GetRootPoint().value, row.root_after);
    }
  }
}

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
  std::vector<std::string> Texts() const {
    std::vector<std::string> texts;
    const std::vector<TraceLine> all = store.TraceLines();
    for (size_t i = start; i < all.size(); ++i) texts.push_back(all[i].text);
    return texts;
  }
};

// Dump with each value cut to "path|name" unless `with_data`.
inline std::vector<std::string> Listing(const Registry& r, hKey key = 0, bool with_data = false) {
  std::vector<std::string> out = Dump(r, key);
  for (std::string& e : out) {
    if (size_t bar = e.find('|'); bar != std::string::npos && !with_data) e.resize(e.find('|', bar + 1));
  }
  return out;
}

}  // namespace prhost::testing
