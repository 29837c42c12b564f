#include "remote/client/remote_road.h"

#include <optional>

#include "platform/queues/mailbox.h"
#include "platform/sockets/tcp.h"
#include "platform/sockets/web_socket.h"
#include "platform/text/text.h"
#include "platform/values/json.h"
#include "remote/protocol/frame_reader.h"

namespace vantrell {

namespace {

using namespace std::chrono_literals;

constexpr std::size_t longestControl = 65'536;     // bytes
constexpr std::size_t longestRelayMessage = 1000;  // characters that a person is shown
/// Messages to a relay that wait to be written: several attachments of the largest size, in Base64.
constexpr std::size_t longestRelayQueue = std::size_t{256} << 20;

/// What both roads do with messages. Shared with the queue's work; its fields belong to the queue,
/// except those that are marked.
class MessageRoad : public RemoteRoad, public std::enable_shared_from_this<MessageRoad> {
 public:
  MessageRoad(const Options& options, const MacRemotePairing& pairing, Handlers handlers)
      : queue_(options.queue),
        crypto_(pairing.keyData),
        mailbox_(std::make_shared<Mailbox>(options.main)),
        handlers_(std::move(handlers)) {}

  void send(RemoteEnvelope envelope) override {
    if (isClosed_) return;
    onQueue([envelope = std::move(envelope)](MessageRoad& self) {
      if (self.hasEnded_) return;
      if (auto frame = self.crypto_.seal(encode(envelope))) self.sendFrame(std::move(*frame));
    });
  }

  void close() override {
    isClosed_ = true;
    onQueue([](MessageRoad& self) {
      self.hasEnded_ = true;
      self.closeConnection();
    });
  }

 protected:
  /// Queue: a sealed message with its prefix.
  virtual void sendFrame(std::string frame) = 0;
  /// Queue; may be called again.
  virtual void closeConnection() = 0;
  /// Queue: whether to read on.
  virtual void setHeldBack(bool isHeldBack) = 0;

  void begin() {
    mailbox_->whenFullChanges([weak = weak_from_this()](bool isFull) {
      const auto self = weak.lock();
      if (!self) return;
      self->onQueue([isFull](MessageRoad& road) { road.setHeldBack(isFull); });
    });
  }

  /// Any thread.
  template <typename Call>
  void onQueue(Call call) {
    queue_.post([self = shared_from_this(), call = std::move(call)]() mutable { call(*self); });
  }

  // On the queue: to the main queue, in this order.

  void opened() {
    report([](Handlers& to) { to.onOpen(); });
  }
  void received(RemoteEnvelope envelope, std::size_t bytes) {
    report([envelope =
                std::move(envelope)](Handlers& to) mutable { to.onMessage(std::move(envelope)); },
           bytes);
  }
  void controlled(RemoteRelayControl control) {
    report(
        [control = std::move(control)](Handlers& to) mutable { to.onControl(std::move(control)); });
  }
  void fail(std::string message) {
    if (hasEnded_) return;
    report([message = std::move(message)](Handlers& to) { to.onEnd({message}); });
    hasEnded_ = true;
    closeConnection();
  }

  const SerialQueue queue_;
  RemoteCrypto crypto_;
  bool hasEnded_ = false;

 private:
  template <typename Report>
  void report(Report call, std::size_t bytes = 0) {
    if (hasEnded_) return;
    mailbox_->deliver(
        [self = shared_from_this(), call = std::move(call)]() mutable {
          if (!self->isClosed_) call(self->handlers_);
        },
        bytes);
  }

  const std::shared_ptr<Mailbox> mailbox_;
  Handlers handlers_;      // main queue
  bool isClosed_ = false;  // main queue
};

/// Reads a piece, has it opened on the queue, and only then reads the next one, so that the thread
/// of the sockets never waits and no more than a piece waits for the queue.
class DirectRoad final : public MessageRoad {
 public:
  DirectRoad(const Options& options, const MacRemotePairing& pairing, Handlers handlers)
      : MessageRoad(options, pairing, std::move(handlers)), reader_(pairing.keyData) {}

