// The reader: one row per construct with its result code and the tree it
// leaves (nothing is rolled back, so failures show their partial tree too).
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "profile_xml/document.h"
#include "tree_fixture.h"

namespace propmap::testing {
namespace {

class ProfileReaderTest : public TreeTest {
 protected:
  // Reads from a heap block of exactly the text's size, so that a read past
  // the range is an over-read the sanitizer sees.
  tERROR Read(const std::string& text) {
    std::vector<char> exact(text.begin(), text.end());
    return ReadProfileDocument(&tree_, exact.data(), exact.size());
  }
};

std::string Native(const std::string& body) { return "<propertiesmap>" + body + "</propertiesmap>"; }

struct ReadCase {
  std::string text;
  tERROR code;
  std::string tree;
};

const ReadCase kNativeCases[] = {
    // Documents without a profile element.
    {"", ErrBadParameter, ""},
    {"<?xml version='1.0'?>\r\n<!-- only a comment -->  ", ErrBadParameter, ""},
    {"<!DOCTYPE x><propertiesmap></propertiesmap>", ErrBadParameter, ""},
    {"text<propertiesmap></propertiesmap>", ErrBadParameter, ""},
    {"</propertiesmap>", ErrBadParameter, ""},
    {"<propertiesmap/>", ErrBadParameter, ""},
    {"<propertiesmap>", ErrBadDocument, ""},
    {"<\xC3\xA9/>", ErrBadDocument, ""},
    {"<propertiesmap", ErrBadDocument, ""},
    {"\xEF\xBB\xBF<propertiesmap></propertiesmap>", ErrBadParameter, ""},
    {"<propertiesmap></propertiesmap>", ResultOk, ""},
    {"<?xml version='1.0'?><!--c--> <propertiesmap a='1'>\r\n</propertiesmap >trailing <junk", ResultOk, ""},
    // Keys.
    {Native("<key name='A'/>"), ResultOk, "A{}"},
    {Native("<key name=\"A\"></key><key name='a'><key name='B'/></key>"), ResultOk, "A{B{}}"},
    {Native("<key name='A/B'/><key name='A\\C'/>"), ResultOk, "A{B{}C{}}"},
    {Native("<key name=''><tDWORD name='v'>1</tDWORD></key>"), ResultOk, "v:tDWORD=1;"},
    {Native("<key id='x' name = \"&lt;&#x41;&amp;\"/>"), ResultOk, "<A&{}"},
    {Native("<key Name='A'/>"), ErrBadParameter, ""},
    {Native("<Key name='A'/>"), ErrBadParameter, ""},
    {Native("<key name='A'x='1'/>"), ErrBadDocument, ""},
    {Native("<key name='A' x/>"), ErrBadDocument, ""},
    {Native("<key name='A/>"), ErrBadDocument, ""},
    {Native("<key name='a>b'/>"), ErrBadDocument, ""},
    {Native("<key name='A'></yek>"), ErrBadDocument, "A{}"},
    {Native("<key name='A'></key >"), ResultOk, "A{}"},
    {Native("<key name='A'></ key>"), ErrBadDocument, "A{}"},
    {"<propertiesmap><key name='A'>", ErrBadDocument, "A{}"},
    {"<propertiesmap><key name='A'></key>", ErrBadDocument, "A{}"},
    // Values.
    {Native("<tDWORD name='a'>7</tDWORD><tDWORD name='a'>8</tDWORD>"), ResultOk, "a:tDWORD=7;a:tDWORD=8;"},
    {Native("<tSTRING name='s'> 5 </tSTRING>"), ResultOk, "s:tSTRING= 5 ;"},
    {Native("<tSTRING name='s'></tSTRING><tBOOL name='b'>true</tBOOL>"), ResultOk, "s:tSTRING=;b:tBOOL=1;"},
    {Native("<tWSTRING name='w'>41000000</tWSTRING>"), ResultOk, "w:tWSTRING=A;"},
    {Native("<tSTRING name='s'>a<!--c-->b<?p?>c<![CDATA[<&amp;>]]>&amp;</tSTRING>"), ResultOk,
     "s:tSTRING=abc<&amp;>&;"},
    {Native("<tSTRING name='s'>&#x41;&#65;&#x20AC;&#x1F600;|&#x110000;|&#x10FFFF;|&foo;&#0;&;&#x;&#12&amp</tSTRING>"), ResultOk,
     "s:tSTRING=AA\xE2\x82\xAC\xF0\x9F\x98\x80||\xF4\x8F\xBF\xBF|&foo;&#0;&;&#x;&#12&amp;"},
    // Each UTF-8 length at both of its edges.
    {Native("<tSTRING name='s'>&#x7F;&#x80;&#x7FF;&#x800;&#xFFFF;&#x10000;</tSTRING>"), ResultOk,
     "s:tSTRING=\x7F\xC2\x80\xDF\xBF\xE0\xA0\x80\xEF\xBF\xBF\xF0\x90\x80\x80;"},
    {Native("<tSTRING name='s'>&#4294967361;&#x100000041;</tSTRING>"), ResultOk, "s:tSTRING=AA;"},
    {Native("<tSTRING name='s'>a\r\nb</tSTRING>"), ResultOk, "s:tSTRING=a\r\nb;"},
    {Native("<tSTRING name='s'>x<b>y</b>z</tSTRING><tDWORD name='d'>1</tDWORD>"), ResultOk,
     "s:tSTRING=x;d:tDWORD=1;"},
    // Names are decoded, and end at a raw zero byte as a terminated copy would.
    {Native("<key name='a&amp;b/c'/><tDWORD name='x&lt;y'>1</tDWORD>"), ResultOk, "x<y:tDWORD=1;a&b{c{}}"},
    {Native(std::string("<tDWORD name='ab\0cd'>1</tDWORD>", 32)), ResultOk, "ab:tDWORD=1;"},
    {Native("<tDWORD>1</tDWORD>"), ErrBadParameter, ""},
    {Native("<tSTRING name='s'/>"), ErrBadDocument, ""},
    {Native("<tFOO name='s'>x</tFOO>"), ErrBadParameter, ""},
    {Native("<tdword name='s'>1</tdword>"), ErrBadParameter, ""},
    {Native("<tVECTOR name='s'>1</tVECTOR>"), ErrNoMemory, ""},
    {Native("<tDWORD name='a'>1</tDWORD><tDWORD name='b'>x</tDWORD><tDWORD name='c'>3</tDWORD>"), ErrBadParameter,
     "a:tDWORD=1;"},
    {Native("<tWCHAR name='w'>x</tWCHAR>"), ErrNotApplicable, ""},
    {Native("<tSTRING name='s'>a</tDWORD>"), ErrBadDocument, "s:tSTRING=a;"},
    {"<propertiesmap><tSTRING name='s'>abc", ErrBadDocument, "s:tSTRING=abc;"},
    {"<propertiesmap><tSTRING name='s'><![CDATA[abc", ErrBadDocument, "s:tSTRING=;"},
    {"<propertiesmap><tSTRING name='s'>a&am", ErrBadDocument, "s:tSTRING=a&am;"},
    // Text, CDATA or odd markup among children ends the key's children.
    {Native("<key name='A'>junk<tDWORD name='x'>1</tDWORD></key><tDWORD name='y'>2</tDWORD>"), ResultOk,
     "y:tDWORD=2;A{}"},
    {Native("<tDWORD name='x'>1</tDWORD><![CDATA[z]]><tDWORD name='y'>2</tDWORD>"), ResultOk, "x:tDWORD=1;"},
    // Other markup ends the children too, but skipping to the end tag refuses it.
    {Native("<tDWORD name='x'>1</tDWORD><!x><key name='A'/>"), ErrBadDocument, "x:tDWORD=1;"},
    {Native("<tDWORD name='x'>1</tDWORD><!-- <key name='A'/> --><key name='B'/>"), ResultOk, "x:tDWORD=1;B{}"},
    {Native("<tDWORD name='x'>1</tDWORD>tail"), ResultOk, "x:tDWORD=1;"},
    {Native("<key name='A'>junk<a><b/></a></c></key>"), ErrBadDocument, "A{}"},
    {Native("<key name='A'>junk<a><</a></key>"), ErrBadDocument, "A{}"},
    // An unclosed comment among elements ends the text there.
    {"<propertiesmap><key name='A'/><!-- <key name='B'/>", ErrBadDocument, "A{}"},
};

TEST_F(ProfileReaderTest, NativeDocuments) {
  for (const ReadCase& c : kNativeCases) {
    ClearKey(root());
    EXPECT_EQ(Read(c.text), c.code) << c.text;
    EXPECT_EQ(DescribeKey(root()), c.tree) << c.text;
  }
}

const ReadCase kForeignCases[] = {
    {"<config id=\"7\">hello</config>", ResultOk, "config{id:tSTRING=7;noname:tSTRING=hello;}"},
    {"<?xml version='1.0'?><r><a/><A x='1' y=\"&lt;\"/><a/></r>", ResultOk,
     "r{a{}A{x:tSTRING=1;y:tSTRING=<;}a{}}"},
    {"<r>  text &amp; <a/> more</r>", ResultOk, "r{noname:tSTRING=text & ;}"},
    {"<r> \r\n<a>x</a> </r>", ResultOk, "r{a{noname:tSTRING=x;}}"},
    {"<r><![CDATA[ x]]><a/></r>", ResultOk, "r{}"},
    {"<r><![CDATA[x<]]> y<!--c--><![CDATA[&amp;]]><a/></r>", ResultOk, "r{noname:tSTRING=x< y&amp;;}"},
    {"<r><![CDATA[]]>x</r>", ResultOk, "r{noname:tSTRING=x;}"},
    {"<a></a><b c='d'/>tail<c/>", ResultOk, "noname:tSTRING=tail;a{}b{c:tSTRING=d;}"},
    {"<a:b.c-d\xC3\xA9/>", ErrBadParameter, ""},
    {"<a:b.c-d\xC0\xB7></a:b.c-d\xC0\xB7>", ResultOk, "a:b.c-d\xC0\xB7{}"},
    // Continuation bytes other than 0xB7 end an element name: the rest of the
    // tag is then no attribute.
    {"<a\xC3\xA9></a\xC3\xA9>", ErrBadDocument, ""},
    {"<r><a/><b></r>", ErrBadDocument, "r{a{}b{}}"},
    {"<r><a x='1'y='2'/></r>", ErrBadDocument, "r{}"},
    {"<r>", ErrBadDocument, "r{}"},
    {"<r><a/>", ErrBadDocument, "r{a{}}"},
    {"<r></r><x", ErrBadDocument, "r{}"},
    {"<r>x</r></r>", ResultOk, "r{noname:tSTRING=x;}"},
};

TEST_F(ProfileReaderTest, ForeignDocuments) {
  for (const ReadCase& c : kForeignCases) {
    ClearKey(root());
    EXPECT_EQ(Read(c.text), c.code) << c.text;
    EXPECT_EQ(DescribeKey(root()), c.tree) << c.text;
  }
}

// Nesting is limited before recursing: 2049 non-empty keys fail whatever
// follows, a self-closing key one level deeper still reads, and nesting far
// beyond the limit fails without exhausting the stack.
TEST_F(ProfileReaderTest, NestingLimit) {
  auto nested = [](int depth, const std::string& open, const std::string& innermost, const std::string& close) {
    std::string text;
    for (int i = 0; i < depth; ++i) text += open;
    text += innermost;
    for (int i = 0; i < depth; ++i) text += close;
    return text;
  };
  const struct {
    std::string text;
    tERROR code;
  } cases[] = {
      {Native(nested(2048, "<key name='k'>", "<key name='k'/>", "</key>")), ResultOk},
      {Native(nested(2049, "<key name='k'>", "", "</key>")), ErrIo},
      {Native(nested(2048, "<key name='k'>", "<tDWORD name='v'>1</tDWORD>", "</key>")), ResultOk},
      {Native(nested(2049, "<key name='k'>", "<tDWORD name='v'>1</tDWORD>", "</key>")), ErrIo},
      {Native(nested(200000, "<key name='k'>", "", "</key>")), ErrIo},
      // A foreign top-level element is already one level below the root.
      {nested(2048, "<e>", "<e/>", "</e>"), ResultOk},
      {nested(2049, "<e>", "", "</e>"), ErrIo},
      {nested(200000, "<e>", "", "</e>"), ErrIo},
  };
  for (const auto& c : cases) {
    ClearKey(root());
    EXPECT_EQ(Read(c.text), c.code) << c.text.size();
  }
}

}  // namespace
}  // namespace propmap::testing
