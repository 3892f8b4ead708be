// The file layer on real files: operations on short names and on names past
// the path limit, and the walk of long names.
#include <sys/stat.h>

#include <string>

#include <gtest/gtest.h>

#include "persistence/file_system.h"
#include "system_call_faults.h"
#include "temp_dir.h"

namespace propmap::testing {
namespace {

using prhost::DeepDirectory;
using prhost::TempDir;

// Files by name in one directory, short or past the path limit.
TEST(FileSystemTest, OperationsOnExistingNames) {
  for (bool deep : {false, true}) {
    SCOPED_TRACE(deep);
    TempDir temp;
    DeepDirectory dir(temp.path(), deep ? 5000 : 0);
    auto at = [&](const char* name) { return dir.path() + "/" + name; };
    ASSERT_GT(at("a").size(), deep ? 5000u : 0u);
    ASSERT_TRUE(dir.Write("a", "first"));
    ASSERT_TRUE(dir.Write("b", "second, longer"));
    struct stat st;

    EXPECT_EQ(FileStatus(at("a").c_str(), &st), ResultOk);
    EXPECT_EQ(st.st_size, 5);
    EXPECT_EQ(FileStatus(at("missing").c_str(), &st), ErrFsNoEntry);
    EXPECT_EQ(CompareFiles(at("a").c_str(), at("a").c_str()), ResultOk);
    EXPECT_EQ(CompareFiles(at("a").c_str(), at("b").c_str()), ResultDone);
    EXPECT_EQ(CompareFiles(at("missing").c_str(), at("b").c_str()), ErrFsNoEntry);
    EXPECT_EQ(MoveFile(at("a").c_str(), at("a").c_str()), ResultOk);
    EXPECT_EQ(dir.Read("a"), "first");
    EXPECT_EQ(MoveFile(at("missing").c_str(), at("a").c_str()), ErrFsNotDirectory);
    EXPECT_EQ(MoveFile(at("a").c_str(), at("b").c_str()), ResultOk) << "replaces a different file";
    EXPECT_EQ(dir.Read("b"), "first");
    EXPECT_EQ(dir.Read("a"), std::nullopt);
    EXPECT_EQ(MoveFile(at("b").c_str(), at("c").c_str()), ResultOk);
    EXPECT_EQ(dir.Read("c"), "first");
    EXPECT_EQ(ChangeMode(at("c").c_str(), 0604), ResultOk);
    EXPECT_EQ(FileStatus(at("c").c_str(), &st), ResultOk);
    EXPECT_EQ(st.st_mode & 07777, 0604u);
    EXPECT_EQ(RemoveFile(at("c").c_str()), ResultOk);
    EXPECT_EQ(RemoveFile(at("c").c_str()), ErrFsNoEntry);
  }
}

TEST(FileSystemTest, LongPathsThatCannotBeWalked) {
  TempDir temp;
  ASSERT_TRUE(prhost::WriteWholeFile(temp.Join("file"), "x"));
  struct Row {
    const char* label;
    std::string path;
    tERROR code;
  } rows[] = {
      {"no '/' in the first 4096 bytes", std::string(5000, 'n'), ErrFsNoEntry},
      {"no '/' in a later piece", temp.path() + "/" + std::string(5000, 'n'), ErrFsNoEntry},
      {"a piece that is a file", temp.Join("file") + "/" + std::string(3000, 'n') + "/" + std::string(3000, 'n') + "/x", ErrFsNotDirectory},
      {"a piece that is missing", temp.Join("none") + "/" + std::string(3000, 'n') + "/" + std::string(3000, 'n') + "/x", ErrFsNoEntry},
  };
  for (const Row& row : rows) {
    SCOPED_TRACE(row.label);
    struct stat st;
    const int descriptors = OpenDescriptors();
    SystemCallFaults faults;
    EXPECT_EQ(FileStatus(row.path.c_str(), &st), row.code);
    EXPECT_EQ(RemoveFile(row.path.c_str()), row.code);
    EXPECT_EQ(faults.calls(SysCall::kFstatat), 0u);
    EXPECT_EQ(faults.calls(SysCall::kUnlinkat), 0u);
    EXPECT_EQ(OpenDescriptors(), descriptors);
  }
}

// Names past the path limit are walked a directory at a time; a doubled
// separator that falls on a cut stays a separator, never an absolute name
// that escapes the walked directory.
TEST(FileSystemTest, ADoubledSeparatorAtTheCutStaysInside) {
  TempDir temp;
  // A first directory sized so that the chain below it ends at exactly 4095
  // bytes: "//" then puts its second '/' first in the walk's next piece.
  const std::string pad = temp.Join(std::string(1 + (4094 - temp.path().size() - 1) % 201, 'p'));
  ASSERT_EQ(::mkdir(pad.c_str(), 0700), 0);
  DeepDirectory dir(pad, 4095);
  ASSERT_EQ(dir.path().size(), 4095u);
  ASSERT_TRUE(dir.Write("victim", ""));
  struct stat st;
  EXPECT_EQ(FileStatus((dir.path() + "//victim").c_str(), &st), ResultOk);
  EXPECT_EQ(RemoveFile((dir.path() + "//victim").c_str()), ResultOk);
  EXPECT_EQ(dir.Read("victim"), std::nullopt);
}

}  // namespace
}  // namespace propmap::testing
