// A run as one JSON object a line (docs/terminal.md describes them). Main queue.
#pragma once

#include <functional>
#include <string>

#include "shell/terminal/run_observer.h"

namespace vantrell {
class JsonWriter;
}

namespace vantrell::shell {

/// An object with the member "event" and others, as a line.
std::string eventLine(std::string_view name, const std::function<void(JsonWriter&)>& members);
/// The event of a question.
std::string permissionEvent(const PermissionRequest& request);

class JsonPrinter final : public RunObserver {
 public:
  using Write = std::function<void(std::string_view)>;
  explicit JsonPrinter(Write write) : write_(std::move(write)) {}
  /// Each line says which conversation it is about.
  JsonPrinter(Write write, const Uuid& threadID)
      : write_(std::move(write)), threadID_(threadID.text()) {}

  void introduced(const RunIntroduction& introduction) override;
  void entryAdded(const ChatEntry& entry) override;
  void entryReplaced(const ChatEntry& entry) override { entryAdded(entry); }
  void textAdded(const ChatEntry& entry, std::string_view text) override;
  void transcriptReplaced(const Transcript& entries) override;
  void planReplaced(const std::vector<PlanEntry>& plan) override;
  void permissionAsked(const PermissionRequest& request) override;
  void lineTyped() override {}
  void permissionStillOpen(const PermissionRequest&) override {}
  void permissionAnswered(const PermissionOption*) override {}  // the run says that it goes on
  void runChanged(const RunRecord& run) override;
  void promptQueued(std::size_t waiting) override;
  void interrupted() override {}
  void ended(const RunRecord*) override {}

 private:
  void event(std::string_view name, const std::function<void(JsonWriter&)>& members);

  Write write_;
  std::string threadID_;  // where lines of several conversations come
};

}  // namespace vantrell::shell
