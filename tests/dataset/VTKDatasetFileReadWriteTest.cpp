#include "dataset/VTKDatasetFileReadWrite.h"

#include <gtest/gtest.h>
#include <tiffio.h>
#include <unistd.h>
#include <vtkImageData.h>
#include <vtkJPEGReader.h>
#include <vtkJPEGWriter.h>
#include <vtkObject.h>
#include <vtkPNGReader.h>
#include <vtkPNGWriter.h>
#include <vtkSmartPointer.h>
#include <vtkTIFFReader.h>
#include <vtkTIFFWriter.h>
#include <vtkXMLImageDataReader.h>
#include <vtkXMLImageDataWriter.h>

#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <functional>
#include <iostream>
#include <iterator>
#include <memory>
#include <random>
#include <sstream>
#include <string>
#include <vector>

#include "dataset/Dataset.h"
#include "dataset/JPEGDatasetFileReadWrite.h"
#include "dataset/PNGDatasetFileReadWrite.h"
#include "dataset/TIFFDatasetFileReadWrite.h"
#include "dataset/VTIDatasetFileReadWrite.h"
#include "dataset/VTKWrapperDatasetFileReadWrite.h"

#include "TestSupport.h"

using namespace tarv;
using tarv::testing::C;
using tarv::testing::embedding;
using tarv::testing::Snapshot;
using tarv::testing::readBytes;
using tarv::testing::writeBytes;
namespace fs = std::filesystem;

namespace {

// A directory of its own under the system's temporary directory, removed afterwards.
class TemporaryDirectory {
public:
  TemporaryDirectory() {
    static int counter = 0;
    path = fs::temp_directory_path() /
           ("tarv-vtk-formats-" + std::to_string(::getpid()) + "-" + std::to_string(counter++));
    fs::create_directories(path);
  }
  ~TemporaryDirectory() {
    std::error_code ignored;
    fs::remove_all(path, ignored);
  }
  std::string file(const std::string& name) const { return (path / name).string(); }

private:
  fs::path path;
};

// Elements that differ in every voxel and time step and fit an unsigned char.
template <ElementValueType T>
void fillWithPattern(Dataset& d) {
  for (DatasetCoordinatesIterator it = d.getStartCoordinatesIterator(); it.valid; d.incrementCoordinatesIterator(it))
    d.setElement<T>(it, static_cast<T>((it.x * 7 + it.y * 13 + it.z * 29 + it.t * 53) % 251));
}

// A smooth slice, which JPEG keeps almost exactly.
void fillWithGradient(Dataset& d) {
  for (DatasetCoordinatesIterator it = d.getStartCoordinatesIterator(); it.valid; d.incrementCoordinatesIterator(it))
    d.setElement<int>(it, 40 + 3 * it.x + 2 * it.y);
}

// The elements of time step t of d, component 0, against those of a single-step dataset.
void expectSameVolume(Dataset& read, Dataset& written, int t) {
  ASSERT_EQ(read.getSize().x, written.getSize().x);
  ASSERT_EQ(read.getSize().y, written.getSize().y);
  ASSERT_EQ(read.getSize().z, written.getSize().z);
  for (int z = 0; z < read.getSize().z; ++z)
    for (int y = 0; y < read.getSize().y; ++y)
      for (int x = 0; x < read.getSize().x; ++x)
        ASSERT_EQ(read.getElement<double>(C(x, y, z)), written.getElement<double>(C(x, y, z, t))) << x << ", " << y << ", " << z;
}

// Reads name with format into a fresh dataset.
std::unique_ptr<Dataset> readFile(VTKDatasetFileReadWrite& format, const std::string& name, int t = 0) {
  auto d = std::make_unique<Dataset>(true);
  format.setFileName(name);
  ::testing::internal::CaptureStderr();
  format.read(d.get(), t);
  ::testing::internal::GetCapturedStderr();
  return d;
}

void writeFile(VTKDatasetFileReadWrite& format, Dataset& d, const std::string& name, int t = 0) {
  format.setFileName(name);
  format.write(&d, t);
}

struct FormatCase {
  std::string extension;
  std::function<std::unique_ptr<VTKDatasetFileReadWrite>()> make;
};

std::vector<FormatCase> allFormats() {
  return {{"png", [] { return std::make_unique<PNGDatasetFileReadWrite>(); }},
          {"jpg", [] { return std::make_unique<JPEGDatasetFileReadWrite>(); }},
          {"tif", [] { return std::make_unique<TIFFDatasetFileReadWrite>(); }},
          {"vti", [] { return std::make_unique<VTIDatasetFileReadWrite>(); }}};
}

// VTK reports broken files on its own output window; the tests make many on purpose.
class QuietVTK : public ::testing::Environment {
public:
  void SetUp() override { vtkObject::GlobalWarningDisplayOff(); }
};
const ::testing::Environment* const quietVTK = ::testing::AddGlobalTestEnvironment(new QuietVTK);

}  // namespace

