#include "gateway/gateway_server.h"

#include <algorithm>
#include <array>
#include <atomic>
#include <future>
#include <list>

#include "gateway/request_reader.h"
#include "platform/queues/weakly.h"

namespace vantrell {

namespace {

std::string_view reasonOf(int status) {
  using Row = std::pair<int, std::string_view>;
  static constexpr auto reasons = std::to_array<Row>({{200, "OK"},
                                                      {201, "Created"},
                                                      {202, "Accepted"},
                                                      {204, "No Content"},
                                                      {400, "Bad Request"},
                                                      {401, "Unauthorized"},
                                                      {403, "Forbidden"},
                                                      {404, "Not Found"},
                                                      {409, "Conflict"},
                                                      {413, "Content Too Large"},
                                                      {422, "Unprocessable Content"},
                                                      {429, "Too Many Requests"},
                                                      {502, "Bad Gateway"},
                                                      {503, "Service Unavailable"},
                                                      {504, "Gateway Timeout"}});
  const auto found = std::ranges::find(reasons, status, &Row::first);
  return found == reasons.end() ? "Server Error" : found->second;
}

void appendHeader(std::string& out, std::string_view name, std::string_view value) {
  out.append(name).append(": ");
  std::ranges::copy_if(value, std::back_inserter(out), [](char c) {
    return c == '\t' || (static_cast<unsigned char>(c) >= ' ' && c != '\x7f');
  });
  out += "\r\n";
}

GatewayResponse tooLarge() {
  return GatewayResponse::error(413, "request_too_large", "The request body is too large.");
}
GatewayResponse invalid() {
  return GatewayResponse::error(400, "bad_request", "The HTTP request is invalid.");
}
GatewayResponse endedEarly() {
  return GatewayResponse::error(400, "incomplete_request", "The HTTP request ended early.");
}
GatewayResponse notReady() {
  return GatewayResponse::error(503, "not_ready", "Personal Gateway is not ready.");
}
GatewayResponse unavailable() {
  return GatewayResponse::error(503, "not_ready", "Personal Gateway is unavailable.");
}

/// Some callers send a body without a length, or more than its length.
bool hasNoBody(const GatewayRequest& request) {
  return request.method == "GET" && request.body.empty() &&
         !request.headers.find("transfer-encoding");
}

}  // namespace

std::string httpText(const GatewayResponse& response) {
  std::string text = "HTTP/1.1 " + std::to_string(response.status) + " ";
  text.append(reasonOf(response.status)).append("\r\n");
  appendHeader(text, "Content-Type", response.contentType);
  appendHeader(text, "Content-Length", std::to_string(response.body.size()));
  appendHeader(text, "Cache-Control", "no-store");
  appendHeader(text, "X-Content-Type-Options", "nosniff");
  for (const auto& [name, value] : response.headers) appendHeader(text, name, value);
  appendHeader(text, "Connection", "close");
  text.append("\r\n").append(response.body);
  return text;
}

/// The first half belongs to the main queue, the second to the server's thread.
class GatewayServer::Impl : public std::enable_shared_from_this<Impl> {
 public:
  Impl(MainQueue& main, GatewayServer& server) : main_(main), server_(&server) {}

  std::expected<void, TcpError> start(const std::string& address, std::uint16_t port) {
    closeListener();
    auto bound = TcpListener::bind(address, port);
    if (!bound) return fail(bound.error());
    if (!thread_) {
      auto started = SocketThread::start();
      if (!started) return fail(started.error());
      thread_ = std::move(*started);
    }
    listener_ = std::move(*bound);
    become({Phase::starting, {}});
    thread_->post([self = shared_from_this(), listener = listener_] { self->listenOn(listener); });
    main_.post(weakly(this, [turn = turn_](Impl& self) { self.isListening(turn); }));
    return {};
  }

  void stop() {
    closeListener();
    become({});
  }

  /// The server is being destroyed.
  void end() {
    server_ = nullptr;
    closeListener();
    if (!thread_) return;
    const auto ended = std::make_shared<std::promise<void>>();
    thread_->post([self = shared_from_this(), ended] { self->answerAll(ended); });
    std::ignore = ended->get_future().wait_for(endLimit);
    thread_->post([self = shared_from_this()] { self->closeAll(self->answered_); });
    thread_->end();
  }

  const State& state() const { return state_; }
  std::uint16_t port() const { return listener_ ? listener_->port() : 0; }

