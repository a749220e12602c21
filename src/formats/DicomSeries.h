#ifndef TARV_FORMATS_DICOMSERIES_H
#define TARV_FORMATS_DICOMSERIES_H

// DICOM series through GDCM: the files of a folder (searched recursively) or a single file,
// grouped by SeriesInstanceUID. The slices of a series are sorted by ImagePositionPatient along
// the slice normal (the cross product of the two ImageOrientationPatient directions); the z spacing
// is the distance between consecutive positions. Orientation from ImageOrientationPatient, origin
// the position of the first slice, RescaleSlope/RescaleIntercept as the ModalityLUT. A multi-frame
// file is one series with GDCM's geometry for its frames. Pixel data of every transfer syntax GDCM
// decodes. The dataset's DICOM tags hold the text elements of the first slice.

#include <string>
#include <vector>

#include "dataset/DatasetHandle.h"
#include "status/Status.h"

namespace tarv {
class Dataset;
class DatasetFileReadModule;
}  // namespace tarv

namespace tarv::formats {

// Whether the file has the DICOM preamble and "DICM" prefix.
bool looksLikeDicomFile(const std::string& path);

struct DicomSeriesSummary {
  std::string uid;
  std::string description;
  int files = 0;
};

// The series found under path (a folder or one file), in the order of their UIDs.
Result<std::vector<DicomSeriesSummary>> listDicomSeries(const std::string& path);

// The series with the UID, or the only one when uid is empty (several: refused with their list).
Result<DatasetHandle> readDicomSeries(const std::string& path, const std::string& uid);

// A read module that reads the series (as readDicomSeries chooses it) file by file, for a
// FileReadDataset (owned by the caller until handed to one). Opening it reads every file's
// header; the pixels of a file are decoded when its slices are first read.
DatasetFileReadModule* newDicomSeriesReadModule(const std::string& uid);
// The tags of the first file of an open series module, copied to the dataset.
void copyDicomTags(DatasetFileReadModule* module, Dataset* dataset);

}  // namespace tarv::formats

#endif
