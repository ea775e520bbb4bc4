#include <gtest/gtest.h>

#include <cstring>
#include <string>

#include "platform/fault.h"
#include "platform/proc.h"
#include "platform/rtbus.h"
#include "support/run_dir.h"
#include "wire/be.h"

namespace {

TEST(FaultTest, SkipCountAndFiltersDecideWhichCallsFail) {
  plat::faultClear();
  plat::faultAdd({.call = "zorHwilCmdSetApi", .unit = 7, .result = 5, .skip = 1, .count = 2});
  auto hit = [](uint32_t unit) {
    return plat::faultHit({.call = "zorHwilCmdSetApi", .unit = unit});
  };
  // Another unit, no unit given, skipped, hit twice, spent.
  const std::vector<std::optional<int32_t>> hits{
      hit(8), plat::faultHit({.call = "zorHwilCmdSetApi"}), hit(7), hit(7), hit(7), hit(7)};
  EXPECT_EQ(hits, (std::vector<std::optional<int32_t>>{{}, {}, {}, 5, 5, {}}));
  EXPECT_TRUE(plat::faultList().empty());

  const uint32_t id = plat::faultAdd({.call = "x", .count = -1});
  for (int i = 0; i < 5; ++i) EXPECT_TRUE(plat::faultHit({.call = "x"}).has_value());
  EXPECT_EQ(plat::faultList().at(0).hits, 5u);
  EXPECT_TRUE(plat::faultRemove(id));
  EXPECT_FALSE(plat::faultHit({.call = "x"}).has_value());
}

// Delivery to the sockets that joined a group is the device's announcement tests' business.
class RtBusTest : public ::testing::Test {
 protected:
  test::TempRunDir runDir;
};

TEST_F(RtBusTest, BadArgumentsAreRefused) {
  EXPECT_EQ(zor_socket(2, ZOR_SOCK_DGRAM, 0), -1);
  const int fd = zor_socket(ZOR_AF_ROUTE, ZOR_SOCK_DGRAM, 0);
  uint8_t addr[12] = {};
  EXPECT_EQ(zor_bind(fd, addr, sizeof addr), -1) << "family 0";
  be::store16(addr, 0, ZOR_AF_ROUTE);
  EXPECT_EQ(zor_bind(fd, addr, 8), -1) << "short address";
  uint8_t v[4] = {};
  EXPECT_EQ(zor_setsockopt(fd, 1, 2, v, 4), -1);
  EXPECT_EQ(zor_setsockopt(fd, ZOR_SOL_ROUTE, ZOR_ROUTE_ADD_GROUP, v, 2), -1);
  EXPECT_EQ(zor_setsockopt(fd + 1000, ZOR_SOL_ROUTE, ZOR_ROUTE_ADD_GROUP, v, 4), -1);
  zor_close(fd);
}

}  // namespace
