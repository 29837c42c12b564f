#include "platform/sockets/tcp.h"

#include <algorithm>
#include <arpa/inet.h>
#include <array>
#include <atomic>
#include <boost/asio/executor_work_guard.hpp>
#include <boost/asio/io_context.hpp>
#include <boost/asio/ip/tcp.hpp>
#include <boost/asio/posix/stream_descriptor.hpp>
#include <boost/asio/post.hpp>
#include <boost/asio/steady_timer.hpp>
#include <boost/system/system_error.hpp>
#include <cerrno>
#include <deque>
#include <mutex>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <signal.h>
#include <sys/socket.h>
#include <system_error>
#include <thread>

#include "platform/files/descriptor.h"

namespace vantrell {

namespace asio = boost::asio;

namespace {

using Clock = std::chrono::steady_clock;
using ErrorCode = boost::system::error_code;
using Socket = asio::posix::stream_descriptor;

TcpError tcpError(std::string_view what, int code) {
  return {code, std::string(what) + ": " + std::generic_category().message(code) + "."};
}

bool isTemporary(int error) {
  return error == EAGAIN || error == EWOULDBLOCK || error == EINTR;
}

/// A connection that may linger until a limit of time.
struct Lingering {
  virtual ~Lingering() = default;
  virtual void stopLingering() = 0;
};

}  // namespace

/// Sockets keep it, since what waits for them is part of it.
class SocketThread::Core {
 public:
  /// Throws where a descriptor or the thread is refused; nothing does so later.
  static std::shared_ptr<Core> start() {
    auto core = std::make_shared<Core>();
    sigset_t all;
    sigset_t before;
    ::sigfillset(&all);
    ::pthread_sigmask(SIG_SETMASK, &all, &before);
    const struct Restore {
      const sigset_t& mask;
      ~Restore() { ::pthread_sigmask(SIG_SETMASK, &mask, nullptr); }
    } restore{before};
    core->thread_ = std::thread([core] { core->context.run(); });
    return core;
  }

  void post(Work work) {
    if (hasEnded_) return;
    asio::post(context, [work = std::move(work)]() mutable noexcept { work(); });
  }

  void end() {
    context.stop();
    thread_.join();
    hasEnded_ = true;
    context.restart();
    context.poll();  // what was posted and has not run, which may hold its own thread
  }

  /// All have the same limit, so one timer for those that came first is enough.
  void addLingering(std::weak_ptr<Lingering> one) {
    lingering_.emplace_back(Clock::now() + TcpConnection::lingerLimit, std::move(one));
    if (lingering_.size() == 1) awaitLingerLimit();
  }

  asio::io_context context{1};

 private:
  void awaitLingerLimit() {
    timer_.expires_at(lingering_.front().first);
    timer_.async_wait([this](const ErrorCode& error) {
      if (!error) endLingering();
    });
  }
  void endLingering() {
    while (!lingering_.empty() &&
           (lingering_.front().first <= Clock::now() || lingering_.front().second.expired())) {
      const auto one = lingering_.front().second.lock();
      lingering_.pop_front();
      if (one) one->stopLingering();
    }
    if (!lingering_.empty()) awaitLingerLimit();
  }

