// Puts the messages of a byte stream together, on either end of a direct connection. Belongs to the
// connection and its queue; it holds at most one frame and one read. After a failure the position
// in the stream is lost, so the connection must end: every further call returns the same failure.
//
//   reader.append(bytes);
//   for (;;) {
//     auto next = reader.next();
//     if (!next) return close(next.error());
//     if (!*next) break;  // the rest comes with a later read
//     handle(std::move(**next));
//   }
#pragma once

#include <expected>
#include <optional>
#include <string>
#include <string_view>

#include "remote/protocol/remote_crypto.h"
#include "remote/protocol/remote_envelope.h"

namespace vantrell {

/// Decrypts a body and reads the message in it. The binary messages of a relay are such bodies:
/// they have no length prefix.
std::expected<RemoteEnvelope, RemoteFailure> openEnvelope(RemoteCrypto& crypto,
                                                          std::string_view body);

class FrameReader {
 public:
  /// The most that a connection is to read at once, in bytes.
  static constexpr std::size_t longestRead = 65'536;

  explicit FrameReader(std::string_view keyData) : crypto_(keyData) {}

  void append(std::string_view bytes);
  /// The next whole message; nullopt until more bytes come. Call until then before the next
  /// append().
  std::expected<std::optional<RemoteEnvelope>, RemoteFailure> next();
  /// Bytes held that are no whole message yet.
  std::size_t heldBytes() const { return buffer_.size(); }

 private:
  RemoteCrypto crypto_;
  std::string buffer_;
  std::size_t taken_ = 0;  // bytes at the front of the buffer that have been read
  std::optional<RemoteFailure> failure_;
};

}  // namespace vantrell
