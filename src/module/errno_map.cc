#include <cerrno>

#include "module/result_codes.h"

namespace propmap {

tERROR ResultFromErrno(uint32_t error_number) {
  switch (error_number) {
    case 0: return ResultOk;
    case EPERM:
    case EACCES: return ErrAccessDenied;
    case ENOENT: return ErrFsNoEntry;
    case EIO: return ErrIo;
    case ENOEXEC: return ErrFsNoExec;
    case EBADF: return ErrFsBadDescriptor;
    case ENOMEM: return ErrNoMemory;
    case EBUSY:
    case ETXTBSY: return ErrBusy;
    case EEXIST: return ErrFsExists;
    case ENOTDIR: return ErrFsNotDirectory;
    case EINVAL: return ErrBadParameter;
    case EFBIG: return ErrFileTooBig;
    case ENOSPC: return ErrNoSpace;
    case ENAMETOOLONG: return ErrNameTooLong;
    case ELOOP: return ErrLinkLoop;
    case EOVERFLOW: return ErrBufferTooSmall;
    default: break;
  }
  if (error_number > 65535) return ErrFsErrnoTooLarge;
  return Code(error_number | kSystemErrorBase);
}

}  // namespace propmap
