// A model of a store's observable rules, and the decoder that turns bytes
// into iRegistry call sequences on two stores checked against it. Shared by
// the fuzz target (fuzz/store_ops_fuzz.cc, module linked in) and the ctest
// run (tests/host/store_model_test.cc, the real shared library).
//
// The rules: keys and values keep insertion order and the case they were
// made with; names match without regard to ASCII case (and only ASCII
// letters fold); values keep their type and bytes (a read of type 0 gives
// both); deleting a key takes its subtree; a copy merges the source key
// into the destination key (existing names reused, new ones appended). A
// store is dirty after a change, where rewriting a number or text with
// equal bytes is no change but a block always is, an open marks it only for
// a key made directly below its start, and a copy marks its source store; a
// Flush of a clean store writes the skip line. Each operation's own line
// (level 600) ends with ": " and its result.
//
// Thread-safety: plain values; one owner.
#pragma once

#include <algorithm>
#include <cctype>
#include <cstdint>
#include <memory>
#include <stdexcept>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "abi.h"
#include "registry.h"

namespace prhost::model {

// ---- The one tree dump, shared by every test.

inline void AppendHex(std::string* out, const unsigned char* bytes, size_t size) {
  for (size_t b = 0; b < size; ++b) *out += {"0123456789abcdef"[bytes[b] >> 4], "0123456789abcdef"[bytes[b] & 15]};
}

// The subtree below `top` in enumeration order, one entry per key ("a\b")
// and per value ("a\b|Name|type|hex"), each key's values before its
// sub-keys. Iterative, so deep chains are fine.
inline std::vector<std::string> Dump(const Registry& r, hKey top = 0) {
  std::vector<std::string> out;
  std::vector<std::pair<hKey, std::string>> pending{{top, ""}};
  while (!pending.empty()) {
    auto [key, path] = pending.back();
    pending.pop_back();
    if (!path.empty()) out.push_back(path);
    uint32_t values = 0, keys = 0;
    if (Failed(r.GetValueCount(&values, key)) || Failed(r.GetKeyCount(&keys, key))) {
      out.push_back(path + " <unreadable>");
      continue;
    }
    for (uint32_t i = 0; i < values; ++i) {
      char name[256] = {};
      unsigned char bytes[256] = {};
      uint32_t size = 0, type = 0;
      tERROR code = r.GetValueNameByIndex(&size, key, i, name, sizeof name);
      if (Succeeded(code)) code = r.GetValueByIndex(&size, key, i, &type, bytes, sizeof bytes);
      std::string entry = path + "|" + name + "|" + std::to_string(type) + "|";
      if (Failed(code)) entry += "<" + std::to_string(code) + ">";
      AppendHex(&entry, bytes, Succeeded(code) ? std::min<size_t>(size, sizeof bytes) : 0);
      out.push_back(entry);
    }
    for (uint32_t i = keys; i-- > 0;) {  // reversed so sub-keys come out in order
      hKey child = ~hKey{0};
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

// Names of sub-keys that their parent's lookup by name does not find first
// (as "path" of the missing one): every key must stay reachable by its name.
inline std::vector<std::string> Unreachable(const Registry& r, hKey key = 0, const std::string& path = "") {
  std::vector<std::string> out;
  uint32_t keys = 0;
  if (Failed(r.GetKeyCount(&keys, key))) return {path + " <unreadable>"};
  for (uint32_t i = 0; i < keys; ++i) {
    char name[256] = {};
    uint32_t size = 0;
    hKey by_index = 0, by_name = 0;
    if (Failed(r.OpenKeyByIndex(&by_index, key, i)) || Failed(r.GetKeyNameByIndex(&size, key, i, name, sizeof name, 0)))
      continue;
    const std::string sub = path + "\\" + name;
    if (*name != '\0' && (Failed(r.OpenKey(&by_name, key, name, 0)) || by_name == 0)) out.push_back(sub);
    for (std::string& s : Unreachable(r, by_index, sub)) out.push_back(std::move(s));
  }
  return out;
}

// ---- The model.

struct Value {
  std::string name;
  uint32_t type = 0;
  std::string bytes;  // what a read in the stored type returns
};

struct Key {
  std::string name;
  std::vector<Value> values;
  std::vector<std::unique_ptr<Key>> keys;  // stable addresses while a copy walks them
};

struct Store {
  Key root;
  bool dirty = false;
};

// ASCII letters fold; '@', '[', '`' and '{' beside them do not.
inline bool SameName(std::string_view a, std::string_view b) {
  auto lower = [](char c) { return c >= 'A' && c <= 'Z' ? char(c + 32) : c; };
  return a.size() == b.size() && std::equal(a.begin(), a.end(), b.begin(), [&](char x, char y) {
           return lower(x) == lower(y);
         });
}

inline Value* Find(std::vector<Value>& values, std::string_view name) {
  for (Value& v : values) {
    if (SameName(v.name, name)) return &v;
  }
  return nullptr;
}
inline Key* Find(const std::vector<std::unique_ptr<Key>>& keys, std::string_view name) {
  for (const auto& k : keys) {
    if (SameName(k->name, name)) return k.get();
  }
  return nullptr;
}

inline Key* Append(Key* key, const std::string& name) {
  key->keys.push_back(std::make_unique<Key>(Key{name, {}, {}}));
  return key->keys.back().get();
}

// The key at the end of `path` below `top`; with `create`, missing keys are
// appended on the way and *created_first tells whether the first one was.
inline Key* Walk(Key* top, const std::vector<std::string>& path, bool create,
                 bool* created_first = nullptr) {
  Key* key = top;
  for (size_t i = 0; i < path.size(); ++i) {
    Key* child = Find(key->keys, path[i]);
    if (child == nullptr) {
      if (!create) return nullptr;
      child = Append(key, path[i]);
      if (i == 0 && created_first != nullptr) *created_first = true;
    }
    key = child;
  }
  return key;
}

// Sets or adds a value of the same type (the decoder never converts on set).
inline void Set(Store& s, Key* key, const std::string& name, uint32_t type, std::string bytes) {
  if (Value* v = Find(key->values, name)) {
    if (v->bytes != bytes || type == tBINARY) s.dirty = true;
    v->bytes = std::move(bytes);
  } else {
    s.dirty = true;
    key->values.push_back(Value{name, type, std::move(bytes)});
  }
}

// Copies `from` into `into` as the store does, walking the live tree: values
// first, then sub-keys (counted on entry, found again by name), depth first;
// `skip`, the destination of a copy within one store, is never copied from.
inline void Copy(Store& d, Key* from, Key* into, const Key* skip) {
  const size_t values = from->values.size();
  for (size_t i = 0; i < values; ++i) {
    const Value v = from->values[i];
    Set(d, into, v.name, v.type, v.bytes);
  }
  const size_t keys = from->keys.size();
  for (size_t i = 0; i < keys; ++i) {
    const std::string name = from->keys[i]->name;
    Key* child = Find(from->keys, name);
    if (child == skip) continue;
    Key* target = Find(into->keys, name);
    if (target == nullptr) {
      d.dirty = true;
      target = Append(into, name);
    }
    Copy(d, child, target, skip);
  }
}

// The model's tree in Dump's format.
inline void Dump(const Key& key, const std::string& path, std::vector<std::string>* out) {
  for (const Value& v : key.values) {
    std::string line = path + "|" + v.name + "|" + std::to_string(v.type) + "|";
    AppendHex(&line, reinterpret_cast<const unsigned char*>(v.bytes.data()), v.bytes.size());
    out->push_back(line);
  }
  for (const auto& k : key.keys) {
    const std::string child = path.empty() ? k->name : path + "\\" + k->name;
    out->push_back(child);
    Dump(*k, child, out);
  }
}

// ---- Running call sequences.

// What a run needs from the two stores it drives.
class Stores {
 public:
  struct Line {
    int side;  // 0 or 1; lines of other objects are dropped
    uint32_t level;
    std::string text;
  };
  virtual ~Stores() = default;
  virtual void* object(int side) = 0;
  // The lines written since the last call.
  virtual std::vector<Line> TakeLines() = 0;
  // How a line prints a result code.
  virtual std::string ResultText(tERROR code) = 0;
};

struct Mismatch : std::runtime_error {
  using std::runtime_error::runtime_error;
};

class Run {
 public:
  Run(Stores& stores, const uint8_t* data, size_t size) : stores_(stores), at_(data), end_(data + size) {}

  // Decodes and checks calls until the input runs out (at most `steps`),
  // then compares both stores with the model; throws Mismatch.
  void Check(unsigned steps = 64) {
    (void)stores_.TakeLines();
    for (unsigned i = 0; at_ < end_ && i < steps; ++i) Step();
    for (int side = 0; side < 2; ++side) {
      std::vector<std::string> want;
      Dump(model_[side].root, "", &want);
      const std::vector<std::string> got = Dump(R(side));
      if (got != want) {
        std::string text = "final dump of store " + std::to_string(side) + "\n";
        for (const std::string& line : got) text += " module: " + line + "\n";
        for (const std::string& line : want) text += " model:  " + line + "\n";
        throw Mismatch(text + log_);
      }
    }
  }

 private:
  struct Path {
    std::vector<std::string> names;
    std::string text;
  };
  struct ValueName {
    std::string name;
    uint32_t type;
  };

  uint8_t Next() { return at_ < end_ ? *at_++ : 0; }
  Registry R(int side) { return Registry(stores_.object(side)); }

  [[noreturn]] void Fail(const std::string& what) { throw Mismatch(what + "\nafter:\n" + log_); }
  void Expect(const char* what, tERROR got, tERROR want) {
    if (got != want) Fail(std::string(what) + ": module " + stores_.ResultText(got) + ", model " + stores_.ResultText(want));
  }

  // A call's result, then its own line on `side`, which must carry it.
  void Expect(int side, const char* what, tERROR got, tERROR want) {
    Expect(what, got, want);
    CheckLines(side, what, got);
  }

  // The call's own line on `side` carries its result; a Flush (skip_line
  // 0 or 1) has none, and writes the skip line exactly when it is 1.
  void CheckLines(int side, const char* what, tERROR code, int skip_line = -1) {
    const std::string tail = ": " + stores_.ResultText(code);
    std::string last;
    bool skipped = false;
    for (const Stores::Line& l : stores_.TakeLines()) {
      if (l.side != side) continue;
      if (l.level == 600) last = l.text;
      skipped = skipped || l.text.find("skip saving because data wasn`t changed") != std::string::npos;
    }
    const bool own_line = skip_line < 0;  // Flush writes none of its own
    if (own_line && (last.size() < tail.size() || last.compare(last.size() - tail.size(), tail.size(), tail) != 0))
      Fail(std::string(what) + ": line '" + last + "' does not end with '" + tail + "'");
    if (skip_line >= 0 && skipped != (skip_line == 1)) Fail(std::string(what) + (skipped ? ": skipped" : ": saved") + ", the model differs");
  }

  // One to three names; the first separators are '/', the later ones '\',
  // and the bytes of a name change case at random (so '@' meets '`').
  // Now and then a leading '/' makes the path name its start.
  Path MakePath() {
    static const char* const kNames[] = {"alpha", "Beta", "z@[Zeta", "DELTA_0123"};
    Path p;
    const unsigned count = 1 + Next() % 3;
    const unsigned slashes = Next() % 3;
    for (unsigned i = 0; i < count; ++i) {
      std::string name = kNames[Next() % 4];
      const uint8_t flips = Next();
      for (size_t c = 0; c < name.size() && c < 8; ++c) {
        if ((flips >> c & 1) && (std::isalpha(name[c]) || name[c] == '@' || name[c] == '[')) name[c] ^= 0x20;
      }
      if (i > 0) p.text += i <= slashes ? '/' : '\\';
      p.text += name;
      p.names.push_back(name);
    }
    if (Next() % 16 == 0) {  // a leading '/' names the start key itself
      p.text.insert(0, 1, '/');
      p.names.clear();
    }
    return p;
  }

  // Value names carry their type in the first letter, so sets never convert.
  ValueName MakeValueName() {
    static const char* const kNames[] = {"dNum", "Dword2", "qWide", "sText", "STitle", "bBlob"};
    std::string name = kNames[Next() % 6];
    if (Next() & 1) name[1] ^= 0x20;
    const char first = name[0] | 0x20;
    return {name, first == 'd' ? tDWORD : first == 'q' ? tQWORD : first == 's' ? tSTRING : tBINARY};
  }

  // Data of the type, which a read in the stored type gives back as it is;
  // few distinct values, so that equal rewrites happen, and numbers that
  // differ only in their high bytes, so that a comparison must see all.
  std::string MakeData(uint32_t type) {
    const uint8_t b = Next() % 8;
    const uint64_t number = (uint64_t{b} & 3) << 40 | (uint64_t{b} >> 2) << 24 | 0x010101u;
    switch (type) {
      case tDWORD: return std::string(reinterpret_cast<const char*>(&number), 4);
      case tQWORD: return std::string(reinterpret_cast<const char*>(&number), 8);
      case tSTRING: return "text" + std::to_string(b) + '\0';
      default: return std::string(b % 9, static_cast<char>(b));
    }
  }

  hKey Open(int side, const Path& p) {
    hKey key = ~hKey{0};
    const tERROR code = R(side).OpenKey(&key, 0, p.text.c_str(), 0);
    Expect(side, "OpenKey", code, Walk(&model_[side].root, p.names, false) ? kOk : kErrNotFound);
    return key;
  }

  std::string NameAt(int side, hKey key, uint32_t index, bool value, tERROR* code) {
    char buffer[64];
    uint32_t size = 0;
    *code = value ? R(side).GetValueNameByIndex(&size, key, index, buffer, sizeof buffer)
                  : R(side).GetKeyNameByIndex(&size, key, index, buffer, sizeof buffer, 0);
    CheckLines(side, value ? "GetValueNameByIndex" : "GetKeyNameByIndex", *code);
    return Succeeded(*code) && size > 0 ? std::string(buffer, size - 1) : std::string();
  }

  void Step() {
    const int side = Next() & 1;
    Store& m = model_[side];
    const Registry r = R(side);
    const uint8_t op = Next() % 13;
    const Path p = MakePath();
    log_ += std::to_string(side) + " op" + std::to_string(op) + " " + p.text + "\n";
    switch (op) {
      case 0:
      case 1: {  // open, creating on 0
        const bool create = op == 0;
        hKey key = 0;
        const tERROR code = r.OpenKey(&key, 0, p.text.c_str(), create);
        bool created_first = false;
        const Key* k = Walk(&m.root, p.names, create, &created_first);
        m.dirty = m.dirty || created_first;  // keys made deeper down do not mark the store
        Expect(side, create ? "OpenKey create" : "OpenKey", code, !k ? kErrNotFound : created_first ? kKeyCreated : kOk);
        break;
      }
      case 2:
      case 3:
      case 4: {  // set (on 2), then get
        const hKey key = Open(side, p);
        Key* k = Walk(&m.root, p.names, false);
        const ValueName v = MakeValueName();
        if (k == nullptr) break;
        if (op == 2) {
          const std::string d = MakeData(v.type);
          const tERROR code = r.SetValue(key, v.name.c_str(), v.type, d.data(), uint32_t(d.size()), 1);
          Expect(side, "SetValue", code, kOk);
          Set(m, k, v.name, v.type, d);
        }
        char buffer[128];
        uint32_t size = 0, type = op == 4 ? 0 : v.type;  // 0 asks for the stored type
        const tERROR code = r.GetValue(&size, key, v.name.c_str(), &type, buffer, sizeof buffer);
        const Value* want = Find(k->values, v.name);
        Expect(side, "GetValue", code, want != nullptr ? kOk : kErrNotFound);
        if (want != nullptr && (type != want->type || std::string(buffer, std::min(size, 128u)) != want->bytes))
          Fail("GetValue " + v.name + ": other type or bytes");
        break;
      }
      case 5: {  // counts and the index-th names
        const hKey key = Open(side, p);
        Key* k = Walk(&m.root, p.names, false);
        if (k == nullptr) break;
        uint32_t keys = 0, values = 0;
        Expect(side, "GetKeyCount", r.GetKeyCount(&keys, key), kOk);
        Expect(side, "GetValueCount", r.GetValueCount(&values, key), kOk);
        if (keys != k->keys.size() || values != k->values.size()) Fail("counts");
        const uint32_t index = Next() % 4;
        tERROR code;
        const std::string key_name = NameAt(side, key, index, false, &code);
        Expect("GetKeyNameByIndex", code, index < keys ? kOk : kErrNotFound);
        if (index < keys && key_name != k->keys[index]->name) Fail("sub-key name");
        const std::string value_name = NameAt(side, key, index, true, &code);
        Expect("GetValueNameByIndex", code, kOk);  // past the end: empty
        if (value_name != (index < values ? k->values[index].name : "")) Fail("value name");
        char bytes[128];
        uint32_t size = 0, type = 0;
        code = r.GetValueByIndex(&size, key, index, &type, bytes, sizeof bytes);
        Expect(side, "GetValueByIndex", code, index < values ? kOk : kErrNotFound);
        if (index < values && (type != k->values[index].type ||
                               std::string(bytes, std::min(size, 128u)) != k->values[index].bytes))
          Fail("GetValueByIndex: other type or bytes");
        break;
      }
      case 6: {  // delete a key by path or by index
        if (Next() & 1) {
          Key* parent = p.names.empty() ? nullptr : Walk(&m.root, {p.names.begin(), p.names.end() - 1}, false);
          const Key* gone = parent != nullptr ? Find(parent->keys, p.names.back()) : nullptr;
          const tERROR code = r.DeleteKey(0, p.text.c_str());
          // The start key itself is never removed.
          Expect(side, "DeleteKey", code, gone != nullptr ? kOk : p.names.empty() ? kErrBadParameter : kErrNotFound);
          if (gone != nullptr) {
            std::erase_if(parent->keys, [&](const auto& k) { return k.get() == gone; });
            m.dirty = true;
          }
        } else {
          const uint32_t index = Next() % 4;
          const bool exists = index < m.root.keys.size();
          const tERROR code = r.DeleteKeyByInd(0, index);
          Expect(side, "DeleteKeyByInd", code, exists ? kOk : kErrNotFound);
          if (exists) m.root.keys.erase(m.root.keys.begin() + index);
          m.dirty = m.dirty || exists;
        }
        break;
      }
      case 7: {  // delete a value by name or by index
        const hKey key = Open(side, p);
        Key* k = Walk(&m.root, p.names, false);
        const ValueName v = MakeValueName();
        const uint32_t index = Next() % 4;
        if (k == nullptr) break;
        if (index & 1) {
          Value* found = Find(k->values, v.name);
          const tERROR code = r.DeleteValue(key, v.name.c_str());
          Expect(side, "DeleteValue", code, found ? kOk : kErrNotFound);
          if (found) k->values.erase(k->values.begin() + (found - k->values.data()));
          m.dirty = m.dirty || found;
        } else {
          const bool exists = index < k->values.size();
          const tERROR code = r.DeleteValueByInd(key, index);
          Expect(side, "DeleteValueByInd", code, exists ? kOk : kErrNotFound);
          if (exists) k->values.erase(k->values.begin() + index);
          m.dirty = m.dirty || exists;
        }
        break;
      }
      case 8:  // clean, rarely; it marks the store even when empty
        if (Next() % 4 == 0) {
          Expect(side, "Clean", r.Clean(), kOk);
          m.root.values.clear();
          m.root.keys.clear();
          m.dirty = true;
        }
        break;
      case 9:
      case 10:
      case 11: {  // copy a key into a key of this store or the other, or by name into a root
        const int to_side = Next() & 1;
        Store& d = model_[to_side];
        const Path to = MakePath();
        const hKey from = Open(side, p);
        Key* source = Walk(&m.root, p.names, false);
        if (source == nullptr) break;
        const bool within = to_side == side;
        if (op == 11) {
          const tERROR code = r.CopyKeyByName(p.text.c_str(), R(to_side).object());
          Expect(side, "CopyKeyByName", code, kOk);
          Copy(d, source, &d.root, within ? &d.root : nullptr);
          m.dirty = true;
          break;
        }
        const hKey into = op == 10 ? 0 : Open(to_side, to);
        Key* target = op == 10 ? &d.root : Walk(&d.root, to.names, false);
        if (target == nullptr) break;
        const tERROR code = r.CopyKey(from, R(to_side).object(), into);
        Expect(side, "CopyKey", code, kOk);
        Copy(d, source, target, within ? target : nullptr);
        m.dirty = true;
        break;
      }
      case 12: {  // flush: a memory store saves nothing, but the flag shows in the lines
        const tERROR code = r.Flush(0);
        Expect("Flush", code, kOk);
        CheckLines(side, "Flush", code, m.dirty ? 0 : 1);
        m.dirty = false;
        break;
      }
    }
  }

  Stores& stores_;
  const uint8_t* at_;
  const uint8_t* end_;
  Store model_[2];
  std::string log_;  // the calls so far, for the message
};

}  // namespace prhost::model
