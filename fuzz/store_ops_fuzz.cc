// Stateful libFuzzer target: the input decodes into a sequence of iRegistry
// calls on two stores (open or create by paths of mixed case and separators,
// set and get in several types, enumeration, deletion by name and index,
// cleaning, copies within a store and between the two). Each call runs on the
// module and on the model of store_model.h; their results, outputs and final
// dumps must agree, and the heaps must balance.
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <string>
#include <vector>

#include "store_model.h"
#include "unit_store.h"

namespace propmap {
namespace {

// Input bytes, read front to back; zeros once used up.
struct Input {
  const uint8_t* at;
  const uint8_t* end;
  uint8_t Next() { return at < end ? *at++ : 0; }
  bool done() const { return at >= end; }
};

[[noreturn]] void Mismatch(const char* what, tERROR got, tERROR want) {
  std::fprintf(stderr, "mismatch in %s: module %08X, model %08X\n", what, unsigned(got), unsigned(want));
  std::abort();
}
void Expect(const char* what, tERROR got, tERROR want) {
  if (got != want) Mismatch(what, got, want);
}

// A path of one to three names; the first separators are '/', the later ones
// '\', and letters change case at random.
struct Path {
  std::vector<std::string> names;
  std::string text;
};
Path MakePath(Input& in) {
  static const char* const kNames[] = {"alpha", "Beta", "gamma", "DELTA"};
  Path p;
  const unsigned count = 1 + in.Next() % 3;
  const unsigned slashes = in.Next() % 3;
  for (unsigned i = 0; i < count; ++i) {
    std::string name = kNames[in.Next() % 4];
    const uint8_t flips = in.Next();
    for (size_t c = 0; c < name.size(); ++c) {
      if (flips >> (c % 8) & 1) name[c] ^= 0x20;
    }
    if (i > 0) p.text += i <= slashes ? '/' : '\\';
    p.text += name;
    p.names.push_back(name);
  }
  return p;
}

// Value names carry their type in the first letter, so sets never convert.
struct ValueName {
  std::string name;
  uint32_t type;
};
ValueName MakeValueName(Input& in) {
  static const char* const kNames[] = {"dNum", "Dword2", "qWide", "sText", "STitle", "bBlob"};
  std::string name = kNames[in.Next() % 6];
  if (in.Next() & 1) name[1] ^= 0x20;
  const char first = name[0] | 0x20;
  return {name, first == 'd' ? tDWORD : first == 'q' ? tQWORD : first == 's' ? tSTRING : tBINARY};
}

// Data of the type, which a read in the stored type gives back as it is.
std::string MakeData(Input& in, uint32_t type) {
  const uint8_t b = in.Next();
  const uint64_t number = uint64_t{b} << 40 | b * 0x01010101u;
  switch (type) {
    case tDWORD: return std::string(reinterpret_cast<const char*>(&number), 4);
    case tQWORD: return std::string(reinterpret_cast<const char*>(&number), 8);
    case tSTRING: return "text" + std::to_string(b) + '\0';
    default: return std::string(b % 9, static_cast<char>(b));
  }
}

struct Side {
  testing::UnitStore store{{}};
  model::Key root;
  iRegistry* r() { return &store.store()->registry; }
  const iRegistryTable* t() { return store.store()->registry.table; }
  hKey Open(const Path& p) {
    hKey key = ~hKey{0};
    const tERROR code = t()->OpenKey(r(), &key, 0, p.text.c_str(), 0);
    model::Key* m = model::Walk(&root, p.names, false);
    Expect("OpenKey", code, m != nullptr ? ResultOk : ErrNotFound);
    return key;
  }
};

// The name of the index-th sub-key or value, by the two-call protocol.
std::string NameAt(Side& s, hKey key, uint32_t index, bool value, tERROR* code) {
  char buffer[64];
  uint32_t size = 0;
  *code = value ? s.t()->GetValueNameByIndex(s.r(), &size, key, index, buffer, sizeof buffer)
                : s.t()->GetKeyNameByIndex(s.r(), &size, key, index, buffer, sizeof buffer, 0);
  return Succeeded(*code) && size > 0 ? std::string(buffer, size - 1) : std::string();
}

// The store in the model's Dump format, read through the module.
void DumpModule(Side& s, hKey key, const std::string& path, std::vector<std::string>* out) {
  uint32_t values = 0, keys = 0;
  tERROR code;
  if (Failed(s.t()->GetValueCount(s.r(), &values, key)) || Failed(s.t()->GetKeyCount(s.r(), &keys, key))) std::abort();
  for (uint32_t i = 0; i < values; ++i) {
    unsigned char bytes[64];
    uint32_t size = 0, type = 0;
    if (Failed(s.t()->GetValueByIndex(s.r(), &size, key, i, &type, bytes, sizeof bytes))) std::abort();
    std::string line = path + "|" + NameAt(s, key, i, true, &code) + "|" + std::to_string(type) + "|";
    for (uint32_t b = 0; b < size; ++b) line += {"0123456789abcdef"[bytes[b] >> 4], "0123456789abcdef"[bytes[b] & 15]};
    out->push_back(line);
  }
  for (uint32_t i = 0; i < keys; ++i) {
    hKey child = 0;
    const std::string name = NameAt(s, key, i, false, &code);
    if (Failed(s.t()->OpenKeyByIndex(s.r(), &child, key, i))) std::abort();
    const std::string sub = path.empty() ? name : path + "\\" + name;
    out->push_back(sub);
    DumpModule(s, child, sub, out);
  }
}

// Reads `v` in its type and compares with the model's bytes (reads through
// text are checked through the module in tests/host).
void CheckRead(Side& s, hKey key, model::Key* m, const ValueName& v) {
  char buffer[128];
  uint32_t size = 0, type = v.type;
  const tERROR code = s.t()->GetValue(s.r(), &size, key, v.name.c_str(), &type, buffer, sizeof buffer);
  const model::Value* want = model::Find(m->values, v.name);
  Expect("GetValue", code, want != nullptr ? ResultOk : ErrNotFound);
  if (want != nullptr && std::string(buffer, std::min<uint32_t>(size, sizeof buffer)) != want->bytes) {
    std::fprintf(stderr, "%s: %u bytes, expected %zu\n", v.name.c_str(), size, want->bytes.size());
    Mismatch("GetValue bytes", code, code);
  }
}

void Step(Input& in, Side sides[2]) {
  Side& s = sides[in.Next() & 1];
  const uint8_t op = in.Next() % 12;
  const Path p = MakePath(in);
  switch (op) {
    case 0:
    case 1: {  // open, creating on even bytes
      const bool create = op == 0;
      hKey key = 0;
      const tERROR code = s.t()->OpenKey(s.r(), &key, 0, p.text.c_str(), create);
      bool created_first = false;
      const model::Key* m = model::Walk(&s.root, p.names, create, &created_first);
      Expect(create ? "OpenKey create" : "OpenKey", code,
             m == nullptr ? ErrNotFound : created_first ? KeyCreated : ResultOk);
      break;
    }
    case 2:
    case 3:
    case 4: {  // set (on 2), then get
      const hKey key = s.Open(p);
      model::Key* m = model::Walk(&s.root, p.names, false);
      const ValueName v = MakeValueName(in);
      if (m == nullptr) break;
      if (op == 2) {
        const std::string d = MakeData(in, v.type);
        Expect("SetValue", s.t()->SetValue(s.r(), key, v.name.c_str(), v.type, d.data(), uint32_t(d.size()), 1), ResultOk);
        model::Set(m, v.name, v.type, d);
      }
      CheckRead(s, key, m, v);
      break;
    }
    case 5: {  // enumerate: counts and the index-th names
      const hKey key = s.Open(p);
      model::Key* m = model::Walk(&s.root, p.names, false);
      if (m == nullptr) break;
      uint32_t keys = 0, values = 0;
      Expect("GetKeyCount", s.t()->GetKeyCount(s.r(), &keys, key), ResultOk);
      Expect("GetValueCount", s.t()->GetValueCount(s.r(), &values, key), ResultOk);
      if (keys != m->keys.size() || values != m->values.size()) Mismatch("counts", keys, values);
      const uint32_t index = in.Next() % 4;
      tERROR code;
      const std::string key_name = NameAt(s, key, index, false, &code);
      Expect("GetKeyNameByIndex", code, index < keys ? ResultOk : ErrNotFound);
      if (index < keys && key_name != m->keys[index]->name) Mismatch("sub-key name", 0, 0);
      const std::string value_name = NameAt(s, key, index, true, &code);
      Expect("GetValueNameByIndex", code, ResultOk);  // past the end: empty
      if (value_name != (index < values ? m->values[index].name : "")) Mismatch("value name", 0, 0);
      break;
    }
    case 6: {  // delete a key by path or by index
      if (in.Next() & 1) {
        const bool exists = model::Walk(&s.root, p.names, false) != nullptr;
        Expect("DeleteKey", s.t()->DeleteKey(s.r(), 0, p.text.c_str()), exists ? ResultOk : ErrNotFound);
        if (exists) {
          model::Key* parent = model::Walk(&s.root, {p.names.begin(), p.names.end() - 1}, false);
          const model::Key* gone = model::Find(parent->keys, p.names.back());
          std::erase_if(parent->keys, [&](const auto& k) { return k.get() == gone; });
        }
      } else {
        const uint32_t index = in.Next() % 4;
        const bool exists = index < s.root.keys.size();
        Expect("DeleteKeyByInd", s.t()->DeleteKeyByInd(s.r(), 0, index), exists ? ResultOk : ErrNotFound);
        if (exists) s.root.keys.erase(s.root.keys.begin() + index);
      }
      break;
    }
    case 7: {  // delete a value by name or by index
      const hKey key = s.Open(p);
      model::Key* m = model::Walk(&s.root, p.names, false);
      const ValueName v = MakeValueName(in);
      const uint32_t index = in.Next() % 4;
      if (m == nullptr) break;
      if (index & 1) {
        model::Value* found = model::Find(m->values, v.name);
        Expect("DeleteValue", s.t()->DeleteValue(s.r(), key, v.name.c_str()), found ? ResultOk : ErrNotFound);
        if (found) m->values.erase(m->values.begin() + (found - m->values.data()));
      } else {
        const bool exists = index < m->values.size();
        Expect("DeleteValueByInd", s.t()->DeleteValueByInd(s.r(), key, index), exists ? ResultOk : ErrNotFound);
        if (exists) m->values.erase(m->values.begin() + index);
      }
      break;
    }
    case 8:  // clean, rarely
      if (in.Next() % 4 == 0) {
        Expect("Clean", s.t()->Clean(s.r()), ResultOk);
        s.root.values.clear();
        s.root.keys.clear();
      }
      break;
    case 9:
    case 10:
    case 11: {  // copy a key into a key of this store or the other, or by name into a root
      Side& d = sides[in.Next() & 1];
      const Path to = MakePath(in);
      const hKey from = s.Open(p);
      model::Key* source = model::Walk(&s.root, p.names, false);
      if (source == nullptr) break;
      if (op == 11) {
        Expect("CopyKeyByName", s.t()->CopyKeyByName(s.r(), p.text.c_str(), d.r()), ResultOk);
        model::Copy(source, &d.root, &s == &d ? &d.root : nullptr);
        break;
      }
      const bool to_root = op == 10;
      const hKey into = to_root ? 0 : d.Open(to);
      model::Key* target = to_root ? &d.root : model::Walk(&d.root, to.names, false);
      if (target == nullptr) break;
      Expect("CopyKey", s.t()->CopyKey(s.r(), from, d.r(), into), ResultOk);
      model::Copy(source, target, &s == &d ? target : nullptr);
      break;
    }
  }
}

}  // namespace
}  // namespace propmap

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  using namespace propmap;
  propmap::testing::TraceCapture trace;  // the stores' trace lines go nowhere
  {
    std::unique_ptr<Side[]> sides(new Side[2]);
    Input in{data, data + size};
    for (unsigned steps = 0; !in.done() && steps < 64; ++steps) Step(in, sides.get());
    for (int i = 0; i < 2; ++i) {
      std::vector<std::string> want;
      model::Dump(sides[i].root, "", &want);
      std::vector<std::string> got;
      DumpModule(sides[i], 0, "", &got);
      if (got != want) {
        for (const std::string& line : got) std::fprintf(stderr, "module: %s\n", line.c_str());
        for (const std::string& line : want) std::fprintf(stderr, "model:  %s\n", line.c_str());
        Mismatch("final dump", i, i);
      }
      sides[i].store.Close();  // aborts unless the heap balances
    }
  }
  return 0;
}
