// A memory-backed host stream: the source object a store reads its profile
// from and saves it to when its name is empty.
//
// The object's first word is its table of operations (SeekRead, SeekWrite,
// GetSize, Flush at slots 0, 1, 2, 4), so `object()` can be set as the
// store's source-object property. Writes land at the given position and
// extend the content; they never truncate. Failures and short transfers can
// be injected per operation.
//
// Thread-safety: every member takes the stream's mutex, so the module may call
// it from several threads; the stream must outlive every store that holds it.
#pragma once

#include <cstdint>
#include <mutex>
#include <string>

#include "abi.h"

namespace prhost {

class MemoryStream {
 public:
  explicit MemoryStream(std::string content = {});
  MemoryStream(const MemoryStream&) = delete;
  MemoryStream& operator=(const MemoryStream&) = delete;

  // The address to hand to the module (property prop::kSourceObject).
  void* object() { return &object_; }

  [[nodiscard]] std::string content() const;
  void set_content(std::string content);

  // Injected behaviour; a code of 0 means the operation succeeds.
  void FailReads(tERROR code);
  void FailWrites(tERROR code);
  void FailGetSize(tERROR code);
  void FailFlush(tERROR code);
  // Cap each transfer at this many bytes (a short read or write that still
  // succeeds). UINT32_MAX removes the cap.
  void LimitReads(uint32_t max_bytes);
  void LimitWrites(uint32_t max_bytes);

  struct Calls {
    uint32_t reads = 0;
    uint32_t writes = 0;
    uint32_t get_sizes = 0;
    uint32_t flushes = 0;
  };
  [[nodiscard]] Calls calls() const;

 private:
  struct Object {
    void* const* table;
    MemoryStream* owner;
  };
  static MemoryStream* From(void* self);
  static tERROR SeekRead(void* self, uint32_t* count, uint64_t position, void* buffer, uint32_t size);
  static tERROR SeekWrite(void* self, uint32_t* count, uint64_t position, const void* buffer, uint32_t size);
  static tERROR GetSize(void* self, uint64_t* size, uint32_t type);
  static tERROR Flush(void* self);
  static void* const* Table();

  Object object_;
  mutable std::mutex mu_;
  std::string content_;            // Protected by mu_
  tERROR read_error_ = kOk;        // Protected by mu_
  tERROR write_error_ = kOk;       // Protected by mu_
  tERROR size_error_ = kOk;        // Protected by mu_
  tERROR flush_error_ = kOk;       // Protected by mu_
  uint32_t read_limit_ = UINT32_MAX;   // Protected by mu_
  uint32_t write_limit_ = UINT32_MAX;  // Protected by mu_
  Calls calls_;                    // Protected by mu_
};

}  // namespace prhost
