#include "runtimes/acp/acp_host_services.h"

#include <filesystem>
#include <future>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include "platform/files/files.h"
#include "support/temporary_folder.h"

namespace vantrell {
namespace {

class ACPHostServicesTest : public testing::Test {
 protected:
  using Future = std::future<std::string>;

  ~ACPHostServicesTest() override {
    onQueue([this] { services_.releaseAll(); });
    EXPECT_TRUE(Process::waitForAll(std::chrono::seconds(20)));
  }

  /// Sends a request; the answer is the result as JSON, or "error: " and its text.
  Future ask(const std::string& method, const std::string& params) {
    auto promise = std::make_shared<std::promise<std::string>>();
    auto future = promise->get_future();
    onQueue([&] {
      const bool known =
          services_.handle(method, *json::parseObject(params), [promise](auto answer) {
            promise->set_value(answer ? json::write(*answer)
                                      : "error: " + answer.error().localizedDescription());
          });
      if (!known) promise->set_value("unsupported");
    });
    return future;
  }
  std::string call(const std::string& method, const std::string& params) {
    return ask(method, params).get();
  }

  std::string content(const std::string& path, const std::string& more = "") {
    return call("fs/read_text_file", R"({"path":)" + quoted(path) + more + "}");
  }
  std::string write(const std::string& path, const std::string& text) {
    return call("fs/write_text_file",
                R"({"path":)" + quoted(path) + R"(,"content":)" + quoted(text) + "}");
  }
  std::string create(const std::string& params) {
    const std::string answer = call("terminal/create", params);
    const auto object = json::parseObject(answer);
    const std::string* id = object ? json::text(*object, "terminalId") : nullptr;
    EXPECT_TRUE(id) << answer;
    return R"({"terminalId":")" + (id ? *id : "") + R"("})";
  }
  /// A terminal with a shell script.
  std::string shell(const std::string& script, const std::string& more = "") {
    return create(R"({"command":"sh","args":["-c",)" + quoted(script) + "]" + more + "}");
  }
  std::string output(const std::string& terminal) {
    const auto answer = json::parseObject(call("terminal/output", terminal));
    return answer ? json::textOr(*answer, "output", "none") : "no answer";
  }

  static std::string quoted(const std::string& text) {
    std::string out;
    json::appendQuoted(out, text);
    return out;
  }
  void onQueue(std::function<void()> work) {
    std::promise<void> done;
    queue_.post([&] {
      work();
      done.set_value();
    });
    done.get_future().wait();
  }

