// Headers that claim more than a dataset or the allocation cap allows are refused before anything
// is allocated: quickly, and without the memory they claim.
#include "formats/AllocationCap.h"

#include <gtest/gtest.h>
#include <sys/resource.h>
#include <tiffio.h>

#include <chrono>
#include <cstring>
#include <functional>
#include <string>

#include "FormatTestSupport.h"
#include "formats/FormatRegistry.h"

namespace tarv {
namespace {

using testing::TemporaryDirectory;
using testing::writeBytes;

long peakResidentKilobytes() {
  rusage usage{};
  getrusage(RUSAGE_SELF, &usage);
  return usage.ru_maxrss;
}

// Restores the default cap when a test ends.
struct CapGuard {
  ~CapGuard() { formats::setAllocationCap(0); }
};

TEST(AllocationCap, DefaultsToThreeQuartersOfTheMachinesMemoryAndCanBeSet) {
  CapGuard guard;
  const std::size_t machine = formats::getAllocationCap();
  EXPECT_GT(machine, std::size_t{64} << 20);
  formats::setAllocationCap(std::size_t{1} << 20);
  EXPECT_EQ(formats::getAllocationCap(), std::size_t{1} << 20);
  EXPECT_TRUE(formats::checkAllocation(DatasetCoordinates(512, 512, 2, 1, 1), TARV_ELEMENT_TYPE_UNSIGNED_CHAR).ok());
  const Status over = formats::checkAllocation(DatasetCoordinates(512, 512, 4, 1, 1), TARV_ELEMENT_TYPE_SIGNED_SHORT_INT);
  EXPECT_EQ(over.code(), StatusCode::resourceExhausted);
  EXPECT_EQ(over.message(), "512 x 512 x 4 int16 elements need 2.1 MB, more than the allocation cap of 1.05 MB");
  const Status huge = formats::checkAllocation(std::int64_t{1} << 40, TARV_ELEMENT_TYPE_BOOL);
  EXPECT_EQ(huge.code(), StatusCode::unsupported);
  formats::setAllocationCap(0);
  EXPECT_EQ(formats::getAllocationCap(), machine);
}

std::string niftiClaiming(int x, int y, int z) {
  // A NIfTI-1 header (348 bytes, int16 samples) and four bytes of data.
  std::string bytes(352, '\0');
  const auto put32 = [&bytes](std::size_t at, std::int32_t v) { std::memcpy(&bytes[at], &v, 4); };
  const auto put16 = [&bytes](std::size_t at, std::int16_t v) { std::memcpy(&bytes[at], &v, 2); };
  const auto putFloat = [&bytes](std::size_t at, float v) { std::memcpy(&bytes[at], &v, 4); };
  put32(0, 348);
  const std::int16_t dims[8] = {3, static_cast<std::int16_t>(x), static_cast<std::int16_t>(y),
                                static_cast<std::int16_t>(z), 1, 1, 1, 1};
  for (int k = 0; k < 8; ++k) put16(40 + 2 * k, dims[k]);
  put16(70, 4);   // DT_INT16
  put16(72, 16);  // bits
  for (int k = 0; k < 8; ++k) putFloat(76 + 4 * k, 1.0f);
  putFloat(108, 352.0f);  // vox_offset
  std::memcpy(&bytes[344], "n+1\0", 4);
  return bytes;
}

struct Claim {
  std::string name;
  std::string bytes;
  formats::FileFormat format;
  std::function<void(const std::string&)> make;
};

// Each reader, fed a file of a few KB claiming a 2^31 x 2^31 volume (or as much as its header
// can state), and one claiming a volume within 2^31 elements but beyond a cap of 1 MB.
TEST(AllocationCap, EveryReaderRefusesWhatAHeaderClaimsBeforeAllocating) {
  CapGuard guard;
  TemporaryDirectory dir;
  const std::string small = std::string(4096, '\0');
  std::vector<Claim> claims = {
      {"huge.nii", niftiClaiming(32767, 32767, 32767), formats::FileFormat::nifti, nullptr},
      {"capped.nii", niftiClaiming(1000, 1000, 10), formats::FileFormat::nifti, nullptr},
      {"huge.mha",
       "ObjectType = Image\nNDims = 3\nDimSize = 2147483647 2147483647 1\nElementType = MET_SHORT\n"
       "ElementDataFile = LOCAL\n" + small,
       formats::FileFormat::metaImage, nullptr},
      {"capped.mha",
       "ObjectType = Image\nNDims = 3\nDimSize = 1000 1000 10\nElementType = MET_SHORT\nElementDataFile = LOCAL\n" + small,
       formats::FileFormat::metaImage, nullptr},
      {"huge.nrrd", "NRRD0004\ntype: short\ndimension: 3\nsizes: 2147483647 2147483647 1\nendian: little\nencoding: raw\n\n" + small,
       formats::FileFormat::nrrd, nullptr},
      {"capped.nrrd", "NRRD0004\ntype: short\ndimension: 3\nsizes: 1000 1000 10\nendian: little\nencoding: raw\n\n" + small,
       formats::FileFormat::nrrd, nullptr},
  };
  for (const auto& [name, width, height, pages] :
       {std::tuple<const char*, std::uint32_t, std::uint32_t, int>{"huge.tif", 2147483647u, 2147483647u, 1},
        {"capped.tif", 1000u, 1000u, 10}}) {
    Claim tiff{name, "", formats::FileFormat::tiffStack, nullptr};
    tiff.make = [width, height, pages](const std::string& path) {
      TIFF* out = TIFFOpen(path.c_str(), "w");
      ASSERT_NE(out, nullptr);
      for (int page = 0; page < pages; ++page) {
        TIFFSetField(out, TIFFTAG_IMAGEWIDTH, width);
        TIFFSetField(out, TIFFTAG_IMAGELENGTH, height);
        TIFFSetField(out, TIFFTAG_BITSPERSAMPLE, 16);
        TIFFSetField(out, TIFFTAG_SAMPLESPERPIXEL, 1);
        TIFFSetField(out, TIFFTAG_PHOTOMETRIC, PHOTOMETRIC_MINISBLACK);
        TIFFSetField(out, TIFFTAG_ROWSPERSTRIP, height);
        // One strip of a few bytes: its pages are refused before any strip is read.
        char strip[16] = {};
        TIFFWriteRawStrip(out, 0, strip, sizeof strip);
        TIFFWriteDirectory(out);
      }
      TIFFClose(out);
    };
    claims.push_back(tiff);
  }
  formats::setAllocationCap(std::size_t{1} << 20);
  for (const Claim& claim : claims) {
    SCOPED_TRACE(claim.name);
    const std::string path = dir.file(claim.name);
    if (claim.make)
      claim.make(path);
    else
      writeBytes(path, claim.bytes);
    const long before = peakResidentKilobytes();
    const auto start = std::chrono::steady_clock::now();
    formats::ReadRequest request;
    request.format = claim.format;
    request.lazy = false;
    const Result<formats::OpenedFile> read = formats::readDatasetFile(path, request);
    const double seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
    ASSERT_FALSE(read.ok());
    const bool capped = claim.name.rfind("capped", 0) == 0;
    EXPECT_EQ(read.status().code(), capped ? StatusCode::resourceExhausted : StatusCode::unsupported)
        << read.status().toString();
    EXPECT_NE(read.status().message().find(capped ? "allocation cap" : "2^31"), std::string::npos)
        << read.status().toString();
    EXPECT_LT(peakResidentKilobytes() - before, 50 * 1024) << "resident memory grew";
    // A guard against reading or allocating what is claimed, far above the tens of microseconds a
    // refusal takes (printed).
    EXPECT_LT(seconds, 2.0);
    std::printf("  %-12s refused in %.3f ms: %s\n", claim.name.c_str(), seconds * 1e3, read.status().message().c_str());
  }
}

}  // namespace
}  // namespace tarv
