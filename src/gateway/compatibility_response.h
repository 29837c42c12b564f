// The local runtime's answer in the format that the caller of the gateway has asked for. A stream
// is a whole body of server-sent events, made when the runtime has finished. Pure, any thread.
#pragma once

#include "gateway/compatibility_request.h"
#include "platform/values/date.h"

namespace vantrell {

/// `body` is the runtime's, of a successful answer.
GatewayResponse translateCompatibility(std::string_view body,
                                       const PreparedCompatibilityRequest& prepared, Date now);
/// The response to whatever the upstream request ended with.
GatewayResponse compatibilityResponse(const std::expected<HttpResponse, HttpError>& result,
                                      const PreparedCompatibilityRequest& prepared, Date now);
/// In the form of the vendor whose route is asked for. Ids are "local/" and the runtime's.
GatewayResponse compatibilityModels(const GatewayRequest& request,
                                    const LocalRuntimeConnection& connection);

}  // namespace vantrell
