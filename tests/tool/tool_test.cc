// The propmap tool driven as a user drives it: the built binary on copies of
// the sample profile in temporary directories, checked by exit code, output
// and the files left behind.
#include <fcntl.h>
#include <sys/stat.h>

#include <algorithm>
#include <cstdio>
#include <filesystem>
#include <set>
#include <array>
#include <atomic>
#include <thread>

#include <gtest/gtest.h>

#include "store.h"
#include "tool_runner.h"

namespace propmap_tool::testing {
namespace {

using Args = std::vector<std::string>;

std::set<std::string> Listing(const std::string& dir) {
  std::set<std::string> names;
  for (const auto& e : std::filesystem::directory_iterator(dir)) names.insert(e.path().filename());
  names.erase(".stdin");
  names.erase("profiles.xml.lock");
  return names;
}

// "k/k/.../k": a key path `levels` deep.
std::string DeepPath(size_t levels) {
  std::string path = "k";
  for (size_t i = 1; i < levels; ++i) path += "/k";
  return path;
}

class ToolTest : public ::testing::Test {
 protected:
  void SetUp() override {
    sample_ = *prhost::ReadWholeFile(PROPMAP_SOURCE_DIR "/examples/profiles.xml");
    ASSERT_TRUE(prhost::WriteWholeFile(Path("profiles.xml"), sample_));
  }
  std::string Path(const std::string& name) const { return dir_.Join(name); }
  Outcome Tool(const Args& args, const RunOptions& options = {}) const { return testing::Run(dir_.path(), args, options); }
  std::string Read(const std::string& name) const { return prhost::ReadWholeFile(Path(name)).value_or("<missing>"); }
  void Write(const std::string& name, const std::string& text) const {
    ASSERT_TRUE(prhost::WriteWholeFile(Path(name), text));
  }
  // Runs and requires success; returns stdout.
  std::string Ok(const Args& args) const {
    Outcome o = Tool(args);
    EXPECT_EQ(o.exit, 0) << args[0] << ": " << o.err;
    return o.out;
  }

  // Runs each step on the profile as the earlier ones left it. `out` is all
  // of stdout, or a part of it after "..."; `err` a part of stderr (none
  // when empty and the step succeeds).
  struct Step {
    Args args;
    int exit = 0;
    std::string out;
    std::string err = {};
    RunOptions options = {};
  };
  void Steps(const std::vector<Step>& steps) const {
    for (const Step& s : steps) {
      const Outcome o = Tool(s.args, s.options);
      std::string label;
      for (const std::string& a : s.args) label += a + " ";
      EXPECT_EQ(o.exit, s.exit) << label << "\n" << o.err;
      if (s.out.starts_with("...")) {
        EXPECT_NE(o.out.find(s.out.substr(3)), std::string::npos) << label << "\n" << o.out;
      } else {
        EXPECT_EQ(o.out, s.out) << label;
      }
      if (s.err.empty() && s.exit == 0) {
        EXPECT_EQ(o.err, "") << label;
      }
      EXPECT_NE(o.err.find(s.err), std::string::npos) << label << "\n" << o.err;
    }
  }

  // Everything of the sample is still in the profile (additions are fine).
  void ExpectSampleKept() const {
    Write("sample.xml", sample_);
    const std::string diff = Tool({"diff", "sample.xml", "profiles.xml"}).out;
    EXPECT_EQ(diff.find("- "), std::string::npos) << diff;
    EXPECT_EQ(diff.find("~ "), std::string::npos) << diff;
  }

