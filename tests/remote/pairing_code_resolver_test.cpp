// What a relay may answer to a pairing code, and that a look-up ends in each case. The relay is a
// real WebSocket server on this machine.
#include "remote/client/pairing_code_resolver.h"

#include <fmt/format.h>
#include <gmock/gmock.h>

#include "platform/queues/manual_main_queue.h"
#include "platform/sockets/web_socket.h"

namespace vantrell {
namespace {

using Kind = RemotePairingCodeError::Kind;
using Result = std::expected<std::string, RemotePairingCodeError>;

class RemotePairingCodeResolverTest : public ::testing::Test {
 protected:
  RemotePairingCodeResolverTest() {
    listener_->start(queue_,
                     {.onRequest = [](const WebSocketRequest&) { return WebSocketLimits(); },
                      .onOpen = [this](std::shared_ptr<WebSocket> socket,
                                       const WebSocketRequest&) { serve(socket); }});
  }
  ~RemotePairingCodeResolverTest() override { listener_->close(); }

  /// On the relay's queue.
  void serve(const std::shared_ptr<WebSocket>& socket) {
    socket->start({.onText =
                       [this, socket](const std::string& text) {
                         main_.post([this, text] { requests_.push_back(text); });
                         socket->sendBinary("bytes say nothing");
                         for (const auto& answer : answers_) socket->sendText(answer);
                         if (answers_.empty() && closes_) socket->close(1011, "busy");
                       },
                   .onEnd =
                       [this](const WebSocketEnd& end) {
                         main_.post(
                             [this, code = end.closeCode] { closeCode_ = code.value_or(0); });
                       }});
  }
  Url relay() const {
    return *Url::parse(fmt::format("ws://127.0.0.1:{}/remote/connect", listener_->port()));
  }
  void begin(std::string_view code) {
    result_.reset();
    resolver_.resolve(code, relay(), [this](Result result) { result_ = std::move(result); });
  }
  Result answerTo(std::vector<std::string> answers) {
    queue_.post([this, answers = std::move(answers)] { answers_ = answers; });
    closeCode_.reset();
    begin("abcd-2345");
    EXPECT_TRUE(main_.runUntil([&] { return result_.has_value(); }));
    return result_.value_or("no answer");
  }

  ManualMainQueue main_;
  BackgroundPool pool_{2};
  SerialQueue queue_{pool_, "relay"};
  std::shared_ptr<WebSocketListener> listener_ = *WebSocketListener::bind({});
  std::vector<std::string> answers_;  // set while no look-up runs
  bool closes_ = false;               // the same
  std::vector<std::string> requests_;
  std::optional<int> closeCode_;
  std::optional<Result> result_;
  RemotePairingCodeResolver resolver_{main_, pool_};
};

TEST_F(RemotePairingCodeResolverTest, AsksForTheLinkAndLeaves) {
  const auto link = answerTo({R"({"type":"news"})", R"({"type":"pairing_link"})",
                              R"({"type":"pairing_link","link":"vantrell://pair?"})"});
  EXPECT_EQ(link, "vantrell://pair?");
  EXPECT_THAT(requests_,
              ::testing::ElementsAre(R"({"version":1,"role":"resolve","code":"ABCD2345"})"));
  EXPECT_TRUE(main_.runUntil([&] { return closeCode_.has_value(); }));
  EXPECT_EQ(closeCode_, 1000);
  EXPECT_FALSE(main_.hasTimers());
}

TEST_F(RemotePairingCodeResolverTest, SaysWhyThereIsNoLink) {
  const std::pair<std::string, std::string> refusals[] = {
      {R"({"type":"error","message":"Too many."})", "Too many."},
      {R"({"type":"error"})", "The relay could not resolve this pairing code."},
      {"[1]", "The relay's answer cannot be read."},
      {"hello", "The relay's answer cannot be read."},
  };
  for (const auto& [answer, text] : refusals) {
    const auto result = answerTo({answer});
    ASSERT_FALSE(result) << answer;
    EXPECT_EQ(result.error().description, text);
  }
  closes_ = true;
  const auto closed = answerTo({});
  ASSERT_FALSE(closed);
  EXPECT_EQ(closed.error().kind, Kind::transport);
  EXPECT_NE(closed.error().description, "");

  begin("ABCD234O");
  main_.runReady();
  EXPECT_EQ(result_->error().kind, Kind::invalidCode);
}

TEST_F(RemotePairingCodeResolverTest, GivesUpOnASilentRelay) {
  begin("ABCD2345");
  ASSERT_TRUE(main_.runUntil([&] { return !requests_.empty(); }));
  main_.advance(std::chrono::milliseconds(14'999));
  EXPECT_FALSE(result_);
  main_.advance(std::chrono::milliseconds(1));
  ASSERT_TRUE(result_);
  EXPECT_EQ(result_->error().description,
            "The pairing code lookup timed out. Check the connection and try again.");
}

TEST_F(RemotePairingCodeResolverTest, OneThatWasReplacedAnswersNothing) {
  bool answered = false;
  resolver_.resolve("ABCD2345", relay(), [&](const Result&) { answered = true; });
  ASSERT_TRUE(main_.runUntil([&] { return !requests_.empty(); }));
  EXPECT_EQ(answerTo({R"({"type":"pairing_link","link":"second"})"}), "second");
  EXPECT_FALSE(answered);
  begin("ABCD2345");
  resolver_.cancel();
  main_.advance(std::chrono::seconds(20));
  EXPECT_FALSE(result_);
}

}  // namespace
}  // namespace vantrell
