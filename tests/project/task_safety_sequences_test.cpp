// Random edits, a checkpoint, more edits, a restore: everything is as it was. And back again, by
// the recovery checkpoint, also after a signal ended the restore at some step. There are submodules
// with and without content, hooks that fail or write, filters that strip or cannot run, and
// read-only folders. The number of sequences and the first seed come from the environment, for
// ./test safety.
#include <array>
#include <csignal>
#include <dlfcn.h>
#include <fmt/format.h>
#include <gtest/gtest.h>
#include <map>
#include <random>
#include <spawn.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include "platform/files/files.h"
#include "platform/text/text.h"
#include "project/task_safety_service.h"
#include "support/git_repository.h"

namespace {

/// A restore in a process of its own gets a signal at this one of its steps; 0 is not at all.
int stepsToLive = 0;
int lastSignal = SIGKILL;
bool hasHardLinks = true;

/// What the system has under the name of a function here; before that, a step.
template <typename Function>
Function* afterAStep(const char* name) {
  // As from a terminal: to all of the group.
  if (stepsToLive > 0 && --stepsToLive == 0) kill(0, lastSignal);
  return reinterpret_cast<Function*>(dlsym(RTLD_NEXT, name));  // NOLINT
}

}  // namespace

extern "C" int rename(const char* from, const char* to) noexcept {
  return afterAStep<int(const char*, const char*)>("rename")(from, to);
}
extern "C" int unlink(const char* path) noexcept {
  return afterAStep<int(const char*)>("unlink")(path);
}
extern "C" int rmdir(const char* path) noexcept {
  return afterAStep<int(const char*)>("rmdir")(path);
}
extern "C" int link(const char* from, const char* to) noexcept {
  if (!hasHardLinks) errno = EPERM;
  return hasHardLinks ? afterAStep<int(const char*, const char*)>("link")(from, to) : -1;
}

#ifdef __SANITIZE_ADDRESS__
// The leak check traces its own process, which one that has changed its user may not do; options in
// its environment it may not read, either.
extern "C" int __lsan_is_turned_off() {
  return getuid() != geteuid() ? 1 : 0;
}
#endif

namespace vantrell::tests {

namespace fs = std::filesystem;

namespace {

int fromEnvironment(const char* name, int otherwise) {
  const char* text = getenv(name);
  return text ? std::atoi(text) : otherwise;
}

/// Path to what is there: kind, executable or not, content.
using Tree = std::map<std::string, std::string>;

/// With `asGitSeesIt`, line ends are left out of account.
Tree treeOf(const std::string& root, bool asGitSeesIt) {
  Tree tree;
  for (fs::recursive_directory_iterator entry(root), end; entry != end; ++entry) {
    const std::string path = entry->path().native();
    const std::string name = path.substr(root.size() + 1);
    if (name == ".git") {
      entry.disable_recursion_pending();
      continue;
    }
    struct stat info{};
    lstat(path.c_str(), &info);
    if (S_ISDIR(info.st_mode)) {
      tree[name + "/"] = "folder";
    } else if (S_ISLNK(info.st_mode)) {
      tree[name] = "link to " + fs::read_symlink(path).native();
    } else {
      tree[name] = std::string((info.st_mode & 0100) != 0 ? "program: " : "file: ") +
                   TemporaryFolder::contentOf(path);
      if (asGitSeesIt) std::erase(tree[name], '\r');
    }
  }
  return tree;
}

/// Modes do not hold an administrator back.
class AsOrdinaryUser {
 public:
  AsOrdinaryUser() {
    if (getuid() == 0) isOrdinary_ = seteuid(65534) == 0;
    environment_.set("HOME", "/nonexistent");
    environment_.set("XDG_CONFIG_HOME", "/nonexistent");
  }
  ~AsOrdinaryUser() {
    if (isOrdinary_) (void)!seteuid(0);
  }
  AsOrdinaryUser(const AsOrdinaryUser&) = delete;
  AsOrdinaryUser& operator=(const AsOrdinaryUser&) = delete;