  asio::executor_work_guard<asio::io_context::executor_type> work_{context.get_executor()};
  asio::steady_timer timer_{context};
  std::deque<std::pair<Clock::time_point, std::weak_ptr<Lingering>>> lingering_;
  std::thread thread_;
  std::atomic<bool> hasEnded_ = false;
};

std::expected<SocketThread, TcpError> SocketThread::start() {
  const auto failed = [](int code) {
    return std::unexpected(tcpError("Could not wait for connections", code));
  };
  try {
    return SocketThread(Core::start());
  } catch (const boost::system::system_error& error) {
    return failed(error.code().value());
  } catch (const std::system_error& error) {
    return failed(error.code().value());
  }
}

std::expected<SocketThread, TcpError> SocketThread::shared() {
  static std::mutex mutex;
  static SocketThread* thread = nullptr;
  const std::lock_guard lock(mutex);
  if (thread) return *thread;
  auto started = start();
  if (started) thread = new SocketThread(*started);
  return started;
}

void SocketThread::post(Work work) const {
  core_->post(std::move(work));
}

void SocketThread::end() const {
  core_->end();
}

namespace {

using Thread = std::shared_ptr<SocketThread::Core>;

class Connection final : public TcpConnection,
                         public Lingering,
                         public std::enable_shared_from_this<Connection> {
 public:
  Connection(Thread thread, Descriptor descriptor)
      : thread_(std::move(thread)), descriptor_(std::move(descriptor)), socket_(thread_->context) {}

  void start(Handlers handlers) override {
    handlers_ = std::make_shared<Handlers>(std::move(handlers));
    later(&Connection::read);  // the request has often come with the connection
  }

  void send(std::string bytes, std::function<void(std::size_t)> onSent) override {
    if (!isOpen() || bytes.empty()) return;
    unsent_.push_back({std::move(bytes), std::move(onSent)});
    if (!isWaitingToWrite_) write();
  }

  void stopReading() override { isReading_ = false; }

  void resumeReading() override {
    const bool wasReading = std::exchange(isReading_, true);
    if (!wasReading && isOpen() && !hasEnded_ && !isWaitingToRead_) waitToRead();
  }

  bool hasUnread() override {
    char byte = 0;
    return ::recv(number(), &byte, sizeof byte, MSG_PEEK) > 0;
  }

  void close() override {
    release();
    onClosed_ = nullptr;
    closeNow();
  }

  void closeGently(std::function<void()> onClosed) override {
    if (!isOpen()) return;
    release();
    onClosed_ = std::move(onClosed);
    isEnding_ = isReading_ = true;
    ::shutdown(number(), SHUT_WR);
    if (hasEnded_) return later(&Connection::stopLingering);
    thread_->addLingering(weak_from_this());
    if (!isWaitingToRead_) waitToRead();
  }

  void stopLingering() override { end(std::nullopt); }

 private:
  struct Unsent {
    std::string bytes;
    std::function<void(std::size_t)> onSent;
    std::size_t sent = 0;
  };

  int number() { return descriptor_ ? descriptor_.get() : socket_.native_handle(); }
  bool isOpen() const { return descriptor_ || socket_.is_open(); }

  void closeNow() {
    descriptor_.reset();
    ErrorCode ignored;
    std::ignore = socket_.close(ignored);
  }

  void later(void (Connection::*then)()) {
    asio::post(thread_->context, [weak = weak_from_this(), then] {
      if (const auto self = weak.lock(); self && self->isOpen()) (*self.*then)();
    });
  }

  void release() {
    handlers_ = nullptr;
    unsent_.clear();
  }

  void waitToRead() { wait(Socket::wait_read, &Connection::isWaitingToRead_, &Connection::read); }

  /// A socket is watched from its first wait on: most are read and answered without one.
  void wait(Socket::wait_type what, bool Connection::* isWaiting, void (Connection::*then)()) {
    if (descriptor_) {
      ErrorCode error;
      std::ignore = socket_.assign(descriptor_.get(), error);
      if (error) return end(tcpError("The connection broke", error.value()));
      descriptor_.release();
    }
    this->*isWaiting = true;
    socket_.async_wait(what, [weak = weak_from_this(), isWaiting, then](const ErrorCode& error) {
      const auto self = weak.lock();
      if (!self || error || !self->isOpen()) return;
      *self.*isWaiting = false;
      (*self.*then)();
    });
  }

  void read() {
    if (!isReading_) return;
    static thread_local std::array<char, chunkBytes> buffer;
    const ssize_t count = ::recv(number(), buffer.data(), buffer.size(), 0);
    if (count > 0) {
      if (const auto handlers = handlers_) {  // the call may close the connection
        handlers->onReceive({buffer.data(), static_cast<std::size_t>(count)});
      }
      // A full chunk is followed by a wait too: one that sends fast must not keep the thread.
      if (isOpen() && isReading_ && !isWaitingToRead_) waitToRead();
    } else if (count == 0) {
      end(std::nullopt);
    } else if (isTemporary(errno)) {
      if (!isWaitingToRead_) waitToRead();
    } else {
      end(tcpError("The connection broke", errno));
    }
  }

  void write() {
    while (!unsent_.empty()) {
      auto& first = unsent_.front();
      const auto rest = std::string_view(first.bytes).substr(first.sent);
      const ssize_t count = ::send(number(), rest.data(), rest.size(), MSG_NOSIGNAL);
      if (count < 0 && isTemporary(errno)) {
        return wait(Socket::wait_write, &Connection::isWaitingToWrite_, &Connection::write);
      }
      if (count < 0) return end(tcpError("The connection broke", errno));
      const auto taken = static_cast<std::size_t>(count);
      first.sent += taken;
      const auto onSent = first.onSent;  // the call may close the connection
      if (first.sent == first.bytes.size()) unsent_.pop_front();
      if (onSent) onSent(taken);
      if (!isOpen()) return;
    }
  }

  void end(std::optional<TcpError> error) {
    hasEnded_ = true;
    if (isEnding_) {
      const auto onClosed = std::exchange(onClosed_, nullptr);
      closeNow();
      if (onClosed) onClosed();
      return;
    }
    const auto handlers = handlers_;
    if (error) {
      release();
      closeNow();
    }
    if (handlers) handlers->onEnd(std::move(error));
  }

  const Thread thread_;
  Descriptor descriptor_;  // until the socket has it
  Socket socket_;
  std::shared_ptr<const Handlers> handlers_;  // null before start() and from the end on
  std::deque<Unsent> unsent_;
  std::function<void()> onClosed_;
  bool isReading_ = true;
  bool isWaitingToRead_ = false;
  bool isWaitingToWrite_ = false;
  bool isEnding_ = false;
  bool hasEnded_ = false;
};

/// One attempt to connect; what it waits for holds it.
class Dial final : public std::enable_shared_from_this<Dial> {
  /// A completion that does nothing once the attempt is over.
  template <typename Call>
  auto step(Call call) {
    return [self = shared_from_this(), call](const ErrorCode& error, auto&&... results) {
      if (self->answer_) call(*self, error, results...);
    };
  }

