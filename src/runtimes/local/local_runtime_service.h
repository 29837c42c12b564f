// The rules of local runtimes: which addresses may be asked, how a server lists its models, and
// the profile under which the Grok Build harness works with one. No state, any thread.
//
// No agent comes with a model server, so the harness is the agent. It runs from a home folder of
// its own, whose generated profile leads to the server: the user's own profile is never touched.
#pragma once

#include <expected>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "platform/files/files.h"
#include "platform/process/process.h"
#include "runtimes/local/local_runtime.h"

namespace vantrell {

class UserDefaults;

namespace LocalRuntimeService {

/// Keys of the user defaults.
inline constexpr std::string_view kindKey = "localRuntimeKind.v1";
inline constexpr std::string_view baseURLKey = "localRuntimeBaseURL.v1";
/// What a field for the address shows while it is empty.
inline constexpr std::string_view baseURLPlaceholder = "http://127.0.0.1:8080/v1";

/// Absent and unknown choices mean automatic.
LocalRuntimeKind configuredKind(const UserDefaults& defaults);
/// As stored; empty when absent.
std::string configuredURL(const UserDefaults& defaults);

// Addresses.

/// HTTPS to anywhere; plain HTTP, which others can read, only where isPrivateOrLoopback() holds.
std::expected<Url, LocalRuntimeError> validatedBaseURL(std::string_view text);
/// Judges a lower-cased host by its text alone: names are not looked up.
bool isPrivateOrLoopback(std::string_view host);

/// A place to look for a server.
struct Probe {
  LocalRuntimeKind kind;
  std::string name;
  Url discoveryURL;  // lists the models
  Url apiBaseURL;
};
/// In the order in which they are tried. In automatic mode the configured address plays no part.
std::expected<std::vector<Probe>, LocalRuntimeError> candidateProbes(
    LocalRuntimeKind kind, std::string_view configuredURL);

// Models.

/// Sorted, each once; none is LocalRuntimeError::noModels. Absent when the body is not JSON.
std::optional<std::vector<ProviderModelOption>> parseModels(std::string_view body,
                                                            LocalRuntimeKind kind);

// The harness.

/// The one model of its profile, whatever the server calls it.
inline constexpr std::string_view harnessModel = "vantrell-local";

/// The selected model where the server still has it, else its first. Absent when it has none.
std::optional<std::string> chosenModel(const LocalRuntimeConnection& connection,
                                       const std::optional<std::string>& selected);
/// The text of config.toml.
std::string profileText(const LocalRuntimeConnection& connection, std::string_view modelID);
/// Writes the profile, again for every client, and returns the complete environment of the harness:
/// the given one, pointed at the profile. The root is the user's data folder where none is given.
files::Result<Environment> prepareGrokEnvironment(
    Environment base, const LocalRuntimeConnection& connection, std::string_view modelID,
    const std::optional<std::string>& applicationSupportRoot = std::nullopt);

}  // namespace LocalRuntimeService
}  // namespace vantrell
