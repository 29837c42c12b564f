#include "platform/secrets/secret_store.h"

#include <fmt/format.h>
#include <utility>

#include "platform/text/text.h"

namespace vantrell {
namespace {

template <typename... Values>
std::unexpected<SecretError> refused(fmt::format_string<Values...> sentence, Values&&... values) {
  return std::unexpected(SecretError{SecretError::Kind::failed,
                                     fmt::format(sentence, std::forward<Values>(values)...)});
}

SecretStore::Result<> checkNames(const std::string& service, const std::string& account) {
  if (service.size() + account.size() > SecretStore::longestName) {
    return refused("The name of a secret is longer than {} bytes: it cannot be stored.",
                   SecretStore::longestName);
  }
  for (const std::string& name : {service, account}) {
    if (name.contains('\0') || !text::isValidUtf8(name)) {
      return refused("The name of a secret is not plain text: it cannot be stored.");
    }
  }
  return {};
}

}  // namespace

SecretStore::Result<std::optional<std::string>> SecretStore::read(const std::string& service,
                                                                  const std::string& account) {
  if (auto good = checkNames(service, account); !good) return std::unexpected(good.error());
  return readSecret(service, account);
}

SecretStore::Result<> SecretStore::write(const std::string& service, const std::string& account,
                                         const std::string& value) {
  if (auto good = checkNames(service, account); !good) return good;
  if (value.size() > longestValue) {
    return refused("The secret {} ({}) has {} bytes; no more than {} can be stored.", service,
                   account, value.size(), longestValue);
  }
  return writeSecret(service, account, value);
}

SecretStore::Result<> SecretStore::remove(const std::string& service, const std::string& account) {
  if (auto good = checkNames(service, account); !good) return good;
  return removeSecret(service, account);
}

}  // namespace vantrell