 private:
  struct Connection;
  using List = std::list<std::shared_ptr<Connection>>;
  struct Connection {
    std::shared_ptr<TcpConnection> tcp;
    RequestReader reader;
    std::size_t served = 0;        // bytes of its request, while the main queue has it
    std::size_t unsent = 0;        // bytes of its response
    bool mayStillSend = true;      // more than its request
    std::uint64_t lastActive = 0;  // a count, not a time
    List* list = nullptr;          // null once it is closed
    List::iterator place{};        // in the list
  };
  /// The way back for one response. The last copy answers if nothing else has.
  struct Answer {
    Answer(const SocketThread& thread, std::weak_ptr<Impl> impl,
           std::weak_ptr<Connection> connection)
        : thread_(thread), impl_(std::move(impl)), connection_(std::move(connection)) {}
    ~Answer() { give(unavailable()); }
    Answer(const Answer&) = delete;
    Answer& operator=(const Answer&) = delete;

    void give(GatewayResponse response) {
      if (isGiven_.exchange(true)) return;
      thread_.post([weakImpl = impl_, weak = connection_, response = std::move(response)] {
        const auto impl = weakImpl.lock();
        const auto connection = weak.lock();
        if (impl && connection && connection->list) impl->answer(*connection, response);
      });
    }

   private:
    const SocketThread thread_;
    const std::weak_ptr<Impl> impl_;
    const std::weak_ptr<Connection> connection_;
    std::atomic<bool> isGiven_ = false;
  };

  // ---- the main queue ---------------------------------------------------------------------------

  std::unexpected<TcpError> fail(const TcpError& error) {
    become({Phase::failed, error.description});
    return std::unexpected(error);
  }

  void become(State state) {
    state_ = std::move(state);
    main_.post(weakly(this, [](Impl& self) { self.announce(); }));
  }

  void announce() {
    if (server_ && server_->onStateChange) server_->onStateChange();
  }

  void isListening(int turn) {
    if (turn != turn_) return;
    state_ = {Phase::listening, {}};
    announce();
  }

  void closeListener() {
    ++turn_;
    if (!listener_) return;
    listener_->stopListening();  // the next one may want the same port
    thread_->post([self = shared_from_this(), listener = std::exchange(listener_, nullptr)] {
      listener->close();
      self->closeAll(self->reading_);
    });
  }

  void serve(GatewayRequest request, const std::shared_ptr<Answer>& answer) {
    if (!server_) return;
    if (!server_->onRequest) return answer->give(notReady());
    server_->onRequest(std::move(request),
                       [answer](GatewayResponse response) { answer->give(std::move(response)); });
  }

  // ---- the thread -------------------------------------------------------------------------------

  void listenOn(const std::shared_ptr<TcpListener>& listener) {
    accepting_ = listener;
    listener->setPaused(isFull_);
    const auto accept = [](Impl& self, std::shared_ptr<TcpConnection> tcp) {
      self.accept(std::move(tcp));
    };
    listener->start(*thread_,
                    {.onConnection = weakly(this, accept),
                     .onExhausted = weakly(this, [](Impl& self) { self.closeOldest(); })});
  }

  void accept(std::shared_ptr<TcpConnection> tcp) {
    auto connection = std::make_shared<Connection>();
    connection->tcp = std::move(tcp);
    connection->list = &reading_;
    connection->lastActive = ++activity_;
    connection->place = reading_.insert(reading_.end(), connection);
    if (++count_ > mostConnections) closeOldest();
    updatePause();
    const auto onReceive = [weak = std::weak_ptr(connection)](Impl& self, std::string_view bytes) {
      if (const auto from = weak.lock()) self.received(*from, bytes);
    };
    const auto onEnd = [weak = std::weak_ptr(connection)](Impl& self, const auto& error) {
      if (const auto from = weak.lock()) self.ended(*from, error.has_value());
    };
    connection->tcp->start({.onReceive = weakly(this, onReceive), .onEnd = weakly(this, onEnd)});
  }

  void received(Connection& from, std::string_view bytes) {
    if (from.list != &reading_) return;  // after the end of the request
    move(from, reading_);
    readingBytes_ -= from.reader.size();
    const auto state = from.reader.append(bytes);
    readingBytes_ += from.reader.size();
    while (readingBytes_ > mostBytes && reading_.front() != *from.place) close(*reading_.front());
    switch (state) {
      case RequestReader::State::incomplete: return;
      case RequestReader::State::tooLarge: return refuse(from, tooLarge());
      case RequestReader::State::invalid: return refuse(from, invalid());
      case RequestReader::State::complete: break;
    }
    readingBytes_ -= from.reader.size();
    move(from, serving_);
    from.tcp->stopReading();
    from.mayStillSend = from.reader.hasMore();
    auto request = from.reader.take();
    from.mayStillSend |= !hasNoBody(request);
    from.served = request.size();
    servingBytes_ += from.served;
    auto answer = std::make_shared<Answer>(*thread_, weak_from_this(), *from.place);
    main_.post(weakly(this, [request = std::move(request), answer](Impl& self) mutable {
      self.serve(std::move(request), answer);
    }));
    updatePause();
  }

