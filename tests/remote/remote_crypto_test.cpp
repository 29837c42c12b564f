// Frames: what is sealed opens again, what was not sealed under the key never does, and a stream of
// frames comes out whole however it was cut.
#include "remote/protocol/remote_crypto.h"

#include <functional>
#include <gmock/gmock.h>

#include "platform/crypto/crypto.h"
#include "remote/protocol/frame_reader.h"

namespace vantrell {
namespace {

using Error = RemoteCryptoError;

std::string bytes(std::initializer_list<int> values) {
  std::string text;
  for (const int value : values) text += static_cast<char>(value);
  return text;
}

std::string countingKey() {
  std::string key;
  for (int i = 0; i < 32; ++i) key += static_cast<char>(i);
  return key;
}

TEST(RemoteCryptoTest, OpensWhatOtherImplementationsSeal) {
  // Test case 14 of the GCM specification: key, nonce and plaintext all zero.
  const std::string body =
      std::string(12, '\0') + *crypto::fromBase64("zqdAPU1ga24HTsXTuvOdGNDRyKeZmWvwJluYtdSKuRk=");
  EXPECT_EQ(RemoteCrypto(std::string(32, '\0')).open(body), std::string(16, '\0'));
  EXPECT_EQ(RemoteCrypto::pairID(countingKey()), "Yw3NKWbEM2aRElRIu7JbTw");
}

TEST(RemoteCryptoTest, SealsWithAFreshNonceAndOpensAgain) {
  RemoteCrypto host(countingKey());
  RemoteCrypto client(countingKey());
  for (const auto size : {0u, 1u, 16u, 65'536u}) {
    const std::string plaintext(size, 'x');
    const auto frame = *host.seal(plaintext);
    EXPECT_NE(frame, *host.seal(plaintext));
    const auto body = frame.substr(4);
    EXPECT_EQ(body.size(), size + 28);
    EXPECT_EQ(RemoteCrypto::frameLength(frame.substr(0, 4)), body.size());
    EXPECT_EQ(client.open(body), plaintext);
  }
  EXPECT_NE(RemoteCrypto::makeKey(), RemoteCrypto::makeKey());
}

TEST(RemoteCryptoTest, NothingElseOpens) {
  RemoteCrypto crypto(countingKey());
  const auto body = crypto.seal("a prompt")->substr(4);
  for (std::size_t bit = 0; bit < body.size() * 8; ++bit) {
    auto changed = body;
    changed[bit / 8] = static_cast<char>(changed[bit / 8] ^ (1 << bit % 8));
    EXPECT_FALSE(crypto.open(changed)) << bit;
  }
  const auto wrongKey = RemoteCrypto(RemoteCrypto::makeKey()).open(body);
  ASSERT_FALSE(wrongKey);
  EXPECT_FALSE(wrongKey.error().crypto);  // the cipher's own error
  EXPECT_EQ(crypto.open(body.substr(0, 27)).error().crypto, Error::invalidFrame);
  EXPECT_FALSE(crypto.open(body.substr(0, 30)));
  EXPECT_EQ(crypto.open(body), "a prompt");  // after all that
}

TEST(RemoteCryptoTest, KeysMustHave32Bytes) {
  for (const auto size : {0u, 31u, 33u}) {
    RemoteCrypto crypto{std::string(size, 'k')};
    EXPECT_EQ(crypto.seal("").error().crypto, Error::invalidKey);
    EXPECT_EQ(crypto.open(std::string(28, '\0')).error().description,
              "The remote pairing key is invalid.");
  }
}

TEST(RemoteCryptoTest, FramesHaveAtMost16MiB) {
  RemoteCrypto crypto(countingKey());
  const std::string longest(16'777'188, 'x');
  const auto frame = crypto.seal(longest);
  ASSERT_TRUE(frame);
  EXPECT_EQ(frame->substr(0, 4), bytes({1, 0, 0, 0}));
  EXPECT_EQ(crypto.open(std::string_view(*frame).substr(4)), longest);
  EXPECT_EQ(crypto.seal(longest + "x").error().description, "The remote message is too large.");
  EXPECT_EQ(crypto.open(std::string(16'777'217, 'x')).error().crypto, Error::invalidFrame);

  const auto length = [](const std::string& prefix) { return RemoteCrypto::frameLength(prefix); };
  EXPECT_EQ(length(bytes({0, 0, 0, 1})), 1u);
  EXPECT_EQ(length(bytes({0, 1, 2, 3})), 66'051u);
  EXPECT_EQ(length(bytes({1, 0, 0, 0})), 16'777'216u);
  for (const auto& prefix :
       {bytes({0, 0, 0, 0}), bytes({1, 0, 0, 1}), bytes({255, 255, 255, 255})}) {
    EXPECT_EQ(length(prefix).error().crypto, Error::oversizedFrame);
  }
  EXPECT_EQ(length("abc").error().crypto, Error::invalidFrame);
}

// ---- streams
// -------------------------------------------------------------------------------------

struct Read {
  std::vector<std::string> types;  // of the messages, in order
  std::optional<RemoteFailure> failure;
};

Read readAll(FrameReader& reader, std::string_view stream, std::size_t piece) {
  Read read;
  for (std::size_t at = 0; at < stream.size(); at += piece) {
    reader.append(stream.substr(at, piece));
    for (;;) {
      const auto next = reader.next();
      if (!next) read.failure = next.error();
      if (!next || !*next) break;
      read.types.push_back((*next)->type);
    }
  }
  return read;
}

class FrameReaderTest : public ::testing::Test {
 protected:
  std::string frame(RemoteMessageType type, std::size_t textLength = 0) {
    auto envelope = RemoteEnvelope::make(type);
    envelope.text = std::string(textLength, 't');
    return *crypto_.seal(encode(envelope));
  }

  RemoteCrypto crypto_{countingKey()};
  FrameReader reader_{countingKey()};
};

TEST_F(FrameReaderTest, DeliversEachFrameOnceHoweverTheStreamIsCut) {
  const auto stream = frame(RemoteMessageType::hello) + frame(RemoteMessageType::prompt, 300) +
                      frame(RemoteMessageType::refresh);
  for (const std::size_t piece : {1uz, 3uz, 4uz, 5uz, 150uz, stream.size()}) {
    const auto read = readAll(reader_, stream, piece);
    EXPECT_THAT(read.types, ::testing::ElementsAre("hello", "prompt", "refresh")) << piece;
    EXPECT_FALSE(read.failure);
  }
  const auto large = frame(RemoteMessageType::prompt, 3'000'000);
  EXPECT_THAT(readAll(reader_, large + stream, FrameReader::longestRead).types,
              ::testing::ElementsAre("prompt", "hello", "prompt", "refresh"));
}

TEST_F(FrameReaderTest, NothingIsReadAfterABadFrame) {
  const auto good = frame(RemoteMessageType::hello);
  auto changed = good;
  changed.back() ^= 1;
  const std::pair<std::string, std::string> bad[] = {
      {"a changed byte", changed},
      {"another key", *RemoteCrypto(RemoteCrypto::makeKey()).seal("{}")},
      {"no message", *crypto_.seal("{}")},
      {"no JSON", *crypto_.seal("hello")},
      {"no room for nonce and tag", bytes({0, 0, 0, 27}) + std::string(27, 'x')},
      {"no length", bytes({0, 0, 0, 0})},
      {"too long a length", bytes({1, 0, 0, 1})},
  };
  for (const auto& [what, stream] : bad) {
    FrameReader reader(countingKey());
    const auto read = readAll(reader, good + stream + good, 1000);
    EXPECT_THAT(read.types, ::testing::ElementsAre("hello")) << what;
    EXPECT_TRUE(read.failure) << what;
    EXPECT_THAT(readAll(reader, good, 1000).types, ::testing::IsEmpty()) << what;
  }
}

}  // namespace
}  // namespace vantrell
