// Under which address other machines reach this one, and what it is called. Quick questions to the
// system; any thread.
#pragma once

#include <span>
#include <string>

namespace vantrell {

/// An IPv4 address: the first in 100.x, which overlay networks use, else the one from which packets
/// to other networks leave, else the first that is not this machine's own loopback; 127.0.0.1 where
/// there is none.
std::string ownAddress();

/// The choice among `addresses`, in the order of the interfaces and without the loopback; `routed`
/// is empty where no packet would leave.
std::string chosenAddress(std::span<const std::string> addresses, const std::string& routed);

/// What its owner calls it, else its host name.
std::string nameOfThisComputer();

}  // namespace vantrell
