// QR codes (libqrencode). Pure functions, any thread.
#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace vantrell {

/// A square of dark and light modules, with error correction of level M. A value.
class QrCode {
 public:
  /// nullopt for an empty text, and for more than 2331 bytes, which no code holds.
  static std::optional<QrCode> encode(std::string_view bytes);

  /// Modules on each side, without the light border that a reader needs (`border`).
  int size() const { return size_; }
  /// False outside of the square.
  bool isDark(int x, int y) const;

  static constexpr int border = 4;  // modules

  /// For a terminal, a character for two modules on top of each other; each line ends with a line
  /// feed. With colours it is black on white; without, the light modules are drawn, as for a dark
  /// terminal.
  std::string terminalText(bool hasColours) const;

 private:
  int size_ = 0;
  std::vector<bool> dark_;  // row by row
};

}  // namespace vantrell
