#ifndef TARV_VTKBRIDGE_VTKIMAGECONVERSION_H
#define TARV_VTKBRIDGE_VTKIMAGECONVERSION_H

// Datasets to and from vtkImageData (Dataset::toImageData and Dataset::fromImageData).

class vtkImageData;

namespace tarv {
class Dataset;
}

namespace tarv::vtkbridge {

// Time step t of the dataset as a new single-component image owned by the caller; null when the
// element type has no VTK scalar type, there is no data or t is outside.
vtkImageData* imageDataOfTimeStep(Dataset& dataset, int t, bool withWorldEmbedding);

// Fills time step t of the dataset from the image's first component, in place when size and type
// match, else re-creating the dataset as (x, y, z, 1, 1); takes the image's origin and spacing.
void fillTimeStepFromImageData(Dataset& dataset, vtkImageData* image, int t);

}  // namespace tarv::vtkbridge

#endif
