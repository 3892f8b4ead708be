#include "support/number_format.h"

#include <charconv>
#include <cmath>
#include <cstdio>
#include <cstdlib>

namespace propmap {

namespace {

// The buffer is part of the text contract: a text that does not fit would be
// cut and stored back as a different number, so it stops the process.
uint32_t Finish(char* buffer, std::to_chars_result result) {
  if (result.ec != std::errc() || result.ptr >= buffer + NumberText::kCapacity) std::abort();
  *result.ptr = '\0';
  return static_cast<uint32_t>(result.ptr - buffer);
}

}  // namespace

NumberText::NumberText(Unsigned, uint64_t value)
    : length_(Finish(buffer_, std::to_chars(buffer_, buffer_ + kCapacity - 1, value))) {}

NumberText::NumberText(Signed, int64_t value)
    : length_(Finish(buffer_, std::to_chars(buffer_, buffer_ + kCapacity - 1, value))) {}

// to_chars with a precision rounds exactly as printf does; only infinities
// and NaNs, whose spelling printf decides, go through it.
NumberText::NumberText(Fixed6, double value) {
  if (!std::isfinite(value)) {
    const int written = std::snprintf(buffer_, kCapacity, "%lf", value);
    if (written < 0 || static_cast<size_t>(written) >= kCapacity) std::abort();
    length_ = static_cast<uint32_t>(written);
    return;
  }
  length_ = Finish(buffer_, std::to_chars(buffer_, buffer_ + kCapacity - 1, value, std::chars_format::fixed, 6));
}

}  // namespace propmap
