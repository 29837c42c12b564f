// Every upward call of the engine, and who answers those that need the queues alone. VantrellApp
// sets the others, behind which a part of its own stands.
#pragma once

#include "engine/core/engine_ports.h"

namespace vantrell {

/// Every port with its neutral answer, as if the part that it stands for did not exist; but for
/// `connector`, which has none.
EnginePorts neutralPorts();

/// The ports of the program, as far as they are answered from what is given, which must outlive
/// them.
EnginePorts enginePorts(MainQueue& main, BackgroundPool& pool,
                        const ProviderConnectorRegistry& connectors);

}  // namespace vantrell
