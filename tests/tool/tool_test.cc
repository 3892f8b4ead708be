// The propmap tool driven as a user drives it: the built binary on copies of
// the sample profile in temporary directories, checked by exit code, output
// and the files left behind.
#include <algorithm>
#include <cstdio>
#include <filesystem>
#include <set>

#include <gtest/gtest.h>

#include "tool_runner.h"

namespace propmap_tool::testing {
namespace {

using Args = std::vector<std::string>;

std::set<std::string> Listing(const std::string& dir) {
  std::set<std::string> names;
  for (const auto& e : std::filesystem::directory_iterator(dir)) names.insert(e.path().filename());
  names.erase(".stdin");
  return names;
}

class ToolTest : public ::testing::Test {
 protected:
  void SetUp() override {
    sample_ = *prhost::ReadWholeFile(PROPMAP_SOURCE_DIR "/examples/profiles.xml");
    ASSERT_TRUE(prhost::WriteWholeFile(Path("profiles.xml"), sample_));
  }
  std::string Path(const std::string& name) const { return dir_.Join(name); }
  Outcome Tool(const Args& args, const RunOptions& options = {}) const { return testing::Run(dir_.path(), args, options); }
  // Runs and requires success; returns stdout.
  std::string Ok(const Args& args) const {
    Outcome o = Tool(args);
    EXPECT_EQ(o.exit, 0) << args[0] << ": " << o.err;
    return o.out;
  }