  prhost::TempDir dir_;
  std::string sample_;
};

// get: the typed line for people, the bare text or bytes for scripts.
TEST_F(ToolTest, Get) {
  EXPECT_EQ(Ok({"set", "K/two lines", "a\nb", "--type", "string"}), "");
  Steps({
      {{"get", "Window/Width"}, 0, "Window/Width (tDWORD) = 1680\n"},
      {{"get", "Window/Width", "--value-only"}, 0, "1680\n"},
      {{"get", "Window\\Left", "--type", "tSTRING", "--raw"}, 0, "2D3800\n"},
      {{"get", "Window/Width", "--type", "DOUBLE"}, 0, "Window/Width (tDOUBLE) = 1680.000000\n"},
      {{"get", "Application/Installed"}, 0, "Application/Installed (tDATETIME) = 1735689600000 (2025-01-01T00:00:00.000Z)\n"},
      {{"get", "K/two lines"}, 0, "\"K/two lines\" (tSTRING) = a\\nb\n"},
      {{"--json", "get", "Application/InstallId"}, 0, "...\"type\": \"tQWORD\",\n  \"text\": \"9876543210123456789\""},
      {{"--root", "Window", "get", "Panels/Explorer/Dock", "--value-only"}, 0, "left\n"},
      {{"get", "Window/Nope/Width"}, 2, "", "ErrNotFound(0x8000D002): profiles.xml: key 'Window/Nope' does not exist"},
      {{"get", "Window/Depth"}, 2, "", "ErrNotFound(0x8000D002): profiles.xml: value 'Window/Depth' does not exist"},
      {{"--root", "Nope", "get", "a"}, 2, "", "ErrNotFound(0x8000D002): profiles.xml: root key 'Nope' does not exist"},
      {{"get", "Window/Width", "--type", "dwrod"}, 2, "", "'dwrod' is not a type name; did you mean 'tDWORD'?"},
  });
}

// ls and tree: names that would break a line are quoted, a key cut off by
// --depth says what it holds, and JSON comes out as the tree is walked.
TEST_F(ToolTest, Tree) {
  EXPECT_EQ(Ok({"set", "K/new key/v", "1", "--type", "dword"}), "");
  Steps({
      {{"ls", "Window"}, 0, "...Panels/\nWidth (tDWORD) = 1680\nHeight (tDWORD) = 1050\n"},
      {{"tree", "Window/Panels/Explorer"}, 0, "Visible (tBOOL) = 1\nSize (tDWORD) = 280\nDock (tSTRING) = left\n"},
      {{"tree", "Window/Panels", "--depth", "0"}, 0, "\u2026 5 keys\n"},
      {{"tree", "Window", "--depth", "1"}, 0, "...Panels/ \u2026 5 keys\nWidth (tDWORD) = 1680\n"},
      {{"tree", "K"}, 0, "\"new key\"/\n  v (tDWORD) = 1\n"},
      {{"--json", "tree", "Window/Panels"}, 0,
       "...\"name\": \"Explorer\",\n      \"values\": [\n        {\"name\": \"Visible\", \"type\": \"tBOOL\", \"text\": \"1\"},"},
      {{"--json", "tree", "Window", "--depth", "0"}, 0, "...\"cut_keys\": 1,\n  \"keys\": []\n}\n"},
      {{"--color", "always", "ls", "K"}, 0, "\033[1;34m\"new key\"/\033[0m\n"},
  });
}

// find: full paths of what matches, in the store's order; exit 1 for none.
TEST_F(ToolTest, Find) {
  Steps({
      {{"find", "DOCK", "Window/Panels/Outline"}, 0, "Window/Panels/Outline/Dock (tSTRING) = right\n"},
      {{"find", "explorer"}, 0, "Window/Panels/Explorer/\n"},
      {{"find", "-E", "^(left|right)$", "--data"}, 0,
       "Window/Panels/Explorer/Dock (tSTRING) = left\nWindow/Panels/Outline/Dock (tSTRING) = right\n"
       "Window/Panels/Search/Dock (tSTRING) = left\n"},
      {{"find", "Explorer", "--keys", "--case-sensitive"}, 0, "Window/Panels/Explorer/\n"},
      {{"find", "explorer", "--values"}, 1, ""},
      {{"--json", "find", "280"}, 0, "...\"kind\": \"value\",\n    \"path\": \"Window/Panels/Explorer/Size\""},
      {{"find", "(", "--regex"}, 2, "", "'(' is not a regular expression"},
  });
}

// mv: keys with everything below them and single values, renamed or moved
// into an existing key, in one save; what it refuses saves nothing.
TEST_F(ToolTest, Mv) {
  Steps({
      {{"mv", "Window/Panels", "Window/Docks"}, 0, ""},
      {{"get", "Window/Docks/Explorer/Size", "--value-only"}, 0, "280\n"},
      {{"mv", "Window/Docks", "Application"}, 0, ""},
      {{"ls", "Application/Docks/Search"}, 0, "...Dock (tSTRING) = left\n"},
      {{"mv", "Window/Width", "Application"}, 0, ""},
      {{"mv", "Application/Width", "Application/W"}, 0, ""},
      {{"get", "Application/W"}, 0, "Application/W (tDWORD) = 1680\n"},
      {{"mv", "window", "WINDOW"}, 0, ""},
      {{"ls"}, 0, "...WINDOW/\n"},
      {{"mv", "Application", "Application/Docks/x"}, 2, "", "cannot move into itself"},
      {{"mv", "Application/W", "Application/Name"}, 2, "", "ErrAlreadyExists(0x800000D1): profiles.xml: value "
                                                            "'Application/Name' already exists (tSTRING)"},
      {{"mv", "Editor", "Network"}, 0, ""},
      {{"mv", "Network/Editor", "Editor"}, 0, ""},
      {{"mv", "Nope", "X"}, 2, "", "ErrNotFound(0x8000D002): profiles.xml: 'Nope' is neither a key nor a value"},
  });
  Write("sample.xml", sample_);
  EXPECT_EQ(Tool({"diff", "sample.xml::Window/Panels", "profiles.xml::Application/Docks"}).out, "");
  EXPECT_EQ(Tool({"diff", "sample.xml::Editor", "profiles.xml::Editor"}).out, "");
}

// set: one value, several on the command line, or lines from a file, with
// one load and one save; any refused value saves none.
TEST_F(ToolTest, SetMany) {
  const std::string lines = "# comment\nA/s string two words\r\n\nA/b BOOL true\nA/d tdouble 0.5\n";
  Steps({
      {{"set", "A/x=1", "A/y=0x10", "--type", "tword"}, 0, ""},
      {{"set", "--from", "-"}, 0, "", "", {.input = lines}},
      {{"ls", "A"}, 0, "x (tWORD) = 1\ny (tWORD) = 16\ns (tSTRING) = two words\nb (tBOOL) = 1\nd (tDOUBLE) = 0.500000\n"},
      {{"set", "A/x=2", "A/y=-1", "--type", "tWORD"}, 2, "", "'A/y': tWORD takes 0 to 65535"},
      {{"set", "--from", "-"}, 2, "", "<stdin>:2: profiles.xml: 'A/z': tDWORD takes", {.input = "A/x word 3\nA/z dword x\n"}},
      {{"set", "--from", "-"}, 2, "", "<stdin>:1: a line is PATH TYPE VALUE", {.input = "A/x\n"}},
      {{"set", "A/x=1", "oops", "--type", "tWORD"}, 2, "", "'oops' is not PATH=VALUE"},
      {{"set", "A/x=1"}, 2, "", "set needs --type"},
      {{"get", "A/x", "--value-only"}, 0, "1\n"},
      {{"-v", "set", "A/v", "7", "--type", "uint"}, 0, "", "propmap: saved profiles.xml"},
  });
}

// edit: the editor is a script; a wrong document comes back with the message
// at the top, an unchanged or abandoned one saves nothing.
TEST_F(ToolTest, Edit) {
  Write("fix.sh", "if grep -q 'propmap: ' \"$1\"; then sed -i 's/>oops</>310</' \"$1\"; "
                  "else sed -i 's/>300</>oops</' \"$1\"; fi\n");
  auto editor = [](const std::string& command) { return RunOptions{.env = {{"VISUAL", ""}, {"EDITOR", command}}}; };
  Steps({
      {{"edit", "Window/Panels"}, 0, "~ Window/Panels/Explorer/Size (tDWORD) = 280 -> (tDWORD) = 300\n", "",
       editor("sed -i 's/>280</>300</'")},
      {{"edit", "Window/Panels/Explorer"}, 0, "~ Window/Panels/Explorer/Size (tDWORD) = 300 -> (tDWORD) = 310\n",
       "propmap-edit.xml:3:25: value 'Size' (tDWORD) refuses the text 'oops'", editor("sh fix.sh")},
      {{"edit", "Window", "--format", "json"}, 0, "~ Window/Width (tDWORD) = 1680 -> (tDWORD) = 1024\n", "",
       editor("sed -i 's/\"value\": 1680/\"value\": 1024/'")},
      {{"edit", "Window", "--format", "json"}, 1, "", "left with an error; nothing was saved",
       editor("grep -q propmap: \"$1\" || sed -i 's/\"values\"/\"values/'")},
      {{"edit"}, 0, "", "no changes; nothing was saved", editor("true")},
      {{"edit"}, 1, "", "the editor exited with status 1; nothing was saved", editor("false")},
      {{"edit"}, 1, "", "the document is empty", editor("truncate -s 0")},
      {{"get", "Window/Panels/Explorer/Size", "--value-only"}, 0, "310\n"},
  });
}

// completion: each script parses in its shell; bash completes a command and a
// key path of the profile named on the command line.
TEST_F(ToolTest, Completion) {
  for (const char* shell : {"bash", "zsh", "fish"}) Write(std::string("c.") + shell, Ok({"completion", shell}));
  if (std::system("command -v fish >/dev/null") == 0) {
    EXPECT_EQ(std::system(("fish -n " + Path("c.fish")).c_str()), 0);
  }
  Write("other.xml", "<propertiesmap><key name=\"Windows\"/><key name=\"Work\"/></propertiesmap>");
  Write("complete.sh", std::string("source c.bash\nCOMP_WORDS=(") + PROPMAP_TOOL + " \"$@\"); COMP_CWORD=$(($# ))\n"
                       "_propmap; printf '%s\\n' \"${COMPREPLY[@]}\"\n");
  const struct {
    std::string words;
    std::string replies;
  } rows[] = {
      {"get Window/Pa", "Window/Panels/\n"},
      {"-p other.xml get W", "Windows/\nWork/\n"},
      {"ls Window/Panels/Explorer/S", "Window/Panels/Explorer/Size\n"},
      {"se", "set\n"},
      {"set a 1 --type tDW", "tDWORD\n"},
      {"restore profiles.xml --from bak", "bak\nbak2\n"},
  };
  for (const auto& row : rows) {
    const std::string command = "cd " + dir_.path() + " && bash complete.sh " + row.words + " > out.txt";
    EXPECT_EQ(std::system(command.c_str()), 0);
    EXPECT_EQ(Read("out.txt"), row.replies) << row.words;
  }
}

// The command line itself: misspelt commands, the type catalogue, options
// that say what they take.
TEST_F(ToolTest, CommandLine) {
  Steps({
      {{"lss"}, 2, "", "propmap: unknown command 'lss'; did you mean 'ls'?"},
      {{"completion", "tcsh"}, 2, "", "tcsh not in {bash,zsh,fish}"},
      {{"-p", "profiles.xml", "frobnicate"}, 2, "", "propmap: unknown command 'frobnicate' ("},
      {{"types"}, 0, "...tDATETIME  milliseconds since 1970 UTC, unsigned 64-bit"},
      {{"--json", "types"}, 0, "...\"name\": \"tBINARY\",\n    \"id\": 48,"},
      {{"--backup-mode", "3", "ls"}, 2, "", "'3' is no backup mode: 0 none, 1 rolling, 2 first + rolling"},
      {{"set", "a", "1", "--type", "tVECTOR"}, 2, "", "values of type tVECTOR cannot be stored"},
      {{"-q", "set", "new/d", "1e-9", "--type", "double"}, 0, ""},
      {{"set", "new/d", "1e-9", "--type", "double"}, 0, "",
       "warning: profiles.xml: 'new/d': the profile keeps six decimals: '1e-9' is saved as 0.000000"},
      {{"--trace=600", "rm", "new/d"}, 0, "", "trace 600: prmap\tDeleteValue d"},
      {{"--trace=500", "set", "n", "1", "--type", "int"}, 0, "", "trace 400: prmap\tsave to temporary file profiles.xml.tmp"},
      {{"ls", "new"}, 0, ""},
  });
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
  std::string deep;
  for (int i = 0; i < 100'000; ++i) deep += R"({"name": "k", "keys": [)";
  for (int i = 0; i < 100'000; ++i) deep += "]}";
  Write("deep.json", R"({"format": "propmap", "keys": [)" + deep + "]}");
  const struct {
    Args args;
    std::string err;
    long file_size_limit = -1;
  } rows[] = {
      {{"-p", "missing.xml", "ls"}, "ErrFileNotFound(0x800000C5): missing.xml: the profile does not exist"},
      {{"-p", "missing.xml", "rm", "Window"}, "ErrFileNotFound(0x800000C5): missing.xml: the profile does not exist"},
      {{"-p", "torn.xml", "get", "Application/Name"}, "ErrBadDocument(0x800000C0): torn.xml"},
      {{"check", "torn.xml"}, "torn.xml:7:11: the document ends before its elements are closed"},
      {{"set", "Window/Width", "1", "--type", "tDWROD"}, "ErrBadParameter(0x80000046): 'tDWROD' is not a type name"},
      {{"rm", "Window"}, "Remove key 'Window' of profiles.xml with its 7 values and 1 sub-keys: give --yes"},
      {{"clean"}, "Empty the whole profile profiles.xml: remove its 2 values and 8 sub-keys: give --yes"},
      {{"-p", "-", "set", "a", "1", "--type", "tDWORD"}, "standard input cannot be written back"},
      {{"set", DeepPath(2049) + "/v", "1", "--type", "tDWORD"},
       "levels deep; a profile reads back at most 2048"},
      {{"rm", "Window/Nope"}, "ErrNotFound(0x8000D002): profiles.xml: key 'Window/Nope' does not exist"},
      {{"rm", "Window", "--value", "Depth"}, "profiles.xml: value 'Depth' of key 'Window' cannot be removed"},
      {{"cp", "Nope", "Copy"}, "ErrNotFound(0x8000D002): profiles.xml: key 'Nope' does not exist"},
      {{"--read-only", "set", "Window/Width", "1", "--type", "tDWORD"}, "ErrReadOnly(0x800000C1): profiles.xml"},
      {{"--read-only", "clean"}, "ErrReadOnly(0x800000C1): profiles.xml: key '' cannot be emptied"},
      {{"import", "bad.json"}, "bad.json value 'v': out of the range of tBYTE"},
      {{"import", "deep.json", "--dry-run"}, "deep.json: keys nested deeper than 2048 levels"},
      {{"import", "torn.json"}, "ErrBadDocument(0x800000C0): torn.json:1:34: syntax error while parsing value"},
      {{"-p", "nodir/p.xml", "set", "a", "1", "--type", "tDWORD"}, "nodir/p.xml: its directory nodir does not exist"},
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
    EXPECT_TRUE(Read("profiles.xml") == sample_) << row.err;
    // A save that failed may leave its temporary file; nothing else appears.
    std::set<std::string> now = Listing(dir_.path());
    std::erase_if(now, [](const std::string& n) { return n.starts_with("profiles.xml.tmp"); });
    EXPECT_EQ(now, files) << row.err;
  }
}

// rm, clean and cp, each read back; every save keeps the previous
// generation as .bak2, whatever the profile's name.
TEST_F(ToolTest, RmCleanCp) {
  Steps({
      {{"rm", "Window", "--value", "Width"}, 0, ""},
      {{"rm", "Window/Panels", "-y"}, 0, ""},
      {{"ls", "Window"}, 0, "...Height (tDWORD) = 1050\n"},
      {{"clean", "Users", "--yes"}, 0, ""},
      {{"ls", "Users"}, 0, ""},
      {{"cp", "Window", "W", "--to", "other.xml"}, 0, "", "propmap: created other.xml"},
      {{"diff", "profiles.xml::Window", "other.xml::W"}, 0, ""},
      {{"cp", "Window", "W2", "--to", "other.xml"}, 0, ""},
  });
  EXPECT_TRUE(prhost::FileExists(Path("profiles.xml.bak2")));
  EXPECT_TRUE(prhost::FileExists(Path("other.xml.bak2")));
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
      {"tBOOL", "true", "\"value\": 1"},
      {"tBINARY", "00ff10", "\"hex\": \"00FF10\""},
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
  EXPECT_EQ(Ok({"rm", "Users", "--yes"}), "");
  Outcome declined = Tool({"restore", "profiles.xml", "--from", "bak2"}, {.input = "n\n", .file_size_limit = -1});
  EXPECT_EQ(declined.exit, 1);
  EXPECT_NE(declined.out.find("+ Users/"), std::string::npos) << declined.out;
  EXPECT_EQ(Tool({"diff", "profiles.xml", "profiles.xml.bak2"}).exit, 1) << "declined: nothing restored";
  EXPECT_EQ(Tool({"restore", "profiles.xml", "--from", "bak2"}, {.input = "y\n", .file_size_limit = -1}).exit, 0);
  EXPECT_EQ(*prhost::ReadWholeFile(Path("profiles.xml")), sample_);

  // Interrupted saves: the profile is damaged; an old complete temporary
  // file, a newer complete one, a torn one and an empty one are beside it.
  const struct {
    const char* name;
    std::string text;
  } temporaries[] = {{"profiles.xml.tmp0a0b", "<propertiesmap></propertiesmap>"}, {"profiles.xml.tmp1a2b", sample_},
                     {"profiles.xml.tmp3c4d", sample_.substr(0, 500)}, {"profiles.xml.tmp5e6f", ""}};
  for (size_t i = 0; i < std::size(temporaries); ++i) {
    Write(temporaries[i].name, temporaries[i].text);
    const timespec times[2] = {{0, UTIME_OMIT}, {static_cast<time_t>(1'000'000 + i), 0}};
    ASSERT_EQ(::utimensat(AT_FDCWD, Path(temporaries[i].name).c_str(), times, 0), 0);
  }
  Write("profiles.xml", "<propertiesmap>");
  Outcome o = Tool({"restore", "profiles.xml", "--from", "tmp", "--yes"});
  EXPECT_EQ(o.exit, 0) << o.err;
  EXPECT_NE(o.err.find("restoring profiles.xml from ./profiles.xml.tmp1a2b"), std::string::npos) << o.err;
  EXPECT_EQ(Read("profiles.xml"), sample_);
  EXPECT_EQ(Read("profiles.xml.bak2"), "<propertiesmap>") << "the damaged file is kept";
  EXPECT_FALSE(prhost::FileExists(Path("profiles.xml.tmp1a2b")));
  Write("profiles.xml.bak", sample_);
  o = Tool({"restore", "profiles.xml", "--from", "bak"});
  EXPECT_EQ(o.exit, 0) << "nothing to ask";
  EXPECT_NE(o.err.find("no differences between profiles.xml and profiles.xml.bak; nothing to restore"),
            std::string::npos) << o.err;
}

// Two generations written by saves of another process; the test waits for
// each report before writing the next, so nothing depends on timing.
TEST_F(ToolTest, WatchReportsEachGeneration) {
  int out = -1, err = -1;
  const pid_t pid = Spawn(dir_.path(), {"watch", "profiles.xml", "--count", "3"}, &out, &err);
  std::string line;
  ASSERT_TRUE(ReadLine(err, &line));
  EXPECT_EQ(line, "propmap: watching profiles.xml");
  const struct {
    Args change;
    std::vector<std::string> report;
  } generations[] = {
      {{"set", "Window/Width", "800", "--type", "tDWORD"},
       {"~ Window/Width (tDWORD) = 1680 -> (tDWORD) = 800", "-- generation 1: 1 changes"}},
      {{"rm", "RecentFiles", "--yes"}, {"- RecentFiles/", "-- generation 2: 1 changes"}},
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
  // Deleted, then created again under the name: all of it is new.
  ASSERT_EQ(::unlink(Path("profiles.xml").c_str()), 0);
  for (const std::string expected : {"-- profiles.xml was deleted; still watching the name",
                                     "+ a (tDWORD) = 1", "-- generation 3: 1 changes"}) {
    if (expected.starts_with("+")) {
      EXPECT_EQ(Tool({"set", "a", "1", "--type", "tDWORD"}).exit, 0);
    }
    ASSERT_TRUE(ReadLine(out, &line));
    EXPECT_EQ(line, expected);
  }
  EXPECT_EQ(Wait(pid), 0);
  ::close(out);
  ::close(err);
}

// Each refused or accepted spelling of a value, per type: refused ones exit 2
// naming the value and what the type takes, and save nothing.
TEST_F(ToolTest, SetReadsNumbersStrictly) {
  const struct {
    const char* type;
    std::string text;
    const char* raw;  // native bytes as get --raw prints them; null: refused
  } rows[] = {
      {"tDWORD", "1e3", nullptr},       {"tDWORD", "12abc", nullptr},     {"tDWORD", "abc", nullptr},
      {"tDWORD", "", nullptr},          {"tDWORD", " 7", nullptr},        {"tDWORD", "-1", nullptr},
      {"tDWORD", "4294967296", nullptr}, {"tDWORD", "0x", nullptr},       {"tDWORD", "4294967295", "FFFFFFFF"},
      {"tDWORD", "0x1F", "1F000000"},   {"tDWORD", "010", "0A000000"},    {"tINT", "-2147483649", nullptr},
      {"tINT", "-2147483648", "00000080"}, {"tINT", "-0x10", "F0FFFFFF"}, {"tSBYTE", "128", nullptr},
      {"tQWORD", "-1", nullptr},        {"tQWORD", "18446744073709551616", nullptr},
      {"tLONG", "-9223372036854775808", "0000000000000080"},
      {"tDOUBLE", "abc", nullptr},      {"tDOUBLE", "1,5", nullptr},      {"tDOUBLE", "inf", nullptr},
      {"tDOUBLE", "1e300", nullptr},    {"tDOUBLE", "1.5", "000000000000F83F"},
      {"tBOOL", "true", "01000000"},    {"tBOOL", "false", "00000000"},   {"tBOOL", "yes", nullptr},
      {"tBOOL", "2", nullptr},          {"tCHAR", "65", nullptr},         {"tCHAR", "A", "41"},
      {"tBINARY", "0A1", nullptr},      {"tBINARY", "zz", nullptr},       {"tVOID", "", nullptr},
      {"tPTR", "00", nullptr},          {"tFUNC_PTR", "0", nullptr},      {"tWCHAR", "65", nullptr},
  };
  for (const auto& row : rows) {
    const std::string label = std::string(row.type) + " '" + row.text + "'";
    const std::string before = Read("profiles.xml");
    Outcome o = Tool({"set", "K/v", row.text, "--type", row.type});
    if (row.raw == nullptr) {
      EXPECT_EQ(o.exit, 2) << label;
      EXPECT_NE(o.err.find(std::string(row.type) + " "), std::string::npos) << label << ": " << o.err;
      EXPECT_TRUE(Read("profiles.xml") == before) << label;
    } else {
      EXPECT_EQ(o.exit, 0) << label << ": " << o.err;
      EXPECT_EQ(Ok({"get", "K/v", "--raw"}), std::string(row.raw) + "\n") << label;
    }
  }
  // JSON spells values as a person types them, or as JSON does.
  Write("v.json", R"({"format": "propmap", "values": [{"name": "b", "type": "tBOOL", "value": true},
                                                     {"name": "w", "type": "tDWORD", "value": "0x10"}]})");
  EXPECT_EQ(Tool({"import", "v.json"}).exit, 0);
  EXPECT_EQ(Ok({"get", "b", "--value-only"}) + Ok({"get", "w", "--value-only"}), "1\n16\n");
  Write("v.json", R"({"format": "propmap", "values": [{"name": "w", "type": "tDWORD", "value": "1e3"}]})");
  EXPECT_EQ(Tool({"import", "v.json"}).exit, 2);
}

// 20 commands at once, a few rounds: every value is kept, and all that was
// there before.
TEST_F(ToolTest, ConcurrentSetsKeepEveryValue) {
  constexpr int kProcesses = 20, kRounds = 3;
  for (int round = 0; round < kRounds; ++round) {
    std::vector<std::pair<pid_t, std::array<int, 2>>> running;
    for (int i = 0; i < kProcesses; ++i) {
      std::array<int, 2> fds{};
      const std::string n = std::to_string(round * kProcesses + i);
      const pid_t pid = Spawn(dir_.path(), {"set", "Conc/V" + n, n, "--type", "tDWORD"}, &fds[0], &fds[1]);
      running.emplace_back(pid, fds);
    }
    for (auto& [pid, fds] : running) {
      ::close(fds[0]);
      const std::string err = ReadAll(fds[1]);
      EXPECT_EQ(Wait(pid), 0) << err;
    }
  }
  const std::string listing = Ok({"ls", "Conc"});
  EXPECT_EQ(std::count(listing.begin(), listing.end(), '\n'), kProcesses * kRounds) << listing;
  ExpectSampleKept();
}

// A host that takes no lock saves again and again while the tool sets: the
// tool never takes the profile for missing, never drops what it loaded.
TEST_F(ToolTest, HostSavingMeanwhileLosesNothingOfTheTools) {
  std::atomic<bool> done{false};
  std::thread host([&] {
    auto module = prhost::Module::Load();
    for (uint32_t i = 0; !done || i < 50; ++i) {
      prhost::StoreConfig config;
      config.name = Path("profiles.xml");
      auto store = prhost::Store::Open(module, config);
      if (prhost::Failed(store->init_result().value_or(0))) continue;  // read while the tool renamed
      (void)store->client().SetDword(0, "Host" + std::to_string(i % 5), i);
      (void)store->registry().Flush(0);
    }
  });
  for (int i = 0; i < 30; ++i) {
    Outcome o = Tool({"set", "Tool/V", std::to_string(i), "--type", "tDWORD"});
    EXPECT_TRUE(o.exit == 0 || o.err.find("changed on disk by another program") != std::string::npos) << o.err;
    EXPECT_EQ(o.err.find("created"), std::string::npos) << o.err;
  }
  done = true;
  host.join();
  EXPECT_EQ(Ok({"set", "Tool/V", "last", "--type", "tSTRING"}), "");
  EXPECT_EQ(Ok({"get", "Tool/V", "--value-only"}), "last\n");
  ExpectSampleKept();
}

// Documents the module reads in part: check warns with the position (exit 1),
// a change is refused (exit 2) and saves nothing, --force saves and keeps the
// old file as the rolling backup.
TEST_F(ToolTest, PartsTheModuleDoesNotReadAreNotSavedOver) {
  const std::string root = "<propertiesmap>\r\n";
  const struct {
    std::string text;
    const char* where;  // FILE:LINE:COLUMN: what
  } rows[] = {
      {root + "  <key name=\"A\">junk<tDWORD name=\"x\">1</tDWORD></key>\r\n</propertiesmap>",
       "p.xml:2:17: text among the keys and values of 'A'"},
      {root + "  <key name=\"A\"><![CDATA[x]]></key>\r\n</propertiesmap>",
       "p.xml:2:17: a CDATA section among the keys and values of 'A'"},
      {root + "</propertiesmap>\r\n<propertiesmap/>", "p.xml:3:1: element <propertiesmap> after the root element"},
      {root + "</propertiesmap>\r\ntrailing", "p.xml:3:1: text after the root element"},
      {root + "  <key name=\"A\" id=\"7\"/>\r\n</propertiesmap>", "p.xml:2:3: attribute 'id' of key 'A'"},
      {root + "  <tSTRING name=\"s\">a<b/></tSTRING>\r\n</propertiesmap>", "p.xml:2:22: element <b> inside value 's'"},
      {"<server>primary<replica/></server>", "p.xml:1:16: element <replica> after the text of its parent"},
      {"<a>1</a>\n<b/>\ntext\n<c/>", "p.xml:4:1: element <c> after text at the top level"},
  };
  for (const auto& row : rows) {
    Write("p.xml", row.text);
    Outcome check = Tool({"check", "p.xml"});
    EXPECT_EQ(check.exit, 1) << row.where;
    EXPECT_NE(check.err.find(std::string("warning: ") + row.where), std::string::npos) << check.err;
    Outcome set = Tool({"-p", "p.xml", "set", "n", "1", "--type", "tDWORD"});
    EXPECT_EQ(set.exit, 2);
    EXPECT_NE(set.err.find(std::string("ErrBadDocument(0x800000C0): ") + row.where), std::string::npos) << set.err;
    EXPECT_EQ(Read("p.xml"), row.text);
    EXPECT_EQ(Tool({"-p", "p.xml", "--backup-mode", "0", "set", "n", "1", "--type", "tDWORD", "--force"}).exit, 0);
    EXPECT_EQ(Read("p.xml.bak2"), row.text) << row.where;
  }
}

// A value or element the module refuses, found at its position.
TEST_F(ToolTest, CheckFindsTheRefusedValue) {
  const std::string head = "<propertiesmap>\r\n  <key name=\"K\">\r\n    ";
  const struct {
    std::string line;
    const char* error;
  } rows[] = {
      {"<tDWORD name=\"Line\">-5</tDWORD>", "p.xml:3:25: value 'K/Line' (tDWORD) refuses the text '-5'"},
      {"<tDWROD name=\"Line\">5</tDWROD>", "p.xml:3:5: element <tDWROD> is neither a key nor a type name"},
      {"<tDWORD>5</tDWORD>", "p.xml:3:5: a tDWORD value without a name"},
  };
  for (const auto& row : rows) {
    Write("p.xml", head + row.line + "\r\n  </key>\r\n</propertiesmap>\r\n");
    for (const Args& args : {Args{"check", "p.xml"}, Args{"-p", "p.xml", "ls"}}) {
      Outcome o = Tool(args);
      EXPECT_EQ(o.exit, 2);
      EXPECT_NE(o.err.find(row.error), std::string::npos) << o.err;
    }
  }
  Write("p.xml", "<propertiesmap><tSTRING name=\"s\">\xFF</tSTRING></propertiesmap>");
  Outcome o = Tool({"check", "p.xml"});
  EXPECT_EQ(o.exit, 1);
  EXPECT_NE(o.err.find("warning: p.xml:1:34: bytes that are not UTF-8"), std::string::npos) << o.err;
}

// Two values of one name (and keys that a document merges) survive every
// walk; a file compared with itself has no differences.
TEST_F(ToolTest, DuplicateNamesSurviveRoundTrips) {
  Write("dup.xml", "<propertiesmap><key name=\"k\"><tSTRING name=\"v\">a</tSTRING><tSTRING name=\"v\">b</tSTRING>"
                   "</key><tDWORD name=\"y\">1</tDWORD><tDWORD name=\"Y\">2</tDWORD></propertiesmap>");
  Write("users.xml", "<users><user>a</user><user>b</user></users>");
  EXPECT_EQ(Tool({"diff", "dup.xml", "dup.xml"}).out, "");
  EXPECT_NE(Ok({"-p", "dup.xml", "tree"}).find("y (tDWORD) = 1\nY (tDWORD) = 2\n"), std::string::npos);
  Write("dup.json", Ok({"-p", "dup.xml", "export", "--format", "json"}));
  Write("dup.out.xml", Ok({"-p", "dup.xml", "export"}));
  const std::vector<Args> copies[] = {
      {{"-p", "a.xml", "import", "dup.json"}},
      {{"-p", "b.xml", "import", "dup.out.xml"}},
      {{"-p", "dup.xml", "cp", "", "c", "--to", "c.xml"}},
      {{"-p", "r.xml", "import", "dup.xml"}, {"-p", "r.xml", "clean", "-y"},
       {"restore", "r.xml", "--from", "bak2", "--yes"}},
  };
  const char* results[] = {"a.xml", "b.xml", "c.xml::c", "r.xml"};
  for (size_t i = 0; i < std::size(copies); ++i) {
    for (const Args& step : copies[i]) EXPECT_EQ(Tool(step).exit, 0) << step.back();
    Outcome d = Tool({"diff", "dup.xml", results[i]});
    EXPECT_EQ(d.exit, 0) << results[i] << "\n" << d.out << d.err;
  }
  // Repeated foreign elements come back as one key holding both values.
  EXPECT_EQ(Ok({"-p", "u.xml", "import", "users.xml"}), "");
  EXPECT_EQ(Ok({"-p", "u.xml", "tree"}), "users/\n  user/\n    noname (tSTRING) = a\n    noname (tSTRING) = b\n");
}

// Profiles and documents from pipes and standard input are read whole; a pipe
// is never written back.
TEST_F(ToolTest, PipesAndStandardInputAreReadWhole) {
  EXPECT_EQ(Tool({"check", "-"}, {.input = sample_}).out, "-: ResultOk, 101 keys, 426 values\n");
  EXPECT_EQ(Tool({"diff", "profiles.xml", "-"}, {.input = sample_}).exit, 0);
  ASSERT_EQ(::mkfifo(Path("fifo").c_str(), 0600), 0);
  std::thread writer([&] { prhost::WriteWholeFile(Path("fifo"), sample_); });
  Outcome o = Tool({"diff", "profiles.xml", "fifo"});
  // A tool that never opened the pipe must fail the test, not hang it: a
  // reader of our own lets the writer finish (the sample fits the pipe).
  const int unblock = ::open(Path("fifo").c_str(), O_RDONLY | O_NONBLOCK);
  writer.join();
  ::close(unblock);
  EXPECT_EQ(o.exit, 0) << o.out << o.err;
  o = Tool({"-p", "fifo", "set", "a", "1", "--type", "tDWORD"});
  EXPECT_EQ(o.exit, 2);
  EXPECT_NE(o.err.find("fifo: is not a regular file"), std::string::npos) << o.err;
  // A linked profile is saved to the file it leads to; the link stays.
  ASSERT_EQ(::symlink("profiles.xml", Path("link.xml").c_str()), 0);
  EXPECT_EQ(Ok({"-p", "link.xml", "set", "a", "1", "--type", "tDWORD"}), "");
  EXPECT_EQ(Ok({"get", "a", "--value-only"}), "1\n") << "saved at the file the link leads to";
  struct stat st;
  EXPECT_TRUE(::lstat(Path("link.xml").c_str(), &st) == 0 && S_ISLNK(st.st_mode));
}

// The deepest tree the module reads passes through every command.
TEST_F(ToolTest, DeepestTreePassesEveryCommand) {
  const std::string deep = DeepPath(2048);
  EXPECT_EQ(Tool({"-p", "deep.xml", "set", deep + "/v", "1", "--type", "tDWORD"}).exit, 0);
  Write("deep.json", Ok({"-p", "deep.xml", "export", "--format", "json"}));
  const std::vector<Args> steps = {
      {"check", "deep.xml"}, {"-p", "deep.xml", "tree"}, {"-p", "copy.xml", "import", "deep.json"},
      {"diff", "deep.xml", "copy.xml"}, {"-p", "deep.xml", "cp", "k", "k", "--to", "cp.xml"},
      {"-p", "deep.xml", "export"}, {"-p", "deep.xml", "rm", "k", "-y"},
  };
  for (const Args& step : steps) {
    Outcome o = Tool(step);
    EXPECT_EQ(o.exit, 0) << step[0] << " " << step[2] << ": " << o.err.substr(0, 300);
  }
}

}  // namespace
}  // namespace propmap_tool::testing
