// TCP listeners and connections. Each belongs to one SocketThread, on which all of its operations
// are called and all of its handlers run, so that a request costs no change of threads before it is
// read. Reading and writing never block. No exception leaves; what the system refuses is a
// TcpError.
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

/// A thread that waits for sockets and works for them, so it must not be blocked. A value: copies
/// are the same thread.
class SocketThread {
 public:
  static std::expected<SocketThread, TcpError> start();
  /// One for all that need none of their own; it runs until the program ends. Any thread.
  static std::expected<SocketThread, TcpError> shared();
  /// Runs the work after what was posted before. Any thread; dropped after end().
  void post(Work work) const;
  /// Waits until the work that is being done is finished and the thread has ended; what else was
  /// posted runs on the calling thread then. By the owner, once; all sockets are closed before.
  void end() const;

  class Core;  // of the implementation, as is core()
  const std::shared_ptr<Core>& core() const { return core_; }

 private:
  explicit SocketThread(std::shared_ptr<Core> core) : core_(std::move(core)) {}
  std::shared_ptr<Core> core_;
};

/// What a handler captures may hold the connection: the handlers are released by close(). One that
/// is released without close() ends at once.
class TcpConnection {
 public:
  struct Handlers {
    /// At most `chunkBytes`; valid during the call.
    std::function<void(std::string_view)> onReceive;
    /// Without an error: the other side sends no more, but may still read. With one: the
    /// connection is broken, and no handler is called afterwards.
    std::function<void(std::optional<TcpError>)> onEnd;
  };
  using Connected = std::function<void(std::expected<std::shared_ptr<TcpConnection>, TcpError>)>;

  /// Connects to a name or a numeric address; of several addresses, one after the other. `answer`
  /// is called once, on the thread, and never from inside this call. There is no limit of time but
  /// the system's: the function that is returned gives the attempt up, after which there is no
  /// answer. It may be called from any thread, as this may; an answer under way may still come. The
  /// connection breaks when the other side has been unreachable for `silenceLimit`.
  static std::function<void()> connect(const SocketThread& thread, std::string host,
                                       std::uint16_t port, Connected answer);
  virtual ~TcpConnection() = default;

  /// Starts to read. The handlers are never called from inside this call.
  virtual void start(Handlers handlers) = 0;
  /// Sends the bytes after those given before. `onSent` is called with the number of bytes that the
  /// system has taken each time it takes some, and never after the connection is broken.
  virtual void send(std::string bytes, std::function<void(std::size_t)> onSent) = 0;
  /// Reads no more, so that what comes waits in the system and the end is not noticed. Ended by
  /// resumeReading() and closeGently().
  virtual void stopReading() = 0;
  virtual void resumeReading() = 0;
  /// Whether something has come and was not read.
  virtual bool hasUnread() = 0;
  /// Ends the connection at once. What the other side has sent and this one has not read makes the
  /// system reset the connection, which may cost the other side what it has not read yet.
  virtual void close() = 0;
  /// Ends the sending direction, drops what still comes, and closes when the other side has ended
  /// or `lingerLimit` has passed. The handlers are released; `onClosed` is called once, unless
  /// close() comes first.
  virtual void closeGently(std::function<void()> onClosed) = 0;

  static constexpr std::size_t chunkBytes = 65'536;
  static constexpr std::chrono::seconds lingerLimit{2};
  /// Of a connection that was made by connect().
  static constexpr std::chrono::seconds silenceLimit{25};
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
  /// Starts to accept, and makes the listener and its connections belong to the thread. Any thread,
  /// once.
  virtual void start(const SocketThread& thread, Handlers handlers) = 0;
  /// While paused, connections wait in the system's queue.
  virtual void setPaused(bool isPaused) = 0;
  /// Frees the address at once, so that another listener can have it; close() must follow. Does
  /// nothing after that. Any thread.
  virtual void stopListening() = 0;
  /// No handler is called from now on. Connections that were handed out stay.
  virtual void close() = 0;

  static constexpr std::chrono::milliseconds retryDelay{100};
};

}  // namespace vantrell
