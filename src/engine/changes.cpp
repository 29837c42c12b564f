#include "engine/changes.h"

namespace vantrell {

Changes::Observation Changes::observe(Observer observer) {
  auto kept = std::make_shared<Observer>(std::move(observer));
  observers_.push_back(kept);
  return Observation(std::move(kept));
}

void Changes::announce(const Change& change) {
  bool someGone = false;
  // By index: an observer may start to observe, or cause a change, in its call.
  for (std::size_t i = 0; i < observers_.size(); ++i) {
    if (const auto observer = observers_[i].lock()) {
      (*observer)(change);
    } else {
      someGone = true;
    }
  }
  if (someGone) std::erase_if(observers_, [](const auto& each) { return each.expired(); });
}

}  // namespace vantrell
