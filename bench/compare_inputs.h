// The inputs every side of the comparison shares: the generated documents
// (100 KB, 1 MB, 10 MB, seed 1), the same random lookups into each, a scratch
// directory and the raw write + fsync + rename that is the floor of a save.
//
// Lookups are (key path, dword value name) pairs: keys 3 to 6 levels below the
// root that hold a tDWORD, drawn with a fixed seed, so that every side walks
// the same 100,000 paths in the same order.
#pragma once

#include <fcntl.h>
#include <unistd.h>

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <mutex>
#include <string>
#include <string_view>
#include <vector>

#include "settle_heap.h"
#include "profile_generator.h"

namespace propmap::bench {

inline constexpr size_t kLookupCount = 100000;

// Benchmark argument (a size index) to bytes: 0 = 100 KB, 1 = 1 MB, 2 = 10 MB.
inline size_t DocumentBytes(int64_t size_index) {
  static constexpr size_t kBytes[] = {100u << 10, 1u << 20, 10u << 20};
  return kBytes[size_index];
}

inline const std::string& Document(int64_t size_index) {
  static const std::string docs[] = {GenerateProfile(DocumentBytes(0)), GenerateProfile(DocumentBytes(1)),
                                     GenerateProfile(DocumentBytes(2))};
  return docs[size_index];
}

inline constexpr uint32_t kWideKeys = 10000;

// One key "Wide" with kWideKeys sub-keys of one tDWORD each: the enumeration
// input.
inline const std::string& WideDocument() {
  static const std::string doc = [] {
    std::string out = "<propertiesmap>\r\n    <key name=\"Wide\">\r\n";
    for (uint32_t i = 0; i < kWideKeys; ++i) {
      out += "        <key name=\"Child" + std::to_string(i) + "\">\r\n";
      out += "            <tDWORD name=\"Value\">" + std::to_string(i) + "</tDWORD>\r\n";
      out += "        </key>\r\n";
    }
    out += "    </key>\r\n</propertiesmap>\r\n";
    return out;
  }();
  return doc;
}

struct Lookup {
  std::string path;   // components joined by '/'
  std::string value;  // name of a tDWORD value of that key
  uint32_t expected;
};

// Scans the generator's fixed line form: one element per line, key names and
// value names without escapes.
inline std::vector<Lookup> DwordKeys(const std::string& doc) {
  std::vector<Lookup> found;
  std::vector<std::string> stack;
  bool taken = false;  // the innermost key already gave its dword
  size_t pos = 0;
  while (pos < doc.size()) {
    size_t end = doc.find('\n', pos);
    if (end == std::string::npos) end = doc.size();
    std::string_view line(doc.data() + pos, end - pos);
    pos = end + 1;
    const size_t lt = line.find('<');
    if (lt == std::string_view::npos) continue;
    line.remove_prefix(lt);
    auto attr = [&] {
      const size_t q = line.find('"');
      return std::string(line.substr(q + 1, line.find('"', q + 1) - q - 1));
    };
    if (line.starts_with("<key ")) {
      stack.push_back(attr());
      taken = false;
    } else if (line.starts_with("</key>")) {
      stack.pop_back();
      taken = true;
    } else if (line.starts_with("<tDWORD ") && !taken && stack.size() >= 3 && stack.size() <= 6) {
      Lookup l{stack[0], attr(), 0};
      for (size_t i = 1; i < stack.size(); ++i) l.path += '/' + stack[i];
      const size_t gt = line.find('>');
      l.expected = static_cast<uint32_t>(std::strtoul(line.data() + gt + 1, nullptr, 10));
      found.push_back(std::move(l));
      taken = true;
    }
  }
  return found;
}

// The same kLookupCount pairs for every side. Benchmark threads may ask at
// the same time.
inline const std::vector<Lookup>& Lookups(int64_t size_index) {
  static std::mutex mutex;
  static std::vector<Lookup> cached[3];
  std::lock_guard lock(mutex);
  std::vector<Lookup>& out = cached[size_index];
  if (out.empty()) {
    const std::vector<Lookup> keys = DwordKeys(Document(size_index));
    uint64_t state = 42;
    out.reserve(kLookupCount);
    for (size_t i = 0; i < kLookupCount; ++i) {
      uint64_t z = (state += 0x9E3779B97F4A7C15ull);
      z = (z ^ (z >> 30)) * 0xBF58476D1CE4E5B9ull;
      z = (z ^ (z >> 27)) * 0x94D049BB133111EBull;
      out.push_back(keys[(z ^ (z >> 31)) % keys.size()]);
    }
  }
  return out;
}

// A directory for the saves, removed with its files at exit.
inline const std::string& ScratchDir() {
  static const std::string dir = [] {
    // In the working directory, so that fsync meets the disk a profile lives on.
    char tmpl[] = "propmap-bench-XXXXXX";
    if (mkdtemp(tmpl) == nullptr) std::abort();
    std::string made = tmpl;
    static std::string to_remove = made;
    std::atexit([] { std::system(("rm -rf '" + to_remove + "'").c_str()); });
    return made;
  }();
  return dir;
}

// Writes `bytes` to path + ".tmp" in one write, fsyncs and renames over path:
// the floor that every save pays.
inline void WriteSyncRename(const std::string& path, const char* bytes, size_t size) {
  const std::string tmp = path + ".tmp";
  const int fd = ::open(tmp.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644);
  if (fd < 0 || ::write(fd, bytes, size) != static_cast<ssize_t>(size) || ::fsync(fd) != 0 || ::close(fd) != 0 ||
      ::rename(tmp.c_str(), path.c_str()) != 0) {
    std::perror("save");
    std::abort();
  }
}

// Writes `bytes` to a new file in the scratch directory; returns its path.
inline std::string WriteInput(const std::string& name, const std::string& bytes) {
  const std::string path = ScratchDir() + "/" + name;
  WriteSyncRename(path, bytes.data(), bytes.size());
  return path;
}

inline void SizeArgs(auto* b) { b->Arg(0)->Arg(1)->Arg(2); }

}  // namespace propmap::bench
