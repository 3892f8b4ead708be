// Every system call of a load and of a Flush failed in turn through the
// seam, once and from then on, with EIO, ENOSPC and EACCES: the result is the
// mapped code or success, a failure leaves the store dirty with its line,
// descriptors and heap blocks are all returned, and every profile file left
// holds one complete generation.
#include <dirent.h>
#include <pthread.h>
#include <unistd.h>

#include <cstdio>
#include <string>

#include <gtest/gtest.h>

#include "generations.h"
#include "system_call_faults.h"
#include "temp_dir.h"

namespace propmap::testing {
namespace {

int OpenDescriptors() {
  int count = 0;
  DIR* dir = opendir("/proc/self/fd");
  while (dirent* e = readdir(dir)) count += e->d_name[0] != '.';
  closedir(dir);
  return count;
}

std::string ThreadHex() {
  char text[16];
  std::snprintf(text, sizeof text, "%x", static_cast<unsigned>(pthread_self()));
  return text;
}

const struct {
  int error;
  tERROR code;
} kErrors[] = {{EIO, ErrIo}, {ENOSPC, ErrNoSpace}, {EACCES, ErrAccessDenied}};

TEST(ProfileFaultsTest, FlushUnderEveryFailingCall) {
  TraceCapture trace;
  for (const auto& e : kErrors) {
    for (bool persistent : {false, true}) {
      for (uint8_t mode : {0, 2}) {
        for (unsigned n = 1;; ++n) {
          SCOPED_TRACE("call " + std::to_string(n) + " errno " + std::to_string(e.error) +
                       (persistent ? " persistent" : " once") + " mode " + std::to_string(mode));
          prhost::TempDir dir;
          const std::string p = dir.Join("profiles.xml");
          {
            UnitStore first({.name = p, .loader_flags = 2});
            ASSERT_EQ(SetGeneration(first, 1), ResultOk);
            ASSERT_EQ(first.Flush(), ResultOk);
          }
          const int descriptors = OpenDescriptors();
          tERROR result;
          bool dirty;
          unsigned failed;
          {
            UnitStore s({.name = p, .backup_mode = mode});
            ASSERT_EQ(SetGeneration(s, 2), ResultOk);
            TraceCapture::Lines().clear();
            SystemCallFaults faults;
            faults.FailNth(n, e.error, persistent);
            result = s.Flush();
            failed = faults.failed();
            dirty = s.dirty();
          }
          EXPECT_EQ(OpenDescriptors(), descriptors);
          // A status read that fails inside the final move's comparison
          // surfaces as the rename's refusal instead of the errno.
          const bool expected_code = result == ResultOk || result == e.code || result == ErrAlreadyExists ||
                                     result == ErrFileNotFound;
          EXPECT_TRUE(expected_code) << std::hex << result;
          EXPECT_EQ(dirty, Failed(result));
          if (Failed(result)) {
            char code[16];
            std::snprintf(code, sizeof code, "%08X", static_cast<unsigned>(result));
            const std::string& last = TraceCapture::Lines().empty() ? "" : TraceCapture::Lines().back();
            bool traced = false;
            for (const std::string& line : TraceCapture::Lines()) traced |= line.find(code) != std::string::npos;
            EXPECT_TRUE(traced) << last;
          }
          // Where a generation is promised, it is whole.
          const uint32_t in_profile = prhost::FileExists(p) ? GenerationIn(p) : 0;
          if (prhost::FileExists(p)) {
            EXPECT_TRUE(in_profile == 1 || in_profile == 2) << in_profile;
            if (Succeeded(result)) { EXPECT_EQ(in_profile, 2u); }
          } else {
            EXPECT_EQ(GenerationIn(p + ".bak2"), 1u);
            EXPECT_EQ(GenerationIn(p + ".tmp" + ThreadHex()), 2u);
          }
          // A torn first backup is removed, unless the removal fails too.
          if (!persistent && prhost::FileExists(p + ".bak")) { EXPECT_EQ(GenerationIn(p + ".bak"), 2u); }
          if (failed == 0) break;
        }
      }
    }
  }
}

TEST(ProfileFaultsTest, LoadUnderEveryFailingCall) {
  prhost::TempDir dir;
  const std::string p = dir.Join("profiles.xml");
  {
    UnitStore first({.name = p, .loader_flags = 2});
    ASSERT_EQ(SetGeneration(first, 4), ResultOk);
    ASSERT_EQ(first.Flush(), ResultOk);
  }
  for (const auto& e : kErrors) {
    for (unsigned n = 1;; ++n) {
      SCOPED_TRACE("call " + std::to_string(n) + " errno " + std::to_string(e.error));
      const int descriptors = OpenDescriptors();
      SystemCallFaults faults;
      faults.FailNth(n, e.error, true);
      UnitStore s({.name = p});
      const unsigned failed = faults.failed();
      faults.Clear();
      EXPECT_TRUE(s.init_result() == ResultOk || s.init_result() == e.code) << std::hex << s.init_result();
      EXPECT_EQ(s.store()->loaded, s.init_result() == ResultOk ? 1 : 0);
      uint32_t gen = 0;
      uint32_t size = 0;
      (void)s.Get("gen", tDWORD, &gen, sizeof gen, &size);
      EXPECT_EQ(gen, s.init_result() == ResultOk ? 4u : 0u);
      EXPECT_EQ(OpenDescriptors(), descriptors);
      if (failed == 0) break;
    }
  }
}

}  // namespace
}  // namespace propmap::testing
