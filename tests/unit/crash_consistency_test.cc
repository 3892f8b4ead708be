// Crash consistency: a child process keeps changing and flushing a store and
// is killed with SIGKILL right before a seeded system call of its saves.
// Before each call of the file layer the child reports on a pipe and waits
// for the parent's go-ahead, so the kill point is exact and no timing is
// involved. After each kill the promised file holds one whole generation:
// the profile; between the rolling-backup move and the final move, the
// rolling backup; for a profile saved without backups, the thread's
// temporary file.
//
// The second test runs several such children at once, each with several
// threads changing their own values of one locking store and flushing it:
// every file a kill leaves where a profile is promised must load whole.
//
// PROPMAP_CRASH_ROUNDS sets the number of rounds (default 100 and 20; the
// long mode runs 1000 or more), PROPMAP_CRASH_SEED the seed (default 1),
// PROPMAP_CRASH_PROCESSES and PROPMAP_CRASH_THREADS the writers of the
// second test (default 2 processes of 3 threads).
#include <dirent.h>
#include <pthread.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <random>
#include <string>
#include <thread>
#include <vector>

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

// Thread t's value at generation `gen`: its number and generation first, then
// a run whose length and byte follow from both, so a torn value cannot pass.
std::vector<uint8_t> ThreadBlock(uint32_t t, uint32_t gen) {
  std::vector<uint8_t> block(8 + (gen * 977 + t * 131) % 6000, static_cast<uint8_t>(gen * 31 + t));
  std::memcpy(block.data(), &t, 4);
  std::memcpy(block.data() + 4, &gen, 4);
  return block;
}

// How many thread values the profile at `path` holds, all whole; -1 when it
// does not load or a value is torn.
int WholeValuesIn(const std::string& path, unsigned threads) {
  UnitStore s({.name = path});
  if (s.init_result() != ResultOk) return -1;
  int whole = 0;
  for (uint32_t t = 0; t < threads; ++t) {
    std::vector<uint8_t> block(8 + 6000);
    uint32_t size = 0;
    const std::string name = "g" + std::to_string(t);
    const tERROR got = s.Get(name.c_str(), tBINARY, block.data(), static_cast<uint32_t>(block.size()), &size);
    if (got == ErrNotFound) continue;  // saved before this thread's first change
    uint32_t gen = 0;
    if (Failed(got) || size < 8) return -1;
    std::memcpy(&gen, block.data() + 4, 4);
    block.resize(size);
    if (block != ThreadBlock(t, gen)) return -1;
    ++whole;
  }
  return whole;
}

// A child with `threads` writers on one locking store; never returns.
[[noreturn]] void ChildThreadsSave(const std::string& path, uint8_t backup_mode, unsigned threads, int report,
                                   int go_ahead) {
  UnitStore s({.name = path, .loader_flags = 2, .backup_mode = backup_mode, .locking = 1});
  SystemCallFaults faults;
  faults.SetHook([&](SysCall) {
    char byte = kCall;
    if (write(report, &byte, 1) != 1 || read(go_ahead, &byte, 1) != 1) _exit(3);
  });
  std::vector<std::thread> writers;
  for (uint32_t t = 0; t < threads; ++t) {
    writers.emplace_back([&, t] {
      const std::string name = "g" + std::to_string(t);
      for (uint32_t gen = 1;; ++gen) {
        const std::vector<uint8_t> block = ThreadBlock(t, gen);
        // Another thread's final move may land between this one's removal
        // of the old profile and its rename, or remove it first: the save is
        // then refused and the store stays dirty.
        const tERROR set = s.Set(name.c_str(), tBINARY, block.data(), static_cast<uint32_t>(block.size()));
        const tERROR flushed = Failed(set) ? set : s.Flush();
        if (Failed(flushed) && flushed != ErrAlreadyExists && flushed != ErrFileNotFound) _exit(2);
        char byte = kFlushed;
        if (write(report, &byte, 1) != 1) _exit(3);
      }
    });
  }
  for (std::thread& w : writers) w.join();
  _exit(4);
}

