#include "platform/sockets/own_address.h"

#include <ifaddrs.h>
#include <memory>
#include <net/if.h>
#include <netdb.h>
#include <netinet/in.h>
#include <sys/socket.h>

namespace vantrell {

std::string ownAddress() {
  std::string first = "127.0.0.1";
  ifaddrs* list = nullptr;
  if (getifaddrs(&list) != 0) return first;
  const std::unique_ptr<ifaddrs, decltype(&freeifaddrs)> owner(list, freeifaddrs);
  bool isFound = false;
  for (const ifaddrs* each = list; each; each = each->ifa_next) {
    if (!each->ifa_addr || each->ifa_addr->sa_family != AF_INET) continue;
    if (each->ifa_flags & IFF_LOOPBACK) continue;
    char text[NI_MAXHOST];
    if (getnameinfo(each->ifa_addr, sizeof(sockaddr_in), text, sizeof text, nullptr, 0,
                    NI_NUMERICHOST) != 0) {
      continue;
    }
    const std::string address = text;
    if (address.starts_with("100.")) return address;
    if (!isFound) first = address;
    isFound = true;
  }
  return first;
}

}  // namespace vantrell
