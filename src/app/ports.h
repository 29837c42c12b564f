// Every upward call of the engine, and who answers it. The one place where ports are set.
#pragma once

#include "engine/engine_ports.h"

namespace vantrell {

/// Every port with its neutral answer, as if the part that it stands for did not exist; but for
/// `connector`, which has none.
EnginePorts neutralPorts();

/// The ports of the program. What is given must outlive them.
EnginePorts enginePorts(MainQueue& main, BackgroundPool& pool,
                        const ProviderConnectorRegistry& connectors);

}  // namespace vantrell
