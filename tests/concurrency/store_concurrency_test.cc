// Several threads on one store with the locking flag set: readers walk keys
// and read values while writers create, change and delete. Each reader only
// checks what holds under any interleaving: codes from the allowed set, names
// and values the writers could have produced, counts that move the way the
// writers move them. Readers never keep a handle to a key that a writer may
// delete, since such a handle is stale the moment the key goes.
#include <algorithm>
#include <charconv>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <cwchar>
#include <deque>
#include <optional>
#include <string>
#include <vector>

#include "concurrency/concurrency_fixture.h"

namespace prhost::testing {
namespace {

constexpr uint32_t kBuffer = 128;

std::string Num(uint32_t n) { return std::to_string(n); }

// The decimal number a text holds in full, if it does.
std::optional<uint32_t> ParseNumber(const std::string& text, const std::string& prefix = {}) {
  if (text.size() <= prefix.size() || text.compare(0, prefix.size(), prefix) != 0) return std::nullopt;
  uint32_t value = 0;
  const char* first = text.data() + prefix.size();
  const char* last = text.data() + text.size();
  auto [end, ec] = std::from_chars(first, last, value);
  if (ec != std::errc{} || end != last) return std::nullopt;
  return value;
}

std::string KeyNameByIndex(const Registry& r, hKey parent, uint32_t index, tERROR* err, uint32_t full = 0) {
  char buffer[kBuffer];
  uint32_t size = 0;
  *err = r.GetKeyNameByIndex(&size, parent, index, buffer, sizeof buffer, full);
  return Succeeded(*err) ? TextOf(buffer, size, sizeof buffer) : std::string{};
}

std::string KeyName(const Registry& r, hKey key, tERROR* err, uint32_t full = 0) {
  char buffer[kBuffer];
  uint32_t size = 0;
  *err = r.GetKeyName(&size, key, buffer, sizeof buffer, full);
  return Succeeded(*err) ? TextOf(buffer, size, sizeof buffer) : std::string{};
}

// A value read as text (tSTRING), converted by the store when stored otherwise.
std::string ValueText(const Registry& r, hKey key, const char* name, tERROR* err) {
  char buffer[kBuffer];
  uint32_t size = 0;
  uint32_t type = tSTRING;
  *err = r.GetValue(&size, key, name, &type, buffer, sizeof buffer);
  return Succeeded(*err) ? TextOf(buffer, size, sizeof buffer) : std::string{};
}

// A value read as a wide string, narrowed back (the texts used here are ASCII).
std::string ValueWide(const Registry& r, hKey key, const char* name, tERROR* err) {
  wchar_t buffer[kBuffer] = {};
  uint32_t size = 0;
  uint32_t type = tWSTRING;
  *err = r.GetValue(&size, key, name, &type, buffer, sizeof buffer);
  if (Failed(*err)) return {};
  std::string text;
  for (size_t i = 0; i < size / sizeof(wchar_t) && buffer[i] != 0; ++i) {
    text.push_back(buffer[i] < 0x80 ? static_cast<char>(buffer[i]) : '?');
  }
  return text;
}

// Printable form of a text for failure notes: other bytes as \xHH.
std::string Shown(const std::string& text) {
  std::string out;
  for (unsigned char c : text) {
    if (c >= 0x20 && c < 0x7F) {
      out.push_back(static_cast<char>(c));
    } else {
      char hex[8];
      std::snprintf(hex, sizeof hex, "\\x%02X", c);
      out += hex;
    }
  }
  return out;
}

std::wstring Widen(const std::string& text) { return std::wstring(text.begin(), text.end()); }

// ---------------------------------------------------------------------------
// Enumeration while keys are added.

constexpr uint32_t kAddedKeys = 240;
constexpr uint32_t kEnumReaders = 4;
constexpr uint32_t kEnumRounds = 150;
constexpr uint32_t kEnumWindow = 24;

std::string ChildName(uint32_t i) { return "k" + Num(i); }

// Keys are only ever appended, so child i is always "k<i>", a count seen once
// stays reachable, and a key found once is found again.
void EnumerationReader(const Registry& r, hKey parent, uint32_t seed, Notes& notes) {
  uint32_t last_count = 0;
  for (uint32_t round = 0; round < kEnumRounds && notes.clean(); ++round) {
    uint32_t count = ~0u;
    tERROR err = r.GetKeyCount(&count, parent);
    if (!notes.CheckCode(err, {kOk}, "GetKeyCount")) return;
    notes.Check(count >= last_count && count <= kAddedKeys,
                "key count went from " + Num(last_count) + " to " + Num(count));
    last_count = count;
    if (count == 0) continue;

    // A window of sequential steps, starting somewhere new each round.
    const uint32_t start = (round * 37 + seed * 11) % count;
    const uint32_t end = std::min(count, start + kEnumWindow);
    hKey previous = kInvalidKey;
    for (uint32_t i = start; i < end; ++i) {
      hKey child = kInvalidKey;
      err = r.OpenKeyByIndex(&child, parent, i);
      if (!notes.CheckCode(err, {kOk}, "OpenKeyByIndex " + Num(i) + " below count " + Num(count))) break;
      std::string name = KeyNameByIndex(r, parent, i, &err);
      notes.CheckCode(err, {kOk}, "GetKeyNameByIndex " + Num(i));
      notes.Check(name == ChildName(i), "child " + Num(i) + " named '" + name + "'");
      // Handles of added keys never go stale here.
      name = KeyName(r, child, &err);
      notes.Check(err == kOk && name == ChildName(i), "GetKeyName of child " + Num(i) + ": '" + name + "'");
      if (previous != kInvalidKey) {
        hKey next = kInvalidKey;
        err = r.OpenNextKey(&next, previous);
        notes.Check(err == kOk && next == child, "OpenNextKey of child " + Num(i - 1) + " returned " +
                                                    FormatResult(err));
      }
      previous = child;
    }

    // Walking past what was counted: each step either finds the next key in
    // order or reports the end, never anything else.
    hKey at = kInvalidKey;
    if (r.OpenKeyByIndex(&at, parent, count - 1) == kOk) {
      for (uint32_t i = count; i < count + 4; ++i) {
        hKey next = kInvalidKey;
        err = r.OpenNextKey(&next, at);
        if (err == kErrInvalidHandle) {
          notes.Check(next == kInvalidKey, "OpenNextKey failed without writing all ones");
          break;
        }
        if (!notes.CheckCode(err, {kOk}, "OpenNextKey past the count")) break;
        std::string name = KeyName(r, next, &err);
        notes.Check(name == ChildName(i), "next key after the count named '" + name + "'");
        at = next;
      }
    } else {
      notes.Check(false, "OpenKeyByIndex of the last counted child failed");
    }

    // Lookup by path ignores case and keeps the stored case.
    const uint32_t j = (round * 13 + seed * 5) % kAddedKeys;
    hKey by_path = kInvalidKey;
    err = r.OpenKey(&by_path, parent, ("K" + Num(j)).c_str(), 0);
    if (err == kOk) {
      hKey by_index = kInvalidKey;
      notes.Check(r.OpenKeyByIndex(&by_index, parent, j) == kOk && by_index == by_path,
                  "key " + Num(j) + " by path and by index differ");
      std::string path = KeyName(r, by_path, &err, 1);
      notes.Check(err == kOk && path == "Enum\\" + ChildName(j), "full path of key " + Num(j) + ": '" + path + "'");
      uint32_t sub_count = ~0u;
      notes.Check(r.GetKeyCount(&sub_count, by_path) == kOk && sub_count <= 1,
                  "key " + Num(j) + " holds " + Num(sub_count) + " sub-keys");
    } else {
      notes.CheckCode(err, {kErrNotFound}, "OpenKey K" + Num(j));
      notes.Check(by_path == kInvalidKey, "failed OpenKey wrote a handle");
      notes.Check(j >= last_count, "key " + Num(j) + " missing although " + Num(last_count) + " were counted");
    }
    hKey sub = kInvalidKey;
    err = r.OpenKey(&sub, parent, (ChildName(j) + "\\sub").c_str(), 0);
    notes.CheckCode(err, {kOk, kErrNotFound}, "OpenKey of a sub path");
  }
}

TEST_F(ConcurrencyTest, ReadersEnumerateWhileAWriterAddsKeys) {
  Store& store = OpenLockedStore();
  const Registry r = store.registry();
  hKey parent = kInvalidKey;
  ASSERT_EQ(Rc{r.OpenKey(&parent, 0, "Enum", 1)}, Rc{kKeyCreated});

  std::vector<std::pair<std::string, std::function<void(Notes&)>>> threads;
  threads.emplace_back("writer", [&](Notes& notes) {
    for (uint32_t i = 0; i < kAddedKeys; ++i) {
      hKey child = kInvalidKey;
      notes.CheckCode(r.OpenKey(&child, parent, ChildName(i).c_str(), 1), {kKeyCreated}, "create " + ChildName(i));
      // Opening with create an existing key creates nothing.
      hKey again = kInvalidKey;
      notes.CheckCode(r.OpenKey(&again, parent, ChildName(i).c_str(), 1), {kOk}, "reopen " + ChildName(i));
      notes.Check(again == child, "reopened key differs");
      if (i % 2 == 0) {
        hKey sub = kInvalidKey;
        notes.CheckCode(r.OpenKey(&sub, child, "sub", 1), {kKeyCreated}, "create sub of " + ChildName(i));
      }
    }
  });
  for (uint32_t t = 0; t < kEnumReaders; ++t) {
    threads.emplace_back("reader " + Num(t), [&, t](Notes& notes) { EnumerationReader(r, parent, t, notes); });
  }
  RunThreads(threads);

  Result<std::vector<std::string>> names = store.client().SubkeyNames(parent);
  ASSERT_EQ(Rc{names.code}, Rc{kOk});
  ASSERT_EQ(names.value.size(), kAddedKeys);
  for (uint32_t i = 0; i < kAddedKeys; ++i) EXPECT_EQ(names.value[i], ChildName(i));
}

// Readers alone share each key's enumeration cursor: whichever reader moved
// it last, every step must land on the right child.
TEST_F(ConcurrencyTest, ReadersShareTheEnumerationCursor) {
  constexpr uint32_t kKeys = 120;
  constexpr uint32_t kReaders = 6;
  constexpr uint32_t kPasses = 16;
  Store& store = OpenLockedStore();
  const Registry r = store.registry();
  hKey parents[2] = {kInvalidKey, kInvalidKey};
  ASSERT_EQ(Rc{r.OpenKey(&parents[0], 0, "A", 1)}, Rc{kKeyCreated});
  ASSERT_EQ(Rc{r.OpenKey(&parents[1], 0, "B", 1)}, Rc{kKeyCreated});
  for (hKey p : parents) {
    for (uint32_t i = 0; i < kKeys; ++i) {
      hKey child = kInvalidKey;
      ASSERT_EQ(Rc{r.OpenKey(&child, p, ChildName(i).c_str(), 1)}, Rc{kKeyCreated});
    }
  }

  std::vector<std::pair<std::string, std::function<void(Notes&)>>> threads;
  for (uint32_t t = 0; t < kReaders; ++t) {
    threads.emplace_back("reader " + Num(t), [&, t](Notes& notes) {
      for (uint32_t pass = 0; pass < kPasses && notes.clean(); ++pass) {
        const hKey p = parents[(pass + t) % 2];
        const bool forward = (pass + t) % 3 != 0;
        for (uint32_t step = 0; step < kKeys; ++step) {
          const uint32_t i = forward ? step : kKeys - 1 - step;
          tERROR err = kOk;
          std::string name = KeyNameByIndex(r, p, i, &err);
          notes.Check(err == kOk && name == ChildName(i), "child " + Num(i) + " read as '" + name + "' (" +
                                                              FormatResult(err) + ")");
          hKey child = kInvalidKey;
          if (!notes.CheckCode(r.OpenKeyByIndex(&child, p, i), {kOk}, "OpenKeyByIndex " + Num(i))) break;
          name = KeyName(r, child, &err);
          notes.Check(err == kOk && name == ChildName(i), "OpenKeyByIndex " + Num(i) + " gave '" + name + "'");
        }
        hKey none = 0;
        notes.CheckCode(r.OpenKeyByIndex(&none, p, kKeys), {kErrNotFound}, "OpenKeyByIndex past the end");
      }
    });
  }
  RunThreads(threads);
}

// ---------------------------------------------------------------------------
// Values read while a writer changes, adds and deletes them.

constexpr uint32_t kValueWrites = 1200;
constexpr uint32_t kValueReaders = 4;
constexpr uint32_t kValueRounds = 500;
constexpr uint32_t kTemps = 6;
constexpr uint32_t kChildren = 3;

// Fixed values, always the first four of "Stable", in this order. Every
// number the writer stores is a multiple of 3.
constexpr const char* kFixedValues[] = {"Number", "Label", "Wide", "Blob"};
constexpr uint32_t kFixedCount = 4;

std::string TempName(uint32_t t) { return "Temp" + Num(t); }
std::string ChildKeyName(uint32_t c) { return "Child" + Num(c); }
bool IsMultipleOf3(std::optional<uint32_t> n) { return n.has_value() && *n % 3 == 0; }

bool IsKnownValueName(const std::string& name) {
  for (const char* f : kFixedValues) {
    if (name == f) return true;
  }
  std::optional<uint32_t> t = ParseNumber(name, "Temp");
  return t.has_value() && *t < kTemps;
}

// The text of value `index` of "Stable" must fit what sits at that index:
// the fixed values keep their places, temporaries are numbers.
bool TextFitsIndex(uint32_t index, const std::string& text) {
  switch (index) {
    case 1: return IsMultipleOf3(ParseNumber(text, "label-"));
    case 2: return IsMultipleOf3(ParseNumber(text, "w"));
    case 3: {
      // Eight bytes as hexadecimal text: two equal little-endian halves.
      if (text.size() != 16 || text.compare(0, 8, text, 8, 8) != 0) return false;
      uint32_t v = 0;
      for (int byte = 3; byte >= 0; --byte) {
        uint32_t pair = 0;
        auto [end, ec] = std::from_chars(text.data() + 2 * byte, text.data() + 2 * byte + 2, pair, 16);
        if (ec != std::errc{} || end != text.data() + 2 * byte + 2) return false;
        v = v << 8 | pair;
      }
      return v % 3 == 0;
    }
    default: return IsMultipleOf3(ParseNumber(text));
  }
}

void ValueReader(const Registry& r, hKey stable, hKey fixed, uint32_t seed, Notes& notes) {
  for (uint32_t round = 0; round < kValueRounds && notes.clean(); ++round) {
    tERROR err = kOk;
    uint32_t number = 1;
    uint32_t type = tDWORD;
    uint32_t size = 0;
    err = r.GetValue(&size, stable, "Number", &type, &number, sizeof number);
    notes.Check(err == kOk && size == 4 && number % 3 == 0, "Number read as " + Num(number) + " (" +
                                                                 FormatResult(err) + ")");
    std::string text = ValueText(r, stable, "number", &err);
    notes.Check(err == kOk && IsMultipleOf3(ParseNumber(text)), "Number as text '" + text + "'");
    uint64_t wide_number = 1;
    type = tQWORD;
    err = r.GetValue(&size, stable, "Number", &type, &wide_number, sizeof wide_number);
    notes.Check(err == kOk && wide_number % 3 == 0, "Number as tQWORD " + std::to_string(wide_number));
    type = 0;
    err = r.GetValue(&size, stable, "Number", &type, nullptr, 0);
    notes.Check(type == tDWORD, "stored type of Number became " + Num(type));

    text = ValueText(r, stable, "Label", &err);
    notes.Check(err == kOk && IsMultipleOf3(ParseNumber(text, "label-")), "Label '" + text + "'");
    text = ValueWide(r, stable, "LABEL", &err);
    notes.Check(err == kOk && IsMultipleOf3(ParseNumber(text, "label-")), "Label as wide '" + text + "'");
    text = ValueText(r, stable, "Wide", &err);
    notes.Check(err == kOk && IsMultipleOf3(ParseNumber(text, "w")), "Wide as text '" + text + "'");

    // Eight bytes asked as a dword: the exact-size rule hands out the raw
    // pair, whose halves the writer always stores equal.
    uint32_t pair[2] = {1, 2};
    type = tDWORD;
    err = r.GetValue(&size, stable, "Blob", &type, pair, sizeof pair);
    notes.Check(err == kOk && pair[0] == pair[1] && pair[0] % 3 == 0,
                "Blob read as " + Num(pair[0]) + "/" + Num(pair[1]) + " (" + FormatResult(err) + ")");

    // A temporary by name: there with a written number, or gone.
    const uint32_t t = (round + seed) % kTemps;
    uint32_t temp = 1;
    type = tDWORD;
    err = r.GetValue(&size, stable, TempName(t).c_str(), &type, &temp, sizeof temp);
    if (notes.CheckCode(err, {kOk, kErrNotFound}, "GetValue " + TempName(t)) && err == kOk) {
      notes.Check(temp % 3 == 0, TempName(t) + " read as " + Num(temp));
    }

    // By index: the count bounds what is there, names and texts fit.
    uint32_t count = 0;
    err = r.GetValueCount(&count, stable);
    notes.Check(err == kOk && count >= kFixedCount && count <= kFixedCount + kTemps,
                "value count " + Num(count));
    const uint32_t index = (round * 7 + seed) % (kFixedCount + kTemps + 1);
    char name[kBuffer];
    size = 0;
    err = r.GetValueNameByIndex(&size, stable, index, name, sizeof name);
    if (notes.CheckCode(err, {kOk}, "GetValueNameByIndex " + Num(index))) {
      const std::string got = TextOf(name, size, sizeof name);
      if (index < kFixedCount) {
        notes.Check(got == kFixedValues[index], "value " + Num(index) + " named '" + got + "'");
      } else {
        notes.Check(size == 0 || IsKnownValueName(got), "value " + Num(index) + " named '" + got + "'");
      }
    }
    char buffer[kBuffer];
    size = 0;
    type = tSTRING;
    err = r.GetValueByIndex(&size, stable, index, &type, buffer, sizeof buffer);
    if (notes.CheckCode(err, {kOk, kErrNotFound}, "GetValueByIndex " + Num(index))) {
      notes.Check(err == kOk || index >= kFixedCount, "fixed value " + Num(index) + " not found");
      text = TextOf(buffer, size, sizeof buffer);
      notes.Check(err != kOk || TextFitsIndex(index, text), "value " + Num(index) + " as text '" + Shown(text) + "'");
    }

    // Sub-keys come and go; "Fixed" stays first and its handle stays good.
    uint32_t keys = 0;
    err = r.GetKeyCount(&keys, stable);
    notes.Check(err == kOk && keys >= 1 && keys <= 1 + kChildren, "sub-key count " + Num(keys));
    std::string key = KeyNameByIndex(r, stable, 0, &err);
    notes.Check(err == kOk && key == "Fixed", "first sub-key '" + key + "'");
    const uint32_t k = 1 + (round + seed) % kChildren;
    key = KeyNameByIndex(r, stable, k, &err);
    if (notes.CheckCode(err, {kOk, kErrNotFound}, "GetKeyNameByIndex " + Num(k)) && err == kOk) {
      std::optional<uint32_t> c = ParseNumber(key, "Child");
      notes.Check(c.has_value() && *c < kChildren, "sub-key " + Num(k) + " named '" + key + "'");
    }
    const std::string inner = ChildKeyName((round + seed) % kChildren) + "/Inner";
    notes.CheckCode(r.OpenKey(nullptr, stable, inner.c_str(), 0), {kOk, kErrNotFound}, "OpenKey " + inner);
    text = ValueText(r, fixed, "Mirror", &err);
    notes.Check(err == kOk && IsMultipleOf3(ParseNumber(text)), "Mirror '" + text + "'");
  }
}

// The single writer: it alone changes "Stable", so it knows the value order
// (fixed values first, then the temporaries in the order it added them) and
// the sub-key order ("Fixed" first, then children in order of creation).
void ValueWriter(const Registry& r, hKey stable, hKey fixed, Notes& notes) {
  std::deque<uint32_t> temps;       // present temporaries, oldest first
  std::deque<uint32_t> children;    // present children, oldest first
  for (uint32_t i = 1; i <= kValueWrites && notes.clean(); ++i) {
    const uint32_t v = 3 * i;
    const std::string text = Num(v);
    switch (i % 4) {
      case 0: notes.CheckCode(r.SetValue(stable, "Number", tDWORD, &v, 4, 0), {kOk}, "set Number"); break;
      case 1: notes.CheckCode(r.SetValue(stable, "NUMBER", tSTRING, text.c_str(), text.size() + 1, 0), {kOk},
                              "set Number from text"); break;
      case 2: notes.CheckCode(r.SetValueByIndex(stable, 0, tDWORD, &v, 4, 0), {kOk}, "set Number by index"); break;
      default: {
        const uint64_t q = v;
        notes.CheckCode(r.SetValue(stable, "Number", tQWORD, &q, 8, 0), {kOk}, "set Number from a qword");
      }
    }
    const std::string label = "label-" + text;
    if (i % 2 == 0) {
      notes.CheckCode(r.SetValue(stable, "Label", tSTRING, label.c_str(), label.size() + 1, 0), {kOk}, "set Label");
    } else {
      const std::wstring wide = Widen(label);
      notes.CheckCode(r.SetValue(stable, "Label", tWSTRING, wide.c_str(), 4 * (wide.size() + 1), 0), {kOk},
                      "set Label from wide");
    }
    const std::wstring w = Widen("w" + text);
    notes.CheckCode(r.SetValue(stable, "Wide", tWSTRING, w.c_str(), 4 * (w.size() + 1), 0), {kOk}, "set Wide");
    const uint32_t pair[2] = {v, v};
    notes.CheckCode(r.SetValue(stable, "Blob", tBINARY, pair, sizeof pair, 0), {kOk}, "set Blob");
    notes.CheckCode(r.SetValue(fixed, "Mirror", tSTRING, text.c_str(), text.size() + 1, 1), {kOk}, "set Mirror");

    // Temporaries: add the next missing one, or delete the oldest by index
    // or a middle one by name.
    const uint32_t t = i % kTemps;
    if (temps.size() < kTemps / 2 || (i % 3 == 0 && temps.size() < kTemps)) {
      uint32_t candidate = t;
      while (std::find(temps.begin(), temps.end(), candidate) != temps.end()) candidate = (candidate + 1) % kTemps;
      notes.CheckCode(r.SetValue(stable, TempName(candidate).c_str(), tDWORD, &v, 4, 1), {kOk},
                      "add " + TempName(candidate));
      temps.push_back(candidate);
    } else if (i % 2 == 0) {
      char name[kBuffer];
      uint32_t size = 0;
      notes.CheckCode(r.GetValueNameByIndex(&size, stable, kFixedCount, name, sizeof name), {kOk}, "oldest name");
      notes.Check(TextOf(name, size, sizeof name) == TempName(temps.front()), "oldest temporary misplaced");
      notes.CheckCode(r.DeleteValueByInd(stable, kFixedCount), {kOk}, "delete oldest temporary");
      temps.pop_front();
    } else {
      const uint32_t victim = temps[temps.size() / 2];
      notes.CheckCode(r.DeleteValue(stable, TempName(victim).c_str()), {kOk}, "delete " + TempName(victim));
      notes.CheckCode(r.DeleteValue(stable, TempName(victim).c_str()), {kErrNotFound}, "delete again");
      temps.erase(temps.begin() + static_cast<std::ptrdiff_t>(temps.size() / 2));
    }
    // Every surviving temporary takes the new number too.
    if (!temps.empty()) {
      const uint32_t at = i % static_cast<uint32_t>(temps.size());
      notes.CheckCode(r.SetValueByIndex(stable, kFixedCount + at, tSTRING, text.c_str(), text.size() + 1, 0), {kOk},
                      "set a temporary by index from text");
    }

    // Children: recreate a missing one with content, or delete one.
    const uint32_t c = i % kChildren;
    if (std::find(children.begin(), children.end(), c) == children.end()) {
      hKey inner = kInvalidKey;
      notes.CheckCode(r.OpenKey(&inner, stable, (ChildKeyName(c) + "\\Inner").c_str(), 1), {kKeyCreated},
                      "create " + ChildKeyName(c));
      notes.CheckCode(r.SetValue(inner, "n", tDWORD, &v, 4, 1), {kOk}, "fill " + ChildKeyName(c));
      children.push_back(c);
    } else if (i % 2 == 0) {
      notes.CheckCode(r.DeleteKey(stable, ChildKeyName(c).c_str()), {kOk}, "delete " + ChildKeyName(c));
      children.erase(std::find(children.begin(), children.end(), c));
    } else {
      const auto at = std::find(children.begin(), children.end(), c) - children.begin();
      notes.CheckCode(r.DeleteKeyByInd(stable, 1 + static_cast<uint32_t>(at)), {kOk},
                      "delete " + ChildKeyName(c) + " by index");
      children.erase(children.begin() + at);
    }
  }
}

TEST_F(ConcurrencyTest, ReadersSeeOnlyWrittenValuesWhileAWriterChangesThem) {
  Store& store = OpenLockedStore();
  const Registry r = store.registry();
  hKey stable = kInvalidKey, fixed = kInvalidKey;
  ASSERT_EQ(Rc{r.OpenKey(&stable, 0, "Stable", 1)}, Rc{kKeyCreated});
  ASSERT_EQ(Rc{r.OpenKey(&fixed, stable, "Fixed", 1)}, Rc{kKeyCreated});
  const uint32_t zero = 0;
  const uint32_t pair[2] = {0, 0};
  const std::wstring w = L"w0";
  ASSERT_EQ(Rc{r.SetValue(stable, "Number", tDWORD, &zero, 4, 1)}, Rc{kOk});
  ASSERT_EQ(Rc{r.SetValue(stable, "Label", tSTRING, "label-0", 8, 1)}, Rc{kOk});
  ASSERT_EQ(Rc{r.SetValue(stable, "Wide", tWSTRING, w.c_str(), 4 * (w.size() + 1), 1)}, Rc{kOk});
  ASSERT_EQ(Rc{r.SetValue(stable, "Blob", tBINARY, pair, sizeof pair, 1)}, Rc{kOk});
  ASSERT_EQ(Rc{r.SetValue(fixed, "Mirror", tSTRING, "0", 2, 1)}, Rc{kOk});

  std::vector<std::pair<std::string, std::function<void(Notes&)>>> threads;
  threads.emplace_back("writer", [&](Notes& notes) { ValueWriter(r, stable, fixed, notes); });
  for (uint32_t t = 0; t < kValueReaders; ++t) {
    threads.emplace_back("reader " + Num(t), [&, t](Notes& notes) { ValueReader(r, stable, fixed, t, notes); });
  }
  RunThreads(threads);

  // The last round's numbers are what stays.
  const Client client = store.client();
  const uint32_t last = 3 * kValueWrites;
  EXPECT_EQ(client.GetDword(stable, "Number").value, last);
  EXPECT_EQ(client.GetString(stable, "Label").value, "label-" + Num(last));
  EXPECT_EQ(client.GetString(stable, "Wide").value, "w" + Num(last));
  EXPECT_EQ(client.GetString(fixed, "Mirror").value, Num(last));
}

// ---------------------------------------------------------------------------
// Writers alone: the exclusive lock must serialise them completely.

TEST_F(ConcurrencyTest, ConcurrentWritersLoseNothing) {
  constexpr uint32_t kWriters = 4;
  constexpr uint32_t kPerWriter = 150;
  Store& store = OpenLockedStore();
  const Registry r = store.registry();
  hKey shared = kInvalidKey;
  ASSERT_EQ(Rc{r.OpenKey(&shared, 0, "Shared", 1)}, Rc{kKeyCreated});

  std::vector<std::pair<std::string, std::function<void(Notes&)>>> threads;
  for (uint32_t w = 0; w < kWriters; ++w) {
    threads.emplace_back("writer " + Num(w), [&, w](Notes& notes) {
      for (uint32_t i = 0; i < kPerWriter; ++i) {
        const std::string tag = Num(w) + "-" + Num(i);
        hKey own = kInvalidKey;
        notes.CheckCode(r.OpenKey(&own, shared, ("w" + tag).c_str(), 1), {kKeyCreated}, "create key " + tag);
        notes.CheckCode(r.SetValue(shared, ("v" + tag).c_str(), tDWORD, &i, 4, 1), {kOk}, "add value " + tag);
        // A value all writers fight over: whoever wins, it holds one of theirs.
        const uint32_t mine = w * 1000 + i;
        notes.CheckCode(r.SetValue(shared, "Last", tDWORD, &mine, 4, 1), {kOk}, "set Last");
        if (i % 3 == 0) {
          notes.CheckCode(r.DeleteValue(shared, ("v" + tag).c_str()), {kOk}, "delete value " + tag);
        }
      }
    });
  }
  RunThreads(threads);

  uint32_t keys = 0, values = 0;
  ASSERT_EQ(Rc{r.GetKeyCount(&keys, shared)}, Rc{kOk});
  ASSERT_EQ(Rc{r.GetValueCount(&values, shared)}, Rc{kOk});
  EXPECT_EQ(keys, kWriters * kPerWriter);
  // "Last" plus the values not deleted.
  EXPECT_EQ(values, 1 + kWriters * (kPerWriter - (kPerWriter + 2) / 3));
  for (uint32_t w = 0; w < kWriters; ++w) {
    for (uint32_t i = 0; i < kPerWriter; ++i) {
      const std::string tag = Num(w) + "-" + Num(i);
      Result<uint32_t> v = store.client().GetDword(shared, "v" + tag);
      if (i % 3 == 0) {
        EXPECT_EQ(Rc{v.code}, Rc{kErrNotFound}) << tag;
      } else {
        EXPECT_EQ(v.value, i) << tag;
      }
      EXPECT_EQ(Rc{r.OpenKey(nullptr, shared, ("W" + tag).c_str(), 0)}, Rc{kOk}) << tag;
    }
  }
  Result<uint32_t> last = store.client().GetDword(shared, "Last");
  ASSERT_EQ(Rc{last.code}, Rc{kOk});
  EXPECT_LT(last.value % 1000, kPerWriter);
  EXPECT_LT(last.value / 1000, kWriters);
}

// ---------------------------------------------------------------------------
// Copying out of a store that others read and write.

constexpr uint32_t kBranches = 4;
constexpr uint32_t kLeaves = 3;
constexpr uint32_t kExtras = 40;
constexpr uint32_t kCopies = 25;
constexpr uint32_t kCopyReaderRounds = 300;

// Sub-keys of "Tree" in the source's order: the branches built before the
// threads start, then the extras the writer appends.
std::string TreeChild(uint32_t i) { return i < kBranches ? "a" + Num(i) : "extra" + Num(i - kBranches); }

void BuildTree(const Registry& r, hKey tree) {
  for (uint32_t a = 0; a < kBranches; ++a) {
    hKey branch = kInvalidKey;
    ASSERT_EQ(Rc{r.OpenKey(&branch, tree, TreeChild(a).c_str(), 1)}, Rc{kKeyCreated});
    const uint32_t x = 3 * a;
    ASSERT_EQ(Rc{r.SetValue(branch, "x", tDWORD, &x, 4, 1)}, Rc{kOk});
    const std::string s = TreeChild(a);
    ASSERT_EQ(Rc{r.SetValue(branch, "s", tSTRING, s.c_str(), s.size() + 1, 1)}, Rc{kOk});
    for (uint32_t b = 0; b < kLeaves; ++b) {
      hKey leaf = kInvalidKey;
      ASSERT_EQ(Rc{r.OpenKey(&leaf, branch, ("b" + Num(b)).c_str(), 1)}, Rc{kKeyCreated});
      const uint32_t pair[2] = {a, b};
      ASSERT_EQ(Rc{r.SetValue(leaf, "y", tBINARY, pair, sizeof pair, 1)}, Rc{kOk});
    }
  }
}

// A copy's target, or the source itself: children are always a prefix of
// the source's order (copies add missing keys in that order and never
// remove), and every value read is one the source held.
void TreeReader(const Registry& r, hKey tree, uint32_t seed, Notes& notes) {
  uint32_t last_count = 0;
  for (uint32_t round = 0; round < kCopyReaderRounds && notes.clean(); ++round) {
    uint32_t count = 0;
    notes.CheckCode(r.GetKeyCount(&count, tree), {kOk}, "GetKeyCount");
    notes.Check(count >= last_count && count <= kBranches + kExtras,
                "key count went from " + Num(last_count) + " to " + Num(count));
    last_count = count;
    if (count == 0) continue;
    const uint32_t i = (round * 5 + seed) % count;
    tERROR err = kOk;
    const std::string name = KeyNameByIndex(r, tree, i, &err);
    notes.Check(err == kOk && name == TreeChild(i), "child " + Num(i) + " named '" + name + "'");

    // Keys are never deleted here, so their handles stay good.
    hKey child = kInvalidKey;
    if (!notes.CheckCode(r.OpenKeyByIndex(&child, tree, i), {kOk}, "OpenKeyByIndex " + Num(i))) continue;
    uint32_t number = 1, size = 0, type = tDWORD;
    if (i < kBranches) {
      err = r.GetValue(&size, child, "x", &type, &number, sizeof number);
      if (notes.CheckCode(err, {kOk, kErrNotFound}, "GetValue x") && err == kOk) {
        notes.Check(number == 3 * i, "x of " + name + " is " + Num(number));
      }
      const std::string s = ValueText(r, child, "s", &err);
      notes.Check(err == kErrNotFound || s == name, "s of " + name + " is '" + s + "'");
      uint32_t leaves = 0;
      notes.CheckCode(r.GetKeyCount(&leaves, child), {kOk}, "GetKeyCount of a branch");
      for (uint32_t b = 0; b < leaves && b < kLeaves; ++b) {
        hKey leaf = kInvalidKey;
        if (!notes.CheckCode(r.OpenKeyByIndex(&leaf, child, b), {kOk}, "leaf " + Num(b))) break;
        uint32_t pair[2] = {~0u, ~0u};
        type = tBINARY;
        err = r.GetValue(&size, leaf, "y", &type, pair, sizeof pair);
        if (notes.CheckCode(err, {kOk, kErrNotFound}, "GetValue y") && err == kOk) {
          notes.Check(size == 8 && pair[0] == i && pair[1] == b, "y of " + name + "/b" + Num(b) + " is " +
                                                                     Num(pair[0]) + "," + Num(pair[1]));
        }
      }
    } else {
      err = r.GetValue(&size, child, "n", &type, &number, sizeof number);
      if (notes.CheckCode(err, {kOk, kErrNotFound}, "GetValue n") && err == kOk) {
        notes.Check(number == 3 * (i - kBranches), "n of " + name + " is " + Num(number));
      }
    }
    type = tDWORD;
    err = r.GetValue(&size, tree, "Gen", &type, &number, sizeof number);
    if (notes.CheckCode(err, {kOk, kErrNotFound}, "GetValue Gen") && err == kOk) {
      notes.Check(number % 3 == 0 && number <= 3 * kExtras, "Gen is " + Num(number));
    }
  }
}

// Every key and value of `from` below `a` equals those below `b` of `to`.
void ExpectSameTree(const Client& from, hKey a, const Client& to, hKey b, const std::string& where) {
  Result<std::vector<std::string>> keys_a = from.SubkeyNames(a);
  Result<std::vector<std::string>> keys_b = to.SubkeyNames(b);
  ASSERT_EQ(keys_a.value, keys_b.value) << where;
  Result<std::vector<std::string>> values_a = from.ValueNames(a);
  Result<std::vector<std::string>> values_b = to.ValueNames(b);
  ASSERT_EQ(values_a.value, values_b.value) << where;
  for (uint32_t i = 0; i < values_a.value.size(); ++i) {
    TypeId type_a = 0, type_b = 0;
    Result<std::string> text_a = from.ValueTextByIndex(a, i, &type_a);
    Result<std::string> text_b = to.ValueTextByIndex(b, i, &type_b);
    EXPECT_EQ(type_a, type_b) << where << "/" << values_a.value[i];
    EXPECT_EQ(text_a.value, text_b.value) << where << "/" << values_a.value[i];
  }
  for (const std::string& name : keys_a.value) {
    Result<hKey> child_a = from.OpenKey(name, false, a);
    Result<hKey> child_b = to.OpenKey(name, false, b);
    ASSERT_EQ(Rc{child_a.code}, Rc{kOk});
    ASSERT_EQ(Rc{child_b.code}, Rc{kOk});
    ExpectSameTree(from, child_a.value, to, child_b.value, where + "/" + name);
  }
}

TEST_F(ConcurrencyTest, CopiesRunAlongsideReadersAndAWriter) {
  Store& source = OpenLockedStore();
  Store& near = OpenLockedStore();
  // The other target lives in an independent module instance.
  Store& far = OpenLockedStore(Load({.private_copy = true}));
  const Registry src = source.registry();
  const Registry dst1 = near.registry();
  const Registry dst2 = far.registry();
  hKey tree = kInvalidKey, into = kInvalidKey;
  ASSERT_EQ(Rc{src.OpenKey(&tree, 0, "Tree", 1)}, Rc{kKeyCreated});
  ASSERT_NO_FATAL_FAILURE(BuildTree(src, tree));
  ASSERT_EQ(Rc{dst2.OpenKey(&into, 0, "Into", 1)}, Rc{kKeyCreated});

  std::vector<std::pair<std::string, std::function<void(Notes&)>>> threads;
  threads.emplace_back("source writer", [&](Notes& notes) {
    for (uint32_t e = 0; e < kExtras; ++e) {
      hKey extra = kInvalidKey;
      notes.CheckCode(src.OpenKey(&extra, tree, TreeChild(kBranches + e).c_str(), 1), {kKeyCreated}, "add extra");
      const uint32_t n = 3 * e;
      notes.CheckCode(src.SetValue(extra, "n", tDWORD, &n, 4, 1), {kOk}, "fill extra");
      notes.CheckCode(src.SetValue(tree, "Gen", tDWORD, &n, 4, 1), {kOk}, "set Gen");
    }
  });
  threads.emplace_back("copier near", [&](Notes& notes) {
    for (uint32_t c = 0; c < kCopies; ++c) {
      notes.CheckCode(src.CopyKey(tree, dst1.object(), 0), {kOk}, "CopyKey into the near store");
    }
  });
  threads.emplace_back("copier far", [&](Notes& notes) {
    for (uint32_t c = 0; c < kCopies; ++c) {
      notes.CheckCode(src.CopyKey(tree, dst2.object(), into), {kOk}, "CopyKey into the far store");
    }
  });
  threads.emplace_back("source reader", [&](Notes& notes) { TreeReader(src, tree, 0, notes); });
  threads.emplace_back("near reader", [&](Notes& notes) { TreeReader(dst1, 0, 1, notes); });
  threads.emplace_back("far reader", [&](Notes& notes) { TreeReader(dst2, into, 2, notes); });
  RunThreads(threads);

  // One more copy each brings both targets level with the finished source.
  ASSERT_EQ(Rc{src.CopyKey(tree, dst1.object(), 0)}, Rc{kOk});
  ASSERT_EQ(Rc{src.CopyKey(tree, dst2.object(), into)}, Rc{kOk});
  ExpectSameTree(source.client(), tree, near.client(), 0, "near");
  ExpectSameTree(source.client(), tree, far.client(), into, "far");
}

// Copies by name from several threads at once share the source's lock with
// readers; no writer runs on the source meanwhile.
TEST_F(ConcurrencyTest, CopiesByNameShareTheSourceWithReaders) {
  constexpr uint32_t kTargets = 3;
  Store& source = OpenLockedStore();
  const Registry src = source.registry();
  hKey tree = kInvalidKey;
  ASSERT_EQ(Rc{src.OpenKey(&tree, 0, "Tree", 1)}, Rc{kKeyCreated});
  ASSERT_NO_FATAL_FAILURE(BuildTree(src, tree));
  std::vector<Store*> targets;
  for (uint32_t t = 0; t < kTargets; ++t) targets.push_back(&OpenLockedStore());

  std::vector<std::pair<std::string, std::function<void(Notes&)>>> threads;
  for (uint32_t t = 0; t < kTargets; ++t) {
    threads.emplace_back("copier " + Num(t), [&, t](Notes& notes) {
      for (uint32_t c = 0; c < kCopies; ++c) {
        notes.CheckCode(src.CopyKeyByName("TREE", targets[t]->object()), {kOk}, "CopyKeyByName");
      }
    });
    threads.emplace_back("target reader " + Num(t),
                         [&, t](Notes& notes) { TreeReader(targets[t]->registry(), 0, t, notes); });
  }
  threads.emplace_back("source reader", [&](Notes& notes) { TreeReader(src, tree, 7, notes); });
  RunThreads(threads);

  for (uint32_t t = 0; t < kTargets; ++t) {
    ExpectSameTree(source.client(), tree, targets[t]->client(), 0, "target " + Num(t));
  }
}

}  // namespace
}  // namespace prhost::testing
