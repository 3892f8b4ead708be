// What a module handed over in its registration call, copied by the host.
//
// The host copies the tables as they were at the moment of the call (the
// module may rewrite them on a later registration) and keeps the pointers too,
// so tests can compare both. Validate() checks everything the host relies on
// to create stores: constants, counts, callback slots, method encoding and
// the property records.
//
// Thread-safety: plain values; no shared state.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "abi.h"

namespace prhost {

struct Registration {
  // The 14 arguments as received.
  void* host = nullptr;
  uint32_t a13 = 0;
  uint32_t iid = 0;
  uint32_t a0 = 0;
  uint32_t a1 = 0;
  uint32_t a55 = 0;
  void* const* internal_table = nullptr;
  uint32_t internal_count = 0;
  const uint64_t* method_list = nullptr;
  uint32_t method_count = 0;
  const PropertyRecord* properties = nullptr;
  uint32_t property_count = 0;
  uint32_t object_size = 0;
  uint32_t final0 = 0;

  // Copies of the tables (empty when the pointer was null or the count absurd).
  std::vector<void*> internal;
  std::vector<uint64_t> methods;
  std::vector<PropertyRecord> property_records;

  // Empty when Validate() passed; otherwise why the host refused.
  std::string error;

  // The record with this id, or null.
  [[nodiscard]] const PropertyRecord* FindProperty(uint32_t id) const;
};

// Copies the arguments and the tables they point at.
Registration CaptureRegistration(void* host, uint32_t a13, uint32_t iid, uint32_t a0, uint32_t a1, uint32_t a55,
                                 void* const* internal_table, uint32_t internal_count,
                                 const uint64_t* method_list, uint32_t method_count, const void* properties,
                                 uint32_t property_count, uint32_t object_size, uint32_t final0);

// Empty string when the registration is acceptable; else the first problem.
[[nodiscard]] std::string Validate(const Registration& reg);

// Human-readable description of the registration: arguments, internal slots,
// method list and the property table.
[[nodiscard]] std::string DescribeRegistration(const Registration& reg);

}  // namespace prhost
