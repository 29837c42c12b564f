// What people type as an address and what local servers send as their list of models. The first
// line of an input is the address, the rest is the list.
//
// An address that passes must lead where it was judged to lead: libcurl, which makes the
// connection, has to find the same host in it. A list gives names that are sorted, trimmed and
// different, and none of them breaks out of its place in the generated profile.
#include <cstdint>
#include <cstdlib>
#include <curl/curl.h>
#include <memory>

#include "platform/text/text.h"
#include "platform/values/json.h"
#include "runtimes/local/local_runtime_service.h"

namespace {

using namespace vantrell;

void require(bool holds) {
  if (!holds) std::abort();
}

/// The host as libcurl understands the URL, lower-cased and without brackets; empty when it refuses
/// the URL.
std::string hostForCurl(const std::string& url) {
  const std::unique_ptr<CURLU, decltype(&curl_url_cleanup)> parsed(curl_url(), &curl_url_cleanup);
  if (curl_url_set(parsed.get(), CURLUPART_URL, url.c_str(), 0) != CURLUE_OK) return {};
  char* part = nullptr;
  if (curl_url_get(parsed.get(), CURLUPART_HOST, &part, 0) != CURLUE_OK) return {};
  std::string host = text::lowercased(part);
  curl_free(part);
  if (host.starts_with('[')) host = host.substr(1, host.size() - 2);
  return host;
}

/// libcurl rewrites numbers in their many spellings ("0x7f.1") as an address.
bool isNumeric(std::string_view host) {
  return host.find_first_not_of("0123456789abcdefx.:") == std::string_view::npos;
}

void checkAddress(const std::string& typed) {
  for (const auto kind : allLocalRuntimeKinds) {
    const auto probes = LocalRuntimeService::candidateProbes(kind, typed);
    if (!probes) continue;
    for (const auto& probe : *probes) {
      for (const auto& url : {probe.discoveryURL, probe.apiBaseURL}) {
        const auto again = LocalRuntimeService::validatedBaseURL(url.text());
        require(again && again->text() == url.text() && again->host() == url.host());
        const auto host = hostForCurl(url.text());
        require(host.empty() || isNumeric(url.host()) || host == url.host());
      }
    }
  }
}

/// The text between the quotes of `key = "..."`, which must end the line and hold no quote that is
/// not escaped.
void checkLine(std::string_view profile, std::string_view key) {
  const std::string start = "\n" + std::string(key) + " = \"";
  const auto at = profile.find(start);
  require(at != std::string_view::npos && profile.find(start, at + 1) == std::string_view::npos);
  const auto line = profile.substr(at + start.size());
  std::size_t index = 0;
  while (line.at(index) != '"') {
    require(static_cast<unsigned char>(line[index]) >= 0x20);
    index += line[index] == '\\' ? 2 : 1;
  }
  require(line.at(index + 1) == '\n');
}

void checkModels(std::string_view body, LocalRuntimeKind kind) {
  const auto models = LocalRuntimeService::parseModels(body, kind);
  require(models.has_value() == json::parse(body).has_value());
  if (!models) return;
  LocalRuntimeConnection connection{kind, "", *Url::parse("http://127.0.0.1/v1"), *models};
  for (std::size_t index = 0; index < models->size(); ++index) {
    const auto& id = (*models)[index].id;
    require(!id.empty() && text::trimmed(id) == id);
    require(index == 0 || (*models)[index - 1].id < id);
    require(LocalRuntimeService::chosenModel(connection, id) == id);
    const auto profile = LocalRuntimeService::profileText(connection, id);
    require(std::ranges::count(profile, '\n') == 9);
    checkLine(profile, "model");
    checkLine(profile, "base_url");
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string_view input(reinterpret_cast<const char*>(data), size);
  const auto end = std::min(input.find('\n'), size);
  checkAddress(std::string(input.substr(0, end)));
  const auto body = input.substr(std::min(end + 1, size));
  checkModels(body, LocalRuntimeKind::ollama);
  checkModels(body, LocalRuntimeKind::custom);
  return 0;
}
