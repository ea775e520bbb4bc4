// A started meter module with one of its tables (meters or profiles) called the way the command
// server calls it: value words in and out.
#pragma once

#include <gtest/gtest.h>

#include "main/acl_group.h"
#include "meter/meter.h"
#include "support/table_call.h"

template <test::TableFn SetFn, test::TableFn GetFn>
class MeterTableTest : public ::testing::Test {
 protected:
  void SetUp() override {
    aclResetForTest();
    meterResetForTest();
    ASSERT_EQ(meterOptInit(), 0);
  }
  void TearDown() override {
    meterResetForTest();
    aclResetForTest();
  }
  static int32_t set(uint32_t idx, uint32_t cmd, uint32_t v) {
    return test::callValue(SetFn, idx, cmd, v);
  }
  // The value a get answers, with its result in *ret.
  static uint32_t get(uint32_t idx, uint32_t cmd, int32_t* ret = nullptr) {
    uint32_t out = 0;
    const int32_t r = test::callValue(GetFn, idx, cmd, 0, &out);
    if (ret) *ret = r;
    return out;
  }
};
