// URLs with a host, as people type them into settings and programs send them. A value, immutable;
// any thread. Reading is strict (RFC 3986): what two readers could understand differently, so that
// one judges a host and the other connects to another one, is refused.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace vantrell {

/// The text with each byte as "%2F" that is neither an ASCII letter or digit nor in `plain`.
std::string percentEncoded(std::string_view text, std::string_view plain);

class Url {
 public:
  /// nullopt for text that is not a URL or lacks a scheme or a host. White space around it is the
  /// caller's to trim.
  static std::optional<Url> parse(std::string_view text);

  /// As it was given, but for the changes below.
  std::string text() const { return beforePath_ + path_ + afterPath_; }
  /// Lower-cased, without the colon.
  const std::string& scheme() const { return scheme_; }
  /// Lower-cased; an IPv6 address without its brackets.
  const std::string& host() const { return host_; }
  /// As written, or the scheme's own for http, https, ws and wss.
  std::optional<std::uint16_t> port() const { return port_; }
  /// For sentences and logs: "localhost:8080", "[::1]:80". Never the path or a password, which may
  /// be secrets.
  std::string hostAndPort() const;
  /// Percent-encoded; empty or with a leading slash.
  const std::string& path() const { return path_; }
  /// What stands behind the question mark, cut at "&" and decoded; "+" is a plus sign. An item
  /// without "=" has no value.
  struct QueryItem {
    std::string name;
    std::optional<std::string> value;
  };
  std::vector<QueryItem> queryItems() const;

  bool operator==(const Url&) const = default;

  /// What a request line names: path (at least "/") and query, without the fragment.
  std::string pathAndQuery() const;

  /// Decoded; a slash at the end of the path does not count. Empty when there is none.
  std::string lastPathComponent() const;
  /// With the components after the path, one slash between; a query and a fragment stay after
  /// them. The components are taken as they stand.
  Url appendingPath(std::string_view components) const;
  /// Without the last component of the path; the slash in front of it stays.
  Url deletingLastPathComponent() const;

 private:
  Url() = default;
  std::string beforePath_;  // "http://host:1"
  std::string path_;
  std::string afterPath_;  // "?query#fragment"
  std::string scheme_;
  std::string host_;
  std::optional<std::uint16_t> port_;
};

/// With every "%41" replaced by the byte that it stands for; a text in which a percent sign stands
/// for itself comes back as it is.
std::string percentDecoded(std::string_view text);

}  // namespace vantrell