// ---- construction and names ----

TEST(VTKDatasetFileReadWriteTest, ConstructorsSetTypeCodesReadersWritersAndSettings) {
  TIFFDatasetFileReadWrite tiff;
  JPEGDatasetFileReadWrite jpeg;
  PNGDatasetFileReadWrite png;
  VTIDatasetFileReadWrite vti;
  EXPECT_EQ(tiff.typeCode, 3);
  EXPECT_EQ(jpeg.typeCode, 3);
  EXPECT_EQ(png.typeCode, 3);
  EXPECT_EQ(vti.typeCode, 11);
  EXPECT_TRUE(tiff.getReader()->IsA("vtkTIFFReader"));
  EXPECT_TRUE(tiff.getWriter()->IsA("vtkTIFFWriter"));
  EXPECT_EQ(static_cast<vtkImageReader2*>(tiff.getTIFFReader()), tiff.getReader()) << "typed pointers to the same objects";
  EXPECT_EQ(tiff.getTIFFWriter()->GetCompression(), vtkTIFFWriter::NoCompression);
  EXPECT_TRUE(jpeg.getReader()->IsA("vtkJPEGReader"));
  EXPECT_TRUE(jpeg.getWriter()->IsA("vtkJPEGWriter"));
  EXPECT_EQ(jpeg.getQuality(), 100);
  jpeg.setQuality(75);
  EXPECT_EQ(jpeg.getQuality(), 75);
  EXPECT_EQ(jpeg.getJPEGWriter()->GetQuality(), 75);
  EXPECT_TRUE(png.getReader()->IsA("vtkPNGReader"));
  EXPECT_TRUE(png.getWriter()->IsA("vtkPNGWriter"));
  EXPECT_EQ(static_cast<vtkImageWriter*>(png.getPNGWriter()), png.getWriter());
  EXPECT_TRUE(vti.getReader()->IsA("vtkXMLImageDataReader"));
  EXPECT_TRUE(vti.getWriter()->IsA("vtkXMLImageDataWriter"));
}

TEST(VTKDatasetFileReadWriteTest, FileNameGoesToReaderAndWriter) {
  PNGDatasetFileReadWrite png;
  EXPECT_EQ(png.getFileName(), "");
  png.setFileName("/some/where/slice.png");
  EXPECT_EQ(png.getFileName(), "/some/where/slice.png");
  EXPECT_STREQ(png.getWriter()->GetFileName(), "/some/where/slice.png");
  const vtkMTimeType stamp = png.getReader()->GetMTime();
  png.setFileName("/some/where/slice.png");
  EXPECT_EQ(png.getReader()->GetMTime(), stamp) << "the same name again changes nothing";
  VTIDatasetFileReadWrite vti;
  vti.setFileName("volume.vti");
  EXPECT_EQ(vti.getFileName(), "volume.vti");
  EXPECT_STREQ(vti.getWriter()->GetFileName(), "volume.vti");
}