  void ended(Connection& from, bool isBroken) {
    if (!from.list) return;
    if (isBroken) return close(from);
    if (from.list == &reading_) refuse(from, endedEarly());
  }

  void refuse(Connection& from, const GatewayResponse& response) {
    readingBytes_ -= from.reader.size();
    from.reader = {};
    answer(from, response);
  }

  void answer(Connection& to, const GatewayResponse& response) {
    if (to.list == &answered_) return;  // at the end of the server
    servingBytes_ -= std::exchange(to.served, 0);
    auto text = httpText(response);
    move(to, answered_);
    to.unsent = text.size();
    answeredBytes_ += to.unsent;
    while (answeredBytes_ > mostResponseBytes && answered_.front() != *to.place) {
      close(*answered_.front());
    }
    const auto onSent = [weak = std::weak_ptr(*to.place)](Impl& self, std::size_t sent) {
      const auto connection = weak.lock();
      if (!connection || !connection->list) return;
      self.move(*connection, self.answered_);
      self.answeredBytes_ -= sent;
      connection->unsent -= sent;
      if (connection->unsent == 0) self.isSent(*connection);
    };
    to.tcp->send(std::move(text), weakly(this, onSent));
    updatePause();
  }

  /// To close while the caller sends would reset the connection, and it could lose the response.
  void isSent(Connection& done) {
    if (!done.mayStillSend && !done.tcp->hasUnread()) return close(done);
    done.tcp->closeGently(weakly(this, [weak = std::weak_ptr(*done.place)](Impl& self) {
      const auto connection = weak.lock();
      if (connection && connection->list) self.close(*connection);
    }));
  }

  /// Behind all others of the list.
  void move(Connection& connection, List& to) {
    connection.lastActive = ++activity_;
    to.splice(to.end(), *connection.list, connection.place);
    connection.list = &to;
  }

  /// Of those that wait for their caller; the newest stays.
  void closeOldest() {
    const auto instant = [](const List& list) {
      return list.empty() ? UINT64_MAX : list.front()->lastActive;
    };
    const auto& list = instant(reading_) < instant(answered_) ? reading_ : answered_;
    if (instant(list) < activity_) close(*list.front());
  }

  void close(Connection& connection) {
    const auto kept = *connection.place;
    if (kept->list == &reading_) readingBytes_ -= kept->reader.size();
    if (kept->list == &answered_) answeredBytes_ -= kept->unsent;
    servingBytes_ -= std::exchange(kept->served, 0);
    kept->tcp->close();
    kept->list->erase(kept->place);
    kept->list = nullptr;
    --count_;
    updatePause();
    if (count_ == 0 && ended_) std::exchange(ended_, nullptr)->set_value();
  }

  void answerAll(const std::shared_ptr<std::promise<void>>& ended) {
    if (count_ == 0) return ended->set_value();
    ended_ = ended;
    while (!serving_.empty()) answer(*serving_.front(), unavailable());
  }

  void closeAll(List& list) {
    while (!list.empty()) close(*list.front());
  }

  /// Nothing is accepted while all connections wait for the gateway itself, or their requests fill
  /// the memory that there is for them.
  void updatePause() {
    const bool isFull = serving_.size() >= mostConnections || servingBytes_ >= mostBytes;
    if (std::exchange(isFull_, isFull) == isFull) return;
    if (const auto listener = accepting_.lock()) listener->setPaused(isFull);
  }

  MainQueue& main_;
  GatewayServer* server_;
  std::shared_ptr<TcpListener> listener_;
  State state_;
  int turn_ = 0;                        // of starting and stopping
  std::optional<SocketThread> thread_;  // from the first start on

  std::weak_ptr<TcpListener> accepting_;
  // Each with the one that has been silent longest first.
  List reading_;
  List serving_;   // the main queue has the request
  List answered_;  // until the response has gone out
  std::size_t count_ = 0;
  std::size_t readingBytes_ = 0;
  std::size_t servingBytes_ = 0;
  std::size_t answeredBytes_ = 0;
  std::uint64_t activity_ = 0;
  bool isFull_ = false;
  std::shared_ptr<std::promise<void>> ended_;  // at the end of the server
};

GatewayServer::GatewayServer(MainQueue& main) : impl_(std::make_shared<Impl>(main, *this)) {}
GatewayServer::~GatewayServer() {
  impl_->end();
}

std::expected<void, TcpError> GatewayServer::start(const std::string& address, std::uint16_t port) {
  return impl_->start(address, port);
}
void GatewayServer::stop() {
  impl_->stop();
}
const GatewayServer::State& GatewayServer::state() const {
  return impl_->state();
}
std::uint16_t GatewayServer::port() const {
  return impl_->port();
}

}  // namespace vantrell
