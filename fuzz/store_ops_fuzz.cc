// Stateful libFuzzer target: the input decodes into iRegistry call sequences
// on two stores, each call checked against the model of store_model.h (the
// same decoder and model run seeded in ctest, tests/host/store_model_test.cc).
// A mismatch ends the process with the calls that led to it; a heap that does
// not balance aborts in UnitStore::Close.
#include <cstdio>
#include <cstdlib>

#include "store_model.h"
#include "unit_store.h"

namespace {

class UnitStores : public prhost::model::Stores {
 public:
  void* object(int side) override { return stores_[side].store(); }
  std::vector<Line> TakeLines() override {
    std::vector<Line> out;
    for (auto& l : propmap::testing::TraceCapture::Lines()) {
      const int side = l.object == object(0) ? 0 : l.object == object(1) ? 1 : -1;
      if (side >= 0) out.push_back({side, l.level, std::move(l.text)});
    }
    propmap::testing::TraceCapture::Lines().clear();
    return out;
  }
  std::string ResultText(prhost::tERROR code) override {
    char text[16];
    std::snprintf(text, sizeof text, "%08X", static_cast<unsigned>(code));
    return text;
  }

 private:
  propmap::testing::UnitStore stores_[2] = {propmap::testing::UnitStore({}), propmap::testing::UnitStore({})};
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  propmap::testing::TraceCapture trace;
  UnitStores stores;
  try {
    prhost::model::Run(stores, data, size).Check();
  } catch (const prhost::model::Mismatch& e) {
    std::fprintf(stderr, "%s\n", e.what());
    std::abort();
  }
  return 0;
}
