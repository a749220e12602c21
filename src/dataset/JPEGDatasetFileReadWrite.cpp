#include "dataset/JPEGDatasetFileReadWrite.h"

// jpeglib.h needs FILE and size_t declared first.
#include <csetjmp>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include <jpeglib.h>
#include <vtkJPEGReader.h>
#include <vtkJPEGWriter.h>

#include <string>

namespace tarv {

namespace {

struct DecodingErrors {
  jpeg_error_mgr manager;
  std::jmp_buf stop;
};

void stopDecoding(j_common_ptr info) { std::longjmp(reinterpret_cast<DecodingErrors*>(info->err)->stop, 1); }

void ignoreMessage(j_common_ptr) {}

// Decodes the whole file scanline by scanline. Only plain C objects live here, as errors
// arrive by longjmp.
bool decodesCleanly(const char* fileName) {
  std::FILE* file = std::fopen(fileName, "rb");
  if (file == nullptr) return false;
  jpeg_decompress_struct info;
  std::memset(&info, 0, sizeof info);
  DecodingErrors errors;
  info.err = jpeg_std_error(&errors.manager);
  errors.manager.error_exit = stopDecoding;
  errors.manager.output_message = ignoreMessage;
  unsigned char* volatile row = nullptr;
  volatile bool decoded = false;
  if (setjmp(errors.stop) == 0) {
    jpeg_create_decompress(&info);
    jpeg_stdio_src(&info, file);
    jpeg_read_header(&info, TRUE);
    const double pixels = static_cast<double>(info.image_width) * info.image_height;
    if (pixels >= 1.0 && pixels < 2147483648.0) {
      jpeg_start_decompress(&info);
      row = static_cast<unsigned char*>(std::malloc(static_cast<std::size_t>(info.output_width) * info.output_components));
      if (row != nullptr) {
        while (info.output_scanline < info.output_height) {
          JSAMPROW rows[1] = {row};
          jpeg_read_scanlines(&info, rows, 1);
        }
        jpeg_finish_decompress(&info);
        decoded = errors.manager.num_warnings == 0;
      }
    }
  }
  std::free(row);
  jpeg_destroy_decompress(&info);
  std::fclose(file);
  return decoded;
}

}  // namespace

JPEGDatasetFileReadWrite::JPEGDatasetFileReadWrite()
    : JPEGDatasetFileReadWrite(vtkJPEGReader::New(), vtkJPEGWriter::New()) {}

JPEGDatasetFileReadWrite::JPEGDatasetFileReadWrite(vtkJPEGReader* reader, vtkJPEGWriter* writer)
    : VTKWrapperDatasetFileReadWrite(reader, writer), jpegReader(reader), jpegWriter(writer) {
  typeCode = 3;
  jpegWriter->SetQuality(100);
}

void JPEGDatasetFileReadWrite::read(Dataset* dataset, int t) {
  if (dataset == nullptr || !decodesCleanly(getFileName().c_str())) return;
  VTKWrapperDatasetFileReadWrite::read(dataset, t);
}

void JPEGDatasetFileReadWrite::setQuality(int quality) { jpegWriter->SetQuality(quality); }

int JPEGDatasetFileReadWrite::getQuality() const { return jpegWriter->GetQuality(); }

}  // namespace tarv
