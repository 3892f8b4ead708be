#include "result_names.h"

#include <cstdio>
#include <iterator>

namespace prhost {
namespace {

constexpr NamedResult kNames[] = {
    {0x00000000, "ResultOk"},
    {0x00000001, "ResultDone"},
    {0x00000003, "ResultMoved"},
    {0x00000047, "ValueUnchanged"},
    {0x0000D001, "KeyCreated"},
    {Code(0x80000040), "ErrUnexpected"},
    {Code(0x80000041), "ErrNoMemory"},
    {Code(0x80000044), "ErrBufferTooSmall"},
    {Code(0x80000045), "ErrAccessDenied"},
    {Code(0x80000046), "ErrBadParameter"},
    {Code(0x8000004A), "ErrShortTransfer"},
    {Code(0x8000004B), "ErrNotApplicable"},
    {Code(0x8000004C), "ErrNoEntry"},
    {Code(0x8000004F), "ErrBusy"},
    {Code(0x80000059), "ErrIo"},
    {Code(0x8000005C), "ErrNameTooLong"},
    {Code(0x80000062), "ErrNoSpace"},
    {Code(0x8000006A), "ErrLinkLoop"},
    {Code(0x8000006B), "ErrNotReady"},
    {Code(0x80000078), "ErrFileTooBig"},
    {Code(0x800000C0), "ErrBadDocument"},
    {Code(0x800000C1), "ErrReadOnly"},
    {Code(0x800000C2), "ErrNotImplemented"},
    {Code(0x800000C5), "ErrFileNotFound"},
    {Code(0x800000D1), "ErrAlreadyExists"},
    {Code(0x80000151), "ErrUnknownException"},
    {Code(0x8000D002), "ErrNotFound"},
    {Code(0x8000D004), "ErrInvalidHandle"},
    {Code(0x80010100), "ErrFsErrnoTooLarge"},
    {Code(0x80010101), "ErrFsBadDescriptor"},
    {Code(0x80010102), "ErrFsNoEntry"},
    {Code(0x80010103), "ErrFsNotDirectory"},
    {Code(0x80010105), "ErrFsExists"},
    {Code(0x80010117), "ErrFsNoExec"},
};

}  // namespace

const NamedResult* NamedResults(size_t* count) {
  *count = std::size(kNames);
  return kNames;
}

const char* ResultName(tERROR code) {
  for (const NamedResult& n : kNames) {
    if (n.code == code) return n.name;
  }
  return nullptr;
}

std::string FormatResult(tERROR code) {
  char hex[16];
  std::snprintf(hex, sizeof hex, "0x%08X", static_cast<uint32_t>(code));
  const char* name = ResultName(code);
  if (name == nullptr) return hex;
  return std::string(name) + "(" + hex + ")";
}

}  // namespace prhost
