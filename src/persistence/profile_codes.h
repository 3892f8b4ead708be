// Translations between the file layer's codes and the codes a load or save
// reports. Pure functions; they exist apart so that every row can be tested.
#pragma once

#include "module/result_codes.h"

namespace propmap {

// A reader result as the file layer would have given it: ErrAlreadyExists
// as ErrFsExists, ErrFileNotFound and ErrNotFound as ErrNoEntry (so that
// the load treats them as a missing profile), ErrNotImplemented as
// ErrNotReady, 3 as 1, and 1 and 2 as 0.
[[nodiscard]] tERROR FileCodeFromImport(tERROR code);

// True for the codes that make a load treat its profile as missing.
[[nodiscard]] bool MeansMissingProfile(tERROR code);

// A file-layer code as loads and saves report it: ErrFsExists as
// ErrAlreadyExists; ErrFsNoEntry, ErrFsNotDirectory and ErrNoEntry as
// ErrFileNotFound; ErrNotReady as ErrNotImplemented; 1 as 3.
[[nodiscard]] tERROR ReportedFileCode(tERROR code);

}  // namespace propmap
