// The status type and Result<T>.
#include <gtest/gtest.h>

#include <memory>
#include <string>

#include "status/Status.h"

namespace tarv {
namespace {

TEST(Status, DefaultIsOkWithoutMessage) {
  const Status status;
  EXPECT_TRUE(status.ok());
  EXPECT_EQ(status.code(), StatusCode::ok);
  EXPECT_EQ(status.message(), "");
  EXPECT_EQ(status.toString(), "ok");
  EXPECT_EQ(status, okStatus());
}

TEST(Status, FailuresCarryCodeAndMessage) {
  const Status status = corruptError("the file is 10 bytes but its header describes 12 (truncated)");
  EXPECT_FALSE(status.ok());
  EXPECT_EQ(status.code(), StatusCode::corrupt);
  EXPECT_EQ(status.message(), "the file is 10 bytes but its header describes 12 (truncated)");
  EXPECT_EQ(status.toString(), "corrupt: the file is 10 bytes but its header describes 12 (truncated)");
}

TEST(Status, EveryHelperGivesItsCode) {
  EXPECT_EQ(invalidArgumentError("a").code(), StatusCode::invalidArgument);
  EXPECT_EQ(notFoundError("a").code(), StatusCode::notFound);
  EXPECT_EQ(unsupportedError("a").code(), StatusCode::unsupported);
  EXPECT_EQ(corruptError("a").code(), StatusCode::corrupt);
  EXPECT_EQ(ioError("a").code(), StatusCode::ioError);
  EXPECT_EQ(cancelledError("a").code(), StatusCode::cancelled);
  EXPECT_EQ(resourceExhaustedError("a").code(), StatusCode::resourceExhausted);
}

TEST(Status, CodeNames) {
  EXPECT_STREQ(statusCodeName(StatusCode::ok), "ok");
  EXPECT_STREQ(statusCodeName(StatusCode::invalidArgument), "invalid argument");
  EXPECT_STREQ(statusCodeName(StatusCode::notFound), "not found");
  EXPECT_STREQ(statusCodeName(StatusCode::unsupported), "unsupported");
  EXPECT_STREQ(statusCodeName(StatusCode::corrupt), "corrupt");
  EXPECT_STREQ(statusCodeName(StatusCode::ioError), "I/O error");
  EXPECT_STREQ(statusCodeName(StatusCode::cancelled), "cancelled");
  EXPECT_STREQ(statusCodeName(StatusCode::resourceExhausted), "resource exhausted");
}

TEST(Status, OkCodeDropsTheMessage) {
  const Status status(StatusCode::ok, "ignored");
  EXPECT_TRUE(status.ok());
  EXPECT_EQ(status.message(), "");
}

TEST(Status, ContextGoesBeforeTheMessage) {
  EXPECT_EQ(ioError("disk full").withContext("a.tif").message(), "a.tif: disk full");
  EXPECT_EQ(ioError("disk full").withContext("a.tif").code(), StatusCode::ioError);
  EXPECT_EQ(ioError("").withContext("a.tif").message(), "a.tif");
  EXPECT_TRUE(okStatus().withContext("a.tif").ok());
}

TEST(Status, EqualityComparesCodeAndMessage) {
  EXPECT_EQ(notFoundError("x"), notFoundError("x"));
  EXPECT_NE(notFoundError("x"), notFoundError("y"));
  EXPECT_NE(notFoundError("x"), ioError("x"));
}

TEST(Result, HoldsAValue) {
  Result<int> result = 42;
  ASSERT_TRUE(result.ok());
  EXPECT_TRUE(result.status().ok());
  EXPECT_EQ(result.value(), 42);
  EXPECT_EQ(*result, 42);
  EXPECT_EQ(result.valueOr(7), 42);
  *result = 43;
  EXPECT_EQ(result.value(), 43);
}

TEST(Result, HoldsAFailure) {
  const Result<std::string> result = unsupportedError("64-bit samples");
  EXPECT_FALSE(result.ok());
  EXPECT_EQ(result.status().code(), StatusCode::unsupported);
  EXPECT_EQ(result.status().message(), "64-bit samples");
  EXPECT_EQ(result.valueOr("none"), "none");
}

TEST(Result, OkStatusWithoutValueIsAFailure) {
  const Result<int> result = okStatus();
  EXPECT_FALSE(result.ok());
  EXPECT_EQ(result.status().code(), StatusCode::invalidArgument);
}

TEST(Result, MovesOutMoveOnlyValues) {
  Result<std::unique_ptr<int>> result = std::make_unique<int>(5);
  ASSERT_TRUE(result.ok());
  EXPECT_EQ(*result->get(), 5);
  std::unique_ptr<int> value = std::move(result).value();
  EXPECT_EQ(*value, 5);
}

}  // namespace
}  // namespace tarv
