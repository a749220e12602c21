#ifndef TARV_IMAGEIO_TIFFINPUTSTREAM_H
#define TARV_IMAGEIO_TIFFINPUTSTREAM_H

// libtiff reading from a standard input stream.

#include <istream>
#include <string>

#include "dataset/TiffDeepTileCodec.h"

namespace tarv::imageio {

// Client procedures over a standard input stream; offsets count from the stream position at
// opening. A stream that throws is treated as failing: no exception may cross libtiff.
struct InputStreamClient {
  std::istream* stream;
  std::streamoff start;
};

// Opens the stream for reading from its current position, quietly; null when its position cannot
// be told or it holds no TIFF. The client must outlive the handle.
TiffHandle openTiffInputStream(const std::string& name, std::istream* stream, InputStreamClient& client);

}  // namespace tarv::imageio

#endif
