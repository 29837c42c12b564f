// The secrets that callers of the gateway show. Pure functions, any thread.
#pragma once

#include <string>
#include <string_view>

#include "gateway/gateway_message.h"

namespace vantrell::siteKeySecret {

/// "vtl_" and 32 random bytes in URL-safe Base64: 47 characters.
std::string generate();
/// What is stored of a secret, in Base64.
std::string hashOf(std::string_view secret);
/// The secret that a request shows: its bearer token, else its x-api-key; empty where it shows
/// none. An authorization of another scheme does not hide the x-api-key.
std::string_view shownIn(const GatewayHeaders& headers);

}  // namespace vantrell::siteKeySecret
