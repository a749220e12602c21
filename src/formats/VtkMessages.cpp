#include "formats/VtkMessages.h"

#include <vtkAlgorithm.h>
#include <vtkCallbackCommand.h>
#include <vtkCommand.h>
#include <vtkObject.h>
#include <vtkErrorCode.h>
#include <vtkImageData.h>
#include <vtkSetGet.h>

#include "dataset/Dataset.h"

namespace tarv::formats {

VtkErrorCapture::VtkErrorCapture(vtkObject* object) : object(object), command(vtkCallbackCommand::New()) {
  command->SetCallback(&VtkErrorCapture::onError);
  command->SetClientData(this);
  if (object != nullptr) tag = object->AddObserver(vtkCommand::ErrorEvent, command);
}

VtkErrorCapture::~VtkErrorCapture() {
  if (object != nullptr) object->RemoveObserver(tag);
  command->Delete();
}

void VtkErrorCapture::onError(vtkObject*, unsigned long, void* capture, void* text) {
  if (text == nullptr) return;
  const char* message = static_cast<const char*>(text);
  auto* self = static_cast<VtkErrorCapture*>(capture);
  if (self->first.empty()) {
    // "ERROR: In file, line n\nvtkClass (0x...): message\n\n": the last line, after the object.
    std::string line = message;
    while (!line.empty() && (line.back() == '\n' || line.back() == ' ')) line.pop_back();
    const std::size_t lineStart = line.rfind('\n');
    if (lineStart != std::string::npos) line = line.substr(lineStart + 1);
    const std::size_t objectEnd = line.find("): ");
    if (objectEnd != std::string::npos) line = line.substr(objectEnd + 3);
    self->first = line.empty() ? std::string("VTK reported an error") : line;
  }
  vtkOutputWindowDisplayErrorText(message);
}

Status readImageWithVtk(vtkAlgorithm* reader, bool canRead, const std::string& formatName, Dataset* dataset, int t) {
  if (dataset == nullptr) return invalidArgumentError("no dataset to read into");
  if (!canRead) return corruptError("not a readable " + formatName + " file");
  Result<vtkImageData*> image = runVtkReader(reader);
  if (!image.ok()) return image.status();
  dataset->fromImageData(*image, t);
  (*image)->Initialize();  // the reader need not keep the pixels
  if (!dataset->hasData()) return unsupportedError("the image's scalar type or shape cannot be taken");
  return okStatus();
}

Status writeImageWithVtk(vtkAlgorithm* writer, const char* name, Dataset* dataset, int t, bool withWorldEmbedding,
                         const std::function<void(vtkImageData*)>& write) {
  if (dataset == nullptr) return invalidArgumentError("no dataset to write");
  if (name == nullptr) return invalidArgumentError("no file name");
  if (Status writable = checkWritableFile(name); !writable.ok()) return writable;
  vtkImageData* image = dataset->toImageData(t, withWorldEmbedding);
  if (image == nullptr) return unsupportedError("VTK cannot hold the dataset's element type or time step");
  VtkErrorCapture errors(writer);
  write(image);
  image->Delete();
  if (writer->GetErrorCode() != vtkErrorCode::NoError || !errors.firstError().empty())
    return ioError("VTK cannot write it" + errors.suffix());
  return okStatus();
}

}  // namespace tarv::formats
