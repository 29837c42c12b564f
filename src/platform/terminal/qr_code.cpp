#include "platform/terminal/qr_code.h"

#include <memory>
#include <qrencode.h>

namespace vantrell {

std::optional<QrCode> QrCode::encode(std::string_view bytes) {
  // Of the largest code. The library takes a length of its own type.
  constexpr std::size_t most = 2331;
  if (bytes.empty() || bytes.size() > most) return std::nullopt;
  const std::unique_ptr<QRcode, decltype(&QRcode_free)> made(
      QRcode_encodeData(static_cast<int>(bytes.size()),
                        reinterpret_cast<const unsigned char*>(bytes.data()), 0, QR_ECLEVEL_M),
      QRcode_free);
  if (!made) return std::nullopt;
  QrCode code;
  code.size_ = made->width;
  code.dark_.reserve(static_cast<std::size_t>(made->width) * static_cast<std::size_t>(made->width));
  for (int i = 0; i < made->width * made->width; ++i) code.dark_.push_back(made->data[i] & 1);
  return code;
}

bool QrCode::isDark(int x, int y) const {
  if (x < 0 || y < 0 || x >= size_ || y >= size_) return false;
  return dark_[static_cast<std::size_t>(y) * static_cast<std::size_t>(size_) +
               static_cast<std::size_t>(x)];
}

std::string QrCode::terminalText(bool hasColours) const {
  // By what is drawn of the upper and of the lower module.
  constexpr std::string_view blocks[2][2] = {{" ", "\u2584"}, {"\u2580", "\u2588"}};
  std::string text;
  for (int y = -border; y < size_ + border; y += 2) {
    // Bright white behind black, which themes of terminals leave alone more than the plain ones.
    if (hasColours) text += "\x1b[38;5;16;48;5;231m";
    for (int x = -border; x < size_ + border; ++x) {
      const bool upper = isDark(x, y) == hasColours;
      const bool isBelow = y + 1 >= size_ + border;  // the last line may have half a row too many
      const bool lower = isBelow ? false : isDark(x, y + 1) == hasColours;
      text += blocks[upper][lower];
    }
    text += hasColours ? "\x1b[0m\n" : "\n";
  }
  return text;
}

}  // namespace vantrell
