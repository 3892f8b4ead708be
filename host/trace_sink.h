// The host's trace service: keeps every line the module writes.
//
// Each line is kept as {level, store, text}; `store` is the object the module
// wrote on behalf of (null for lines of DllMain and registration). Lines can
// also be echoed to stderr or stdout as they arrive.
//
// Thread-safety: all members may be called from any thread; one mutex guards
// the line list. Lines are returned by copy so callers never hold the lock.
#pragma once

#include <cstdarg>
#include <cstdint>
#include <cstdio>
#include <functional>
#include <iosfwd>
#include <mutex>
#include <string>
#include <vector>

#include "abi.h"

namespace prhost {

struct TraceLine {
  uint32_t level = 0;
  const void* store = nullptr;
  std::string text;
  bool well_formed = true;  // false when the format held a conversion outside the contract

  bool operator==(const TraceLine&) const = default;
};

// Prints TraceSink::Describe(line); lets test frameworks show lines readably.
std::ostream& operator<<(std::ostream& os, const TraceLine& line);

enum class TraceEcho { kNone, kStderr, kStdout };

class TraceSink {
 public:
  TraceSink() = default;
  TraceSink(const TraceSink&) = delete;
  TraceSink& operator=(const TraceSink&) = delete;

  // Formats and keeps one line; returns 0 (the module ignores the result).
  tERROR Write(const void* store, uint32_t level, const char* format, va_list args);

  void set_echo(TraceEcho echo);
  // Lines above this level are dropped unformatted (set before any line).
  void set_level_limit(uint32_t limit) { level_limit_ = limit; }
  // Called with each line after it is kept, outside the sink's lock, on the
  // module's thread: a host callback that may call back into the store.
  void set_observer(std::function<void(const TraceLine&)> observer);

  [[nodiscard]] std::vector<TraceLine> Lines() const;
  // Lines written on behalf of one store (null: the module-level lines).
  [[nodiscard]] std::vector<TraceLine> LinesFor(const void* store) const;
  // Texts only, in order, for one store.
  [[nodiscard]] std::vector<std::string> TextsFor(const void* store) const;
  [[nodiscard]] size_t size() const;
  // Number of lines whose format the host could not consume.
  [[nodiscard]] size_t malformed() const;
  // Returns the kept lines and forgets them.
  std::vector<TraceLine> Take();
  void Clear();

  // "[600 store=0x...] text" as printed by the echo.
  [[nodiscard]] static std::string Describe(const TraceLine& line);

 private:
  mutable std::mutex mu_;
  std::vector<TraceLine> lines_;  // Protected by mu_
  TraceEcho echo_ = TraceEcho::kNone;  // Protected by mu_
  uint32_t level_limit_ = UINT32_MAX;  // Fixed before the module writes
  std::function<void(const TraceLine&)> observer_;  // Protected by mu_
};

}  // namespace prhost
