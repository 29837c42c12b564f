#include "runtimes/agent_client_fixture.h"

#include "platform/process/process.h"

namespace vantrell::tests {

AgentClientTest::~AgentClientTest() {
  client_.reset();
  main_.runReady();
  // Neither the runtime nor anything that it started may be left.
  EXPECT_TRUE(Process::waitForAll(std::chrono::seconds(20)));
}

void AgentClientTest::listen() {
  client_->onSessionUpdate = [this](const JsonObject& update) {
    note(describe(update));
    updates_.push_back(update);
  };
  client_->onPermissionRequest = [this](PermissionRequest request) {
    note("asks " + std::to_string(request.id) + " " + request.title);
    questions_.push_back(std::move(request));
  };
  client_->onPermissionWithdrawn = [this](std::int64_t id) {
    note("withdrawn " + std::to_string(id));
  };
  client_->onWaiting = [this](const std::string& text) { waits_.push_back(text); };
  client_->onLog = [this](std::string_view text) {
    checkThread();
    log_ += text;
  };
  client_->onReplayStarted = [this] { note("replay started"); };
  client_->onReplayFailed = [this] { note("replay failed"); };
  client_->onUnexpectedTermination = [this](std::string text) { note("terminated: " + text); };
  client_->onUsageUpdate = [this](ProviderUsage usage) {
    note(describe(usage));
    usages_.push_back(std::move(usage));
  };
  client_->onModelOptionsUpdate = [this](std::vector<ProviderModelOption> options) {
    std::string line = "models";
    for (const auto& option : options) line += " " + option.id;
    note(line);
  };
}

void AgentClientTest::start(std::optional<std::string> session) {
  client_->start(std::move(session), [this](std::expected<AgentStartResult, AgentError> result) {
    if (result) session_ = result->sessionId;
    note(result ? describe(*result) : "not started: " + describe(result.error()));
  });
}

void AgentClientTest::prompt(const std::string& text) {
  client_->sendPrompt(text, [this](std::expected<JsonObject, AgentError> result) {
    if (!result) failures_.push_back(result.error());
    note(result ? "turn ended " + describeEnd(*result)
                : "turn failed: " + describe(result.error()));
  });
}

void AgentClientTest::begin(const AgentScriptText& script, std::optional<std::string> session) {
  notes_.clear();
  make(script);
  listen();
  start(std::move(session));
}

void AgentClientTest::open(const AgentScriptText& script) {
  openBy(AgentScriptText(opening() + script.text()));
}

void AgentClientTest::openTurn(const AgentScriptText& script) {
  open(AgentScriptText(beginningOfATurn() + script.text()));
  prompt();
}

void AgentClientTest::openBy(const AgentScriptText& script) {
  begin(script);
  const auto started = [this] {
    return std::ranges::find_if(notes_, [](auto& line) { return line.starts_with("started"); });
  };
  ASSERT_TRUE(main_.runUntil([&] { return started() != notes_.end(); }))
      << testing::PrintToString(notes_) << " and log " << log_;
  // What the runtime has said behind it may be here already.
  notes_.erase(notes_.begin(), started() + 1);
}

std::string AgentClientTest::describe(const JsonObject& update) const {
  const JsonObject* content = json::object(update, "content");
  if (!content) return "says " + json::write(update);
  const bool thinks = json::textOr(update, "sessionUpdate", "") == "agent_thought_chunk";
  return (thinks ? "thinks " : "says ") + json::textOr(*content, "text", "?");
}

std::string AgentClientTest::describe(const AgentStartResult& result) const {
  return "started " + result.sessionId + (result.replayedSession ? " replayed" : "") +
         (result.notice ? "; " + *result.notice : "");
}

std::string AgentClientTest::describe(const AgentError& error) const {
  return error.localizedDescription();
}

std::string AgentClientTest::describe(const ProviderUsage& usage) const {
  return std::string("usage") + (usage.exhausted ? " exhausted" : "");
}

void AgentClientTest::await(const std::string& line) {
  ASSERT_TRUE(main_.runUntil([&] { return std::ranges::count(notes_, line) > 0; }))
      << "no \"" << line << "\" but " << testing::PrintToString(notes_) << " and log " << log_;
}

void AgentClientTest::awaitCount(std::size_t count) {
  ASSERT_TRUE(main_.runUntil([&] { return notes_.size() >= count; }))
      << testing::PrintToString(notes_) << " and log " << log_;
}

void AgentClientTest::expectNotes(const Lines& expected) {
  awaitCount(expected.size());
  EXPECT_EQ(notes_, expected) << "log " << log_;
}

void AgentClientTest::note(std::string line) {
  checkThread();
  notes_.push_back(std::move(line));
}

std::string AgentClientTest::program(const std::string& name,
                                     const std::string& shellScript) const {
  return folder_.program(name, "#!/bin/sh\n" + shellScript);
}

}  // namespace vantrell::tests
