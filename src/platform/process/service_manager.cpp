#include "platform/process/service_manager.h"

#include <cstddef>
#include <cstdlib>
#include <cstring>
#include <sys/socket.h>
#include <sys/un.h>

#include "platform/files/descriptor.h"

namespace vantrell {

void notifyServiceManager(std::string_view state) {
  const char* const named = std::getenv("NOTIFY_SOCKET");
  const std::string_view path = named ? named : "";
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  const bool isPath = path.starts_with('/') || path.starts_with('@');
  if (!isPath || path.size() >= sizeof address.sun_path) return;
  std::memcpy(address.sun_path, path.data(), path.size());
  if (path.front() == '@') address.sun_path[0] = '\0';  // a name outside the file system
  const Descriptor socket(::socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0));
  if (!socket) return;
  const auto size = static_cast<socklen_t>(offsetof(sockaddr_un, sun_path) + path.size());
  ::sendto(socket.get(), state.data(), state.size(), MSG_NOSIGNAL,
           reinterpret_cast<const sockaddr*>(&address), size);
}

}  // namespace vantrell
