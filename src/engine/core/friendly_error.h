// Turns a runtime's words into advice for the user. A pure function.
#pragma once

#include <string>
#include <string_view>

#include "records/values/agent_provider.h"

namespace vantrell {

std::string friendlyError(std::string_view message, AgentProvider provider);

}  // namespace vantrell
