// A Claude Code client and a scripted agent at the other end of real pipes. What the client says on
// the main queue is noted as lines of text, in order.
#pragma once

#include <gtest/gtest.h>
#include <thread>

#include "platform/manual_main_queue.h"
#include "platform/process.h"
#include "runtimes/claude/claude_code_client.h"
#include "support/claude_agent_script.h"
#include "support/temporary_folder.h"

namespace vantrell::tests {

class ClaudeClientTest : public testing::Test {
 protected:
  using Lines = std::vector<std::string>;

  ClaudeClientTest() {
    configuration_.workspacePath = folder_.folder("project");
    configuration_.model = "sonnet";
    configuration_.processEnvironment = {{"PATH", "/usr/bin:/bin"}};
  }
  ~ClaudeClientTest() override {
    client_.reset();
    main_.runReady();
    EXPECT_TRUE(Process::waitForAll(std::chrono::seconds(20))) << "the agent is left";
  }

  /// A program that takes Claude Code's arguments, writes them down and follows the script; then it
  /// runs the shell's `last` words.
  void make(const ClaudeAgentScript& script, const std::string& last = "") {
    const std::string path = folder_.file("script", script.text());
    configuration_.executable =
        folder_.file("claude", "#!/bin/sh\nprintf '%s\\n' \"$@\" > '" + folder_ / "arguments" +
                                   "'\n" + (last.empty() ? "exec " : "") + "'" +
                                   ACPAgentScript::program() + "' '" + path + "'\n" + last);
    std::filesystem::permissions(configuration_.executable, std::filesystem::perms::owner_all);
    client_ = ClaudeCodeClient::make(configuration_, main_, pool_);
  }
  std::string arguments() const { return TemporaryFolder::contentOf(folder_ / "arguments"); }

  void listen() {
    client_->onSessionUpdate = [this](const JsonObject& update) {
      noteUpdate(update);
      updates_.push_back(update);
    };
    client_->onPermissionRequest = [this](PermissionRequest request) {
      note("asks " + std::to_string(request.id) + " " + request.title);
      questions_.push_back(std::move(request));
    };
    client_->onPermissionWithdrawn = [this](std::int64_t id) {
      note("withdrawn " + std::to_string(id));
    };
    client_->onLog = [this](std::string_view text) {
      checkThread();
      log_ += text;
    };
    client_->onReplayStarted = [this] { note("replay started"); };
    client_->onReplayFailed = [this] { note("replay failed"); };
    client_->onUnexpectedTermination = [this](std::string text) { note("terminated: " + text); };
    client_->onUsageUpdate = [this](ProviderUsage usage) {
      note(std::string("usage") + (usage.exhausted ? " exhausted" : ""));
    };
  }

  void start(std::optional<std::string> session = std::nullopt) {
    client_->start(std::move(session), [this](std::expected<AgentStartResult, AgentError> result) {
      if (result) session_ = result->sessionId;
      note(result ? std::string("started") + (result->replayedSession ? " replayed" : "")
                  : "not started: " + result.error().localizedDescription());
    });
  }
  void prompt(const std::string& text = "hello") {
    client_->sendPrompt(text, [this](std::expected<JsonObject, AgentError> result) {
      if (!result) failures_.push_back(result.error());
      note(result ? "turn ended " + json::textOr(*result, "result", "?")
                  : "turn failed: " + result.error().localizedDescription());
    });
  }
  /// make, listen and start, up to the open session.
  void open(const ClaudeAgentScript& script) {
    make(script);
    listen();
    start();
    await("started");
    // What the agent has said behind it may be here already.
    notes_.erase(notes_.begin(), std::ranges::find(notes_, "started") + 1);
  }

  /// Lets the main queue work until the line has been noted.
  void await(const std::string& line) {
    ASSERT_TRUE(main_.runUntil([&] { return std::ranges::count(notes_, line) > 0; }))
        << "no \"" << line << "\" but " << testing::PrintToString(notes_) << " and log " << log_;
  }
  void expectNotes(const Lines& expected) {
    EXPECT_TRUE(main_.runUntil([&] { return notes_.size() >= expected.size(); }));
    EXPECT_EQ(notes_, expected) << "log " << log_;
  }
  void note(std::string line) {
    checkThread();
    notes_.push_back(std::move(line));
  }

  TemporaryFolder folder_;
  ManualMainQueue main_;
  BackgroundPool pool_{2};
  ClaudeConfiguration configuration_;
  std::shared_ptr<ClaudeCodeClient> client_;
  Lines notes_;
  std::string log_;
  std::string session_;
  std::vector<JsonObject> updates_;
  std::vector<PermissionRequest> questions_;
  std::vector<AgentError> failures_;

 private:
  void noteUpdate(const JsonObject& update) {
    const JsonObject* content = json::object(update, "content");
    const bool thinks = json::textOr(update, "sessionUpdate", "") == "agent_thought_chunk";
    note(content ? (thinks ? "thinks " : "says ") + json::textOr(*content, "text", "?")
                 : json::textOr(update, "title", "?") + " " + json::textOr(update, "status", "?"));
  }
  void checkThread() { EXPECT_EQ(std::this_thread::get_id(), thread_); }
  const std::thread::id thread_ = std::this_thread::get_id();
};

}  // namespace vantrell::tests