 private:
  Environment environment_;
  bool isOrdinary_ = false;
};

class Sequence {
  using Paths = std::set<std::string>;

 public:
  explicit Sequence(int seed)
      : random_(static_cast<unsigned>(seed)),
        isPart_(seed % 3 == 0),
        convertsLineEnds_(seed % 5 == 0),
        hasSubmodules_(seed % 4 == 0),
        hasFilters_(seed % 7 == 0) {
    project_ = isPart_ ? repository_.folder("part of it") : repository_.path();
    if (seed % 2 == 0) configureAgainstUs();
    if (convertsLineEnds_) repository_.git({"config", "core.autocrlf", "true"});
    repository_.file(".gitignore", "*.log\nout/\n");
    repository_.file("outside/kept", "one\n");
    for (int i = 0; i < 8; ++i) writeSomething(name());
    if (hasFilters_) addFilters();
    repository_.commit();
    if (hasSubmodules_) addSubmodules();
    git({"config", "core.safecrlf", "false"});
    for (const auto* hook : {"post-checkout", "post-index-change"}) {
      repository_.program(
          std::string(".git/hooks/") + hook,
          seed % 3 == 1 ? "#!/bin/sh\nexit 2\n" : "#!/bin/sh\ncd \"$GIT_DIR/..\"; echo made > a\n");
    }
  }
  ~Sequence() { lockFolders(0755); }

  void run() {
    edits(6 + below(10));
    const Tree first = tree();
    const auto firstIndex = index();
    const auto firstIgnored = ignored();
    show("first");
    const auto checkpoint = capture();
    EXPECT_EQ(tree(), first) << "a capture changes nothing";
    EXPECT_EQ(index(), firstIndex);

    edits(6 + below(10));
    if (below(4) == 0) repository_.git({"commit", "--quiet", "--allow-empty", "-m", "Later"});
    if (isPart_) {
      repository_.file("outside/kept", "two\n");
      if (below(2) == 0) repository_.git({"add", "outside"});
    }
    const Tree second = treeOf(project_, false);
    const auto secondIndex = index();
    const auto secondIgnored = ignored();
    const auto everything = outside();
    show("second");
    const auto recovery = capture();
    if (below(5) == 0) return killAndGoBack(checkpoint, recovery, second, secondIndex);
    const bool isMissing = hasFilters_ && below(2) == 0;
    if (isMissing) repository_.git({"config", "filter.box.smudge", "/no/such/program"});
    const auto restored = service().restore(checkpoint, project_, &recovery);
    if (isMissing) repository_.git({"config", "filter.box.smudge", "cat"});
    EXPECT_EQ(outside(), everything);
    if (!restored) {
      EXPECT_FALSE(restored.error().mayHaveChangedFiles) << restored.error().description();
      EXPECT_TRUE(restored.error().message.contains("Nothing was changed"))
          << restored.error().description();
      EXPECT_EQ(treeOf(project_, false), second);
      EXPECT_EQ(index(), secondIndex);
      return;
    }
    show("restored");
    EXPECT_EQ(index(), firstIndex);
    Paths leftOver = ignored();
    leftOver.insert(secondIgnored.begin(), secondIgnored.end());
    const Tree expected = without(first, firstIgnored, {}, first, {});
    Tree now = without(tree(), firstIgnored, leftOver, first, expected);
    std::erase_if(now, [&](const auto& entry) {
      const std::string& path = entry.first;
      if (expected.contains(path)) return false;
      // Git does not miss the files of a folder that an ignored link to itself has replaced.
      for (auto slash = path.find('/'); slash != path.npos; slash = path.find('/', slash + 1)) {
        if (firstIgnored.contains(path.substr(0, slash))) return true;
      }
      return second.contains(path) && isIgnoredFolder(path, entry.second);
    });
    EXPECT_EQ(now, expected);
    goBack(recovery, second, secondIndex);
  }

