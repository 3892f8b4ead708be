// An append-only cursor over the writer's output string.
//
// Room is made once for a piece of known maximum size, so that each byte
// then costs a store instead of a capacity check and a size update. Short
// pieces of bounded size are copied at their bound and the cursor moved by
// their length. The
// string is grown by resizing (at least doubling) and cut back to the bytes
// written when the sink goes away, also when a failure leaves early.
//
// Thread-safety: as the string it writes to.
#pragma once

#include <algorithm>
#include <cstddef>
#include <cstring>
#include <string>
#include <string_view>

namespace propmap::xml {

class TextSink {
 public:
  explicit TextSink(std::string* output) : output_(output), used_(output->size()) {}
  ~TextSink() { output_->resize(used_); }
  TextSink(const TextSink&) = delete;
  TextSink& operator=(const TextSink&) = delete;

  // Space for `count` more bytes at the cursor; Advance says how many were
  // written. Throws std::bad_alloc.
  char* Room(size_t count) {
    if (output_->size() - used_ < count) Grow(count);
    return output_->data() + used_;
  }
  void Advance(size_t count) { used_ += count; }
  // Bytes written so far; Rewind drops those after a mark taken from it.
  size_t used() const { return used_; }
  void Rewind(size_t mark) { used_ = mark; }

  void Put(char c) {
    *Room(1) = c;
    ++used_;
  }
  void Put(std::string_view text) {
    std::memcpy(Room(text.size()), text.data(), text.size());
    used_ += text.size();
  }
  void Fill(size_t count, char c) {
    std::memset(Room(count), c, count);
    used_ += count;
  }
  // Indentation: up to kSpaceRun spaces are stored as one fixed-size copy,
  // which compiles to a few vector stores where a counted fill is a call.
  void Spaces(size_t count) {
    if (count > kSpaceRun) return Fill(count, ' ');
    static constexpr char kRun[kSpaceRun + 1] = "                                                                ";
    std::memcpy(Room(kSpaceRun), kRun, kSpaceRun);
    used_ += count;
  }
  // A piece of at most `Max` bytes whose source may be read for `Max` bytes.
  template <size_t Max>
  void PutPadded(const char* padded, size_t count) {
    std::memcpy(Room(Max), padded, Max);
    used_ += count;
  }

 private:
  static constexpr size_t kFirstSize = 64 * 1024;
  static constexpr size_t kSpaceRun = 64;

  // Room the caller reserved is taken whole, so that an output reserved at
  // its final size is grown (and zero-filled) once and never copied.
  void Grow(size_t count) {
    output_->resize(std::max({output_->size() * 2, used_ + count, kFirstSize, output_->capacity()}));
  }

  std::string* output_;
  size_t used_;  // bytes of *output_ written; the rest is room
};

}  // namespace propmap::xml
