// Frame decoding: every malformed shape of header and body is refused with its status, and every
// well-formed request survives a round trip unchanged.
#include <gtest/gtest.h>

#include "wire/be.h"
#include "wire/protocol.h"

namespace {

using wire::BufShape;
using wire::KeyShape;
using wire::Status;

wire::Request sampleRequest(KeyShape ks, BufShape bs) {
  wire::Request r;
  r.funcId = 12;
  r.cmd = 0x1234;
  r.keyShape = ks;
  r.bufShape = bs;
  if (ks == KeyShape::Value) r.keyValue = 2001;
  if (ks == KeyShape::Bytes) r.key = {0, 0, 0x07, 0xD1, 0, 0, 0, 5, 0x80, 0, 0, 0};
  if (bs == BufShape::Value) r.bufValue = 0xDEADBEEF;
  if (bs == BufShape::Desc) {
    r.data = {'a', 'c', 'l'};
    r.descCapacity = 64;
  }
  if (bs == BufShape::Ptr || bs == BufShape::Raw) r.data = {1, 2, 3, 4, 5};
  return r;
}

std::span<const uint8_t> bodyOf(const std::vector<uint8_t>& frame) {
  return std::span<const uint8_t>(frame).subspan(wire::kHeaderLen);
}

TEST(WireFrame, RequestsOfEveryShapeRoundTrip) {
  for (auto ks : {KeyShape::None, KeyShape::Value, KeyShape::Bytes}) {
    for (auto bs :
         {BufShape::None, BufShape::Value, BufShape::Desc, BufShape::Ptr, BufShape::Raw}) {
      const wire::Request in = sampleRequest(ks, bs);
      const auto frame = wire::encodeRequest(77, in);
      wire::FrameHeader h;
      ASSERT_EQ(wire::decodeHeader(frame, wire::kKindRequest, &h), Status::Ok);
      EXPECT_EQ(h.seq, 77u);
      ASSERT_EQ(h.bodyLen, frame.size() - wire::kHeaderLen);
      wire::Request out;
      ASSERT_EQ(wire::decodeRequest(bodyOf(frame), &out), Status::Ok) << int(ks) << "/" << int(bs);
      EXPECT_EQ(std::tie(out.funcId, out.cmd, out.keyShape, out.bufShape, out.keyValue,
                         out.bufValue, out.descCapacity, out.key, out.data),
                std::tie(in.funcId, in.cmd, in.keyShape, in.bufShape, in.keyValue, in.bufValue,
                         in.descCapacity, in.key, in.data));
    }
  }
}

TEST(WireFrame, ResponseRoundTripsAndKeepsNegativeResults) {
  wire::Response in;
  in.result = -1;
  in.keyShape = KeyShape::Bytes;
  in.bufShape = BufShape::Desc;
  in.descLen = 3;
  in.key = {9, 8, 7, 6};
  in.data = {1, 2, 3};
  const auto frame = wire::encodeResponse(5, in);
  wire::FrameHeader h;
  ASSERT_EQ(wire::decodeHeader(frame, wire::kKindResponse, &h), Status::Ok);
  wire::Response out;
  ASSERT_EQ(wire::decodeResponse(bodyOf(frame), &out), Status::Ok);
  EXPECT_EQ(std::tie(out.result, out.descLen, out.key, out.data),
            std::tie(in.result, in.descLen, in.key, in.data));
  // A request frame is not a response, and the reverse.
  EXPECT_EQ(wire::decodeHeader(frame, wire::kKindRequest, &h), Status::Malformed);
}

TEST(WireFrame, MalformedHeadersGetTheirStatus) {
  const auto good = wire::encodeRequest(1, sampleRequest(KeyShape::Value, BufShape::Value));
  wire::FrameHeader h;

  EXPECT_EQ(wire::decodeHeader(std::span(good).first(wire::kHeaderLen - 1), wire::kKindRequest, &h),
            Status::Malformed);  // short
  // Magic, version and kind are answered by the command server's tests; the body bound here.
  auto tooLong = good;
  be::store32(tooLong, 8, wire::kMaxBody + 1);
  EXPECT_EQ(wire::decodeHeader(tooLong, wire::kKindRequest, &h), Status::TooLarge);
  be::store32(tooLong, 8, wire::kMaxBody);
  EXPECT_EQ(wire::decodeHeader(tooLong, wire::kKindRequest, &h), Status::Ok);
}

// Decodes body after mutate has changed it; the body is that of a Bytes-key, Desc request.
Status decodeMutated(void (*mutate)(std::vector<uint8_t>&)) {
  const auto frame = wire::encodeRequest(1, sampleRequest(KeyShape::Bytes, BufShape::Desc));
  std::vector<uint8_t> body(frame.begin() + wire::kHeaderLen, frame.end());
  mutate(body);
  wire::Request r;
  return wire::decodeRequest(body, &r);
}

TEST(WireFrame, MalformedBodiesAreRefused) {
  EXPECT_EQ(decodeMutated([](auto&) {}), Status::Ok);
  // Short: less than the fixed part, or missing the last data byte.
  EXPECT_EQ(decodeMutated([](auto& b) { b.resize(wire::kRequestFixedLen - 1); }),
            Status::Malformed);
  EXPECT_EQ(decodeMutated([](auto& b) { b.pop_back(); }), Status::Malformed);
  // Long: a byte past the declared key and data.
  EXPECT_EQ(decodeMutated([](auto& b) { b.push_back(0); }), Status::Malformed);
  // Unknown shapes and a non-zero reserved field.
  EXPECT_EQ(decodeMutated([](auto& b) { b[8] = 3; }), Status::Malformed);
  EXPECT_EQ(decodeMutated([](auto& b) { b[9] = 5; }), Status::Malformed);
  EXPECT_EQ(decodeMutated([](auto& b) { b[11] = 1; }), Status::Malformed);
  // Wrong lengths: key length and data length that do not add up to the body.
  EXPECT_EQ(decodeMutated([](auto& b) { be::store32(b, 24, 11); }), Status::Malformed);
  EXPECT_EQ(decodeMutated([](auto& b) { be::store32(b, 28, 4); }), Status::Malformed);
  // Lengths that would wrap a 32-bit sum back onto the body's size.
  EXPECT_EQ(decodeMutated([](auto& b) {
              be::store32(b, 24, 0xFFFFFFF4);
              be::store32(b, 28, 0x0000000F);
            }),
            Status::Malformed);
  EXPECT_EQ(decodeMutated([](auto& b) { be::store32(b, 24, wire::kMaxKeyLen + 1); }),
            Status::Malformed);
}

TEST(WireFrame, NestedSizesMustAgreeWithTheShapes) {
  // The descriptor's input bytes must fit the capacity it asks for, and the capacity is bounded.
  EXPECT_EQ(decodeMutated([](auto& b) { be::store32(b, 20, 2); }), Status::Malformed);
  EXPECT_EQ(decodeMutated([](auto& b) { be::store32(b, 20, 3); }), Status::Ok);
  EXPECT_EQ(decodeMutated([](auto& b) { be::store32(b, 20, wire::kMaxDataLen + 1); }),
            Status::Malformed);
  // Fields a shape does not use must be zero: a key value beside key bytes, a value word beside
  // a descriptor.
  EXPECT_EQ(decodeMutated([](auto& b) { be::store32(b, 12, 1); }), Status::Malformed);
  EXPECT_EQ(decodeMutated([](auto& b) { be::store32(b, 16, 1); }), Status::Malformed);
  // A None buffer carries no data; a Value buffer no capacity.
  EXPECT_EQ(decodeMutated([](auto& b) { b[9] = static_cast<uint8_t>(BufShape::None); }),
            Status::Malformed);
  EXPECT_EQ(decodeMutated([](auto& b) { b[9] = static_cast<uint8_t>(BufShape::Value); }),
            Status::Malformed);
  // A Bytes key of length zero is not a key.
  auto r = sampleRequest(KeyShape::Bytes, BufShape::None);
  r.key.clear();
  const auto frame = wire::encodeRequest(1, r);
  wire::Request out;
  EXPECT_EQ(wire::decodeRequest(bodyOf(frame), &out), Status::Malformed);
}

TEST(WireFrame, ResponseWithUnknownStatusOrWrongLengthsIsMalformed) {
  wire::Response in;
  in.data = {1, 2};
  auto frame = wire::encodeResponse(1, in);
  std::vector<uint8_t> body(frame.begin() + wire::kHeaderLen, frame.end());
  wire::Response out;
  auto bad = body;
  be::store32(bad, 0, 99);
  EXPECT_EQ(wire::decodeResponse(bad, &out), Status::Malformed);
  bad = body;
  be::store32(bad, 24, 3);
  EXPECT_EQ(wire::decodeResponse(bad, &out), Status::Malformed);
  EXPECT_EQ(wire::decodeResponse(body, &out), Status::Ok);
}

}  // namespace
