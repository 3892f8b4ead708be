// Names longer than the system's path limit are walked a directory at a
// time; a doubled separator that falls on a cut must stay a separator, never
// become an absolute name that escapes the walked directory.
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <string>

#include <gtest/gtest.h>

#include "persistence/file_system.h"
#include "temp_dir.h"

namespace propmap::testing {
namespace {

TEST(LongPathTest, ADoubledSeparatorAtTheCutStaysInside) {
  prhost::TempDir dir;
  // Directories whose path is exactly 4095 bytes, so that "//" puts its
  // second '/' first in the walk's next piece.
  std::string deep = dir.path();
  int fd = ::open(deep.c_str(), O_RDONLY | O_DIRECTORY);
  for (size_t room = 4095 - deep.size(); room > 0;) {
    size_t length = std::min<size_t>(200, room - 1);
    if (room - (length + 1) == 1) --length;  // never leave a lone '/'
    const std::string name(length, 'd');
    ASSERT_EQ(::mkdirat(fd, name.c_str(), 0700), 0);
    const int next = ::openat(fd, name.c_str(), O_RDONLY | O_DIRECTORY);
    ::close(fd);
    fd = next;
    deep += "/" + name;
    room -= length + 1;
  }
  ASSERT_EQ(deep.size(), 4095u);
  ASSERT_EQ(::close(::openat(fd, "victim", O_CREAT | O_WRONLY, 0600)), 0);
  ::close(fd);
  struct stat status;
  EXPECT_EQ(FileStatus((deep + "//victim").c_str(), &status), ResultOk);
  EXPECT_EQ(RemoveFile((deep + "//victim").c_str()), ResultOk);
  EXPECT_EQ(FileStatus((deep + "/victim").c_str(), &status), ErrFsNoEntry);
}

}  // namespace
}  // namespace propmap::testing
