// Crash consistency: child processes keep changing and flushing a store and
// are killed with SIGKILL right before a seeded system call of their saves.
// Before each call of the file layer a child reports on a pipe and waits for
// the parent's go-ahead, so the kill point is exact and no timing is
// involved. After each kill the promised file holds whole generations: the
// profile; between the rolling-backup move and the final move, the rolling
// backup; for a profile saved without backups, the thread's temporary file.
//
// The second test runs several such children at once, each with several
// threads changing their own values of one locking store and flushing it.
//
// PROPMAP_CRASH_ROUNDS sets the number of rounds (default 100 and 20; the
// long mode runs 1000 or more), PROPMAP_CRASH_SEED the seed (default 1),
// PROPMAP_CRASH_PROCESSES and PROPMAP_CRASH_THREADS the writers of the
// second test (default 2 processes of 3 threads).
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <random>
#include <thread>

#include <gtest/gtest.h>

#include "generations.h"
#include "system_call_faults.h"
#include "temp_dir.h"

namespace propmap::testing {
namespace {

constexpr char kFlushed = 'F';

unsigned EnvNumber(const char* name, unsigned fallback) {
  const char* text = std::getenv(name);
  return text != nullptr && *text != '\0' ? static_cast<unsigned>(std::strtoul(text, nullptr, 10)) : fallback;
}

// A forked child that saves `threads` writers' generations 1, 2, ... of one
// store, each set followed by a Flush, and is killed before its kill_at-th
// system call.
struct Child {
  pid_t pid = -1;
  int report = -1, go_ahead = -1;
  unsigned calls = 0, kill_at = 0;
  uint32_t flushed = 0;

