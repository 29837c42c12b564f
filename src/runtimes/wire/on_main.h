// Carries a completion from a client's queue to the main queue.
#pragma once

#include <functional>
#include <memory>

#include "platform/queues/mailbox.h"

namespace vantrell {

/// The completion arrives behind every event that was delivered before it.
template <typename Result>
std::function<void(Result)> onMain(std::shared_ptr<Mailbox> mailbox,
                                   std::function<void(Result)> completion) {
  return [mailbox = std::move(mailbox), completion = std::move(completion)](Result result) {
    mailbox->deliver([completion, result = std::move(result)]() mutable {
      if (completion) completion(std::move(result));
    });
  };
}

}  // namespace vantrell
