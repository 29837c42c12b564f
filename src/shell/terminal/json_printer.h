// A run as one JSON object a line (docs/terminal.md describes them). Main queue.
#pragma once

#include <functional>
#include <string>

#include "platform/values/json.h"
#include "runtimes/wire/agent_client.h"
#include "shell/terminal/run_observer.h"

namespace vantrell::shell {

/// An object with the member "event", these members and, if given, the record as a member of the
/// event's name, as a line. `threadID` says which conversation it is about, where lines of several
/// come.
std::string eventLine(std::string_view name, std::string_view threadID, const JsonObject& members,
                      const std::function<void(JsonWriter&)>& record = nullptr);
/// The event of a question.
std::string permissionEvent(const PermissionRequest& request, std::string_view threadID);

class JsonPrinter final : public RunObserver {
 public:
  using Write = std::function<void(std::string_view)>;
  explicit JsonPrinter(Write write, std::string threadID = {})
      : write_(std::move(write)), threadID_(std::move(threadID)) {}

  void introduced(const RunIntroduction& introduction) override;
  void entryAdded(const ChatEntry& entry) override;
  void entryReplaced(const ChatEntry& entry) override { entryAdded(entry); }
  void textAdded(const ChatEntry& entry, std::string_view text) override;
  void transcriptReplaced(const Transcript& entries) override;
  void planReplaced(const std::vector<PlanEntry>& plan) override;
  void runChanged(const RunRecord& run) override;
  void promptQueued(std::size_t waiting) override;

 private:
  void event(std::string_view name, const JsonObject& members) {
    write_(eventLine(name, threadID_, members));
  }

  const Write write_;
  const std::string threadID_;
};

}  // namespace vantrell::shell