TEST(VTKDatasetFileReadWriteTest, WrapperWithoutReaderOrWriterDoesNothing) {
  TemporaryDirectory directory;
  Dataset d(true);
  d.newDataset<unsigned char>(C(4, 4, 1, 1, 1), DatasetWorldEmbedding());
  fillWithPattern<unsigned char>(d);
  const Snapshot before(d);

  VTKWrapperDatasetFileReadWrite neither(nullptr, nullptr);
  neither.setFileName(directory.file("none.png"));
  EXPECT_EQ(neither.getFileName(), "") << "no reader, no name";
  neither.write(&d, 0);
  neither.read(&d, 0);
  EXPECT_FALSE(fs::exists(directory.file("none.png")));

  VTKWrapperDatasetFileReadWrite writerOnly(nullptr, vtkPNGWriter::New());
  writerOnly.setFileName(directory.file("only.png"));
  writerOnly.write(&d, 0);
  EXPECT_TRUE(fs::exists(directory.file("only.png")));
  writerOnly.read(&d, 0);

  VTKWrapperDatasetFileReadWrite readerOnly(vtkPNGReader::New(), nullptr);
  readerOnly.setFileName(directory.file("only.png"));
  EXPECT_EQ(readerOnly.getFileName(), directory.file("only.png"));
  fs::remove(directory.file("only.png"));
  readerOnly.write(&d, 0);
  EXPECT_FALSE(fs::exists(directory.file("only.png")));
  EXPECT_TRUE(Snapshot(d) == before);
}

// ---- round trips ----

TEST(VTKDatasetFileReadWriteTest, PNGRoundTripForgetsSpacingAndOrigin) {
  TemporaryDirectory directory;
  Dataset slice(true);
  slice.newDataset<unsigned char>(C(17, 9, 1, 1, 1), embedding(3, 4, 5, 0.5, 0.5, 2));
  fillWithPattern<unsigned char>(slice);
  PNGDatasetFileReadWrite png;
  writeFile(png, slice, directory.file("slice.png"));
  std::unique_ptr<Dataset> read = readFile(png, directory.file("slice.png"));
  ASSERT_EQ(read->getSize(), C(17, 9, 1, 1, 1));
  EXPECT_EQ(read->getElementType(), TARV_ELEMENT_TYPE_UNSIGNED_CHAR);
  expectSameVolume(*read, slice, 0);
  EXPECT_EQ(read->getWorldEmbedding().getVoxelSpacing(), WorldCoordinates(1, 1, 1, 1)) << "spacing (0.5, 0.5, 2) is lost";
  EXPECT_EQ(read->getWorldEmbedding().getDatasetOrigin(), WorldCoordinates(0, 0, 0, 0));
}

TEST(VTKDatasetFileReadWriteTest, PNGKeepsUnsignedShortSlices) {
  TemporaryDirectory directory;
  Dataset slice(true);
  slice.newDataset<unsigned short>(C(6, 5, 1, 1, 1), DatasetWorldEmbedding());
  for (DatasetCoordinatesIterator it = slice.getStartCoordinatesIterator(); it.valid; slice.incrementCoordinatesIterator(it))
    slice.setElement<int>(it, 1000 * it.x + 37 * it.y);
  PNGDatasetFileReadWrite png;
  writeFile(png, slice, directory.file("wide.png"));
  std::unique_ptr<Dataset> read = readFile(png, directory.file("wide.png"));
  EXPECT_EQ(read->getElementType(), TARV_ELEMENT_TYPE_UNSIGNED_SHORT_INT);
  expectSameVolume(*read, slice, 0);
}