  ~Child() {  // a test that stops early takes its child with it
    if (pid > 0 && kill(pid, SIGKILL) == 0) waitpid(pid, nullptr, 0);
  }
  void Start(const UnitStore::Config& config, unsigned threads) {
    int up[2], down[2];
    ASSERT_EQ(pipe(up), 0);
    ASSERT_EQ(pipe(down), 0);
    ASSERT_GE(pid = fork(), 0);
    if (pid == 0) {
      close(up[0]);
      close(down[1]);
      Saves(config, threads, up[1], down[0]);
    }
    close(up[1]);
    close(down[0]);
    report = up[0];
    go_ahead = down[1];
  }
  [[noreturn]] static void Saves(const UnitStore::Config& config, unsigned threads, int report, int go_ahead) {
    UnitStore s(config);
    SystemCallFaults faults;
    faults.SetHook([&](SysCall) {
      char byte = 'c';
      if (write(report, &byte, 1) != 1 || read(go_ahead, &byte, 1) != 1) _exit(3);
    });
    std::vector<std::thread> writers;
    for (uint32_t t = 0; t < threads; ++t) {
      writers.emplace_back([&, t] {
        for (uint32_t gen = 1;; ++gen) {
          // Another thread's final move may land between this one's removal
          // of the old profile and its rename, or remove it first: the save
          // is then refused and the store stays dirty.
          const tERROR set = SetGeneration(s, gen, t);
          const tERROR flushed = Failed(set) ? set : s.Flush();
          if (Failed(flushed) && (threads == 1 || (flushed != ErrAlreadyExists && flushed != ErrFileNotFound))) _exit(2);
          if (write(report, &kFlushed, 1) != 1) _exit(3);
        }
      });
    }
    for (std::thread& w : writers) w.join();
    _exit(4);
  }
  // Takes one reported byte: a flush is counted, a call let through or, at
  // kill_at, answered with SIGKILL.
  void Serve() {
    char byte;
    ASSERT_EQ(read(report, &byte, 1), 1) << "the child stopped by itself";
    if (byte == kFlushed) {
      ASSERT_LT(++flushed, 100000u) << "saves that make no system calls";
    } else if (++calls < kill_at) {
      ASSERT_EQ(write(go_ahead, &byte, 1), 1);
    } else {
      kill(pid, SIGKILL);
      int status = 0;
      ASSERT_EQ(waitpid(pid, &status, 0), pid);
      ASSERT_TRUE(WIFSIGNALED(status) && WTERMSIG(status) == SIGKILL) << "the child stopped by itself";
      close(report);
      close(go_ahead);
      pid = -1;
    }
  }
};

// The names in `dir` starting with `prefix`.
std::vector<std::string> Named(const std::string& dir, const std::string& prefix) {
  std::vector<std::string> names;
  for (const auto& e : std::filesystem::directory_iterator(dir)) {
    if (e.path().filename().string().rfind(prefix, 0) == 0) names.push_back(e.path().string());
  }
  return names;
}

TEST(CrashConsistencyTest, KilledSavesLeaveAWholeGeneration) {
  const unsigned rounds = EnvNumber("PROPMAP_CRASH_ROUNDS", 100);
  const unsigned seed = EnvNumber("PROPMAP_CRASH_SEED", 1);
  unsigned checked_backup = 0, checked_temporary = 0;
  for (unsigned round = 0; round < rounds; ++round) {
    std::mt19937 random(seed * 7919 + round);
    const bool backups = round % 2 == 0;
    Child c;
    c.kill_at = 1 + random() % 160;  // calls; a save makes about 15-25
    SCOPED_TRACE("round " + std::to_string(round) + " kill before call " + std::to_string(c.kill_at));
    prhost::TempDir dir;
    const std::string name = backups ? "profiles.xml" : "other.xml", p = dir.Join(name);
    c.Start({.name = p}, 1);
    while (c.pid > 0) ASSERT_NO_FATAL_FAILURE(c.Serve());
    ASSERT_EQ(c.calls, c.kill_at);
    if (prhost::FileExists(p)) {
      const uint32_t gen = GenerationIn(p);
      EXPECT_TRUE(gen == c.flushed || (gen == c.flushed + 1 && gen != 0)) << gen << " after " << c.flushed;
    } else if (c.flushed > 0 && backups) {  // the old generation moved aside, the new one not yet in place
      EXPECT_EQ(GenerationIn(p + ".bak2"), c.flushed);
      ++checked_backup;
    } else if (c.flushed > 0) {
      const std::vector<std::string> temporary = Named(dir.path(), name + ".tmp");
      ASSERT_EQ(temporary.size(), 1u);
      EXPECT_EQ(GenerationIn(temporary[0]), c.flushed + 1);
      ++checked_temporary;
    }
  }
  std::printf("crash rounds: %u (profile missing at the kill: %u with backups, %u without)\n", rounds,
              checked_backup, checked_temporary);
}

TEST(CrashConsistencyTest, KilledConcurrentSavesLeaveWholeFiles) {
  const unsigned rounds = EnvNumber("PROPMAP_CRASH_ROUNDS", 20);
  const unsigned seed = EnvNumber("PROPMAP_CRASH_SEED", 1);
  const unsigned processes = EnvNumber("PROPMAP_CRASH_PROCESSES", 2);
  const unsigned threads = EnvNumber("PROPMAP_CRASH_THREADS", 3);
  unsigned files = 0, values = 0;
  for (unsigned round = 0; round < rounds; ++round) {
    std::mt19937 random(seed * 7919 + round);
    SCOPED_TRACE("round " + std::to_string(round));
    prhost::TempDir dir;
    std::vector<Child> children(processes);
    for (unsigned p = 0; p < processes; ++p) {
      children[p].kill_at = 1 + random() % 300;
      const UnitStore::Config config = {.name = dir.Join("p" + std::to_string(p) + ".xml"), .loader_flags = 2,
                                        .backup_mode = static_cast<uint8_t>(p % 2), .locking = 1};
      ASSERT_NO_FATAL_FAILURE(children[p].Start(config, threads));
    }
    // Serve the children in turn, one reported byte each; a child always
    // reports again, so the turns cannot stall.
    for (bool alive = true; alive;) {
      alive = false;
      for (Child& c : children) {
        if (c.pid > 0) { ASSERT_NO_FATAL_FAILURE(c.Serve()); }
        alive |= c.pid > 0;
      }
    }
    for (unsigned p = 0; p < processes; ++p) {
      const std::string profile = dir.Join("p" + std::to_string(p) + ".xml");
      ++files;
      if (prhost::FileExists(profile)) {
        const std::vector<uint32_t> gens = GenerationsIn(profile, threads);
        EXPECT_FALSE(gens.empty()) << profile << " is torn";
        values += std::count_if(gens.begin(), gens.end(), [](uint32_t g) { return g != 0; });
        continue;
      }
      // Between a final move's removal and rename: the rolling backup or the
      // temporary file of the thread moving it is whole (with several
      // threads, a final move can also remove a profile another one made).
      bool found = !GenerationsIn(profile + ".bak2", threads).empty();
      for (const std::string& name : Named(dir.path(), "p" + std::to_string(p) + ".xml.tmp")) {
        found |= !GenerationsIn(name, threads).empty();
      }
      EXPECT_TRUE(found) << profile << " missing and no whole generation in its place";
    }
  }
  std::printf("crash rounds: %u with %u processes of %u threads; %u files and %u thread values verified whole\n",
              rounds, processes, threads, files, values);
}

}  // namespace
}  // namespace propmap::testing
