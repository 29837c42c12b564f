// The ids of the messages that came last, so that one that comes twice is known. A value.
#pragma once

#include <cstddef>
#include <deque>
#include <string>
#include <unordered_set>

namespace vantrell {

class RecentIDs {
 public:
  /// With more than `most` ids the oldest are forgotten until `kept` remain.
  RecentIDs(std::size_t most, std::size_t kept) : most_(most), kept_(kept) {}

  /// False for an id that is there already.
  bool insert(const std::string& id) {
    if (!set_.insert(id).second) return false;
    order_.push_back(id);
    if (order_.size() <= most_) return true;
    while (order_.size() > kept_) {
      set_.erase(order_.front());
      order_.pop_front();
    }
    return true;
  }

 private:
  std::size_t most_;
  std::size_t kept_;
  std::deque<std::string> order_;  // oldest first
  std::unordered_set<std::string> set_;
};

}  // namespace vantrell
