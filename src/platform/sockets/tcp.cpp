#include "platform/sockets/tcp.h"

#include <algorithm>
#include <arpa/inet.h>
#include <array>
#include <boost/asio/io_context.hpp>
#include <boost/asio/posix/stream_descriptor.hpp>
#include <boost/asio/steady_timer.hpp>
#include <cerrno>
#include <deque>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <sys/socket.h>
#include <system_error>

#include "platform/files/descriptor.h"
#include "platform/sockets/readiness.h"

namespace vantrell {

namespace asio = boost::asio;

namespace {

using ErrorCode = boost::system::error_code;
using Socket = asio::posix::stream_descriptor;

TcpError tcpError(std::string_view what, int code) {
  return {code, std::string(what) + ": " + std::generic_category().message(code) + "."};
}

void closeNow(Socket& socket) {
  ErrorCode ignored;
  std::ignore = socket.close(ignored);
}

bool isTemporary(int error) {
  return error == EAGAIN || error == EWOULDBLOCK || error == EINTR;
}

class Connection final : public TcpConnection, public std::enable_shared_from_this<Connection> {
 public:
  Connection(SerialQueue queue, Descriptor descriptor)
      : queue_(std::move(queue)), socket_(socketReadiness(), descriptor.release()) {}

  void start(Handlers handlers) override {
    handlers_ = std::make_shared<Handlers>(std::move(handlers));
    // The request has often come with the connection.
    onQueue([](Connection& self) { self.read(); });
  }

  void send(std::string bytes, std::function<void(std::size_t)> onSent) override {
    if (!socket_.is_open() || bytes.empty()) return;
    unsent_.push_back({std::move(bytes), std::move(onSent)});
    if (!isWaitingToWrite_) write();
  }

  void close() override {
    release();
    onClosed_ = nullptr;
    closeNow(socket_);
  }

  void closeGently(std::function<void()> onClosed) override {
    if (!socket_.is_open()) return;
    release();
    onClosed_ = std::move(onClosed);
    isEnding_ = true;
    ::shutdown(socket_.native_handle(), SHUT_WR);
    if (hasEnded_) return onQueue([](Connection& self) { self.end(std::nullopt); });
    lingerTimer_.emplace(socketReadiness(), lingerLimit);
    lingerTimer_->async_wait([queue = queue_, weak = weak_from_this()](const ErrorCode& error) {
      if (error) return;
      queue.post([weak] {
        if (const auto self = weak.lock()) self->end(std::nullopt);
      });
    });
    if (!isWaitingToRead_) onQueue([](Connection& self) { self.read(); });
  }

 private:
  struct Unsent {
    std::string bytes;
    std::function<void(std::size_t)> onSent;
    std::size_t sent = 0;
  };

  template <typename Call>
  void onQueue(Call call) {
    queue_.post([self = shared_from_this(), call] {
      if (self->socket_.is_open()) call(*self);
    });
  }

  void release() {
    handlers_ = nullptr;
    unsent_.clear();
  }

  void wait(Socket::wait_type what, bool Connection::* isWaiting, void (Connection::*then)()) {
    this->*isWaiting = true;
    socket_.async_wait(what, [self = shared_from_this(), isWaiting, then](const ErrorCode& error) {
      if (error) return;
      self->onQueue([isWaiting, then](Connection& on) {
        on.*isWaiting = false;
        (on.*then)();
      });
    });
  }

  void read() {
    static thread_local std::array<char, chunkBytes> buffer;
    const ssize_t count = ::recv(socket_.native_handle(), buffer.data(), buffer.size(), 0);
    if (count > 0) {
      if (const auto handlers = handlers_) {  // the call may close the connection
        handlers->onReceive({buffer.data(), static_cast<std::size_t>(count)});
      }
      // A full chunk is followed by a wait too: one that sends fast must not keep the queue.
      if (socket_.is_open() && !isWaitingToRead_) {
        wait(Socket::wait_read, &Connection::isWaitingToRead_, &Connection::read);
      }
    } else if (count == 0) {
      end(std::nullopt);
    } else if (isTemporary(errno)) {
      wait(Socket::wait_read, &Connection::isWaitingToRead_, &Connection::read);
    } else {
      end(tcpError("The connection broke", errno));
    }
  }

  void write() {
    while (!unsent_.empty()) {
      auto& first = unsent_.front();
      const auto rest = std::string_view(first.bytes).substr(first.sent);
      const ssize_t count = ::send(socket_.native_handle(), rest.data(), rest.size(), MSG_NOSIGNAL);
      if (count < 0 && isTemporary(errno)) {
        return wait(Socket::wait_write, &Connection::isWaitingToWrite_, &Connection::write);
      }
      if (count < 0) return end(tcpError("The connection broke", errno));
      const auto taken = static_cast<std::size_t>(count);
      first.sent += taken;
      const auto onSent = first.onSent;  // the call may close the connection
      if (first.sent == first.bytes.size()) unsent_.pop_front();
      if (onSent) onSent(taken);
      if (!socket_.is_open()) return;
    }
  }

  void end(std::optional<TcpError> error) {
    hasEnded_ = true;
    if (isEnding_) {
      const auto onClosed = std::exchange(onClosed_, nullptr);
      closeNow(socket_);
      lingerTimer_.reset();
      if (onClosed) onClosed();
      return;
    }
    const auto handlers = handlers_;
    if (error) {
      release();
      closeNow(socket_);
    }
    if (handlers) handlers->onEnd(std::move(error));
  }

