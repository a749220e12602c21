// Runs the tarv program as a user would, on small files in a temporary directory, and checks its
// outputs (read back with the library) and its exit status. Every failure must be exit status 1
// with exactly one line on the standard error stream naming the file and the reason.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <random>
#include <regex>
#include <string>
#include <vector>

#include "ToolTestSupport.h"
#include "dataset/BinarySegmentations.h"
#include "dataset/PNGDatasetFileReadWrite.h"
#include "dataset/TARV1DatasetFileReadWrite.h"
#include "dataset/TiffDatasetFileWrite.h"
#include "dataset/VTIDatasetFileReadWrite.h"
#include "formats/FormatRegistry.h"

using namespace tarv;
using namespace tarv::tool::test;

namespace {

// The value of "  name   value" in the tool's output, or "" when there is no such line.
std::string field(const std::string& text, const std::string& name) {
  std::istringstream lines(text);
  std::string line;
  while (std::getline(lines, line)) {
    const std::string prefix = "  " + name + " ";
    if (line.compare(0, prefix.size(), prefix) == 0) {
      const std::size_t value = line.find_first_not_of(' ', prefix.size());
      return value == std::string::npos ? std::string() : line.substr(value);
    }
  }
  return std::string();
}

// A number of the JSON object text.
double jsonNumber(const std::string& text, const std::string& key) {
  const std::regex pattern("\"" + key + "\": ([-0-9.e+]+)");
  std::smatch match;
  if (!std::regex_search(text, match, pattern)) return std::nan("");
  return std::stod(match[1]);
}

// Exit status 1 and one line on stderr mentioning every given text.
void expectOneLineError(const RunResult& result, const std::vector<std::string>& mentions) {
  EXPECT_EQ(result.status, 1) << result.err;
  const std::vector<std::string> lines = result.errorLines();
  ASSERT_EQ(lines.size(), 1u) << result.err;
  EXPECT_EQ(lines.front().rfind("tarv", 0), 0u) << lines.front();
  for (const std::string& text : mentions) EXPECT_NE(lines.front().find(text), std::string::npos) << lines.front();
}

// No file of the directory is a temporary file of an unfinished write.
void expectNoTemporaryFiles(const TemporaryDirectory& directory) {
  for (const std::string& name : directory.entries()) EXPECT_EQ(name.find(".tmp-"), std::string::npos) << name;
}

class ToolTest : public ::testing::Test {
protected:
  RunResult run(const std::vector<std::string>& arguments) { return runTool(arguments, directory.path); }
  std::string file(const std::string& name) const { return directory.file(name); }

  // A 5 x 4 x 3 x 2 float dataset with spacing (0.5, 0.25, 2) and origin (1, 2, 3), written as
  // TARV1 to "volume.tarv"; elements x + 5y + 20z + 60t.
  DatasetHandle writeTarv1Volume() {
    DatasetHandle volume = makeDataset(DatasetCoordinates(5, 4, 3, 2, 1), TARV_ELEMENT_TYPE_FLOAT,
                                       [](int x, int y, int z, int t) { return x + 5 * y + 20 * z + 60 * t; },
                                       DatasetWorldEmbedding(WorldCoordinates(1, 2, 3, 0), WorldCoordinates(0.5, 0.25, 2, 1)));
    TARV1DatasetFileReadWrite writer;
    writer.fileName = file("volume.tarv");
    writer.write(GetRawPtr(volume));
    return volume;
  }

