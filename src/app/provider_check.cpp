#include "app/provider_check.h"

#include "engine/providers/installed_runtimes.h"
#include "engine/providers/router.h"
#include "engine/providers/system_provider_services.h"

namespace vantrell {

void ProviderCheck::withUserPath(const std::function<bool()>& isFound, std::function<void()> then) {
  if (hasUsersPath_ && isFound()) return then();
  model_.runtimes().readUserPath(std::move(then));
}

void ProviderCheck::whetherAvailable(AgentProvider provider, std::optional<ThreadExecutionKey> task,
                                     const RunChoices& choices, std::function<void(bool)> then) {
  const auto isAvailable = [&router = model_.router(), provider, task, choices] {
    return router.providerAvailable(provider, task, choices);
  };
  if (provider == AgentProvider::local && choices.practiceAgent) return then(isAvailable());
  services_.prepare(provider, [check = *this, isAvailable, then = std::move(then)]() mutable {
    check.withUserPath(isAvailable, [isAvailable, then] { then(isAvailable()); });
  });
}

void ProviderCheck::nextProvider(std::optional<ThreadExecutionKey> task,
                                 std::function<void(std::optional<AgentProvider>)> then) {
  auto& router = model_.router();
  const auto expected = [&router, task] { return router.expectedProvider({}, task); };
  router.probeForNextTurn({}, task, [=, check = *this, &router]() mutable {
    check.withUserPath([expected] { return expected().has_value(); },
                       [&router, task, expected, then] {
                         router.probeForNextTurn({}, task, [expected, then] { then(expected()); });
                       });
  });
}

void ProviderCheck::whenPreviewIsKnown(std::optional<ThreadExecutionKey> task,
                                       std::function<void()> then) {
  auto last = [&runtimes = model_.runtimes(), then = std::move(then)] {
    runtimes.readUserPath(then);
  };
  std::function<void()> next = last;
  for (const auto& each : model_.router().routingPreview(task).candidates) {
    next = [&services = services_, provider = each.provider, after = std::move(next)] {
      services.prepare(provider, after);
    };
  }
  next();
}

}  // namespace vantrell
