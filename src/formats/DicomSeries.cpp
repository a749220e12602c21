#include "formats/DicomSeries.h"

#include <gdcmDirectory.h>
#include <gdcmImageReader.h>
#include <gdcmReader.h>
#include <gdcmScanner.h>
#include <gdcmStringFilter.h>
#include <gdcmTrace.h>

#include <algorithm>
#include <array>
#include <climits>
#include <cmath>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <map>
#include <memory>
#include <mutex>
#include <new>
#include <optional>
#include <vector>

#include "core/DcmHeader.h"
#include "core/Vector3D.h"
#include "dataset/Dataset.h"
#include "dataset/DatasetFileReadModule.h"
#include "dataset/FileReadDataset.h"
#include "dataset/DatasetWorldEmbedding.h"
#include "formats/ContiguousElements.h"
#include "formats/DicomStructure.h"
#include "formats/AllocationCap.h"
#include "formats/FileIdentity.h"
#include "formats/FileStatus.h"
#include "formats/SampleTypes.h"

namespace tarv::formats {

namespace {

const gdcm::Tag kSeriesInstanceUid(0x0020, 0x000e);
const gdcm::Tag kSeriesDescription(0x0008, 0x103e);

void quietLibrary() {
  static std::once_flag once;
  std::call_once(once, [] {
    gdcm::Trace::SetDebug(false);
    gdcm::Trace::SetWarning(false);
    gdcm::Trace::SetError(false);
  });
}

using Vec3 = std::array<double, 3>;

double dot(const Vec3& a, const Vec3& b) { return a[0] * b[0] + a[1] * b[1] + a[2] * b[2]; }
Vec3 cross(const Vec3& a, const Vec3& b) {
  return {a[1] * b[2] - a[2] * b[1], a[2] * b[0] - a[0] * b[2], a[0] * b[1] - a[1] * b[0]};
}
Vec3 minus(const Vec3& a, const Vec3& b) { return {a[0] - b[0], a[1] - b[1], a[2] - b[2]}; }
double norm(const Vec3& a) { return std::sqrt(dot(a, a)); }

std::string trimmed(const char* value) {
  std::string text = value == nullptr ? std::string() : std::string(value);
  while (!text.empty() && (text.back() == ' ' || text.back() == '\0')) text.pop_back();
  return text;
}

// The DICOM files under path: every file of a folder (recursively), or the file itself.
Result<std::vector<std::string>> filesUnder(const std::string& path) {
  std::error_code error;
  if (std::filesystem::is_directory(path, error)) {
    gdcm::Directory directory;
    directory.Load(path, true);
    std::vector<std::string> files = directory.GetFilenames();
    std::sort(files.begin(), files.end());
    return files;
  }
  if (Status readable = checkReadableFile(path); !readable.ok()) return readable;
  return std::vector<std::string>{path};
}

struct ScannedSeries {
  std::map<std::string, std::vector<std::string>> files;
  std::map<std::string, std::string> descriptions;
};

Result<ScannedSeries> scanSeries(const std::string& path) {
  quietLibrary();
  Result<std::vector<std::string>> found = filesUnder(path);
  if (!found.ok()) return found.status();
  // GDCM sees only well-formed DICOM files; other files of a folder are passed over.
  std::vector<std::string> files;
  for (const std::string& file : *found) {
    Result<DicomStructure> structure = checkDicomStructure(file);
    if (!structure.ok()) return Status(structure.status().code(), file + ": " + structure.status().message());
    if (*structure == DicomStructure::wellFormed) files.push_back(file);
  }
  gdcm::Scanner scanner;
  scanner.AddTag(kSeriesInstanceUid);
  scanner.AddTag(kSeriesDescription);
  scanner.Scan(files);
  ScannedSeries series;
  for (const std::string& file : files) {
    if (!scanner.IsKey(file.c_str())) continue;
    const std::string uid = trimmed(scanner.GetValue(file.c_str(), kSeriesInstanceUid));
    series.files[uid].push_back(file);
    if (series.descriptions.count(uid) == 0)
      series.descriptions[uid] = trimmed(scanner.GetValue(file.c_str(), kSeriesDescription));
  }
  std::error_code error;
  if (series.files.empty())
    return std::filesystem::is_directory(path, error) ? notFoundError("no DICOM files in the folder")
                                                      : corruptError("not a DICOM file (no 128-byte preamble and DICM prefix)");
  return series;
}

struct Slice {
  std::string file;
  // The file when its header was read; its pixels are read only while it is unchanged.
  FileIdentity identity;
  Vec3 position{};
  double along = 0.0;
};

struct SliceLayout {
  unsigned int columns = 0;
  unsigned int rows = 0;
  unsigned int frames = 1;
  int samples = 1;
  TARVElementType type = TARV_ELEMENT_TYPE_NO_TYPE;
  bool planar = false;
  std::array<double, 6> orientation{};
  double spacing[3] = {1.0, 1.0, 1.0};
  Vec3 origin{};
  double slope = 1.0;
  double intercept = 0.0;
};

// The element type of GDCM's samples; NO_TYPE with the reason in unsupported otherwise.
TARVElementType elementTypeOfPixels(const gdcm::PixelFormat& format, std::string& unsupported) {
  // GDCM asserts on bit counts that do not fit together: those are refused before it is asked.
  const unsigned allocated = format.GetBitsAllocated();
  if (format.GetBitsStored() < 1 || format.GetBitsStored() > allocated || format.GetHighBit() >= allocated) {
    unsupported = std::to_string(format.GetBitsStored()) + " bits stored with high bit " +
                  std::to_string(format.GetHighBit()) + " in " + std::to_string(allocated) + " allocated";
    return TARV_ELEMENT_TYPE_NO_TYPE;
  }
  if (allocated != 8 && allocated != 16 && allocated != 32 && allocated != 64) {
    unsupported = allocated == 1 ? "1-bit samples" : allocated == 12 ? "12-bit packed samples"
                                                                     : std::to_string(allocated) + "-bit samples";
    return TARV_ELEMENT_TYPE_NO_TYPE;
  }
  switch (format.GetScalarType()) {
    case gdcm::PixelFormat::UINT8: return elementTypeOfSamples(SampleKind::unsignedInteger, 8);
    case gdcm::PixelFormat::INT8: return elementTypeOfSamples(SampleKind::signedInteger, 8);
    case gdcm::PixelFormat::UINT16: return elementTypeOfSamples(SampleKind::unsignedInteger, 16);
    case gdcm::PixelFormat::INT16: return elementTypeOfSamples(SampleKind::signedInteger, 16);
    case gdcm::PixelFormat::UINT32: return elementTypeOfSamples(SampleKind::unsignedInteger, 32);
    case gdcm::PixelFormat::INT32: return elementTypeOfSamples(SampleKind::signedInteger, 32);
    case gdcm::PixelFormat::UINT64: return elementTypeOfSamples(SampleKind::unsignedInteger, 64);
    case gdcm::PixelFormat::INT64: return elementTypeOfSamples(SampleKind::signedInteger, 64);
    case gdcm::PixelFormat::FLOAT32: return elementTypeOfSamples(SampleKind::floatingPoint, 32);
    case gdcm::PixelFormat::FLOAT64: return elementTypeOfSamples(SampleKind::floatingPoint, 64);
    case gdcm::PixelFormat::UINT12:
    case gdcm::PixelFormat::INT12: unsupported = "12-bit packed samples"; break;
    case gdcm::PixelFormat::FLOAT16: unsupported = "16-bit float samples"; break;
    case gdcm::PixelFormat::SINGLEBIT: unsupported = "1-bit samples"; break;
    default: unsupported = "samples of an unknown pixel format"; break;
  }
  return TARV_ELEMENT_TYPE_NO_TYPE;
}

Result<SliceLayout> layoutOf(const gdcm::Image& image, const std::string& file) {
  SliceLayout layout;
  const unsigned int* dimensions = image.GetDimensions();
  layout.columns = dimensions[0];
  layout.rows = dimensions[1];
  layout.frames = image.GetNumberOfDimensions() > 2 ? dimensions[2] : 1;
  if (layout.columns < 1 || layout.rows < 1 || layout.frames < 1 || layout.columns > INT_MAX || layout.rows > INT_MAX ||
      layout.frames > INT_MAX)
    return corruptError(file + ": an image of " + std::to_string(layout.columns) + " x " + std::to_string(layout.rows));
  const gdcm::PixelFormat& format = image.GetPixelFormat();
  layout.samples = format.GetSamplesPerPixel();
  std::string unsupported;
  layout.type = elementTypeOfPixels(format, unsupported);
  if (layout.type == TARV_ELEMENT_TYPE_NO_TYPE) return unsupportedError(file + ": " + unsupported);
  const gdcm::PhotometricInterpretation photometric = image.GetPhotometricInterpretation();
  const bool monochrome = photometric == gdcm::PhotometricInterpretation::MONOCHROME1 ||
                          photometric == gdcm::PhotometricInterpretation::MONOCHROME2;
  const bool rgb = photometric == gdcm::PhotometricInterpretation::RGB;
  if (!(monochrome && layout.samples == 1) && !(rgb && layout.samples == 3)) {
    // GDCM names no interpretation it does not know.
    const char* name = photometric.GetString();
    return unsupportedError(file + ": " + std::to_string(layout.samples) + " samples of photometric interpretation " +
                            (name != nullptr ? name : "(unknown)"));
  }
  layout.planar = layout.samples > 1 && image.GetPlanarConfiguration() == 1;
  for (int k = 0; k < 6; ++k) layout.orientation[k] = image.GetDirectionCosines()[k];
  for (int k = 0; k < 3; ++k) {
    layout.spacing[k] = image.GetSpacing()[k];
    layout.origin[k] = image.GetOrigin()[k];
    if (!std::isfinite(layout.origin[k])) return corruptError(file + ": an image position that is not finite");
  }
  // The spacing between frames places voxels only in a multi-frame file.
  for (int k = 0; k < (layout.frames > 1 ? 3 : 2); ++k)
    if (!(layout.spacing[k] > 0.0) || !std::isfinite(layout.spacing[k]))
      return corruptError(file + ": a " + (k < 2 ? "pixel" : "frame") + " spacing of " + std::to_string(layout.spacing[k]) +
                          " (spacings are positive)");
  layout.slope = image.GetSlope();
  layout.intercept = image.GetIntercept();
  return layout;
}

bool sameSlices(const SliceLayout& a, const SliceLayout& b) {
  if (a.columns != b.columns || a.rows != b.rows || a.frames != b.frames || a.samples != b.samples || a.type != b.type)
    return false;
  for (int k = 0; k < 6; ++k)
    if (std::abs(a.orientation[k] - b.orientation[k]) > 1e-4) return false;
  return std::abs(a.spacing[0] - b.spacing[0]) < 1e-6 && std::abs(a.spacing[1] - b.spacing[1]) < 1e-6;
}

// The text elements of the file's top-level data set.
DcmHeader* textTagsOf(const gdcm::File& file) {
  auto* header = new DcmHeader();
  gdcm::StringFilter filter;
  filter.SetFile(file);
  const gdcm::DataSet& dataSet = file.GetDataSet();
  for (const gdcm::DataElement& element : dataSet.GetDES()) {
    const gdcm::Tag& tag = element.GetTag();
    if (tag.GetGroup() == 0x7fe0 || tag.IsPrivate() || element.IsEmpty() || element.IsUndefinedLength()) continue;
    // Sequences and binary values are not text.
    const gdcm::VR vr = element.GetVR();
    if (vr == gdcm::VR::SQ || (vr & gdcm::VR::VRBINARY) || element.GetVL() > 256) continue;
    const std::string value = filter.ToString(tag);
    if (value.empty() || std::any_of(value.begin(), value.end(), [](char c) { return static_cast<unsigned char>(c) < 0x20; }))
      continue;
    header->setValue(tag.GetGroup(), tag.GetElement(), value);
  }
  return header;
}

// Copies one decoded image (frames of rows of pixels) into the dataset's elements at slice z,
// samples fastest.
void storePixels(const std::vector<char>& buffer, const SliceLayout& layout, int sampleBytes, unsigned char* block,
                 std::size_t z) {
  const std::size_t framePixels = static_cast<std::size_t>(layout.columns) * layout.rows;
  const std::size_t frameBytes = framePixels * layout.samples * sampleBytes;
  for (unsigned int frame = 0; frame < layout.frames; ++frame) {
    unsigned char* target = block + (z + frame) * frameBytes;
    const auto* source = reinterpret_cast<const unsigned char*>(buffer.data()) + frame * frameBytes;
    if (layout.planar)
      interleaveComponents(source, target, framePixels, layout.samples, sampleBytes);
    else
      std::memcpy(target, source, frameBytes);
  }
}

// GDCM's image reader asserts (and so aborts) on some files that lack elements it then reads;
// those files are refused before it sees them.
Status checkGdcmCanReadImage(const std::string& file) {
  gdcm::Reader reader;
  reader.SetFileName(file.c_str());
  if (!reader.ReadUpToTag(gdcm::Tag(0x7fe0, 0x0010))) return corruptError(file + ": not a DICOM file GDCM can read");
  const gdcm::DataSet& dataSet = reader.GetFile().GetDataSet();
  if (dataSet.FindDataElement(gdcm::Tag(0x3004, 0x000c)) && !dataSet.FindDataElement(gdcm::Tag(0x0028, 0x0008)))
    return unsupportedError(file + ": a GridFrameOffsetVector without NumberOfFrames");
  return okStatus();
}

std::string seriesList(const ScannedSeries& series) {
  std::string list;
  for (const auto& [uid, files] : series.files) {
    list += (list.empty() ? "" : "; ") + uid + " (" + std::to_string(files.size()) + " files";
    const std::string& description = series.descriptions.at(uid);
    list += description.empty() ? ")" : ", " + description + ")";
  }
  return list;
}

}  // namespace

bool looksLikeDicomFile(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  char bytes[132] = {};
  if (!in.read(bytes, sizeof bytes)) return false;
  return std::memcmp(bytes + 128, "DICM", 4) == 0;
}

Result<std::vector<DicomSeriesSummary>> listDicomSeries(const std::string& path) {
  Result<ScannedSeries> series = scanSeries(path);
  if (!series.ok()) return series.status();
  std::vector<DicomSeriesSummary> list;
  for (const auto& [uid, files] : series->files)
    list.push_back(DicomSeriesSummary{uid, series->descriptions.at(uid), static_cast<int>(files.size())});
  return list;
}

namespace {

// A series ready to be read: its files in order, their common layout, the geometry and the tags
// of the first file.
struct SeriesPlan {
  std::vector<Slice> slices;
  SliceLayout first;
  std::unique_ptr<DcmHeader> tags;
  DatasetWorldEmbedding embedding;
  DatasetCoordinates size;
};

Result<SeriesPlan> planSeries(const std::string& path, const std::string& uid) {
  Result<ScannedSeries> scanned = scanSeries(path);
  if (!scanned.ok()) return scanned.status();
  std::string chosen = uid;
  if (chosen.empty()) {
    if (scanned->files.size() > 1)
      return invalidArgumentError(std::to_string(scanned->files.size()) +
                                  " DICOM series: choose one with --series UID: " + seriesList(*scanned));
    chosen = scanned->files.begin()->first;
  }
  const auto found = scanned->files.find(chosen);
  if (found == scanned->files.end()) return notFoundError("no DICOM series " + chosen + " (found: " + seriesList(*scanned) + ")");
  const std::vector<std::string>& files = found->second;

  // Every slice's layout and position; the pixels are read once the order is known.
  std::vector<Slice> slices;
  std::optional<SliceLayout> first;
  std::unique_ptr<DcmHeader> tags;
  for (const std::string& file : files) {
    if (Status readable = checkGdcmCanReadImage(file); !readable.ok()) return readable;
    const FileIdentity identity = FileIdentity::ofPath(file);
    gdcm::ImageReader reader;
    reader.SetFileName(file.c_str());
    if (!reader.Read()) return corruptError(file + ": not a DICOM image GDCM can read");
    Result<SliceLayout> layout = layoutOf(reader.GetImage(), file);
    if (!layout.ok()) return layout.status();
    if (!first) {
      first = *layout;
      tags.reset(textTagsOf(reader.GetFile()));
    } else if (!sameSlices(*first, *layout)) {
      return unsupportedError(file + ": a slice of another size, sample type, spacing or orientation than " + files.front());
    } else if (layout->slope != first->slope || layout->intercept != first->intercept) {
      return unsupportedError(file + ": a rescale slope and intercept that differ from " + files.front() + "'s");
    }
    if (layout->frames > 1 && files.size() > 1)
      return unsupportedError(file + ": a multi-frame file in a series of several files");
    slices.push_back(Slice{file, identity, layout->origin, 0.0});
  }
  const Vec3 row{first->orientation[0], first->orientation[1], first->orientation[2]};
  const Vec3 column{first->orientation[3], first->orientation[4], first->orientation[5]};
  Vec3 normal = cross(row, column);
  if (std::abs(norm(row) - 1.0) > 1e-3 || std::abs(norm(column) - 1.0) > 1e-3 || std::abs(dot(row, column)) > 1e-3)
    return unsupportedError(files.front() + ": an ImageOrientationPatient whose directions are not orthonormal");
  for (Slice& slice : slices) slice.along = dot(slice.position, normal);
  std::stable_sort(slices.begin(), slices.end(), [](const Slice& a, const Slice& b) { return a.along < b.along; });

  double zSpacing = first->spacing[2];
  if (slices.size() > 1) {
    zSpacing = slices[1].along - slices[0].along;
    for (std::size_t k = 1; k < slices.size(); ++k) {
      const Vec3 step = minus(slices[k].position, slices[k - 1].position);
      const double along = slices[k].along - slices[k - 1].along;
      if (along < 1e-6)
        return unsupportedError(slices[k].file + ": at the same position as " + slices[k - 1].file);
      if (std::abs(along - zSpacing) > 1e-3 + 1e-2 * zSpacing)
        return unsupportedError("uneven slice spacing (" + std::to_string(zSpacing) + " and " + std::to_string(along) +
                                " mm, at " + slices[k].file + ")");
      const Vec3 across = minus(step, {normal[0] * along, normal[1] * along, normal[2] * along});
      if (norm(across) > 1e-3 + 1e-2 * along)
        return unsupportedError("slices shifted across their normal (gantry tilt), at " + slices[k].file);
    }
  }
  if (!(zSpacing > 0.0) || !std::isfinite(zSpacing)) zSpacing = 1.0;

  const std::int64_t depth = static_cast<std::int64_t>(slices.size()) * first->frames;
  const std::int64_t elements = static_cast<std::int64_t>(first->columns) * first->rows * first->samples * depth;
  if (depth > INT_MAX || elements > INT_MAX) return unsupportedError("too large: 2^31 elements or more");
  if (Status cap = checkAllocation(elements, first->type); !cap.ok()) return cap;
  SeriesPlan plan;
  plan.embedding = DatasetWorldEmbedding(
      WorldCoordinates(slices.front().position[0], slices.front().position[1], slices.front().position[2], 0.0),
      WorldCoordinates(first->spacing[0], first->spacing[1], zSpacing, 1.0), Vector3D(row[0], row[1], row[2]),
      Vector3D(column[0], column[1], column[2]));
  plan.size = DatasetCoordinates(static_cast<int>(first->columns), static_cast<int>(first->rows), static_cast<int>(depth),
                                 1, first->samples);
  plan.slices = std::move(slices);
  plan.first = *first;
  plan.tags = std::move(tags);
  return plan;
}

// planSeries, with messages about the path itself not naming it again (the caller names it).
Result<SeriesPlan> planNamedSeries(const std::string& path, const std::string& uid) {
  Result<SeriesPlan> plan = planSeries(path, uid);
  const std::string prefix = path + ": ";
  if (!plan.ok() && plan.status().message().compare(0, prefix.size(), prefix) == 0)
    return Status(plan.status().code(), plan.status().message().substr(prefix.size()));
  return plan;
}

// The decoded frames of file z of the plan into target (all its frames, samples fastest).
Status readSlicePixels(const SeriesPlan& plan, std::size_t z, unsigned char* target) {
  const SliceLayout& first = plan.first;
  const int sampleBytes = static_cast<int>(DatasetMemory::getElementTypeByteSize(first.type));
  const std::size_t expected =
      static_cast<std::size_t>(first.columns) * first.rows * first.samples * sampleBytes * first.frames;
  const std::string& file = plan.slices[z].file;
  if (Status same = plan.slices[z].identity.checkPath(file, file); !same.ok()) return same;
  if (Status readable = checkGdcmCanReadImage(file); !readable.ok()) return readable;
  gdcm::ImageReader reader;
  reader.SetFileName(file.c_str());
  if (!reader.Read()) return corruptError(file + ": not a DICOM image GDCM can read");
  const gdcm::Image& image = reader.GetImage();
  if (image.GetBufferLength() != expected)
    return corruptError(file + ": pixel data of " + std::to_string(image.GetBufferLength()) + " bytes, not " +
                        std::to_string(expected));
  // Native pixel data shorter than the image: GDCM would copy the image's length from it.
  if (const gdcm::ByteValue* stored = image.GetDataElement().GetByteValue();
      stored != nullptr && stored->GetLength() < expected)
    return corruptError(file + ": pixel data of " + std::to_string(stored->GetLength()) + " bytes where the image needs " +
                        std::to_string(expected));
  std::vector<char> buffer(expected);
  if (!image.GetBuffer(buffer.data())) return corruptError(file + ": pixel data GDCM cannot decode");
  storePixels(buffer, first, sampleBytes, target, 0);
  return okStatus();
}

ModalityLUT modalityLutOf(const SliceLayout& layout) {
  ModalityLUT lut;
  if (layout.slope != 1.0 || layout.intercept != 0.0) lut.set(layout.slope, layout.intercept);
  return lut;
}

Result<DatasetHandle> readSeries(const std::string& path, const std::string& uid) {
  Result<SeriesPlan> plan = planNamedSeries(path, uid);
  if (!plan.ok()) return plan.status();
  auto* dataset = new Dataset(true);
  DatasetHandle handle(dataset);
  dataset->newDataset(plan->size, plan->first.type, plan->embedding);
  if (!dataset->hasData() || dataset->getPlainElements() == nullptr) return resourceExhaustedError("not enough memory to read it");
  auto* block = static_cast<unsigned char*>(dataset->getPlainElements());
  const std::size_t fileBytes = static_cast<std::size_t>(plan->first.columns) * plan->first.rows * plan->first.samples *
                                dataset->getElementByteSize() * plan->first.frames;
  for (std::size_t z = 0; z < plan->slices.size(); ++z)
    if (Status read = readSlicePixels(*plan, z, block + z * fileBytes); !read.ok()) return read;
  dataset->setModalityLUT(modalityLutOf(plan->first));
  dataset->setDicomTags(plan->tags.release());
  return handle;
}

// Reads a series file by file (each file's frames one block) into a FileReadDataset's cache.
class DicomSeriesReadModule : public DatasetFileReadModule {
public:
  explicit DicomSeriesReadModule(std::string uid) : uid(std::move(uid)) {}
  ~DicomSeriesReadModule() override { closeFile(); }

