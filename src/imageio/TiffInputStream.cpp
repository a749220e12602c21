#include "imageio/TiffInputStream.h"

#include <cstdio>
#include <limits>

namespace tarv::imageio {

namespace {

constexpr toff_t seekFailure = static_cast<toff_t>(-1);

tmsize_t inputRead(thandle_t handle, void* buffer, tmsize_t size) {
  auto* client = static_cast<InputStreamClient*>(handle);
  if (size <= 0) return 0;
  try {
    client->stream->read(static_cast<char*>(buffer), std::streamsize(size));
    const std::streamsize count = client->stream->gcount();
    if (!*client->stream) client->stream->clear();
    return tmsize_t(count);
  } catch (...) {
    return -1;
  }
}

tmsize_t noWrite(thandle_t, void*, tmsize_t) { return -1; }
int streamClose(thandle_t) { return 0; }

std::streamoff inputEnd(std::istream& stream) {
  const std::streampos current = stream.tellg();
  stream.seekg(0, std::ios::end);
  const std::streamoff end = stream.tellg();
  stream.seekg(current);
  return end;
}

toff_t inputSeek(thandle_t handle, toff_t offset, int whence) {
  auto* client = static_cast<InputStreamClient*>(handle);
  std::istream& stream = *client->stream;
  try {
    stream.clear();
    if (offset > toff_t(std::numeric_limits<std::streamoff>::max())) return seekFailure;
    std::streamoff base = 0;
    switch (whence) {
      case SEEK_SET: base = client->start; break;
      case SEEK_CUR: base = stream.tellg(); break;
      case SEEK_END: base = inputEnd(stream); break;
      default: return seekFailure;
    }
    std::streamoff target = 0;
    if (base < 0 || __builtin_add_overflow(base, static_cast<std::streamoff>(offset), &target) ||
        target < client->start)
      return seekFailure;
    stream.seekg(target);
    if (!stream) {
      stream.clear();
      return seekFailure;
    }
    return toff_t(target - client->start);
  } catch (...) {
    return seekFailure;
  }
}

toff_t inputSize(thandle_t handle) {
  auto* client = static_cast<InputStreamClient*>(handle);
  try {
    client->stream->clear();
    const std::streamoff end = inputEnd(*client->stream);
    return end > client->start ? toff_t(end - client->start) : 0;
  } catch (...) {
    return 0;
  }
}

}  // namespace

TiffHandle openTiffInputStream(const std::string& name, std::istream* stream, InputStreamClient& client) {
  client = InputStreamClient{stream, -1};
  try {
    client.start = stream->tellg();
  } catch (...) {
    client.start = -1;
  }
  TiffHandle tiff;
  if (client.start >= 0)
    tiff = openQuietTiffClient(name, "rm", &client, inputRead, noWrite, inputSeek, streamClose, inputSize);
  return tiff;
}

}  // namespace tarv::imageio
