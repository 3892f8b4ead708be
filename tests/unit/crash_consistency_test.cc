// Crash consistency: a child process keeps changing and flushing a store and
// is killed with SIGKILL right before a seeded system call of its saves.
// Before each call of the file layer the child reports on a pipe and waits
// for the parent's go-ahead, so the kill point is exact and no timing is
// involved. After each kill the promised file holds one whole generation:
// the profile; between the rolling-backup move and the final move, the
// rolling backup; for a profile saved without backups, the thread's
// temporary file.
//
// PROPMAP_CRASH_ROUNDS sets the number of rounds (default 100; the long mode
// runs 1000 or more) and PROPMAP_CRASH_SEED the seed (default 1).
#include <pthread.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <random>
#include <string>

#include <gtest/gtest.h>

#include "generations.h"
#include "system_call_faults.h"
#include "temp_dir.h"

namespace propmap::testing {
namespace {

constexpr char kFlushed = 'F';
constexpr char kCall = 'c';

unsigned EnvNumber(const char* name, unsigned fallback) {
  const char* text = std::getenv(name);
  return text != nullptr && *text != '\0' ? static_cast<unsigned>(std::strtoul(text, nullptr, 10)) : fallback;
}

// The child: generations 1, 2, ... each flushed; never returns.
[[noreturn]] void ChildSaves(const std::string& path, int report, int go_ahead) {
  UnitStore s({.name = path});
  SystemCallFaults faults;
  faults.SetHook([&](SysCall) {
    char byte = kCall;
    if (write(report, &byte, 1) != 1 || read(go_ahead, &byte, 1) != 1) _exit(3);
  });
  for (uint32_t gen = 1;; ++gen) {
    if (Failed(SetGeneration(s, gen)) || Failed(s.Flush())) _exit(2);
    char byte = kFlushed;
    if (write(report, &byte, 1) != 1) _exit(3);
  }
}

TEST(CrashConsistencyTest, KilledSavesLeaveAWholeGeneration) {
  const unsigned rounds = EnvNumber("PROPMAP_CRASH_ROUNDS", 100);
  const unsigned seed = EnvNumber("PROPMAP_CRASH_SEED", 1);
  char thread[16];
  std::snprintf(thread, sizeof thread, "%x", static_cast<unsigned>(pthread_self()));  // the child's too
  unsigned checked_backup = 0;
  unsigned checked_temporary = 0;
  for (unsigned round = 0; round < rounds; ++round) {
    std::mt19937 random(seed * 7919 + round);
    const bool backups = round % 2 == 0;
    const unsigned kill_at = 1 + random() % 160;  // calls; a save makes about 15-25
    SCOPED_TRACE("round " + std::to_string(round) + " kill before call " + std::to_string(kill_at));
    prhost::TempDir dir;
    const std::string p = dir.Join(backups ? "profiles.xml" : "other.xml");
    int report[2];
    int go_ahead[2];
    ASSERT_EQ(pipe(report), 0);
    ASSERT_EQ(pipe(go_ahead), 0);
    const pid_t child = fork();
    ASSERT_GE(child, 0);
    if (child == 0) {
      close(report[0]);
      close(go_ahead[1]);
      ChildSaves(p, report[1], go_ahead[0]);
    }
    close(report[1]);
    close(go_ahead[0]);
    uint32_t flushed = 0;
    unsigned calls = 0;
    for (char byte; read(report[0], &byte, 1) == 1;) {
      if (byte == kFlushed) {
        ++flushed;
        continue;
      }
      if (++calls == kill_at) break;
      ASSERT_EQ(write(go_ahead[1], &byte, 1), 1);
    }
    kill(child, SIGKILL);
    int status = 0;
    ASSERT_EQ(waitpid(child, &status, 0), child);
    close(report[0]);
    close(go_ahead[1]);
    ASSERT_TRUE(WIFSIGNALED(status) && WTERMSIG(status) == SIGKILL) << "the child stopped by itself";
    ASSERT_EQ(calls, kill_at);

    if (prhost::FileExists(p)) {
      const uint32_t gen = GenerationIn(p);
      EXPECT_TRUE(gen == flushed || (gen == flushed + 1 && gen != 0)) << gen << " after " << flushed;
    } else if (flushed > 0) {
      // The old generation moved aside, the new one not yet in place.
      if (backups) {
        EXPECT_EQ(GenerationIn(p + ".bak2"), flushed);
        ++checked_backup;
      } else {
        EXPECT_EQ(GenerationIn(p + ".tmp" + thread), flushed + 1);
        ++checked_temporary;
      }
    }
  }
  RecordProperty("rounds", static_cast<int>(rounds));
  std::printf("crash rounds: %u (profile missing at the kill: %u with backups, %u without)\n", rounds,
              checked_backup, checked_temporary);
}

}  // namespace
}  // namespace propmap::testing
