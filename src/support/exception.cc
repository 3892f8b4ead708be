#include "support/exception.h"

namespace ixo {

const ExceptionProperty* Exception::Find(const std::string& name) const {
  for (const ExceptionProperty& p : properties_) {
    if (p.name == name) return &p;
  }
  return nullptr;
}

}  // namespace ixo

namespace propmap {

tERROR ResultFromException(const ixo::Exception& e) {
  const ixo::ExceptionProperty* p = e.Find("ixo.result");
  if (p != nullptr && p->kind == ixo::kPropertyResult && p->number) return Code(*p->number);

  p = e.Find("os.result");
  if (p != nullptr && p->kind == ixo::kPropertyOsError && p->number) return ResultFromErrno(*p->number);

  p = e.Find("os.module_result");
  if (p != nullptr && p->kind == ixo::kPropertyText && p->text) {
    // A module failure without an error number of its own maps as errno -2
    // taken unsigned, which lands above 65535.
    return p->text->empty() ? ResultOk : ResultFromErrno(static_cast<uint32_t>(-2));
  }
  return ErrUnknownException;
}

}  // namespace propmap
