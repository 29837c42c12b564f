// The list of the gateway's jobs with its limits. A plain value without saving or clients.
#pragma once

#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "gateway/gateway_records.h"

namespace vantrell {

class JobHistory {
 public:
  /// What is handed out stays as it is: the next change is made to a copy.
  using Job = std::shared_ptr<const GatewayJob>;

  static constexpr std::size_t mostJobs = 100;  // unless more are unfinished
  static constexpr std::size_t mostEvents = 200;
  static constexpr std::size_t longestMessage = 1000;   // of an event, in characters
  static constexpr std::size_t mostOutput = 2'000'000;  // characters

  JobHistory() = default;
  explicit JobHistory(std::vector<GatewayJob> jobs);

  /// Oldest first; jobs of one second in the order in which they came.
  std::vector<Job> all() const;
  /// Null where there is none.
  Job find(const Uuid& id) const;
  /// The one that has waited longest; null where none waits.
  Job nextQueued() const;
  std::size_t unfinishedCount(const std::optional<Uuid>& siteKeyID) const;

  void add(GatewayJob job);
  /// For a change; null for an unknown job. Valid until the list is used again.
  GatewayJob* change(const Uuid& id);
  void removeUnfinishedOf(const Uuid& siteKeyID);
  /// Drops the oldest finished jobs above the limit.
  void prune();

 private:
  struct Entry {
    std::shared_ptr<GatewayJob> job;
    mutable bool isHandedOut = false;
  };
  static Job handOut(const Entry& entry);

  std::vector<Entry> entries_;
};

/// The oldest goes where there are too many. A long message is cut: agents put whole commands into
/// titles, and each job has many events.
void addEvent(GatewayJob& job, std::string type, std::string_view message, Date now);
/// Sets a final status with its event. What the job waited for is over.
void finish(GatewayJob& job, GatewayJobStatus status, std::string message, Date now);

}  // namespace vantrell
