// The bytes of a direct connection, from someone without the key and from someone with it. The
// first byte of an input says into which pieces the stream is cut, the second whether the rest is
// raw, or is the plaintext of a frame between two good ones.
//
// However it was cut, a stream gives the same messages and the same failure; nothing comes after a
// failure; raw bytes give no message at all; and what was read as a message is written so that it
// reads the same.
#include <cstdint>
#include <cstdlib>
#include <vector>

#include "remote/protocol/frame_reader.h"

namespace {

using namespace vantrell;

const std::string key(32, 'k');

void require(bool holds) {
  if (!holds) std::abort();
}

struct Read {
  std::vector<RemoteEnvelope> envelopes;
  std::string failure;
  bool operator==(const Read&) const = default;
};

Read read(std::string_view stream, std::size_t piece) {
  Read read;
  FrameReader reader(key);
  for (std::size_t at = 0; at < stream.size(); at += piece) {
    reader.append(stream.substr(at, piece));
    for (;;) {
      auto next = reader.next();
      if (!next) read.failure = next.error().description;
      if (!next || !*next) break;
      require(read.failure.empty());
      read.envelopes.push_back(std::move(**next));
    }
  }
  return read;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  if (size < 2) return 0;
  const std::string_view input(reinterpret_cast<const char*>(data + 2), size - 2);
  const std::size_t piece = 1 + data[0] % 50;
  const bool isRaw = data[1] % 4 == 0;
  static RemoteCrypto crypto(key);
  const auto good = *crypto.seal(encode(RemoteEnvelope::make(RemoteMessageType::hello)));
  const auto middle = isRaw ? std::string(input) : *crypto.seal(input);
  const auto whole = read(good + middle + good, good.size() * 2 + middle.size());
  require(whole == read(good + middle + good, piece));

  require(!whole.envelopes.empty() && whole.envelopes.front().type == "hello");
  if (isRaw) return 0;
  const auto alone = decodeEnvelope(input);
  require(whole.envelopes.size() == (alone ? 3 : 1));
  require(whole.failure.empty() == alone.has_value());
  if (alone) {
    require(alone->id.size() <= RemoteEnvelope::longestID);
    const auto again = decodeEnvelope(encode(*alone));
    require(again && *again == *alone);
  }
  return 0;
}
