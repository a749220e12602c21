// A small example of the dataset module: builds datasets of several element types, sets and
// reads elements, and converts voxel to world coordinates.
#include <iostream>

#include "dataset/Dataset.h"
#include "dataset/DatasetHandle.h"

using namespace tarv;

int main() {
  tarv_load_dataset_message();

  // A 64 x 64 x 32 CT-like volume of signed 16-bit values with 0.7 x 0.7 x 2.5 mm voxels.
  DatasetWorldEmbedding embedding(WorldCoordinates(-22.4, -22.4, 100.0, 0.0), WorldCoordinates(0.7, 0.7, 2.5, 1.0));
  DatasetHandle ct(new Dataset(true));
  GetRawPtr(ct)->newDataset<short>(DatasetCoordinates(64, 64, 32, 1, 1), embedding);
  Dataset* volume = GetRawPtr(ct);
  for (auto it = volume->getStartCoordinatesIterator(); it.valid; volume->incrementCoordinatesIterator(it)) {
    const int dx = it.x - 32, dy = it.y - 32, dz = it.z - 16;
    volume->setElement<short>(it, dx * dx + dy * dy + 4 * dz * dz < 400 ? short(60) : short(-1000));
  }
  std::cout << "CT volume: size " << volume->getSize() << ", " << volume->getElementCount() << " voxels of type "
            << DatasetMemory::getElementTypeName(volume->getElementType()) << ", range " << volume->getMinimumValue()
            << " .. " << volume->getMaximumValue() << "\n";

  const DatasetCoordinates voxel(32, 32, 16, 0, 0);
  const WorldCoordinates world = volume->getWorldEmbedding().voxelToWorld(voxel);
  std::cout << "voxel (" << voxel << ") lies at world (" << world.x << ", " << world.y << ", " << world.z
            << ") mm and holds " << volume->getElement<int>(voxel) << "\n";
  std::cout << "world (0, 0, 140) mm is voxel (" << volume->getWorldEmbedding().worldToVoxel(WorldCoordinates(0, 0, 140, 0))
            << ")\n";

  // The same values read through other element types: conversions truncate and wrap.
  Dataset f(true);
  f.newDataset<float>(DatasetCoordinates(3, 1, 1, 1, 1), DatasetWorldEmbedding());
  f.setElement<double>(DatasetCoordinates(0, 0, 0, 0, 0), 2.7);
  f.setElement<double>(DatasetCoordinates(1, 0, 0, 0, 0), -1.7);
  f.setElement<double>(DatasetCoordinates(2, 0, 0, 0, 0), 300.0);
  std::cout << "float 2.7 as int: " << f.getElement<int>(DatasetCoordinates(0, 0, 0, 0, 0))
            << ", float -1.7 as unsigned char: " << int(f.getElement<unsigned char>(DatasetCoordinates(1, 0, 0, 0, 0)))
            << ", float 300 as unsigned char: " << int(f.getElement<unsigned char>(DatasetCoordinates(2, 0, 0, 0, 0)))
            << "\n";

  // A bool mask takes one bit per element.
  Dataset mask(true);
  mask.newDataset<bool>(DatasetCoordinates(64, 64, 32, 1, 1), embedding);
  for (auto it = mask.getStartCoordinatesIterator(); it.valid; mask.incrementCoordinatesIterator(it))
    mask.setElement<bool>(it, volume->getElement<short>(static_cast<const DatasetCoordinates&>(it)) > 0);
  std::cout << "bool mask of " << mask.getElementCount() << " elements uses " << mask.getMemoryUsage()
            << " bytes\n";
  return 0;
}
