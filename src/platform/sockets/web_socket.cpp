#include "platform/sockets/web_socket.h"

#include <algorithm>
#include <arpa/inet.h>
#include <boost/asio/any_io_executor.hpp>
#include <boost/asio/io_context.hpp>
#include <boost/asio/ip/tcp.hpp>
#include <boost/asio/post.hpp>
#include <boost/asio/ssl.hpp>
#include <boost/asio/steady_timer.hpp>
#include <boost/beast/core/flat_buffer.hpp>
#include <boost/beast/http/empty_body.hpp>
#include <boost/beast/http/read.hpp>
#include <boost/beast/websocket.hpp>
#include <deque>
#include <fmt/format.h>
#include <list>
#include <netinet/tcp.h>
#include <sys/socket.h>

#include "platform/sockets/readiness.h"

namespace vantrell {

namespace asio = boost::asio;
namespace beast = boost::beast;
namespace http = boost::beast::http;
namespace ssl = boost::asio::ssl;

namespace {

using asio::ip::tcp;
using ErrorCode = boost::system::error_code;
using Kind = WebSocketEnd::Kind;

/// Runs on a SerialQueue what the thread of the sockets has seen completed.
class QueueExecutor {
 public:
  explicit QueueExecutor(SerialQueue queue) : queue_(std::move(queue)) {}

  asio::execution_context& query(asio::execution::context_t) const noexcept {
    return socketReadiness();
  }
  static constexpr asio::execution::blocking_t query(asio::execution::blocking_t) noexcept {
    return asio::execution::blocking.never;
  }
  template <typename Function>
  void execute(Function&& function) const {
    queue_.post([work = std::forward<Function>(function)]() mutable { std::move(work)(); });
  }
  bool operator==(const QueueExecutor& other) const noexcept {
    return &queue_.label() == &other.queue_.label();  // each queue owns its label
  }

 private:
  SerialQueue queue_;
};

/// A TCP connection with or without TLS. One type for both, since each stream type that the
/// WebSocket is made for takes seconds to compile.
class Layer {
 public:
  using executor_type = asio::any_io_executor;

  explicit Layer(const executor_type& executor) : socket(executor) {}
  executor_type get_executor() noexcept { return socket.get_executor(); }

  template <typename Buffers, typename Handler>
  void async_read_some(const Buffers& buffers, Handler&& handler) {
    if (tls) return tls->async_read_some(buffers, std::forward<Handler>(handler));
    socket.async_read_some(buffers, std::forward<Handler>(handler));
  }
  template <typename Buffers, typename Handler>
  void async_write_some(const Buffers& buffers, Handler&& handler) {
    if (tls) return tls->async_write_some(buffers, std::forward<Handler>(handler));
    socket.async_write_some(buffers, std::forward<Handler>(handler));
  }
  friend void beast_close_socket(Layer& layer) { layer.close(); }
  /// Only the half that cannot wait: the owner reads on to the end of the connection
  /// itself, with a limit of time. After the close frames the end of TLS would say nothing new.
  template <typename Handler>
  friend void async_teardown(beast::role_type, Layer& layer, Handler&& handler) {
    ErrorCode ignored;
    std::ignore = layer.socket.shutdown(tcp::socket::shutdown_send, ignored);
    asio::post(layer.get_executor(),
               beast::bind_front_handler(std::forward<Handler>(handler), ErrorCode()));
  }
  /// Reads to the end of the connection and closes it then, since closing over unread bytes would
  /// reset it and could cost the other side what it has not read. `then` holds the owner of this.
  void drain(std::function<void()> then) {
    socket.async_wait(tcp::socket::wait_read, [this, then](const ErrorCode& error) {
      if (error || !socket.is_open()) return then();
      std::array<char, 4096> dropped;
      const auto count =
          ::recv(socket.native_handle(), dropped.data(), dropped.size(), MSG_DONTWAIT);
      if (count > 0 || (count < 0 && (errno == EAGAIN || errno == EINTR))) return drain(then);
      then();
    });
  }

  void close() {
    ErrorCode ignored;
    std::ignore = socket.close(ignored);
  }
  /// What the system holds unsent cannot be taken back, counted, or overtaken by a ping, so it
  /// holds little.
  void tune() {
    constexpr int unsentBytes = 256 * 1024;
    const int on = 1;
    const int number = socket.native_handle();
    ::setsockopt(number, IPPROTO_TCP, TCP_NODELAY, &on, sizeof on);
    ::setsockopt(number, IPPROTO_TCP, TCP_NOTSENT_LOWAT, &unsentBytes, sizeof unsentBytes);
  }

