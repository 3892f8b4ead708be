// Fixture for tests that call one store from several threads at once.
//
// Stores are opened with the locking flag set and loaded from an in-memory
// profile, so no file is touched. Threads start together behind a latch and
// are joined before the test looks at anything; each thread keeps its own
// failure notes (the first few only) and the main thread reports them, so a
// broken invariant gives a short, readable failure instead of thousands.
//
// Invariants checked here must hold under every interleaving: outcomes never
// depend on how the threads happen to be scheduled, only on what each
// operation is allowed to observe.
//
// Thread-safety: OpenLockedStore and RunThreads are for the test's main
// thread; a Notes object belongs to one worker thread.
#pragma once

#include <cstdint>
#include <functional>
#include <latch>
#include <memory>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include "host/host_fixture.h"
#include "stream.h"

namespace prhost::testing {

// Failure notes of one worker thread.
class Notes {
 public:
  explicit Notes(std::string who) : who_(std::move(who)) {}

  // Records `what` when `ok` is false; returns ok so callers can stop early.
  bool Check(bool ok, const std::string& what) {
    if (!ok) {
      ++failures_;
      if (messages_.size() < kKept) messages_.push_back(what);
    }
    return ok;
  }
  bool CheckCode(tERROR got, std::initializer_list<tERROR> allowed, const std::string& what) {
    for (tERROR a : allowed) {
      if (got == a) return true;
    }
    return Check(false, what + " returned " + FormatResult(got));
  }

  bool clean() const { return failures_ == 0; }
  std::string Report() const {
    std::ostringstream out;
    out << who_ << ": " << failures_ << " failed check(s)";
    for (const auto& m : messages_) out << "\n  " << m;
    return out.str();
  }

 private:
  static constexpr size_t kKept = 8;
  std::string who_;
  size_t failures_ = 0;
  std::vector<std::string> messages_;
};

class ConcurrencyTest : public HostTest {
 protected:
  // A store in service with its reader/writer lock, loaded from an empty
  // in-memory profile.
  Store& OpenLockedStore(std::shared_ptr<Module> from = nullptr) {
    sources_.push_back(std::make_unique<MemoryStream>("<propertiesmap>\r\n</propertiesmap>\r\n"));
    Store& store = OpenStore({.locking = 1, .source = sources_.back()->object()}, std::move(from));
    EXPECT_EQ(store.init_result(), std::optional<tERROR>{kOk});
    return store;
  }

  // Runs each body on its own thread, all released together, and reports
  // every thread's notes once all are joined.
  void RunThreads(const std::vector<std::pair<std::string, std::function<void(Notes&)>>>& bodies) {
    std::latch start(static_cast<std::ptrdiff_t>(bodies.size()));
    std::vector<Notes> notes;
    notes.reserve(bodies.size());
    for (const auto& body : bodies) notes.emplace_back(body.first);
    {
      std::vector<std::jthread> threads;
      for (size_t i = 0; i < bodies.size(); ++i) {
        threads.emplace_back([&, i] {
          start.arrive_and_wait();
          bodies[i].second(notes[i]);
        });
      }
    }
    for (const auto& n : notes) EXPECT_TRUE(n.clean()) << n.Report();
  }

  void TearDown() override {
    HostTest::TearDown();
    sources_.clear();  // the stores that read them are gone by now
  }

 private:
  std::vector<std::unique_ptr<MemoryStream>> sources_;
};

// Text read into a fixed buffer in one call (the two-call protocol would race
// with a writer changing the value between the calls). Empty on failure.
inline std::string TextOf(const char* buffer, uint32_t size, uint32_t capacity) {
  if (size == 0 || size > capacity) return {};
  std::string text(buffer, size);
  return text.substr(0, text.find('\0'));
}

}  // namespace prhost::testing
