#include "platform/desktop/system_desktop.h"

#include "platform/process/program_runner.h"
#include "platform/process_fixture.h"
#include "support/temporary_folder.h"

namespace vantrell {
namespace {

using namespace std::chrono_literals;
using tests::TemporaryFolder;
using Opened = std::expected<void, std::string>;

class SystemDesktopTest : public tests::ProcessTest {
 protected:
  /// A program on PATH that notes how it was started, by writing to a file of its name.
  void program(const std::string& name, const std::string& script) {
    folder_.program("bin/" + name, "#!/bin/sh\n" + script + "\n");
  }
  void terminal(const std::string& name) {
    program(name, "printf '%s\\n' \"" + name + "\" \"$(pwd)\" \"$*\" > " + (folder_ / "new") +
                      "; mv " + (folder_ / "new") + " " + (folder_ / "opened"));
  }
  std::optional<Opened> open(const std::string& folder) {
    std::optional<Opened> result;
    SystemDesktop(runner_, environment_).openTerminal(folder, [&](const Opened& opened) {
      result = opened;
    });
    EXPECT_TRUE(main_.runUntil([&] { return result.has_value(); }));
    return result;
  }
  std::string awaited(const std::string& name) {
    // Nobody tells of what a program on its own has done, so this looks again and again.
    const auto deadline = std::chrono::steady_clock::now() + 20s;
    std::string content;
    while (content.empty() && std::chrono::steady_clock::now() < deadline) {
      main_.runUntil([] { return false; }, 1ms);
      content = TemporaryFolder::contentOf(folder_ / name);
    }
    EXPECT_NE(content, "") << name;
    return content;
  }

  TemporaryFolder folder_;
  std::shared_ptr<ProgramRunner> runner_ = std::make_shared<ProgramRunner>(main_, pool_);
  Environment environment_{{"PATH", (folder_ / "bin") + ":/usr/bin:/bin"}, {"DISPLAY", ":7"}};
};

TEST_F(SystemDesktopTest, OpensTheUsersTerminalInTheFolder) {
  const auto project = folder_.folder("my project");
  terminal("chosen");
  terminal("x-terminal-emulator");
  terminal("xterm");
  environment_["TERMINAL"] = "chosen --new";
  ASSERT_TRUE(open(project)->has_value());
  EXPECT_EQ(awaited("opened"), "chosen\n" + project + "\n--new\n");
  std::filesystem::remove(folder_ / "opened");
  environment_["TERMINAL"] = "not-there";
  ASSERT_TRUE(open(project)->has_value());
  EXPECT_EQ(awaited("opened"), "x-terminal-emulator\n" + project + "\n\n");
}

TEST_F(SystemDesktopTest, SaysWhyNoTerminalCanBeOpened) {
  environment_["PATH"] = folder_ / "bin";
  EXPECT_TRUE(open("/")->error().contains("TERMINAL"));
  terminal("xterm");
  EXPECT_EQ(open(folder_ / "gone")->error(), "No such file or directory");
  environment_.erase("DISPLAY");
  EXPECT_EQ(open("/")->error(), "This session has no display.");
}

TEST_F(SystemDesktopTest, TerminalOutlivesTheRunner) {
  program("x-terminal-emulator", "echo $$ > " + (folder_ / "id") + "; exec sleep 1000");
  ASSERT_TRUE(open("/")->has_value());
  const auto id = static_cast<pid_t>(std::stoi(awaited("id")));
  runner_.reset();
  EXPECT_TRUE(Process::waitForAll(20s));
  EXPECT_EQ(::kill(id, SIGTERM), 0) << "it has ended with the program";
  EXPECT_TRUE(tests::waitForEnd(id));
}

TEST_F(SystemDesktopTest, CopiesWithTheToolOfTheSession) {
  const std::string text = "'/it'\\''s here' auth login\n";
  const auto tool = [this](const std::string& name) {
    program(name, "cat > " + (folder_ / "new") + "; echo \"" + name + " $*\" >> " +
                      (folder_ / "new") + "; mv " + (folder_ / "new") + " " + (folder_ / "copied"));
  };
  tool("xclip");
  tool("wl-copy");
  SystemDesktop(runner_, environment_).copy(text);
  EXPECT_EQ(awaited("copied"), text + "xclip -selection clipboard\n");
  std::filesystem::remove(folder_ / "copied");
  environment_["WAYLAND_DISPLAY"] = "wayland-0";
  SystemDesktop(runner_, environment_).copy(text);
  EXPECT_EQ(awaited("copied"), text + "wl-copy \n");
}

}  // namespace
}  // namespace vantrell
