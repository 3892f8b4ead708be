// Value_Base<T>: the storage of one native type and its native bytes
// (GetData/SetData), the first layer of every value class.
//
// Fixed-size kinds keep their content inside the object and never touch the
// heap. The owning kinds (char*, wchar_t*, void*) hold at most one buffer from
// their owner's heap, replace it on every successful set and free it in the
// destructor; they cannot be copied. Objects themselves are placed in host
// memory by the factory (value_factory.cc).
//
// Thread-safety: none of its own; the store lock covers every call.
#pragma once

#include <cstdint>
#include <cstring>
#include <type_traits>

#include "module/obj_services.h"
#include "values/value.h"
#include "values/value_output.h"

namespace propmap {

// The last step of a string set: a fresh `copy` replaces the stored string,
// unless the two are `equal`, in which case the copy goes back to the owner
// and the set reports ValueUnchanged. An unset string never compares equal.
template <typename CharT, typename Equal>
[[nodiscard]] tERROR KeepNewString(iObj* owner, CharT*& stored, CharT* copy, Equal equal) {
  if (stored != nullptr && equal(stored, copy)) {
    HeapFree(owner, copy);
    return ValueUnchanged;
  }
  HeapFree(owner, stored);
  stored = copy;
  return ResultOk;
}

// The stored form of T: itself, except that a boolean is exchanged as a
// 32-bit word holding any value.
template <typename T>
struct NativeStorage {
  using type = T;
};
template <>
struct NativeStorage<bool> {
  using type = uint32_t;
};

// Numbers, characters, the boolean word, the 8-byte date, the code address
// and the double: content of a fixed size, compared byte for byte.
template <typename T>
class Value_Base : public iValue {
 public:
  using Storage = typename NativeStorage<T>::type;
  static constexpr uint32_t kSize = sizeof(Storage);
  static_assert(std::is_trivially_copyable_v<Storage> && (kSize == 1 || kSize == 2 || kSize == 4 || kSize == 8));

  explicit Value_Base(iObj* /*owner*/) {
    // The boolean word stays as allocated: every creator sets it at once.
    if constexpr (!std::is_same_v<T, bool>) std::memset(&value_, 0, kSize);
  }

  [[nodiscard]] tERROR GetData(void* buffer, uint32_t size, uint32_t* needed) const override {
    return CopyOut(&value_, kSize, buffer, size, needed);
  }
  [[nodiscard]] tERROR SetData(const void* buffer, uint32_t size) override {
    if (buffer == nullptr || size < kSize) return ErrBadParameter;
    // Bytes, not values: a double NaN equals itself, 0.0 differs from -0.0.
    if (std::memcmp(&value_, buffer, kSize) == 0) return ValueUnchanged;
    std::memcpy(&value_, buffer, kSize);
    return ResultOk;
  }

 protected:
  Storage value_;
};

// tVOID: no content at all.
template <>
class Value_Base<void> : public iValue {
 public:
  explicit Value_Base(iObj* /*owner*/) {}
  // Reports 0 and succeeds whatever the buffer.
  [[nodiscard]] tERROR GetData(void* buffer, uint32_t size, uint32_t* needed) const override;
  [[nodiscard]] tERROR SetData(const void* buffer, uint32_t size) override;
};

// tSTRING: an owned, NUL-terminated copy.
template <>
class Value_Base<char*> : public iValue {
 public:
  explicit Value_Base(iObj* owner) : owner_(owner) {}
  ~Value_Base() override;
  Value_Base(const Value_Base&) = delete;
  Value_Base& operator=(const Value_Base&) = delete;

  // Length + 1 bytes with the NUL; 0 when unset or empty.
  [[nodiscard]] tERROR GetData(void* buffer, uint32_t size, uint32_t* needed) const override;
  // Copies `size` bytes and a NUL; ValueUnchanged when equal to a stored string.
  [[nodiscard]] tERROR SetData(const void* buffer, uint32_t size) override;

  // The stored string, null when unset; for comparisons that need not measure it.
  [[nodiscard]] const char* chars() const { return data_; }

 protected:
  char* data_ = nullptr;  // owned, from owner_; null until the first set
  iObj* owner_;
};

// tWSTRING: an owned string of 32-bit units ended by a zero unit. The buffer
// is padded to whole units, so that a byte count that is no multiple of 4
// still reads as complete, zero-terminated units.
template <>
class Value_Base<wchar_t*> : public iValue {
 public:
  explicit Value_Base(iObj* owner) : owner_(owner) {}
  ~Value_Base() override;
  Value_Base(const Value_Base&) = delete;
  Value_Base& operator=(const Value_Base&) = delete;

  // 4 x (length + 1) bytes with the zero unit; 0 when unset or empty.
  [[nodiscard]] tERROR GetData(void* buffer, uint32_t size, uint32_t* needed) const override;
  // `size` is a byte count; ValueUnchanged when equal to a stored string.
  [[nodiscard]] tERROR SetData(const void* buffer, uint32_t size) override;

 protected:
  wchar_t* data_ = nullptr;  // owned, from owner_; null until the first set
  iObj* owner_;
};

// tPTR and tBINARY: an owned byte block. Sets never report ValueUnchanged,
// so that every block write marks the store as changed.
template <>
class Value_Base<void*> : public iValue {
 public:
  explicit Value_Base(iObj* owner) : owner_(owner) {}
  ~Value_Base() override;
  Value_Base(const Value_Base&) = delete;
  Value_Base& operator=(const Value_Base&) = delete;

  [[nodiscard]] tERROR GetData(void* buffer, uint32_t size, uint32_t* needed) const override;
  // Size 0 empties the block (null, length 0).
  [[nodiscard]] tERROR SetData(const void* buffer, uint32_t size) override;

 protected:
  // Frees the current block and keeps `block` (owned, may be null).
  void Replace(void* block, uint32_t length);

  void* data_ = nullptr;  // owned, from owner_; null when empty
  uint32_t length_ = 0;
  iObj* owner_;
};

}  // namespace propmap
