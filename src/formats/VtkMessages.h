#ifndef TARV_FORMATS_VTKMESSAGES_H
#define TARV_FORMATS_VTKMESSAGES_H

#include <functional>
#include <string>

#include "status/Status.h"

class vtkAlgorithm;
class vtkCallbackCommand;
class vtkImageData;
class vtkObject;

namespace tarv {
class Dataset;
}

namespace tarv::formats {

// While it lives, takes note of the error messages that one VTK object reports, and still passes
// them on to VTK's output window as VTK would without it.
class VtkErrorCapture {
public:
  explicit VtkErrorCapture(vtkObject* object);
  ~VtkErrorCapture();
  VtkErrorCapture(const VtkErrorCapture&) = delete;
  VtkErrorCapture& operator=(const VtkErrorCapture&) = delete;

  // The first message, without VTK's file, line and object preamble; empty when there was none.
  const std::string& firstError() const { return first; }
  // ": first" when there was an error, else empty.
  std::string suffix() const { return first.empty() ? std::string() : ": " + first; }

private:
  static void onError(vtkObject* caller, unsigned long event, void* capture, void* text);

  vtkObject* object;
  vtkCallbackCommand* command;
  unsigned long tag = 0;
  std::string first;
};

// Runs reader afresh and returns its output image; fails when the reader reports an error or
// announces no image, or one of 2^31 voxels or more. Nothing of an earlier read survives a failed
// one.
Result<vtkImageData*> runVtkReader(vtkAlgorithm* reader);
// Whether a file of this name can be written: its directory exists and is writable, and so is the
// file if it exists. (VTK's writers leak when they cannot open their file.)
Status checkWritableFile(const std::string& name);
// Runs reader (canRead: it takes the file, a formatName file) and puts its image into time step t
// of dataset.
Status readImageWithVtk(vtkAlgorithm* reader, bool canRead, const std::string& formatName, Dataset* dataset, int t);
// Converts time step t of dataset and hands the image to write, which runs writer on it; name is
// the writer's file name.
Status writeImageWithVtk(vtkAlgorithm* writer, const char* name, Dataset* dataset, int t, bool withWorldEmbedding,
                         const std::function<void(vtkImageData*)>& write);

}  // namespace tarv::formats

#endif
