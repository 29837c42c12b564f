// WebSockets (RFC 6455), the client's end and the server's. Each belongs to one SerialQueue, on
// which all of its operations are called and all of its handlers run; the thread that all sockets
// share only waits for them. Messages arrive whole and in order; text is valid UTF-8. Extensions
// are not spoken. Times are real.
#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <expected>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

#include "platform/http/http_message.h"
#include "platform/queues/dispatch.h"
#include "platform/sockets/tcp.h"
#include "platform/values/url.h"

namespace boost::asio::ssl {
class context;
}

namespace vantrell {

/// How a WebSocket ended that its owner had not closed.
struct WebSocketEnd {
  enum class Kind {
    closed,         // the other side sent a close frame
    cannotConnect,  // no such host, or no TCP connection to it
    notSecure,      // the certificate or the TLS handshake failed
    refused,        // the server answered, but opened no WebSocket
    timedOut,       // while it was opened, or the other side fell silent
    badMessage,     // not WebSocket, invalid UTF-8, or longer than the limit
    notRead,        // more is queued than the other side reads
    connectionLost  // without a close frame
  };
  Kind kind = Kind::connectionLost;
  std::string description;                 // a sentence for people; names host and port at most
  std::optional<std::uint16_t> closeCode;  // when closed, if the frame had one
  std::string closeReason;                 // when closed; valid UTF-8, often empty
  int status = 0;                          // of HTTP, when refused by an answer
};

struct WebSocketLimits {
  /// Of one message that is received. A longer one ends the connection with close code 1009.
  std::size_t messageBytes = std::size_t{16} << 20;
  /// Of messages that are queued and not written yet; beyond it the connection ends as `notRead`.
  /// One message always fits.
  std::size_t queuedBytes = std::size_t{64} << 20;
  /// A ping is sent when nothing has come for half of it; the connection ends as `timedOut` when
  /// nothing has come for all of it (half of it later at most). Zero: silence does not matter.
  std::chrono::milliseconds idle{60'000};
};

class WebSocket {
 public:
  /// What they capture may hold the WebSocket: they are released when it ends. An absent handler
  /// ignores its event.
  struct Handlers {
    std::function<void()> onOpen;  // a client's: messages may be sent from now on
    std::function<void(std::string)> onText;
    std::function<void(std::string)> onBinary;
    /// A piece of what was sent has been given to the system; `queuedBytes()` says what is left.
    std::function<void()> onWritten;
    /// Once, and nothing afterwards. Not called after close() or abort().
    std::function<void(WebSocketEnd)> onEnd;
  };
  struct Options {
    std::vector<HttpHeader> headers;  // besides those of the protocol
    WebSocketLimits limits;
    /// From the look-up of the name until the WebSocket is open.
    std::chrono::milliseconds connectLimit{15'000};
    /// Certificates (PEM) that are trusted in place of the system's. Empty: the system's.
    std::string trustedCertificates;
  };

  /// Opens `url` (ws or wss, with http and https as other names for them; a fragment and a user's
  /// name are not sent). Any thread; no handler is called from inside. It lives until it has ended,
  /// also without an owner.
  static std::shared_ptr<WebSocket> connect(const SerialQueue& queue, const Url& url,
                                            Options options, Handlers handlers);
  virtual ~WebSocket() = default;

  /// For the server's end, once: begins to read. No handler is called from inside.
  virtual void start(Handlers handlers) = 0;
  /// Queued after what was sent before. Dropped unless the WebSocket is open. The text must be
  /// valid UTF-8. Bytes that are shared go to several receivers without a copy.
  virtual void sendText(std::string text) = 0;
  virtual void sendBinary(std::shared_ptr<const std::string> bytes) = 0;
  void sendBinary(std::string bytes) {
    sendBinary(std::make_shared<const std::string>(std::move(bytes)));
  }
  /// Sends what is queued and then a close frame with the code and the reason (at most 123 bytes);
  /// what takes longer than `lingerLimit` is given up. One that is still being opened ends at once.
  virtual void close(std::uint16_t code, std::string_view reason = {}) = 0;
  /// Ends the connection at once, without a close frame.
  virtual void abort() = 0;

  /// Between onOpen (a server's: start) and the end.
  virtual bool isOpen() const = 0;
  /// Bytes that were sent and not given to the system yet. A sender that has newer values for old
  /// ones waits until this is small.
  virtual std::size_t queuedBytes() const = 0;
  /// Memory of the message that is being received.
  virtual std::size_t receivingBytes() const = 0;
  /// While paused nothing is read, so that the other side is held back; pings are not answered and
  /// the end is not noticed; silence does not count. A message that has been read already may still
  /// come.
  virtual void setPaused(bool isPaused) = 0;
  virtual void setMessageLimit(std::size_t bytes) = 0;

  static constexpr std::chrono::seconds lingerLimit{2};
};

/// A server's certificate chain and private key, both PEM. A value; copies share it. Any thread.
class TlsIdentity {
 public:
  /// The error is a sentence.
  static std::expected<TlsIdentity, std::string> read(const std::string& certificateChain,
                                                      const std::string& privateKey);
  boost::asio::ssl::context& context() const { return *context_; }

 private:
  std::shared_ptr<boost::asio::ssl::context> context_;
};

/// The request that asks for a WebSocket, or for something else.
struct WebSocketRequest {
  std::string method;
  std::string target;               // path and query as sent
  std::vector<HttpHeader> headers;  // in their order
  std::string address;              // numeric, of the other end of the TCP connection
  bool isUpgrade = false;           // it asks for a WebSocket
};

class WebSocketListener {
 public:
  struct Answer {
    int status = 200;
    std::string contentType = "text/plain; charset=utf-8";
    std::string body;
  };
  struct Handlers {
    /// Whether to serve a new connection from this address at all; asked before TLS. Absent: yes.
    std::function<bool(const std::string& address)> onAccept;
    /// The limits of the WebSocket to open, or the answer of a plain request. Limits for a request
    /// that is no upgrade mean status 426.
    std::function<std::variant<WebSocketLimits, Answer>(const WebSocketRequest&)> onRequest;
    /// It is open; start() is to be called.
    std::function<void(std::shared_ptr<WebSocket>, WebSocketRequest)> onOpen;
    /// There is no descriptor left for a connection; it is tried again.
    std::function<void()> onExhausted;
  };
  struct Options {
    std::string address = "127.0.0.1";  // numeric, IPv4 or IPv6
    std::uint16_t port = 0;             // 0: any free one
    std::optional<TlsIdentity> identity;
    /// For TLS, the request and its answer.
    std::chrono::milliseconds requestLimit{15'000};
    /// Connections that have not become a WebSocket; beyond it the oldest of them is dropped.
    std::size_t mostPending = 1024;
  };
  /// Any thread.
  static std::expected<std::shared_ptr<WebSocketListener>, TcpError> bind(Options options);
  virtual ~WebSocketListener() = default;

  virtual std::uint16_t port() const = 0;  // any thread
  /// Starts to accept; the listener and its WebSockets belong to the queue. Any thread, once.
  virtual void start(SerialQueue queue, Handlers handlers) = 0;
  /// For connections from now on; ignored by a listener without TLS.
  virtual void setIdentity(TlsIdentity identity) = 0;
  /// No handler is called from now on, and connections that are no WebSocket yet end.
  virtual void close() = 0;

  static constexpr std::size_t longestHead = 8192;
};

}  // namespace vantrell
