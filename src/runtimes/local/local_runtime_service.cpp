#include "runtimes/local/local_runtime_service.h"

#include <charconv>
#include <fmt/format.h>
#include <set>

#include "platform/storage/user_defaults.h"
#include "platform/text/text.h"
#include "platform/values/json.h"
#include "platform/values/json_objects.h"

namespace vantrell::LocalRuntimeService {

namespace {

using enum LocalRuntimeKind;

constexpr std::string_view ollamaDefault = "http://127.0.0.1:11434";
constexpr std::string_view lmStudioDefault = "http://127.0.0.1:1234/v1";

constexpr std::string_view tokenVariable = "VANTRELL_LOCAL_TOKEN";
/// The harness asks for a credential, the servers for none: a constant placeholder.
constexpr std::string_view token = "stub-bearer-for-offline-route";

std::expected<Probe, LocalRuntimeError> openAIProbe(LocalRuntimeKind kind, std::string name,
                                                    std::string_view base) {
  auto url = validatedBaseURL(base);
  if (!url) return std::unexpected(url.error());
  if (url->path().empty() || url->path() == "/") url = url->appendingPath("v1");
  return Probe{kind, std::move(name), url->appendingPath("models"), *url};
}

std::expected<Probe, LocalRuntimeError> ollamaProbe(std::string_view base) {
  auto url = validatedBaseURL(base);
  if (!url) return std::unexpected(url.error());
  // People copy the address that OpenAI clients use; Ollama lists its models beside that.
  if (text::lowercased(url->lastPathComponent()) == "v1") url = url->deletingLastPathComponent();
  return Probe{ollama, "Ollama", url->appendingPath("api/tags"), url->appendingPath("v1")};
}

std::expected<Probe, LocalRuntimeError> lmStudioProbe(std::string_view base) {
  return openAIProbe(lmStudio, "LM Studio", base);
}

/// The name that an element of a server's list goes by; empty when it has none.
std::string nameOf(const JsonObject& element) {
  for (const std::string_view key : {"name", "model", "id"}) {
    if (const auto* name = json::text(element, key)) return std::string(text::trimmed(*name));
  }
  return {};
}

/// For a place between double quotes in TOML, where control characters may not stand as they are.
std::string escaped(std::string_view value) {
  std::string out;
  for (const char c : value) {
    switch (c) {
      case '\\': out += "\\\\"; break;
      case '"': out += "\\\""; break;
      case '\n': out += "\\n"; break;
      default:
        if (static_cast<unsigned char>(c) < 0x20 || c == 0x7F) {
          out += fmt::format("\\u{:04X}", static_cast<int>(c));
        } else {
          out += c;
        }
    }
  }
  return out;
}

}  // namespace

LocalRuntimeKind configuredKind(const UserDefaults& defaults) {
  const auto stored = defaults.text(kindKey);
  return stored ? fromRawText<LocalRuntimeKind>(*stored).value_or(automatic) : automatic;
}

std::string configuredURL(const UserDefaults& defaults) {
  return defaults.text(baseURLKey).value_or("");
}

std::expected<Url, LocalRuntimeError> validatedBaseURL(std::string_view given) {
  const auto url = Url::parse(text::trimmed(given));
  if (!url || (url->scheme() != "http" && url->scheme() != "https")) {
    return std::unexpected(LocalRuntimeError::invalidURL);
  }
  if (url->scheme() == "http" && !isPrivateOrLoopback(url->host())) {
    return std::unexpected(LocalRuntimeError::insecureRemoteURL);
  }
  return *url;
}

bool isPrivateOrLoopback(std::string_view host) {
  if (host == "localhost" || host == "::1" || host.ends_with(".local")) return true;
  for (const std::string_view prefix : {"127.", "10.", "192.168."}) {
    if (host.starts_with(prefix)) return true;
  }
  if (!host.starts_with("172.")) return false;
  const auto second = text::split(host, '.')[1];
  int number = 0;
  const auto end = second.data() + second.size();
  const auto read = std::from_chars(second.data(), end, number);
  return read.ec == std::errc() && read.ptr == end && number >= 16 && number <= 31;
}

std::expected<std::vector<Probe>, LocalRuntimeError> candidateProbes(LocalRuntimeKind kind,
                                                                     std::string_view configured) {
  std::vector<std::expected<Probe, LocalRuntimeError>> candidates;
  switch (kind) {
    case automatic:
      candidates = {ollamaProbe(ollamaDefault), lmStudioProbe(lmStudioDefault)};
      break;
    case ollama: candidates = {ollamaProbe(configured.empty() ? ollamaDefault : configured)}; break;
    case lmStudio:
      candidates = {lmStudioProbe(configured.empty() ? lmStudioDefault : configured)};
      break;
    case custom: candidates = {openAIProbe(custom, "Local runtime", configured)}; break;
  }
  std::vector<Probe> probes;
  for (auto& candidate : candidates) {
    if (!candidate) return std::unexpected(candidate.error());
    probes.push_back(std::move(*candidate));
  }
  return probes;
}

std::optional<std::vector<ProviderModelOption>> parseModels(std::string_view body,
                                                            LocalRuntimeKind kind) {
  const auto parsed = json::parse(body);
  if (!parsed) return std::nullopt;
  std::set<std::string> names;
  if (const auto* root = parsed->asObject()) {
    for (const auto* element : json::objects(*root, kind == ollama ? "models" : "data")) {
      names.insert(nameOf(*element));
    }
  }
  names.erase("");
  std::vector<ProviderModelOption> models;
  for (const auto& name : names) {
    models.push_back({name,
                      name,
                      fmt::format("Served locally through {}.", displayName(kind)),
                      false,
                      {ProviderEffortOption::defaultOption()}});
  }
  return models;
}

std::optional<std::string> chosenModel(const LocalRuntimeConnection& connection,
                                       const std::optional<std::string>& selected) {
  if (connection.models.empty()) return std::nullopt;
  const auto found = std::ranges::find_if(connection.models,
                                          [&](const auto& model) { return model.id == selected; });
  return found == connection.models.end() ? connection.models.front().id : found->id;
}

std::string profileText(const LocalRuntimeConnection& connection, std::string_view modelID) {
  return fmt::format(
      "# Generated by vantrell. This isolated GROK_HOME never changes ~/.grok/config.toml.\n"
      "[model.{0}]\n"
      "model = \"{1}\"\n"
      "base_url = \"{2}\"\n"
      "name = \"vantrell Local\"\n"
      "env_key = \"{3}\"\n"
      "api_backend = \"chat_completions\"\n"
      "\n"
      "[models]\n"
      "default = \"{0}\"",
      harnessModel, escaped(modelID), escaped(connection.baseURL.text()), tokenVariable);
}

files::Result<Environment> prepareGrokEnvironment(
    Environment base, const LocalRuntimeConnection& connection, std::string_view modelID,
    const std::optional<std::string>& applicationSupportRoot) {
  const std::string folder =
      applicationSupportRoot.value_or(files::dataFolder()) + "/vantrell/local-agent/grok";
  if (const auto made = files::createFolders(folder, 0700); !made) {
    return std::unexpected(made.error());
  }
  const auto written =
      files::writeAtomically(folder + "/config.toml", profileText(connection, modelID));
  if (!written) return std::unexpected(written.error());
  base["GROK_HOME"] = folder;
  base[std::string(tokenVariable)] = token;
  return base;
}

}  // namespace vantrell::LocalRuntimeService
