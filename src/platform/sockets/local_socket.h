// Sockets between processes of one user on this machine. A message is short and arrives as it was
// sent, with the descriptors that were handed over with it. A process of another user gets no
// connection.
#pragma once

#include <expected>
#include <functional>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <sys/types.h>
#include <vector>

#include "platform/files/descriptor.h"

namespace vantrell {

class MainQueue;

namespace localSocket {

/// A message is at most this long, in bytes; what is longer goes into a file that is handed over.
inline constexpr std::size_t maxMessage = 4096;
inline constexpr std::size_t maxDescriptors = 8;

struct Message {
  std::string bytes;
  std::vector<Descriptor> descriptors;
};

/// The owner-only folders that sockets of `application` can be in, the best one first: in
/// XDG_RUNTIME_DIR, in the user's folder of /run/user, in /tmp. Made where they are missing.
/// Without those that cannot be made or belong to another user, as where XDG_RUNTIME_DIR does after
/// su.
std::vector<std::string> folders(std::string_view application);

/// Nullopt where nothing listens, or a process of another user does. Blocks.
std::optional<Descriptor> connect(const std::string& path);
/// False when the other end is gone.
bool send(int socket, std::string_view bytes, std::span<const int> descriptors = {});
/// The next message; nullopt at the end of the connection. Blocks unless the socket does not.
std::optional<Message> receive(int socket);

/// A file in memory with these bytes, to be handed over.
std::expected<Descriptor, std::string> memoryFile(std::string_view bytes);

}  // namespace localSocket

/// Accepts connections and reads messages on a thread of its own; all else is the main queue's.
class LocalSocketServer {
 public:
  /// One accepted connection. Main queue.
  class Connection {
   public:
    virtual ~Connection() = default;
    /// The process at the other end.
    virtual pid_t process() const = 0;
    virtual void send(std::string_view bytes) = 0;
    /// Ends it after what was sent; onClosed is not called any more.
    virtual void close() = 0;

    std::function<void(localSocket::Message)> onMessage;
    /// The other end is gone.
    std::function<void()> onClosed;
  };
  using Accept = std::function<void(const std::shared_ptr<Connection>&)>;

  /// Listens at the path, in place of a socket that a dead process left there. `accept` sets the
  /// handlers of each connection before its first message is delivered. The error is a sentence.
  static std::expected<std::unique_ptr<LocalSocketServer>, std::string> listen(
      MainQueue& main, const std::string& path, Accept accept);
  virtual ~LocalSocketServer() = default;
};

}  // namespace vantrell
