// Requests to the gateway. The first byte of an input says into which pieces the rest is cut.
//
// Cut or whole, the bytes are read alike, and what is read obeys the rules: a path without a query,
// names in lower case, no line end of a header in it, and the body that the last length names.
#include <algorithm>
#include <cstdint>
#include <cstdlib>

#include "gateway/gateway_server.h"
#include "gateway/request_reader.h"

namespace {

using namespace vantrell;
using State = RequestReader::State;

void require(bool holds) {
  if (!holds) std::abort();
}

std::pair<State, GatewayRequest> read(std::string_view bytes, std::size_t piece) {
  RequestReader reader;
  for (std::size_t at = 0; at < bytes.size(); at += piece) {
    const auto state = reader.append(bytes.substr(at, piece));
    if (state == State::complete) return {state, reader.take()};
    if (state != State::incomplete) return {state, {}};
  }
  return {State::incomplete, {}};
}

void check(const GatewayRequest& request) {
  require(!request.method.empty() && !request.path.contains('?') && !request.path.contains(' '));
  require(std::ranges::none_of(request.method, [](char c) { return c >= 'a' && c <= 'z'; }));
  const auto headers = request.headers.all();
  for (const auto& [name, value] : headers) {
    require(!name.empty() && !name.contains("\r\n") && !value.contains("\r\n"));
    require(std::ranges::none_of(name, [](char c) { return (c >= 'A' && c <= 'Z') || c == ':'; }));
  }
  const std::string length(request.headers.find("content-length").value_or("0"));
  require(request.body.size() == std::strtoul(length.c_str(), nullptr, 10));
  require(request.body.size() <= RequestReader::longestBody);

  // What a caller has sent comes back in headers.
  GatewayResponse response{.body = request.body, .headers = {{"X-Path", request.path}}};
  if (!headers.empty()) response.headers["X-First"] = headers.front().second;
  const auto text = httpText(response);
  const auto end = text.find("\r\n\r\n");
  require(text.substr(end + 4) == request.body);
  const auto head = text.substr(0, end);
  const auto lines = static_cast<std::size_t>(std::ranges::count(head, '\n'));
  require(lines == 5 + response.headers.size());
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  if (size == 0) return 0;
  const std::string_view input(reinterpret_cast<const char*>(data + 1), size - 1);
  const auto whole = read(input, std::max<std::size_t>(input.size(), 1));
  const auto pieces = read(input, 1 + data[0] % 9);
  require(whole.first == pieces.first && whole.second.headers == pieces.second.headers &&
          whole.second.path == pieces.second.path && whole.second.body == pieces.second.body);
  if (whole.first == State::complete) check(whole.second);
  return 0;
}
