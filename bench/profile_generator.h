// A deterministic generator of profile documents for benchmarks and tests.
//
// The document is written directly in the writer's exact form (CR LF, 4
// spaces per level, sub-keys before values, escaped names and texts), so that
// reading it and writing the tree back gives the same bytes. Shape: top-level
// keys each get a subtree 3 to 6 levels deep with 5 to 20 sub-keys per inner
// key; every key holds 3 to 15 values mixing tDWORD, tSTRING, tBOOL, tDOUBLE,
// tQWORD and tBINARY. Generation stops, closing every open key, once the
// document reaches the requested size; the same seed gives the same bytes.
//
// Header-only so that every benchmark and test can include it as it is.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <iterator>
#include <string>
#include <utility>

namespace propmap::bench {

class ProfileGenerator {
 public:
  explicit ProfileGenerator(uint64_t seed) : state_(seed) {}

  std::string Generate(size_t target_bytes) {
    out_.clear();
    out_.reserve(target_bytes + 4096);
    target_ = target_bytes;
    out_ += "<propertiesmap>\r\n";
    for (uint32_t index = 0; !Full(); ++index) {
      const int depth_limit = static_cast<int>(Between(3, 6));
      Key(index, 1, depth_limit);
    }
    out_ += "</propertiesmap>\r\n";
    return std::move(out_);
  }

 private:
  // splitmix64: small, fast and fully determined by the seed.
  uint64_t Next() {
    uint64_t z = (state_ += 0x9E3779B97F4A7C15ull);
    z = (z ^ (z >> 30)) * 0xBF58476D1CE4E5B9ull;
    z = (z ^ (z >> 27)) * 0x94D049BB133111EBull;
    return z ^ (z >> 31);
  }
  uint64_t Between(uint64_t low, uint64_t high) { return low + Next() % (high - low + 1); }
  bool Full() const { return out_.size() >= target_; }

  void Indent(int depth) { out_.append(static_cast<size_t>(depth) * 4, ' '); }

  void Key(uint32_t index, int depth, int depth_limit) {
    static const char* const kWords[] = {"Network", "Proxy", "Update", "Scanner", "Policy", "Schedule",
                                         "Cache",   "Log",   "Agent",  "Rules",   "Quarantine", "Ui"};
    char name[48];
    // The index keeps sibling names distinct, also without regard to case.
    std::snprintf(name, sizeof name, "%s%u", kWords[Next() % std::size(kWords)], index);
    Indent(depth);
    out_ += "<key name=\"";
    out_ += name;
    out_ += "\">\r\n";
    if (depth < depth_limit) {
      const uint64_t children = Between(5, 20);
      for (uint32_t i = 0; i < children && !Full(); ++i) Key(i, depth + 1, depth_limit);
    }
    const uint64_t values = Between(3, 15);
    for (uint64_t i = 0; i < values; ++i) Value(static_cast<uint32_t>(i), depth + 1);
    Indent(depth);
    out_ += "</key>\r\n";
  }

  void Value(uint32_t index, int depth) {
    static const char* const kTypes[] = {"tDWORD", "tSTRING", "tBOOL", "tDOUBLE", "tQWORD", "tBINARY"};
    const size_t kind = Next() % std::size(kTypes);
    char name[32];
    std::snprintf(name, sizeof name, "%.*s%u", static_cast<int>(Between(3, 12)), "SettingValueOption", index);
    Indent(depth);
    out_ += '<';
    out_ += kTypes[kind];
    out_ += " name=\"";
    out_ += name;
    out_ += "\">";
    char text[64];
    switch (kind) {
      case 0: std::snprintf(text, sizeof text, "%u", static_cast<uint32_t>(Next())); out_ += text; break;
      case 1: Text(); break;
      case 2: out_ += (Next() & 1) != 0 ? '1' : '0'; break;
      case 3:
        // Eighths print exactly with six decimals, so the text reads back as written.
        std::snprintf(text, sizeof text, "%lf", static_cast<double>(static_cast<int64_t>(Next() % 2000001) - 1000000) / 8);
        out_ += text;
        break;
      case 4: std::snprintf(text, sizeof text, "%lu", static_cast<unsigned long>(Next())); out_ += text; break;
      default: {
        static const char kHex[] = "0123456789ABCDEF";
        const uint64_t bytes = Between(4, 32);
        for (uint64_t i = 0; i < bytes; ++i) {
          const uint64_t b = Next();
          out_ += kHex[b & 15];
          out_ += kHex[(b >> 4) & 15];
        }
      }
    }
    out_ += "</";
    out_ += kTypes[kind];
    out_ += ">\r\n";
  }

  // Settings-like text: words and paths, now and then a character that the
  // writer escapes.
  void Text() {
    static const char* const kPieces[] = {"C:\\Program Files\\", "/var/lib/", "enabled", "http://",
                                          "example",           " ",         "&amp;",   "&lt;",
                                          "value",             "-",         "2024",    "&quot;"};
    const uint64_t pieces = Between(1, 8);
    for (uint64_t i = 0; i < pieces; ++i) out_ += kPieces[Next() % std::size(kPieces)];
  }

  uint64_t state_;
  size_t target_ = 0;
  std::string out_;
};

// The document of `target_bytes` (a little more) for `seed`.
inline std::string GenerateProfile(size_t target_bytes, uint64_t seed = 1) {
  return ProfileGenerator(seed).Generate(target_bytes);
}

}  // namespace propmap::bench
