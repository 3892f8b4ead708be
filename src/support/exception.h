// Exceptions of the support library and their mapping to result codes.
//
// Exceptions never cross an interface boundary: every entry point catches them
// and returns a code (ResultFromException for ixo exceptions, ErrUnexpected or
// the operation's own code for anything else). Each ixo::Exception carries a
// list of named, typed properties that say what went wrong.
//
// Thread-safety: exception objects are values; nothing is shared.
#pragma once

#include <cstdint>
#include <exception>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "module/result_codes.h"

namespace ixo {

enum PropertyKind : uint32_t {
  kPropertyText = 7,
  kPropertyResult = 20,    // unsigned 32-bit result code
  kPropertyOsError = 21,   // unsigned 32-bit errno
};

struct ExceptionProperty {
  std::string name;
  PropertyKind kind;
  std::optional<uint32_t> number;  // kinds 20 and 21
  std::optional<std::string> text; // kind 7
};

class exception : public std::exception {};

class Exception : public exception {
 public:
  explicit Exception(std::string description = "ixo::Exception") : description_(std::move(description)) {}
  const char* what() const noexcept override { return description_.c_str(); }

  // The first property of that name, or null.
  const ExceptionProperty* Find(const std::string& name) const;
  const std::vector<ExceptionProperty>& properties() const { return properties_; }

 private:
  std::string description_;
  std::vector<ExceptionProperty> properties_;
};

// Gives each concrete exception its own type while sharing Base's data.
template <typename Derived, typename Base>
class ExceptionBase : public Base {
 public:
  using Base::Base;
};

// A length beyond what an owned string can hold.
class LengthError : public ExceptionBase<LengthError, Exception> {
 public:
  using ExceptionBase::ExceptionBase;
};

}  // namespace ixo

namespace propmap {

// "ixo.result" (kind 20) as it is; else "os.result" (kind 21) through the
// errno mapping; else "os.module_result" (kind 7): 0 for empty text,
// ErrFsErrnoTooLarge otherwise; else ErrUnknownException.
[[nodiscard]] tERROR ResultFromException(const ixo::Exception& e);

}  // namespace propmap
