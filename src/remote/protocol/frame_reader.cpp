#include "remote/protocol/frame_reader.h"

namespace vantrell {

std::expected<RemoteEnvelope, RemoteFailure> openEnvelope(RemoteCrypto& crypto,
                                                          std::string_view body) {
  const auto plaintext = crypto.open(body);
  if (!plaintext) return std::unexpected(plaintext.error());
  auto envelope = decodeEnvelope(*plaintext);
  if (!envelope) {
    return std::unexpected(
        RemoteFailure("The remote message cannot be read (" + envelope.error().text() + ")."));
  }
  return std::move(*envelope);
}

void FrameReader::append(std::string_view bytes) {
  if (!failure_) buffer_ += bytes;
}

std::expected<std::optional<RemoteEnvelope>, RemoteFailure> FrameReader::next() {
  if (failure_) return std::unexpected(*failure_);
  const auto fail = [this](const RemoteFailure& failure) {
    failure_ = failure;
    buffer_ = std::string();
    return std::unexpected(failure);
  };
  const auto waiting = std::string_view(buffer_).substr(taken_);
  std::size_t wanted = RemoteCrypto::prefixSize;
  if (waiting.size() >= wanted) {
    const auto length = RemoteCrypto::frameLength(waiting.substr(0, wanted));
    if (!length) return fail(length.error());
    wanted += *length;
    if (waiting.size() >= wanted) {
      auto envelope = openEnvelope(crypto_, waiting.substr(RemoteCrypto::prefixSize, *length));
      if (!envelope) return fail(envelope.error());
      taken_ += wanted;
      return std::move(*envelope);
    }
  }
  // What has been read goes once for all frames of a read. A long frame gets its room at once,
  // which the system provides as it fills, and gives it back.
  buffer_.erase(0, taken_);
  taken_ = 0;
  if (buffer_.empty() && buffer_.capacity() > 4 * longestRead) buffer_ = std::string();
  if (wanted > buffer_.capacity()) buffer_.reserve(wanted + longestRead);
  return std::nullopt;
}

}  // namespace vantrell
