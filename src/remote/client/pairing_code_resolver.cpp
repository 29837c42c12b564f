#include "remote/client/pairing_code_resolver.h"

#include <optional>

#include "platform/sockets/web_socket.h"
#include "platform/text/text.h"
#include "platform/values/json.h"
#include "remote/protocol/remote_pairing.h"

namespace vantrell {

namespace {

using Error = RemotePairingCodeError;
using Result = std::expected<std::string, Error>;

constexpr std::size_t longestMessage = 65'536;      // bytes
constexpr std::size_t longestRelayMessage = 1'000;  // characters that a person is shown

std::string request(const std::string& code) {
  return json::write(JsonObject{{"version", 1}, {"role", "resolve"}, {"code", code}});
}

/// nullopt for a message that says nothing about the code.
std::optional<Result> resultIn(std::string_view message) {
  const auto object = json::parseObject(message);
  if (!object) {
    return std::unexpected(Error(Error::Kind::transport, "The relay's answer cannot be read."));
  }
  const auto type = json::textOr(*object, "type", "");
  const auto* const link = json::text(*object, "link");
  if (type == "pairing_link" && link) return *link;
  if (type != "error") return std::nullopt;
  const auto text =
      json::textOr(*object, "message", "The relay could not resolve this pairing code.");
  return std::unexpected(
      Error(Error::Kind::relay, std::string(text::firstCharacters(text, longestRelayMessage))));
}

Error errorOf(const WebSocketEnd& end) {
  if (end.kind == WebSocketEnd::Kind::timedOut) return Error(Error::Kind::timedOut);
  return {Error::Kind::transport, end.description};
}

}  // namespace

RemotePairingCodeError::RemotePairingCodeError(Kind what) : kind(what) {
  switch (kind) {
    case Kind::invalidCode:
      description = "Enter the eight-character pairing code shown on the host Mac.";
      break;
    case Kind::timedOut:
      description = "The pairing code lookup timed out. Check the connection and try again.";
      break;
    case Kind::invalidResponse:
    case Kind::relay:
    case Kind::transport: description = "The relay returned an invalid pairing response."; break;
  }
}

/// The queue's part of a look-up.
struct RemotePairingCodeResolver::Socket {
  std::shared_ptr<WebSocket> webSocket;
};

/// The main queue's part; the resolver alone holds it.
struct RemotePairingCodeResolver::Lookup {
  Answer answer;
  Timer timer;
  std::shared_ptr<Socket> socket = std::make_shared<Socket>();
};

RemotePairingCodeResolver::RemotePairingCodeResolver(MainQueue& main, BackgroundPool& pool,
                                                     std::string trustedCertificates)
    : main_(main),
      queue_(pool, "com.local.vantrell.pairing-code"),
      trustedCertificates_(std::move(trustedCertificates)) {}

RemotePairingCodeResolver::~RemotePairingCodeResolver() {
  cancel();
}

void RemotePairingCodeResolver::resolve(std::string_view text, const Url& relayURL, Answer answer) {
  cancel();
  lookup_ = std::make_shared<Lookup>(std::move(answer));
  const std::weak_ptr weak = lookup_;
  const auto ifCurrent = [this, weak](Result result) {
    if (!weak.expired()) finish(std::move(result));
  };
  const auto code = RemotePairingCode::normalize(text);
  if (!code) {
    return main_.post([ifCurrent] { ifCurrent(std::unexpected(Error(Error::Kind::invalidCode))); });
  }
  lookup_->timer =
      main_.after(limit, [ifCurrent] { ifCurrent(std::unexpected(Error(Error::Kind::timedOut))); });

  const auto report = [&main = main_, ifCurrent](Result result) {
    main.post([ifCurrent, result = std::move(result)]() mutable { ifCurrent(std::move(result)); });
  };
  WebSocket::Options options{.trustedCertificates = trustedCertificates_};
  options.limits.messageBytes = longestMessage;
  options.connectLimit = limit;
  queue_.post([queue = queue_, socket = lookup_->socket, relayURL, options = std::move(options),
               message = request(*code), report] {
    socket->webSocket = WebSocket::connect(
        queue, relayURL, options,
        {.onOpen = [socket, message] { socket->webSocket->sendText(message); },
         .onText =
             [report](const std::string& received) {
               if (auto result = resultIn(received)) report(std::move(*result));
             },
         .onEnd = [report](const WebSocketEnd& end) { report(std::unexpected(errorOf(end))); }});
  });
}

void RemotePairingCodeResolver::cancel() {
  if (!lookup_) return;
  queue_.post([socket = lookup_->socket] {
    if (const auto webSocket = std::move(socket->webSocket)) webSocket->close(1000);
  });
  lookup_ = nullptr;
}

void RemotePairingCodeResolver::finish(Result result) {
  auto answer = std::move(lookup_->answer);
  cancel();
  answer(std::move(result));
}

}  // namespace vantrell
