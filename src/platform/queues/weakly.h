// The one way in which a callback holds its owner: weakly, so that a late event of something that
// outlives its owner does nothing.
#pragma once

#include <memory>
#include <utility>

namespace vantrell {

/// Wraps `body(owner, arguments...)` so that it runs only while the owner lives.
///
///     client->onLog = weakly(this, [key](Composer& driver, std::string text) { ... });
///
/// The owner must be held by a std::shared_ptr and derive from std::enable_shared_from_this.
template <typename Owner, typename Body>
auto weakly(Owner* owner, Body body) {
  return [weak = std::weak_ptr<Owner>(std::static_pointer_cast<Owner>(owner->shared_from_this())),
          body = std::move(body)]<typename... Arguments>(Arguments&&... arguments) mutable {
    if (auto strong = weak.lock()) body(*strong, std::forward<Arguments>(arguments)...);
  };
}

}  // namespace vantrell
