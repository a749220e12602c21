#include "status/Status.h"

namespace tarv {

const char* statusCodeName(StatusCode code) {
  switch (code) {
    case StatusCode::ok: return "ok";
    case StatusCode::invalidArgument: return "invalid argument";
    case StatusCode::notFound: return "not found";
    case StatusCode::unsupported: return "unsupported";
    case StatusCode::corrupt: return "corrupt";
    case StatusCode::ioError: return "I/O error";
    case StatusCode::cancelled: return "cancelled";
    case StatusCode::resourceExhausted: return "resource exhausted";
  }
  return "unknown";
}

Status::Status(StatusCode code, std::string message) : code_(code) {
  if (code_ != StatusCode::ok) message_ = std::move(message);
}

std::string Status::toString() const {
  if (ok()) return "ok";
  return std::string(statusCodeName(code_)) + ": " + message_;
}

Status Status::withContext(const std::string& context) const {
  if (ok()) return *this;
  return Status(code_, message_.empty() ? context : context + ": " + message_);
}

}  // namespace tarv
