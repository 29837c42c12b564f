// Reads one HTTP/1.1 request from the bytes of a connection as they arrive. Pure, any thread; the
// work is linear in the bytes however they are cut into pieces. Only a length that cannot be is
// refused before the body has come: of a request that ends early nothing else is judged.
//
// It is strict about what it takes and has no support for chunked bodies. Of two headers of the
// same name the last one counts. Lines end with CR LF: a bare LF or a NUL is part of its line.
#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>

#include "gateway/gateway_message.h"

namespace vantrell {

class RequestReader {
 public:
  static constexpr std::size_t longestBody = 1'048'576;
  static constexpr std::size_t longestMessage = longestBody + 16'384;

  enum class State {
    incomplete,
    complete,
    tooLarge,  // more than `longestMessage` bytes
    invalid
  };
  /// Must not be called again after another state than `incomplete`.
  State append(std::string_view bytes);
  /// When complete: whether bytes after its end have come, which are ignored.
  bool hasMore() const { return buffer_.size() > *body_ + bodySize_; }
  /// The request; once, when complete.
  GatewayRequest take();
  /// The bytes that are held.
  std::size_t size() const { return buffer_.empty() ? 0 : buffer_.capacity(); }

 private:
  std::string buffer_;
  std::size_t searched_ = 0;         // no end of the head begins before
  std::optional<std::size_t> body_;  // where it begins, once the head is there
  std::size_t bodySize_ = 0;
  GatewayRequest request_;  // without its body, once complete
};

}  // namespace vantrell
