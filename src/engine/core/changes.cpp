#include "engine/core/changes.h"

namespace vantrell {

Changes::Observation Changes::observe(Observer observer) {
  auto kept = std::make_shared<Observer>(std::move(observer));
  observers_.push_back(kept);
  return Observation(std::move(kept));
}

void Changes::announce(const Change& change) {
  ++depth_;
  // By index: an observer may begin to observe in its call.
  for (std::size_t i = 0; i < observers_.size(); ++i) {
    if (const auto observer = observers_[i].lock()) (*observer)(change);
  }
  // Places may not move while an outer announcement walks over them.
  if (--depth_ == 0) std::erase_if(observers_, [](const auto& each) { return each.expired(); });
}

}  // namespace vantrell
