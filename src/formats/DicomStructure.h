#ifndef TARV_FORMATS_DICOMSTRUCTURE_H
#define TARV_FORMATS_DICOMSTRUCTURE_H

#include <string>

#include "status/Status.h"

namespace tarv::formats {

// The data elements of a DICOM file walked without reading their values: the preamble and "DICM"
// prefix, the file meta group, then the data set in its transfer syntax, into sequences,
// items and encapsulated pixel fragments. GDCM allocates what a value length claims before it
// reads the value, and aborts on some malformed files, so files are checked here first.
enum class DicomStructure {
  wellFormed,
  // No preamble and "DICM" prefix: some other file, or an older ACR-NEMA file, which is not read.
  notDicom,
};

// wellFormed, notDicom, or why a DICOM file is malformed: a value, item or fragment that runs
// past what encloses it (the file, its item or its sequence), a sequence or item without its
// delimiter, an unknown value representation, an image pixel or multi-frame module element (rows,
// columns, bits, planar configuration, palette descriptors, frame increment pointer, nuclear
// medicine counts) not of its binary form, samples per pixel, bits or pixel representation of
// values GDCM does not take, elements GDCM reads as typed values (positions, spacings, rescaling,
// UIDs) given another value representation, sequences nested more than
// 32 deep, or a deflated transfer syntax (its elements cannot be walked without inflating them).
// Palette colour images are refused as unsupported.
Result<DicomStructure> checkDicomStructure(const std::string& path);

}  // namespace tarv::formats

#endif
