// TCP listeners and connections. Each belongs to one SerialQueue, on which all of its operations
// are called and all of its handlers run; one thread of the process, which all share, only waits
// for the sockets to become ready. Reading and writing never block.
#pragma once

#include <cstddef>
#include <cstdint>
#include <expected>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include "platform/files/descriptor.h"
#include "platform/queues/dispatch.h"

namespace vantrell {

struct TcpError {
  int code = 0;             // errno
  std::string description;  // a sentence for people
};

/// What a handler captures may hold the connection: the handlers are released by close().
class TcpConnection {
 public:
  struct Handlers {
    /// At most `chunkBytes`; valid during the call.
    std::function<void(std::string_view)> onReceive;
    /// Without an error: the other side sends no more, but may still read. With one: the
    /// connection is broken, and no handler is called afterwards.
    std::function<void(std::optional<TcpError>)> onEnd;
  };
  virtual ~TcpConnection() = default;

  /// Starts to read. The handlers are never called from inside this call.
  virtual void start(Handlers handlers) = 0;
  /// Sends the bytes after those given before. `onSent` is called with the number of bytes that the
  /// system has taken each time it takes some, and never after the connection is broken.
  virtual void send(std::string bytes, std::function<void(std::size_t)> onSent) = 0;
  /// Ends the connection at once. What the other side has sent and this one has not read makes the
  /// system reset the connection, which may cost the other side what it has not read yet.
  virtual void close() = 0;
  /// Ends the sending direction, drops what still comes, and closes when the other side has ended
  /// or `lingerLimit` has passed. The handlers are released; `onClosed` is called once, unless
  /// close() comes first.
  virtual void closeGently(std::function<void()> onClosed) = 0;

  static constexpr std::size_t chunkBytes = 65'536;
  static constexpr std::chrono::seconds lingerLimit{2};
};

class TcpListener {
 public:
  struct Handlers {
    std::function<void(std::shared_ptr<TcpConnection>)> onConnection;
    /// In place of onConnection: the socket itself, which does not block, for another kind of
    /// connection.
    std::function<void(Descriptor)> onSocket;
    /// The process or the system has no descriptor left for a connection that waits. It is tried
    /// again after `retryDelay`.
    std::function<void()> onExhausted;
  };
  /// Binds to exactly this IPv4 or IPv6 address; port 0 means any free one. A port on which
  /// connections of an earlier listener are still ending can be taken. Any thread.
  static std::expected<std::shared_ptr<TcpListener>, TcpError> bind(const std::string& address,
                                                                    std::uint16_t port);
  virtual ~TcpListener() = default;

  virtual std::uint16_t port() const = 0;  // any thread
  /// Starts to accept, and makes the listener and its connections belong to the queue. Any thread,
  /// once.
  virtual void start(SerialQueue queue, Handlers handlers) = 0;
  /// While paused, connections wait in the system's queue.
  virtual void setPaused(bool isPaused) = 0;
  /// Frees the address at once, so that another listener can have it; close() must follow. Any
  /// thread.
  virtual void stopListening() = 0;
  /// No handler is called from now on. Connections that were handed out stay.
  virtual void close() = 0;

  static constexpr std::chrono::milliseconds retryDelay{100};
};

}  // namespace vantrell