  DatasetBoundingBox getReadBlockBox(const DatasetCoordinates& c) override {
    if (!isFileOpen() || !plan) return getNoFileBox();
    const int frames = static_cast<int>(plan->first.frames);
    const int firstZ = c.z / frames * frames;
    return DatasetBoundingBox(DatasetCoordinates(0, 0, firstZ, 0, 0),
                              DatasetCoordinates(size.x - 1, size.y - 1, firstZ + frames - 1, 0, size.c - 1));
  }

  bool open() override {
    Result<SeriesPlan> opened = planNamedSeries(fileName, uid);
    if (!opened.ok()) {
      noteOpenStatus(this, opened.status());
      return false;
    }
    plan = std::make_unique<SeriesPlan>(std::move(*opened));
    size = plan->size;
    elementType = plan->first.type;
    worldEmbedding = plan->embedding;
    modalityLut = modalityLutOf(plan->first);
    return true;
  }

  void close() override { plan.reset(); }

  bool readBlock(FileReadDataset* dataset, const DatasetCoordinates& c) override {
    if (!plan) return false;
    const DatasetBoundingBox box = getReadBlockBox(c);
    const std::size_t rowBytes = static_cast<std::size_t>(size.x) * size.c * DatasetMemory::getElementTypeByteSize(elementType);
    std::vector<unsigned char> frames;
    Status read = okStatus();
    try {
      frames.resize(rowBytes * size.y * plan->first.frames);
      read = readSlicePixels(*plan, static_cast<std::size_t>(c.z) / plan->first.frames, frames.data());
    } catch (const std::bad_alloc&) {
      read = resourceExhaustedError("not enough memory for slice " + std::to_string(c.z));
    }
    if (!read.ok()) {
      noteBlockReadFailure(this, read);
      return false;
    }
    dataset->announceAccess(box);
    std::size_t row = 0;
    for (int z = box.start.z; z <= box.end.z; ++z)
      for (int y = 0; y < size.y; ++y, ++row)
        dataset->setElementReferenceRow(DatasetCoordinates(0, y, z, 0, 0), size.x, frames.data() + row * rowBytes);
    return true;
  }

  const DcmHeader* tags() const { return plan ? plan->tags.get() : nullptr; }

private:
  std::string uid;
  std::unique_ptr<SeriesPlan> plan;
};

}  // namespace

DatasetFileReadModule* newDicomSeriesReadModule(const std::string& uid) { return new DicomSeriesReadModule(uid); }

void copyDicomTags(DatasetFileReadModule* module, Dataset* dataset) {
  const auto* series = dynamic_cast<const DicomSeriesReadModule*>(module);
  if (series != nullptr && series->tags() != nullptr && dataset != nullptr)
    dataset->setDicomTags(new DcmHeader(*series->tags()));
}

Result<DatasetHandle> readDicomSeries(const std::string& path, const std::string& uid) { return readSeries(path, uid); }

}  // namespace tarv::formats
