// A Codex client and a scripted counterpart at the other end of real pipes. What the client says on
// the main queue is noted as lines of text, in order.
#pragma once

#include <gtest/gtest.h>
#include <thread>

#include "platform/manual_main_queue.h"
#include "platform/process.h"
#include "runtimes/codex/codex_app_server_client.h"
#include "support/codex_agent_script.h"
#include "support/temporary_folder.h"

namespace vantrell::tests {

class CodexClientTest : public testing::Test {
 protected:
  using Lines = std::vector<std::string>;

  CodexClientTest() {
    configuration_.executable = CodexAgentScript::program();
    configuration_.workspacePath = folder_.folder("project");
    configuration_.processEnvironment = {{"PATH", "/usr/bin:/bin"}};
  }
  ~CodexClientTest() override {
    client_.reset();
    main_.runReady();
    // Neither the runtime nor anything that it started may be left.
    EXPECT_TRUE(Process::waitForAll(std::chrono::seconds(20)));
  }

  /// The counterpart takes the client's only argument, "app-server", for the name of its script.
  void make(const CodexAgentScript& script) {
    folder_.file("project/app-server", script.text());
    client_ = CodexAppServerClient::make(configuration_, main_, pool_);
  }

  void listen() {
    client_->onSessionUpdate = [this](const JsonObject& update) { note(describe(update)); };
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
    client_->onUsageUpdate = [this](ProviderUsage usage) {
      note("usage");
      usages_.push_back(std::move(usage));
    };
    client_->onModelOptionsUpdate = [this](std::vector<ProviderModelOption>) { note("models"); };
  }

  void start(std::optional<std::string> session = std::nullopt) {
    client_->start(std::move(session), [this](std::expected<AgentStartResult, AgentError> result) {
      note(result ? "started " + result->sessionId + (result->replayedSession ? " replayed" : "")
                  : "not started: " + told(result.error()));
    });
  }
  void prompt(const std::string& text = "hello") {
    client_->sendPrompt(text, [this](std::expected<JsonObject, AgentError> result) {
      note(result ? "turn ended " + json::textOr(*result, "status", "?")
                  : "turn failed: " + told(result.error()));
    });
  }
  void consumeReset() {
    client_->consumeUsageReset([this](std::expected<std::string, AgentError> outcome) {
      note("reset " + (outcome ? *outcome : told(outcome.error())));
    });
  }
  /// make, listen and start, up to the open thread "t1".
  void open(const CodexAgentScript& script) {
    make(script);
    listen();
    start();
    await("started t1");
    // What the runtime has said behind it may be here already.
    notes_.erase(notes_.begin(), std::ranges::find(notes_, "started t1") + 1);
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

  /// The kind of a failure and its words: no failure of Codex comes without its kind.
  static std::string told(const AgentError& error) {
    constexpr const char* kinds[] = {"usageLimit", "authentication", "disconnected",
                                     "protocolError"};
    const auto& known = error.runtimeError();
    const bool isOurs = known && known->provider == AgentProvider::codex;
    return std::string(isOurs ? kinds[static_cast<int>(known->kind)] : "UNKNOWN") + " " +
           error.localizedDescription();
  }
  static std::string describe(const JsonObject& update) {
    const std::string id = json::textOr(update, "messageId", "");
    const JsonObject* content = json::object(update, "content");
    if (!content) return json::write(update);
    return (json::textOr(update, "sessionUpdate", "") == "agent_message_chunk" ? "says "
                                                                               : "thinks ") +
           id + " " + json::textOr(*content, "text", "?");
  }

  TemporaryFolder folder_;
  ManualMainQueue main_;
  BackgroundPool pool_{2};
  CodexConfiguration configuration_;
  std::shared_ptr<CodexAppServerClient> client_;
  Lines notes_;
  std::string log_;
  std::vector<PermissionRequest> questions_;
  std::vector<ProviderUsage> usages_;

 private:
  void checkThread() { EXPECT_EQ(std::this_thread::get_id(), thread_); }
  const std::thread::id thread_ = std::this_thread::get_id();
};

}  // namespace vantrell::tests
