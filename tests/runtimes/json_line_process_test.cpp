#include "runtimes/wire/json_line_process.h"

#include <future>
#include <gtest/gtest.h>

#include "platform/queues/manual_main_queue.h"
#include "support/agent_script.h"
#include "support/temporary_folder.h"

namespace vantrell {
namespace {

class JsonLineProcessTest : public testing::Test {
 protected:
  /// Runs a script to its end and answers what was reported, in order.
  std::vector<std::string> run(const std::string& script, bool wantsOtherLines = true) {
    std::vector<std::string> seen;
    std::promise<void> ended;
    JsonLineProcess::Handlers handlers;
    handlers.onMessage = [&](JsonObject message, std::size_t bytes) {
      seen.push_back(json::write(message) + " " + std::to_string(bytes));
    };
    if (wantsOtherLines) {
      handlers.onOtherLine = [&](std::string_view line) {
        seen.push_back("other " + std::string(line));
      };
    }
    handlers.onErrorText = [&](std::string text) { errors_ += text; };
    handlers.onEnd = [&](const JsonLineProcess::End& end) {
      seen.push_back("end " + std::to_string(end.status.status) + " " +
                     std::to_string(end.status.signal) + " [" + end.errorText + "]");
      ended.set_value();
    };
    auto process = start(script, std::move(handlers));
    ended.get_future().wait();
    onQueue([&] { process.reset(); });
    return seen;
  }

  std::unique_ptr<JsonLineProcess> start(const std::string& script,
                                         JsonLineProcess::Handlers handlers) {
    ProcessOptions options;
    options.executable = tests::AgentScriptText::program();
    options.arguments = {folder_.file("script", script)};
    auto process =
        JsonLineProcess::start(std::move(options), queue_, mailbox_, std::move(handlers));
    EXPECT_TRUE(process);
    return process ? std::move(*process) : nullptr;
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
  ManualMainQueue main_;
  std::shared_ptr<Mailbox> mailbox_ = std::make_shared<Mailbox>(main_);
  BackgroundPool pool_{1};
  SerialQueue queue_{pool_, "test"};
  std::string errors_;
};

TEST_F(JsonLineProcessTest, TellsObjectsFromOtherLinesAndReportsTheEndLast) {
  const std::string script =
      "raw {\"a\" : 1}\\n\\n  \\nplain\\n[1]\\n\"x\"\\n{\"b\":2}\\n{\"half\":\nexit 6\n";
  using Lines = std::vector<std::string>;
  EXPECT_EQ(run(script), (Lines{R"({"a":1} 9)", "other   ", "other plain", "other [1]",
                                R"(other "x")", R"({"b":2} 7)", "end 6 0 []"}));
  EXPECT_EQ(run(script, false), (Lines{R"({"a":1} 9)", R"({"b":2} 7)", "end 6 0 []"}));
}

TEST_F(JsonLineProcessTest, ErrorTextIsTrimmedForTheEndAndWholeForTheLog) {
  EXPECT_EQ(run("error  \\n words\\n\\n\nsignal 9\n"), std::vector<std::string>{"end 0 9 [words]"});
  EXPECT_EQ(errors_, " \n words\n\n");
}

TEST_F(JsonLineProcessTest, StopInAHandlerIsTheLastThatIsHeard) {
  std::unique_ptr<JsonLineProcess> process;
  int heard = 0;
  std::promise<void> stopped;
  JsonLineProcess::Handlers handlers;
  handlers.onMessage = [&](const JsonObject&, std::size_t) {
    ++heard;
    process->stop(JsonLineProcess::Ending::prompt);
    if (heard == 1) stopped.set_value();
  };
  handlers.onEnd = [&](const JsonLineProcess::End&) { heard += 100; };
  onQueue([&] { process = start("raw {}\\n{}\\n{}\\n\nhang\n", std::move(handlers)); });
  stopped.get_future().wait();
  EXPECT_TRUE(Process::waitForAll(std::chrono::seconds(20)));
  onQueue([&] { process->send({}); });
  onQueue([&] { process.reset(); });
  EXPECT_EQ(heard, 1);
}

TEST_F(JsonLineProcessTest, RuntimeThatTakesNoInputIsEndedAndItsLastWordsAreRead) {
  std::promise<void> deaf;
  std::promise<JsonLineProcess::End> ended;
  JsonLineProcess::Handlers handlers;
  handlers.onMessage = [&](const JsonObject&, std::size_t) { deaf.set_value(); };
  handlers.onEnd = [&](JsonLineProcess::End end) { ended.set_value(std::move(end)); };
  auto process = start("error last words\nclose-input\nsend {}\nsignal 19\n", std::move(handlers));
  deaf.get_future().wait();
  onQueue([&] { process->send({}); });
  const auto end = ended.get_future().get();
  EXPECT_EQ(end.errorText, "last words");
  EXPECT_EQ(end.cause, "Broken pipe");
  onQueue([&] { process.reset(); });
}

TEST_F(JsonLineProcessTest, EndlessLineEndsTheRuntime) {
  std::promise<JsonLineProcess::End> ended;
  JsonLineProcess::Handlers handlers;
  handlers.onEnd = [&](JsonLineProcess::End end) { ended.set_value(std::move(end)); };
  auto process = start("bytes " + std::to_string(LineBuffer::longestLine + (1 << 20)) + "\nhang\n",
                       std::move(handlers));
  EXPECT_EQ(ended.get_future().get().cause,
            "The runtime sent a line of more than 256 MB, and was ended.");
  onQueue([&] { process.reset(); });
}

}  // namespace
}  // namespace vantrell
