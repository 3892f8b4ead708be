// The store model (tests/support/store_model.h) against the real module:
// seeded call sequences on two stores, every result, output, line, dirty
// flag and final tree compared with the model. The fuzz target store_ops_fuzz
// runs the same decoder on inputs it grows itself.
#include "host_fixture.h"
#include "store_model.h"

namespace prhost::testing {
namespace {

class HostStores : public model::Stores {
 public:
  explicit HostStores(std::shared_ptr<Module> m) : module_(std::move(m)) {
    for (auto& s : stores_) s = Store::Open(module_, {}, "model");
  }
  ~HostStores() override {
    for (auto& s : stores_) {
      std::shared_ptr<StoreHeap> heap = s->heap_ptr();
      s.reset();
      EXPECT_EQ(heap->leftover_blocks(), 0u);
    }
  }
  void* object(int side) override { return stores_[side]->object(); }
  std::vector<Line> TakeLines() override {
    std::vector<Line> out;
    for (TraceLine& l : module_->trace().Take()) {
      const int side = l.store == object(0) ? 0 : l.store == object(1) ? 1 : -1;
      if (side >= 0) out.push_back({side, l.level, std::move(l.text)});
    }
    return out;
  }
  std::string ResultText(tERROR code) override { return FormatResult(code); }

 private:
  std::shared_ptr<Module> module_;
  std::unique_ptr<Store> stores_[2];
};

using StoreModelTest = HostTest;

TEST_F(StoreModelTest, SeededSequencesAgreeWithTheModel) {
  constexpr uint64_t kSequences = 20000;
  for (uint64_t seed = 1; seed <= kSequences; ++seed) {
    uint8_t bytes[320];
    uint64_t state = seed * 0x9E3779B97F4A7C15ull;
    for (uint8_t& b : bytes) {  // splitmix64, one byte a round
      uint64_t z = (state += 0x9E3779B97F4A7C15ull);
      z = (z ^ (z >> 30)) * 0xBF58476D1CE4E5B9ull;
      b = static_cast<uint8_t>((z ^ (z >> 27)) * 0x94D049BB133111EBull >> 56);
    }
    HostStores stores(module());
    try {
      model::Run(stores, bytes, sizeof bytes).Check();
    } catch (const model::Mismatch& e) {
      FAIL() << "seed " << seed << ": " << e.what();
    }
  }
}

}  // namespace
}  // namespace prhost::testing
