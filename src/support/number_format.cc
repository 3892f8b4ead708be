#include "support/number_format.h"

#include <cstdarg>
#include <cstdio>
#include <cstdlib>

namespace propmap {

NumberText::NumberText(const char* format, ...) {
  va_list args;
  va_start(args, format);
  const int written = std::vsnprintf(buffer_, kCapacity, format, args);
  va_end(args);
  // A cut number would be stored back as a different number; the buffer size
  // is part of the text contract, so overrunning it is a fatal error.
  if (written < 0 || static_cast<size_t>(written) >= kCapacity) std::abort();
  length_ = static_cast<uint32_t>(written);
}

}  // namespace propmap
