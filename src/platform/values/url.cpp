#include "platform/values/url.h"

// The library is compiled into this file: Debian's package of it would be one more to install.
#include <boost/url/src.hpp>
#include <charconv>
#include <fmt/format.h>

#include "platform/text/ascii.h"
#include "platform/text/text.h"

namespace vantrell {

namespace {

std::optional<std::uint16_t> defaultPort(std::string_view scheme) {
  if (scheme == "http" || scheme == "ws") return 80;
  if (scheme == "https" || scheme == "wss") return 443;
  return std::nullopt;
}

/// The path without the slashes at its end, but for one that is all of it.
std::string_view withoutSlashAtEnd(std::string_view path) {
  while (path.size() > 1 && path.ends_with('/')) path.remove_suffix(1);
  return path;
}

std::string_view encodedLastComponent(std::string_view path) {
  path = withoutSlashAtEnd(path);
  return path.substr(path.rfind('/') + 1);
}

}  // namespace

std::string percentEncoded(std::string_view text, std::string_view plain) {
  std::string encoded;
  for (const char c : text) {
    if (ascii::isAlphanumeric(c) || plain.contains(c)) {
      encoded += c;
    } else {
      encoded += fmt::format("%{:02X}", static_cast<unsigned char>(c));
    }
  }
  return encoded;
}

std::optional<Url> Url::parse(std::string_view text) {
  // Boost 1.81 ends the program over some URLs without "//" ("a:\"").
  const auto colon = text.find(':');
  if (colon == text.npos || !text.substr(colon).starts_with("://")) return std::nullopt;
  const auto parsed = boost::urls::parse_uri({text.data(), text.size()});
  if (!parsed || !parsed->has_authority()) return std::nullopt;
  const boost::urls::url_view view = *parsed;

  Url url;
  url.scheme_ = text::lowercased(std::string_view(view.scheme()));
  // An encoded host could hide a character that ends the name for one reader and not for another.
  const std::string_view host = view.encoded_host_address();
  if (host.empty() || host.contains('%')) return std::nullopt;
  url.host_ = text::lowercased(host);

  url.port_ = defaultPort(url.scheme_);
  if (const std::string_view port = view.port(); !port.empty()) {
    std::uint16_t number = 0;
    const auto end = port.data() + port.size();
    if (const auto read = std::from_chars(port.data(), end, number);
        read.ec != std::errc() || read.ptr != end) {
      return std::nullopt;
    }
    url.port_ = number;
  }

  url.path_ = std::string_view(view.encoded_path());
  // Boost 1.81 takes what cannot belong to a port for a path: "//host:8o", "//a@b:c@d".
  if (!url.path_.empty() && !url.path_.starts_with('/')) return std::nullopt;
  const std::string_view origin = view.encoded_origin();
  url.beforePath_ = origin;
  url.afterPath_ = text.substr(origin.size() + url.path_.size());
  return url;
}

std::string Url::hostAndPort() const {
  const bool isIPv6 = host_.contains(':');
  const std::string host = isIPv6 ? "[" + host_ + "]" : host_;
  return port_ ? fmt::format("{}:{}", host, *port_) : host;
}

std::vector<Url::QueryItem> Url::queryItems() const {
  std::vector<QueryItem> items;
  const std::string_view query = std::string_view(afterPath_).substr(0, afterPath_.find('#'));
  if (!query.starts_with('?')) return items;
  for (const auto part : text::split(query.substr(1), '&')) {
    if (part.empty()) continue;
    const auto equals = part.find('=');
    auto& item = items.emplace_back(percentDecoded(part.substr(0, equals)));
    if (equals != part.npos) item.value = percentDecoded(part.substr(equals + 1));
  }
  return items;
}

std::string Url::pathAndQuery() const {
  return (path_.empty() ? "/" : path_) + afterPath_.substr(0, afterPath_.find('#'));
}

std::string Url::lastPathComponent() const {
  const auto encoded = encodedLastComponent(path_);
  return boost::urls::pct_string_view(encoded.data(), encoded.size()).decode();
}

Url Url::appendingPath(std::string_view components) const {
  Url longer = *this;
  if (!longer.path_.ends_with('/')) longer.path_ += '/';
  longer.path_ += components;
  return longer;
}

Url Url::deletingLastPathComponent() const {
  Url shorter = *this;
  const auto path = withoutSlashAtEnd(path_);
  shorter.path_ = path.substr(0, path.size() - encodedLastComponent(path).size());
  return shorter;
}

std::string percentDecoded(std::string_view text) {
  const auto encoded = boost::urls::make_pct_string_view({text.data(), text.size()});
  return encoded ? encoded->decode() : std::string(text);
}

}  // namespace vantrell
