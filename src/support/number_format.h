// Number texts: printf-style formatting into a fixed 256-byte work buffer.
//
// A NumberText lives on the caller's stack and owns its zero-filled buffer;
// nothing is allocated. The buffer is guarded: a text longer than 255
// characters (which only a double of magnitude 1e248 and above can produce
// with "%lf", 1e247 when negative) stops the process instead of being cut.
//
// Thread-safety: a value object; formatting touches no shared state.
#pragma once

#include <cstddef>
#include <cstdint>

namespace propmap {

class NumberText {
 public:
  static constexpr size_t kCapacity = 256;

  [[gnu::format(printf, 2, 3)]] explicit NumberText(const char* format, ...);
  NumberText(const NumberText&) = delete;
  NumberText& operator=(const NumberText&) = delete;

  // The text, NUL-terminated inside the work buffer.
  const char* data() const { return buffer_; }
  // The text length without the NUL (at most kCapacity - 1).
  uint32_t length() const { return length_; }

 private:
  char buffer_[kCapacity] = {};
  uint32_t length_ = 0;
};

}  // namespace propmap