  const SerialQueue queue_;
  Socket socket_;
  std::shared_ptr<const Handlers> handlers_;  // null before start() and from the end on
  std::deque<Unsent> unsent_;
  std::function<void()> onClosed_;
  std::optional<asio::steady_timer> lingerTimer_;
  bool isWaitingToRead_ = false;
  bool isWaitingToWrite_ = false;
  bool isEnding_ = false;
  bool hasEnded_ = false;
};

class Listener final : public TcpListener, public std::enable_shared_from_this<Listener> {
 public:
  Listener(Descriptor descriptor, std::uint16_t port)
      : socket_(socketReadiness(), descriptor.release()),
        number_(socket_.native_handle()),
        port_(port) {}

  std::uint16_t port() const override { return port_; }

  void start(SerialQueue queue, Handlers handlers) override {
    queue.post([self = shared_from_this(), queue, handlers = std::move(handlers)]() mutable {
      self->queue_.emplace(std::move(queue));
      self->handlers_ = std::move(handlers);
      self->accept();
    });
  }

  void setPaused(bool isPaused) override {
    if (std::exchange(isPaused_, isPaused) && !isPaused && !isWaiting_) accept();
  }

  void stopListening() override { ::shutdown(number_, SHUT_RDWR); }

  void close() override {
    handlers_ = {};
    retryTimer_.reset();
    closeNow(socket_);
  }

 private:
  /// Of other work, and so that what has been accepted is read before more is.
  static constexpr int acceptedInOneGo = 16;

  void accept() {
    for (int count = 0; count < acceptedInOneGo; ++count) {
      if (isPaused_ || !socket_.is_open()) return;
      if (!handlers_.onConnection && !handlers_.onSocket) return;
      Descriptor accepted(
          ::accept4(socket_.native_handle(), nullptr, nullptr, SOCK_NONBLOCK | SOCK_CLOEXEC));
      if (accepted) {
        const int on = 1;
        ::setsockopt(accepted.get(), IPPROTO_TCP, TCP_NODELAY, &on, sizeof on);
        if (handlers_.onSocket) {
          handlers_.onSocket(std::move(accepted));
        } else {
          handlers_.onConnection(std::make_shared<Connection>(*queue_, std::move(accepted)));
        }
      } else if (errno == EMFILE || errno == ENFILE || errno == ENOBUFS || errno == ENOMEM) {
        return retryLater();
      } else if (isTemporary(errno)) {
        break;
      }  // else a connection that has gone again
    }
    if (isPaused_ || !socket_.is_open()) return;
    isWaiting_ = true;
    socket_.async_wait(Socket::wait_read, [self = shared_from_this()](const ErrorCode& error) {
      if (!error) self->acceptOnQueue();
    });
  }

  void retryLater() {
    isWaiting_ = true;
    retryTimer_.emplace(socketReadiness(), retryDelay);
    retryTimer_->async_wait([self = shared_from_this()](const ErrorCode& error) {
      if (!error) self->acceptOnQueue();
    });
    if (handlers_.onExhausted) handlers_.onExhausted();
  }

  void acceptOnQueue() {
    queue_->post([self = shared_from_this()] {
      self->isWaiting_ = false;
      self->accept();
    });
  }

  std::optional<SerialQueue> queue_;
  Socket socket_;
  const int number_;  // of the descriptor, for other threads while it is open
  const std::uint16_t port_;
  Handlers handlers_;
  std::optional<asio::steady_timer> retryTimer_;
  bool isWaiting_ = false;
  bool isPaused_ = false;
};

}  // namespace

std::expected<std::shared_ptr<TcpListener>, TcpError> TcpListener::bind(const std::string& address,
                                                                        std::uint16_t port) {
  const auto problem = [&] {
    return std::unexpected(
        tcpError("Could not listen on " + address + ":" + std::to_string(port), errno));
  };
  // Room for either kind of address; both have the port at the same place.
  sockaddr_in6 endpoint{};
  auto* const raw = reinterpret_cast<sockaddr*>(&endpoint);
  socklen_t size = sizeof endpoint;
  if (::inet_pton(AF_INET, address.c_str(), &reinterpret_cast<sockaddr_in*>(raw)->sin_addr) == 1) {
    endpoint.sin6_family = AF_INET;
    size = sizeof(sockaddr_in);
  } else if (::inet_pton(AF_INET6, address.c_str(), &endpoint.sin6_addr) == 1) {
    endpoint.sin6_family = AF_INET6;
  } else {
    errno = EINVAL;
    return problem();
  }
  endpoint.sin6_port = htons(port);
  Descriptor socket(::socket(endpoint.sin6_family, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0));
  const int on = 1;
  if (!socket || ::setsockopt(socket.get(), SOL_SOCKET, SO_REUSEADDR, &on, sizeof on) != 0 ||
      ::bind(socket.get(), raw, size) != 0 || ::listen(socket.get(), SOMAXCONN) != 0 ||
      ::getsockname(socket.get(), raw, &size) != 0) {
    return problem();
  }
  return std::make_shared<Listener>(std::move(socket), ntohs(endpoint.sin6_port));
}

}  // namespace vantrell
