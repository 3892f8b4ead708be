// libFuzzer target for the values' text forms. The first byte picks one of
// the types with a value class, the rest is the text handed to SetText. Any
// text gives a documented code, a refused text leaves the content as it was,
// an accepted one reaches its text fixpoint (the text it reads back parses to
// a value that reads back the same text), and every block goes back to the
// heap.
#include <cmath>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "test_heap.h"
#include "values/value.h"

namespace propmap {
namespace {

std::vector<tag_TYPE_ID> Types() {
  std::vector<tag_TYPE_ID> types;
  for (tag_TYPE_ID id = 0; id < kTypeNameCount; ++id) {
    if (HasValueClass(id)) types.push_back(id);
  }
  return types;
}

// The bytes of a two-call read; `code` receives the second call's result.
template <typename Read>
std::string ReadAll(Read read, tERROR* code) {
  uint32_t needed = 0;
  *code = read(nullptr, 0, &needed);
  if (Failed(*code)) return {};
  std::string out(needed, '\0');
  *code = read(out.data(), needed, &needed);
  return out;
}
std::string Data(const iValue* v) {
  tERROR code;
  std::string out = ReadAll([&](void* b, uint32_t n, uint32_t* k) { return v->GetData(b, n, k); }, &code);
  if (Failed(code)) std::abort();
  return out;
}
std::string Text(const iValue* v, tERROR* code) {
  return ReadAll([&](void* b, uint32_t n, uint32_t* k) { return v->GetText(static_cast<char*>(b), n, k); }, code);
}

// Doubles this large have a text beyond the formatting buffer, which stops
// the process on purpose.
bool FormattingStops(const iValue* v) {
  if (v->GetTypeId() != tDOUBLE) return false;
  double number;
  std::memcpy(&number, Data(v).data(), sizeof number);
  return std::fabs(number) >= 1e247;
}

// Texts that do not parse back to themselves, kept this way: a code address
// and a void read back as nothing, a wide string's text is UTF-8 but it is set
// from hexadecimal.
bool HasTextFixpoint(tag_TYPE_ID id) { return id != tFUNC_PTR && id != tVOID && id != tWSTRING; }

void Check(testing::TestHeap& heap, tag_TYPE_ID id, const std::string& text) {
  iValue* v = CreateValue(heap.host(), id);
  if (v == nullptr) std::abort();
  const std::string before = Data(v);
  const tERROR set = v->SetText(text.c_str());
  switch (set) {
    case ResultOk:
    case ValueUnchanged:
      break;
    case ErrBadParameter:
    case ErrNotApplicable:
      if (Data(v) != before) std::abort();  // a refused text changes nothing
      break;
    default:
      std::abort();
  }
  if (Succeeded(set) && !FormattingStops(v)) {
    tERROR code;
    const std::string first = Text(v, &code);
    if (Failed(code) && code != ErrNotApplicable) std::abort();
    if (Succeeded(code) && HasTextFixpoint(id)) {
      iValue* again = CreateValue(heap.host(), id);
      if (again == nullptr) std::abort();
      const std::string terminated(first.c_str(), std::strlen(first.c_str()));
      if (Failed(again->SetText(terminated.c_str()))) std::abort();
      if (Text(again, &code) != first || Failed(code)) std::abort();
      DestroyValue(heap.host(), again);
    }
  }
  DestroyValue(heap.host(), v);
}

}  // namespace
}  // namespace propmap

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  using namespace propmap;
  static const std::vector<tag_TYPE_ID> types = Types();
  if (size == 0) return 0;
  testing::TestHeap heap;
  Check(heap, types[data[0] % types.size()], std::string(reinterpret_cast<const char*>(data) + 1, size - 1));
  if (heap.live_blocks() != 0) std::abort();
  return 0;
}