TEST(VTKDatasetFileReadWriteTest, PNGReadOfAColourImageTakesTheFirstChannel) {
  TemporaryDirectory directory;
  auto image = vtkSmartPointer<vtkImageData>::New();
  image->SetDimensions(4, 3, 1);
  image->AllocateScalars(VTK_UNSIGNED_CHAR, 3);
  auto* rgb = static_cast<unsigned char*>(image->GetScalarPointer());
  for (int i = 0; i < 12; ++i) {
    rgb[3 * i] = static_cast<unsigned char>(10 * i);
    rgb[3 * i + 1] = 1;
    rgb[3 * i + 2] = 2;
  }
  auto writer = vtkSmartPointer<vtkPNGWriter>::New();
  writer->SetInputData(image);
  writer->SetFileName(directory.file("colour.png").c_str());
  writer->Write();
  PNGDatasetFileReadWrite png;
  std::unique_ptr<Dataset> read = readFile(png, directory.file("colour.png"));
  ASSERT_EQ(read->getSize(), C(4, 3, 1, 1, 1));
  for (int y = 0; y < 3; ++y)
    for (int x = 0; x < 4; ++x) EXPECT_EQ(read->getElement<int>(C(x, y, 0)), 10 * (4 * y + x)) << "red of " << x << ", " << y;
}

TEST(VTKDatasetFileReadWriteTest, JPEGRoundTripAtQuality100StaysClose) {
  TemporaryDirectory directory;
  Dataset slice(true);
  slice.newDataset<unsigned char>(C(24, 16, 1, 1, 1), DatasetWorldEmbedding());
  fillWithGradient(slice);
  JPEGDatasetFileReadWrite jpeg;
  writeFile(jpeg, slice, directory.file("slice.jpg"));
  std::unique_ptr<Dataset> read = readFile(jpeg, directory.file("slice.jpg"));
  ASSERT_EQ(read->getSize(), C(24, 16, 1, 1, 1));
  EXPECT_EQ(read->getElementType(), TARV_ELEMENT_TYPE_UNSIGNED_CHAR);
  for (int y = 0; y < 16; ++y)
    for (int x = 0; x < 24; ++x)
      EXPECT_NEAR(read->getElement<double>(C(x, y, 0)), slice.getElement<double>(C(x, y, 0)), 2.0) << x << ", " << y;
}

TEST(VTKDatasetFileReadWriteTest, TIFFRoundTripOfVolumes) {
  TemporaryDirectory directory;
  Dataset bytes(true);
  bytes.newDataset<unsigned char>(C(9, 7, 4, 1, 1), embedding(1, 1, 1, 3, 3, 3));
  fillWithPattern<unsigned char>(bytes);
  TIFFDatasetFileReadWrite tiff;
  writeFile(tiff, bytes, directory.file("bytes.tif"));
  std::unique_ptr<Dataset> read = readFile(tiff, directory.file("bytes.tif"));
  ASSERT_EQ(read->getSize(), C(9, 7, 4, 1, 1));
  EXPECT_EQ(read->getElementType(), TARV_ELEMENT_TYPE_UNSIGNED_CHAR);
  expectSameVolume(*read, bytes, 0);
  EXPECT_EQ(read->getWorldEmbedding().getVoxelSpacing().x, 1.0);

  Dataset reals(true);
  reals.newDataset<float>(C(5, 3, 2, 1, 1), DatasetWorldEmbedding());
  for (DatasetCoordinatesIterator it = reals.getStartCoordinatesIterator(); it.valid; reals.incrementCoordinatesIterator(it))
    reals.setElement<double>(it, it.x * 0.25 - it.y * 1.5 + it.z * 100.125);
  writeFile(tiff, reals, directory.file("reals.tif"));
  std::unique_ptr<Dataset> readReals = readFile(tiff, directory.file("reals.tif"));
  EXPECT_EQ(readReals->getElementType(), TARV_ELEMENT_TYPE_FLOAT);
  expectSameVolume(*readReals, reals, 0);
}

