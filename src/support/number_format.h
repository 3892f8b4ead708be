// Number texts: the bytes of "%llu", "%lli" and "%lf" in a fixed 256-byte
// work buffer, without going through printf's format parsing.
//
// A NumberText lives on the caller's stack and owns its buffer; nothing is
// allocated. A text longer than 255 characters (which only a double of
// magnitude 1e248 and above can produce with "%lf", 1e247 when negative) is
// not formed: fits() is false and the text is empty, never cut.
//
// Thread-safety: a value object; formatting touches no shared state.
#pragma once

#include <cstddef>
#include <cstdint>

namespace propmap {

class NumberText {
 public:
  static constexpr size_t kCapacity = 256;

  struct Unsigned {};
  struct Signed {};
  struct Fixed6 {};

  // The text of "%llu", "%lli" and "%lf" of `value`.
  NumberText(Unsigned, uint64_t value);
  NumberText(Signed, int64_t value);
  NumberText(Fixed6, double value);
  NumberText(const NumberText&) = delete;
  NumberText& operator=(const NumberText&) = delete;

  // The text, NUL-terminated inside the work buffer.
  const char* data() const { return buffer_; }
  // The text length without the NUL (at most kCapacity - 1).
  uint32_t length() const { return length_; }
  // False for a double whose text would pass kCapacity - 1 characters.
  bool fits() const { return fits_; }

 private:
  char buffer_[kCapacity];
  uint32_t length_ = 0;
  bool fits_ = true;
};

}  // namespace propmap
