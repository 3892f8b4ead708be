#include "persistence/profile_codes.h"

namespace propmap {

tERROR FileCodeFromImport(tERROR code) {
  switch (code) {
    case ErrAlreadyExists: return ErrFsExists;
    case ErrFileNotFound:
    case ErrNotFound: return ErrNoEntry;
    case ErrNotImplemented: return ErrNotReady;
    case ResultMoved: return ResultDone;
    case 1:
    case 2: return ResultOk;
    default: return code;
  }
}

bool MeansMissingProfile(tERROR code) {
  return code == ErrFsNoEntry || code == ErrFsNotDirectory || code == ErrNoEntry;
}

tERROR ReportedFileCode(tERROR code) {
  switch (code) {
    case ErrFsExists: return ErrAlreadyExists;
    case ErrFsNoEntry:
    case ErrFsNotDirectory:
    case ErrNoEntry: return ErrFileNotFound;
    case ErrNotReady: return ErrNotImplemented;
    case ResultDone: return ResultMoved;
    default: return code;
  }
}

}  // namespace propmap