  prhost::TempDir dir_;
  std::string sample_;
};

// Reading commands: output of each on the sample.
TEST_F(ToolTest, ReadingCommandsPrintTypedValues) {
  const struct {
    Args args;
    std::string out;  // exact stdout, or a part of it when `part`
    bool part;
  } rows[] = {
      {{"get", "Window/Width"}, "1680\n", false},
      {{"get", "Window\\Left", "--type", "tSTRING", "--raw"}, "2D3800\n", false},
      {{"get", "Window/Width", "--type", "tDOUBLE"}, "1680.000000\n", false},
      {{"--json", "get", "Application/InstallId"}, "\"type\": \"tQWORD\",\n  \"text\": \"9876543210123456789\"", true},
      {{"ls", "Window"}, "Panels/\nWidth (tDWORD) = 1680\nHeight (tDWORD) = 1050\n", true},
      {{"tree", "Window/Panels", "--depth", "0"}, "", false},
      {{"tree", "Window/Panels/Explorer"}, "Visible (tBOOL) = 1\nSize (tDWORD) = 280\nDock (tSTRING) = left\n", false},
      {{"--root", "Window", "get", "Panels/Explorer/Dock"}, "left\n", false},
      {{"check", "profiles.xml"}, "profiles.xml: ResultOk, 101 keys, 426 values\n", false},
      {{"diff", "profiles.xml::Window", "profiles.xml::Window"}, "", false},
  };
  for (const auto& row : rows) {
    Outcome o = Tool(row.args);
    EXPECT_EQ(o.exit, 0) << row.args.back() << ": " << o.err;
    EXPECT_EQ(o.err, "") << "quiet unless asked";
    if (row.part) EXPECT_NE(o.out.find(row.out), std::string::npos) << o.out;
    else EXPECT_EQ(o.out, row.out) << row.args.back();
  }
}

TEST_F(ToolTest, TraceEchoesTheModulesLinesUpToTheLevel) {
  Outcome o = Tool({"--trace=600", "set", "Window/Width", "1", "--type", "tDWORD"});
  EXPECT_EQ(o.exit, 0);
  EXPECT_NE(o.err.find("trace 600: prmap\tSetValue Width"), std::string::npos) << o.err;
  EXPECT_NE(o.err.find("trace 400: prmap\tsave to temporary file profiles.xml.tmp"), std::string::npos);
  o = Tool({"--trace=500", "set", "Window/Width", "2", "--type", "tDWORD"});
  EXPECT_EQ(o.err.find("trace 600"), std::string::npos) << o.err;
}

// Every failure: its code and the file on stderr, exit 2, and no file touched.
TEST_F(ToolTest, FailuresNameTheCodeAndSaveNothing) {
  const std::string json = "{\"format\": \"propmap\", \"values\": [";
  for (const auto& [name, text] : {std::pair<const char*, std::string>{"torn.xml", sample_.substr(0, 300)},
                                   {"bad.json", json + R"({"name": "v", "type": "tBYTE", "value": 300}]})"},
                                   {"torn.json", json},
                                   {"odd.json", json + R"({"name": "b", "type": "tBINARY", "hex": "ABC"}]})"}}) {
    ASSERT_TRUE(prhost::WriteWholeFile(Path(name), text));
  }
  const struct {
    Args args;
    std::string err;
    long file_size_limit = -1;
  } rows[] = {
      {{"-p", "missing.xml", "ls"}, "ErrFileNotFound(0x800000C5): missing.xml: the profile cannot be loaded"},
      {{"-p", "torn.xml", "get", "Application/Name"}, "ErrBadDocument(0x800000C0): torn.xml"},
      {{"check", "torn.xml"}, "torn.xml: the document is malformed at line 7, column"},
      {{"set", "Window/Width", "1", "--type", "tDWROD"}, "ErrBadParameter(0x80000046): 'tDWROD' is not a type name"},
      {{"set", "Window/Width", "1", "--type", "tVECTOR"}, "ErrBadParameter(0x80000046): values of type tVECTOR"},
      {{"set", "Window/Width", "twelve", "--type", "tDWORD"}, "profiles.xml: tDWORD refuses the text 'twelve'"},
      {{"get", "Window/Nope/Width"}, "ErrNotFound(0x8000D002): profiles.xml: key 'Window/Nope' does not exist"},
      {{"get", "Window/Depth"}, "ErrNotFound(0x8000D002): profiles.xml: value 'Window/Depth' does not exist"},
      {{"rm", "Window/Nope"}, "ErrNotFound(0x8000D002): profiles.xml: key 'Window/Nope' cannot be removed"},
      {{"rm", "Window", "--value", "Depth"}, "profiles.xml: value 'Depth' of key 'Window' cannot be removed"},
      {{"cp", "Nope", "Copy"}, "ErrNotFound(0x8000D002): profiles.xml: key 'Nope' does not exist"},
      {{"--read-only", "set", "Window/Width", "1", "--type", "tDWORD"}, "ErrReadOnly(0x800000C1): profiles.xml"},
      {{"--read-only", "clean"}, "ErrReadOnly(0x800000C1): profiles.xml: key '' cannot be emptied"},
      {{"import", "bad.json"}, "bad.json value 'v': out of the range of tBYTE"},
      {{"import", "torn.json"}, "ErrBadDocument(0x800000C0): torn.json: is not a valid JSON document"},
      {{"import", "odd.json"}, "odd.json: value 'b': \"hex\" needs an even number of hex digits"},
      {{"import", "torn.xml"}, "ErrBadDocument(0x800000C0): torn.xml"},
      {{"set", "Window/Width", "1", "--type", "tDWORD"}, "ErrShortTransfer(0x8000004A): profiles.xml: cannot be saved", 4096},
      {{"set", "Window/Width", "1", "--type", "tDWORD"}, "ErrFileTooBig(0x80000078): profiles.xml: cannot be saved", 0},
      {{"diff", "profiles.xml", "missing.xml"}, "ErrFileNotFound(0x800000C5): missing.xml"},
      {{"--trace=x", "ls"}, "--trace takes a numeric level"},
  };
  const std::set<std::string> files = Listing(dir_.path());
  for (const auto& row : rows) {
    Outcome o = Tool(row.args, {.input = "", .file_size_limit = row.file_size_limit});
    EXPECT_EQ(o.exit, 2) << row.err;
    EXPECT_NE(o.err.find("propmap: "), std::string::npos);
    EXPECT_NE(o.err.find(row.err), std::string::npos) << o.err;
    EXPECT_EQ(*prhost::ReadWholeFile(Path("profiles.xml")), sample_) << row.err;
    // A save that failed may leave its temporary file; nothing else appears.
    std::set<std::string> now = Listing(dir_.path());
    std::erase_if(now, [](const std::string& n) { return n.starts_with("profiles.xml.tmp"); });
    EXPECT_EQ(now, files) << row.err;
  }
}

// Changing commands, each on a fresh copy, checked by a reading command.
TEST_F(ToolTest, ChangesAreSavedAndReadBack) {
  const struct {
    std::vector<Args> steps;
    Args check;
    std::string out;
  } rows[] = {
      {{{"set", "Window/Width", "1920", "--type", "tDWORD"}}, {"get", "Window/Width"}, "1920\n"},
      {{{"set", "Window/Width", "wide", "--type", "tSTRING"}}, {"--json", "ls", "Window"}, "\"type\": \"tSTRING\""},
      {{{"set", "New\\Deep/Key/v", "0A0B", "--type", "tBINARY"}}, {"get", "New/Deep/Key/v", "--raw"}, "0A0B\n"},
      {{{"rm", "Window/Panels"}, {"rm", "Window", "--value", "Width"}}, {"ls", "Window"}, "Height (tDWORD) = 1050\n"},
      {{{"clean", "Users"}}, {"ls", "Users"}, ""},
      {{{"cp", "Window", "Copy"}}, {"diff", "profiles.xml::Window", "profiles.xml::Copy"}, ""},
      {{{"cp", "Window", "W", "--to", "other.xml"}}, {"diff", "profiles.xml::Window", "other.xml::W"}, ""},
      {{{"-p", "fresh.xml", "set", "a/b", "-5", "--type", "tINT"}}, {"-p", "fresh.xml", "tree"}, "a/\n  b (tINT) = -5\n"},
  };
  for (const auto& row : rows) {
    ASSERT_TRUE(prhost::WriteWholeFile(Path("profiles.xml"), sample_));
    for (const Args& step : row.steps) EXPECT_EQ(Ok(step), "") << step[0];
    const std::string out = Ok(row.check);
    if (row.out.empty()) EXPECT_EQ(out, "") << row.check[1];
    else EXPECT_NE(out.find(row.out), std::string::npos) << out;
  }
  EXPECT_TRUE(prhost::FileExists(Path("profiles.xml.bak2"))) << "saves keep the previous generation";
}

// Export, import into an empty profile, and no difference: JSON and XML.
TEST_F(ToolTest, ExportImportRoundTripsWithoutDifference) {
  for (const char* format : {"json", "xml"}) {
    const std::string file = std::string("export.") + format, empty = std::string("empty-") + format + ".xml";
    ASSERT_TRUE(prhost::WriteWholeFile(Path(file), Ok({"export", "--format", format})));
    EXPECT_EQ(Ok({"-p", empty, "import", file}), "");
    Outcome d = Tool({"diff", "profiles.xml", empty});
    EXPECT_EQ(d.exit, 0) << format << ": " << d.out << d.err;
  }
  EXPECT_EQ(*prhost::ReadWholeFile(Path("export.xml")), sample_) << "the module's own writer";
}

// Every JSON shape, set by text and carried through export and import.
TEST_F(ToolTest, TypedJsonIsLossless) {
  const struct {
    const char* type;
    std::string text;
    const char* json;  // the value's JSON after its name and type
  } rows[] = {
      {"tBYTE", "255", "\"value\": 255"},
      {"tSBYTE", "-128", "\"value\": -128"},
      {"tSHORT", "-32768", "\"value\": -32768"},
      {"tINT", "-2147483648", "\"value\": -2147483648"},
      {"tLONG", "-9223372036854775808", "\"value\": \"-9223372036854775808\""},
      {"tQWORD", "18446744073709551615", "\"value\": \"18446744073709551615\""},
      {"tDOUBLE", "0.1", "\"value\": 0.1"},
      {"tCHAR", "x", "\"value\": 120"},
      {"tBINARY", "00ff10", "\"hex\": \"00FF10\""},
      {"tVOID", "", "\"value\": null"},
      {"tSTRING", "Gr\xC3\xBC\xC3\x9F" "e", "\"value\": \"Gr\xC3\xBC\xC3\x9F" "e\""},
      {"tSTRING", "\xFF\xFE", "\"hex\": \"FFFE\""},
  };
  for (const auto& row : rows) {
    const std::string name = "K/v" + std::to_string(&row - rows);
    EXPECT_EQ(Ok({"-p", "typed.xml", "set", name, row.text, "--type", row.type}), "");
  }
  const std::string json = Ok({"-p", "typed.xml", "export", "--format", "json"});
  for (const auto& row : rows) EXPECT_NE(json.find(row.json), std::string::npos) << row.type << "\n" << json;
  ASSERT_TRUE(prhost::WriteWholeFile(Path("typed.json"), json));
  EXPECT_EQ(Ok({"-p", "copy.xml", "import", "typed.json"}), "");
  Outcome d = Tool({"diff", "typed.xml", "copy.xml"});
  EXPECT_EQ(d.exit, 0) << d.out << d.err;
}

TEST_F(ToolTest, DiffAndDryRunReportTypedChanges) {
  ASSERT_TRUE(prhost::WriteWholeFile(Path("patch.json"),
                                     R"({"format": "propmap", "version": 1, "values": [],
                                        "keys": [{"name": "Window", "values": [
                                          {"name": "Width", "type": "tQWORD", "value": "1680"},
                                          {"name": "Dpi", "type": "tWORD", "value": 96}]}]})"));
  const std::string expected = "~ Window/Width (tDWORD) = 1680 -> (tQWORD) = 1680\n+ Window/Dpi (tWORD) = 96\n";
  EXPECT_EQ(Ok({"import", "patch.json", "--dry-run"}), expected);
  EXPECT_EQ(*prhost::ReadWholeFile(Path("profiles.xml")), sample_) << "a dry run saves nothing";
  EXPECT_EQ(Ok({"import", "patch.json"}), "");
  Outcome d = Tool({"diff", "profiles.xml.bak2", "profiles.xml"});
  EXPECT_EQ(d.exit, 1);
  EXPECT_EQ(d.out, expected);
}

TEST_F(ToolTest, RestorePutsABackupInPlace) {
  EXPECT_EQ(Ok({"rm", "Users"}), "");
  Outcome declined = Tool({"restore", "profiles.xml", "--from", "bak2"}, {.input = "n\n", .file_size_limit = -1});
  EXPECT_EQ(declined.exit, 1);
  EXPECT_NE(declined.out.find("+ Users/"), std::string::npos) << declined.out;
  EXPECT_EQ(Tool({"diff", "profiles.xml", "profiles.xml.bak2"}).exit, 1) << "declined: nothing restored";
  EXPECT_EQ(Tool({"restore", "profiles.xml", "--from", "bak2"}, {.input = "y\n", .file_size_limit = -1}).exit, 0);
  EXPECT_EQ(*prhost::ReadWholeFile(Path("profiles.xml")), sample_);

  // An interrupted save: the profile is damaged, a complete temporary file
  // and a torn one are left beside it.
  ASSERT_TRUE(prhost::WriteWholeFile(Path("profiles.xml.tmp1a2b"), sample_));
  ASSERT_TRUE(prhost::WriteWholeFile(Path("profiles.xml.tmp3c4d"), sample_.substr(0, 500)));
  ASSERT_TRUE(prhost::WriteWholeFile(Path("profiles.xml"), "<propertiesmap>"));
  EXPECT_EQ(Tool({"restore", "profiles.xml", "--from", "tmp", "--yes"}).exit, 0);
  EXPECT_EQ(*prhost::ReadWholeFile(Path("profiles.xml")), sample_);
  EXPECT_FALSE(prhost::FileExists(Path("profiles.xml.tmp1a2b")));
}

// Two generations written by saves of another process; the test waits for
// each report before writing the next, so nothing depends on timing.
TEST_F(ToolTest, WatchReportsEachGeneration) {
  int out = -1, err = -1;
  const pid_t pid = Spawn(dir_.path(), {"watch", "profiles.xml", "--count", "2"}, &out, &err);
  std::string line;
  ASSERT_TRUE(ReadLine(err, &line));
  EXPECT_EQ(line, "propmap: watching profiles.xml");
  const struct {
    Args change;
    std::vector<std::string> report;
  } generations[] = {
      {{"set", "Window/Width", "800", "--type", "tDWORD"},
       {"~ Window/Width (tDWORD) = 1680 -> (tDWORD) = 800", "-- generation 1: 1 changes"}},
      {{"rm", "RecentFiles"}, {"- RecentFiles/", "-- generation 2: 1 changes"}},
  };
  for (const auto& g : generations) {
    const auto before = prhost::ReadWholeFile(Path("profiles.xml"));
    EXPECT_EQ(Ok(g.change), "");
    if (prhost::ReadWholeFile(Path("profiles.xml")) == before) {  // nothing to report: don't wait for it
      ::kill(pid, SIGKILL);
      Wait(pid);
      ::close(out);
      ::close(err);
      FAIL() << "the change was not saved";
    }
    for (const std::string& expected : g.report) {
      ASSERT_TRUE(ReadLine(out, &line));
      EXPECT_EQ(line, expected);
    }
  }
  EXPECT_EQ(Wait(pid), 0);
  ::close(out);
  ::close(err);
}

}  // namespace
}  // namespace propmap_tool::testing
