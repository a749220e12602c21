#ifndef TARV_FORMATS_FILESTATUS_H
#define TARV_FORMATS_FILESTATUS_H

// Status-returning forms of the file-format operations. The classes' own operations (bool, void
// or null results, with the messages they document) are thin wrappers around these; the library's
// tools call these to learn why something failed.

#include <cstdint>
#include <istream>
#include <string>

#include "core/DatasetCoordinates.h"
#include "status/Status.h"

namespace tarv {

class Dataset;
class DatasetFileReadModule;
class JPEGDatasetFileReadWrite;
class PNGDatasetFileReadWrite;
class RawDatasetFileReadWrite;
class TARV1DatasetFileReadWrite;
class TARV1FileHeader;
class TIFFDatasetFileReadWrite;
class TiffDatasetFileWrite;
class VTIDatasetFileReadWrite;
class VTKDatasetFileReadWrite;
class VTKWrapperDatasetFileReadWrite;

namespace formats {

// Why path cannot be read: not found, a directory, not a regular file, no permission; ok when it
// is a readable regular file.
Status checkReadableFile(const std::string& path);
// Why a file failed to open (errno of the failed open, then the file system); never ok.
Status openForReadingFailure(const std::string& path);
Status openForWritingFailure(const std::string& path);
// After opening path for reading: ok when it opened and is a readable regular file (a directory
// opens as a stream too), else why not.
Status checkOpenedForReading(bool opened, const std::string& path);
// "128 x 128 x 64", with ", t 3" and ", 2 components" when there are several.
std::string sizeText(const DatasetCoordinates& size);

// Read modules report here why their last open() failed and the first block they could not read
// since their file was opened (DatasetFileReadModule::openFile clears both).
void noteOpenStatus(const DatasetFileReadModule* module, const Status& status);
void noteBlockReadFailure(const DatasetFileReadModule* module, const Status& status);
void clearReadModuleStatus(const DatasetFileReadModule* module);
// Why the module's last openFile failed (a generic reason for modules that give none); ok when
// the module took the file (and something after it failed, or it was closed since).
Status lastOpenStatus(const DatasetFileReadModule& module);
// The first block read failure since the module's file was opened; ok when there was none.
Status blockReadStatus(const DatasetFileReadModule& module);

// TARV1.
Status readTarv1Header(std::istream& stream, TARV1FileHeader& header);
// The header's acceptance against the file's size (the size is compared in 32 bits).
Status checkTarv1Header(const TARV1FileHeader& header, std::int64_t fileBytes);
// On failure the dataset is cleared.
Status readTarv1File(const TARV1DatasetFileReadWrite& file, Dataset* dataset);
Status writeTarv1File(const TARV1DatasetFileReadWrite& file, Dataset* dataset);

// Raw; negative filler sizes are set to 0 in file. A failed read leaves the dataset unchanged
// (unless the file shrinks while it is read).
Status readRawFile(RawDatasetFileReadWrite& file, Dataset* dataset);
// Whether the file's size matches a dataset of the given size in file's layout (and stays below
// 2 GiB), before any dataset is made for it.
Status checkRawFileSize(const RawDatasetFileReadWrite& file, const DatasetCoordinates& size);
Status writeRawFile(RawDatasetFileReadWrite& file, Dataset* dataset);

// Paged TIFF.
Status writePagedTiffFile(const TiffDatasetFileWrite& file, Dataset* dataset);

// Through VTK: dispatches on the class of file.
Status readVtkFile(VTKDatasetFileReadWrite& file, Dataset* dataset, int t);
Status writeVtkFile(VTKDatasetFileReadWrite& file, Dataset* dataset, int t);
Status readThroughVtkReader(VTKWrapperDatasetFileReadWrite& file, Dataset* dataset, int t);
Status writeThroughVtkWriter(VTKWrapperDatasetFileReadWrite& file, Dataset* dataset, int t);
Status readVtkTiffFile(TIFFDatasetFileReadWrite& file, Dataset* dataset, int t);
Status readPngFile(PNGDatasetFileReadWrite& file, Dataset* dataset, int t);
Status readJpegFile(JPEGDatasetFileReadWrite& file, Dataset* dataset, int t);
Status readVtiFile(VTIDatasetFileReadWrite& file, Dataset* dataset, int t);
Status writeVtiFile(VTIDatasetFileReadWrite& file, Dataset* dataset, int t);

}  // namespace formats
}  // namespace tarv

#endif
