// Where one conversation stands with its runtime.
#pragma once

#include <string>

namespace vantrell {

struct ConnectionState {
  enum class Kind { idle, connecting, ready, working, failed };

  Kind kind = Kind::idle;
  std::string text;  // of a failure

  static ConnectionState idle() { return {}; }
  static ConnectionState connecting() { return {Kind::connecting, {}}; }
  static ConnectionState ready() { return {Kind::ready, {}}; }
  static ConnectionState working() { return {Kind::working, {}}; }
  static ConnectionState failed(std::string text) { return {Kind::failed, std::move(text)}; }

  /// A prompt given now is queued, and nothing that shapes the session may change.
  bool isBusy() const { return kind == Kind::connecting || kind == Kind::working; }

  bool operator==(const ConnectionState&) const = default;
};

}  // namespace vantrell