TEST(VTKDatasetFileReadWriteTest, VTIRoundTripKeepsSpacingOriginAndType) {
  TemporaryDirectory directory;
  Dataset volume(true);
  volume.newDataset<float>(C(5, 4, 3, 1, 1), embedding(-10, 20.5, 3, 0.5, 0.5, 2));
  for (DatasetCoordinatesIterator it = volume.getStartCoordinatesIterator(); it.valid; volume.incrementCoordinatesIterator(it))
    volume.setElement<double>(it, it.x - 0.5 * it.y + 1e-3 * it.z);
  VTIDatasetFileReadWrite vti;
  writeFile(vti, volume, directory.file("volume.vti"));
  std::unique_ptr<Dataset> read = readFile(vti, directory.file("volume.vti"));
  ASSERT_EQ(read->getSize(), C(5, 4, 3, 1, 1));
  EXPECT_EQ(read->getElementType(), TARV_ELEMENT_TYPE_FLOAT);
  expectSameVolume(*read, volume, 0);
  const WorldCoordinates& spacing = read->getWorldEmbedding().getVoxelSpacing();
  EXPECT_EQ(spacing.x, 0.5);
  EXPECT_EQ(spacing.y, 0.5);
  EXPECT_EQ(spacing.z, 2.0);
  const WorldCoordinates& origin = read->getWorldEmbedding().getDatasetOrigin();
  EXPECT_EQ(origin.x, -10.0);
  EXPECT_EQ(origin.y, 20.5);
  EXPECT_EQ(origin.z, 3.0);

  Dataset integers(true);
  integers.newDataset<int>(C(3, 3, 3, 1, 1), DatasetWorldEmbedding());
  fillWithPattern<int>(integers);
  integers.setElement<int>(C(1, 1, 1), -2000000000);
  writeFile(vti, integers, directory.file("integers.vti"));
  std::unique_ptr<Dataset> readIntegers = readFile(vti, directory.file("integers.vti"));
  EXPECT_EQ(readIntegers->getElementType(), TARV_ELEMENT_TYPE_SIGNED_INT);
  expectSameVolume(*readIntegers, integers, 0);
}

TEST(VTKDatasetFileReadWriteTest, WritingTimeStep3WritesThatVolumeOnly) {
  TemporaryDirectory directory;
  Dataset movie(true);
  movie.newDataset<unsigned char>(C(6, 5, 3, 5, 1), DatasetWorldEmbedding());
  fillWithPattern<unsigned char>(movie);
  for (const FormatCase& format : {allFormats()[2], allFormats()[3]}) {
    SCOPED_TRACE(format.extension);
    std::unique_ptr<VTKDatasetFileReadWrite> io = format.make();
    const std::string name = directory.file("step3." + format.extension);
    writeFile(*io, movie, name, 3);
    std::unique_ptr<Dataset> read = readFile(*io, name);
    ASSERT_EQ(read->getSize(), C(6, 5, 3, 1, 1));
    expectSameVolume(*read, movie, 3);
  }
  Dataset slices(true);
  slices.newDataset<unsigned char>(C(6, 5, 1, 5, 1), DatasetWorldEmbedding());
  fillWithPattern<unsigned char>(slices);
  PNGDatasetFileReadWrite png;
  writeFile(png, slices, directory.file("step3.png"), 3);
  std::unique_ptr<Dataset> read = readFile(png, directory.file("step3.png"));
  ASSERT_EQ(read->getSize(), C(6, 5, 1, 1, 1));
  expectSameVolume(*read, slices, 3);
}

