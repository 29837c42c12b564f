// The fleet as recipes see it. Main queue.
#pragma once

#include "automations/fleet_dispatch.h"

namespace vantrell {

struct FleetModule;

class AutomationHosts final : public FleetDispatch {
 public:
  /// It must outlive this.
  explicit AutomationHosts(FleetModule& fleet) : fleet_(fleet) {}

  bool hasHost(const Uuid& hostID) const override;
  void dispatchTask(const Uuid& hostID, std::string prompt, std::string projectPath,
                    std::function<void(Result<>)> done) override;
  void refreshFleet() override;

 private:
  FleetModule& fleet_;
};

}  // namespace vantrell
