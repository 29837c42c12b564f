// Requests that wait for their answers: the numbering and the table that every dialect shares.
// Lives on the client's queue.
#pragma once

#include <cstdint>
#include <expected>
#include <functional>
#include <map>
#include <optional>
#include <utility>

#include "platform/values/json.h"
#include "runtimes/wire/agent_error.h"

namespace vantrell {

class PendingRequests {
 public:
  using Answer = std::expected<JsonObject, AgentError>;
  using Completion = std::function<void(Answer)>;

  /// Registers the completion and returns the id of the request: 1, 2, 3 and so on.
  std::int64_t add(Completion completion) {
    const std::int64_t id = nextRequestID_++;
    pending_.emplace(id, std::move(completion));
    return id;
  }

  /// Takes the completion out. Absent for an id that is unknown or was answered.
  std::optional<Completion> take(std::int64_t id) {
    auto node = pending_.extract(id);
    if (node.empty()) return std::nullopt;
    return std::move(node.mapped());
  }

  /// Fails all. The table is empty before the first completion runs, so that one may start new
  /// requests.
  void failAll(const AgentError& error) {
    for (auto& [id, completion] : std::exchange(pending_, {})) completion(std::unexpected(error));
  }

  bool empty() const { return pending_.empty(); }

 private:
  std::int64_t nextRequestID_ = 1;
  std::map<std::int64_t, Completion> pending_;
};

}  // namespace vantrell
