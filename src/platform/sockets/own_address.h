// Under which address other machines reach this one. A quick question to the system; any thread.
#pragma once

#include <string>

namespace vantrell {

/// An IPv4 address: the first in 100.x, which overlay networks use, else the first that is not this
/// machine's own loopback; 127.0.0.1 where there is none.
std::string ownAddress();

}  // namespace vantrell
