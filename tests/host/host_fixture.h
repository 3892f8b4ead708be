// Shared fixture for tests that load the real module through the reference
// host.
//
// HostTest loads the module on first use (module()), creates stores on
// request, and after each test destroys them and checks what every test must
// leave behind: each store heap balanced (but for the one-byte empty names
// the module keeps on purpose), no contract violation noticed by
// the host, no trace line with a format outside the contract, and the same
// number of open descriptors as before the test.
//
// Thread-safety: the fixture itself is used from the test's main thread;
// stores it creates may be called from other threads inside a test.
#pragma once

#include <memory>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "descriptors.h"
#include "module_loader.h"
#include "result_names.h"
#include "store.h"

namespace prhost::testing {

// A result code that gtest prints by name: EXPECT_EQ(Rc{got}, Rc{kErrNotFound}).
struct Rc {
  tERROR code;
  bool operator==(const Rc&) const = default;
};
inline void PrintTo(const Rc& rc, std::ostream* os) { *os << FormatResult(rc.code); }

class HostTest : public ::testing::Test {
 protected:
  void SetUp() override { descriptors_ = OpenDescriptors(); }

  void TearDown() override {
    stores_.clear();
    for (const auto& m : modules_) {
      for (const auto& heap : m->host().heaps()) {
        EXPECT_EQ(heap->leftover_blocks(), 0u) << "heap of " << heap->label() << " holds " << heap->live_bytes()
                                           << " bytes";
      }
      EXPECT_EQ(m->host().violations(), std::vector<std::string>{});
      EXPECT_EQ(m->trace().malformed(), 0u);
    }
    default_module_.reset();
    modules_.clear();
    EXPECT_EQ(OpenDescriptors(), descriptors_) << "descriptors leaked";
  }

  // The module loaded the ordinary way; loaded on first use.
  std::shared_ptr<Module> module() {
    if (!default_module_) default_module_ = Load();
    return default_module_;
  }

  // Loads a module with options; the fixture checks its heaps and violations
  // at teardown.
  std::shared_ptr<Module> Load(LoadOptions options = {}) {
    modules_.push_back(Module::Load(std::move(options)));
    return modules_.back();
  }

  // A store driven up to InitDone (or short of it, with config.init false).
  Store& OpenStore(const StoreConfig& config = {}, std::shared_ptr<Module> from = nullptr) {
    if (!from) from = module();
    stores_.push_back(Store::Open(from, config, "store" + std::to_string(stores_.size())));
    return *stores_.back();
  }

  // A store with its memory allocated and nothing called yet.
  Store& NewStore(std::shared_ptr<Module> from = nullptr) {
    if (!from) from = module();
    stores_.push_back(std::make_unique<Store>(from, "store" + std::to_string(stores_.size())));
    return *stores_.back();
  }

 private:
  int descriptors_ = 0;
  std::shared_ptr<Module> default_module_;
  std::vector<std::shared_ptr<Module>> modules_;
  std::vector<std::unique_ptr<Store>> stores_;
};

}  // namespace prhost::testing
