// The host's validation of a registration: starting from what the real
// module registered, each breach of the contract is caught with a clear
// message.
#include <functional>

#include "host_fixture.h"

namespace prhost::testing {
namespace {

struct Breach {
  const char* name;
  std::function<void(Registration&)> apply;
  const char* message;  // a part of the expected message
};

void PrintTo(const Breach& b, std::ostream* os) { *os << b.name; }

const Breach kBreaches[] = {
    {"WrongInterface", [](Registration& r) { r.iid = 0xA7FC; }, "interface id is 0xA7FC, expected 0xA7FB"},
    {"InternalCount", [](Registration& r) { r.internal_count = 11; }, "internal slot count is 0xB, expected 0xC"},
    {"MethodCount", [](Registration& r) { r.method_count = 22; }, "method count"},
    {"NoMethodList", [](Registration& r) { r.method_list = nullptr; }, "no method list"},
    {"ObjectTooSmall", [](Registration& r) { r.object_size = 100; }, "object size 100"},
    {"MissingCallback", [](Registration& r) { r.internal[3] = nullptr; }, "internal slot 3 is empty"},
    {"ExtraCallback", [](Registration& r) { r.internal[2] = r.internal[1]; }, "internal slot 2 is not empty"},
    {"MethodEncoding", [](Registration& r) { r.methods[7] = 56; }, "method 7 encoded as 56, expected 57"},
    {"FieldOutsideObject",
     [](Registration& r) { r.property_records[12].value_or_position = r.object_size; }, "property 12"},
    {"FieldWidth", [](Registration& r) { r.property_records[2].size = 3; }, "field of 3 bytes"},
    {"AccessorWithoutSetter", [](Registration& r) { r.property_records[9].setter = 0; }, "without getter or setter"},
    {"UnknownFlags", [](Registration& r) { r.property_records[4].flags = 2; }, "unknown flags 2"},
    {"ConstantDataWithoutPointer", [](Registration& r) { r.property_records[1].value_or_position = 0; },
     "constant data without a pointer"},
    {"DuplicateId", [](Registration& r) { r.property_records[3].id = r.property_records[2].id; },
     "registered twice"},
};

class RegistrationValidationTest : public HostTest, public ::testing::WithParamInterface<Breach> {};

TEST_P(RegistrationValidationTest, BreachIsNamed) {
  Registration reg = module()->registration();
  ASSERT_EQ(Validate(reg), "");
  GetParam().apply(reg);
  std::string error = Validate(reg);
  EXPECT_NE(error.find(GetParam().message), std::string::npos) << error;
  EXPECT_EQ(error.rfind("registration: ", 0), 0u) << error;
}

INSTANTIATE_TEST_SUITE_P(Breaches, RegistrationValidationTest, ::testing::ValuesIn(kBreaches),
                         [](const auto& info) { return std::string(info.param.name); });

}  // namespace
}  // namespace prhost::testing
