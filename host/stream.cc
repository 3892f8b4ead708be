#include "stream.h"

#include <algorithm>
#include <array>
#include <cstring>

namespace prhost {

MemoryStream::MemoryStream(std::string content) : object_{Table(), this}, content_(std::move(content)) {}

std::string MemoryStream::content() const {
  std::lock_guard lock(mu_);
  return content_;
}

void MemoryStream::set_content(std::string content) {
  std::lock_guard lock(mu_);
  content_ = std::move(content);
}

void MemoryStream::FailReads(tERROR code) {
  std::lock_guard lock(mu_);
  read_error_ = code;
}

void MemoryStream::FailWrites(tERROR code) {
  std::lock_guard lock(mu_);
  write_error_ = code;
}

void MemoryStream::FailGetSize(tERROR code) {
  std::lock_guard lock(mu_);
  size_error_ = code;
}

void MemoryStream::FailFlush(tERROR code) {
  std::lock_guard lock(mu_);
  flush_error_ = code;
}

void MemoryStream::LimitReads(uint32_t max_bytes) {
  std::lock_guard lock(mu_);
  read_limit_ = max_bytes;
}

void MemoryStream::LimitWrites(uint32_t max_bytes) {
  std::lock_guard lock(mu_);
  write_limit_ = max_bytes;
}

MemoryStream::Calls MemoryStream::calls() const {
  std::lock_guard lock(mu_);
  return calls_;
}

MemoryStream* MemoryStream::From(void* self) { return static_cast<Object*>(self)->owner; }

tERROR MemoryStream::SeekRead(void* self, uint32_t* count, uint64_t position, void* buffer, uint32_t size) {
  MemoryStream* s = From(self);
  std::lock_guard lock(s->mu_);
  ++s->calls_.reads;
  if (count != nullptr) *count = 0;
  if (Failed(s->read_error_)) return s->read_error_;
  if (buffer == nullptr && size != 0) return kErrBadParameter;
  uint64_t available = position < s->content_.size() ? s->content_.size() - position : 0;
  uint32_t n = static_cast<uint32_t>(std::min<uint64_t>({available, size, s->read_limit_}));
  if (n != 0) std::memcpy(buffer, s->content_.data() + position, n);
  if (count != nullptr) *count = n;
  return kOk;
}

tERROR MemoryStream::SeekWrite(void* self, uint32_t* count, uint64_t position, const void* buffer,
                               uint32_t size) {
  MemoryStream* s = From(self);
  std::lock_guard lock(s->mu_);
  ++s->calls_.writes;
  if (count != nullptr) *count = 0;
  if (Failed(s->write_error_)) return s->write_error_;
  if (buffer == nullptr && size != 0) return kErrBadParameter;
  uint32_t n = std::min(size, s->write_limit_);
  if (position + n > s->content_.size()) s->content_.resize(position + n, '\0');
  if (n != 0) std::memcpy(s->content_.data() + position, buffer, n);
  if (count != nullptr) *count = n;
  return kOk;
}

tERROR MemoryStream::GetSize(void* self, uint64_t* size, uint32_t /*type*/) {
  MemoryStream* s = From(self);
  std::lock_guard lock(s->mu_);
  ++s->calls_.get_sizes;
  if (Failed(s->size_error_)) return s->size_error_;
  if (size != nullptr) *size = s->content_.size();
  return kOk;
}

tERROR MemoryStream::Flush(void* self) {
  MemoryStream* s = From(self);
  std::lock_guard lock(s->mu_);
  ++s->calls_.flushes;
  return s->flush_error_;
}

namespace {
tERROR StreamUnimplemented(void*, ...) { return kErrNotImplemented; }
}  // namespace

void* const* MemoryStream::Table() {
  static const std::array<void*, kStreamSlots> table = [] {
    std::array<void*, kStreamSlots> t{};
    t.fill(reinterpret_cast<void*>(&StreamUnimplemented));
    t[kStreamSeekRead] = reinterpret_cast<void*>(&MemoryStream::SeekRead);
    t[kStreamSeekWrite] = reinterpret_cast<void*>(&MemoryStream::SeekWrite);
    t[kStreamGetSize] = reinterpret_cast<void*>(&MemoryStream::GetSize);
    t[kStreamFlush] = reinterpret_cast<void*>(&MemoryStream::Flush);
    return t;
  }();
  return table.data();
}

}  // namespace prhost
