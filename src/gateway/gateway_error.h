// Why the gateway refuses a request: an HTTP status, a code for programs and a sentence for people.
#pragma once

#include <expected>
#include <string>

namespace vantrell {

struct GatewayError {
  int status = 500;
  std::string code;
  std::string message;

  bool operator==(const GatewayError&) const = default;
};

template <typename T = void>
using GatewayResult = std::expected<T, GatewayError>;

inline std::unexpected<GatewayError> refuseRequest(int status, std::string code,
                                                   std::string message) {
  return std::unexpected(GatewayError{status, std::move(code), std::move(message)});
}

}  // namespace vantrell