 private:
  void goBack(const WorkspaceCheckpoint& recovery, const Tree& second,
              const std::string& secondIndex) {
    const auto before = capture();
    const auto undone = service().restore(recovery, project_, &before);
    ASSERT_TRUE(undone || !undone.error().mayHaveChangedFiles) << undone.error().description();
    if (!undone) return;
    show("undone");
    EXPECT_EQ(index(), secondIndex);
    const Tree back = treeOf(project_, false);
    for (const auto& [path, what] : second) {
      const auto found = back.find(path);
      if (found == back.end() && isIgnoredFolder(path, what)) continue;
      EXPECT_TRUE(found != back.end() && found->second == what)
          << path << " was " << what << " and is "
          << (found == back.end() ? "gone" : found->second);
    }
  }
  /// In a process of its own, which dies at some step; what it leaves is in nobody's way.
  void killAndGoBack(const WorkspaceCheckpoint& checkpoint, const WorkspaceCheckpoint& recovery,
                     const Tree& second, const std::string& secondIndex) {
    constexpr std::array signals{SIGKILL, SIGINT, SIGTERM, SIGHUP};
    Environment environment;
    environment.set(
        "VANTRELL_KILL",
        fmt::format("{}\n{}\n{}\n{}\n{}\n{}\n{}\n{}", 1 + below(80),
                    signals[static_cast<std::size_t>(below(static_cast<int>(signals.size())))],
                    below(2), support_.path(), project_, checkpoint.archivePath,
                    *checkpoint.baseRevision, recovery.archivePath));
    std::array<std::string, 3> words{"sequences", "--gtest_also_run_disabled_tests",
                                     "--gtest_filter=*DISABLED_DiesInARestore"};
    std::array<char*, 4> arguments{words[0].data(), words[1].data(), words[2].data(), nullptr};
    pid_t child = 0;
    int status = 0;
    posix_spawnattr_t attributes;
    posix_spawnattr_init(&attributes);
    posix_spawnattr_setflags(&attributes, POSIX_SPAWN_SETPGROUP);
    ASSERT_EQ(
        posix_spawn(&child, "/proc/self/exe", nullptr, &attributes, arguments.data(), environ), 0);
    posix_spawnattr_destroy(&attributes);
    ASSERT_EQ(waitpid(child, &status, 0), child);
    EXPECT_TRUE(WIFSIGNALED(status) || WEXITSTATUS(status) == 0) << status;
    goBack(recovery, second, secondIndex);
    for (const auto& name : repository_.names(".git")) {
      EXPECT_FALSE(name.starts_with("vantrell") || name == "index.lock") << name;
    }
  }
  TaskSafetyService service() const { return TaskSafetyService(support_.path()); }
  WorkspaceCheckpoint capture() const {
    const auto captured = service().captureCheckpoint({.workspaceID = Uuid::random(),
                                                       .threadID = Uuid::random(),
                                                       .workspacePath = project_,
                                                       .label = "Here",
                                                       .kind = WorkspaceCheckpointKind::manual});
    EXPECT_TRUE(captured) << captured.error().description();
    return captured ? captured->checkpoint : WorkspaceCheckpoint();
  }

  // What there is.

  /// A file that git took for unchanged comes back as git writes it, with its line ends; only what
  /// a restore writes over is saved with its own.
  /// The same holds for what a filter takes out, and what is in a submodule is not ours.
  Tree tree() const {
    Tree tree = treeOf(project_, convertsLineEnds_);
    std::erase_if(tree, [&](const auto& entry) {
      return (hasFilters_ && entry.first == "a") || entry.first.starts_with("module/") ||
             entry.first.starts_with("no module/");
    });
    return tree;
  }
  /// To find out about a sequence that failed.
  void show(std::string_view when) const {
    if (!getenv("VANTRELL_SAFETY_SHOW")) return;
    std::cerr << "--- " << when << "\n"
              << git({"status", "--short", "--ignored", "--untracked-files=all"})
              << git({"ls-files", "--stage"})
              << ".gitignore: " << TemporaryFolder::contentOf(at(".gitignore"));
    for (const auto& [path, what] : tree()) std::cerr << path << "\n";
  }

