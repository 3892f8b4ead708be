// Every system call of a load and of a Flush (in each backup mode, under the
// default name and another) failed in turn through the seam, once and from
// then on, with EIO, ENOSPC, EACCES and a short transfer: the result is the
// mapped code or success, a failure leaves the store dirty with its line,
// descriptors and heap blocks are all returned, every profile file left holds
// one complete generation, and no file is left but the profile, its backups
// and, after a failed save, its temporary file. The persistent mode leaves
// the files as a crash at that call would. A save that meets no fault syncs
// its text before the rename that publishes it.
#include <pthread.h>

#include <algorithm>
#include <cstdio>
#include <filesystem>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "generations.h"
#include "system_call_faults.h"
#include "temp_dir.h"
#include "unit_store.h"

namespace propmap::testing {
namespace {

using prhost::Registry;
using prhost::testing::GenerationBlock;
using prhost::testing::GenerationOf;
using prhost::testing::SetGeneration;

// A profile at `path` holding generation `n`.
void SaveGeneration(const std::string& path, uint32_t n) {
  UnitStore s({.name = path, .loader_flags = 2});
  ASSERT_EQ(SetGeneration(Registry(s.store()), n), ResultOk);
  ASSERT_EQ(s.Flush(), ResultOk);
}

// The generation of the profile at `path`, loaded whole; 0 when it does not load.
uint32_t GenerationIn(const std::string& path) {
  UnitStore s({.name = path});
  return s.init_result() == ResultOk ? GenerationOf(Registry(s.store())) : 0;
}

const struct {
  int error;
  tERROR code;
} kErrors[] = {{EIO, ErrIo}, {ENOSPC, ErrNoSpace}, {EACCES, ErrAccessDenied},
               {SystemCallFaults::kShortTransfer, ErrShortTransfer}};

// Names in `dir` other than the profile and its backups.
std::vector<std::string> StrayFiles(const std::string& dir, const std::string& name) {
  std::vector<std::string> stray;
  for (const auto& e : std::filesystem::directory_iterator(dir)) {
    const std::string n = e.path().filename().string();
    if (n != name && n != name + ".bak" && n != name + ".bak2") stray.push_back(n);
  }
  return stray;
}

TEST(ProfileFaultsTest, FlushUnderEveryFailingCall) {
  TraceCapture trace;
  char thread[16];
  std::snprintf(thread, sizeof thread, ".tmp%x", static_cast<unsigned>(pthread_self()));
  // Save configurations: the default name always keeps a rolling backup.
  const std::pair<uint8_t, std::string> saves[] = {{0, "profiles.xml"}, {0, "other.xml"}, {1, "other.xml"}, {2, "other.xml"}};
  unsigned injected_faults = 0;
  for (const auto& e : kErrors) {
    for (bool persistent : {false, true}) {
      for (const auto& [mode, name] : saves) {
        for (unsigned n = 1;; ++n) {
          SCOPED_TRACE("call " + std::to_string(n) + " errno " + std::to_string(e.error) +
                       (persistent ? " persistent" : " once") + " mode " + std::to_string(mode) + " " + name);
          prhost::TempDir dir;
          const std::string p = dir.Join(name);
          SaveGeneration(p, 1);
          const int descriptors = OpenDescriptors();
          tERROR result;
          bool dirty;
          unsigned failed;
          {
            UnitStore s({.name = p, .backup_mode = mode});
            ASSERT_EQ(SetGeneration(Registry(s.store()), 2), ResultOk);
            TraceCapture::Lines().clear();
            SystemCallFaults faults;
            std::vector<SysCall> calls;
            faults.SetHook([&](SysCall c) { calls.push_back(c); });
            faults.FailNth(n, e.error, persistent);
            result = s.Flush();
            if (faults.failed() == 0) {
              const auto publish = std::find(calls.rbegin(), calls.rend(), SysCall::kRenameat);
              EXPECT_NE(std::find(publish, calls.rend(), SysCall::kFsync), calls.rend()) << "no sync before the rename";
            }
            failed = faults.failed();
            dirty = s.dirty();
          }
          injected_faults += failed > 0;
          EXPECT_EQ(OpenDescriptors(), descriptors);
          // A status read that fails inside the final move's comparison
          // surfaces as the rename's refusal instead of the errno.
          EXPECT_TRUE(result == ResultOk || result == e.code || result == ErrAlreadyExists || result == ErrFileNotFound)
              << std::hex << result;
          EXPECT_EQ(dirty, Failed(result));
          if (Failed(result)) {  // a failure is traced with its code
            char code[16];
            std::snprintf(code, sizeof code, "%08X", static_cast<unsigned>(result));
            const auto& lines = TraceCapture::Lines();
            EXPECT_TRUE(std::any_of(lines.begin(), lines.end(), [&](auto& l) { return l.text.find(code) != std::string::npos; }));
          }
          // The profile never stops naming a whole generation.
          ASSERT_TRUE(prhost::FileExists(p));
          const uint32_t gen = GenerationIn(p);
          EXPECT_TRUE(gen == 2 || (gen == 1 && Failed(result))) << gen;
          // A failed save may leave its temporary file, and its parking link
          // when even the removal failed.
          for (const std::string& file : StrayFiles(dir.path(), name)) {
            EXPECT_TRUE(file == name + ".bak2" + (thread + 4) || (Failed(result) && file == name + thread)) << file;
          }
          // A torn first backup is removed, unless the removal fails too.
          if (!persistent && prhost::FileExists(p + ".bak")) { EXPECT_EQ(GenerationIn(p + ".bak"), 2u); }
          if (failed == 0) break;
        }
      }
    }
  }
  std::printf("system-call faults injected into saves: %u\n", injected_faults);
}

// The text must be on disk before a rename publishes it: a failing fsync
// fails the save before any name changes.
TEST(ProfileFaultsTest, FailingFsyncKeepsTheOldProfile) {
  TraceCapture trace;
  prhost::TempDir dir;
  const std::string p = dir.Join("other.xml");
  SaveGeneration(p, 1);
  UnitStore s({.name = p, .backup_mode = 1});
  ASSERT_EQ(SetGeneration(Registry(s.store()), 2), ResultOk);
  {
    SystemCallFaults faults;
    faults.FailNth(1, EIO, false, SysCall::kFsync);
    EXPECT_EQ(s.Flush(), ErrIo);
  }
  EXPECT_TRUE(s.dirty());
  EXPECT_EQ(GenerationIn(p), 1u);
  EXPECT_FALSE(prhost::FileExists(p + ".bak2"));
  EXPECT_EQ(s.Flush(), ResultOk);
  EXPECT_EQ(GenerationIn(p), 2u);
}

TEST(ProfileFaultsTest, LoadUnderEveryFailingCall) {
  prhost::TempDir dir;
  const std::string p = dir.Join("profiles.xml");
  SaveGeneration(p, 4);
  for (const auto& e : kErrors) {
    for (unsigned n = 1;; ++n) {
      SCOPED_TRACE("call " + std::to_string(n) + " errno " + std::to_string(e.error));
      const int descriptors = OpenDescriptors();
      SystemCallFaults faults;
      faults.FailNth(n, e.error, true);
      UnitStore s({.name = p});
      const unsigned failed = faults.failed();
      faults.Clear();
      const bool loaded = s.init_result() == ResultOk;
      EXPECT_TRUE(loaded || s.init_result() == e.code) << std::hex << s.init_result();
      EXPECT_EQ(s.store()->loaded, loaded ? 1 : 0);
      EXPECT_EQ(GenerationOf(Registry(s.store())), loaded ? 4u : 0u);
      EXPECT_EQ(OpenDescriptors(), descriptors);
      if (failed == 0) break;
    }
  }
}

// A profile that another process makes between this load's failed open and
// its create step is loaded, never emptied by the create.
TEST(ProfileFaultsTest, AProfileMadeMeanwhileIsLoadedNotEmptied) {
  prhost::TempDir dir;
  const std::string p = dir.Join("profiles.xml");
  SaveGeneration(dir.Join("other.xml"), 5);
  SystemCallFaults faults;
  unsigned opens = 0;
  faults.SetHook([&](SysCall call) {
    if (call == SysCall::kOpen && ++opens == 2) std::filesystem::copy_file(dir.Join("other.xml"), p);
  });
  UnitStore s({.name = p, .loader_flags = 2});
  EXPECT_EQ(s.init_result(), ResultOk);
  EXPECT_EQ(GenerationOf(Registry(s.store())), 5u);
  EXPECT_EQ(GenerationIn(p), 5u);
}

}  // namespace
}  // namespace propmap::testing
