// Loading and saving profiles through the real module, on real files in a
// temporary directory: the backup modes with their trace lines, the first
// save of a new profile, kept permissions, create-if-missing, the size and
// '%' warnings, long names, host streams and concurrent saves.
#include <pthread.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <memory>
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
  // A file's permission bits; 0 when it is missing.
  static mode_t Mode(const std::string& path) {
    struct stat st;
    return ::stat(path.c_str(), &st) == 0 ? st.st_mode & 07777 : 0u;
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
  EXPECT_EQ(Mode(p), 0604u);
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
  EXPECT_EQ(Mode(p), 0640u) << "no chmod: the creation mode less the umask";
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
        ASSERT_EQ(Rc{s.client().SetString(0, "t" + std::to_string(t), std::to_string(i))}, Rc{kOk});
        EXPECT_EQ(Rc{s.registry().Flush(0)}, Rc{kOk});
      }
    });
  }
  for (std::thread& t : threads) t.join();
  // Whichever save ran last, each thread's last value is on disk once the
  // store is clean.
  EXPECT_EQ(Rc{s.registry().Flush(0)}, Rc{kOk});
  Store& after = OpenStore({.name = p});
  EXPECT_EQ(Rc{*after.init_result()}, Rc{kOk});
  EXPECT_EQ(GenerationOf(after.registry()), 3u);
  EXPECT_EQ(after.client().GetString(0, "t0").value, "19");
  EXPECT_EQ(after.client().GetString(0, "t1").value, "19");
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

// ---- Saves under interference: other threads, other processes, planted files.

// A change made while a save works on the files, and a save started from
// inside a save: the first is kept for the next save, the second refused.
TEST_F(ProfilePersistenceTest, ChangesDuringASaveAreSavedNext) {
  const std::string p = dir_.Join("profiles.xml");
  ASSERT_EQ(Rc{SaveGeneration(p, 1)}, Rc{kOk});
  Store& s = OpenStore({.name = p, .locking = 1});
  tERROR nested = kOk;
  bool changed = false;
  module()->trace().set_observer([&](const TraceLine& line) {
    if (changed || line.text.find("trying to back up to") == std::string::npos) return;
    changed = true;
    EXPECT_EQ(Rc{s.client().SetDword(0, "late", 1)}, Rc{kOk});
    nested = s.registry().Flush(0);
  });
  SetGeneration(s, 2);
  EXPECT_EQ(Rc{s.registry().Flush(0)}, Rc{kOk});
  module()->trace().set_observer(nullptr);
  EXPECT_EQ(Rc{nested}, Rc{Code(0x80060023)}) << "EDEADLK's code, not a hang";
  EXPECT_EQ(Rc{s.registry().Flush(0)}, Rc{kOk});
  EXPECT_EQ(OpenStore({.name = p}).client().GetDword(0, "late").value, 1u);
}

// Processes saving one profile while others load it with the create bit,
// the savers killed with SIGKILL wherever they are once the loaders are
// done: no load ever finds the profile missing, empty or torn, and what the
// killed savers leave loads whole. The savers fork from one thread, so they
// share a temporary file name. PROPMAP_SAVE_ROUNDS sets the loads of each
// loader (default 400; the long mode runs many more).
TEST_F(ProfilePersistenceTest, ProcessesNeverSeeAMissingProfile) {
  const std::string p = dir_.Join("profiles.xml");
  ASSERT_EQ(Rc{SaveGeneration(p, 1)}, Rc{kOk});
  const char* rounds_text = std::getenv("PROPMAP_SAVE_ROUNDS");
  const int rounds = rounds_text != nullptr ? std::atoi(rounds_text) : 400;
  constexpr int kSavers = 2, kLoaders = 2;
  auto start = [&](int c) {
    const pid_t pid = ::fork();
    if (pid != 0) return pid;
    ::prctl(PR_SET_PDEATHSIG, SIGKILL);  // never outlive a failed test
    int bad = 0;
    for (int r = 0; c < kSavers || r < rounds; ++r) {
      const std::unique_ptr<Store> s = Store::Open(module(), {.name = p, .loader_flags = 2});
      const uint32_t gen = GenerationOf(s->registry());
      bad += *s->init_result() != kOk || gen == 0 || gen == ~0u;
      if (c < kSavers) {
        if (bad != 0) ::_exit(1);
        SetGeneration(*s, 100 * (c + 1) + r % 1000);
        (void)s->registry().Flush(0);
      }
    }
    ::_exit(bad == 0 ? 0 : 1);
  };
  std::vector<pid_t> savers, loaders;
  for (int c = 0; c < kSavers + kLoaders; ++c) (c < kSavers ? savers : loaders).push_back(start(c));
  int status = 0;
  for (pid_t pid : loaders) {
    ASSERT_EQ(::waitpid(pid, &status, 0), pid);
    EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0) << "a load saw a missing or torn profile";
  }
  for (pid_t pid : savers) {
    ::kill(pid, SIGKILL);
    ASSERT_EQ(::waitpid(pid, &status, 0), pid);
    EXPECT_TRUE(WIFSIGNALED(status)) << "a saver stopped on its own: it saw a missing or torn profile";
  }
  const uint32_t gen = GenerationIn(p);
  EXPECT_TRUE(gen == 1 || (gen >= 100 && gen != ~0u)) << gen;
}

