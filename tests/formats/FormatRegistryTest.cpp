// The table of dataset file formats and reading and writing by format.
#include <gtest/gtest.h>

#include <chrono>
#include <cstdint>
#include <filesystem>
#include <fstream>
#include <string>
#include <thread>

#include <unistd.h>

#include "TestSupport.h"
#include "formats/DatasetWriting.h"
#include "formats/FormatRegistry.h"

namespace tarv {
namespace {

using formats::FileFormat;
using testing::TemporaryDirectory;
using testing::writeBytes;

TEST(FormatRegistry, NamesAndExtensionsChooseFormats) {
  EXPECT_EQ(formats::formatFromName("TARV1"), FileFormat::tarv1);
  EXPECT_EQ(formats::formatFromName("tarv"), FileFormat::tarv1);
  EXPECT_EQ(formats::formatFromName("paged-tiff"), FileFormat::pagedTiff);
  EXPECT_EQ(formats::formatFromName("jpg"), FileFormat::jpeg);
  EXPECT_EQ(formats::formatFromName("bmp"), std::nullopt);
  EXPECT_EQ(formats::formatFromExtension("dir.d/a.TIFF"), FileFormat::pagedTiff);
  EXPECT_EQ(formats::formatFromExtension("a.jpeg"), FileFormat::jpeg);
  EXPECT_EQ(formats::formatFromExtension("a"), std::nullopt);
  EXPECT_EQ(formats::formatFromExtension("a.xyz"), std::nullopt);
  EXPECT_EQ(formats::formatFromExtension("ct.nii"), FileFormat::nifti);
  EXPECT_EQ(formats::formatFromExtension("dir.nii/ct.NII.GZ"), FileFormat::niftiGz);
  EXPECT_EQ(formats::formatFromExtension("ct.gz"), std::nullopt);
  EXPECT_EQ(formats::formatFromExtension(".nii"), std::nullopt);
  EXPECT_EQ(formats::formatNameList(), "tarv1, tiff, vtk-tiff, raw, png, jpeg, vti, nifti, nifti-gz, tiff-stack, dicom, metaimage, nrrd");
  EXPECT_EQ(formats::formatExtensionList(), ".tarv, .tif, .tiff, .raw, .png, .jpg, .jpeg, .vti, .nii, .nii.gz, .dcm, .mha, .mhd, .nrrd, .nhdr");
  EXPECT_EQ(formats::formatTable().size(), 13u);
  EXPECT_STREQ(formats::describeFormat(FileFormat::vti).displayName, "VTK image data");
}

TEST(FormatRegistry, HelpTableHasOneAlignedLinePerFormat) {
  const std::string table = formats::formatHelpTable();
  EXPECT_NE(table.find("  tarv1     .tarv        TARV1: "), std::string::npos) << table;
  EXPECT_NE(table.find("  vtk-tiff               TIFF through VTK"), std::string::npos) << table;
  EXPECT_EQ(std::count(table.begin(), table.end(), '\n'), 13);
}

TEST(FormatRegistry, ElementTypesAndShapes) {
  EXPECT_TRUE(formats::formatHoldsElementType(FileFormat::pagedTiff, TARV_ELEMENT_TYPE_BOOL));
  EXPECT_FALSE(formats::formatHoldsElementType(FileFormat::pagedTiff, TARV_ELEMENT_TYPE_DOUBLE));
  EXPECT_TRUE(formats::formatHoldsElementType(FileFormat::vti, TARV_ELEMENT_TYPE_SIGNED_LONG_INT));
  EXPECT_FALSE(formats::formatHoldsElementType(FileFormat::vti, TARV_ELEMENT_TYPE_LONG_DOUBLE));
  EXPECT_EQ(formats::elementTypesHeldBy(FileFormat::png), "uint8, uint16");
  const Status type = formats::checkFormatHoldsElementType(FileFormat::jpeg, TARV_ELEMENT_TYPE_FLOAT);
  EXPECT_EQ(type.code(), StatusCode::unsupported);
  EXPECT_EQ(type.message(), "JPEG cannot hold float elements (it holds uint8)");
  EXPECT_TRUE(formats::checkFormatHoldsShape(FileFormat::pagedTiff, DatasetCoordinates(9, 9, 9, 1, 4)).ok());
  EXPECT_EQ(formats::checkFormatHoldsShape(FileFormat::pagedTiff, DatasetCoordinates(9, 9, 9, 1, 5)).code(),
            StatusCode::unsupported);
  EXPECT_TRUE(formats::checkFormatHoldsShape(FileFormat::raw, DatasetCoordinates(9, 9, 9, 1, 7)).ok());
  EXPECT_EQ(formats::checkFormatHoldsShape(FileFormat::png, DatasetCoordinates(9, 9, 2, 1, 1)).message(),
            "PNG holds one plane; the data has 2");
}

// Elements that differ between two datasets of the same size.
int differingElements(Dataset& a, Dataset& b) {
  int differing = 0;
  for (auto it = a.getStartCoordinatesIterator(); it.valid; a.incrementCoordinatesIterator(it))
    if (a.getElement<double>(it) != b.getElement<double>(static_cast<const DatasetCoordinates&>(it))) ++differing;
  return differing;
}

TEST(FormatRegistry, WritesAndReadsEveryFormat) {
  TemporaryDirectory dir;
  Dataset d(true);
  d.newDataset(DatasetCoordinates(5, 4, 1, 1, 1), TARV_ELEMENT_TYPE_UNSIGNED_CHAR, DatasetWorldEmbedding());
  for (auto it = d.getStartCoordinatesIterator(); it.valid; d.incrementCoordinatesIterator(it))
    d.setElement<double>(it, 10 + it.x + 5 * it.y);
  for (const formats::FormatDescription& format : formats::formatTable()) {
    SCOPED_TRACE(format.name);
    if (!format.writes) {
      EXPECT_EQ(formats::writeDatasetFile(&d, dir.file("a.out"), format.format, formats::RawLayout()).message(),
                std::string(format.displayName) + " files are read, not written");
      continue;
    }
    const std::string path = dir.file(std::string("a.") + format.name);
    formats::RawLayout raw;
    raw.size = d.getSize();
    raw.elementType = d.getElementType();
    ASSERT_TRUE(formats::writeDatasetFile(&d, path, format.format, raw).ok());
    formats::ReadRequest request;
    request.format = format.format;
    request.raw = raw;
    for (bool lazy : {true, false}) {
      request.lazy = lazy;
      Result<formats::OpenedFile> opened = formats::readDatasetFile(path, request);
      ASSERT_TRUE(opened.ok()) << opened.status().toString();
      Dataset* back = GetRawPtr(opened->handle);
      EXPECT_EQ(opened->lazy, lazy && format.readsLazily);
      ASSERT_EQ(back->getSize(), d.getSize());
      // JPEG is lossy.
      if (format.format != FileFormat::jpeg) EXPECT_EQ(differingElements(d, *back), 0) << "elements that differ";
      EXPECT_TRUE(formats::blockReadStatus(back).ok());
    }
  }
}

// The first row of a TIFF file written through VTK is y = 0, as libtiff reads it, for one plane
// (which VTK's writer would store last row first) as for a volume.
TEST(FormatRegistry, TiffThroughVtkKeepsRowsInOrder) {
  TemporaryDirectory dir;
  for (int planes : {1, 3}) {
    SCOPED_TRACE(std::to_string(planes) + " planes");
    Dataset d(true);
    d.newDataset(DatasetCoordinates(6, 5, planes, 1, 1), TARV_ELEMENT_TYPE_UNSIGNED_SHORT_INT, DatasetWorldEmbedding());
    for (auto it = d.getStartCoordinatesIterator(); it.valid; d.incrementCoordinatesIterator(it))
      d.setElement<double>(it, it.x + 10 * it.y + 100 * it.z);
    const std::string path = dir.file("a" + std::to_string(planes) + ".tif");
    ASSERT_TRUE(formats::writeDatasetFile(&d, path, FileFormat::vtkTiff, formats::RawLayout()).ok());
    formats::ReadRequest request;
    for (FileFormat format : {FileFormat::vtkTiff, FileFormat::tiffStack}) {
      request.format = format;
      Result<formats::OpenedFile> opened = formats::readDatasetFile(path, request);
      ASSERT_TRUE(opened.ok()) << opened.status().toString();
      ASSERT_EQ(GetRawPtr(opened->handle)->getSize(), d.getSize());
      EXPECT_EQ(differingElements(d, *GetRawPtr(opened->handle)), 0) << formats::describeFormat(format).name;
    }
  }
}

// A .vti axis's step is its direction times its spacing: kept as a unit direction and a positive
// spacing; an axis without a step is refused.
TEST(FormatRegistry, VtiAxesWithoutLengthAreRefusedAndNegativeSpacingsFlipTheirDirection) {
  TemporaryDirectory dir;
  const auto vti = [](const std::string& spacing, const std::string& direction) {
    return "<?xml version=\"1.0\"?>\n<VTKFile type=\"ImageData\" version=\"1.0\" byte_order=\"LittleEndian\">\n"
           "<ImageData WholeExtent=\"0 1 0 0 0 0\" Origin=\"5 0 0\" Spacing=\"" + spacing + "\" Direction=\"" + direction +
           "\">\n<Piece Extent=\"0 1 0 0 0 0\"><PointData Scalars=\"v\"><DataArray type=\"Float32\" Name=\"v\" "
           "format=\"ascii\">1 2</DataArray></PointData></Piece>\n</ImageData>\n</VTKFile>\n";
  };
  formats::ReadRequest request;
  request.format = FileFormat::vti;
  writeBytes(dir.file("flat.vti"), vti("2 1 1", "1 0 0 0 1 0 0 0 0"));
  EXPECT_EQ(formats::readDatasetFile(dir.file("flat.vti"), request).status().message(),
            "an image whose direction and spacing of axis 2 give it no length");
  writeBytes(dir.file("flipped.vti"), vti("-2 1 1", "1 0 0 0 1 0 0 0 1"));
  Result<formats::OpenedFile> flipped = formats::readDatasetFile(dir.file("flipped.vti"), request);
  ASSERT_TRUE(flipped.ok()) << flipped.status().toString();
  const DatasetWorldEmbedding& embedding = GetRawPtr(flipped->handle)->getWorldEmbedding();
  EXPECT_DOUBLE_EQ(embedding.getVoxelSpacing().x, 2.0);
  EXPECT_DOUBLE_EQ(embedding.getVoxel2WorldMatrix()(0, 0), -2.0);
  EXPECT_DOUBLE_EQ(embedding.getVoxel2WorldMatrix()(0, 3), 5.0);
}

TEST(FormatRegistry, ReadFailuresCarryTheReason) {
  TemporaryDirectory dir;
  formats::ReadRequest request;
  request.format = FileFormat::tarv1;
  EXPECT_EQ(formats::readDatasetFile(dir.file("absent.tarv"), request).status().code(), StatusCode::notFound);
  writeBytes(dir.file("text.tif"), "plain text");
  request.format = FileFormat::pagedTiff;
  const Result<formats::OpenedFile> tiff = formats::readDatasetFile(dir.file("text.tif"), request);
  EXPECT_EQ(tiff.status().code(), StatusCode::corrupt);
  EXPECT_NE(tiff.status().message().find("not a readable TIFF file"), std::string::npos) << tiff.status().message();
  request.format = FileFormat::raw;
  EXPECT_EQ(formats::readDatasetFile(dir.file("text.tif"), request).status().code(), StatusCode::invalidArgument);
}

// 128 x 96 x 12 uint16 of several tiles and slices, each element telling its position.
void fillLazyReadVolume(Dataset& d) {
  d.newDataset(DatasetCoordinates(128, 96, 12, 1, 1), TARV_ELEMENT_TYPE_UNSIGNED_SHORT_INT, DatasetWorldEmbedding());
  for (auto it = d.getStartCoordinatesIterator(); it.valid; d.incrementCoordinatesIterator(it))
    d.setElement<int>(it, (it.x * 7 + it.y * 13 + it.z * 101) % 60000);
}

// A lazily read file that shrinks on disk while it is open: the blocks past the new end fail with
// a reason, the program goes on (libtiff must not map the file: a mapped file that shrinks kills
// the reader with SIGBUS).
TEST(FormatRegistry, LazyFilesThatShrinkGiveReadErrors) {
  TemporaryDirectory dir;
  Dataset d(true);
  fillLazyReadVolume(d);
  for (formats::FileFormat format : {formats::FileFormat::pagedTiff, formats::FileFormat::tarv1}) {
    const std::string path = dir.file(format == formats::FileFormat::tarv1 ? "v.tarv" : "v.tif");
    SCOPED_TRACE(path);
    ASSERT_TRUE(formats::writeDatasetFile(&d, path, format, formats::RawLayout()).ok());
    formats::ReadRequest request;
    request.format = format;
    request.lazy = true;
    Result<formats::OpenedFile> opened = formats::readDatasetFile(path, request);
    ASSERT_TRUE(opened.ok()) << opened.status().toString();
    Dataset* file = GetRawPtr(opened->handle);
    EXPECT_EQ(file->getElement<int>(DatasetCoordinates(3, 4, 0, 0, 0)), d.getElement<int>(DatasetCoordinates(3, 4, 0, 0, 0)));
    ASSERT_EQ(::truncate(path.c_str(), 600), 0);
    for (int z = 1; z < 12; ++z) (void)file->getElement<int>(DatasetCoordinates(100, 90, z, 0, 0));
    EXPECT_FALSE(formats::blockReadStatus(file).ok());
  }
}

// A file replaced by a new one (a rename over it) leaves a lazy dataset reading the file it opened;
// one rewritten in place gives read errors instead of the new bytes.
TEST(FormatRegistry, LazyFilesRewrittenInPlaceGiveReadErrors) {
  TemporaryDirectory dir;
  Dataset d(true);
  fillLazyReadVolume(d);
  Dataset other(true);
  other.newDataset(d.getSize(), TARV_ELEMENT_TYPE_UNSIGNED_SHORT_INT, DatasetWorldEmbedding());
  other.setAllElementsValue(17.0);
  for (FileFormat format : {FileFormat::pagedTiff, FileFormat::tarv1, FileFormat::tiffStack}) {
    const std::string path = dir.file(format == FileFormat::tarv1 ? "r.tarv" : "r.tif");
    SCOPED_TRACE(formats::describeFormat(format).name);
    formats::ReadRequest request;
    request.format = format;
    request.lazy = true;

    ASSERT_TRUE(formats::writeDatasetFile(&d, path, format, formats::RawLayout()).ok());
    Result<formats::OpenedFile> replaced = formats::readDatasetFile(path, request);
    ASSERT_TRUE(replaced.ok()) << replaced.status().toString();
    Dataset* first = GetRawPtr(replaced->handle);
    EXPECT_EQ(first->getElement<int>(DatasetCoordinates(3, 4, 0, 0, 0)), d.getElement<int>(DatasetCoordinates(3, 4, 0, 0, 0)));
    formats::WriteRequest replace;
    replace.format = format;
    ASSERT_TRUE(formats::writeDataset(&other, path, replace).ok());
    for (int z = 1; z < 12; ++z)
      ASSERT_EQ(first->getElement<int>(DatasetCoordinates(100, 90, z, 0, 0)), d.getElement<int>(DatasetCoordinates(100, 90, z, 0, 0)));
    EXPECT_TRUE(formats::blockReadStatus(first).ok()) << formats::blockReadStatus(first).toString();

    ASSERT_TRUE(formats::writeDatasetFile(&d, path, format, formats::RawLayout()).ok());
    Result<formats::OpenedFile> rewritten = formats::readDatasetFile(path, request);
    ASSERT_TRUE(rewritten.ok()) << rewritten.status().toString();
    Dataset* second = GetRawPtr(rewritten->handle);
    EXPECT_EQ(second->getElement<int>(DatasetCoordinates(3, 4, 0, 0, 0)), d.getElement<int>(DatasetCoordinates(3, 4, 0, 0, 0)));
    // File times are as coarse as the kernel's clock tick.
    std::this_thread::sleep_for(std::chrono::milliseconds(30));
    const auto bytes = std::filesystem::file_size(path);
    {
      std::fstream file(path, std::ios::in | std::ios::out | std::ios::binary);
      file.seekp(static_cast<std::streamoff>(bytes / 2));
      const std::string junk(64, '\x5a');
      file.write(junk.data(), static_cast<std::streamsize>(junk.size()));
      ASSERT_TRUE(file.good());
    }
    ASSERT_EQ(std::filesystem::file_size(path), bytes);
    // Nothing the rewrite put there is read: each read fails, or gives what the file held.
    for (int z = 1; z < 12; ++z) {
      std::uint16_t value = 0;
      if (second->getElementByBuffer(DatasetCoordinates(100, 90, z, 0, 0), &value))
        EXPECT_EQ(value, d.getElement<int>(DatasetCoordinates(100, 90, z, 0, 0))) << "z " << z;
    }
    const Status status = formats::blockReadStatus(second);
    EXPECT_NE(status.message().find("the file changed on disk since it was opened"), std::string::npos) << status.toString();
  }
}

}  // namespace
}  // namespace tarv