 public:
  Dial(Thread thread, std::string host, std::uint16_t port, TcpConnection::Connected answer)
      : thread_(std::move(thread)),
        host_(std::move(host)),
        port_(port),
        answer_(std::move(answer)),
        resolver_(thread_->context),
        socket_(thread_->context),
        attemptLimit_(thread_->context) {}

  void start() {
    if (!answer_) return;
    resolver_.async_resolve(host_, std::to_string(port_),
                            step([](Dial& self, const ErrorCode& error,
                                    const asio::ip::tcp::resolver::results_type& found) {
                              if (error)
                                return self.fail("The host " + self.host_ + " cannot be found",
                                                 error);
                              for (const auto& each : found)
                                self.endpoints_.push_back(each.endpoint());
                              self.tryNext(asio::error::host_not_found);
                            }));
  }

  void cancel() {
    answer_ = nullptr;
    resolver_.cancel();
    attemptLimit_.cancel();
    ErrorCode ignored;
    std::ignore = socket_.close(ignored);
  }

 private:
  /// An address that does not answer leaves time for the next one.
  static constexpr std::chrono::seconds attemptTime{4};

  void tryNext(const ErrorCode& problem) {
    if (endpoints_.empty()) {
      return fail("No connection to " + host_ + ":" + std::to_string(port_), problem);
    }
    const auto endpoint = endpoints_.front();
    endpoints_.pop_front();
    ErrorCode ignored;
    std::ignore = socket_.close(ignored);
    const int attempt = ++attempt_;
    if (!endpoints_.empty()) {
      attemptLimit_.expires_after(attemptTime);
      attemptLimit_.async_wait(step([attempt](Dial& self, const ErrorCode& error) {
        if (error || attempt != self.attempt_) return;
        ErrorCode unused;
        std::ignore = self.socket_.close(unused);  // fails the attempt
      }));
    }
    socket_.async_connect(endpoint, step([](Dial& self, const ErrorCode& error) {
                            self.attemptLimit_.cancel();
                            if (error) return self.tryNext(error);
                            self.succeed();
                          }));
  }

  void succeed() {
    ErrorCode error;
    std::ignore = socket_.native_non_blocking(true, error);
    Descriptor descriptor(error ? -1 : socket_.release(error));
    if (error) return fail("The connection broke", error);
    const auto set = [&](int level, int option, int value) {
      ::setsockopt(descriptor.get(), level, option, &value, sizeof value);
    };
    set(IPPROTO_TCP, TCP_NODELAY, 1);
    // Nothing else notices that the other side has gone without a word.
    constexpr int limit = std::chrono::seconds(TcpConnection::silenceLimit).count();
    set(SOL_SOCKET, SO_KEEPALIVE, 1);
    set(IPPROTO_TCP, TCP_KEEPIDLE, limit / 5 * 2);
    set(IPPROTO_TCP, TCP_KEEPINTVL, limit / 5);
    set(IPPROTO_TCP, TCP_KEEPCNT, 3);
    set(IPPROTO_TCP, TCP_USER_TIMEOUT, limit * 1000);  // of what was sent, in milliseconds
    answer(std::make_shared<Connection>(thread_, std::move(descriptor)));
  }

  void fail(std::string_view what, const ErrorCode& error) {
    answer(
        std::unexpected(TcpError{error.value(), std::string(what) + ": " + error.message() + "."}));
  }

  void answer(std::expected<std::shared_ptr<TcpConnection>, TcpError> result) {
    std::exchange(answer_, nullptr)(std::move(result));
  }

