#include "dataset/TIFFDatasetFileReadWrite.h"

#include <tiffio.h>
#include <vtkTIFFReader.h>
#include <vtkTIFFWriter.h>

#include <cstdarg>
#include <cstdint>
#include <cstdio>
#include <string>

#include "formats/FileStatus.h"

namespace tarv {

namespace {

// libtiff's errors about the file: how many, and the first.
struct Errors {
  int count = 0;
  std::string first;
};

int countMessage(TIFF*, void* errors, const char* module, const char* format, va_list arguments) {
  auto* list = static_cast<Errors*>(errors);
  if (list->count++ == 0) {
    char buffer[512];
    std::vsnprintf(buffer, sizeof buffer, format, arguments);
    list->first = (module != nullptr && *module != '\0' ? std::string(module) + ": " : std::string()) + buffer;
  }
  return 1;
}

std::string libtiffReason(const Errors& errors) {
  return errors.count == 0 ? std::string() : " (libtiff: " + errors.first + ")";
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
// strip decoding without error; otherwise why not.
Status checkReadableVolume(const char* fileName) {
  Errors errors;
  TIFFOpenOptions* options = TIFFOpenOptionsAlloc();
  if (options == nullptr) return ioError("libtiff cannot allocate its options");
  TIFFOpenOptionsSetErrorHandlerExtR(options, countMessage, &errors);
  TIFFOpenOptionsSetWarningHandlerExtR(options, ignoreMessage, nullptr);
  TIFF* tiff = TIFFOpenExt(fileName, "r", options);
  TIFFOpenOptionsFree(options);
  if (tiff == nullptr) {
    Status readable = formats::checkReadableFile(fileName);
    return readable.ok() ? corruptError("not a readable TIFF file" + libtiffReason(errors)) : readable;
  }

  bool readable = true;
  std::string problem;
  double voxels = 0.0;
  PageLayout first;
  const tdir_t pages = TIFFNumberOfDirectories(tiff);
  for (tdir_t page = 0; page < pages && readable; ++page) {
    if (!TIFFSetDirectory(tiff, page) || errors.count != 0 || TIFFIsTiled(tiff)) {
      readable = false;
      problem = errors.count != 0 ? "page " + std::to_string(page) + " cannot be read" : "tiled pages are not read this way";
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
    if (!readable) {
      problem = "pages must be striped grey or RGB images of 8 to 64-bit samples, all alike";
      break;
    }
    voxels += static_cast<double>(layout.width) * layout.height;
    const tmsize_t stripSize = TIFFStripSize(tiff);
    if (stripSize <= 0 || voxels >= 2147483648.0) {
      readable = false;
      problem = stripSize <= 0 ? "no usable strip size" : "images of 2^31 voxels or more cannot be read";
      break;
    }
    void* strip = _TIFFmalloc(stripSize);
    if (strip == nullptr) {
      readable = false;
      problem = "not enough memory for a strip";
      break;
    }
    const std::uint32_t strips = TIFFNumberOfStrips(tiff);
    for (std::uint32_t s = 0; s < strips && readable; ++s)
      readable = TIFFReadEncodedStrip(tiff, s, strip, stripSize) >= 0 && errors.count == 0;
    if (!readable && problem.empty()) problem = "page " + std::to_string(page) + " cannot be decoded";
    _TIFFfree(strip);
  }
  TIFFClose(tiff);
  if (readable && errors.count == 0 && voxels >= 1.0) return okStatus();
  if (problem.empty()) problem = voxels >= 1.0 ? "libtiff reports errors" : "no pages";
  return corruptError("not a TIFF file VTK can read: " + problem + libtiffReason(errors));
}

}  // namespace

TIFFDatasetFileReadWrite::TIFFDatasetFileReadWrite()
    : TIFFDatasetFileReadWrite(vtkTIFFReader::New(), vtkTIFFWriter::New()) {}

TIFFDatasetFileReadWrite::TIFFDatasetFileReadWrite(vtkTIFFReader* reader, vtkTIFFWriter* writer)
    : VTKWrapperDatasetFileReadWrite(reader, writer), tiffReader(reader), tiffWriter(writer) {
  typeCode = 3;
  tiffWriter->SetCompression(vtkTIFFWriter::NoCompression);
}

void TIFFDatasetFileReadWrite::read(Dataset* dataset, int t) { (void)formats::readVtkTiffFile(*this, dataset, t); }

Status formats::readVtkTiffFile(TIFFDatasetFileReadWrite& file, Dataset* dataset, int t) {
  if (dataset == nullptr) return invalidArgumentError("no dataset to read into");
  if (Status volume = checkReadableVolume(file.getFileName().c_str()); !volume.ok()) return volume;
  return readThroughVtkReader(file, dataset, t);
}

}  // namespace tarv
