// A result code together with the value an operation produced.
//
// Thread-safety: a plain value.
#pragma once

#include "abi.h"

namespace prhost {

template <typename T>
struct Result {
  tERROR code = kOk;
  T value{};

  [[nodiscard]] bool ok() const { return Succeeded(code); }
};

}  // namespace prhost
