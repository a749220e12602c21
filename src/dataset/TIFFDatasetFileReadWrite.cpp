#include "dataset/TIFFDatasetFileReadWrite.h"

#include <tiffio.h>
#include <vtkTIFFReader.h>
#include <vtkTIFFWriter.h>

#include <cstdarg>
#include <cstdint>
#include <string>

namespace tarv {

namespace {

int countMessage(TIFF*, void* count, const char*, const char*, va_list) {
  ++*static_cast<int*>(count);
  return 1;
}

int ignoreMessage(TIFF*, void*, const char*, const char*, va_list) { return 1; }

struct PageLayout {
  std::uint32_t width = 0;
  std::uint32_t height = 0;
  std::uint16_t samplesPerPixel = 1;
  std::uint16_t bitsPerSample = 1;
  std::uint16_t sampleFormat = SAMPLEFORMAT_UINT;
  std::uint16_t planarConfiguration = PLANARCONFIG_CONTIG;
  std::uint16_t photometric = PHOTOMETRIC_MINISBLACK;

  bool operator==(const PageLayout&) const = default;
};

// Every page striped, grey or RGB with whole-byte samples, laid out like the first page, and every
// strip decoding without error.
bool isReadableVolume(const char* fileName) {
  int errors = 0;
  TIFFOpenOptions* options = TIFFOpenOptionsAlloc();
  if (options == nullptr) return false;
  TIFFOpenOptionsSetErrorHandlerExtR(options, countMessage, &errors);
  TIFFOpenOptionsSetWarningHandlerExtR(options, ignoreMessage, nullptr);
  TIFF* tiff = TIFFOpenExt(fileName, "r", options);
  TIFFOpenOptionsFree(options);
  if (tiff == nullptr) return false;

  bool readable = true;
  double voxels = 0.0;
  PageLayout first;
  const tdir_t pages = TIFFNumberOfDirectories(tiff);
  for (tdir_t page = 0; page < pages && readable; ++page) {
    if (!TIFFSetDirectory(tiff, page) || errors != 0 || TIFFIsTiled(tiff)) {
      readable = false;
      break;
    }
    PageLayout layout;
    std::uint32_t rowsPerStrip = 0;
    TIFFGetField(tiff, TIFFTAG_IMAGEWIDTH, &layout.width);
    TIFFGetField(tiff, TIFFTAG_IMAGELENGTH, &layout.height);
    TIFFGetFieldDefaulted(tiff, TIFFTAG_SAMPLESPERPIXEL, &layout.samplesPerPixel);
    TIFFGetFieldDefaulted(tiff, TIFFTAG_BITSPERSAMPLE, &layout.bitsPerSample);
    TIFFGetFieldDefaulted(tiff, TIFFTAG_SAMPLEFORMAT, &layout.sampleFormat);
    TIFFGetFieldDefaulted(tiff, TIFFTAG_PLANARCONFIG, &layout.planarConfiguration);
    TIFFGetFieldDefaulted(tiff, TIFFTAG_ROWSPERSTRIP, &rowsPerStrip);
    if (!TIFFGetField(tiff, TIFFTAG_PHOTOMETRIC, &layout.photometric)) layout.photometric = PHOTOMETRIC_MINISBLACK;
    if (page == 0) first = layout;
    const std::uint16_t bits = layout.bitsPerSample;
    readable = layout == first && layout.width >= 1 && layout.height >= 1 && rowsPerStrip >= 1 &&
               layout.samplesPerPixel >= 1 && layout.samplesPerPixel <= 4 &&
               (bits == 8 || bits == 16 || bits == 32 || bits == 64) && layout.sampleFormat >= SAMPLEFORMAT_UINT &&
               layout.sampleFormat <= SAMPLEFORMAT_IEEEFP && layout.planarConfiguration == PLANARCONFIG_CONTIG &&
               layout.photometric <= PHOTOMETRIC_RGB &&
               static_cast<double>(TIFFScanlineSize64(tiff)) ==
                   static_cast<double>(layout.width) * layout.samplesPerPixel * (bits / 8);
    if (!readable) break;
    voxels += static_cast<double>(layout.width) * layout.height;
    const tmsize_t stripSize = TIFFStripSize(tiff);
    if (stripSize <= 0 || voxels >= 2147483648.0) {
      readable = false;
      break;
    }
    void* strip = _TIFFmalloc(stripSize);
    if (strip == nullptr) {
      readable = false;
      break;
    }
    const std::uint32_t strips = TIFFNumberOfStrips(tiff);
    for (std::uint32_t s = 0; s < strips && readable; ++s)
      readable = TIFFReadEncodedStrip(tiff, s, strip, stripSize) >= 0 && errors == 0;
    _TIFFfree(strip);
  }
  TIFFClose(tiff);
  return readable && errors == 0 && voxels >= 1.0;
}

}  // namespace

TIFFDatasetFileReadWrite::TIFFDatasetFileReadWrite()
    : TIFFDatasetFileReadWrite(vtkTIFFReader::New(), vtkTIFFWriter::New()) {}

TIFFDatasetFileReadWrite::TIFFDatasetFileReadWrite(vtkTIFFReader* reader, vtkTIFFWriter* writer)
    : VTKWrapperDatasetFileReadWrite(reader, writer), tiffReader(reader), tiffWriter(writer) {
  typeCode = 3;
  tiffWriter->SetCompression(vtkTIFFWriter::NoCompression);
}

void TIFFDatasetFileReadWrite::read(Dataset* dataset, int t) {
  if (dataset == nullptr || !isReadableVolume(getFileName().c_str())) return;
  VTKWrapperDatasetFileReadWrite::read(dataset, t);
}

}  // namespace tarv
