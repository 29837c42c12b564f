#include "remote/protocol/relay_setting.h"

#include "platform/storage/user_defaults.h"

namespace vantrell {

std::optional<Url> remoteRelayURL(const UserDefaults& defaults) {
  auto url = Url::parse(defaults.text("remoteRelayURL.v1").value_or(VANTRELL_RELAY_URL));
  if (url && url->scheme() == "https") url = Url::parse("wss" + url->text().substr(5));
  return url;
}

}  // namespace vantrell
