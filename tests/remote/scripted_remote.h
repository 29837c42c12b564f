// A host, and a relay, for tests of a client: real sockets on this machine, whose words a test
// gives. What they receive is recorded on the main queue. One connection at a time is spoken to.
#pragma once

#include <fmt/format.h>
#include <future>
#include <netinet/in.h>
#include <sys/socket.h>

#include "platform/queues/manual_main_queue.h"
#include "platform/sockets/tcp.h"
#include "platform/sockets/web_socket.h"
#include "remote/protocol/frame_reader.h"
#include "remote/protocol/remote_pairing.h"

namespace vantrell {

/// A port on which connections are neither accepted nor refused: its queue is full.
class SilentPort {
 public:
  SilentPort() {
    sockaddr_in address{.sin_family = AF_INET, .sin_addr = {htonl(INADDR_LOOPBACK)}};
    auto* const raw = reinterpret_cast<sockaddr*>(&address);
    socklen_t size = sizeof address;
    ::bind(listener_.get(), raw, size);
    ::listen(listener_.get(), 0);
    ::getsockname(listener_.get(), raw, &size);
    for (const auto& filler : fillers_) ::connect(filler.get(), raw, size);
    port_ = ntohs(address.sin_port);
  }
  std::uint16_t port() const { return port_; }

 private:
  static Descriptor made() { return Descriptor(::socket(AF_INET, SOCK_STREAM | SOCK_NONBLOCK, 0)); }
  const Descriptor listener_ = made();
  const Descriptor fillers_[3] = {made(), made(), made()};
  std::uint16_t port_ = 0;
};

/// The host's own port.
class ScriptedHost {
 public:
  ScriptedHost(MainQueue& main, std::string keyData) : main_(main), keyData_(std::move(keyData)) {}
  ~ScriptedHost() {
    close();
    thread_.end();
  }

  /// The port is free again for another process, so that connections are refused until then.
  void listen() {
    listener_ = *TcpListener::bind("127.0.0.1", port_);
    port_ = listener_->port();
    listener_->start(
        thread_, {.onConnection = [this](std::shared_ptr<TcpConnection> made) {
          connection_ = std::move(made);
          reader_.emplace(keyData_);
          connection_->start({.onReceive = [this](auto bytes) { read(bytes); },
                              .onEnd = [this](const auto&) { main_.post([this] { ++ends; }); }});
          main_.post([this] { ++connections; });
        }});
  }
  void close() {
    if (!listener_) return;
    listener_->stopListening();
    thread_.post([listener = std::exchange(listener_, nullptr)] { listener->close(); });
    hangUp();
  }
  void hangUp() {
    thread_.post([this] {
      if (connection_) std::exchange(connection_, nullptr)->closeGently(nullptr);
    });
  }
  void send(const RemoteEnvelope& envelope) {
    sendBytes(*RemoteCrypto(keyData_).seal(encode(envelope)));
  }
  void sendBytes(std::string bytes) {
    thread_.post([this, bytes = std::move(bytes)] {
      if (connection_) connection_->send(bytes, nullptr);
    });
  }
  std::uint16_t port() const { return port_; }

  int connections = 0;
  int ends = 0;  // of those that the client has ended
  std::vector<RemoteEnvelope> received;

 private:
  void read(std::string_view bytes) {
    reader_->append(bytes);
    for (auto next = reader_->next(); next && *next; next = reader_->next()) {
      main_.post([this, envelope = std::move(**next)] { received.push_back(envelope); });
    }
  }

  MainQueue& main_;
  const std::string keyData_;
  const SocketThread thread_ = *SocketThread::start();
  std::shared_ptr<TcpListener> listener_;
  std::uint16_t port_ = 0;
  // On the thread:
  std::shared_ptr<TcpConnection> connection_;
  std::optional<FrameReader> reader_;
};

/// A relay that answers what the test tells it to; a host sits behind it in the same words.
class ScriptedRelay {
 public:
  ScriptedRelay(MainQueue& main, BackgroundPool& pool, std::string keyData)
      : main_(main), queue_(pool, "relay"), crypto_(keyData) {
    listener_->start(queue_, {.onRequest = [](const auto&) { return WebSocketLimits(); },
                              .onOpen = [this](auto socket, const auto&) { serve(socket); }});
  }
  ~ScriptedRelay() {
    std::promise<void> ended;
    queue_.post([&] {
      listener_->close();
      if (socket_) socket_->abort();
      ended.set_value();
    });
    ended.get_future().wait();
  }
  std::string url() const {
    return fmt::format("ws://127.0.0.1:{}/remote/connect", listener_->port());
  }
  void say(std::string text) {
    onSocket([text = std::move(text)](WebSocket& socket) { socket.sendText(text); });
  }
  void sendBytes(std::string bytes) {
    onSocket([bytes = std::move(bytes)](WebSocket& socket) { socket.sendBinary(bytes); });
  }
  void send(const RemoteEnvelope& envelope) {
    sendBytes(crypto_.seal(encode(envelope))->substr(RemoteCrypto::prefixSize));
  }
  void hangUp(std::uint16_t code, std::string reason) {
    onSocket([=](WebSocket& socket) { socket.close(code, reason); });
  }

  std::vector<std::string> greetings;
  std::vector<std::string> answers;  // to each greeting; set while none is under way
  std::vector<RemoteEnvelope> received;
  std::optional<int> closeCode;  // of the last connection that the client ended

 private:
  void onSocket(std::function<void(WebSocket&)> call) {
    queue_.post([this, call = std::move(call)] {
      if (socket_) call(*socket_);
    });
  }
  void serve(const std::shared_ptr<WebSocket>& socket) {
    socket_ = socket;
    socket->start({.onText =
                       [this](const std::string& text) {
                         main_.post([this, text] {
                           greetings.push_back(text);
                           for (const auto& answer : answers) say(answer);
                         });
                       },
                   .onBinary =
                       [this](const std::string& body) {
                         if (auto envelope = openEnvelope(crypto_, body)) {
                           main_.post(
                               [this, one = std::move(*envelope)] { received.push_back(one); });
                         }
                       },
                   .onEnd =
                       [this](const WebSocketEnd& end) {
                         main_.post([this, code = end.closeCode] { closeCode = code.value_or(0); });
                       }});
  }

  MainQueue& main_;
  const SerialQueue queue_;
  RemoteCrypto crypto_;  // of the queue, but for send() while nothing comes
  std::shared_ptr<WebSocketListener> listener_ = *WebSocketListener::bind({});
  std::shared_ptr<WebSocket> socket_;
};

}  // namespace vantrell