  TemporaryDirectory directory;
};

// ---------------------------------------------------------------------------------------------
// info

using Info = ToolTest;

TEST_F(Info, ReportsShapeTypeGeometryRangeAndFileSize) {
  writeTarv1Volume();
  const RunResult result = run({"info", "volume.tarv"});
  ASSERT_EQ(result.status, 0) << result.err;
  EXPECT_EQ(result.err, "");
  EXPECT_EQ(field(result.out, "format"), "TARV1 (read lazily)");
  EXPECT_EQ(field(result.out, "size"), "5 x 4 x 3");
  EXPECT_EQ(field(result.out, "time steps"), "2");
  EXPECT_EQ(field(result.out, "components"), "1");
  EXPECT_EQ(field(result.out, "element type"), "float");
  EXPECT_EQ(field(result.out, "spacing"), "0.5, 0.25, 2 (t 1)");
  EXPECT_EQ(field(result.out, "origin"), "1, 2, 3 (t 0)");
  EXPECT_EQ(field(result.out, "value range"), "0 .. 119");
  EXPECT_EQ(field(result.out, "file size"), std::to_string(2048 + 2 * 120) + " bytes");
}

TEST_F(Info, PrintsThePagedTiffHeaderAsTheLibraryPrintsIt) {
  DatasetHandle volume = makeDataset(DatasetCoordinates(70, 6, 3, 1, 1), TARV_ELEMENT_TYPE_SIGNED_SHORT_INT,
                                     [](int x, int y, int z, int) { return x - 3 * y + 100 * z - 50; });
  TiffDatasetFileWrite writer;
  writer.fileName = file("volume.tif");
  writer.write(GetRawPtr(volume));
  const RunResult result = run({"info", "volume.tif", "volume.tif"});
  ASSERT_EQ(result.status, 0) << result.err;
  EXPECT_EQ(field(result.out, "format"), "paged TIFF (read lazily)");
  EXPECT_EQ(field(result.out, "element type"), "int16");
  EXPECT_EQ(field(result.out, "value range"), "-65 .. 219");
  EXPECT_NE(result.out.find("  paged TIFF header:\n    ImageSize 70 x 6 x 3\n"), std::string::npos) << result.out;
  EXPECT_NE(result.out.find("    Datatype TARV_ELEMENT_TYPE_SIGNED_SHORT_INT\n"), std::string::npos);
  EXPECT_NE(result.out.find("    pagenumber 2 x 1 x 3\n"), std::string::npos);
  // Both files listed.
  EXPECT_NE(result.out.find("volume.tif\n"), result.out.rfind("volume.tif\n"));
}

TEST_F(Info, RawFilesTakeTheirLayoutFromOptions) {
  DatasetHandle volume = makeDataset(DatasetCoordinates(3, 2, 2, 1, 1), TARV_ELEMENT_TYPE_UNSIGNED_SHORT_INT,
                                     [](int x, int y, int z, int) { return 1000 + x + 10 * y + 100 * z; });
  writeRaw(GetRawPtr(volume), file("volume.raw"));
  const RunResult result =
      run({"info", "volume.raw", "--raw-size", "3,2,2", "--raw-type", "uint16", "--raw-spacing", "2,2,3"});
  ASSERT_EQ(result.status, 0) << result.err;
  EXPECT_EQ(field(result.out, "element type"), "uint16");
  EXPECT_EQ(field(result.out, "value range"), "1000 .. 1112");
  EXPECT_EQ(field(result.out, "spacing"), "2, 2, 3 (t 1)");

  expectOneLineError(run({"info", "volume.raw"}), {"volume.raw", "--raw-size"});
  expectOneLineError(run({"info", "volume.raw", "--raw-size", "3,2,3", "--raw-type", "uint16"}),
                     {"volume.raw", "24 bytes", "36"});
  expectOneLineError(run({"info", "volume.raw", "--raw-size", "3,x,2", "--raw-type", "uint16"}), {"--raw-size"});
}

TEST_F(Info, MissingFileIsOneLineError) {
  expectOneLineError(run({"info", "absent.tarv"}), {"absent.tarv", "no such file"});
}

// The content tells the format before the extension; content and extension that tell nothing are
// one line.
TEST_F(Info, WrongExtensionIsOneLineError) {
  writeTarv1Volume();
  std::filesystem::copy_file(file("volume.tarv"), file("volume.xyz"));
  const RunResult known = run({"info", "volume.xyz"});
  EXPECT_EQ(known.status, 0) << known.err;
  EXPECT_EQ(field(known.out, "format"), "TARV1 (read lazily)");
  std::ofstream(file("notes.xyz")) << "plain words, no image";
  expectOneLineError(run({"info", "notes.xyz"}), {"notes.xyz", "unknown file extension '.xyz'"});
  // The format can be named instead.
  EXPECT_EQ(run({"info", "volume.xyz", "--input-format", "tarv1"}).status, 0);
}

TEST_F(Info, TruncatedFilesAreOneLineErrors) {
  writeTarv1Volume();
  const std::string text = readText(file("volume.tarv"));
  writeText(file("short.tarv"), text.substr(0, text.size() - 7));
  expectOneLineError(run({"info", "short.tarv"}), {"short.tarv", "truncated"});
  writeText(file("header.tarv"), text.substr(0, 100));
  expectOneLineError(run({"info", "header.tarv"}), {"header.tarv", "too short"});

  DatasetHandle volume = makeDataset(DatasetCoordinates(20, 20, 4, 1, 1), TARV_ELEMENT_TYPE_FLOAT,
                                     [](int x, int y, int z, int) { return std::sin(x + y * z); });
  TiffDatasetFileWrite writer;
  writer.fileName = file("volume.tif");
  writer.write(GetRawPtr(volume));
  const std::string tiff = readText(file("volume.tif"));
  for (std::size_t length : {std::size_t{0}, std::size_t{9}, tiff.size() / 2, tiff.size() - 1}) {
    writeText(file("cut.tif"), tiff.substr(0, length));
    expectOneLineError(run({"info", "cut.tif"}), {"cut.tif"});
  }
}

TEST_F(Info, FailingReadsNameTheirReason) {
  DatasetHandle volume = makeDataset(DatasetCoordinates(20, 20, 4, 1, 1), TARV_ELEMENT_TYPE_UNSIGNED_SHORT_INT,
                                     [](int x, int y, int z, int) { return x + 20 * y + 400 * z; });
  TiffDatasetFileWrite writer;
  writer.fileName = file("volume.tif");
  writer.write(GetRawPtr(volume));
  // The tiles follow the 8-byte file header; the directory comes last, so the file still opens.
  std::string bytes = readText(file("volume.tif"));
  for (std::size_t i = 8; i < 40; ++i) bytes[i] = static_cast<char>(0xff);
  writeText(file("damaged.tif"), bytes);
  expectOneLineError(run({"stats", "damaged.tif"}), {"damaged.tif", "damaged file", "cannot read tile"});
  expectOneLineError(run({"convert", "damaged.tif", "out.tarv"}), {"damaged.tif", "cannot read tile"});
  EXPECT_FALSE(std::filesystem::exists(file("out.tarv")));

  writeText(file("text.tif"), "plain text, not TIFF\n");
  expectOneLineError(run({"info", "text.tif"}), {"text.tif", "not a readable TIFF file", "libtiff"});
  writeText(file("text.png"), "plain text, not PNG\n");
  expectOneLineError(run({"info", "text.png"}), {"text.png", "not a readable PNG file"});
}

TEST_F(Info, GarbageNeverCrashes) {
  std::mt19937 random(1234);
  SCOPED_TRACE("seed 1234");
  for (const char* name : {"a.tarv", "a.tif", "a.png", "a.jpg", "a.vti"}) {
    for (int round = 0; round < 3; ++round) {
      std::string bytes(static_cast<std::size_t>(random() % 5000), '\0');
      for (char& c : bytes) c = static_cast<char>(random());
      writeText(file(name), bytes);
      expectOneLineError(run({"info", name}), {name});
    }
  }
}

// ---------------------------------------------------------------------------------------------
// convert

using Convert = ToolTest;

TEST_F(Convert, RoundTripsThroughEveryLosslessFormat) {
  const unsigned int seed = 20240611;
  SCOPED_TRACE("seed " + std::to_string(seed));
  std::mt19937 random(seed);
  const DatasetCoordinates size(static_cast<int>(3 + random() % 70), static_cast<int>(2 + random() % 9),
                                static_cast<int>(1 + random() % 4), 1, 1);
  DatasetHandle original = makeDataset(size, TARV_ELEMENT_TYPE_SIGNED_SHORT_INT, [&random](int, int, int, int) {
    return static_cast<double>(static_cast<int>(random() % 4000) - 2000);
  });
  writeRaw(GetRawPtr(original), file("a.raw"));
  const std::string layout = std::to_string(size.x) + "," + std::to_string(size.y) + "," + std::to_string(size.z);

  // raw -> paged TIFF -> VTK image data -> TIFF through VTK (as float) -> TARV1 -> raw (int16)
  ASSERT_EQ(run({"convert", "a.raw", "b.tif", "--raw-size", layout, "--raw-type", "int16"}).status, 0);
  ASSERT_EQ(run({"convert", "b.tif", "c.vti"}).status, 0);
  ASSERT_EQ(run({"convert", "c.vti", "d.tiff", "--format", "vtk-tiff", "--type", "float"}).status, 0);
  ASSERT_EQ(run({"convert", "d.tiff", "e.tarv"}).status, 0);
  const RunResult last = run({"convert", "e.tarv", "f.raw", "--type", "int16"});
  ASSERT_EQ(last.status, 0) << last.err;
  EXPECT_NE(last.out.find("wrote f.raw: raw, " + std::to_string(size.x) + " x"), std::string::npos) << last.out;

  DatasetHandle paged = readPagedTiff(file("b.tif"));
  EXPECT_EQ(differingElements(GetRawPtr(original), GetRawPtr(paged)), 0);
  DatasetHandle back = readRaw(file("f.raw"), size, TARV_ELEMENT_TYPE_SIGNED_SHORT_INT);
  EXPECT_EQ(differingElements(GetRawPtr(original), GetRawPtr(back)), 0);
  expectNoTemporaryFiles(directory);
}

// Values the type holds convert as the library converts them; others are refused unless clamped
// or rescaled.
TEST_F(Convert, TypeConvertsLikeTheLibrary) {
  DatasetHandle inRange = makeDataset(DatasetCoordinates(4, 1, 1, 1, 1), TARV_ELEMENT_TYPE_FLOAT,
                                      [](int x, int, int, int) { return std::vector<double>{2.7, 1.2, 200, 0.5}[x]; });
  writeRaw(GetRawPtr(inRange), file("a.raw"));
  const RunResult result = run({"convert", "a.raw", "b.tif", "--raw-size", "4,1,1", "--raw-type", "float", "--type", "uint8"});
  ASSERT_EQ(result.status, 0) << result.err;
  DatasetHandle converted = readPagedTiff(file("b.tif"));
  Dataset* d = GetRawPtr(converted);
  ASSERT_EQ(d->getElementType(), TARV_ELEMENT_TYPE_UNSIGNED_CHAR);
  for (int x = 0; x < 4; ++x) {
    const DatasetCoordinates c(x, 0, 0, 0, 0);
    EXPECT_EQ(d->getElement<int>(c), static_cast<int>(GetRawPtr(inRange)->getElement<unsigned char>(c))) << x;
  }

  DatasetHandle outside = makeDataset(DatasetCoordinates(4, 1, 1, 1, 1), TARV_ELEMENT_TYPE_FLOAT,
                                      [](int x, int, int, int) { return std::vector<double>{2.7, -1.7, 300, 0.5}[x]; });
  writeRaw(GetRawPtr(outside), file("c.raw"));
  for (const char* out : {"d.tif", "d.png"}) {
    SCOPED_TRACE(out);
    expectOneLineError(run({"convert", "c.raw", out, "--raw-size", "4,1,1", "--raw-type", "float", "--type", "uint8"}),
                       {out, "values -1.7 .. 300 do not fit uint8 (0 .. 255): give --clamp or --rescale LOW,HIGH"});
    EXPECT_FALSE(std::filesystem::exists(file(out)));
    ASSERT_EQ(run({"convert", "c.raw", out, "--raw-size", "4,1,1", "--raw-type", "float", "--type", "uint8", "--clamp"}).status, 0);
  }
  DatasetHandle clamped = readPagedTiff(file("d.tif"));
  const std::vector<int> expected{2, 0, 255, 0};
  for (int x = 0; x < 4; ++x) EXPECT_EQ(GetRawPtr(clamped)->getElement<int>(DatasetCoordinates(x, 0, 0, 0, 0)), expected[x]) << x;
  // --rescale maps -1.7 .. 300 onto 0 .. 100 first.
  ASSERT_EQ(run({"convert", "c.raw", "e.tif", "--raw-size", "4,1,1", "--raw-type", "float", "--type", "uint8", "--rescale", "0,100"}).status, 0);
  DatasetHandle rescaled = readPagedTiff(file("e.tif"));
  EXPECT_EQ(GetRawPtr(rescaled)->getElement<int>(DatasetCoordinates(1, 0, 0, 0, 0)), 0);
  EXPECT_EQ(GetRawPtr(rescaled)->getElement<int>(DatasetCoordinates(2, 0, 0, 0, 0)), 100);
  expectOneLineError(run({"convert", "c.raw", "f.tif", "--raw-size", "4,1,1", "--raw-type", "float", "--type", "uint8", "--rescale", "0,300"}),
                     {"--rescale 0,300", "uint8"});
}

// TARV1's 16-bit samples cannot hold a range of more than 65535 steps: refused, not wrapped.
TEST_F(Convert, Tarv1RefusesRangesItCannotHold) {
  DatasetHandle wide = makeDataset(DatasetCoordinates(3, 1, 1, 1, 1), TARV_ELEMENT_TYPE_SIGNED_INT,
                                   [](int x, int, int, int) { return std::vector<double>{-1024, 0, 70000}[x]; });
  writeRaw(GetRawPtr(wide), file("wide.raw"));
  expectOneLineError(run({"convert", "wide.raw", "wide.tarv", "--raw-size", "3,1,1", "--raw-type", "int32"}),
                     {"wide.tarv", "TARV1 cannot hold values -1024 .. 70000"});
  EXPECT_FALSE(std::filesystem::exists(file("wide.tarv")));
  ASSERT_EQ(run({"convert", "wide.raw", "wide.tarv", "--raw-size", "3,1,1", "--raw-type", "int32", "--rescale", "0,1000"}).status, 0);
  expectNoTemporaryFiles(directory);
}

TEST_F(Convert, TimeChoosesOneStepForFormatsOfOneStep) {
  writeTarv1Volume();
  expectOneLineError(run({"convert", "volume.tarv", "one.vti"}), {"one.vti", "--time"});
  ASSERT_EQ(run({"convert", "volume.tarv", "one.vti", "--time", "1"}).status, 0);
  VTIDatasetFileReadWrite reader;
  reader.setFileName(file("one.vti"));
  Dataset d(true);
  reader.read(&d, 0);
  ASSERT_EQ(d.getSize(), DatasetCoordinates(5, 4, 3, 1, 1));
  EXPECT_EQ(d.getElement<double>(DatasetCoordinates(2, 1, 2, 0, 0)), 2 + 5 + 40 + 60);
  EXPECT_EQ(d.getWorldEmbedding().getVoxelSpacing(), WorldCoordinates(0.5, 0.25, 2, 1));
  expectOneLineError(run({"convert", "volume.tarv", "two.vti", "--time", "2"}), {"--time 2", "0 to 1"});
}

TEST_F(Convert, FailuresLeaveTheExistingTargetAlone) {
  writeTarv1Volume();
  writeText(file("keep.png"), "old contents");
  // A PNG holds one plane of 8 or 16 bits.
  expectOneLineError(run({"convert", "volume.tarv", "keep.png", "--time", "0"}), {"keep.png", "PNG"});
  expectOneLineError(run({"convert", "volume.tarv", "keep.png", "--time", "0", "--type", "uint8"}),
                     {"keep.png", "one plane"});
  EXPECT_EQ(readText(file("keep.png")), "old contents");
  expectOneLineError(run({"convert", "volume.tarv", "keep.out"}), {"keep.out", "unknown file extension"});
  expectOneLineError(run({"convert", "volume.tarv", "keep.tif", "--time", "0", "--type", "double"}),
                     {"keep.tif", "double"});
  expectOneLineError(run({"convert", "absent.tarv", "keep.png"}), {"absent.tarv", "no such file"});
  expectOneLineError(run({"convert", "volume.tarv", "no/such/dir/x.tarv"}), {"no/such/dir/x.tarv"});
  EXPECT_EQ(readText(file("keep.png")), "old contents");
  expectNoTemporaryFiles(directory);
}

TEST_F(Convert, Tarv1IsWrittenForTheTarvExtension) {
  DatasetHandle source = makeDataset(DatasetCoordinates(3, 3, 1, 1, 1), TARV_ELEMENT_TYPE_UNSIGNED_CHAR,
                                     [](int x, int y, int, int) { return 10 * x + y; });
  writeRaw(GetRawPtr(source), file("a.raw"));
  ASSERT_EQ(run({"convert", "a.raw", "a.tarv", "--raw-size", "3,3,1", "--raw-type", "uint8"}).status, 0);
  const std::string text = readText(file("a.tarv"));
  ASSERT_EQ(text.size(), 2048u + 2 * 9);
  EXPECT_EQ(text.compare(0, 4, "X = "), 0);
  Dataset d(true);
  TARV1DatasetFileReadWrite reader;
  reader.fileName = file("a.tarv");
  reader.read(&d);
  EXPECT_EQ(d.getElement<double>(DatasetCoordinates(2, 1, 0, 0, 0)), 21.0);
}

// ---------------------------------------------------------------------------------------------
// stats

using Stats = ToolTest;

TEST_F(Stats, MinimumMaximumMeanAndRangeCountOverABox) {
  const unsigned int seed = 77;
  SCOPED_TRACE("seed 77");
  std::mt19937 random(seed);
  DatasetHandle volume = makeDataset(DatasetCoordinates(9, 7, 5, 1, 1), TARV_ELEMENT_TYPE_SIGNED_INT,
                                     [&random](int, int, int, int) { return static_cast<double>(random() % 1000); });
  writeRaw(GetRawPtr(volume), file("v.raw"));
  Dataset* v = GetRawPtr(volume);
  double minimum = 1e9, maximum = -1e9, sum = 0;
  unsigned int inRange = 0, count = 0;
  for (int z = 1; z <= 3; ++z)
    for (int y = 2; y <= 6; ++y)
      for (int x = 0; x <= 4; ++x) {
        const double e = v->getElement<double>(DatasetCoordinates(x, y, z, 0, 0));
        minimum = std::min(minimum, e);
        maximum = std::max(maximum, e);
        sum += e;
        ++count;
        if (e >= 100 && e <= 500) ++inRange;
      }
  const RunResult result = run({"stats", "v.raw", "--raw-size", "9,7,5", "--raw-type", "int32", "--box",
                                "0,2,1,4,6,3", "--range", "100,500"});
  ASSERT_EQ(result.status, 0) << result.err;
  EXPECT_EQ(field(result.out, "voxels"), std::to_string(count));
  EXPECT_EQ(std::stod(field(result.out, "minimum")), minimum);
  EXPECT_EQ(std::stod(field(result.out, "maximum")), maximum);
  EXPECT_NEAR(std::stod(field(result.out, "mean")), sum / count, 1e-4 * std::abs(sum / count));
  EXPECT_EQ(field(result.out, "in range").substr(0, field(result.out, "in range").find(' ')), std::to_string(inRange));

  const RunResult outside = run({"stats", "v.raw", "--raw-size", "9,7,5", "--raw-type", "int32", "--box",
                                 "0,2,1,4,6,3", "--range", "100,500", "--outside"});
  const std::string value = field(outside.out, "outside range");
  EXPECT_EQ(value.substr(0, value.find(' ')), std::to_string(count - inRange));
}

TEST_F(Stats, BadBoxesAreOneLineErrors) {
  writeTarv1Volume();
  expectOneLineError(run({"stats", "volume.tarv", "--box", "0,0,0,5,3,2"}), {"--box", "x range"});
  expectOneLineError(run({"stats", "volume.tarv", "--box", "3,0,0,1,3,2"}), {"--box", "empty"});
  expectOneLineError(run({"stats", "volume.tarv", "--box", "1,2,3"}), {"--box", "6"});
  expectOneLineError(run({"stats", "volume.tarv", "--time", "5"}), {"--time 5"});
  const RunResult whole = run({"stats", "volume.tarv", "--time", "1"});
  ASSERT_EQ(whole.status, 0);
  EXPECT_EQ(field(whole.out, "minimum"), "60");
  EXPECT_EQ(field(whole.out, "maximum"), "119");
}

// ---------------------------------------------------------------------------------------------
// slice

using Slice = ToolTest;

TEST_F(Slice, WindowsOnePlaneToEightBits) {
  writeTarv1Volume();
  const RunResult result = run({"slice", "volume.tarv", "plane.png", "--z", "2", "--t", "1", "--window", "90,110"});
  ASSERT_EQ(result.status, 0) << result.err;
  // Row 0 of the plane is the image's top row; VTK's PNG class counts rows from the bottom.
  PNGDatasetFileReadWrite reader;
  reader.setFileName(file("plane.png"));
  Dataset image(true);
  reader.read(&image, 0);
  ASSERT_EQ(image.getSize(), DatasetCoordinates(5, 4, 1, 1, 1));
  ASSERT_EQ(image.getElementType(), TARV_ELEMENT_TYPE_UNSIGNED_CHAR);
  for (int y = 0; y < 4; ++y)
    for (int x = 0; x < 5; ++x) {
      const double value = x + 5 * y + 40 + 60;
      const double expected = std::clamp(std::round((value - 90) * 255.0 / 20.0), 0.0, 255.0);
      EXPECT_EQ(image.getElement<double>(DatasetCoordinates(x, 3 - y, 0, 0, 0)), expected) << x << "," << y;
    }

  // Without a window, the plane's own range.
  ASSERT_EQ(run({"slice", "volume.tarv", "auto.png", "--z", "0"}).status, 0);
  Dataset automatic(true);
  reader.setFileName(file("auto.png"));
  reader.read(&automatic, 0);
  EXPECT_EQ(automatic.getMinimumValue(), 0);
  EXPECT_EQ(automatic.getMaximumValue(), 255);
}

TEST_F(Slice, PlanesOutsideAreOneLineErrors) {
  writeTarv1Volume();
  expectOneLineError(run({"slice", "volume.tarv", "p.png", "--z", "3"}), {"--z 3", "volume.tarv", "0 to 2"});
  expectOneLineError(run({"slice", "volume.tarv", "p.png", "--z", "0", "--window", "5,5"}), {"--window"});
  expectOneLineError(run({"slice", "volume.tarv", "p.png"}), {"--z"});
  expectOneLineError(run({"slice", "volume.tarv", "p.tif", "--z", "0"}), {"p.tif", "PNG"});
  EXPECT_FALSE(std::filesystem::exists(file("p.png")));
}

// ---------------------------------------------------------------------------------------------
// filter

using Filter = ToolTest;

TEST_F(Filter, ComputesAGraphOnLazilyReadInputs) {
  writeTarv1Volume();
  writeText(file("graph.txt"),
            "# doubled plus one, then a threshold\n"
            "ID = 1\nType = LinearTransformationDataset\nSourceDatasetIDList = 0\nFactor = 2\nSummand = 1\n"
            "\n"
            "ID = 2\nType = IntervalThresholdDataset\nSourceDatasetIDList = 1\n"
            "MinimalForegroundThresholdValue = 100\nMaximalForegroundThresholdValue = 200\n"
            "ForegroundValue = 1\nBackgroundValue = 0\nSetForeground = true\nSetBackground = true\n");
  const RunResult result = run({"filter", "graph.txt", "--input", "0=volume.tarv", "-o", "mask.raw"});
  ASSERT_EQ(result.status, 0) << result.err;
  EXPECT_NE(result.out.find("node 2, IntervalThresholdDataset"), std::string::npos) << result.out;
  DatasetHandle mask = readRaw(file("mask.raw"), DatasetCoordinates(5, 4, 3, 2, 1), TARV_ELEMENT_TYPE_FLOAT);
  Dataset* m = GetRawPtr(mask);
  for (auto it = m->getStartCoordinatesIterator(); it.valid; m->incrementCoordinatesIterator(it)) {
    const double v = 2.0 * (it.x + 5 * it.y + 20 * it.z + 60 * it.t) + 1.0;
    EXPECT_EQ(m->getElement<double>(it), v >= 100 && v <= 200 ? 1.0 : 0.0);
  }

  // An intermediate node by its ID.
  ASSERT_EQ(run({"filter", "graph.txt", "-i", "0=volume.tarv", "-o", "lin.raw", "--output-id", "1"}).status, 0);
  DatasetHandle linear = readRaw(file("lin.raw"), DatasetCoordinates(5, 4, 3, 2, 1), TARV_ELEMENT_TYPE_FLOAT);
  EXPECT_EQ(GetRawPtr(linear)->getElement<double>(DatasetCoordinates(4, 3, 2, 1, 0)), 2.0 * 119 + 1);
}

// Paged TIFF, TARV1 and raw results are computed and written slab by slab, on any number of
// threads: the files are those the library writes from the result computed whole.
TEST_F(Filter, StreamedResultsAreTheFilesOfTheWholeResult) {
  std::mt19937 rng(11);
  std::uniform_int_distribution<int> noise(-300, 300);
  DatasetHandle volume = makeDataset(DatasetCoordinates(37, 23, 29, 2, 1), TARV_ELEMENT_TYPE_SIGNED_SHORT_INT,
                                     [&](int x, int y, int z, int t) { return (x * y - z * 7 + t * 50) % 900 + noise(rng); },
                                     DatasetWorldEmbedding(WorldCoordinates(1, 2, 3, 0), WorldCoordinates(0.5, 0.7, 1.5, 1)));
  TARV1DatasetFileReadWrite tarv1;
  tarv1.fileName = file("volume.tarv");
  tarv1.write(GetRawPtr(volume));
  writeText(file("g.txt"),
            "ID = 1\nType = SmoothDataset\nSourceDatasetIDList = 0\nKernelXSize = 3\nKernelYSize = 3\nKernelZSize = 5\n"
            "MarginValue = -7\n\n"
            "ID = 2\nType = GradientDataset\nSourceDatasetIDList = 1\nGradientDimensionality = 3\n"
            "GradientDirection = 2\nGradientFilterSize = 3\nVoxelGradient = false\n\n"
            "ID = 3\nType = VectorLengthDataset\nSourceDatasetIDList = 2 1\n");
  // The reference: the result computed whole (a .vti file holds it exactly), written by the library.
  for (const char* time : {"0", "1"}) {
    SCOPED_TRACE(std::string("time ") + time);
    ASSERT_EQ(run({"filter", "g.txt", "-i", "0=volume.tarv", "-o", "whole.vti", "--time", time}).status, 0);
    VTIDatasetFileReadWrite vti;
    vti.setFileName(file("whole.vti"));
    Dataset whole(true);
    vti.read(&whole, 0);
    ASSERT_TRUE(whole.hasData());
    Dataset wholeShort(true);
    wholeShort.convertPartFrom(&whole, TARV_ELEMENT_TYPE_SIGNED_SHORT_INT, whole.getVoxelBoundingBox());
    // (A .vti file does not hold the time axis's origin, which a TARV1 header states.)
    for (const char* extension : {".tif", ".tarv", ".raw"})
      for (const char* type : {"", "int16"}) {
        if (std::string(extension) == ".tarv" && std::string(time) == "1") continue;
        SCOPED_TRACE(std::string(extension) + " " + type);
        const std::string reference = file(std::string("reference") + extension);
        const auto format = formats::formatFromExtension(reference);
        ASSERT_TRUE(format.has_value());
        Dataset* data = std::string(type).empty() ? &whole : &wholeShort;
        ASSERT_TRUE(formats::writeDatasetFile(data, reference, *format, formats::RawLayout()).ok());
        for (const char* threads : {"1", "2", "3"}) {
          const std::string out = std::string("streamed") + threads + extension;
          std::vector<std::string> arguments = {"--threads", threads, "filter", "g.txt", "-i", "0=volume.tarv",
                                                "-o", out, "--time", time};
          if (!std::string(type).empty()) arguments.insert(arguments.end(), {"--type", type});
          const RunResult result = run(arguments);
          ASSERT_EQ(result.status, 0) << result.err;
          EXPECT_EQ(readText(file(out)), readText(reference)) << out << " differs from the whole result's file";
        }
      }
  }
  expectNoTemporaryFiles(directory);
}

TEST_F(Filter, ParametersThatDependOnTheSourcesSurviveAssembly) {
  DatasetHandle first = makeDataset(DatasetCoordinates(2, 1, 1, 1, 1), TARV_ELEMENT_TYPE_FLOAT,
                                    [](int x, int, int, int) { return x == 0 ? 3.0 : 0.0; });
  DatasetHandle second = makeDataset(DatasetCoordinates(2, 1, 1, 1, 1), TARV_ELEMENT_TYPE_FLOAT,
                                     [](int x, int, int, int) { return x == 0 ? 0.0 : 2.0; });
  writeRaw(GetRawPtr(first), file("a.raw"));
  writeRaw(GetRawPtr(second), file("b.raw"));
  writeText(file("g.txt"),
            "ID = 5\nType = DirectionFilteredVectorLengthDataset\nSourceDatasetIDList = 1 2\n"
            "OrientedFiltering = false\nFilterNormalizedDirection = 0 1\n");
  const RunResult result = run({"filter", "g.txt", "-i", "1=a.raw", "-i", "2=b.raw", "-o", "out.raw", "--raw-size",
                                "2,1,1", "--raw-type", "float"});
  ASSERT_EQ(result.status, 0) << result.err;
  DatasetHandle out = readRaw(file("out.raw"), DatasetCoordinates(2, 1, 1, 1, 1), TARV_ELEMENT_TYPE_FLOAT);
  // Direction (0, 1): the vector (3, 0) is perpendicular, (0, 2) parallel.
  EXPECT_NEAR(GetRawPtr(out)->getElement<double>(DatasetCoordinates(0, 0, 0, 0, 0)), 0.0, 1e-6);
  EXPECT_NEAR(GetRawPtr(out)->getElement<double>(DatasetCoordinates(1, 0, 0, 0, 0)), 2.0, 1e-6);
}

TEST_F(Filter, BadGraphsAreOneLineErrorsAndWriteNothing) {
  writeTarv1Volume();
  writeText(file("out.tif"), "old");
  const auto attempt = [this](const std::string& graph, const std::vector<std::string>& mentions) {
    writeText(file("g.txt"), graph);
    expectOneLineError(run({"filter", "g.txt", "-i", "0=volume.tarv", "-o", "out.tif", "--time", "0"}), mentions);
  };
  attempt("ID = 1\nType = SmoothDataset\nSourceDatasetIDList = 2\n\n"
          "ID = 2\nType = LinearTransformationDataset\nSourceDatasetIDList = 1\n",
          {"g.txt", "cycle", "1 uses 2 uses 1"});
  attempt("ID = 1\nType = SmoothDataset\nSourceDatasetIDList = 1\n", {"g.txt:1", "cycle"});
  attempt("ID = 1\nType = NoSuchDataset\nSourceDatasetIDList = 0\n", {"g.txt:2", "unknown type 'NoSuchDataset'"});
  attempt("ID = 1\nType = SmoothDataset\nSourceDatasetIDList = 9\n", {"g.txt:1", "source ID 9"});
  attempt("ID = 1\nType = SmoothDataset\nSourceDatasetIDList = 0\n\nID = 1\nType = CastDataset\n"
          "SourceDatasetIDList = 0\n",
          {"g.txt:5", "ID 1 is given twice"});
  attempt("ID = 0\nType = SmoothDataset\nSourceDatasetIDList = 0\n", {"g.txt:1", "given both to an input"});
  attempt("ID = 1\nType = SmoothDataset\nSourceDatasetIDList = 0\nKernelSize = 3\n",
          {"g.txt:4", "no entry 'KernelSize'"});
  attempt("ID = 1\nType = SmoothDataset\nSourceDatasetIDList = 0\nKernelXSize = big\n", {"g.txt:4", "KernelXSize"});
  attempt("ID = 1\nType = GradientDataset\nSourceDatasetIDList = 0 0\n", {"g.txt:1", "does not accept"});
  attempt("Type = SmoothDataset\nSourceDatasetIDList = 0\n", {"g.txt:1", "no ID"});
  attempt("ID = 1\nSourceDatasetIDList = 0\n", {"g.txt:1", "no Type"});
  attempt("just words\n", {"g.txt:1", "Name = value"});
  attempt("", {"g.txt", "no filter descriptions"});
  attempt("ID = 1\nType = SmoothDataset\nSourceDatasetIDList = 0\n\nID = 2\nType = CastDataset\n"
          "SourceDatasetIDList = 0\n",
          {"g.txt", "several results", "--output-id"});
  EXPECT_EQ(readText(file("out.tif")), "old");

  expectOneLineError(run({"filter", "absent.txt", "-i", "0=volume.tarv", "-o", "x.tif"}), {"absent.txt"});
  expectOneLineError(run({"filter", "g.txt", "-i", "volume.tarv", "-o", "x.tif"}), {"--input", "ID=FILE"});
  expectOneLineError(run({"filter", "g.txt", "-i", "0=absent.tarv", "-o", "x.tif"}), {"absent.tarv"});
  expectNoTemporaryFiles(directory);
}

// ---------------------------------------------------------------------------------------------
// seg-compare

using SegCompare = ToolTest;

TEST_F(SegCompare, CountsOverlapAndDistances) {
  DatasetHandle a = makeDataset(DatasetCoordinates(4, 1, 1, 1, 1), TARV_ELEMENT_TYPE_UNSIGNED_CHAR,
                                [](int x, int, int, int) { return x <= 1 ? 1.0 : 0.0; });
  DatasetHandle b = makeDataset(DatasetCoordinates(4, 1, 1, 1, 1), TARV_ELEMENT_TYPE_UNSIGNED_CHAR,
                                [](int x, int, int, int) { return x == 1 || x == 2 ? 1.0 : 0.0; });
  TiffDatasetFileWrite writer;
  writer.fileName = file("a.tif");
  writer.write(GetRawPtr(a));
  writer.fileName = file("b.tif");
  writer.write(GetRawPtr(b));

  const RunResult json = run({"seg-compare", "a.tif", "b.tif", "--json"});
  ASSERT_EQ(json.status, 0) << json.err;
  EXPECT_EQ(jsonNumber(json.out, "voxelsA"), 2);
  EXPECT_EQ(jsonNumber(json.out, "voxelsB"), 2);
  EXPECT_EQ(jsonNumber(json.out, "shared"), 1);
  EXPECT_EQ(jsonNumber(json.out, "onlyA"), 1);
  EXPECT_EQ(jsonNumber(json.out, "onlyB"), 1);
  EXPECT_EQ(jsonNumber(json.out, "union"), 3);
  EXPECT_EQ(jsonNumber(json.out, "difference"), 2);
  EXPECT_DOUBLE_EQ(jsonNumber(json.out, "dice"), 0.5);
  EXPECT_DOUBLE_EQ(jsonNumber(json.out, "jaccard"), 1.0 / 3.0);
  EXPECT_DOUBLE_EQ(jsonNumber(json.out, "hausdorffDistance"),
                   BinarySegmentations::getHausdorffDistance(GetRawPtr(a), GetRawPtr(b), 0));
  EXPECT_DOUBLE_EQ(jsonNumber(json.out, "averageBorderDistance"),
                   BinarySegmentations::getAverageBorderDistance(GetRawPtr(a), GetRawPtr(b), 0));

  const RunResult table = run({"seg-compare", "a.tif", "b.tif"});
  ASSERT_EQ(table.status, 0);
  EXPECT_EQ(field(table.out, "shared (A and B)"), "1");
  EXPECT_EQ(field(table.out, "Dice"), "0.5");
}

TEST_F(SegCompare, EmptySegmentationsHaveNoDistances) {
  DatasetHandle empty = makeDataset(DatasetCoordinates(3, 3, 1, 1, 1), TARV_ELEMENT_TYPE_UNSIGNED_CHAR,
                                    [](int, int, int, int) { return 0.0; });
  writeRaw(GetRawPtr(empty), file("e.raw"));
  const RunResult result =
      run({"seg-compare", "e.raw", "e.raw", "--raw-size", "3,3,1", "--raw-type", "uint8", "--json"});
  ASSERT_EQ(result.status, 0) << result.err;
  EXPECT_NE(result.out.find("\"dice\": null"), std::string::npos);
  EXPECT_NE(result.out.find("\"hausdorffDistance\": null"), std::string::npos);
}

TEST_F(SegCompare, MismatchedInputsAreOneLineErrors) {
  writeTarv1Volume();
  DatasetHandle other = makeDataset(DatasetCoordinates(5, 4, 3, 2, 1), TARV_ELEMENT_TYPE_FLOAT,
                                    [](int x, int, int, int) { return x; });
  TARV1DatasetFileReadWrite writer;
  writer.fileName = file("other.tarv");
  writer.write(GetRawPtr(other));
  expectOneLineError(run({"seg-compare", "volume.tarv", "other.tarv"}), {"other.tarv", "--ignore-geometry"});
  EXPECT_EQ(run({"seg-compare", "volume.tarv", "other.tarv", "--ignore-geometry"}).status, 0);
  DatasetHandle small = makeDataset(DatasetCoordinates(2, 2, 2, 1, 1), TARV_ELEMENT_TYPE_FLOAT,
                                    [](int, int, int, int) { return 1; });
  writer.fileName = file("small.tarv");
  writer.write(GetRawPtr(small));
  expectOneLineError(run({"seg-compare", "volume.tarv", "small.tarv"}), {"small.tarv", "size"});
  expectOneLineError(run({"seg-compare", "volume.tarv", "absent.tarv"}), {"absent.tarv", "no such file"});
}

// ---------------------------------------------------------------------------------------------
// seg-clean

using SegClean = ToolTest;

TEST_F(SegClean, RemovesGroupsUpToTheSize) {
  // An isolated face-adjacent pair, a 3-voxel line, and two voxels touching along an edge only.
  DatasetHandle segmentation = makeDataset(DatasetCoordinates(8, 8, 1, 1, 1), TARV_ELEMENT_TYPE_UNSIGNED_CHAR,
                                           [](int x, int y, int, int) {
                                             if (y == 0 && (x == 0 || x == 1)) return 1.0;
                                             if (y == 4 && x >= 2 && x <= 4) return 1.0;
                                             if ((x == 6 && y == 6) || (x == 7 && y == 7)) return 1.0;
                                             return 0.0;
                                           });
  TiffDatasetFileWrite writer;
  writer.fileName = file("seg.tif");
  writer.write(GetRawPtr(segmentation));
  const RunResult result = run({"seg-clean", "seg.tif", "clean.tif", "--value", "1", "--max-group", "2"});
  ASSERT_EQ(result.status, 0) << result.err;
  EXPECT_NE(result.out.find("removed 4 of 7 voxels"), std::string::npos) << result.out;
  DatasetHandle cleaned = readPagedTiff(file("clean.tif"));
  Dataset* c = GetRawPtr(cleaned);
  ASSERT_EQ(c->getSize(), DatasetCoordinates(8, 8, 1, 1, 1));
  for (int y = 0; y < 8; ++y)
    for (int x = 0; x < 8; ++x)
      EXPECT_EQ(c->getElement<int>(DatasetCoordinates(x, y, 0, 0, 0)), y == 4 && x >= 2 && x <= 4 ? 1 : 0);

  expectOneLineError(run({"seg-clean", "seg.tif", "x.tif"}), {"--max-group"});
  expectOneLineError(run({"seg-clean", "seg.tif", "x.tif", "--max-group", "-3"}), {"--max-group"});
  expectOneLineError(run({"seg-clean", "seg.tif", "x.xyz", "--max-group", "3"}), {"x.xyz", "extension"});
  expectOneLineError(run({"seg-clean", "seg.tif", "x.tif", "--max-group", "3", "--type", "double"}),
                     {"x.tif", "double"});
  EXPECT_FALSE(std::filesystem::exists(file("x.tif")));
}

// ---------------------------------------------------------------------------------------------
// demo

using Demo = ToolTest;

TEST_F(Demo, RunsTheMainPathOnAPhantom) {
  const RunResult result = run({"demo", "out", "--size", "24"});
  ASSERT_EQ(result.status, 0) << result.err;
  EXPECT_EQ(result.err, "");
  for (const char* name : {"phantom.tarv", "phantom.tif", "edges.graph", "edges.tif", "seg-smooth.tif",
                           "seg-clean.tif", "1-phantom.png", "4-gradient-length.png", "7-seg-clean.png"})
    EXPECT_TRUE(std::filesystem::exists(file(std::string("out/") + name))) << name;
  EXPECT_NE(result.out.find("paged TIFF identical, TARV1 identical"), std::string::npos) << result.out;
  EXPECT_NE(result.out.find("  Dice "), std::string::npos);
  EXPECT_NE(result.out.find("  total "), std::string::npos);

  // The graph it leaves behind gives the same edges through 'tarv filter'.
  const RunResult again = run({"filter", "out/edges.graph", "-i", "0=out/phantom.tarv", "-o", "edges.tif"});
  ASSERT_EQ(again.status, 0) << again.err;
  DatasetHandle fromDemo = readPagedTiff(file("out/edges.tif"));
  DatasetHandle fromFilter = readPagedTiff(file("edges.tif"));
  EXPECT_GT(GetRawPtr(fromDemo)->getMaximumValue(), 0.0);
  EXPECT_EQ(differingElements(GetRawPtr(fromDemo), GetRawPtr(fromFilter)), 0);

  // And the segmentations it compares, through 'tarv seg-compare'.
  const RunResult compare = run({"seg-compare", "out/seg-smooth.tif", "out/seg-clean.tif", "--json"});
  ASSERT_EQ(compare.status, 0) << compare.err;
  EXPECT_GT(jsonNumber(compare.out, "dice"), 0.5);
  EXPECT_EQ(field(result.out, "voxels in A"), std::to_string(static_cast<long>(jsonNumber(compare.out, "voxelsA"))));
  EXPECT_EQ(field(result.out, "shared (A and B)"),
            std::to_string(static_cast<long>(jsonNumber(compare.out, "shared"))));
}

TEST_F(Demo, UnwritableDirectoryIsOneLineError) {
  writeText(file("plain"), "a file, not a directory");
  expectOneLineError(run({"demo", "plain"}), {"plain"});
}

// ---------------------------------------------------------------------------------------------
// the command line itself

using Usage = ToolTest;

TEST_F(Usage, EverySubcommandHasHelp) {
  for (const char* command : {"info", "convert", "stats", "slice", "filter", "seg-compare", "seg-clean", "demo"}) {
    const RunResult result = run({command, "--help"});
    EXPECT_EQ(result.status, 0) << command;
    EXPECT_NE(result.out.find(std::string("Usage: tarv ") + command), std::string::npos) << command;
  }
  const RunResult top = run({"--help"});
  EXPECT_EQ(top.status, 0);
  EXPECT_NE(top.out.find("seg-compare"), std::string::npos);
}

TEST_F(Usage, MistakesAreOneLineErrors) {
  expectOneLineError(run({}), {"subcommand"});
  expectOneLineError(run({"frobnicate"}), {"unknown command 'frobnicate'"});
  expectOneLineError(run({"info"}), {"FILE"});
  expectOneLineError(run({"convert", "a.tarv"}), {"OUT"});
  expectOneLineError(run({"info", "a.tarv", "--no-such-option"}), {"--no-such-option"});
  expectOneLineError(run({"slice", "a.tarv", "b.png", "--z", "minus"}), {"--z"});
}

}  // namespace
