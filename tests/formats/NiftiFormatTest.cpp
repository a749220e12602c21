// NIfTI files: round trips of every element type the format holds, geometry, rescale, refusals.
#include <gtest/gtest.h>

#include <chrono>
#include <cstring>
#include <random>
#include <string>
#include <utility>

#include "FormatTestSupport.h"
#include "core/Vector3D.h"
#include "elementtypes/ElementTypeNames.h"
#include "formats/NiftiFormat.h"

namespace tarv {
namespace {

using testing::readBytes;
using testing::TemporaryDirectory;
using testing::writeBytes;

// An oblique embedding: axes rotated about z by 30 degrees and tilted, anisotropic spacing.
DatasetWorldEmbedding obliqueEmbedding() {
  const double c = std::cos(0.5235987755982988), s = std::sin(0.5235987755982988);
  const Vector3D first(c, s, 0.0);
  const Vector3D second(-s * 0.8, c * 0.8, 0.6);
  return DatasetWorldEmbedding(WorldCoordinates(-120.5, 33.25, 17.0, 2.5), WorldCoordinates(0.7, 0.9, 2.5, 1.5),
                               first, second);
}

void expectSameEmbedding(const DatasetWorldEmbedding& a, const DatasetWorldEmbedding& b) {
  const TransformationMatrix& m = a.getVoxel2WorldMatrix();
  const TransformationMatrix& n = b.getVoxel2WorldMatrix();
  for (int row = 0; row < 3; ++row)
    for (int column = 0; column < 4; ++column)
      // NIfTI-1 keeps the matrix in single precision.
      EXPECT_NEAR(m(row, column), n(row, column), 1e-6 * std::max(1.0, std::abs(n(row, column))))
          << "matrix element " << row << ", " << column;
  EXPECT_NEAR(a.getVoxelSpacing().t, b.getVoxelSpacing().t, 1e-12);
  EXPECT_NEAR(a.getDatasetOrigin().t, b.getDatasetOrigin().t, 1e-12);
}

TEST(NiftiFormat, EveryHeldElementTypeRoundTripsWithGeometryTimeAndComponents) {
  TemporaryDirectory dir;
  int written = 0;
  for (bool compressed : {false, true}) {
    SCOPED_TRACE(compressed ? "compressed" : "plain");
    const std::string path = dir.file(std::string("a") + (compressed ? ".nii.gz" : ".nii"));
    written += testing::roundTripEveryElementType(
        DatasetCoordinates(5, 4, 3, 2, 3), obliqueEmbedding(), formats::niftiHoldsElementType,
        [&](Dataset& d) { return formats::writeNiftiFile(&d, path, compressed); },
        [&] { return formats::readNiftiFile(path); },
        [](Dataset& d) {
          ModalityLUT lut;
          lut.set(0.5, -1024.0);
          d.setModalityLUT(lut);
        },
        [&](Dataset& d, Dataset& r) {
          EXPECT_EQ(std::memcmp(readBytes(path).data(), compressed ? "\x1f\x8b" : "\x5c\x01", 2), 0);
          expectSameEmbedding(r.getWorldEmbedding(), d.getWorldEmbedding());
          EXPECT_TRUE(r.getModalityLUT().isValid());
          EXPECT_EQ(r.getModalityLUT().getSlope(), 0.5);
          EXPECT_EQ(r.getModalityLUT().getIntercept(), -1024.0);
        });
  }
  EXPECT_EQ(written, 20) << "ten element types, plain and compressed";
}

// The header of a small float file, to be altered.
std::string smallFile(const TemporaryDirectory& dir) {
  Dataset d(true);
  d.newDataset(DatasetCoordinates(4, 3, 2, 1, 1), TARV_ELEMENT_TYPE_FLOAT, DatasetWorldEmbedding());
  EXPECT_TRUE(formats::writeNiftiFile(&d, dir.file("small.nii"), false).ok());
  return readBytes(dir.file("small.nii"));
}

void setShort(std::string& bytes, std::size_t offset, short value) { std::memcpy(&bytes[offset], &value, 2); }

std::string readFailure(const TemporaryDirectory& dir, const std::string& bytes) {
  writeBytes(dir.file("bad.nii"), bytes);
  Result<DatasetHandle> read = formats::readNiftiFile(dir.file("bad.nii"));
  EXPECT_FALSE(read.ok());
  return read.ok() ? std::string() : read.status().message();
}

TEST(NiftiFormat, RefusalsNameWhatIsUnsupported) {
  TemporaryDirectory dir;
  const std::string file = smallFile(dir);
  ASSERT_EQ(file.size(), 352u + 24 * 4);
  // datatype at 70, bitpix at 72 in a NIfTI-1 header.
  std::string complex = file;
  setShort(complex, 70, 32);
  setShort(complex, 72, 64);
  EXPECT_EQ(readFailure(dir, complex), "complex samples");
  std::string bits = file;
  setShort(bits, 70, 1);
  setShort(bits, 72, 1);
  EXPECT_EQ(readFailure(dir, bits), "1-bit samples");
  std::string sixDimensions = file;
  setShort(sixDimensions, 40, 6);
  setShort(sixDimensions, 52, 2);
  EXPECT_EQ(readFailure(dir, sixDimensions), "more than five dimensions");
  EXPECT_EQ(readFailure(dir, file.substr(0, file.size() - 5)), "the voxels end after 91 of 96 bytes (truncated)");
  EXPECT_EQ(readFailure(dir, "plain text, not an image"), "not a NIfTI file (no NIfTI-1 or NIfTI-2 header)");
  // The byte order told by the header size (swapped here) and by dim[0] (not) disagree.
  std::string mixedOrder = file;
  std::swap(mixedOrder[0], mixedOrder[3]);
  std::swap(mixedOrder[1], mixedOrder[2]);
  EXPECT_EQ(readFailure(dir, mixedOrder), "a NIfTI header whose size and dimension count disagree on the byte order");
  // Both swapped, with the magic of a later version: the NIfTI library would not swap the rest.
  std::string laterMagic = mixedOrder;
  std::swap(laterMagic[40], laterMagic[41]);
  laterMagic[346] = '4';
  EXPECT_EQ(readFailure(dir, laterMagic), "a NIfTI-1 header with the magic of version 4");
  EXPECT_EQ(readFailure(dir, file.substr(0, 200)), "not a NIfTI file (no NIfTI-1 or NIfTI-2 header)");
  EXPECT_FALSE(formats::readNiftiFile(dir.file("absent.nii")).ok());
  Dataset flags(true);
  flags.newDataset(DatasetCoordinates(2, 2, 1, 1, 1), TARV_ELEMENT_TYPE_BOOL, DatasetWorldEmbedding());
  EXPECT_EQ(formats::writeNiftiFile(&flags, dir.file("flags.nii"), false).message(), "NIfTI cannot hold bool elements");
}

// A header of a few hundred bytes that claims 32767^3 voxels is refused before anything is allocated.
TEST(NiftiFormat, HugeClaimsAreRefusedAtOnce) {
  TemporaryDirectory dir;
  std::string file = smallFile(dir);
  for (std::size_t axis = 0; axis < 3; ++axis) setShort(file, 42 + 2 * axis, 32767);
  const auto start = std::chrono::steady_clock::now();
  EXPECT_EQ(readFailure(dir, file), "too large: 2^31 elements or more");
  EXPECT_LT(std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count(), 1.0);
  setShort(file, 42, -3);
  EXPECT_EQ(readFailure(dir, file), "a NIfTI header with an extent of -3");
}

// Byte-swapped files read the same.
TEST(NiftiFormat, EitherByteOrderReads) {
  TemporaryDirectory dir;
  Dataset d(true);
  d.newDataset(DatasetCoordinates(3, 2, 2, 1, 1), TARV_ELEMENT_TYPE_SIGNED_SHORT_INT,
               testing::embedding(1, 2, 3, 0.5, 0.5, 2));
  int v = -600;
  for (auto it = d.getStartCoordinatesIterator(); it.valid; d.incrementCoordinatesIterator(it)) d.setElement<int>(it, v += 97);
  ASSERT_TRUE(formats::writeNiftiFile(&d, dir.file("little.nii"), false).ok());
  std::string bytes = readBytes(dir.file("little.nii"));
  // Swap every numeric field of the NIfTI-1 header by its size, then the voxels.
  auto swap2 = [&](std::size_t offset) { std::swap(bytes[offset], bytes[offset + 1]); };
  auto swap4 = [&](std::size_t offset) {
    std::swap(bytes[offset], bytes[offset + 3]);
    std::swap(bytes[offset + 1], bytes[offset + 2]);
  };
  for (std::size_t offset : {36, 68, 70, 72, 74, 120, 252, 254}) swap2(offset);
  for (std::size_t offset = 40; offset < 56; offset += 2) swap2(offset);
  for (std::size_t offset : {0, 32, 56, 60, 64, 140, 144}) swap4(offset);
  for (std::size_t offset = 76; offset < 120; offset += 4) swap4(offset);
  for (std::size_t offset = 124; offset < 140; offset += 4) swap4(offset);
  for (std::size_t offset = 256; offset < 328; offset += 4) swap4(offset);
  for (std::size_t offset = 352; offset < bytes.size(); offset += 2) swap2(offset);
  writeBytes(dir.file("big.nii"), bytes);
  Result<DatasetHandle> back = formats::readNiftiFile(dir.file("big.nii"));
  ASSERT_TRUE(back.ok()) << back.status().toString();
  for (auto it = d.getStartCoordinatesIterator(); it.valid; d.incrementCoordinatesIterator(it))
    EXPECT_EQ(GetRawPtr(*back)->getElement<int>(it), d.getElement<int>(it));
  expectSameEmbedding(GetRawPtr(*back)->getWorldEmbedding(), d.getWorldEmbedding());
}

}  // namespace
}  // namespace tarv