  tests::TemporaryFolder folder_;
  const std::string root_ = folder_.folder("project");
  BackgroundPool pool_{1};
  SerialQueue queue_{pool_, "test"};
  ACPHostServices services_{
      root_ + "/./", {{"PATH", "/usr/bin:/bin"}, {"GIVEN", "before"}}, queue_};
};

// ---- files --------------------------------------------------------------------------------------

TEST_F(ACPHostServicesTest, FilesAreHeldToTheProject) {
  folder_.file("project/a", "in");
  folder_.file("project/sub/b", "in");
  folder_.file("project-sibling/a", "out");
  folder_.file("outside", "out");
  std::filesystem::create_symlink(folder_ / "outside", root_ + "/link");
  const std::string refused = "vantrell only allows file ";
  const std::string inside = R"({"content":"in"})";
  const std::pair<std::string, std::string> cases[] = {
      {root_ + "/a", inside},
      {root_ + "/./sub/../a", inside},
      {root_ + "/sub/../../project/a", inside},
      {root_ + "/link", R"({"content":"out"})"},  // links are not resolved
      {root_ + "/../outside", refused},
      {root_ + "-sibling/a", refused},
      {"/etc/passwd", refused},
      {"/", refused},
      {"a", refused},  // relative to this process's own folder, which is not the project
      {root_ + std::string("/a\0/../../outside", 17), refused},
  };
  for (const auto& [path, expected] : cases) {
    SCOPED_TRACE(path);
    if (expected != refused) {
      EXPECT_EQ(content(path), expected);
      continue;
    }
    EXPECT_EQ(content(path), "error: " + refused + "reads inside the selected project.");
    EXPECT_EQ(write(path, "x"), "error: " + refused + "writes inside the selected project.");
  }
  EXPECT_EQ(tests::TemporaryFolder::contentOf(folder_ / "outside"), "out");
  EXPECT_EQ(tests::TemporaryFolder::contentOf(root_ + "/a"), "in");
  EXPECT_EQ(write(root_ + "/new/deep/f", "h\xC3\xA9llo\n"), "{}");
  EXPECT_EQ(tests::TemporaryFolder::contentOf(root_ + "/new/deep/f"), "h\xC3\xA9llo\n");
}

TEST_F(ACPHostServicesTest, WhatIsNoTextFileFailsAsTheSystemSays) {
  folder_.file("project/latin1", "caf\xE9");
  for (const std::string& path : {root_, root_ + "/none", root_ + "/latin1"}) {
    const std::string answer = content(path);
    EXPECT_TRUE(answer.starts_with("error: ")) << path << answer;
    EXPECT_FALSE(answer.contains("vantrell only")) << path << answer;
  }
}

TEST_F(ACPHostServicesTest, LinesAreCountedFromOneAndJoinedByLineFeeds) {
  folder_.file("project/f",
               "one\ntwo\r\nthree\xE2\x80\xA8"
               "four\n");
  const std::string path = root_ + "/f";
  const std::pair<std::string, std::string> cases[] = {
      {"", "one\ntwo\n\nthree\nfour\n"},  // CR and LF end a line each
      {R"(,"line":0)", "one\ntwo\n\nthree\nfour\n"},
      {R"(,"line":-9223372036854775808)", "one\ntwo\n\nthree\nfour\n"},
      {R"(,"line":2,"limit":1)", "two"},
      {R"(,"line":4,"limit":2)", "three\nfour"},
      {R"(,"line":7)", ""},
      {R"(,"line":9223372036854775807,"limit":9223372036854775807)", ""},
      {R"(,"limit":0)", ""},
      {R"(,"line":"2","limit":"1")", "one\ntwo\n\nthree\nfour\n"},
  };
  for (const auto& [more, expected] : cases) {
    EXPECT_EQ(content(path, more), R"({"content":)" + quoted(expected) + "}") << more;
  }
  folder_.file("project/empty", "");
  EXPECT_EQ(content(root_ + "/empty"), R"({"content":""})");
}

TEST_F(ACPHostServicesTest, LinkThatLeadsOutIsReplacedAndOneThatStaysInIsFollowed) {
  const std::string outside = folder_.file("outside", "mine");
  const std::string inside = folder_.file("project/inside", "old");
  std::filesystem::create_symlink(outside, folder_ / "project/out");
  std::filesystem::create_symlink("inside", folder_ / "project/in");
  EXPECT_EQ(write(folder_ / "project/out", "new"), "{}");
  EXPECT_EQ(write(folder_ / "project/in", "new"), "{}");
  EXPECT_EQ(tests::TemporaryFolder::contentOf(outside), "mine");
  EXPECT_EQ(tests::TemporaryFolder::contentOf(folder_ / "project/out"), "new");
  EXPECT_FALSE(std::filesystem::is_symlink(folder_ / "project/out"));
  EXPECT_EQ(tests::TemporaryFolder::contentOf(inside), "new");
  EXPECT_TRUE(std::filesystem::is_symlink(folder_ / "project/in"));
}

// ---- terminals ----------------------------------------------------------------------------------

TEST_F(ACPHostServicesTest, RunningTerminalHasNoExitStatusAndIsKilledWithItsOutputKept) {
  const auto terminal = shell("echo started; exec sleep 1000");
  auto first = ask("terminal/wait_for_exit", terminal);
  auto second = ask("terminal/wait_for_exit", terminal);
  while (output(terminal).empty()) std::this_thread::yield();
  EXPECT_EQ(call("terminal/output", terminal),
            R"({"output":"started\n","truncated":false,"exitStatus":null})");
  EXPECT_EQ(call("terminal/kill", terminal), "{}");
  EXPECT_EQ(first.get(), R"({"exitCode":15,"signal":null})");
  EXPECT_EQ(second.get(), R"({"exitCode":15,"signal":null})");
  EXPECT_EQ(call("terminal/kill", terminal), "{}");
  EXPECT_EQ(call("terminal/output", terminal), R"({"output":"started\n","truncated":false,)"
                                               R"("exitStatus":{"exitCode":15,"signal":null}})");
}

TEST_F(ACPHostServicesTest, ReleaseEndsTheCommandAndForgetsTheTerminal) {
  const auto terminal = shell("sleep 1000 & sleep 1000");
  auto waiting = ask("terminal/wait_for_exit", terminal);
  EXPECT_EQ(call("terminal/release", terminal), "{}");
  EXPECT_EQ(waiting.get(), R"({"exitCode":null,"signal":null})");
  const std::string id = *json::text(*json::parseObject(terminal), "terminalId");
  for (const std::string method :
       {"terminal/release", "terminal/output", "terminal/kill", "terminal/wait_for_exit"}) {
    EXPECT_EQ(call(method, terminal), "error: Unknown terminal: " + id);
  }
  EXPECT_TRUE(Process::waitForAll(std::chrono::seconds(20)));
}

TEST_F(ACPHostServicesTest, KeepsTheTailOfTheOutputFromAWholeCharacterOn) {
  const std::string euro = "\xE2\x82\xAC";
  for (const auto& [limit, expected] : {std::pair("5", euro), {"-4", std::string()}}) {
    const auto terminal =
        shell("printf '" + euro + euro + "'", R"(,"outputByteLimit":)" + std::string(limit));
    call("terminal/wait_for_exit", terminal);
    EXPECT_EQ(call("terminal/output", terminal),
              R"({"output":)" + quoted(expected) +
                  R"(,"truncated":true,"exitStatus":{"exitCode":0,"signal":null}})");
  }
  const auto terminal = shell("printf 'a\\377b'");
  call("terminal/wait_for_exit", terminal);
  EXPECT_EQ(output(terminal),
            "a\xEF\xBF\xBD"
            "b");
}

TEST_F(ACPHostServicesTest, CommandGetsItsArgumentsFolderEnvironmentAndNoInput) {
  const auto run = [this](const std::string& params) {
    const auto terminal = create(params);
    call("terminal/wait_for_exit", terminal);
    return output(terminal);
  };
  EXPECT_EQ(run(R"({"command":"printf","args":["[%s]","a b","","$HOME"]})"), "[a b][][$HOME]");
  EXPECT_EQ(run(R"({"command":"pwd","cwd":")" + root_ + R"("})"), root_ + "\n");
  EXPECT_EQ(run(R"({"command":"pwd","cwd":""})"), std::filesystem::current_path().native() + "\n");
  EXPECT_EQ(run(R"({"command":"env","env":[{"name":"GIVEN","value":"after"},{"name":"X"},5,)"
                R"({"name":"NEW","value":"1"},{"name":2,"value":"3"}]})"),
            "GIVEN=after\nNEW=1\nPATH=/usr/bin:/bin\n");
  EXPECT_EQ(run(R"({"command":"cat"})"), "") << "there is nobody to type";
  // Not a list of text, so no arguments at all.
  EXPECT_EQ(run(R"({"command":"echo","args":["a",5]})"), "\n");
  EXPECT_EQ(run(R"({"command":"echo","args":"a"})"), "\n");
}

TEST_F(ACPHostServicesTest, CommandThatCannotRunSaysSo) {
  const std::string answer =
      call("terminal/create", R"({"command":"ls","cwd":")" + root_ + R"(/none"})");
  EXPECT_TRUE(answer.starts_with("error: Could not run ls: ")) << answer;
  EXPECT_TRUE(answer.contains("No such file")) << answer;
  // An unknown command is found out by env, in the terminal itself.
  const auto terminal = create(R"({"command":"no-such-command"})");
  EXPECT_EQ(call("terminal/wait_for_exit", terminal), R"({"exitCode":127,"signal":null})");
  EXPECT_TRUE(output(terminal).contains("no-such-command"));
}

TEST_F(ACPHostServicesTest, RequestsThatNameNothingAreRefused) {
  EXPECT_EQ(call("fs/read_text_file", R"({"path":5})"), "error: fs/read_text_file is missing path");
  EXPECT_EQ(call("fs/write_text_file", R"({"path":"/x","content":5})"),
            "error: fs/write_text_file is missing path or content");
  EXPECT_EQ(call("terminal/create", R"({"command":["ls"]})"),
            "error: terminal/create is missing command");
  for (const std::string method :
       {"terminal/output", "terminal/kill", "terminal/release", "terminal/wait_for_exit"}) {
    EXPECT_EQ(call(method, R"({"terminalId":7})"), "error: Terminal request is missing terminalId");
    EXPECT_EQ(call(method, R"({"terminalId":"x"})"), "error: Unknown terminal: x");
  }
}

}  // namespace
}  // namespace vantrell
