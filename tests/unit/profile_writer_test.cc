// The writer's exact bytes: one row per construct, each building a small tree
// and comparing the whole document (lines joined with CR LF). The shipped
// sample profile, written back byte for byte through the module, covers the
// common number, block and string forms (tests/host).
#include <gtest/gtest.h>

#include <cmath>
#include <cstdio>
#include <functional>
#include <string>
#include <vector>

#include "profile_xml/document.h"
#include "profile_xml/xml_escape.h"
#include "tree_fixture.h"

namespace propmap::testing {
namespace {

// The document around the given lines, each indented one level and ended with CR LF.
std::string Doc(std::initializer_list<std::string> lines) {
  std::string out = "<propertiesmap>\r\n";
  for (const std::string& line : lines) out += "    " + line + "\r\n";
  return out + "</propertiesmap>\r\n";
}

class ProfileWriterTest : public TreeTest {
 protected:
  void AddText(KeyNode* key, const char* name, tag_TYPE_ID type, const char* text) {
    ASSERT_EQ(AddValueFromText(key, name, type, text), ResultOk) << name;
  }
  void AddData(KeyNode* key, const char* name, tag_TYPE_ID type, const void* data, uint32_t size) {
    ASSERT_EQ(AddValue(key, name, type, data, size), ResultOk) << name;
  }
};

TEST_F(ProfileWriterTest, WritesExactBytes) {
  struct Case {
    const char* what;
    std::function<void()> build;
    std::string expected;
  };
  const wchar_t wide[] = L"w\u00e9<&";
  std::string ab_hex;
  for (int i = 0; i < 40; ++i) ab_hex += "AB";
  const Case cases[] = {
      {"empty tree", [] {}, Doc({})},
      {"depth 3, sub-keys before values whatever the order of creation",
       [&] {
         AddText(Open("a"), "v", tDWORD, "1");
         KeyNode* c = Open("a/b/c");
         AddText(c, "x", tBOOL, "true");
         Open("a/b/c/d");
       },
       Doc({"<key name=\"a\">", "    <key name=\"b\">", "        <key name=\"c\">", "            <key name=\"d\">",
            "            </key>", "            <tBOOL name=\"x\">1</tBOOL>", "        </key>", "    </key>",
            "    <tDWORD name=\"v\">1</tDWORD>", "</key>"})},
      {"every escaped byte, in names and text",
       [&] { AddText(Open("k&\t"), "\"'&<>", tSTRING, "\"'&<>\x01\x1F\x7F\r\n\xC3\xA9 "); },
       Doc({"<key name=\"k&amp;&#x9;\">",
            "    <tSTRING name=\"&quot;&apos;&amp;&lt;&gt;\">&quot;&apos;&amp;&lt;&gt;&#x1;&#x1F;\x7F\r\n\xC3\xA9 "
            "</tSTRING>", "</key>"})},
      {"empty texts",
       [&] {
         ++expected_empty_names_;  // the empty value name keeps its one-byte buffer
         AddText(root(), "", tSTRING, "");
         AddText(root(), "void", tVOID, "");
         AddData(root(), "block", tBINARY, "", 0);
       },
       Doc({"<tSTRING name=\"\"></tSTRING>", "<tVOID name=\"void\"></tVOID>", "<tBINARY name=\"block\"></tBINARY>"})},
      {"a text is cut at its first zero byte",
       [&] { AddData(root(), "s", tSTRING, "ab\0cd", 5); },
       Doc({"<tSTRING name=\"s\">ab</tSTRING>"})},
      {"texts longer than the first room offered (a 40-byte block, 2^200), a boolean",
       [&] {
         AddData(root(), "b", tBINARY, std::string(40, '\xAB').data(), 40);
         const double big = -std::ldexp(1.0, 200);
         AddData(root(), "d", tDOUBLE, &big, sizeof big);
         AddText(root(), "t", tBOOL, "7");
       },
       Doc({"<tBINARY name=\"b\">" + ab_hex + "</tBINARY>",
            "<tDOUBLE name=\"d\">-1606938044258990275541962092341162602522202993782792835301376.000000</tDOUBLE>",
            "<tBOOL name=\"t\">1</tBOOL>"})},
      {"wide strings are written as narrow ones, escaped",
       [&] { AddData(root(), "w", tWSTRING, wide, sizeof(wide) - sizeof(wchar_t)); },
       Doc({"<tSTRING name=\"w\">w\xC3\xA9&lt;&amp;</tSTRING>"})},
  };
  for (const Case& c : cases) {
    ClearKey(root());
    c.build();
    std::string out;
    ASSERT_EQ(WriteProfileDocument(&tree_, &out), ResultOk) << c.what;
    EXPECT_EQ(out, c.expected) << c.what;
  }
}

// Clean words are copied whole: a special byte at every offset of a text
// longer than two words must come out as the byte-wise rule gives it.
TEST(EscapeTest, SpecialBytesAtEveryOffset) {
  auto reference = [](const std::string& text) {
    std::string out;
    for (char c : text) {
      const auto code = static_cast<unsigned char>(c);
      if (c == '"') out += "&quot;";
      else if (c == '&') out += "&amp;";
      else if (c == '\'') out += "&apos;";
      else if (c == '<') out += "&lt;";
      else if (c == '>') out += "&gt;";
      else if (code >= 1 && code < 32 && c != '\n' && c != '\r') {
        char hex[8];
        std::snprintf(hex, sizeof hex, "&#x%X;", code);
        out += hex;
      }
      else out += c;
    }
    return out;
  };
  for (char special : {'"', '&', '\'', '<', '>', '\t', '\x01', '\x1f', '\n', '\r', '\x7f', '\x80', '\0', '!', '='}) {
    for (size_t at = 0; at < 19; ++at) {
      std::string text(19, 'a');
      text[at] = special;
      std::string out = "x";
      {
        xml::TextSink sink(&out);
        xml::EscapeAppend(text.data(), text.size(), &sink);
      }
      ASSERT_EQ(out, "x" + reference(text)) << static_cast<int>(special) << " at " << at;
    }
  }
}

}  // namespace
}  // namespace propmap::testing
