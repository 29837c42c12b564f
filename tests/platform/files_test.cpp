#include "platform/files/files.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/file.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>

#include "support/environment.h"
#include "support/in_child.h"
#include "support/temporary_folder.h"

namespace vantrell {
namespace {

using tests::TemporaryFolder;
namespace fs = std::filesystem;

ino_t inodeOf(const std::string& path) {
  struct stat info{};
  return stat(path.c_str(), &info) == 0 ? info.st_ino : 0;
}

TEST(FilePaths, StandardizesByTextAlone) {
  struct Case {
    std::string_view path, base, result;
  };
  const Case cases[] = {
      {"/", "", "/"},
      {"//", "", "/"},
      {"/a//b/./c/", "", "/a/b/c"},
      {"/a/b/../c", "", "/a/c"},
      {"/../../a", "", "/a"},
      {"/a/..", "", "/"},
      {"/a/...", "", "/a/..."},
      {"b", "/a", "/a/b"},
      {"../b", "/a/x/", "/a/b"},
      {"", "/a", "/a"},
      {".", "/a", "/a"},
      {"/b", "/a", "/b"},
  };
  for (const Case& c : cases) EXPECT_EQ(files::standardized(c.path, c.base), c.result) << c.path;
  EXPECT_EQ(files::standardized("x"), fs::current_path().native() + "/x");

  const fs::path before = fs::current_path();
  {
    const TemporaryFolder gone;
    fs::current_path(gone.path());
    fs::remove(gone.path());
    EXPECT_EQ(files::standardized("."), gone.path() + " (deleted)") << "not the root";
    EXPECT_FALSE(files::isFolder(files::standardized("")));
  }
  fs::current_path(before);
}

TEST(FilePaths, TakesPathsApart) {
  struct Case {
    std::string_view path, parent, last;
  };
  const Case cases[] = {
      {"/", "/", "/"}, {"/a", "/", "a"},  {"/a/b", "/a", "b"}, {"/a/b/", "/a", "b"},
      {"a", "", "a"},  {"a/b", "a", "b"}, {"", "", ""},        {"//", "/", "/"},
  };
  for (const Case& c : cases) {
    EXPECT_EQ(files::parent(c.path), c.parent) << c.path;
    EXPECT_EQ(files::lastComponent(c.path), c.last) << c.path;
  }
}

TEST(FilePaths, FollowsTheEnvironmentAsXdgDemands) {
  tests::Environment environment;
  environment.set("HOME", "/home/someone/");
  environment.set("XDG_DATA_HOME", std::nullopt);
  environment.set("XDG_CONFIG_HOME", "");
  environment.set("XDG_STATE_HOME", "relative/path");
  EXPECT_EQ(files::homeFolder(), "/home/someone");
  EXPECT_EQ(files::dataFolder(), "/home/someone/.local/share");
  EXPECT_EQ(files::configFolder(), "/home/someone/.config");
  EXPECT_EQ(files::stateFolder(), "/home/someone/.local/state");
  environment.set("XDG_DATA_HOME", "/data//x/");
  EXPECT_EQ(files::dataFolder(), "/data/x");
  EXPECT_EQ(files::expandingTilde("~"), "/home/someone");
  EXPECT_EQ(files::expandingTilde("~/a/~"), "/home/someone/a/~");
  EXPECT_EQ(files::expandingTilde("~other/a"), "~other/a");
  EXPECT_EQ(files::expandingTilde("/a~"), "/a~");
  environment.set("HOME", "/");
  EXPECT_EQ(files::expandingTilde("~/a"), "/a");
  environment.set("HOME", std::nullopt);
  EXPECT_TRUE(files::homeFolder().starts_with('/'));
}

TEST(Files, ReadsWholeFilesOfAnyKind) {
  const TemporaryFolder folder;
  const std::string content(1'000'000, '\0');
  EXPECT_EQ(files::read(folder.file("zeros", content)), content);
  EXPECT_EQ(files::read(folder.file("empty", "")), "");
  // Its size is reported as zero.
  EXPECT_TRUE(files::read("/proc/self/status")->starts_with("Name:"));
  const auto absent = files::read(folder / "absent");
  ASSERT_FALSE(absent);
  EXPECT_EQ(absent.error().code, std::errc::no_such_file_or_directory);
  EXPECT_EQ(absent.error().description,
            "Could not read " + folder / "absent" + ": No such file or directory");
  EXPECT_EQ(files::read(folder.path()).error().code, std::errc::is_a_directory);
}

TEST(Files, RefusesToReadWhatCouldBlockForEver) {
  const TemporaryFolder folder;
  const std::string pipe = folder / "pipe";
  ASSERT_EQ(mkfifo(pipe.c_str(), 0600), 0);
  const auto withoutWriter = files::read(pipe);
  ASSERT_FALSE(withoutWriter);
  EXPECT_EQ(withoutWriter.error().description, "Could not read " + pipe + ": Not a regular file");
  const int writer = open(pipe.c_str(), O_RDWR | O_CLOEXEC);
  EXPECT_FALSE(files::read(pipe)) << "nor with a writer that says nothing";
  close(writer);
  EXPECT_FALSE(files::read("/dev/zero")) << "has no end";

  sockaddr_un address{.sun_family = AF_UNIX, .sun_path = {}};
  const std::string socketPath = folder / "socket";
  ASSERT_LT(socketPath.size(), sizeof address.sun_path);
  socketPath.copy(address.sun_path, socketPath.size());
  const int listener = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
  ASSERT_EQ(bind(listener, reinterpret_cast<const sockaddr*>(&address), sizeof address), 0);
  const auto ofSocket = files::read(socketPath);
  close(listener);
  ASSERT_FALSE(ofSocket);
  EXPECT_TRUE(ofSocket.error().description.ends_with(": Not a regular file"));
}

TEST(AtomicWrite, GivesNewFilesTheUmaskAndKeepsModes) {
  const TemporaryFolder folder;
  const mode_t mask = umask(027);
  ASSERT_TRUE(files::writeAtomically(folder / "new", ""));
  ASSERT_TRUE(files::writeAtomically(folder / "private", "", 0600));
  ASSERT_TRUE(files::writeAtomically(folder / "open", "", 0666));
  EXPECT_EQ(TemporaryFolder::modeOf(folder / "new"), 0640u);
  EXPECT_EQ(TemporaryFolder::modeOf(folder / "private"), 0600u);
  EXPECT_EQ(TemporaryFolder::modeOf(folder / "open"), 0666u);
  chmod((folder / "new").c_str(), 0755);
  ASSERT_TRUE(files::writeAtomically(folder / "new", "again"));
  EXPECT_EQ(TemporaryFolder::modeOf(folder / "new"), 0755u);
  ASSERT_TRUE(files::writeAtomically(folder / "new", "again", 0600));
  EXPECT_EQ(TemporaryFolder::modeOf(folder / "new"), 0600u);
  umask(mask);
}

TEST(AtomicWrite, FollowsSymbolicLinks) {
  const TemporaryFolder folder;
  folder.file("a/target", "old");
  folder.folder("b");
  fs::create_symlink("../a/target", folder / "b/link");
  fs::create_symlink("b/link", folder / "outer");
  fs::create_symlink("b/new", folder / "dangling");
  ASSERT_TRUE(files::writeAtomically(folder / "outer", "new"));
  EXPECT_EQ(TemporaryFolder::contentOf(folder / "a/target"), "new");
  EXPECT_TRUE(fs::is_symlink(folder / "outer"));
  EXPECT_TRUE(fs::is_symlink(folder / "b/link"));
  ASSERT_TRUE(files::writeAtomically(folder / "dangling", "made"));
  EXPECT_EQ(TemporaryFolder::contentOf(folder / "b/new"), "made");

  fs::create_symlink("loop", folder / "loop");
  EXPECT_EQ(files::writeAtomically(folder / "loop", "x").error().code,
            std::errc::too_many_symbolic_link_levels);
}

TEST(AtomicWrite, RefusesWhatIsNoFile) {
  const TemporaryFolder folder;
  EXPECT_EQ(files::writeAtomically(folder.path(), "x").error().code, std::errc::is_a_directory);
  ASSERT_EQ(mkfifo((folder / "pipe").c_str(), 0600), 0);
  EXPECT_FALSE(files::writeAtomically(folder / "pipe", "x"));
  EXPECT_TRUE(fs::is_fifo(folder / "pipe"));
  EXPECT_EQ(files::writeAtomically(folder / "absent/file", "x").error().code,
            std::errc::no_such_file_or_directory);
  EXPECT_EQ(folder.names(), std::set<std::string>{"pipe"});
}

TEST(AtomicWrite, FailsWholeWhenAFileMayNotGrow) {
  const TemporaryFolder folder;
  const std::string path = folder.file("file", "old");
  const int status = tests::inChild([&] {
    if (!tests::limitFileSize(4096)) return 1;
    const auto written = files::writeAtomically(path, std::string(10'000, 'x'));
    return !written && written.error().code == std::errc::file_too_large ? 0 : 2;
  });
  EXPECT_EQ(status, 0);
  EXPECT_EQ(TemporaryFolder::contentOf(path), "old");
  EXPECT_EQ(folder.names(), std::set<std::string>{"file"});
}

TEST(AtomicWrite, FailsWholeOnAFullOrReadOnlyVolume) {
  const TemporaryFolder folder;
  const std::string volume = folder.folder("volume");
  tests::expectOnSmallVolume(volume, "64k", [&] {
    folder.file("volume/file", "old");
    const auto full = files::writeAtomically(volume + "/file", std::string(200'000, 'x'));
    if (full || full.error().code != std::errc::no_space_on_device) return 1;
    if (!full.error().description.ends_with(volume + "/file: No space left on device")) return 2;
    if (TemporaryFolder::contentOf(volume + "/file") != "old") return 3;
    if (folder.names("volume") != std::set<std::string>{"file"}) return 4;
    if (!files::writeAtomically(volume + "/file", "new")) return 5;  // room enough again

    if (!tests::makeReadOnly(volume)) return 6;
    const auto readOnly = files::writeAtomically(volume + "/file", "x");
    if (readOnly || readOnly.error().code != std::errc::read_only_file_system) return 7;
    return TemporaryFolder::contentOf(volume + "/file") == "new" ? 0 : 8;
  });
}

TEST(Folders, AreMadeWithTheirParents) {
  const TemporaryFolder folder;
  ASSERT_TRUE(files::createFolders(folder / "a/b/../c/", 0750));
  EXPECT_EQ(TemporaryFolder::modeOf(folder / "a/c"), 0750u);
  EXPECT_FALSE(files::exists(folder / "a/b"));
  ASSERT_TRUE(files::createFolders(folder / "a/c", 0700));
  EXPECT_EQ(TemporaryFolder::modeOf(folder / "a/c"), 0750u) << "present folders stay as they are";
  ASSERT_TRUE(files::createOwnerOnlyFolder(folder / "a/c"));
  EXPECT_EQ(TemporaryFolder::modeOf(folder / "a/c"), 0700u);
  ASSERT_TRUE(files::createOwnerOnlyFolder(folder / "p/q"));
  EXPECT_EQ(TemporaryFolder::modeOf(folder / "p/q"), 0700u);

  folder.file("file", "");
  EXPECT_EQ(files::createFolders(folder / "file").error().code, std::errc::not_a_directory);
  EXPECT_EQ(files::createFolders(folder / "file/x").error().code, std::errc::not_a_directory);
}

TEST(Files, RemovesLinksAndNotTheirTargets) {
  const TemporaryFolder folder;
  folder.file("kept/file", "x");
  folder.file("tree/deep/file", "x");
  fs::create_directory_symlink(folder / "kept", folder / "tree/link");
  fs::create_symlink("kept/file", folder / "link");
  EXPECT_TRUE(files::remove(folder / "link"));
  EXPECT_EQ(files::remove(folder / "tree").error().code, std::errc::directory_not_empty);
  EXPECT_TRUE(files::removeTree(folder / "tree"));
  EXPECT_EQ(folder.names(), std::set<std::string>{"kept"});
  EXPECT_EQ(TemporaryFolder::contentOf(folder / "kept/file"), "x");
  EXPECT_EQ(files::remove(folder / "absent").error().code, std::errc::no_such_file_or_directory);
  EXPECT_EQ(files::removeTree(folder / "absent").error().code,
            std::errc::no_such_file_or_directory);
}

TEST(LockFile, ExcludesOthersUntilItIsGone) {
  const TemporaryFolder folder;
  const std::string path = folder / "lock";
  {
    const auto lock = files::LockFile::acquire(path);
    ASSERT_TRUE(lock);
    EXPECT_EQ(TemporaryFolder::modeOf(path), 0600u);
    EXPECT_EQ(TemporaryFolder::contentOf(path), std::to_string(getpid()) + "\n");
    for (const auto& each : fs::directory_iterator("/proc/self/fd")) {
      std::error_code closed;
      if (fs::read_symlink(each.path(), closed) != path) continue;
      EXPECT_TRUE(fcntl(std::stoi(each.path().filename()), F_GETFD) & FD_CLOEXEC)
          << "a program that outlives this one must not hold its lock";
    }
    const auto second = files::LockFile::acquire(path);
    ASSERT_FALSE(second);
    EXPECT_EQ(second.error().holder, getpid());
    EXPECT_FALSE(second.error().error);
  }
  auto again = files::LockFile::acquire(path);
  ASSERT_TRUE(again);
  const files::LockFile moved = std::move(*again);
  EXPECT_FALSE(files::LockFile::acquire(path));
}

TEST(LockFile, DoesNotAnswerForARemovedFile) {
  const TemporaryFolder folder;
  const std::string path = folder / "lock";
  const auto first = files::LockFile::acquire(path);
  ASSERT_TRUE(first);
  const ino_t locked = inodeOf(path);
  fs::remove(path);
  const auto second = files::LockFile::acquire(path);
  ASSERT_TRUE(second);
  EXPECT_NE(inodeOf(path), locked);
  EXPECT_FALSE(files::LockFile::acquire(path));
}

TEST(KeepAside, GivesEachFileANameOfItsOwnWithTheDate) {
  const TemporaryFolder folder;
  const std::pair<std::string, std::string> cases[] = {
      {"fleet.json", "fleet that could not be read 2001-01-01 00.00.00Z.json"},
      {"fleet.json", "fleet that could not be read 2001-01-01 00.00.00Z (2).json"},
      {"fleet.json", "fleet that could not be read 2001-01-01 00.00.00Z (3).json"},
      {"bare", "bare that could not be read 2001-01-01 00.00.00Z"},
      {".hidden", ".hidden that could not be read 2001-01-01 00.00.00Z"},
      {"a.sqlite-wal", "a that could not be read 2001-01-01 00.00.00Z.sqlite-wal"},
  };
  int number = 0;
  std::set<std::string> kept;
  for (const auto& [name, aside] : cases) {
    const std::string path = folder.file(name, std::to_string(++number));
    EXPECT_EQ(files::quarantine(path, Date(0.5)).value(), folder / aside);
    EXPECT_EQ(TemporaryFolder::contentOf(folder / aside), std::to_string(number));
    kept.insert(aside);
  }
  EXPECT_EQ(folder.names(), kept);
  EXPECT_EQ(files::quarantine(folder / "absent", Date(0)).error().code,
            std::errc::no_such_file_or_directory);
}

TEST(Move, NeverReplaces) {
  const TemporaryFolder folder;
  const std::string from = folder.file("from", "new");
  const std::string to = folder.file("to", "old");
  EXPECT_EQ(files::move(from, to).error().code, std::errc::file_exists);
  EXPECT_EQ(TemporaryFolder::contentOf(to), "old");
  ASSERT_TRUE(files::remove(to));
  EXPECT_TRUE(files::move(from, to));
  EXPECT_EQ(folder.names(), std::set<std::string>{"to"});
}

TEST(CopyFile, CopiesAllOfAFileOrLeavesNothing) {
  const TemporaryFolder folder;
  // More than one step of the copy.
  const std::string whole(40'000'000, 'x');
  const std::string from = folder.file("from", whole);
  std::filesystem::create_symlink("from", folder / "link");
  ASSERT_EQ(::chmod(from.c_str(), 0640), 0);
  ASSERT_TRUE(files::copyFile(folder / "link", folder / "copy"));
  EXPECT_EQ(TemporaryFolder::contentOf(folder / "copy"), whole);
  struct stat info{};
  ASSERT_EQ(::stat((folder / "copy").c_str(), &info), 0);
  EXPECT_EQ(info.st_mode & 07777, 0640u);

  std::stop_source stop;
  stop.request_stop();
  ASSERT_EQ(::mkfifo((folder / "pipe").c_str(), 0600), 0);
  const auto names = folder.names();
  EXPECT_EQ(files::copyFile(from, folder / "stopped", stop.get_token()).error().code,
            std::errc::operation_canceled);
  EXPECT_FALSE(files::copyFile(folder / "pipe", folder / "none"));
  EXPECT_FALSE(files::copyFile(folder / "absent", folder / "none"));
  EXPECT_EQ(files::copyFile(folder / "pipe", from).error().code, std::errc::invalid_argument);
  EXPECT_EQ(files::copyFile(folder / "copy", from).error().code, std::errc::file_exists);
  EXPECT_EQ(folder.names(), names);
}

}  // namespace
}  // namespace vantrell