  tcp::socket socket;
  std::optional<ssl::stream<tcp::socket&>> tls;
};

using Stream = beast::websocket::stream<Layer, false>;

std::string sentence(std::string_view what, const ErrorCode& error) {
  return fmt::format("{}: {}.", what, error.message());
}

/// At most so many bytes, without a part of a character at the end.
std::string_view cutText(std::string_view text, std::size_t most) {
  if (text.size() <= most) return text;
  while (most > 0 && (static_cast<unsigned char>(text[most]) & 0xC0) == 0x80) --most;
  return text.substr(0, most);
}

std::string inSeconds(std::chrono::milliseconds time) {
  const auto count = std::max<std::int64_t>(1, (time.count() + 500) / 1000);
  return fmt::format("{} second{}", count, count == 1 ? "" : "s");
}

class Channel : public WebSocket, public std::enable_shared_from_this<Channel> {
 public:
  Channel(const SerialQueue& queue, std::string peer)
      : queue_(queue),
        stream_(asio::any_io_executor(QueueExecutor(queue))),
        peer_(std::move(peer)),
        lingerTimer_(stream_.get_executor()),
        idleTimer_(stream_.get_executor()) {
    stream_.write_buffer_bytes(chunkBytes);
    stream_.control_callback([this](beast::websocket::frame_type type, beast::string_view) {
      hasHeard_ = true;
      if (type == beast::websocket::frame_type::close) closedByPeer();
    });
  }

  Layer& layer() { return stream_.next_layer(); }
  Stream& stream() { return stream_; }

  /// Before the handshake, which may take the first of these times.
  void setLimits(const WebSocketLimits& limits, std::chrono::milliseconds handshake) {
    limits_ = limits;
    stream_.read_message_max(limits.messageBytes);
    // Silence is watched here: the stream's own watch would count a pause as silence.
    stream_.set_option(beast::websocket::stream_base::timeout{
        handshake, beast::websocket::stream_base::none(), false});
  }
  /// After the handshake.
  void opened() {
    // From now on the time for a handshake is the one for closing.
    setLimits(limits_, lingerLimit);
    phase_ = Phase::open;
    watchIdle();
  }

  void start(Handlers handlers) override {
    handlers_ = std::make_shared<const Handlers>(std::move(handlers));
    onQueue([](Channel& self) { self.readNext(); });
  }
  void sendText(std::string text) override {
    send({std::make_shared<const std::string>(std::move(text)), true});
  }
  void sendBinary(std::shared_ptr<const std::string> bytes) override {
    send({std::move(bytes), false});
  }

  void close(std::uint16_t code, std::string_view reason) override {
    if (phase_ != Phase::open) return abort();
    handlers_ = nullptr;
    phase_ = Phase::closing;
    closeReason_.code = code;
    reason = cutText(reason, longestReason);
    closeReason_.reason.assign(reason.data(), reason.size());
    linger();
    writeNext();
  }
  void abort() override {
    handlers_ = nullptr;
    phase_ = Phase::ended;
    closeNow();
  }

  bool isOpen() const override { return phase_ == Phase::open; }
  std::size_t queuedBytes() const override { return queuedBytes_; }
  std::size_t receivingBytes() const override { return message_.capacity(); }
  void setPaused(bool isPaused) override {
    if (!std::exchange(isPaused_, isPaused) || isPaused) return;
    onQueue([](Channel& self) { self.readNext(); });
  }
  void setMessageLimit(std::size_t bytes) override {
    limits_.messageBytes = bytes;
    stream_.read_message_max(bytes);
  }

 protected:
  enum class Phase { opening, open, closing, ended };

  template <typename Call>
  void onQueue(Call call) {
    queue_.post([self = shared_from_this(), call]() mutable { call(*self); });
  }
  /// Ends the connection; onEnd follows, never from inside.
  void fail(WebSocketEnd end) {
    announce(std::move(end));
    closeNow();
  }
  void readNext() {
    if (phase_ != Phase::open || isPaused_ || isReading_) return;
    isReading_ = true;
    buffer_.emplace(message_);
    stream_.async_read_some(
        *buffer_, chunkBytes,
        [self = shared_from_this()](const ErrorCode& error, std::size_t) { self->didRead(error); });
  }
  virtual void closeNow() {
    layer().close();
    lingerTimer_.cancel();
    idleTimer_.cancel();
  }

