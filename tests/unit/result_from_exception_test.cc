#include <gtest/gtest.h>

#include <cerrno>
#include <tuple>

#include "module/result_codes.h"
#include "support/exception.h"

namespace propmap {
namespace {

ixo::Exception With(std::initializer_list<ixo::ExceptionProperty> properties) {
  ixo::Exception e;
  for (const auto& p : properties) {
    if (p.text) {
      e.AddText(p.name, *p.text);
    } else {
      e.AddNumber(p.name, p.kind, p.number.value_or(0));
    }
  }
  return e;
}

TEST(ResultFromExceptionTest, PropertiesDecideInOrder) {
  using ixo::kPropertyOsError;
  using ixo::kPropertyResult;
  using ixo::kPropertyText;
  const std::tuple<const char*, ixo::Exception, tERROR> cases[] = {
      {"result wins over everything", With({{"os.result", kPropertyOsError, 1u, {}},
                                             {"ixo.result", kPropertyResult, 0x8000D002u, {}}}),
       ErrNotFound},
      {"result code class", ixo::ResultCodeException(ErrReadOnly), ErrReadOnly},
      {"positive result passes unchanged", With({{"ixo.result", kPropertyResult, 0xD001u, {}}}), KeyCreated},
      {"result of the wrong kind is skipped", With({{"ixo.result", kPropertyOsError, 0x8000D002u, {}}}),
       ErrUnknownException},
      {"ENOENT", With({{"os.result", kPropertyOsError, 2u, {}}}), ErrFsNoEntry},
      {"EROFS", With({{"os.result", kPropertyOsError, 30u, {}}}), Code(0x8006001E)},
      {"module result with text", With({{"os.module_result", kPropertyText, {}, std::string("boom")}}),
       ErrFsErrnoTooLarge},
      {"module result of 300 characters",
       With({{"os.module_result", kPropertyText, {}, std::string(300, 'x')}}), ErrFsErrnoTooLarge},
      {"module result empty", With({{"os.module_result", kPropertyText, {}, std::string()}}), ResultOk},
      {"none of the three", With({{"other", kPropertyResult, 5u, {}}}), ErrUnknownException},
      {"no properties at all", ixo::Exception(), ErrUnknownException},
      {"length error", ixo::LengthError("ixo::basic_string_t constructor"), ErrUnknownException},
  };
  for (const auto& [label, exception, expected] : cases) EXPECT_EQ(ResultFromException(exception), expected) << label;
}

TEST(ResultFromErrnoTest, EveryMappedNumber) {
  const std::pair<uint32_t, uint32_t> rows[] = {
      {0, 0}, {EPERM, 0x80000045}, {EACCES, 0x80000045}, {ENOENT, 0x80010102}, {EIO, 0x80000059},
      {ENOEXEC, 0x80010117}, {EBADF, 0x80010101}, {ENOMEM, 0x80000041}, {EBUSY, 0x8000004F},
      {ETXTBSY, 0x8000004F}, {EEXIST, 0x80010105}, {ENOTDIR, 0x80010103}, {EINVAL, 0x80000046},
      {EFBIG, 0x80000078}, {ENOSPC, 0x80000062}, {ENAMETOOLONG, 0x8000005C}, {ELOOP, 0x8000006A},
      {EOVERFLOW, 0x80000044}, {EROFS, 0x8006001E}, {EINTR, 0x80060004}, {65535, 0x8006FFFF},
      {65536, 0x80010100}, {0xFFFFFFFE, 0x80010100},
  };
  for (auto [number, code] : rows) EXPECT_EQ(static_cast<uint32_t>(ResultFromErrno(number)), code) << number;
}

}  // namespace
}  // namespace propmap
