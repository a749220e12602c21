#ifndef TARV_FORMATS_TIFFMESSAGES_H
#define TARV_FORMATS_TIFFMESSAGES_H

#include <string>

#include "dataset/TiffDeepTileCodec.h"

namespace tarv::formats {

// The error messages libtiff gives about one handle, each as "module: text". Warnings are
// dropped. Must outlive the handle it collects for.
struct TiffErrors {
  std::string first;
  std::string last;
  int count = 0;

  // " (libtiff: first)" when there was an error, else empty.
  std::string suffix() const;
};

// Opens like TIFFOpen, with the handle's errors going into errors instead of libtiff's global
// handlers (nothing is printed). Readers open with "rm": a memory-mapped file that shrinks under
// a reader would end the program with SIGBUS instead of a read error.
TiffHandle openTiffFileCollectingErrors(const std::string& path, const char* mode, TiffErrors& errors);

}  // namespace tarv::formats

#endif