  const SerialQueue queue_;
  Stream stream_;
  const std::string peer_;  // for sentences
  WebSocketLimits limits_;
  std::shared_ptr<const Handlers> handlers_;  // null before the start and from the end on
  Phase phase_ = Phase::opening;

 private:
  struct Unsent {
    std::shared_ptr<const std::string> bytes;
    bool isText = false;
    std::size_t written = 0;
  };
  static constexpr std::size_t chunkBytes = 65'536;
  static constexpr std::size_t longestReason = 123;

  void announce(WebSocketEnd end) {
    if (phase_ == Phase::ended) return;
    phase_ = Phase::ended;
    unsent_.clear();
    queuedBytes_ = 0;
    onQueue([end = std::move(end)](Channel& self) {
      const auto handlers = std::exchange(self.handlers_, nullptr);
      if (handlers && handlers->onEnd) handlers->onEnd(end);
    });
  }

  void send(Unsent message) {
    if (phase_ != Phase::open) return;
    const auto size = message.bytes->size();
    if (!unsent_.empty() && queuedBytes_ + size > limits_.queuedBytes) {
      return fail({Kind::notRead, peer_ + " does not read what it is sent."});
    }
    queuedBytes_ += size;
    unsent_.push_back(std::move(message));
    writeNext();
  }

  void writeNext() {
    if (isWriting_) return;
    if (unsent_.empty()) {
      if (phase_ == Phase::closing) sendClose();
      return;
    }
    isWriting_ = true;
    const auto& [bytes, isText, written] = unsent_.front();
    if (written == 0) stream_.text(isText);
    // In pieces, so that progress shows and pings come between. The handler holds the bytes: the
    // queue may be cleared while they are written.
    const auto size = std::min(bytes->size() - written, chunkBytes);
    stream_.async_write_some(
        written + size == bytes->size(), asio::buffer(bytes->data() + written, size),
        [self = shared_from_this(), held = bytes, size](const ErrorCode& error, std::size_t) {
          self->didWrite(error, size);
        });
  }

  void didWrite(const ErrorCode& error, std::size_t size) {
    isWriting_ = false;
    if (phase_ == Phase::ended) return;
    if (error) {
      // The close frame that may be the reason is still to be read.
      if (phase_ == Phase::open && isReading_ && !isPaused_) return linger();
      return fail(endOf(error));
    }
    queuedBytes_ -= size;
    auto& first = unsent_.front();
    first.written += size;
    if (first.written == first.bytes->size()) unsent_.pop_front();
    writeNext();
    if (const auto handlers = handlers_; handlers && handlers->onWritten) handlers->onWritten();
  }

  void sendClose() {
    if (std::exchange(hasSentClose_, true)) return;
    stream_.async_close(closeReason_, [self = shared_from_this()](const ErrorCode& error) {
      self->phase_ = Phase::ended;
      error ? self->closeNow() : self->drain();
    });
  }

  void didRead(const ErrorCode& error) {
    isReading_ = false;
    hasHeard_ = true;
    if (phase_ == Phase::closing) return;  // sendClose() reads on
    if (error && isOfProtocol(error)) {
      // A close frame has been received, or sent for what is wrong.
      announce(endOf(error));
      linger();
      return drain();
    }
    if (phase_ == Phase::ended) return closeNow();
    if (error) return fail(endOf(error));
    if (stream_.is_message_done()) {
      const auto handlers = handlers_;
      const auto& deliver = stream_.got_text() ? handlers->onText : handlers->onBinary;
      auto message = std::exchange(message_, {});
      if (deliver) deliver(std::move(message));
    }
    readNext();
  }

  /// A close frame has come; it is answered and the connection taken down by the read operation
  /// that is under way.
  void closedByPeer() {
    if (phase_ != Phase::open) return;
    const auto& reason = stream_.reason();
    WebSocketEnd end{Kind::closed, peer_ + " closed the connection."};
    if (reason.code != beast::websocket::close_code::none) end.closeCode = reason.code;
    end.closeReason.assign(reason.reason.data(), reason.reason.size());
    announce(std::move(end));
    linger();
  }