  const Thread thread_;
  const std::string host_;
  const std::uint16_t port_;
  TcpConnection::Connected answer_;  // null from the answer or cancel() on
  asio::ip::tcp::resolver resolver_;
  asio::ip::tcp::socket socket_;
  asio::steady_timer attemptLimit_;
  std::deque<asio::ip::tcp::endpoint> endpoints_;  // that have not been tried
  int attempt_ = 0;
};

class Listener final : public TcpListener, public std::enable_shared_from_this<Listener> {
 public:
  Listener(Descriptor descriptor, std::uint16_t port)
      : descriptor_(std::move(descriptor)), number_(descriptor_.get()), port_(port) {}

  std::uint16_t port() const override { return port_; }

  void start(const SocketThread& thread, Handlers handlers) override {
    thread.post([self = shared_from_this(), core = thread.core(),
                 handlers = std::move(handlers)]() mutable {
      self->socket_.emplace(core->context);
      self->retryTimer_.emplace(core->context);
      self->thread_ = std::move(core);
      self->handlers_ = std::move(handlers);
      self->accept();
    });
  }

  void setPaused(bool isPaused) override {
    if (std::exchange(isPaused_, isPaused) && !isPaused && !isWaiting_) accept();
  }

  void stopListening() override {
    const std::lock_guard lock(closing_);
    if (!isClosed_) ::shutdown(number_, SHUT_RDWR);  // else another socket may have the number
  }

  void close() override {
    {
      const std::lock_guard lock(closing_);
      isClosed_ = true;
    }
    handlers_ = {};
    descriptor_.reset();
    if (!thread_) return;
    retryTimer_->cancel();
    ErrorCode ignored;
    std::ignore = socket_->close(ignored);
  }

 private:
  /// Of other work, and so that what has been accepted is read before more is.
  static constexpr int acceptedInOneGo = 16;

  void accept() {
    for (int count = 0; count < acceptedInOneGo; ++count) {
      if (isPaused_ || !isStarted()) return;
      Descriptor accepted(::accept4(number_, nullptr, nullptr, SOCK_NONBLOCK | SOCK_CLOEXEC));
      if (accepted && handlers_.onSocket) {
        handlers_.onSocket(std::move(accepted));
      } else if (accepted) {
        handlers_.onConnection(std::make_shared<Connection>(thread_, std::move(accepted)));
      } else if (errno == EMFILE || errno == ENFILE || errno == ENOBUFS || errno == ENOMEM) {
        return retryLater();
      } else if (isTemporary(errno)) {
        break;
      }  // else a connection that has gone again
    }
    if (isPaused_ || !isStarted()) return;
    if (descriptor_) {
      ErrorCode error;
      std::ignore = socket_->assign(number_, error);
      if (error) return retryLater();
      descriptor_.release();
    }
    isWaiting_ = true;
    socket_->async_wait(Socket::wait_read, acceptsAgain());
  }

  bool isStarted() const { return handlers_.onConnection || handlers_.onSocket; }

  void retryLater() {
    isWaiting_ = true;
    retryTimer_->expires_after(retryDelay);
    retryTimer_->async_wait(acceptsAgain());
    if (handlers_.onExhausted) handlers_.onExhausted();
  }

  std::function<void(const ErrorCode&)> acceptsAgain() {
    return [weak = weak_from_this()](const ErrorCode& error) {
      const auto self = weak.lock();
      if (!self || error) return;
      self->isWaiting_ = false;
      self->accept();
    };
  }

  Thread thread_;          // null before start(), as are the next two
  Descriptor descriptor_;  // until the socket has it
  std::optional<Socket> socket_;
  std::optional<asio::steady_timer> retryTimer_;
  const int number_;  // of the descriptor, for other threads until it is closed
  std::mutex closing_;
  bool isClosed_ = false;
  const std::uint16_t port_;
  Handlers handlers_;
  bool isWaiting_ = false;
  bool isPaused_ = false;
};

}  // namespace

std::function<void()> TcpConnection::connect(const SocketThread& thread, std::string host,
                                             std::uint16_t port, Connected answer) {
  const auto dial = std::make_shared<Dial>(thread.core(), std::move(host), port, std::move(answer));
  thread.post([dial] { dial->start(); });
  return [thread, weak = std::weak_ptr(dial)] {
    thread.post([weak] {
      if (const auto attempt = weak.lock()) attempt->cancel();
    });
  };
}

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
      ::setsockopt(socket.get(), IPPROTO_TCP, TCP_NODELAY, &on, sizeof on) != 0 ||  // inherited
      ::bind(socket.get(), raw, size) != 0 || ::listen(socket.get(), SOMAXCONN) != 0 ||
      ::getsockname(socket.get(), raw, &size) != 0) {
    return problem();
  }
  return std::make_shared<Listener>(std::move(socket), ntohs(endpoint.sin6_port));
}

}  // namespace vantrell
