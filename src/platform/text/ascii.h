// The letters and digits of ASCII, for the readers and writers of formats that know no others: the
// library's functions for them go by the locale. Pure functions, any thread.
#pragma once

namespace vantrell::ascii {

constexpr bool isDigit(char c) {
  return c >= '0' && c <= '9';
}
constexpr bool isAlphanumeric(char c) {
  return isDigit(c) || (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z');
}
/// The value of a hexadecimal digit in either case of letters, or -1.
constexpr int hexDigit(char c) {
  if (isDigit(c)) return c - '0';
  if (c >= 'a' && c <= 'f') return c - 'a' + 10;
  if (c >= 'A' && c <= 'F') return c - 'A' + 10;
  return -1;
}

}  // namespace vantrell::ascii
