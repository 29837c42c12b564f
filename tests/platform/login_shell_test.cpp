#include "platform/process/login_shell.h"

#include "platform/process/program_runner.h"
#include "platform/process_fixture.h"
#include "support/environment.h"
#include "support/temporary_folder.h"

namespace vantrell {
namespace {

using namespace std::chrono_literals;
using Folders = std::vector<std::string>;

class LoginShellTest : public tests::ProcessTest {
 protected:
  void ask(const loginShell::Question& question) {
    loginShell::readFolders(*runner_, question,
                            [this](Folders folders) { answer_ = std::move(folders); });
  }
  Folders folders(const loginShell::Question& question) {
    answer_.reset();
    ask(question);
    EXPECT_TRUE(main_.runUntil([&] { return answer_.has_value(); }));
    return answer_.value_or(Folders{"no answer"});
  }
  loginShell::Question question(const std::string& shell) const {
    return {.shell = shell,
            .environment = {
                {"HOME", home_.path()}, {"PATH", "/usr/bin:/bin"}, {"ENV", home_ / ".shrc"}}};
  }
  /// A shell of our own making, which gets what a real one gets.
  std::string fakeShell(const std::string& script) const {
    return home_.program("shell", "#!/bin/sh\n" + script);
  }

  tests::TemporaryFolder home_;
  std::shared_ptr<ProgramRunner> runner_ = std::make_shared<ProgramRunner>(main_, pool_);
  std::optional<Folders> answer_;
};

// Each real shell reads its own start files, and each of them prints something.
TEST_F(LoginShellTest, ReadsThePathThatStartFilesSet) {
  const std::string noise = "echo welcome; echo trouble >&2\n";
  home_.file(".bashrc", noise + "PATH=/from/bashrc:$PATH\n");
  home_.file(".bash_profile", noise + "export PATH=/from/profile:$PATH\n. ~/.bashrc\n");
  home_.file(".profile", noise + "export PATH=/from/profile:$PATH\n");
  home_.file(".shrc", noise + "PATH=/from/shrc:$PATH\n");
  home_.file(".zprofile", noise + "path=(/from/profile $path)\n");
  home_.file(".zshrc", noise + "path=(/from/zshrc $path)\n");
  home_.file(".config/fish/config.fish", "echo welcome\nset -gx PATH /from/fish $PATH\n");
  struct Case {
    std::string shell;
    Folders begin;
  };
  const Case cases[] = {{"/bin/bash", {"/from/bashrc", "/from/profile"}},
                        {"/bin/dash", {"/from/shrc", "/from/profile"}},
                        {"/usr/bin/zsh", {"/from/zshrc", "/from/profile"}},
                        {"/usr/bin/fish", {"/from/fish"}}};
  int tried = 0;
  for (const auto& [shell, begin] : cases) {
    if (::access(shell.c_str(), X_OK) != 0) continue;
    ++tried;
    SCOPED_TRACE(shell);
    auto found = folders(question(shell));
    ASSERT_GT(found.size(), begin.size());
    EXPECT_TRUE(std::ranges::find(found, "/usr/bin") != found.end());
    found.resize(begin.size());
    EXPECT_EQ(found, begin);
  }
  EXPECT_GE(tried, 2) << "bash and dash are in every Debian";
}

TEST_F(LoginShellTest, ShellThatIsOfNoUseGivesNothing) {
  for (const std::string script : {"exit 0", "exit 3", "kill -9 $$", "echo /usr/bin:/bin",
                                   "head -c 4000000 /dev/urandom", "echo \"$4\""}) {
    EXPECT_EQ(folders(question(fakeShell(script))), Folders()) << script;
  }
  EXPECT_EQ(folders(question("/nowhere/shell")), Folders());
  EXPECT_EQ(folders(question("")), Folders());
}

TEST_F(LoginShellTest, ShellHasNoTerminalAndNothingToRead) {
  // A question on the terminal or on standard input finds neither, and the rest goes on.
  home_.file(".bash_profile",
             "PATH=/begin\nread answer < /dev/tty && export PATH=/asked:$PATH\n"
             "read other && export PATH=/read:$PATH\n"
             "export PATH=/end:${PATH%%:*}\n");
  EXPECT_EQ(folders(question("/bin/bash")), (Folders{"/end", "/begin"}));
}

TEST(LoginShell, FoldersStandBetweenTheMarkersOnOneLine) {
  struct Case {
    std::string output;
    Folders expected;
  };
  const Case cases[] = {
      {"M\n/a:/b\nM\n", {"/a", "/b"}},
      {"hello\nM\n/a:/b:/a::.:b:~/c\nM\nbye", {"/a", "/b"}},
      {"M\r\n/a\r\nM\r\n", {"/a"}},
      {"M\n/a", {}},
      {"M\nM\n", {}},
      {"M\n/a\n/b\nM\n", {}},
      {"/a\n", {}},
      {"", {}},
      {"xM\n/a\nM\n/b\nM\n", {"/b"}},
  };
  for (const auto& [output, expected] : cases) {
    EXPECT_EQ(loginShell::foldersBetween("M", output), expected) << output;
  }
}

}  // namespace
}  // namespace vantrell
