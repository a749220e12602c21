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

#include "formats/FileStatus.h"

namespace tarv {

namespace {

struct DecodingErrors {
  jpeg_error_mgr manager;
  std::jmp_buf stop;
  char reason[JMSG_LENGTH_MAX];
};

// Keeps the message (the first warning's, or the error's) as the reason.
void keepMessage(j_common_ptr info) {
  auto* errors = reinterpret_cast<DecodingErrors*>(info->err);
  (*info->err->format_message)(info, errors->reason);
}

void stopDecoding(j_common_ptr info) {
  keepMessage(info);
  std::longjmp(reinterpret_cast<DecodingErrors*>(info->err)->stop, 1);
}

// Decodes the whole file scanline by scanline; reason (JMSG_LENGTH_MAX bytes) gets libjpeg's
// message when that fails. Only plain C objects live here, as errors arrive by longjmp.
bool decodesCleanly(const char* fileName, char* reason) {
  std::FILE* file = std::fopen(fileName, "rb");
  if (file == nullptr) return false;
  jpeg_decompress_struct info;
  std::memset(&info, 0, sizeof info);
  DecodingErrors errors;
  info.err = jpeg_std_error(&errors.manager);
  errors.manager.error_exit = stopDecoding;
  errors.manager.output_message = keepMessage;
  std::snprintf(errors.reason, sizeof errors.reason, "%s", reason);
  unsigned char* volatile row = nullptr;
  volatile bool decoded = false;
  if (setjmp(errors.stop) == 0) {
    jpeg_create_decompress(&info);
    jpeg_stdio_src(&info, file);
    jpeg_read_header(&info, TRUE);
    const double pixels = static_cast<double>(info.image_width) * info.image_height;
    if (pixels < 1.0 || pixels >= 2147483648.0)
      std::snprintf(errors.reason, sizeof errors.reason, "images of 2^31 pixels or more cannot be read");
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
  std::snprintf(reason, JMSG_LENGTH_MAX, "%s", errors.reason);
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

void JPEGDatasetFileReadWrite::read(Dataset* dataset, int t) { (void)formats::readJpegFile(*this, dataset, t); }

Status formats::readJpegFile(JPEGDatasetFileReadWrite& file, Dataset* dataset, int t) {
  if (dataset == nullptr) return invalidArgumentError("no dataset to read into");
  const std::string name = file.getFileName();
  char reason[JMSG_LENGTH_MAX] = "not a JPEG file";
  if (!decodesCleanly(name.c_str(), reason)) {
    Status readable = checkReadableFile(name);
    return readable.ok() ? corruptError(std::string("not a readable JPEG file: ") + reason) : readable;
  }
  return readThroughVtkReader(file, dataset, t);
}

void JPEGDatasetFileReadWrite::setQuality(int quality) { jpegWriter->SetQuality(quality); }

int JPEGDatasetFileReadWrite::getQuality() const { return jpegWriter->GetQuality(); }

}  // namespace tarv
