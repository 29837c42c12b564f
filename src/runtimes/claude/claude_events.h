// Turns what Claude Code tells of its work into session updates. Each call gives the updates of one
// message, in order. Owned by the connection, on its queue; it needs neither process nor client.
#pragma once

#include <map>
#include <string>
#include <vector>

#include "platform/values/json.h"

namespace vantrell {

class ClaudeEvents {
 public:
  using Updates = std::vector<JsonObject>;

  ClaudeEvents() { beginTurn(); }

  /// What comes now belongs to another message than what came before.
  void beginTurn();
  /// The turn is over. Of one that failed or was stopped, tools that have not ended never will.
  Updates endTurn(bool failed);

  Updates streamEvent(const JsonObject& message);
  /// The whole of what was streamed; only what was not streamed is told.
  Updates assistantMessage(const JsonObject& message);
  /// The messages of the type "user" carry the results of tools.
  Updates userMessage(const JsonObject& message);
  /// Background tasks.
  Updates systemEvent(const JsonObject& message);

 private:
  JsonObject textChunk(const std::string& words);
  JsonObject thoughtChunk(const std::string& words);
  /// Of the message that text and thoughts belong to now.
  const std::string& messageID();
  JsonObject toolUse(const JsonObject& block);

  std::string messageID_;
  bool isParted_ = false;  // a tool call came since: what is said now is another message
  std::string synthetic_;  // Claude Code's own words in the turn, held back until its end
  bool streamedText_ = false;
  bool streamedThinking_ = false;
  // The transcript takes the title of every update, and only the first ones of Claude Code have it.
  std::map<std::string, std::string> openTools_;  // title by id
  std::map<std::string, std::string> openTasks_;  // title by id
};

}  // namespace vantrell
