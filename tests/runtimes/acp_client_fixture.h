// An ACP client and a scripted agent at the other end of real pipes. What the client says on the
// main queue is noted as lines of text, in order.
#pragma once

#include <gtest/gtest.h>
#include <thread>

#include "platform/manual_main_queue.h"
#include "platform/process.h"
#include "runtimes/acp/acp_client.h"
#include "support/acp_agent_script.h"
#include "support/temporary_folder.h"

namespace vantrell::tests {

class ACPClientTest : public testing::Test {
 protected:
  using Lines = std::vector<std::string>;

  ACPClientTest() {
    configuration_.provider = AgentProvider::grok;
    configuration_.executable = ACPAgentScript::program();
    configuration_.workspacePath = folder_.folder("project");
    configuration_.processEnvironment = {{"PATH", "/usr/bin:/bin"}};
    configuration_.runtimeName = "Grok";
  }
  ~ACPClientTest() override {
    client_.reset();
    main_.runReady();
    // Neither the agent nor anything that it started may be left.
    EXPECT_TRUE(Process::waitForAll(std::chrono::seconds(20)));
  }

  void make(const ACPAgentScript& script) {
    configuration_.processArguments = {folder_.file("script", script.text())};
    client_ = ACPClient::make(configuration_, main_, pool_);
  }

  void listen() {
    client_->onSessionUpdate = [this](const JsonObject& update) {
      const JsonObject* content = json::object(update, "content");
      note("says " + (content ? json::textOr(*content, "text", "?") : json::write(update)));
    };
    client_->onPermissionRequest = [this](PermissionRequest request) {
      note("asks " + std::to_string(request.id) + " " + request.title);
      questions_.push_back(std::move(request));
    };
    client_->onLog = [this](std::string_view text) {
      checkThread();
      log_ += text;
    };
    client_->onReplayStarted = [this] { note("replay started"); };
    client_->onReplayFailed = [this] { note("replay failed"); };
    client_->onUnexpectedTermination = [this](std::string text) { note("terminated: " + text); };
    client_->onUsageUpdate = [this](ProviderUsage) { note("usage"); };
    client_->onModelOptionsUpdate = [this](std::vector<ProviderModelOption> options) {
      std::string line = "models";
      for (const auto& option : options) line += " " + option.id;
      note(line);
    };
  }

  void start(std::optional<std::string> session = std::nullopt) {
    client_->start(std::move(session), [this](std::expected<AgentStartResult, AgentError> result) {
      note(result ? "started " + result->sessionId + (result->replayedSession ? " replayed" : "") +
                        (result->notice ? "; " + *result->notice : "")
                  : "not started: " + result.error().localizedDescription());
    });
  }
  void prompt(const std::string& text = "hello") {
    client_->sendPrompt(text, [this](std::expected<JsonObject, AgentError> result) {
      note(result ? "turn ended " + json::write(*result)
                  : "turn failed: " + result.error().localizedDescription());
    });
  }
  /// make, listen and start, up to the open session "s1".
  void open(const ACPAgentScript& script) {
    make(script);
    listen();
    start();
    await("started s1");
    // What the agent has said behind it may be here already.
    notes_.erase(notes_.begin(), std::ranges::find(notes_, "started s1") + 1);
  }

  /// Lets the main queue work until the line has been noted.
  void await(const std::string& line) {
    ASSERT_TRUE(main_.runUntil([&] { return std::ranges::count(notes_, line) > 0; }))
        << "no \"" << line << "\" but " << testing::PrintToString(notes_) << " and log " << log_;
  }
  void awaitCount(std::size_t count) {
    ASSERT_TRUE(main_.runUntil([&] { return notes_.size() >= count; }))
        << testing::PrintToString(notes_) << " and log " << log_;
  }
  void expectNotes(const Lines& expected) {
    awaitCount(expected.size());
    EXPECT_EQ(notes_, expected);
  }
  void note(std::string line) {
    checkThread();
    notes_.push_back(std::move(line));
  }

  TemporaryFolder folder_;
  ManualMainQueue main_;
  BackgroundPool pool_{2};
  ACPConfiguration configuration_;
  std::shared_ptr<ACPClient> client_;
  Lines notes_;
  std::string log_;
  std::vector<PermissionRequest> questions_;

 private:
  void checkThread() { EXPECT_EQ(std::this_thread::get_id(), thread_); }
  const std::thread::id thread_ = std::this_thread::get_id();
};

}  // namespace vantrell::tests
