#include "relay/relay_server.h"

#include <arpa/inet.h>
#include <fmt/format.h>
#include <netinet/in.h>

#include "platform/queues/weakly.h"
#include "platform/text/text.h"
#include "relay/relay_message.h"

namespace vantrell::relay {

namespace {

constexpr std::uint16_t goingAway = 1001;
/// What remote control seals a message into at most.
constexpr std::size_t longestMessage = std::size_t{16} << 20;

bool isAddress(const std::string& text) {
  in6_addr room{};
  return ::inet_pton(AF_INET, text.c_str(), &room) == 1 ||
         ::inet_pton(AF_INET6, text.c_str(), &room) == 1;
}

Duration steadyNow() {
  return std::chrono::steady_clock::now().time_since_epoch();
}

class Server final : public RelayServer,
                     public Connections,
                     public std::enable_shared_from_this<Server> {
 public:
  Server(MainQueue& main, BackgroundPool& pool, Options options,
         std::function<void(std::string)> onTrouble)
      : main_(main),
        queue_(pool, "relay"),
        options_(std::move(options)),
        onTrouble_(std::move(onTrouble)),
        rooms_(*this, options_.limits) {}

  std::expected<void, std::string> begin() {
    auto listener = WebSocketListener::bind(
        {.address = options_.address, .port = options_.port, .identity = options_.identity});
    if (!listener) return std::unexpected(listener.error().description);
    listener_ = std::move(*listener);
    listener_->start(
        queue_, {.onAccept =
                     [weak = weak_from_this()](const std::string& address) {
                       const auto self = weak.lock();
                       // A proxy's address says nothing; its requests are judged one by one.
                       return self && (self->options_.trustsProxy || self->mayConnect(address));
                     },
                 .onRequest = [weak = weak_from_this()](const WebSocketRequest& request)
                     -> std::variant<WebSocketLimits, WebSocketListener::Answer> {
                   if (const auto self = weak.lock()) return self->decide(request);
                   return WebSocketListener::Answer{.status = 503, .body = "The relay stops.\n"};
                 },
                 .onOpen = weakly(this,
                                  [](Server& self, std::shared_ptr<WebSocket> socket,
                                     const WebSocketRequest& request) {
                                    self.opened(std::move(socket), request);
                                  }),
                 .onExhausted = weakly(this, [](Server& self) { self.exhausted(); })});
    clock_ = main_.every(std::chrono::seconds(1), weakly(this, [](Server& self) {
                           self.onQueue([](Server& on) { on.rooms_.tick(steadyNow()); });
                         }));
    return {};
  }

  std::uint16_t port() const override { return listener_->port(); }

  void setIdentity(TlsIdentity identity) override {
    onQueue(
        [identity = std::move(identity)](Server& self) { self.listener_->setIdentity(identity); });
  }

  void stop(std::function<void()> onStopped) override {
    onQueue([](Server& self) {
      self.listener_->close();
      // The sockets go on until the other ends have answered, or a limit of theirs.
      for (const auto& [id, socket] : std::exchange(self.sockets_, {})) {
        socket->close(goingAway, "The relay stops.");
        self.closing_.push_back(socket);
      }
    });
    const auto limit = main_.uptime() + stopLimit;
    clock_ =
        main_.every(std::chrono::milliseconds(20), weakly(this, [limit, onStopped](Server& self) {
                      self.onQueue([limit, onStopped](Server& on) {
                        std::erase_if(on.closing_, [](const auto& each) { return each.expired(); });
                        if (!on.closing_.empty() && on.main_.uptime() < limit) return;
                        on.main_.post([held = on.shared_from_this(), onStopped] {
                          if (!held->clock_.isActive()) return;
                          held->clock_.cancel();
                          onStopped();
                        });
                      });
                    }));
  }

  // Connections

  void sendText(PeerID peer, std::string text) override {
    if (const auto socket = socketOf(peer)) socket->sendText(std::move(text));
  }
  void sendBinary(PeerID peer, const Bytes& bytes) override {
    if (const auto socket = socketOf(peer)) socket->sendBinary(bytes);
  }
  void admit(PeerID peer) override {
    if (const auto socket = socketOf(peer)) socket->setMessageLimit(longestMessage);
  }
  void setPaused(PeerID peer, bool isPaused) override {
    if (const auto socket = socketOf(peer)) socket->setPaused(isPaused);
  }
  void close(PeerID peer, std::uint16_t code) override {
    if (const auto socket = taken(peer)) socket->close(code);
  }
  void drop(PeerID peer) override {
    if (const auto socket = taken(peer)) socket->abort();
  }
  std::size_t queuedBytes(PeerID peer) const override {
    const auto socket = socketOf(peer);
    return socket ? socket->queuedBytes() : 0;
  }
  std::size_t heldBytes(PeerID peer) const override {
    const auto socket = socketOf(peer);
    return socket ? socket->queuedBytes() + socket->receivingBytes() : 0;
  }

 private:
  static constexpr std::chrono::seconds stopLimit{3};
  static constexpr std::chrono::minutes troublePause{1};

  template <typename Call>
  void onQueue(Call call) {
    queue_.post([self = shared_from_this(), call = std::move(call)] { call(*self); });
  }

  bool mayConnect(const std::string& address) {
    return rooms_.addresses().mayConnect(address, steadyNow());
  }

  std::variant<WebSocketLimits, WebSocketListener::Answer> decide(const WebSocketRequest& request) {
    using Answer = WebSocketListener::Answer;
    const auto target = request.target.substr(0, request.target.find('?'));
    const bool isRead = request.method == "GET" || request.method == "HEAD";
    if (target == "/healthz" && isRead) return Answer{.body = "ok\n"};
    if (target != path) return Answer{.status = 404, .body = "There is nothing here.\n"};
    const auto address = clientAddress(request, options_.trustsProxy);
    if (!request.isUpgrade) return WebSocketLimits{};  // answered with 426
    if ((options_.trustsProxy && !mayConnect(address)) || !rooms_.addresses().hasRoom(address)) {
      return Answer{.status = 429, .body = "There are too many connections from this address.\n"};
    }
    if (!rooms_.hasRoom()) return Answer{.status = 503, .body = "The relay is full.\n"};
    return WebSocketLimits{.messageBytes = longestHello};
  }

  void opened(std::shared_ptr<WebSocket> socket, const WebSocketRequest& request) {
    auto address = clientAddress(request, options_.trustsProxy);
    // Several may have been let in at the same time.
    if (!rooms_.hasRoom() || !rooms_.addresses().hasRoom(address)) return socket->abort();
    const PeerID id = ++lastID_;
    sockets_[id] = socket;
    rooms_.opened(id, std::move(address), steadyNow());
    const auto relayed = [this, id](auto call) {
      return weakly(this, [id, call](Server& self, auto&&... arguments) {
        // Not the last events of one that was closed.
        if (self.sockets_.contains(id)) {
          call(self, id, std::forward<decltype(arguments)>(arguments)...);
        }
      });
    };
    socket->start(
        {.onOpen = {},
         .onText = relayed([](Server& self, PeerID peer, const std::string& text) {
           self.rooms_.receivedText(peer, text, steadyNow());
         }),
         .onBinary = relayed([](Server& self, PeerID peer, std::string bytes) {
           self.rooms_.receivedBinary(peer, std::make_shared<const std::string>(std::move(bytes)),
                                      steadyNow());
         }),
         .onWritten = relayed([](Server& self, PeerID peer) { self.rooms_.written(peer); }),
         .onEnd = relayed([](Server& self, PeerID peer, const WebSocketEnd&) {
           self.sockets_.erase(peer);
           self.rooms_.closed(peer);
         })});
  }

  void exhausted() {
    const auto now = steadyNow();
    if (lastTrouble_ && now - *lastTrouble_ < troublePause) return;
    lastTrouble_ = now;
    onTrouble_(
        fmt::format("No descriptor is left for new connections; {} are open. Raise the "
                    "limit of open files.",
                    sockets_.size()));
  }

  std::shared_ptr<WebSocket> socketOf(PeerID peer) const {
    const auto found = sockets_.find(peer);
    return found == sockets_.end() ? nullptr : found->second;
  }
  std::shared_ptr<WebSocket> taken(PeerID peer) {
    auto node = sockets_.extract(peer);
    return node.empty() ? nullptr : std::move(node.mapped());
  }

  MainQueue& main_;
  const SerialQueue queue_;
  const Options options_;
  const std::function<void(std::string)> onTrouble_;
  std::shared_ptr<WebSocketListener> listener_;
  Timer clock_;  // main queue
  RelayRooms rooms_;
  std::unordered_map<PeerID, std::shared_ptr<WebSocket>> sockets_;
  std::vector<std::weak_ptr<WebSocket>> closing_;
  PeerID lastID_ = 0;
  std::optional<Duration> lastTrouble_;
};

}  // namespace

std::expected<std::shared_ptr<RelayServer>, std::string> RelayServer::start(
    MainQueue& main, BackgroundPool& pool, Options options,
    std::function<void(std::string)> onTrouble) {
  const auto server =
      std::make_shared<Server>(main, pool, std::move(options), std::move(onTrouble));
  if (auto begun = server->begin(); !begun) return std::unexpected(std::move(begun.error()));
  return server;
}

std::string clientAddress(const WebSocketRequest& request, bool trustsProxy) {
  if (!trustsProxy) return request.address;
  std::string_view forwarded;
  for (const auto& [name, value] : request.headers) {
    if (text::lowercased(name) == "x-forwarded-for") forwarded = value;
  }
  const auto comma = forwarded.rfind(',');
  if (comma != forwarded.npos) forwarded.remove_prefix(comma + 1);
  const std::string last(text::trimmed(forwarded));
  return isAddress(last) ? last : request.address;
}

}  // namespace vantrell::relay
