// Everything that the fleet is made of. For app/, which owns one, and for tests. Main queue.
#pragma once

#include <memory>

#include "fleet/fleet.h"
#include "fleet/this_machine.h"

namespace vantrell {

struct FleetModule {
  const std::shared_ptr<Fleet> fleet;
  const ThisMachine thisMachine;

  FleetModule(const Fleet::Dependencies& stored, const ThisMachine::Dependencies& state)
      : fleet(std::make_shared<Fleet>(stored)), thisMachine(state) {}
};

}  // namespace vantrell
