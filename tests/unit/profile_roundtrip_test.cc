// Round trip as a property over generated trees: write, read into a fresh
// tree, write again. Both documents are identical, and the trees agree in
// order, names, types and texts, except that wide strings come back as
// narrow ones with the same text.
#include <gtest/gtest.h>

#include <cctype>
#include <cstring>
#include <random>
#include <set>
#include <string>
#include <vector>

#include "profile_xml/document.h"
#include "tree_fixture.h"

namespace propmap::testing {
namespace {

// Every type with a text form that reads back as written, by raw size
// (0 for the variable-size kinds).
struct TypeShape {
  tag_TYPE_ID type;
  uint32_t size;
};
constexpr TypeShape kTypes[] = {
    {tVOID, 0},    {tBYTE, 1},   {tWORD, 2},     {tDWORD, 4},     {tQWORD, 8},   {tBOOL, 4},     {tCHAR, 1},
    {tSTRING, 0},  {tWSTRING, 0}, {tERROR_TYPE, 4}, {tPTR, 0},     {tINT, 4},     {tUINT, 4},     {tSBYTE, 1},
    {tSHORT, 2},   {tLONG, 8},   {tLONGLONG, 8}, {tIID, 4},       {tPID, 4},     {tORIG_ID, 4},  {tOS_ID, 4},
    {tVID, 4},     {tPROPID, 4}, {tVERSION, 4},  {tCODEPAGE, 4},  {tLCID, 4},    {tDATA, 8},     {tDATETIME, 8},
    {tDOUBLE, 8},  {tBINARY, 0}, {tTYPE_ID, 4},
};

class Generator {
 public:
  explicit Generator(uint32_t seed) : rng_(seed) {}

  void Fill(KeyNode* key, int depth) {
    std::set<std::string> taken;  // sibling key names, case folded: equal names would merge
    const int keys = depth < 4 ? Below(4) : 0;
    for (int i = 0; i < keys; ++i) {
      std::string name = Name(true);
      std::string folded = name;
      for (char& c : folded) c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
      if (!taken.insert(folded).second) continue;
      KeyNode* sub = OpenOrCreateKey(key, name.c_str(), false);
      ASSERT_NE(sub, nullptr);
      Fill(sub, depth + 1);
    }
    const int values = Below(6);
    for (int i = 0; i < values; ++i) AddRandomValue(key);
  }

 private:
  int Below(int n) { return static_cast<int>(rng_() % static_cast<uint32_t>(n)); }
  // Bytes 1..255, so every class of the tokenizer and the escaper is met;
  // key names leave out the path separators.
  char Byte(bool key_name) {
    for (;;) {
      const char c = static_cast<char>(1 + Below(255));
      if (!key_name || (c != '/' && c != '\\')) return c;
    }
  }
  std::string Name(bool key_name) {
    std::string name(static_cast<size_t>(1 + Below(8)), ' ');
    for (char& c : name) c = Byte(key_name);
    return name;
  }

  void AddRandomValue(KeyNode* key) {
    const TypeShape shape = kTypes[Below(static_cast<int>(std::size(kTypes)))];
    const std::string name = Name(false);
    std::vector<unsigned char> data;
    if (shape.type == tSTRING) {
      const std::string text = Name(false) + Name(false);
      data.assign(text.begin(), text.end());
    } else if (shape.type == tWSTRING) {
      std::vector<wchar_t> wide(static_cast<size_t>(1 + Below(6)));
      for (wchar_t& w : wide) {
        const uint32_t ranges[][2] = {{1, 0x7F}, {0x80, 0x7FF}, {0x800, 0xD7FF}, {0xE000, 0xFFFF}, {0x10000, 0x10FFFF}};
        const auto* r = ranges[Below(5)];
        w = static_cast<wchar_t>(r[0] + rng_() % (r[1] - r[0] + 1));
      }
      data.resize(wide.size() * sizeof(wchar_t));
      std::memcpy(data.data(), wide.data(), data.size());
    } else if (shape.size == 0) {
      data.resize(static_cast<size_t>(shape.type == tVOID ? 0 : Below(9)));
      for (auto& b : data) b = static_cast<unsigned char>(rng_());
    } else {
      data.resize(shape.size);
      for (auto& b : data) b = static_cast<unsigned char>(rng_());
      if (shape.type == tBOOL) data = {static_cast<unsigned char>(rng_() & 1), 0, 0, 0};
      if (shape.type == tDOUBLE) {
        // Eighths have exact six-decimal texts.
        const double d = static_cast<double>(static_cast<int32_t>(rng_())) / 8;
        std::memcpy(data.data(), &d, sizeof d);
      }
    }
    ASSERT_EQ(AddValue(key, name.c_str(), shape.type, data.data(), static_cast<uint32_t>(data.size())), ResultOk);
  }

  std::mt19937 rng_;
};

// The tree as text, wide strings shown as the narrow ones they are written as.
std::string Narrowed(KeyNode* key) {
  std::string text = DescribeKey(key);
  for (size_t at; (at = text.find(":tWSTRING=")) != std::string::npos;) text.replace(at, 10, ":tSTRING=");
  return text;
}

class ProfileRoundTripTest : public TreeTest {};

TEST_F(ProfileRoundTripTest, GeneratedTreesSurviveWriteReadWrite) {
  for (uint32_t seed = 1; seed <= 150; ++seed) {
    ClearKey(root());
    Generator(seed).Fill(root(), 0);
    std::string first;
    ASSERT_EQ(WriteProfileDocument(&tree_, &first), ResultOk) << seed;

    PropertiesTree copy;
    ResetTree(&copy);
    ASSERT_EQ(InitTree(&copy, heap_.host()), ResultOk);
    EXPECT_EQ(ReadProfileDocument(&copy, first.data(), first.size()), ResultOk) << seed;
    std::string second;
    EXPECT_EQ(WriteProfileDocument(&copy, &second), ResultOk) << seed;
    EXPECT_EQ(first, second) << "seed " << seed;
    EXPECT_EQ(Narrowed(root()), Narrowed(copy.root)) << "seed " << seed;
    DestroyTree(&copy);
    ++expected_empty_names_;  // the copy's root keeps its empty name buffer
    if (HasFailure()) break;
  }
}

}  // namespace
}  // namespace propmap::testing
