// Loading and saving profiles through the real module, on real files in a
// temporary directory: the backup modes with their trace lines, the first
// save of a new profile, kept permissions, create-if-missing, the size and
// '%' warnings, long names, host streams and concurrent saves.
#include <pthread.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdio>
#include <string>
#include <thread>
#include <vector>

#include "generations.h"
#include "host_fixture.h"
#include "stream.h"
#include "temp_dir.h"

namespace prhost::testing {
namespace {

constexpr tERROR kErrAlreadyExists = Code(0x800000D1);
constexpr tERROR kErrFileNotFound = Code(0x800000C5);
constexpr tERROR kErrIo = Code(0x80000059);
constexpr tERROR kErrNameTooLong = Code(0x8000005C);
constexpr tERROR kFsNoEntry = Code(0x80010102);

std::string ThreadHex() {
  char text[16];
  std::snprintf(text, sizeof text, "%x", static_cast<unsigned>(pthread_self()));
  return text;
}

class ProfilePersistenceTest : public HostTest {
 protected:
  // A store on `path` holding generation `n` (a dword and a text that both
  // depend on n), flushed; returns the Flush result.
  tERROR SaveGeneration(const std::string& path, uint32_t n, uint8_t backup_mode = 0) {
    Store& s = OpenStore({.name = path, .loader_flags = 2, .backup_mode = backup_mode});
    SetGeneration(s, n);
    return s.registry().Flush(0);
  }
  static void SetGeneration(Store& s, uint32_t n) { ASSERT_EQ(Rc{testing::SetGeneration(s.registry(), n)}, Rc{kOk}); }
  // The generation a profile file holds, checked whole; 0 when it does not load.
  uint32_t GenerationIn(const std::string& path) {
    Store& s = OpenStore({.name = path});
    return *s.init_result() == kOk ? GenerationOf(s.registry()) : 0;
  }
  // Lines below the operations' own level, as "level text".
  static std::vector<std::string> Lines(const Store& s) {
    std::vector<std::string> out;
    for (const TraceLine& l : s.TraceLines()) {
      if (l.level < 600) out.push_back(std::to_string(l.level) + " " + l.text);
    }
    return out;
  }
  TempDir dir_;
};

// The second save of a profile in each backup mode: which files hold which
// generation afterwards, and the lines written on the way.
TEST_F(ProfilePersistenceTest, BackupModes) {
  struct Row {
    const char* name;
    uint8_t mode;
    bool first_backup_exists;
    uint32_t rolling;  // generation in .bak2 (0: none)
    uint32_t first;    // generation in .bak (0: none)
  } rows[] = {
      {"profiles.xml", 0, false, 1, 0}, {"other.xml", 0, false, 0, 0}, {"other.xml", 1, false, 1, 0},
      {"other.xml", 2, false, 1, 2},    {"profiles.xml", 2, true, 1, 9},
  };
  for (const Row& row : rows) {
    SCOPED_TRACE(std::string(row.name) + " mode " + std::to_string(row.mode));
    TempDir dir;
    const std::string p = dir.Join(row.name);
    ASSERT_EQ(Rc{SaveGeneration(p, 1)}, Rc{kOk});
    ::unlink((p + ".bak2").c_str());
    if (row.first_backup_exists) { ASSERT_EQ(Rc{SaveGeneration(p + ".bak", 9)}, Rc{kOk}); }

    Store& s = OpenStore({.name = p, .backup_mode = row.mode});
    SetGeneration(s, 2);
    ASSERT_EQ(Rc{s.registry().Flush(0)}, Rc{kOk});
    EXPECT_EQ(s.Field(prop::kBackupMode), row.mode == 2 ? 1u : row.mode);
    EXPECT_EQ(GenerationIn(p), 2u);
    EXPECT_EQ(FileExists(p + ".bak2") ? GenerationIn(p + ".bak2") : 0, row.rolling);
    EXPECT_EQ(FileExists(p + ".bak") ? GenerationIn(p + ".bak") : 0, row.first);
    EXPECT_FALSE(FileExists(p + ".tmp" + ThreadHex()));

    std::vector<std::string> expected = {"400 prmap\tsave to temporary file " + p + ".tmp" + ThreadHex() +
                                         ", backup mode: " + std::to_string(row.mode)};
    if (row.mode == 2) {
      expected.push_back("500 prmap\ttrying to do first backup to " + p + ".bak");
      if (row.first_backup_exists) {
        expected.push_back("300 prmap\tcannot do first backup: " + FormatResult(kErrAlreadyExists));
      }
    }
    if (row.rolling != 0) {
      const std::string parking = p + ".bak2" + ThreadHex();
      expected.push_back("500 prmap\ttrying to back up to " + p + ".bak2");
      expected.push_back("300 prmap\tcannot move profiles.xml.bak2 to " + parking + ": " +
                         FormatResult(kErrFileNotFound));
      expected.push_back("300 prmap\tcannot remove " + parking + ": " + FormatResult(kFsNoEntry));
    }
    EXPECT_EQ(Lines(s), expected);
  }
}

TEST_F(ProfilePersistenceTest, SavesKeepPermissionsAndSkipWhenClean) {
  const std::string p = dir_.Join("profiles.xml");
  ASSERT_EQ(Rc{SaveGeneration(p, 1)}, Rc{kOk});
  ASSERT_EQ(::chmod(p.c_str(), 0604), 0);
  Store& s = OpenStore({.name = p});
  EXPECT_EQ(Rc{s.registry().Flush(0)}, Rc{kOk});
  EXPECT_EQ(Lines(s), std::vector<std::string>{"400 prmap\tskip saving because data wasn`t changed"});
  SetGeneration(s, 2);
  EXPECT_EQ(Rc{s.registry().Flush(0)}, Rc{kOk});
  struct stat st;
  ASSERT_EQ(::stat(p.c_str(), &st), 0);
  EXPECT_EQ(st.st_mode & 07777, 0604u);
  // The first save moved the profile created empty at load to the rolling
  // backup, so neither later save writes the parking lines.
  SetGeneration(s, 3);
  EXPECT_EQ(Rc{s.registry().Flush(0)}, Rc{kOk});
  EXPECT_EQ(Lines(s).size(), 1u + 2 + 2);
  EXPECT_EQ(GenerationIn(p + ".bak2"), 2u);
}

TEST_F(ProfilePersistenceTest, FirstSaveOfANewProfile) {
  const std::string p = dir_.Join("new/deeper/settings.xml");
  const mode_t mask = ::umask(022);
  Store& s = OpenStore({.name = p, .loader_flags = 2});
  EXPECT_EQ(Rc{*s.init_result()}, Rc{kOk});
  ASSERT_TRUE(FileExists(p)) << "created empty";
  ::unlink(p.c_str());
  SetGeneration(s, 5);
  EXPECT_EQ(Rc{s.registry().Flush(0)}, Rc{kOk});
  ::umask(mask);
  const std::vector<std::string> lines = Lines(s);
  ASSERT_EQ(lines.size(), 2u);
  EXPECT_EQ(lines[1], "300 stat\tFlush : 0x2");
  struct stat st;
  ASSERT_EQ(::stat(p.c_str(), &st), 0);
  EXPECT_EQ(st.st_mode & 07777, 0640u) << "no chmod: the creation mode less the umask";
  EXPECT_EQ(GenerationIn(p), 5u);
}

// Results of initialisation for profiles in each state, with the warning
// lines and whether the store counts as loaded.
TEST_F(ProfilePersistenceTest, LoadResults) {
  for (const auto& [name, text] : {std::pair<const char*, const char*>{"file", "x"}, {"empty.xml", ""},
                                   {"garbage.xml", "this is not a profile"}, {"torn.xml", "<a><b></a>"},
                                   {"foreign.xml", "<config><server port=\"80\">main</server></config>"}}) {
    ASSERT_TRUE(WriteWholeFile(dir_.Join(name), text));
  }
  ASSERT_EQ(Rc{SaveGeneration(dir_.Join("50%done.xml"), 4)}, Rc{kOk});
  ASSERT_EQ(Rc{SaveGeneration(dir_.Join("bom.xml"), 6)}, Rc{kOk});
  ASSERT_TRUE(WriteWholeFile(dir_.Join("bom.xml"), "\xEF\xBB\xBF" + *ReadWholeFile(dir_.Join("bom.xml"))));
  struct Row {
    std::string name;
    uint32_t flags;
    tERROR code;
    uint32_t gen;
    std::vector<std::string> lines;
  } rows[] = {
      {dir_.Join("missing.xml"), 0, kErrFileNotFound, 0, {}},
      {dir_.Join("made/here.xml"), 2, kOk, 0, {}},
      {dir_.Join("empty.xml"), 0, kOk, 0, {}},
      {dir_.Join("bom.xml"), 0, kOk, 6, {}},
      {dir_.Join("garbage.xml"), 2, kErrBadParameter, 0, {}},
      {dir_.Join("torn.xml"), 0, Code(0x800000C0), 0, {}},
      {dir_.Join("foreign.xml"), 0, kOk, 0, {}},
      {dir_.Join("50%done.xml"), 0, kOk, 4,
       {"350 prmap\t" + dir_.Join("50%done.xml") +
        " contains '%' symbol, but environment variable expansion is currently not supported"}},
      {dir_.Join("file/profiles.xml"), 0, kErrFileNotFound, 0, {}},
      {dir_.Join("file/profiles.xml"), 2, kErrFileNotFound, 0, {}},
      {dir_.path() + "/" + std::string(5000, 'n'), 2, kErrNameTooLong, 0, {}},
  };
  for (const Row& row : rows) {
    SCOPED_TRACE(row.name.substr(0, 200));
    Store& s = OpenStore({.name = row.name, .loader_flags = row.flags});
    EXPECT_EQ(Rc{*s.init_result()}, Rc{row.code});
    EXPECT_EQ(GenerationOf(s.registry()), row.gen);
    EXPECT_EQ(Lines(s), row.lines);
    if (row.flags == 2 && row.code == kOk) { EXPECT_EQ(ReadWholeFile(row.name), ""); }
  }
}

// A pending root point applies when a profile loads: found, it becomes the
// root; missing, it is initialisation's result. Without a profile the root
// stays at the top either way (the kept text is freed with the store).
TEST_F(ProfilePersistenceTest, PendingRootPoint) {
  const std::string p = dir_.Join("profiles.xml");
  {
    Store& s = OpenStore({.name = p, .loader_flags = 2});
    ASSERT_TRUE(Succeeded(s.client().OpenKey("Apps/Editor", true).code));
    ASSERT_EQ(Rc{s.registry().Flush(0)}, Rc{kOk});
  }
  const struct {
    std::optional<std::string> name;
    const char* pending;
    tERROR code;
    const char* root;
  } rows[] = {{p, "apps/editor", kOk, "Apps\\Editor"}, {p, "Apps/Viewer", kErrNotFound, ""}, {{}, "", kOk, ""},
              {{}, "Missing\\Key", kOk, ""}};
  for (const auto& row : rows) {
    SCOPED_TRACE(row.pending);
    Store& s = OpenStore({.name = row.name, .root_point = row.pending});
    EXPECT_EQ(Rc{*s.init_result()}, Rc{row.code});
    EXPECT_EQ(s.GetRootPoint().value, row.root);
    EXPECT_EQ(s.GetRootKeyProperty().value, s.client().OpenKey("").value);
  }
}

TEST_F(ProfilePersistenceTest, LargeProfileIsTracedAndLoadedWhole) {
  const std::string p = dir_.Join("big.xml");
  {
    Store& s = OpenStore({.name = p, .loader_flags = 2});
    ASSERT_EQ(Rc{s.client().SetString(0, "blob", std::string(11u << 20, 'z'))}, Rc{kOk});
    ASSERT_EQ(Rc{s.registry().Flush(0)}, Rc{kOk});
  }
  struct stat st;
  ASSERT_EQ(::stat(p.c_str(), &st), 0);
  ASSERT_GT(st.st_size, 11 << 20);
  Store& s = OpenStore({.name = p});
  EXPECT_EQ(Rc{*s.init_result()}, Rc{kOk});
  EXPECT_EQ(Lines(s), std::vector<std::string>{"350 prmap\t" + p + " file size is too big (" +
                                               std::to_string(st.st_size) + " > 10Mb)"});
  EXPECT_EQ(s.client().GetString(0, "blob").value.size(), 11u << 20);
}

TEST_F(ProfilePersistenceTest, HostStream) {
  MemoryStream stream;
  {
    Store& s = OpenStore({.source = stream.object()});
    SetGeneration(s, 7);
    EXPECT_EQ(Rc{s.registry().Flush(0)}, Rc{kOk});
    EXPECT_EQ(stream.calls().flushes, 1u);
  }
  Store& loaded = OpenStore({.source = stream.object()});
  EXPECT_EQ(Rc{*loaded.init_result()}, Rc{kOk});
  EXPECT_EQ(GenerationOf(loaded.registry()), 7u);

  const struct {
    void (MemoryStream::*fail)(tERROR);
    tERROR code;
  } failures[] = {{&MemoryStream::FailGetSize, kErrIo}, {&MemoryStream::FailReads, kErrNoMemory}};
  for (const auto& f : failures) {
    MemoryStream failing(stream.content());
    (failing.*f.fail)(f.code);
    Store& s = OpenStore({.source = failing.object()});
    EXPECT_EQ(Rc{*s.init_result()}, Rc{f.code});
    EXPECT_EQ(s.client().ValueNames(0).value.size(), 0u);
  }
  MemoryStream refusing;
  refusing.FailWrites(kErrIo);
  Store& s = OpenStore({.source = refusing.object()});
  SetGeneration(s, 8);
  EXPECT_EQ(Rc{s.registry().Flush(0)}, Rc{kErrIo});
  EXPECT_EQ(Rc{s.registry().Flush(0)}, Rc{kErrIo}) << "still dirty";
}

// A directory that is a file: the temporary file cannot be opened, the
// result is mapped, the store stays dirty and nothing is written.
TEST_F(ProfilePersistenceTest, FailedWriteKeepsTheStoreDirty) {
  ASSERT_TRUE(WriteWholeFile(dir_.Join("file"), "x"));
  const std::string p = dir_.Join("file/profiles.xml");
  Store& s = OpenStore({.name = p});
  SetGeneration(s, 1);
  for (int attempt = 0; attempt < 2; ++attempt) {
    EXPECT_EQ(Rc{s.registry().Flush(0)}, Rc{kErrFileNotFound});
  }
  const std::vector<std::string> lines = Lines(s);
  ASSERT_EQ(lines.size(), 4u);
  EXPECT_EQ(lines[1], "300 prmap\tcannot write file " + p + " : " + FormatResult(kErrFileNotFound));
  EXPECT_EQ(ReadWholeFile(dir_.Join("file")), "x");
}

TEST_F(ProfilePersistenceTest, FlushOnCloseAndConcurrentSaves) {
  const std::string p = dir_.Join("profiles.xml");
  {
    Store& s = OpenStore({.name = p, .flush_on_close = 1, .loader_flags = 2});
    SetGeneration(s, 3);
    EXPECT_EQ(Rc{s.PreClose()}, Rc{kOk});
  }
  EXPECT_EQ(GenerationIn(p), 3u);

  Store& s = OpenStore({.name = p, .locking = 1});
  std::vector<std::thread> threads;
  for (uint32_t t = 0; t < 2; ++t) {
    threads.emplace_back([&s, t] {
      for (uint32_t i = 0; i < 20; ++i) {
        (void)s.client().SetString(0, "t" + std::to_string(t), std::to_string(i));
        // The other thread's final move can land between this one's removal
        // of the old profile and its rename, or remove the old profile
        // first; the store then stays dirty.
        const tERROR code = s.registry().Flush(0);
        EXPECT_TRUE(code == kOk || code == kErrAlreadyExists || code == kErrFileNotFound) << FormatResult(code);
      }
    });
  }
  for (std::thread& t : threads) t.join();
  EXPECT_EQ(Rc{s.registry().Flush(0)}, Rc{kOk});
  Store& after = OpenStore({.name = p});
  EXPECT_EQ(Rc{*after.init_result()}, Rc{kOk});
  EXPECT_EQ(GenerationOf(after.registry()), 3u);
}

// The shipped sample profile: a realistic application's settings load and,
// once the store is dirty, are written back byte for byte as they were shipped.
TEST_F(ProfilePersistenceTest, SampleProfileLoadsAndSavesByteForByte) {
  const std::optional<std::string> shipped = ReadWholeFile(PROPMAP_SOURCE_DIR "/examples/profiles.xml");
  ASSERT_TRUE(shipped.has_value());
  const std::string path = dir_.Join("settings.xml");
  ASSERT_TRUE(WriteWholeFile(path, *shipped));
  Store& s = OpenStore({.name = path, .locking = 1});
  ASSERT_EQ(Rc{s.init_result().value_or(kOk)}, Rc{kOk});
  EXPECT_EQ(s.client().SubkeyNames().value.size(), 8u);
  EXPECT_EQ(s.client().GetString(s.client().OpenKey("Users\\User4").value, "Name").value,
            "\xE5\xB1\xB1\xE7\x94\xB0\xE5\xA4\xAA\xE9\x83\x8E");
  // A change and its undoing leave the tree as loaded, but dirty.
  ASSERT_EQ(Rc{s.client().SetString(0, "ProfileVersion", "8")}, Rc{kOk});
  ASSERT_EQ(Rc{s.client().SetString(0, "ProfileVersion", "7")}, Rc{kOk});
  ASSERT_EQ(Rc{s.registry().Flush(0)}, Rc{kOk});
  EXPECT_EQ(ReadWholeFile(path), shipped);
}

}  // namespace
}  // namespace prhost::testing