  void begin(const std::string& host, std::uint16_t port) {
    MessageRoad::begin();
    onRoad([host, port](DirectRoad& self) { self.connect(host, port); });
  }

 private:
  std::shared_ptr<DirectRoad> road() {
    return std::static_pointer_cast<DirectRoad>(shared_from_this());
  }
  template <typename Call>
  void onRoad(Call call) {
    onQueue([call = std::move(call)](MessageRoad& self) mutable {
      call(static_cast<DirectRoad&>(self));
    });
  }
  /// On the thread of the sockets; dropped once there is no connection.
  void onSocket(std::function<void(TcpConnection&)> call) {
    if (!connection_) return;
    (*thread_)->post([connection = connection_, call = std::move(call)] { call(*connection); });
  }

  void connect(const std::string& host, std::uint16_t port) {
    if (hasEnded_) return;
    thread_ = SocketThread::shared();
    if (!*thread_) return fail(thread_->error().description);
    giveUp_ = TcpConnection::connect(
        **thread_, host, port,
        [self = road()](std::expected<std::shared_ptr<TcpConnection>, TcpError> made) {
          self->onRoad([made = std::move(made)](DirectRoad& road) { road.connected(made); });
        });
  }

  void connected(const std::expected<std::shared_ptr<TcpConnection>, TcpError>& made) {
    if (!made) return fail(made.error().description);
    connection_ = *made;
    if (hasEnded_) return closeConnection();
    opened();
    onSocket([self = road()](TcpConnection& connection) {
      connection.start(
          {.onReceive =
               [self, &connection](std::string_view bytes) {
                 connection.stopReading();
                 self->onRoad([bytes = std::string(bytes)](DirectRoad& road) { road.read(bytes); });
               },
           .onEnd =
               [self](const std::optional<TcpError>& error) {
                 self->onRoad([error](DirectRoad& road) {
                   road.fail(error ? error->description : "The direct connection closed.");
                 });
               }});
    });
  }

  void read(std::string_view bytes) {
    if (hasEnded_) return;
    reader_.append(bytes);
    heldBytes_ += bytes.size();
    for (;;) {
      auto next = reader_.next();
      if (!next) return fail(next.error().description);
      if (!*next) break;
      received(std::move(**next), std::exchange(heldBytes_, 0));
    }
    isReading_ = false;
    readOn();
  }

  void readOn() {
    if (isHeldBack_ || hasEnded_ || std::exchange(isReading_, true)) return;
    onSocket([](TcpConnection& connection) { connection.resumeReading(); });
  }

  void setHeldBack(bool isHeldBack) override {
    isHeldBack_ = isHeldBack;
    readOn();
  }

  void sendFrame(std::string frame) override {
    onSocket([frame = std::move(frame)](TcpConnection& to) { to.send(frame, nullptr); });
  }

  void closeConnection() override {
    if (giveUp_) giveUp_();
    onSocket([](TcpConnection& connection) { connection.close(); });
    connection_ = nullptr;
  }