  void drain() {
    layer().drain([self = shared_from_this()] { self->closeNow(); });
  }

  void watchIdle() {
    if (limits_.idle.count() == 0) return;
    idleTimer_.expires_after(limits_.idle / 2);
    idleTimer_.async_wait([weak = weak_from_this()](const ErrorCode& error) {
      const auto self = weak.lock();
      if (self && !error && self->phase_ == Phase::open) self->checkIdle();
    });
  }

  void checkIdle() {
    if (std::exchange(hasHeard_, false) || isPaused_) {
      isPinging_ = false;
    } else if (std::exchange(isPinging_, true)) {
      return fail({Kind::timedOut,
                   fmt::format("{} has been silent for {}.", peer_, inSeconds(limits_.idle))});
    } else {
      stream_.async_ping({}, [self = shared_from_this()](const ErrorCode&) {});
    }
    watchIdle();
  }

  void linger() {
    lingerTimer_.expires_after(lingerLimit);
    lingerTimer_.async_wait([self = shared_from_this()](const ErrorCode& error) {
      if (error) return;
      if (self->phase_ == Phase::open) {
        return self->fail({Kind::connectionLost, "The connection to " + self->peer_ + " broke."});
      }
      self->phase_ = Phase::ended;
      self->closeNow();
    });
  }

  static bool isOfProtocol(const ErrorCode& error) {
    return error.category() == make_error_code(beast::websocket::error::closed).category();
  }
  WebSocketEnd endOf(const ErrorCode& error) const {
    using Error = beast::websocket::error;
    if (error == Error::message_too_big || error == Error::buffer_overflow) {
      return {Kind::badMessage,
              fmt::format("{} sent a message of more than {} bytes.", peer_, limits_.messageBytes)};
    }
    if (isOfProtocol(error)) {
      return {Kind::badMessage, sentence(peer_ + " broke the protocol", error)};
    }
    if (error == asio::error::eof || error == ssl::error::stream_truncated) {
      return {Kind::connectionLost, peer_ + " ended the connection."};
    }
    return {Kind::connectionLost, sentence("The connection to " + peer_ + " broke", error)};
  }

  std::string message_;  // as far as it has come
  std::optional<asio::dynamic_string_buffer<char, std::char_traits<char>, std::allocator<char>>>
      buffer_;
  std::deque<Unsent> unsent_;
  std::size_t queuedBytes_ = 0;
  beast::websocket::close_reason closeReason_;
  asio::steady_timer lingerTimer_;
  asio::steady_timer idleTimer_;
  bool hasHeard_ = false;   // anything, since the idle timer last fired
  bool isPinging_ = false;  // and has heard nothing since
  bool isReading_ = false;
  bool isWriting_ = false;
  bool isPaused_ = false;
  bool hasSentClose_ = false;
};

/// Certificates to trust, loaded once where they are the system's: that takes a tenth of a second.
std::expected<std::shared_ptr<ssl::context>, std::string> clientContext(
    const std::string& trusted) {
  const auto make = [&]() -> std::expected<std::shared_ptr<ssl::context>, std::string> {
    try {
      auto context = std::make_shared<ssl::context>(ssl::context::tls_client);
      SSL_CTX_set_min_proto_version(context->native_handle(), TLS1_2_VERSION);
      SSL_CTX_set_mode(context->native_handle(), SSL_MODE_RELEASE_BUFFERS);
      context->set_verify_mode(ssl::verify_peer);
      if (trusted.empty()) {
        context->set_default_verify_paths();
      } else {
        context->add_certificate_authority(asio::buffer(trusted));
      }
      return context;
    } catch (const std::exception& problem) {
      return std::unexpected(
          fmt::format("The trusted certificates cannot be used: {}.", problem.what()));
    }
  };
  if (!trusted.empty()) return make();
  static const auto ofSystem = make();
  return ofSystem;
}

bool isAddress(const std::string& host) {
  ErrorCode error;
  std::ignore = asio::ip::make_address(host, error);
  return !error;
}

class Client final : public Channel {
 public:
  Client(const SerialQueue& queue, const Url& url, Options options)
      : Channel(queue, url.hostAndPort()),
        url_(url),
        options_(std::move(options)),
        resolver_(stream_.get_executor()),
        deadline_(stream_.get_executor()),
        attemptLimit_(stream_.get_executor()) {}

