#include "gateway/gateway_message.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace vantrell {
namespace {

TEST(GatewayMessage, JsonIsCompactWithSortedKeysAtEveryLevel) {
  const auto response = GatewayResponse::json(
      JsonObject{{"b", Json::Array{JsonObject{{"z", 1}, {"a", "ü"}}}}, {"a", nullptr}}, 202);
  EXPECT_EQ(response.status, 202);
  EXPECT_EQ(response.body, R"({"a":null,"b":[{"a":"ü","z":1}]})");
  EXPECT_EQ(GatewayResponse::error(404, "not_found", "No \"x\".").body,
            R"({"error":{"code":"not_found","message":"No \"x\"."}})");
}

}  // namespace
}  // namespace vantrell
