#include "dataset/PNGDatasetFileReadWrite.h"

#include <png.h>
#include <vtkPNGReader.h>
#include <vtkPNGWriter.h>

#include <csetjmp>
#include <cstdio>
#include <cstdlib>
#include <string>

#include "formats/FileStatus.h"

namespace tarv {

namespace {

constexpr std::size_t kReasonSize = 256;

// The error message goes to the buffer given as the error pointer.
void stopDecoding(png_structp png, png_const_charp message) {
  char* reason = static_cast<char*>(png_get_error_ptr(png));
  if (reason != nullptr && message != nullptr) std::snprintf(reason, kReasonSize, "%s", message);
  png_longjmp(png, 1);
}

void ignoreWarning(png_structp, png_const_charp) {}

// Decodes the whole file, trailing chunks included, row by row; reason (kReasonSize bytes) gets
// libpng's message when that fails. Only plain C objects live here, as libpng reports errors with
// longjmp.
bool decodesCompletely(const char* fileName, char* reason) {
  std::FILE* file = std::fopen(fileName, "rb");
  if (file == nullptr) return false;
  png_structp png = png_create_read_struct(PNG_LIBPNG_VER_STRING, reason, stopDecoding, ignoreWarning);
  png_infop info = png != nullptr ? png_create_info_struct(png) : nullptr;
  png_infop endInfo = png != nullptr ? png_create_info_struct(png) : nullptr;
  png_bytep volatile row = nullptr;
  volatile bool decoded = false;
  if (png != nullptr && info != nullptr && endInfo != nullptr && setjmp(png_jmpbuf(png)) == 0) {
    png_init_io(png, file);
    png_read_info(png, info);
    const png_uint_32 height = png_get_image_height(png, info);
    const double pixels = static_cast<double>(png_get_image_width(png, info)) * height;
    if (pixels < 1.0 || pixels >= 2147483648.0) std::snprintf(reason, kReasonSize, "images of 2^31 pixels or more cannot be read");
    if (pixels >= 1.0 && pixels < 2147483648.0) {
      const int passes = png_set_interlace_handling(png);
      png_read_update_info(png, info);
      row = static_cast<png_bytep>(std::malloc(png_get_rowbytes(png, info)));
      if (row != nullptr) {
        for (int pass = 0; pass < passes; ++pass)
          for (png_uint_32 y = 0; y < height; ++y) png_read_row(png, row, nullptr);
        png_read_end(png, endInfo);
        decoded = true;
      }
    }
  }
  std::free(row);
  if (png != nullptr) png_destroy_read_struct(&png, info != nullptr ? &info : nullptr, endInfo != nullptr ? &endInfo : nullptr);
  std::fclose(file);
  return decoded;
}

}  // namespace

PNGDatasetFileReadWrite::PNGDatasetFileReadWrite() : PNGDatasetFileReadWrite(vtkPNGReader::New(), vtkPNGWriter::New()) {}

PNGDatasetFileReadWrite::PNGDatasetFileReadWrite(vtkPNGReader* reader, vtkPNGWriter* writer)
    : VTKWrapperDatasetFileReadWrite(reader, writer), pngReader(reader), pngWriter(writer) {
  typeCode = 3;
}

void PNGDatasetFileReadWrite::read(Dataset* dataset, int t) { (void)formats::readPngFile(*this, dataset, t); }

Status formats::readPngFile(PNGDatasetFileReadWrite& file, Dataset* dataset, int t) {
  if (dataset == nullptr) return invalidArgumentError("no dataset to read into");
  const std::string name = file.getFileName();
  char reason[kReasonSize] = "not a PNG file";
  if (!decodesCompletely(name.c_str(), reason)) {
    Status readable = checkReadableFile(name);
    return readable.ok() ? corruptError(std::string("not a readable PNG file: ") + reason) : readable;
  }
  return readThroughVtkReader(file, dataset, t);
}

}  // namespace tarv