  std::optional<std::expected<SocketThread, TcpError>> thread_;  // set by connect()
  std::function<void()> giveUp_;                                 // the same
  std::shared_ptr<TcpConnection> connection_;                    // while open
  FrameReader reader_;
  std::size_t heldBytes_ = 0;  // that came since the last message
  bool isReading_ = true;
  bool isHeldBack_ = false;
};

std::optional<RemoteRelayControl> controlIn(std::string_view message) {
  using Kind = RemoteRelayControl::Kind;
  const auto object = message.size() <= longestControl ? json::parseObject(message) : std::nullopt;
  if (!object) return std::nullopt;
  const auto type = json::textOr(*object, "type", "");
  if (type == "ready") {
    const bool isOnline = json::boolean(*object, "hostOnline").value_or(false);
    return RemoteRelayControl{isOnline ? Kind::hostOnline : Kind::hostOffline, true, ""};
  }
  if (type == "host_online") return RemoteRelayControl{Kind::hostOnline, false, ""};
  if (type == "host_offline") return RemoteRelayControl{Kind::hostOffline, false, ""};
  if (type != "error") return RemoteRelayControl{};
  const auto text = json::textOr(*object, "message", "The relay rejected the connection.");
  return RemoteRelayControl{Kind::error, false,
                            std::string(text::firstCharacters(text, longestRelayMessage))};
}

std::string messageOf(const WebSocketEnd& end) {
  if (end.kind == WebSocketEnd::Kind::closed) {
    return end.closeReason.empty() ? "The relay connection closed." : end.closeReason;
  }
  return end.description.empty() ? "The internet relay connection ended." : end.description;
}

class RelayRoad final : public MessageRoad {
 public:
  using MessageRoad::MessageRoad;

  void begin(const Url& url, const std::string& pairID, const std::string& trustedCertificates) {
    MessageRoad::begin();
    WebSocket::Options options{.trustedCertificates = trustedCertificates};
    options.limits.messageBytes = RemoteCrypto::longestBody;
    options.limits.queuedBytes = longestRelayQueue;
    options.connectLimit = 30s;  // of the connection alone; the client limits the whole greeting
    onQueue([url, pairID, options = std::move(options)](MessageRoad& self) {
      static_cast<RelayRoad&>(self).connect(url, pairID, options);
    });
  }

 private:
  void connect(const Url& url, const std::string& pairID, const WebSocket::Options& options) {
    if (hasEnded_) return;
    const auto self = std::static_pointer_cast<RelayRoad>(shared_from_this());
    const auto greeting =
        json::write(JsonObject{{"version", 1}, {"role", "client"}, {"pairID", pairID}});
    webSocket_ = WebSocket::connect(
        queue_, url, options,
        {.onOpen = [self, greeting] { self->webSocket_->sendText(greeting); },
         .onText =
             [self](const std::string& text) {
               auto control = controlIn(text);
               if (!control) return self->fail("The relay's message cannot be read.");
               self->controlled(std::move(*control));
             },
         .onBinary =
             [self](const std::string& body) {
               auto envelope = openEnvelope(self->crypto_, body);
               if (!envelope) return self->fail(envelope.error().description);
               self->received(std::move(*envelope), body.size());
             },
         .onEnd = [self](const WebSocketEnd& end) { self->fail(messageOf(end)); }});
  }

  void setHeldBack(bool isHeldBack) override {
    if (webSocket_) webSocket_->setPaused(isHeldBack);
  }
  void sendFrame(std::string frame) override {
    frame.erase(0, RemoteCrypto::prefixSize);
    if (webSocket_) webSocket_->sendBinary(std::move(frame));
  }
  void closeConnection() override {
    if (const auto webSocket = std::exchange(webSocket_, nullptr)) webSocket->close(1000);
  }

  std::shared_ptr<WebSocket> webSocket_;
};

}  // namespace

std::shared_ptr<RemoteRoad> RemoteRoad::direct(const Options& options,
                                               const MacRemotePairing& pairing, Handlers handlers) {
  const auto road = std::make_shared<DirectRoad>(options, pairing, std::move(handlers));
  road->begin(pairing.host, pairing.port);
  return road;
}

std::shared_ptr<RemoteRoad> RemoteRoad::relay(const Options& options,
                                              const MacRemotePairing& pairing, Handlers handlers) {
  const auto road = std::make_shared<RelayRoad>(options, pairing, std::move(handlers));
  road->begin(*pairing.relayURL, pairing.pairID, options.trustedCertificates);
  return road;
}

}  // namespace vantrell
