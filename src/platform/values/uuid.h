// Identifiers: random UUIDs, shown upper-case.
#pragma once

#include <array>
#include <compare>
#include <cstdint>
#include <functional>
#include <optional>
#include <span>
#include <string>
#include <string_view>

namespace vantrell {

class Uuid {
 public:
  /// The nil UUID.
  constexpr Uuid() = default;
  /// A fresh random (version 4) UUID from the system's generator. Any thread.
  static Uuid random();
  /// Fills all of them with fresh ones, in few calls of the generator. Any thread.
  static void random(std::span<Uuid> ids);
  /// Reads the 36-character form in either case of letters; nullopt for anything else.
  static std::optional<Uuid> parse(std::string_view text);
  /// The 36-character upper-case form.
  std::string text() const;

  constexpr auto operator<=>(const Uuid&) const = default;
  std::size_t hash() const noexcept;

 private:
  std::array<std::uint8_t, 16> bytes_{};
};

}  // namespace vantrell

template <>
struct std::hash<vantrell::Uuid> {
  std::size_t operator()(const vantrell::Uuid& id) const noexcept { return id.hash(); }
};