std::vector<std::string> Names(const std::string& dir) {
  std::vector<std::string> names;
  DIR* d = opendir(dir.c_str());
  while (dirent* e = readdir(d)) names.push_back(e->d_name);
  closedir(d);
  return names;
}

struct Child {
  pid_t pid = -1;
  int report = -1;
  int go_ahead = -1;
  unsigned calls = 0;
  unsigned kill_at = 0;
};

TEST(CrashConsistencyTest, KilledConcurrentSavesLeaveWholeFiles) {
  const unsigned rounds = EnvNumber("PROPMAP_CRASH_ROUNDS", 20);
  const unsigned seed = EnvNumber("PROPMAP_CRASH_SEED", 1);
  const unsigned processes = EnvNumber("PROPMAP_CRASH_PROCESSES", 2);
  const unsigned threads = EnvNumber("PROPMAP_CRASH_THREADS", 3);
  unsigned files = 0;
  unsigned values = 0;
  for (unsigned round = 0; round < rounds; ++round) {
    std::mt19937 random(seed * 7919 + round);
    SCOPED_TRACE("round " + std::to_string(round));
    prhost::TempDir dir;
    std::vector<Child> children(processes);
    for (unsigned p = 0; p < processes; ++p) {
      int report[2];
      int go_ahead[2];
      ASSERT_EQ(pipe(report), 0);
      ASSERT_EQ(pipe(go_ahead), 0);
      children[p].kill_at = 1 + random() % 300;
      children[p].pid = fork();
      ASSERT_GE(children[p].pid, 0);
      if (children[p].pid == 0) {
        close(report[0]);
        close(go_ahead[1]);
        ChildThreadsSave(dir.Join("p" + std::to_string(p) + ".xml"), p % 2, threads, report[1], go_ahead[0]);
      }
      close(report[1]);
      close(go_ahead[0]);
      children[p].report = report[0];
      children[p].go_ahead = go_ahead[1];
    }
    // Serve the children in turn, one reported byte each; a child always
    // reports again, so the turns cannot stall.
    for (unsigned alive = processes; alive > 0;) {
      for (Child& c : children) {
        char byte;
        if (c.pid < 0) continue;
        ASSERT_EQ(read(c.report, &byte, 1), 1) << "a child stopped by itself";
        if (byte == kFlushed) continue;
        if (++c.calls < c.kill_at) {
          ASSERT_EQ(write(c.go_ahead, &byte, 1), 1);
          continue;
        }
        kill(c.pid, SIGKILL);
        int status = 0;
        ASSERT_EQ(waitpid(c.pid, &status, 0), c.pid);
        ASSERT_TRUE(WIFSIGNALED(status) && WTERMSIG(status) == SIGKILL) << "a child stopped by itself";
        close(c.report);
        close(c.go_ahead);
        c.pid = -1;
        --alive;
      }
    }
    for (unsigned p = 0; p < processes; ++p) {
      const std::string profile = dir.Join("p" + std::to_string(p) + ".xml");
      if (prhost::FileExists(profile)) {
        const int whole = WholeValuesIn(profile, threads);
        EXPECT_GE(whole, 0) << profile << " is torn";
        values += whole > 0 ? whole : 0;
        ++files;
        continue;
      }
      // Between a final move's removal and rename: the rolling backup or the
      // temporary file of the thread moving it is whole (with several
      // threads, a final move can also remove a profile another one made).
      bool found = WholeValuesIn(profile + ".bak2", threads) >= 0;
      for (const std::string& name : Names(dir.path())) {
        if (name.rfind("p" + std::to_string(p) + ".xml.tmp", 0) == 0) found |= WholeValuesIn(dir.Join(name), threads) >= 0;
      }
      EXPECT_TRUE(found) << profile << " missing and no whole generation in its place";
      ++files;
    }
  }
  std::printf("crash rounds: %u with %u processes of %u threads; %u files and %u thread values verified whole\n",
              rounds, processes, threads, files, values);
}

}  // namespace
}  // namespace propmap::testing
