// The address to advertise, and the one that this machine really has.
#include "platform/sockets/own_address.h"

#include <arpa/inet.h>
#include <gtest/gtest.h>
#include <vector>

namespace vantrell {
namespace {

TEST(OwnAddressTest, PrefersAnOverlayNetworkThenTheDefaultRoute) {
  const std::string bridge = "172.17.0.1";
  const std::string lan = "192.168.1.5";
  const std::string overlay = "100.64.0.9";
  EXPECT_EQ(chosenAddress(std::vector{bridge, lan, overlay}, lan), overlay);
  EXPECT_EQ(chosenAddress(std::vector{bridge, lan}, lan), lan);
  EXPECT_EQ(chosenAddress(std::vector{bridge, lan}, ""), bridge);
  EXPECT_EQ(chosenAddress(std::vector{bridge}, "127.0.0.1"), bridge);
  EXPECT_EQ(chosenAddress({}, ""), "127.0.0.1");

  in_addr address{};
  EXPECT_EQ(inet_pton(AF_INET, ownAddress().c_str(), &address), 1) << ownAddress();
}

}  // namespace
}  // namespace vantrell
