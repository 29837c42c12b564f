// Which provider can take a turn, found out before a front end lets a task work: model servers, the
// webhook and the PATH of the user's shell are asked for where the answer depends on them. Main
// queue; callbacks come within the call where there is nothing to wait for, and only while the
// model lives.
#pragma once

#include <functional>
#include <optional>

#include "app/app_model.h"
#include "engine/core/run_choices.h"
#include "records/values/agent_provider.h"

namespace vantrell {

class SystemProviderServices;

class ProviderCheck {
 public:
  /// `hasUsersPath`: it is for someone at a terminal, where the PATH of this process is the user's.
  /// A process that a desktop menu, a timer or a service has started would neither find every
  /// program nor start it with its interpreter, so it reads that PATH first. Both must outlive it.
  ProviderCheck(AppModel& model, SystemProviderServices& services, bool hasUsersPath)
      : model_(model), services_(services), hasUsersPath_(hasUsersPath) {}

  /// Whether the provider can be used, for the task if there is one.
  void whetherAvailable(AgentProvider provider, std::optional<ThreadExecutionKey> task,
                        const RunChoices& choices, std::function<void(bool)> then);
  /// Which one takes the task's next turn by the route; nullopt: none can.
  void nextProvider(std::optional<ThreadExecutionKey> task,
                    std::function<void(std::optional<AgentProvider>)> then);
  /// Goes on once all is known that a preview of the route shows.
  void whenPreviewIsKnown(std::optional<ThreadExecutionKey> task, std::function<void()> then);

 private:
  void withUserPath(const std::function<bool()>& isFound, std::function<void()> then);

  AppModel& model_;
  SystemProviderServices& services_;
  const bool hasUsersPath_;
};

}  // namespace vantrell
