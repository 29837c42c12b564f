// An agent client without a runtime behind it: a test holds it and plays the runtime's part.
#pragma once

#include <string>
#include <vector>

#include "runtimes/wire/agent_client.h"

namespace vantrell::tests {

class FakeAgentClient final : public AgentClient {
 public:
  explicit FakeAgentClient(AgentProvider provider) : provider_(provider) {}

  AgentProvider provider() const override { return provider_; }
  void start(std::optional<std::string> existingSessionID, StartCompletion completion) override {
    existingSession = std::move(existingSessionID);
    startCompletion = std::move(completion);
  }
  void sendPrompt(std::string prompt, PromptCompletion completion) override {
    prompts.push_back(std::move(prompt));
    promptCompletions.push_back(std::move(completion));
  }
  void cancel() override {
    ++cancels;
    if (endsOnCancel) onUnexpectedTermination("cancelled");
  }
  void respondToPermission(std::int64_t requestID, std::string optionID) override {
    answers.emplace_back(requestID, std::move(optionID));
  }
  void stop() override { ++stops; }

  // What the runtime does.

  void opens(std::string session, bool replayed = false) {
    startCompletion(AgentStartResult{std::move(session), replayed});
  }
  void failsToOpen(const std::string& text) { startCompletion(std::unexpected(AgentError(text))); }
  void finishes() { answer(JsonObject{{"stopReason", "end_turn"}}); }
  void fails(AgentError error) { answer(std::unexpected(std::move(error))); }
  void updates(JsonObject update) { onSessionUpdate(update); }
  void says(std::string text, std::optional<std::string> messageID = std::nullopt) {
    chunk("agent_message_chunk", std::move(text), std::move(messageID));
  }
  void chunk(std::string kind, std::string text, std::optional<std::string> messageID) {
    JsonObject update{{"sessionUpdate", std::move(kind)},
                      {"content", JsonObject{{"type", "text"}, {"text", std::move(text)}}}};
    if (messageID) update.set("messageId", std::move(*messageID));
    updates(std::move(update));
  }

  // What the engine asked for.

  std::optional<std::string> existingSession;
  StartCompletion startCompletion;
  std::vector<std::string> prompts;
  std::vector<PromptCompletion> promptCompletions;
  std::vector<std::pair<std::int64_t, std::string>> answers;
  int cancels = 0;
  bool endsOnCancel = false;  // from within cancel()
  int stops = 0;

 private:
  /// A copy: the answer may bring the next prompt, whose completion makes the list grow.
  void answer(std::expected<JsonObject, AgentError> result) {
    const PromptCompletion completion = promptCompletions.back();
    completion(std::move(result));
  }

  AgentProvider provider_;
};

}  // namespace vantrell::tests