  std::string index() const {
    // Modes, objects, stages and names, and with them the flag of files that were only announced.
    const auto entries = runGit(project_, {"ls-files", "--stage", "--debug"}).output;
    std::string index;
    for (const auto line : text::split(entries, '\n')) {
      const auto flags = line.find("flags: ");
      if (flags != line.npos) {
        index += std::string(line.substr(flags)) + "\n";
      } else if (!line.starts_with("  ")) {
        index += std::string(line) + "\n";
      }
    }
    return index;
  }
  /// Files, and whole folders.
  Paths ignored() const {
    Paths paths;
    for (const auto* how : {"--others", "--directory"}) {
      const auto listed =
          runGit(project_, {"ls-files", "--others", "--ignored", "--exclude-standard", how, "-z"});
      for (const auto& each : listed.parts()) paths.insert(each);
    }
    return paths;
  }
  /// Git does not list an empty one, so none that has to go or come is expected.
  bool isIgnoredFolder(const std::string& path, const std::string& what) const {
    return what == "folder" &&
           runGit(project_, {"check-ignore", "-q", "--no-index", "--", path}).succeeded();
  }
  static bool holds(const Paths& paths, const std::string& path) {
    for (auto slash = path.find('/'); slash != path.npos; slash = path.find('/', slash + 1)) {
      if (paths.contains(path.substr(0, slash + 1))) return true;
    }
    return paths.contains(path);
  }
  std::string outside() const {
    if (!isPart_) return {};
    return repository_.git({"ls-files", "--stage", "--", "outside"}) +
           TemporaryFolder::contentOf(repository_ / "outside/kept");
  }
  /// The tree without ignored files (and folders that are there for them alone, but for those that
  /// were empty then); those that the checkpoint has are compared all the same where they were not
  /// ignored then.
  static bool isIgnoredByRevision(const std::string& path) {
    return path.ends_with(".log") || path.contains(".log/") || path.starts_with("out/");
  }
  static Tree without(Tree tree, const Paths& ignoredThen, const Paths& leftOver, const Tree& then,
                      const Tree& expected) {
    Paths parents;
    std::erase_if(tree, [&](const auto& entry) {
      const std::string& path = entry.first;
      const bool isLeftOver =
          (holds(leftOver, path) || isIgnoredByRevision(path)) && !then.contains(path);
      if (!isLeftOver && !holds(ignoredThen, path)) return false;
      for (auto slash = path.find('/'); slash != path.npos; slash = path.find('/', slash + 1)) {
        parents.insert(path.substr(0, slash + 1));
      }
      return true;
    });
    for (auto parent = parents.rbegin(); parent != parents.rend(); ++parent) {
      const auto next = tree.upper_bound(*parent);
      const bool isEmpty = next == tree.end() || !next->first.starts_with(*parent);
      if (isEmpty && !expected.contains(*parent)) tree.erase(*parent);
    }
    return tree;
  }

  // Edits.

