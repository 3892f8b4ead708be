#include "support/number_format.h"

#include <charconv>
#include <cmath>
#include <cstdio>
#include <cstdlib>

namespace propmap {

namespace {

// Integers always fit; a double that does not is reported, never cut (a cut
// text would be stored back as a different number).
uint32_t Finish(char* buffer, std::to_chars_result result, bool* fits) {
  if (result.ec != std::errc() || result.ptr >= buffer + NumberText::kCapacity) {
    *fits = false;
    buffer[0] = '\0';
    return 0;
  }
  *result.ptr = '\0';
  return static_cast<uint32_t>(result.ptr - buffer);
}

}  // namespace

NumberText::NumberText(Unsigned, uint64_t value)
    : length_(Finish(buffer_, std::to_chars(buffer_, buffer_ + kCapacity - 1, value), &fits_)) {}

NumberText::NumberText(Signed, int64_t value)
    : length_(Finish(buffer_, std::to_chars(buffer_, buffer_ + kCapacity - 1, value), &fits_)) {}

// to_chars with a precision rounds exactly as printf does; only infinities
// and NaNs, whose spelling printf decides, go through it.
NumberText::NumberText(Fixed6, double value) {
  if (!std::isfinite(value)) {
    const int written = std::snprintf(buffer_, kCapacity, "%lf", value);
    length_ = written < 0 ? 0 : static_cast<uint32_t>(written);
    return;
  }
  length_ = Finish(buffer_, std::to_chars(buffer_, buffer_ + kCapacity - 1, value, std::chars_format::fixed, 6),
                   &fits_);
}

}  // namespace propmap