  void open(Handlers handlers) {
    onQueue([handlers = std::move(handlers)](Channel& channel) mutable {
      auto& self = static_cast<Client&>(channel);
      if (self.phase_ == Phase::ended) return;  // aborted before it began
      self.handlers_ = std::make_shared<const Handlers>(std::move(handlers));
      self.lookUp();
    });
  }

 private:
  /// An address that does not answer leaves time for the next one.
  static constexpr std::chrono::seconds attemptTime{4};

  /// A completion that does nothing once the WebSocket has ended.
  template <typename Call>
  auto step(Call call) {
    return [self = std::static_pointer_cast<Client>(shared_from_this()), call](
               const ErrorCode& error, auto&&... results) {
      if (self->phase_ == Phase::opening) call(*self, error, std::move(results)...);
    };
  }

  void lookUp() {
    deadline_.expires_after(options_.connectLimit);
    deadline_.async_wait(step([](Client& self, const ErrorCode& error) {
      if (error) return;
      self.fail({Kind::timedOut, fmt::format("{} did not respond within {}.", self.peer_,
                                             inSeconds(self.options_.connectLimit))});
    }));
    static constexpr std::string_view schemes[]{"ws", "wss", "http", "https"};
    if (std::ranges::find(schemes, url_.scheme()) == std::end(schemes)) {
      return fail({Kind::cannotConnect, "The address must begin with wss:// or ws://."});
    }
    resolver_.async_resolve(
        url_.host(), std::to_string(*url_.port()),
        step([](Client& self, const ErrorCode& error, const tcp::resolver::results_type& found) {
          if (error) {
            return self.fail(
                {Kind::cannotConnect,
                 sentence("The host " + self.url_.host() + " cannot be found", error)});
          }
          for (const auto& each : found) self.endpoints_.push_back(each.endpoint());
          self.tryNext(asio::error::host_not_found);
        }));
  }

  void tryNext(const ErrorCode& problem) {
    if (endpoints_.empty()) {
      return fail({Kind::cannotConnect, sentence("No connection to " + peer_, problem)});
    }
    const auto endpoint = endpoints_.front();
    endpoints_.pop_front();
    layer().close();
    const int attempt = ++attempt_;
    if (!endpoints_.empty()) {
      attemptLimit_.expires_after(attemptTime);
      attemptLimit_.async_wait(step([attempt](Client& self, const ErrorCode& error) {
        if (!error && attempt == self.attempt_) self.layer().close();
      }));
    }
    layer().socket.async_connect(endpoint, step([](Client& self, const ErrorCode& error) {
                                   self.attemptLimit_.cancel();
                                   ++self.attempt_;  // the limit may have passed already, unheard
                                   if (error) return self.tryNext(error);
                                   self.layer().tune();
                                   self.isSecure() ? self.secure() : self.shakeHands();
                                 }));
  }

  bool isSecure() const { return url_.scheme() == "wss" || url_.scheme() == "https"; }

  void secure() {
    const auto context = clientContext(options_.trustedCertificates);
    if (!context) return fail({Kind::notSecure, context.error()});
    context_ = *context;
    auto& tls = layer().tls.emplace(layer().socket, *context_);
    if (!isAddress(url_.host())) {
      SSL_set_tlsext_host_name(tls.native_handle(), url_.host().c_str());
    }
    ErrorCode ignored;
    std::ignore = tls.set_verify_callback(ssl::host_name_verification(url_.host()), ignored);
    tls.async_handshake(
        ssl::stream_base::client, step([](Client& self, const ErrorCode& error) {
          if (!error) return self.shakeHands();
          self.fail({Kind::notSecure, sentence("No secure connection to " + self.peer_, error)});
        }));
  }

  void shakeHands() {
    setLimits(options_.limits, options_.connectLimit);
    stream_.set_option(beast::websocket::stream_base::decorator(
        [headers = options_.headers](beast::websocket::request_type& request) {
          request.set(http::field::user_agent, "Vantrell/" VANTRELL_VERSION);
          for (const auto& [name, value] : headers) request.set(name, value);
        }));
    const bool hasOwnPort = url_.port() != (isSecure() ? 443 : 80);
    const auto host = hasOwnPort ? peer_ : peer_.substr(0, peer_.rfind(':'));
    stream_.async_handshake(answer_, host, url_.pathAndQuery(),
                            step([](Client& self, const ErrorCode& error) {
                              if (error) return self.refused(error);
                              self.deadline_.cancel();
                              self.opened();
                              if (const auto handlers = self.handlers_; handlers->onOpen)
                                handlers->onOpen();
                              self.readNext();
                            }));
  }

