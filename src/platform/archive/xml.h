// Reads small XML documents of others. A document type declaration is refused, and with it every
// entity of its own, which could make a short text long or name a file. Pure, any thread; libexpat
// is loaded at the first use.
#pragma once

#include <expected>
#include <map>
#include <string>
#include <string_view>
#include <vector>

namespace vantrell {

struct XmlElement {
  std::string name;                               // without the prefix of its namespace
  std::map<std::string, std::string> attributes;  // likewise
  std::string text;                               // its own, in order
  std::vector<XmlElement> children;

  /// The first child of that name; null without one.
  const XmlElement* child(std::string_view name) const;
  /// The attribute, or nothing.
  std::string attribute(const std::string& name) const;
};

namespace xml {
inline constexpr int deepest = 64;  // levels of elements

/// The root element. The error is a sentence that names the line.
std::expected<XmlElement, std::string> parse(std::string_view document);
}  // namespace xml

}  // namespace vantrell
