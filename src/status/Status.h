#ifndef TARV_STATUS_STATUS_H
#define TARV_STATUS_STATUS_H

#include <optional>
#include <string>
#include <utility>

namespace tarv {

enum class StatusCode {
  ok = 0,
  invalidArgument,  // the caller's request cannot be met as given
  notFound,         // a file or an entry does not exist
  unsupported,      // valid, but beyond what the format or the library handles
  corrupt,          // the data contradicts its own description
  ioError,          // the system refused to read or write
  cancelled,        // stopped on request
  resourceExhausted,  // more memory than there is, or than the allocation cap allows
};

// "ok", "invalid argument", "not found", "unsupported", "corrupt", "I/O error", "cancelled",
// "resource exhausted".
const char* statusCodeName(StatusCode code);

// Success, or a failure with its code and a message naming the reason in words for a user
// ("the file is 2040 bytes but its header describes 2288 (truncated)").
class [[nodiscard]] Status {
public:
  Status() = default;
  // A failure; with StatusCode::ok the message is dropped.
  Status(StatusCode code, std::string message);

  bool ok() const { return code_ == StatusCode::ok; }
  StatusCode code() const { return code_; }
  const std::string& message() const { return message_; }
  // "ok", or the code's name, ": " and the message.
  std::string toString() const;
  // The same failure with "context: " before the message; success stays success.
  Status withContext(const std::string& context) const;

  bool operator==(const Status& other) const = default;

private:
  StatusCode code_ = StatusCode::ok;
  std::string message_;
};

inline Status okStatus() { return Status(); }
inline Status invalidArgumentError(std::string message) { return Status(StatusCode::invalidArgument, std::move(message)); }
inline Status notFoundError(std::string message) { return Status(StatusCode::notFound, std::move(message)); }
inline Status unsupportedError(std::string message) { return Status(StatusCode::unsupported, std::move(message)); }
inline Status corruptError(std::string message) { return Status(StatusCode::corrupt, std::move(message)); }
inline Status ioError(std::string message) { return Status(StatusCode::ioError, std::move(message)); }
inline Status cancelledError(std::string message) { return Status(StatusCode::cancelled, std::move(message)); }
inline Status resourceExhaustedError(std::string message) {
  return Status(StatusCode::resourceExhausted, std::move(message));
}

// A value of T, or the failure that prevented it.
template <typename T>
class [[nodiscard]] Result {
public:
  Result(const T& value) : value_(value) {}
  Result(T&& value) : value_(std::move(value)) {}
  // A failure. An ok status holds no value, so it becomes an invalid-argument failure.
  Result(Status status) : status_(std::move(status)) {
    if (status_.ok()) status_ = invalidArgumentError("no value");
  }

  bool ok() const { return value_.has_value(); }
  // Success when a value is held.
  const Status& status() const { return status_; }

  // The value; only with ok().
  T& value() & { return *value_; }
  const T& value() const& { return *value_; }
  T&& value() && { return std::move(*value_); }
  T& operator*() & { return *value_; }
  const T& operator*() const& { return *value_; }
  T* operator->() { return &*value_; }
  const T* operator->() const { return &*value_; }
  T valueOr(T fallback) const& { return value_ ? *value_ : std::move(fallback); }

private:
  Status status_;
  std::optional<T> value_;
};

}  // namespace tarv

#endif