  int below(int limit) { return std::uniform_int_distribution(0, limit - 1)(random_); }
  std::string name() {
    static const std::vector<std::string> names{
        "a",       "b c",     "d",        "d/x",      "d/e/y",     "d/e",     "-dash",
        "q\"uote", "f\nline", "\xff\xfe", "\xc3\xbc", "x.log",     "d/z.log", "out/made",
        "out",     "link",    "e/m/p",    "e/m",      ":(top)odd", "[glob]*", "e/back\\slash"};
    return names[static_cast<std::size_t>(below(static_cast<int>(names.size())))];
  }
  std::string at(const std::string& name) const { return project_ + "/" + name; }
  /// Makes the name free, its parents folders.
  void clear(const std::string& name) {
    fs::path parent = project_;
    for (const auto& part : fs::path(name).parent_path()) {
      parent /= part;
      if (fs::symlink_status(parent).type() != fs::file_type::directory) fs::remove(parent);
      fs::create_directory(parent);
    }
    remove(name);
  }
  void remove(const std::string& name) const {
    std::error_code ignored;
    fs::remove_all(at(name), ignored);
  }
  void writeSomething(const std::string& name) {
    clear(name);
    std::string content;
    for (int lines = below(6); lines > 0; --lines) {
      content += "line " + std::to_string(below(4)) + (below(5) == 0 ? "\r\n" : "\n");
    }
    if (below(4) == 0) content += std::string("no end \0\xff\x01", 10);
    std::ofstream(at(name), std::ios::binary) << content;
    if (below(4) == 0) chmod(at(name).c_str(), 0755);
  }
  std::string git(std::vector<std::string> arguments) const {
    return GitRepository::git(project_, arguments);
  }
  /// Where git may refuse (an ignored or missing file, say).
  void tryGit(std::vector<std::string> arguments) const { runGit(project_, std::move(arguments)); }

  void edits(int count) {
    lockFolders(0755);
    while (count-- > 0) edit();
    if (below(3) == 0) lockFolders(0555);
  }
  void lockFolders(mode_t mode) const {
    // From above, so that those below can be seen; a folder may still be passed when it is closed.
    for (const auto* each : {"d", "d/e", "e", "e/m", "out"}) {
      struct stat info{};
      if (lstat(at(each).c_str(), &info) == 0 && S_ISDIR(info.st_mode))
        chmod(at(each).c_str(), mode);
    }
  }
  void addSubmodules() const {
    const std::string module = project_ + "/module";
    fs::create_directory(module);
    git({"init", "--quiet", module});
    std::ofstream(module + "/inside") << "theirs";
    GitRepository::git(module, {"add", "inside"});
    GitRepository::git(module, {"commit", "--quiet", "-m", "One"});
    git({"add", "module"});
    fs::create_directory(project_ + "/no module");
    const std::string head = runGit(project_, {"rev-parse", "HEAD"}).text();
    const std::string prefix = runGit(project_, {"rev-parse", "--show-prefix"}).text();
    git({"update-index", "--add", "--cacheinfo", "160000," + head + "," + prefix + "no module"});
    git({"commit", "--quiet", "-m", "Submodules"});
  }
  void addFilters() const {
    repository_.file(".gitattributes", "a filter=strip -text\nlink filter=box -text\n");
    for (const auto& [key, value] :
         std::map<std::string, std::string>{{"strip.clean", "sed '/line 3/d'"},
                                            {"box.clean", "cat"},
                                            {"box.smudge", "cat"},
                                            {"box.required", "true"}}) {
      repository_.git({"config", "filter." + key, value});
    }
  }
  void editSubmodules() {
    const std::string one = below(2) == 0 ? "module" : "no module";
    switch (below(5)) {
      case 0: return remove(one);
      case 1: remove(one); return static_cast<void>(std::ofstream(at(one)) << "a file");
      case 2: return tryGit({"rm", "--quiet", "--cached", "--", one});
      case 3: return tryGit({"add", "--", one});
      default: return tryGit({"reset", "--quiet", "--", one});
    }
  }
  void edit() {
    if (hasSubmodules_ && below(5) == 0) return editSubmodules();
    const std::string one = name();
    switch (below(16)) {
      case 0:
      case 1:
      case 2: return writeSomething(one);
      case 3: return remove(one);
      case 4: {
        clear(one);
        const std::array<std::string, 4> targets{"a", "nowhere", support_.path(), "d"};
        return fs::create_symlink(targets[static_cast<std::size_t>(below(4))], at(one));
      }
      case 5: {
        struct stat info{};
        if (lstat(at(one).c_str(), &info) == 0 && S_ISREG(info.st_mode)) {
          chmod(at(one).c_str(), info.st_mode ^ 0111);
        }
        return;
      }
      case 6: {
        const std::string other = name();
        if (!files::exists(at(one)) || other.starts_with(one) || one.starts_with(other)) return;
        const std::string aside = support_ / "aside";
        fs::rename(at(one), aside);
        clear(other);
        return fs::rename(aside, at(other));
      }
      case 7:
        clear(one + "/inside");
        return static_cast<void>(fs::create_directory(at(one + "/inside")));
      case 8:
      case 9: return tryGit({"add", "--", ":(literal)" + one});
      case 10: return tryGit({"add", "--all"});
      case 11: return tryGit({"add", "-N", "--", ":(literal)" + one});
      case 12: return tryGit({"rm", "--quiet", "--cached", "-r", "--", ":(literal)" + one});
      case 13: return tryGit({"reset", "--quiet", "--", ":(literal)" + one});
      case 14: return tryGit({"add", "--force", "--", ":(literal)" + one});
      default:
        std::ofstream(at(".gitignore")) << std::array{
            "*.log\nout/\n", "d\n", "", "*\n!a\n", "!x.log\n"}[static_cast<std::size_t>(below(5))];
    }
  }
  void configureAgainstUs() const {
    for (const auto& [key, value] :
         std::map<std::string, std::string>{{"color.ui", "always"},
                                            {"diff.noprefix", "true"},
                                            {"diff.renames", "copies"},
                                            {"diff.mnemonicPrefix", "true"},
                                            {"diff.relative", "true"},
                                            {"diff.context", "0"},
                                            {"diff.external", "false"},
                                            {"diff.up.textconv", "false"},
                                            {"core.quotePath", "false"},
                                            {"apply.whitespace", "error-all"},
                                            {"status.branch", "true"},
                                            {"status.showUntrackedFiles", "no"}}) {
      repository_.git({"config", key, value});
    }
    repository_.file(".git/info/attributes", "a diff=up\n");
  }

