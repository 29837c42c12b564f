#include "gateway/gateway_message.h"

namespace vantrell {

namespace {

constexpr std::string_view lineEnd = "\r\n";

template <typename Body>
void forEachHeader(std::string_view lines, Body&& body) {
  while (!lines.empty()) {
    const auto line = lines.substr(0, lines.find(lineEnd));
    const auto colon = line.find(':');
    body(GatewayHeaders::Header(line.substr(0, colon), line.substr(colon + 1)));
    lines.remove_prefix(line.size() + lineEnd.size());
  }
}

}  // namespace

GatewayHeaders::GatewayHeaders(std::initializer_list<Header> all) {
  for (const auto& [name, value] : all) add(name, value);
}

void GatewayHeaders::add(std::string_view name, std::string_view value) {
  lines_.append(name).append(":").append(value).append(lineEnd);
}

std::vector<GatewayHeaders::Header> GatewayHeaders::all() const {
  std::vector<Header> all;
  forEachHeader(lines_, [&](const Header& header) { all.push_back(header); });
  return all;
}

std::optional<std::string_view> GatewayHeaders::find(std::string_view name) const {
  std::optional<std::string_view> found;
  forEachHeader(lines_, [&](const Header& header) {
    if (header.first == name) found = header.second;
  });
  return found;
}

GatewayResponse GatewayResponse::json(const Json& value, int status) {
  return {.status = status, .body = vantrell::json::writeSorted(value)};
}

GatewayResponse GatewayResponse::error(int status, std::string_view code,
                                       std::string_view message) {
  return json(JsonObject{{"error", JsonObject{{"code", code}, {"message", message}}}}, status);
}

}  // namespace vantrell
