// The service manager that may have started this process (systemd).
#pragma once

#include <string_view>

namespace vantrell {

/// Tells it a state such as "READY=1", where it has asked to be told (NOTIFY_SOCKET). Any thread.
void notifyServiceManager(std::string_view state);

}  // namespace vantrell