  void refused(const ErrorCode& error) {
    WebSocketEnd end{Kind::refused, sentence(peer_ + " opened no WebSocket", error)};
    if (error == beast::websocket::error::upgrade_declined) {
      end.status = static_cast<int>(answer_.result_int());
      end.description =
          fmt::format("{} answered with status {} in place of a WebSocket.", peer_, end.status);
    } else if (error == asio::error::eof) {
      end.description = peer_ + " ended the connection in place of opening a WebSocket.";
    }
    fail(std::move(end));
  }

  void closeNow() override {
    Channel::closeNow();
    resolver_.cancel();
    deadline_.cancel();
    attemptLimit_.cancel();
  }

  const Url url_;
  const Options options_;
  std::shared_ptr<ssl::context> context_;
  tcp::resolver resolver_;
  std::deque<tcp::endpoint> endpoints_;  // not tried yet
  asio::steady_timer deadline_;
  asio::steady_timer attemptLimit_;
  int attempt_ = 0;
  beast::websocket::response_type answer_;
};

/// "10.0.0.7", also for an IPv4 address in the form of an IPv6 one.
std::string addressOf(const tcp::endpoint& endpoint) {
  const auto address = endpoint.address();
  if (address.is_v6() && address.to_v6().is_v4_mapped()) {
    return asio::ip::make_address_v4(asio::ip::v4_mapped, address.to_v6()).to_string();
  }
  return address.to_string();
}

WebSocketRequest requestOf(const beast::websocket::request_type& from, std::string address) {
  WebSocketRequest request{.method = std::string(from.method_string()),
                           .target = std::string(from.target()),
                           .headers = {},
                           .address = std::move(address),
                           .isUpgrade = beast::websocket::is_upgrade(from)};
  for (const auto& field : from) {
    request.headers.push_back({std::string(field.name_string()), std::string(field.value())});
  }
  return request;
}

/// A connection from its accept until it is a WebSocket, or has its answer. Its listener's list
/// holds it; an operation under way does too.
class Incoming : public std::enable_shared_from_this<Incoming> {
  /// A completion that ends the connection after an error.
  template <typename Call>
  auto step(Call call) {
    return [self = shared_from_this(), call](const ErrorCode& error, std::size_t = 0) {
      if (self->hasEnded_) return;
      if (error) return self->end();
      call(*self);
    };
  }

 public:
  struct Owner {
    std::function<std::variant<WebSocketLimits, WebSocketListener::Answer>(const WebSocketRequest&)>
        answer;
    std::function<void(std::shared_ptr<Channel>, WebSocketRequest)> opened;
    std::function<void(Incoming*)> ended;
  };

  Incoming(const SerialQueue& queue, std::string address, std::optional<TlsIdentity> identity,
           Owner owner)
      : channel_(std::make_shared<Channel>(queue, address)),
        address_(std::move(address)),
        identity_(std::move(identity)),
        owner_(std::move(owner)),
        deadline_(channel_->layer().get_executor()) {
    parser_.header_limit(WebSocketListener::longestHead);
  }

  bool take(Descriptor descriptor, const tcp& protocol) {
    ErrorCode error;
    std::ignore = channel_->layer().socket.assign(protocol, descriptor.get(), error);
    if (error) return false;
    descriptor.release();
    channel_->layer().tune();
    return true;
  }

  void begin(std::chrono::milliseconds limit) {
    limit_ = limit;
    deadline_.expires_after(limit);
    deadline_.async_wait([weak = weak_from_this()](const ErrorCode& error) {
      const auto self = weak.lock();
      if (self && !error) self->end();
    });
    if (!identity_) return readHead();
    channel_->layer().tls.emplace(channel_->layer().socket, identity_->context());
    channel_->layer().tls->async_handshake(ssl::stream_base::server,
                                           step([](Incoming& self) { self.readHead(); }));
  }

  void end() {
    if (!std::exchange(hasEnded_, true)) channel_->abort();
    leave();
  }

 private:
  void leave() {
    deadline_.cancel();
    if (const auto ended = std::exchange(owner_.ended, nullptr)) ended(this);
  }

