// Fixture for tests that call one store from several threads at once.
//
// Stores are opened with the locking flag set and loaded from an in-memory
// profile, so no file is touched. Threads start together behind a latch and
// are joined before the test looks at anything; each thread keeps its first
// few failure notes and the main thread reports them, so a broken invariant
// gives a short, readable failure instead of thousands. Iteration counts,
// never time, bound every thread; a watchdog aborts the process when they
// are not all joined within 120 s, so that a deadlock fails fast under CTest.
//
// Thread-safety: OpenLockedStore and RunThreads are for the test's main
// thread; a Notes object belongs to one worker thread.
#pragma once

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <functional>
#include <future>
#include <latch>
#include <memory>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "host/host_fixture.h"
#include "stream.h"

namespace prhost::testing {

// Failure notes of one worker thread.
struct Notes {
  size_t failures = 0;
  std::string kept;  // the first few
  // Records `what` when `ok` is false; returns ok.
  bool Check(bool ok, const std::string& what) {
    if (!ok && ++failures <= 4) kept += "\n  " + what;
    return ok;
  }
  bool clean() const { return failures == 0; }
};

using Threads = std::vector<std::pair<std::string, std::function<void(Notes&)>>>;

class ConcurrencyTest : public HostTest {
 protected:
  // A store in service with its reader/writer lock, loaded from an empty profile.
  Store& OpenLockedStore(std::shared_ptr<Module> from = nullptr) {
    sources_.push_back(std::make_unique<MemoryStream>("<propertiesmap>\r\n</propertiesmap>\r\n"));
    Store& store = OpenStore({.locking = 1, .source = sources_.back()->object()}, std::move(from));
    EXPECT_EQ(store.init_result(), std::optional<tERROR>{kOk});
    return store;
  }

  // Runs each body on its own thread, all released together, and reports
  // every thread's notes once all are joined.
  void RunThreads(const Threads& bodies) {
    std::latch start(static_cast<std::ptrdiff_t>(bodies.size()));
    std::vector<Notes> notes(bodies.size());
    std::promise<void> joined;
    std::jthread watchdog([done = joined.get_future()] {
      if (done.wait_for(std::chrono::seconds(120)) == std::future_status::timeout) {
        std::fputs("watchdog: threads still running after 120 s (deadlock?)\n", stderr);
        std::abort();
      }
    });
    {
      std::vector<std::jthread> threads;
      for (size_t i = 0; i < bodies.size(); ++i) {
        threads.emplace_back([&, i] {
          start.arrive_and_wait();
          bodies[i].second(notes[i]);
        });
      }
    }
    joined.set_value();
    for (size_t i = 0; i < bodies.size(); ++i) {
      EXPECT_TRUE(notes[i].clean()) << bodies[i].first << ": " << notes[i].failures << " failed check(s)"
                                    << notes[i].kept;
    }
  }

 private:
  std::vector<std::unique_ptr<MemoryStream>> sources_;  // outlive the stores, gone at TearDown
};

}  // namespace prhost::testing
