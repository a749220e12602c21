#include "dataset/ByteOrder.h"

#include <gtest/gtest.h>

#include <bit>
#include <cstdint>
#include <cstring>

using namespace tarv;

TEST(ByteOrderTest, HostOrderIsReported) {
  const std::uint16_t probe = 0x0102;
  unsigned char bytes[2];
  std::memcpy(bytes, &probe, 2);
  EXPECT_EQ(ByteOrder::isHostLittleEndian(), bytes[0] == 0x02) << "expected the host order seen in memory";
}

TEST(ByteOrderTest, ReversesEachElementSeparately) {
  unsigned char bytes[] = {1, 2, 3, 4, 5, 6, 7, 8};
  ByteOrder::reverseElementBytes(bytes, 2, 4);
  const unsigned char expected[] = {4, 3, 2, 1, 8, 7, 6, 5};
  EXPECT_EQ(0, std::memcmp(bytes, expected, 8)) << "expected two 4-byte elements reversed in place";
  ByteOrder::reverseElementBytes(bytes, 1, 8);
  const unsigned char whole[] = {5, 6, 7, 8, 1, 2, 3, 4};
  EXPECT_EQ(0, std::memcmp(bytes, whole, 8)) << "expected one 8-byte element reversed";
}

TEST(ByteOrderTest, SixteenByteElementsAndSingleBytes) {
  unsigned char bytes[16];
  for (int i = 0; i < 16; ++i) bytes[i] = static_cast<unsigned char>(i);
  ByteOrder::reverseElementBytes(bytes, 1, 16);
  for (int i = 0; i < 16; ++i) EXPECT_EQ(bytes[i], 15 - i) << "at byte " << i;
  unsigned char single[] = {9, 8, 7};
  ByteOrder::reverseElementBytes(single, 3, 1);
  EXPECT_EQ(single[0], 9);
  EXPECT_EQ(single[2], 7) << "expected one-byte elements unchanged";
}

TEST(ByteOrderTest, ConvertsOnlyForTheOtherOrder) {
  std::uint32_t value = 0x01020304;
  ByteOrder::convertLittleEndian(&value, 1, 4, ByteOrder::isHostLittleEndian());
  EXPECT_EQ(value, 0x01020304u) << "expected no change for the host's own order";
  ByteOrder::convertLittleEndian(&value, 1, 4, !ByteOrder::isHostLittleEndian());
  EXPECT_EQ(value, 0x04030201u) << "expected reversed bytes for the other order";
}