TEST(VTKDatasetFileReadWriteTest, ReadingIntoADatasetOfTheSameSizeFillsTimeStepInPlace) {
  TemporaryDirectory directory;
  Dataset movie(true);
  movie.newDataset<unsigned char>(C(6, 5, 3, 4, 1), DatasetWorldEmbedding());
  fillWithPattern<unsigned char>(movie);
  Dataset original(true);
  original.copyFrom(&movie);
  TIFFDatasetFileReadWrite tiff;
  writeFile(tiff, movie, directory.file("step3.tif"), 3);
  tiff.setFileName(directory.file("step3.tif"));
  ::testing::internal::CaptureStderr();
  tiff.read(&movie, 1);
  ::testing::internal::GetCapturedStderr();
  ASSERT_EQ(movie.getSize(), C(6, 5, 3, 4, 1));
  for (DatasetCoordinatesIterator it = movie.getStartCoordinatesIterator(); it.valid; movie.incrementCoordinatesIterator(it)) {
    const DatasetCoordinates source(it.x, it.y, it.z, it.t == 1 ? 3 : it.t, 0);
    ASSERT_EQ(movie.getElement<int>(it), original.getElement<int>(source)) << it;
  }
}

TEST(VTKDatasetFileReadWriteTest, DatasetsWithoutAnImageWriteNoFile) {
  TemporaryDirectory directory;
  Dataset precise(true);
  precise.newDataset<long double>(C(3, 3, 1, 1, 1), DatasetWorldEmbedding());
  precise.setAllElementsValue(1);
  Dataset empty(true);
  Dataset slice(true);
  slice.newDataset<unsigned char>(C(3, 3, 1, 2, 1), DatasetWorldEmbedding());
  slice.setAllElementsValue(1);
  for (const FormatCase& format : allFormats()) {
    std::unique_ptr<VTKDatasetFileReadWrite> io = format.make();
    const std::string name = directory.file("nothing." + format.extension);
    writeFile(*io, precise, name);
    writeFile(*io, empty, name);
    writeFile(*io, slice, name, 2);
    writeFile(*io, slice, name, -1);
    io->write(nullptr, 0);
    EXPECT_FALSE(fs::exists(name)) << format.extension;
    io->read(nullptr, 0);
  }
}

TEST(VTKDatasetFileReadWriteTest, WritingWhereNoFileCanBeMadeLeavesNoFile) {
  TemporaryDirectory directory;
  Dataset slice(true);
  slice.newDataset<unsigned char>(C(3, 3, 1, 1, 1), DatasetWorldEmbedding());
  slice.setAllElementsValue(1);
  for (const FormatCase& format : allFormats()) {
    std::unique_ptr<VTKDatasetFileReadWrite> io = format.make();
    const std::string name = directory.file("missing/directory/slice." + format.extension);
    writeFile(*io, slice, name);
    EXPECT_FALSE(fs::exists(name)) << format.extension;
  }
}

TEST(VTKDatasetFileReadWriteTest, TypesAFormatCannotHoldWriteNoFile) {
  TemporaryDirectory directory;
  Dataset integers(true);
  integers.newDataset<int>(C(3, 3, 1, 1, 1), DatasetWorldEmbedding());
  integers.setAllElementsValue(1);
  Dataset reals(true);
  reals.newDataset<double>(C(3, 3, 1, 1, 1), DatasetWorldEmbedding());
  reals.setAllElementsValue(0.5);
  PNGDatasetFileReadWrite png;
  JPEGDatasetFileReadWrite jpeg;
  for (Dataset* d : {&integers, &reals}) {
    const std::string type = DatasetMemory::getElementTypeName(d->getElementType());
    writeFile(png, *d, directory.file(type + ".png"));
    EXPECT_FALSE(fs::exists(directory.file(type + ".png"))) << type << " as PNG";
    writeFile(jpeg, *d, directory.file(type + ".jpg"));
    EXPECT_FALSE(fs::exists(directory.file(type + ".jpg"))) << type << " as JPEG";
  }
}

// ---- files that cannot be read ----