// A link planted at each name a save writes: the file it leads to is never
// written or re-moded, and the profile is saved whole. A profile that is a
// symbolic link stays one, and its target is saved with its own backups.
TEST_F(ProfilePersistenceTest, LinksBesideTheProfileAreNeverFollowed) {
  const std::string companions[] = {".tmp" + ThreadHex(), ".bak2", ".bak2" + ThreadHex(), ".bak"};
  for (const std::string& companion : companions) {
    for (bool hard : {false, true}) {
      SCOPED_TRACE(companion + (hard ? " hard" : " symbolic"));
      TempDir dir;
      const std::string p = dir.Join("other.xml"), victim = dir.Join("victim");
      ASSERT_EQ(Rc{SaveGeneration(p, 1)}, Rc{kOk});
      ASSERT_TRUE(WriteWholeFile(victim, "keep"));
      ASSERT_EQ(::chmod(victim.c_str(), 0640), 0);
      const std::string planted = p + companion;
      ASSERT_EQ(hard ? ::link(victim.c_str(), planted.c_str()) : ::symlink(victim.c_str(), planted.c_str()), 0);
      ASSERT_EQ(Rc{SaveGeneration(p, 2, 2)}, Rc{kOk});
      EXPECT_EQ(ReadWholeFile(victim), "keep");
      EXPECT_EQ(Mode(victim), 0640u);
      EXPECT_EQ(GenerationIn(p), 2u);
      EXPECT_EQ(GenerationIn(p + ".bak2"), 1u);
    }
  }
  const std::string target = dir_.Join("real.xml"), link = dir_.Join("linked.xml");
  ASSERT_EQ(Rc{SaveGeneration(target, 1)}, Rc{kOk});
  ASSERT_EQ(::symlink("real.xml", link.c_str()), 0);
  ASSERT_EQ(Rc{SaveGeneration(link, 2, 1)}, Rc{kOk});
  struct stat st;
  ASSERT_EQ(::lstat(link.c_str(), &st), 0);
  EXPECT_TRUE(S_ISLNK(st.st_mode));
  EXPECT_EQ(GenerationIn(target), 2u);
  EXPECT_EQ(GenerationIn(target + ".bak2"), 1u);
}

// No file of a save is more readable than the profile it replaces; a
// profile made by the load's create step gets the creation mode less the
// umask (one made by a save: FirstSaveOfANewProfile).
TEST_F(ProfilePersistenceTest, NoFileIsWiderThanTheProfile) {
  const mode_t mask = ::umask(022);
  const std::string p = dir_.Join("other.xml");
  ASSERT_EQ(Rc{SaveGeneration(p, 1)}, Rc{kOk});
  EXPECT_EQ(Mode(p), 0640u) << "made by the load's create step";
  // Group-readable only: a temporary file made 0660 would pass group write
  // on, and one left 0600 would take group read away.
  ASSERT_EQ(::chmod(p.c_str(), 0604), 0);
  Store& s = OpenStore({.name = p, .backup_mode = 2});
  mode_t temporary = 0;
  module()->trace().set_observer([&](const TraceLine& line) {
    if (line.text.find("trying to do first backup") != std::string::npos) temporary = Mode(p + ".tmp" + ThreadHex());
  });
  SetGeneration(s, 2);
  ASSERT_EQ(Rc{s.registry().Flush(0)}, Rc{kOk});
  module()->trace().set_observer(nullptr);
  ::umask(mask);
  EXPECT_EQ(temporary, 0604u);
  for (const char* file : {"", ".bak", ".bak2"}) EXPECT_EQ(Mode(p + file), 0604u) << file;
}

