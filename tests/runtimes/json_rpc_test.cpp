#include "runtimes/wire/json_rpc.h"

#include <gtest/gtest.h>

namespace vantrell {
namespace {

TEST(JsonRpc, FramesAreByteForByteThoseOfTheProtocol) {
  const JsonObject params{{"a", 1}};
  const std::pair<JsonObject, std::string> cases[] = {
      {jsonrpc::request(7, "m", params),
       R"({"jsonrpc":"2.0","id":7,"method":"m","params":{"a":1}})"},
      {jsonrpc::request(8, "m", {}), R"({"jsonrpc":"2.0","id":8,"method":"m","params":{}})"},
      {jsonrpc::notification("m", params), R"({"jsonrpc":"2.0","method":"m","params":{"a":1}})"},
      {jsonrpc::notification("m"), R"({"jsonrpc":"2.0","method":"m"})"},
      {jsonrpc::response(7, {}), R"({"jsonrpc":"2.0","id":7,"result":{}})"},
      {jsonrpc::response("x-1", params), R"({"jsonrpc":"2.0","id":"x-1","result":{"a":1}})"},
      {jsonrpc::errorResponse(0, -32601, "no"),
       R"({"jsonrpc":"2.0","id":0,"error":{"code":-32601,"message":"no"}})"},
  };
  for (const auto& [frame, expected] : cases) EXPECT_EQ(json::write(frame), expected);
}

}  // namespace
}  // namespace vantrell
