// The host's validation of a registration: starting from what the real
// module registered, each breach of the contract is caught with a clear
// message.
#include <functional>

#include "host_fixture.h"

namespace prhost::testing {
namespace {

using RegistrationValidationTest = HostTest;

TEST_F(RegistrationValidationTest, EachBreachOfTheRegistrationContractIsNamed) {
  const std::pair<std::function<void(Registration&)>, const char*> breaches[] = {
      {[](Registration& r) { r.iid = 0xA7FC; }, "interface id is 0xA7FC, expected 0xA7FB"},
      {[](Registration& r) { r.internal_count = 11; }, "internal slot count is 0xB, expected 0xC"},
      {[](Registration& r) { r.method_count = 22; }, "method count"},
      {[](Registration& r) { r.method_list = nullptr; }, "no method list"},
      {[](Registration& r) { r.object_size = 100; }, "object size 100"},
      {[](Registration& r) { r.internal[3] = nullptr; }, "internal slot 3 is empty"},
      {[](Registration& r) { r.internal[2] = r.internal[1]; }, "internal slot 2 is not empty"},
      {[](Registration& r) { r.methods[7] = 56; }, "method 7 encoded as 56, expected 57"},
      {[](Registration& r) { r.property_records[12].value_or_position = r.object_size; }, "property 12"},
      {[](Registration& r) { r.property_records[2].size = 3; }, "field of 3 bytes"},
      {[](Registration& r) { r.property_records[9].setter = 0; }, "without getter or setter"},
      {[](Registration& r) { r.property_records[4].flags = 2; }, "unknown flags 2"},
      {[](Registration& r) { r.property_records[1].value_or_position = 0; }, "constant data without a pointer"},
      {[](Registration& r) { r.property_records[3].id = r.property_records[2].id; }, "registered twice"},
  };
  ASSERT_EQ(Validate(module()->registration()), "");
  for (const auto& [apply, message] : breaches) {
    Registration reg = module()->registration();
    apply(reg);
    const std::string error = Validate(reg);
    EXPECT_NE(error.find(message), std::string::npos) << error;
    EXPECT_EQ(error.rfind("registration: ", 0), 0u) << error;
  }
}

}  // namespace
}  // namespace prhost::testing