  void readHead() {
    http::async_read_header(channel_->layer(), buffer_, parser_,
                            [self = shared_from_this()](const ErrorCode& error, std::size_t) {
                              self->didReadHead(error);
                            });
  }

  void didReadHead(const ErrorCode& error) {
    if (hasEnded_) return;
    if (error == http::error::header_limit || error == http::error::buffer_overflow) {
      return answer({.status = 431, .body = "The head of the request is too long.\n"});
    }
    if (error && error.category() == make_error_code(http::error::bad_method).category() &&
        error != http::error::end_of_stream && error != http::error::partial_message) {
      return answer({.status = 400, .body = "The request is not valid HTTP.\n"});
    }
    if (error) return end();
    request_ = requestOf(parser_.get(), address_);
    const auto decision = owner_.answer(request_);
    if (hasEnded_) return;
    if (const auto* plain = std::get_if<WebSocketListener::Answer>(&decision)) {
      return answer(*plain);
    }
    if (!request_.isUpgrade) {
      return answer({.status = 426, .body = "Only WebSocket connections are served here.\n"});
    }
    if (buffer_.size() > 0) {
      return answer({.status = 400, .body = "Data came before the WebSocket was open.\n"});
    }
    channel_->setLimits(std::get<WebSocketLimits>(decision), limit_);
    channel_->stream().async_accept(parser_.get(), step([](Incoming& self) {
                                      self.hasEnded_ = true;
                                      self.channel_->opened();
                                      const auto opened = self.owner_.opened;
                                      self.leave();
                                      opened(self.channel_, std::move(self.request_));
                                    }));
  }

  void answer(const WebSocketListener::Answer& with) {
    const auto reason = http::obsolete_reason(http::int_to_status(unsigned(with.status)));
    text_ = fmt::format(
        "HTTP/1.1 {} {}\r\nContent-Type: {}\r\nContent-Length: {}\r\n{}Connection: close\r\n\r\n",
        with.status, std::string_view(reason.data(), reason.size()), with.contentType,
        with.body.size(), with.status == 426 ? "Upgrade: websocket\r\n" : "");
    if (request_.method != "HEAD") text_ += with.body;
    asio::async_write(
        channel_->layer(), asio::buffer(text_), step([](Incoming& self) {
          ErrorCode ignored;
          std::ignore = self.channel_->layer().socket.shutdown(tcp::socket::shutdown_send, ignored);
          self.channel_->layer().drain([held = self.shared_from_this()] { held->end(); });
        }));
  }

  const std::shared_ptr<Channel> channel_;
  const std::string address_;
  const std::optional<TlsIdentity> identity_;
  Owner owner_;
  asio::steady_timer deadline_;
  std::chrono::milliseconds limit_{0};
  beast::flat_buffer buffer_{2 * WebSocketListener::longestHead};
  http::request_parser<http::empty_body> parser_;
  WebSocketRequest request_;
  std::string text_;  // the answer
  bool hasEnded_ = false;
};

class Listener final : public WebSocketListener, public std::enable_shared_from_this<Listener> {
 public:
  Listener(SocketThread thread, std::shared_ptr<TcpListener> listener, Options options)
      : thread_(std::move(thread)), listener_(std::move(listener)), options_(std::move(options)) {}
  ~Listener() override { stopAccepting(); }

  std::uint16_t port() const override { return listener_->port(); }

  void start(SerialQueue queue, Handlers handlers) override {
    queue.post([self = shared_from_this(), queue, handlers = std::move(handlers)]() mutable {
      self->handlers_ = std::make_shared<const Handlers>(std::move(handlers));
      const auto onQueue = [weak = std::weak_ptr(self), queue](auto work) {
        queue.post([weak, work = std::move(work)]() mutable {
          if (const auto listener = weak.lock()) work(*listener);
        });
      };
      self->listener_->start(
          self->thread_, {.onConnection = {},
                          .onSocket =
                              [onQueue, queue](Descriptor socket) {
                                onQueue([queue, socket = std::move(socket)](Listener& on) mutable {
                                  on.take(queue, std::move(socket));
                                });
                              },
                          .onExhausted =
                              [onQueue] {
                                onQueue([](Listener& on) {
                                  const auto called = on.handlers_;
                                  if (called && called->onExhausted) called->onExhausted();
                                });
                              }});
    });
  }
  void setIdentity(TlsIdentity identity) override {
    if (options_.identity) options_.identity = std::move(identity);
  }
  void close() override {
    handlers_ = nullptr;
    stopAccepting();
    for (const auto& each : std::exchange(pending_, {})) each->end();
  }

