// The translations between reader, file-layer and reported codes, one row
// per mapping in each direction.
#include <gtest/gtest.h>

#include "persistence/profile_codes.h"

namespace propmap {
namespace {

TEST(ProfileCodesTest, ImportResultsAsFileCodes) {
  const struct {
    tERROR from, to;
  } rows[] = {{ErrAlreadyExists, ErrFsExists}, {ErrFileNotFound, ErrNoEntry}, {ErrNotFound, ErrNoEntry},
              {ErrNotImplemented, ErrNotReady}, {3, 1}, {1, 0}, {2, 0}, {0, 0}, {ErrBadDocument, ErrBadDocument}};
  for (const auto& r : rows) EXPECT_EQ(FileCodeFromImport(r.from), r.to) << std::hex << r.from;
}

TEST(ProfileCodesTest, FileCodesAsReported) {
  const struct {
    tERROR from, to;
    bool missing;
  } rows[] = {{ErrFsExists, ErrAlreadyExists, false},     {ErrFsNoEntry, ErrFileNotFound, true},
              {ErrFsNotDirectory, ErrFileNotFound, true}, {ErrNoEntry, ErrFileNotFound, true},
              {ErrNotReady, ErrNotImplemented, false},    {1, 3, false},
              {ErrBadParameter, ErrBadParameter, false},  {ErrIo, ErrIo, false}};
  for (const auto& r : rows) {
    EXPECT_EQ(ReportedFileCode(r.from), r.to) << std::hex << r.from;
    EXPECT_EQ(MeansMissingProfile(r.from), r.missing) << std::hex << r.from;
  }
}

}  // namespace
}  // namespace propmap
