#include "platform/text/text.h"
#include "shell/program_fixture.h"

namespace vantrell::tests {
namespace {

/// What is at work, as a user asks for it.
class ActivityCommands : public TerminalProgram {
 protected:
  JsonObject object(std::vector<std::string> words) {
    const auto all = objects(std::move(words));
    EXPECT_EQ(all.size(), 1U);
    return all.empty() ? JsonObject() : all[0];
  }
};

TEST_F(ActivityCommands, TellOfATaskThatAnotherProcessRunsAndOfItsSuddenEnd) {
  EXPECT_EQ(code(run(vantrell({"status"}))), 1);
  EXPECT_TRUE(run(vantrell({"activity"}))->output.contains("Nothing is at work"));

  const auto first = start(practice({"SLOW:0.05"}));
  awaitOutput(*first, "tick");
  const auto status = run(vantrell({"status"}));
  EXPECT_EQ(code(status), 0) << status->error;
  EXPECT_TRUE(status->output.contains("Yes—Local is still working.\n\n- **Running:** "))
      << status->output;
  EXPECT_TRUE(status->output.contains("\n- **Activity:** Active now\n\nThis status came directly"));
  const JsonObject working = object({"status"});
  EXPECT_EQ(json::textOr(working, "phase", ""), "working");
  const std::string id = json::textOr(working, "threadID", "");
  const JsonObject listed = object({"activity"});
  EXPECT_EQ(json::textOr(listed, "threadID", ""), id);
  ASSERT_NE(json::object(listed, "run"), nullptr);
  EXPECT_EQ(json::textOr(*json::object(listed, "run"), "status", ""), "running");
  EXPECT_TRUE(run(vantrell({"activity"}))->output.contains("Local is working"));
  EXPECT_FALSE(run(vantrell({"show", id}))->output.contains("Yes—")) << "nothing was added";

  ::kill(static_cast<pid_t>(first->process->processID()), SIGKILL);
  finish(first);
  const auto after = run(vantrell({"status", text::lowercased(id.substr(0, 8))}));
  EXPECT_TRUE(after->output.contains("The previous task was interrupted when vantrell restarted."))
      << after->output;
  EXPECT_EQ(json::textOr(object({"status", id}), "phase", ""), "interrupted");
  EXPECT_EQ(code(run(vantrell({"status", "FFFF"}))), 2);
}

}  // namespace
}  // namespace vantrell::tests