// Data that used to stop or hang the host, or a save that could not be read
// back: each is a code, and no profile is lost.
TEST_F(ProfilePersistenceTest, HostileDataGivesCodes) {
  constexpr tERROR kErrBadParameter = Code(0x80000046), kErrNotApplicable = Code(0x8000004B);
  std::string deep_name;
  for (int i = 0; i < 3000; ++i) deep_name += "k/";
  const std::string deep = "<propertiesmap>\r\n<key name=\"" + deep_name + "\">\r\n</key>\r\n</propertiesmap>\r\n";
  const std::string huge = "<propertiesmap>\r\n<tDOUBLE name=\"d\">1e300</tDOUBLE>\r\n</propertiesmap>\r\n";
  const std::string damaged = "<propertiesmap>\r\n<tDWORD name=\"a\">1</tDWORD>\r\n<key name=\"b\"><tDWORD name=\"c\"";

  // A name of 3,000 parts, and a profile cut off part-way, saved in mode 0
  // under another name: the load fails and the first save keeps the file.
  for (const std::string* text : {&deep, &damaged}) {
    const std::string p = dir_.Join("other.xml");
    ASSERT_TRUE(WriteWholeFile(p, *text));
    ::unlink((p + ".bak2").c_str());
    Store& s = OpenStore({.name = p});
    EXPECT_LT(*s.init_result(), 0);
    ASSERT_EQ(Rc{s.client().SetDword(0, "x", 1)}, Rc{kOk});
    EXPECT_EQ(Rc{s.registry().Flush(0)}, Rc{kOk});
    EXPECT_EQ(ReadWholeFile(p + ".bak2"), *text);
  }
  // A double whose text passes 255 characters: a code when read as text or
  // saved, and the profile stays as it was.
  const std::string p = dir_.Join("double.xml");
  ASSERT_TRUE(WriteWholeFile(p, huge));
  Store& s = OpenStore({.name = p});
  ASSERT_EQ(Rc{*s.init_result()}, Rc{kOk});
  EXPECT_EQ(Rc{s.client().GetString(0, "d").code}, Rc{kErrNotApplicable});
  ASSERT_EQ(Rc{s.client().SetDword(0, "x", 1)}, Rc{kOk});
  EXPECT_EQ(Rc{s.registry().Flush(0)}, Rc{kErrNotApplicable});
  EXPECT_EQ(ReadWholeFile(p), huge);
  // A tree deeper than a profile may be, made through OpenKey: not saved.
  ASSERT_EQ(Rc{s.client().OpenKey(deep_name, true).code}, Rc{Code(0xD001)});
  ASSERT_EQ(Rc{s.registry().DeleteValue(0, "d")}, Rc{kOk});
  EXPECT_EQ(Rc{s.registry().Flush(0)}, Rc{kErrIo});
  EXPECT_EQ(ReadWholeFile(p), huge);
  // A FIFO where the profile should be: a code at once (CTest's timeout is
  // the watchdog), never a wait for a writer.
  const std::string fifo = dir_.Join("fifo.xml");
  ASSERT_EQ(::mkfifo(fifo.c_str(), 0600), 0);
  EXPECT_EQ(Rc{*OpenStore({.name = fifo, .loader_flags = 2}).init_result()}, Rc{kErrBadParameter});
  // A host stream that reads a few bytes at a time is read whole; one that
  // stops early fails the load.
  MemoryStream trickle(ReadWholeFile(PROPMAP_SOURCE_DIR "/examples/profiles.xml").value());
  trickle.LimitReads(7);
  EXPECT_EQ(Rc{*OpenStore({.source = trickle.object()}).init_result()}, Rc{kOk});
  MemoryStream stuck(huge);
  stuck.LimitReads(0);
  EXPECT_EQ(Rc{*OpenStore({.source = stuck.object()}).init_result()}, Rc{Code(0x8000004A)});
}

}  // namespace
}  // namespace prhost::testing