 private:
  void stopAccepting() {
    if (std::exchange(hasStopped_, true)) return;  // its descriptor may be another's by now
    listener_->stopListening();
    thread_.post([listener = listener_] { listener->close(); });
  }

  void take(const SerialQueue& queue, Descriptor socket) {
    tcp::endpoint peer;
    socklen_t size = static_cast<socklen_t>(peer.capacity());
    if (!handlers_ || ::getpeername(socket.get(), peer.data(), &size) != 0) return;
    peer.resize(size);
    const auto address = addressOf(peer);
    if (const auto handlers = handlers_; handlers->onAccept && !handlers->onAccept(address)) return;
    const auto incoming = std::make_shared<Incoming>(queue, address, options_.identity, owner());
    if (!handlers_ || !incoming->take(std::move(socket), peer.protocol())) return;
    pending_.push_back(incoming);
    if (pending_.size() > options_.mostPending) {
      const auto oldest = pending_.front();
      oldest->end();
    }
    incoming->begin(options_.requestLimit);
  }

  Incoming::Owner owner() {
    const auto weak = weak_from_this();
    return {
        .answer = [weak](const WebSocketRequest& request) -> std::variant<WebSocketLimits, Answer> {
          const auto self = weak.lock();
          const auto handlers = self ? self->handlers_ : nullptr;
          if (!handlers) return Answer{.status = 503, .body = "The server stops.\n"};
          return handlers->onRequest(request);
        },
        .opened =
            [weak](std::shared_ptr<Channel> channel, WebSocketRequest request) {
              const auto self = weak.lock();
              const auto handlers = self ? self->handlers_ : nullptr;
              if (!handlers) return channel->abort();
              handlers->onOpen(std::move(channel), std::move(request));
            },
        .ended =
            [weak](Incoming* which) {
              if (const auto self = weak.lock()) {
                std::erase_if(self->pending_, [&](auto& each) { return each.get() == which; });
              }
            }};
  }

  const SocketThread thread_;
  const std::shared_ptr<TcpListener> listener_;
  bool hasStopped_ = false;
  Options options_;
  std::shared_ptr<const Handlers> handlers_;      // null before the start and after close()
  std::list<std::shared_ptr<Incoming>> pending_;  // the oldest first
};

}  // namespace

std::shared_ptr<WebSocket> WebSocket::connect(const SerialQueue& queue, const Url& url,
                                              Options options, Handlers handlers) {
  const auto client = std::make_shared<Client>(queue, url, std::move(options));
  client->open(std::move(handlers));
  return client;
}

std::expected<TlsIdentity, std::string> TlsIdentity::read(const std::string& certificateChain,
                                                          const std::string& privateKey) {
  const char* what = "The certificate cannot be used";
  try {
    auto context = std::make_shared<ssl::context>(ssl::context::tls_server);
    SSL_CTX_set_min_proto_version(context->native_handle(), TLS1_2_VERSION);
    SSL_CTX_set_mode(context->native_handle(), SSL_MODE_RELEASE_BUFFERS);
    context->use_certificate_chain(asio::buffer(certificateChain));
    what = "The private key cannot be used, or belongs to another certificate";
    // Without it OpenSSL would ask for the password of a key at the terminal.
    context->set_password_callback([](std::size_t, ssl::context::password_purpose) { return ""; });
    context->use_private_key(asio::buffer(privateKey), ssl::context::pem);
    TlsIdentity identity;
    identity.context_ = std::move(context);
    return identity;
  } catch (const std::exception& problem) {
    return std::unexpected(fmt::format("{}: {}.", what, problem.what()));
  }
}

std::expected<std::shared_ptr<WebSocketListener>, TcpError> WebSocketListener::bind(
    Options options) {
  auto thread = SocketThread::shared();
  if (!thread) return std::unexpected(std::move(thread.error()));
  auto listener = TcpListener::bind(options.address, options.port);
  if (!listener) return std::unexpected(std::move(listener.error()));
  return std::make_shared<Listener>(*std::move(thread), std::move(*listener), std::move(options));
}

}  // namespace vantrell