  AsOrdinaryUser user_;
  std::mt19937 random_;
  const bool isPart_;
  const bool convertsLineEnds_;
  const bool hasSubmodules_;
  const bool hasFilters_;
  GitRepository repository_;
  TemporaryFolder support_;
  std::string project_;
};

}  // namespace

/// The process that killAndGoBack() starts.
TEST(TaskSafetySequences, DISABLED_DiesInARestore) {
  const std::string request = getenv("VANTRELL_KILL");
  const auto parts = text::split(request, '\n');
  const auto part = [&](std::size_t i) { return std::string(parts.at(i)); };
  WorkspaceCheckpoint checkpoint;
  checkpoint.archivePath = part(5);
  checkpoint.baseRevision = part(6);
  WorkspaceCheckpoint recovery;
  recovery.archivePath = part(7);
  stepsToLive = std::stoi(part(0));
  lastSignal = std::stoi(part(1));
  hasHardLinks = part(2) == "1";
  const auto restored = TaskSafetyService(part(3)).restore(checkpoint, part(4), &recovery);
  EXPECT_TRUE(restored || !restored.error().mayHaveChangedFiles) << restored.error().description();
}

TEST(TaskSafetySequences, EverythingComesBackByteForByte) {
  const int count = fromEnvironment("VANTRELL_SAFETY_SEQUENCES", 12);
  const int first = fromEnvironment("VANTRELL_SAFETY_SEED", 1);
  for (int seed = first; seed < first + count && !HasFailure(); ++seed) {
    SCOPED_TRACE("VANTRELL_SAFETY_SEED=" + std::to_string(seed));
    Sequence(seed).run();
  }
}

}  // namespace vantrell::tests
