// Requests that wait for their answers: the numbering and the table that every JSON-RPC dialect
// shares. Lives on the client's queue.
#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <optional>
#include <utility>

namespace vantrell {

/// `Answer` is what a completion takes, mostly a std::expected.
template <typename Answer>
class PendingRequests {
 public:
  using Completion = std::function<void(Answer)>;

  /// Registers the completion and answers the id of the request: 1, 2, 3 and so on.
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

  /// Ends all with the same answer. The table is empty before the first completion runs, so that
  /// one may start new requests.
  void finishAll(const Answer& answer) {
    for (auto& [id, completion] : std::exchange(pending_, {})) completion(answer);
  }

  bool empty() const { return pending_.empty(); }

 private:
  std::int64_t nextRequestID_ = 1;
  std::map<std::int64_t, Completion> pending_;
};

}  // namespace vantrell
