// Completes session updates with what the protocol lets a runtime leave out: a tool update carries
// the last known title and status of its call, and text without a message id that follows a tool
// call begins a message of its own. Lives on the client's queue.
#pragma once

#include <map>
#include <string>

#include "platform/values/json.h"

namespace vantrell {

class UpdateCompleter {
 public:
  void beginTurn();
  void complete(JsonObject& update);
  /// The turn had some text, thought, plan or tool.
  bool hasWorked() const { return hasWorked_; }

 private:
  void completeTool(JsonObject& update);
  void completeText(JsonObject& update, bool isThought);

  struct Tool {
    std::string title, status;
  };
  std::map<std::string, Tool> tools_;  // by id; of this turn, and those still open
  bool hasWorked_ = false;
  bool isParted_ = false;  // a tool call came after the last text
  /// Of the text after a tool call. Empty before one: then the turn's own message takes the text.
  std::string messageID_;
};

}  // namespace vantrell