TEST(VTKDatasetFileReadWriteTest, UnreadableFilesLeaveTheDatasetAsItWas) {
  TemporaryDirectory directory;
  Dataset slice(true);
  slice.newDataset<unsigned char>(C(12, 10, 1, 1, 1), DatasetWorldEmbedding());
  fillWithGradient(slice);
  for (const FormatCase& format : allFormats()) {
    SCOPED_TRACE(format.extension);
    std::unique_ptr<VTKDatasetFileReadWrite> io = format.make();
    const std::string good = directory.file("good." + format.extension);
    writeFile(*io, slice, good);
    const std::string bytes = readBytes(good);
    ASSERT_GT(bytes.size(), 40u);
    const std::string empty = directory.file("empty." + format.extension);
    writeBytes(empty, "");
    const std::string truncated = directory.file("truncated." + format.extension);
    writeBytes(truncated, bytes.substr(0, bytes.size() / 2));
    const std::string text = directory.file("text." + format.extension);
    writeBytes(text, "This is a note, not an image.\n");
    const std::string missing = directory.file("missing." + format.extension);

    Dataset target(true);
    target.newDataset<short>(C(3, 2, 2, 2, 1), embedding(7, 8, 9, 2, 2, 2));
    for (DatasetCoordinatesIterator it = target.getStartCoordinatesIterator(); it.valid; target.incrementCoordinatesIterator(it))
      target.setElement<int>(it, -5 * it.x + it.t);
    const Snapshot before(target);
    for (const std::string& name : {missing, empty, truncated, text}) {
      // The reader has just read a good file: nothing of it may come back.
      std::unique_ptr<Dataset> sanity = readFile(*io, good);
      ASSERT_EQ(sanity->getSize(), C(12, 10, 1, 1, 1)) << "the good file reads";
      io->setFileName(name);
      ::testing::internal::CaptureStderr();
      io->read(&target, 0);
      io->read(&target, 1);
      ::testing::internal::GetCapturedStderr();
      EXPECT_TRUE(Snapshot(target) == before) << fs::path(name).filename();
    }
  }
}

TEST(VTKDatasetFileReadWriteTest, PNGWithoutItsClosingChunkIsRefused) {
  TemporaryDirectory directory;
  Dataset slice(true);
  slice.newDataset<unsigned char>(C(40, 30, 1, 1, 1), DatasetWorldEmbedding());
  fillWithPattern<unsigned char>(slice);
  PNGDatasetFileReadWrite png;
  writeFile(png, slice, directory.file("whole.png"));
  const std::string bytes = readBytes(directory.file("whole.png"));
  // The image data is complete; only part of the 12-byte end chunk is gone.
  writeBytes(directory.file("cut.png"), bytes.substr(0, bytes.size() - 5));
  Dataset target(true);
  target.newDataset<unsigned char>(C(40, 30, 1, 1, 1), DatasetWorldEmbedding());
  target.setAllElementsValue(3);
  const Snapshot before(target);
  png.setFileName(directory.file("cut.png"));
  png.read(&target, 0);
  EXPECT_TRUE(Snapshot(target) == before);
}

TEST(VTKDatasetFileReadWriteTest, TIFFWithPagesOfDifferentSizesIsRefused) {
  TemporaryDirectory directory;
  const std::string name = directory.file("pages.tif");
  TIFF* tiff = TIFFOpen(name.c_str(), "w");
  ASSERT_NE(tiff, nullptr);
  for (std::uint32_t width : {181u, 40u, 40u}) {
    TIFFSetField(tiff, TIFFTAG_IMAGEWIDTH, width);
    TIFFSetField(tiff, TIFFTAG_IMAGELENGTH, 30u);
    TIFFSetField(tiff, TIFFTAG_BITSPERSAMPLE, 8);
    TIFFSetField(tiff, TIFFTAG_SAMPLESPERPIXEL, 1);
    TIFFSetField(tiff, TIFFTAG_PHOTOMETRIC, PHOTOMETRIC_MINISBLACK);
    TIFFSetField(tiff, TIFFTAG_PLANARCONFIG, PLANARCONFIG_CONTIG);
    TIFFSetField(tiff, TIFFTAG_ROWSPERSTRIP, 30u);
    TIFFSetField(tiff, TIFFTAG_SUBFILETYPE, FILETYPE_PAGE);
    std::vector<unsigned char> row(width, 9);
    for (std::uint32_t y = 0; y < 30; ++y) ASSERT_EQ(TIFFWriteScanline(tiff, row.data(), y, 0), 1);
    ASSERT_TRUE(TIFFWriteDirectory(tiff));
  }
  TIFFClose(tiff);
  Dataset target(true);
  target.newDataset<unsigned char>(C(2, 2, 1, 1, 1), DatasetWorldEmbedding());
  target.setAllElementsValue(4);
  const Snapshot before(target);
  TIFFDatasetFileReadWrite reader;
  reader.setFileName(name);
  ::testing::internal::CaptureStderr();
  reader.read(&target, 0);
  ::testing::internal::GetCapturedStderr();
  EXPECT_TRUE(Snapshot(target) == before) << "the first page promises more than the others hold";
}

