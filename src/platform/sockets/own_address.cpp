#include "platform/sockets/own_address.h"

#include <algorithm>
#include <arpa/inet.h>
#include <ifaddrs.h>
#include <memory>
#include <net/if.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>
#include <vector>

#include "platform/files/descriptor.h"
#include "platform/files/files.h"
#include "platform/text/text.h"

namespace vantrell {

namespace {

std::string textOf(const sockaddr* address) {
  char text[INET_ADDRSTRLEN];
  const auto* const ipv4 = reinterpret_cast<const sockaddr_in*>(address);
  return inet_ntop(AF_INET, &ipv4->sin_addr, text, sizeof text) ? text : "";
}

/// Where the default route leads, which a datagram socket finds out without a packet: a machine
/// with containers has bridges of its own, and no other machine reaches their addresses.
std::string routedAddress() {
  const Descriptor socket(::socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0));
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_port = htons(9);
  inet_pton(AF_INET, "192.0.2.1", &address.sin_addr);  // reserved for examples
  auto* const generic = reinterpret_cast<sockaddr*>(&address);
  socklen_t size = sizeof address;
  if (!socket || ::connect(socket.get(), generic, size) != 0 ||
      ::getsockname(socket.get(), generic, &size) != 0) {
    return {};
  }
  return textOf(generic);
}

}  // namespace

std::string ownAddress() {
  ifaddrs* list = nullptr;
  if (getifaddrs(&list) != 0) return chosenAddress({}, {});
  const std::unique_ptr<ifaddrs, decltype(&freeifaddrs)> owner(list, freeifaddrs);
  std::vector<std::string> addresses;
  for (const ifaddrs* each = list; each; each = each->ifa_next) {
    if (!each->ifa_addr || each->ifa_addr->sa_family != AF_INET) continue;
    if (each->ifa_flags & IFF_LOOPBACK) continue;
    addresses.push_back(textOf(each->ifa_addr));
  }
  return chosenAddress(addresses, routedAddress());
}

std::string chosenAddress(std::span<const std::string> addresses, const std::string& routed) {
  for (const auto& address : addresses) {
    if (address.starts_with("100.")) return address;
  }
  if (std::ranges::find(addresses, routed) != addresses.end()) return routed;
  return addresses.empty() ? "127.0.0.1" : addresses.front();
}

std::string nameOfThisComputer() {
  constexpr std::string_view key = "PRETTY_HOSTNAME=";
  const auto information = files::read("/etc/machine-info");
  for (auto line : text::split(information ? *information : "", '\n')) {
    if (!line.starts_with(key)) continue;
    line.remove_prefix(key.size());
    if (line.starts_with('"') && line.ends_with('"') && line.size() > 1) {
      line = line.substr(1, line.size() - 2);
    }
    if (!line.empty()) return std::string(line);
  }
  char name[256] = "";
  ::gethostname(name, sizeof name - 1);
  return *name ? name : "This computer";
}

}  // namespace vantrell
