// Value<T, N>: the concrete value classes, one per type identifier that the
// store can hold. A class only fixes the identifier it reports; identifiers
// that share T share every conversion.
//
// Construct only through CreateValue (value.h), which places the object in
// the owner's heap; release only through DestroyValue.
//
// Thread-safety: none of its own; the store lock covers every call.
#pragma once

#include "values/value_text.h"

namespace propmap {

template <typename T, tag_TYPE_ID N>
class Value final : public StringValue_Base<T> {
 public:
  explicit Value(iObj* owner) : StringValue_Base<T>(owner) {}
  tag_TYPE_ID GetTypeId() const override { return N; }
};

}  // namespace propmap