TEST(VTKDatasetFileReadWriteTest, MutatedFilesAreReadWholeOrNotAtAll) {
  const unsigned seed = 1;
  SCOPED_TRACE(::testing::Message() << "seed " << seed);
  std::mt19937 random(seed);
  TemporaryDirectory directory;
  Dataset slice(true);
  slice.newDataset<unsigned char>(C(40, 30, 1, 1, 1), DatasetWorldEmbedding());
  fillWithPattern<unsigned char>(slice);
  Dataset volume(true);
  volume.newDataset<unsigned char>(C(40, 30, 3, 1, 1), DatasetWorldEmbedding());
  fillWithPattern<unsigned char>(volume);
  for (const FormatCase& format : allFormats()) {
    SCOPED_TRACE(format.extension);
    std::unique_ptr<VTKDatasetFileReadWrite> io = format.make();
    const bool isVolume = format.extension == "tif" || format.extension == "vti";
    Dataset& written = isVolume ? volume : slice;
    const std::string good = directory.file("good." + format.extension);
    writeFile(*io, written, good);
    const std::string original = readBytes(good);
    ASSERT_FALSE(original.empty());
    int refused = 0;
    int read = 0;
    // Each whole read warns about non-axial datasets; keep those lines out of the log.
    std::ostringstream warnings;
    std::streambuf* const standardError = std::cerr.rdbuf(warnings.rdbuf());
    for (int round = 0; round < 600; ++round) {
      std::string bytes = original;
      // Truncate, overwrite a few bytes, or both.
      const int kind = round % 3;
      if (kind != 0)
        for (int i = 0, n = 1 + static_cast<int>(random() % 8); i < n; ++i)
          bytes[random() % bytes.size()] = static_cast<char>(random());
      if (kind != 1) bytes.resize(random() % bytes.size());
      // A new file each time: rewriting one file in place is slow on some file systems.
      const std::string mutated = directory.file("mutated" + std::to_string(round) + "." + format.extension);
      writeBytes(mutated, bytes);
      Dataset target(true);
      target.newDataset<short>(C(2, 2, 1, 1, 1), DatasetWorldEmbedding());
      target.setAllElementsValue(-1);
      const Snapshot before(target);
      io->setFileName(mutated);
      io->read(&target, 0);
      fs::remove(mutated);
      if (Snapshot(target) == before) {
        ++refused;
      } else {
        ++read;
        // A read gives a whole image of a storable type.
        ASSERT_TRUE(target.hasData()) << "round " << round;
        const DatasetCoordinates n = target.getSize();
        ASSERT_EQ(static_cast<std::int64_t>(n.x) * n.y * n.z, static_cast<std::int64_t>(target.getElementCount()));
      }
    }
    std::cerr.rdbuf(standardError);
    EXPECT_GT(refused, 0) << "broken files are refused";
    EXPECT_EQ(refused + read, 600);
    std::unique_ptr<Dataset> sanity = readFile(*io, good);
    EXPECT_EQ(sanity->getSize(), written.getSize()) << "the reader still reads good files";
  }
}
