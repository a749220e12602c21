// Benchmarks of the dataset module on whole volumes, single threaded. The volumes are made here
// from fixed seeds; `tarv_bench --write-volumes DIR` writes them (raw, plus the TARV1 file) so that
// bench/peers.py can time the scipy equivalents on the very same data. bench/run_benchmarks.sh runs
// both and prints one table.
//
// Every benchmark reports processor time (the machine is shared), and rows that read files drop
// the page cache influence by reading a file that the previous iteration has just read.

#include <benchmark/benchmark.h>
#include <tiffio.h>

#include <cmath>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <memory>
#include <random>
#include <string>
#include <vector>

#include "dataset/BinarySegmentations.h"
#include "dataset/Dataset.h"
#include "dataset/FileReadDataset.h"
#include "dataset/GradientDataset.h"
#include "dataset/IntervalPlateauDataset.h"
#include "dataset/IntervalThresholdDataset.h"
#include "dataset/LinearTransformationDataset.h"
#include "dataset/SmoothDataset.h"
#include "dataset/TARV1DatasetFileReadModule.h"
#include "dataset/TiffDatasetFileWrite.h"
#include "dataset/TiffFileReadModule.h"
#include "dataset/VectorLengthDataset.h"
#include "engine/Evaluation.h"

using namespace tarv;

namespace {

std::string workDirectory() {
  const char* dir = std::getenv("TARV_BENCH_DIR");
  return dir != nullptr && *dir != '\0' ? dir : "/tmp";
}

const DatasetWorldEmbedding kEmbedding(WorldCoordinates(0, 0, 0, 0), WorldCoordinates(1, 1, 1, 1));

// A reproducible pseudo-random stream (splitmix64), the same one bench/peers.py does not need:
// the peers read the written volumes.
struct SplitMix {
  std::uint64_t state;
  std::uint64_t next() {
    std::uint64_t z = (state += 0x9e3779b97f4a7c15ULL);
    z = (z ^ (z >> 30)) * 0xbf58476d1ce4e5b9ULL;
    z = (z ^ (z >> 27)) * 0x94d049bb133111ebULL;
    return z ^ (z >> 31);
  }
  double uniform() { return double(next() >> 11) * 0x1.0p-53; }
};

// n^3 floats: a smooth field plus noise, values roughly 0..1000.
std::unique_ptr<Dataset> makeFloatVolume(int n, std::uint64_t seed) {
  auto d = std::make_unique<Dataset>(true);
  d->newDataset<float>(DatasetCoordinates(n, n, n, 1, 1), kEmbedding);
  SplitMix rng{seed};
  DatasetCoordinatesIterator it = d->getStartCoordinatesIterator();
  for (int z = 0; z < n; ++z)
    for (int y = 0; y < n; ++y)
      for (int x = 0; x < n; ++x, d->incrementCoordinatesIterator(it)) {
        const double smooth = 500.0 + 300.0 * std::sin(x * 0.05) * std::cos(y * 0.07) * std::sin(z * 0.03 + 1.0);
        d->setElement<float>(it, static_cast<float>(smooth + 100.0 * rng.uniform()));
      }
  return d;
}

// A ball whose surface is perturbed by a few low-frequency waves (1 inside, 0 outside).
std::unique_ptr<Dataset> makeBlob(int n, double cx, double cy, double cz, double radius, unsigned seed) {
  auto d = std::make_unique<Dataset>(true);
  d->newDataset<unsigned char>(DatasetCoordinates(n, n, n, 1, 1), kEmbedding);
  std::mt19937 rng(seed);
  std::uniform_real_distribution<double> phase(0.0, 6.283185307179586);
  const double p1 = phase(rng), p2 = phase(rng), p3 = phase(rng);
  for (int z = 0; z < n; ++z)
    for (int y = 0; y < n; ++y)
      for (int x = 0; x < n; ++x) {
        const double dx = x - cx, dy = y - cy, dz = z - cz;
        const double r = std::sqrt(dx * dx + dy * dy + dz * dz);
        int inside = 0;
        if (r <= radius * 1.2) {
          const double theta = std::atan2(dy, dx), phi = std::atan2(dz, std::hypot(dx, dy));
          const double surface = radius * (1.0 + 0.06 * std::sin(3 * theta + p1) + 0.05 * std::sin(4 * phi + p2) +
                                           0.03 * std::sin(5 * theta + 2 * phi + p3));
          inside = r <= surface ? 1 : 0;
        }
        d->setElement<int>(DatasetCoordinates(x, y, z, 0, 0), inside);
      }
  return d;
}

// n^3 unsigned chars, each 1 with the given probability.
std::unique_ptr<Dataset> makeRandomMask(int n, double density, std::uint64_t seed) {
  auto d = std::make_unique<Dataset>(true);
  d->newDataset<unsigned char>(DatasetCoordinates(n, n, n, 1, 1), kEmbedding);
  SplitMix rng{seed};
  for (DatasetCoordinatesIterator it = d->getStartCoordinatesIterator(); it.valid; d->incrementCoordinatesIterator(it))
    d->setElement<int>(it, rng.uniform() < density ? 1 : 0);
  return d;
}

// 512 x 512 x 256 unsigned shorts (12-bit CT-like values with structure, compressible by LZW).
std::vector<std::uint16_t> makeShortVolume() {
  std::vector<std::uint16_t> v(std::size_t(512) * 512 * 256);
  SplitMix rng{7};
  std::size_t i = 0;
  for (int z = 0; z < 256; ++z)
    for (int y = 0; y < 512; ++y)
      for (int x = 0; x < 512; ++x) {
        const double dx = x - 256.0, dy = y - 256.0;
        const double body = dx * dx / (200.0 * 200.0) + dy * dy / (160.0 * 160.0) < 1.0 ? 1000.0 : 0.0;
        v[i++] = static_cast<std::uint16_t>(body + 40.0 * std::sin(z * 0.1) + (rng.next() & 31));
      }
  return v;
}

std::unique_ptr<Dataset> datasetOf(const std::vector<std::uint16_t>& v) {
  auto d = std::make_unique<Dataset>(true);
  d->newDataset<unsigned short>(DatasetCoordinates(512, 512, 256, 1, 1), kEmbedding);
  std::size_t i = 0;
  for (DatasetCoordinatesIterator it = d->getStartCoordinatesIterator(); it.valid; d->incrementCoordinatesIterator(it))
    d->setElement<unsigned short>(it, v[i++]);
  return d;
}

// A TARV1 file of the samples: the 2048-byte header, then little-endian 16-bit samples.
void writeTarv1(const std::string& path, const std::vector<std::uint16_t>& samples) {
  std::string header = "X = 512\nY = 512\nZ = 256\nt = 1\nfactor = 4\nendian = littleendian\noffset = -100\n";
  header += "originX = 0\noriginY = 0\noriginZ = 0\noriginT = 0\n";
  header += "spacingX = 0.7\nspacingY = 0.7\nspacingZ = 1.5\nspacingT = 1\n";
  header.resize(2047, ' ');
  header += '\r';
  std::ofstream out(path, std::ios::binary | std::ios::trunc);
  out.write(header.data(), static_cast<std::streamsize>(header.size()));
  out.write(reinterpret_cast<const char*>(samples.data()), static_cast<std::streamsize>(samples.size() * 2));
}

template <typename T>
void writeRaw(const std::string& path, const T* data, std::size_t count) {
  std::ofstream out(path, std::ios::binary | std::ios::trunc);
  out.write(reinterpret_cast<const char*>(data), static_cast<std::streamsize>(count * sizeof(T)));
}

template <typename T>
std::vector<T> elementsOf(Dataset* d) {
  std::vector<T> v;
  v.reserve(d->getElementCount());
  for (DatasetCoordinatesIterator it = d->getStartCoordinatesIterator(); it.valid; d->incrementCoordinatesIterator(it))
    v.push_back(d->getElement<T>(it));
  return v;
}

// The volumes, made once on first use.
struct Volumes {
  std::unique_ptr<Dataset> float256 = makeFloatVolume(256, 1);
  std::unique_ptr<Dataset> blobA = makeBlob(256, 128, 128, 128, 256 * 0.23, 1);
  std::unique_ptr<Dataset> blobB = makeBlob(256, 132, 125, 130, 256 * 0.23 * 0.97, 2);
  std::unique_ptr<Dataset> mask = makeRandomMask(256, 0.10, 3);
};

Volumes& volumes() {
  static Volumes v;
  return v;
}

Dataset* float512() {
  static std::unique_ptr<Dataset> d = makeFloatVolume(512, 5);
  return d.get();
}

const std::vector<std::uint16_t>& shortVolume() {
  static std::vector<std::uint16_t> v = makeShortVolume();
  return v;
}

std::string tarv1Path() { return workDirectory() + "/tarv_bench_chain.tarv1"; }
std::string tiffPath() { return workDirectory() + "/tarv_bench_paged.tif"; }
std::string libtiffPath() { return workDirectory() + "/tarv_bench_libtiff.tif"; }

void ensureTarv1File() {
  static bool written = false;
  if (!written) writeTarv1(tarv1Path(), shortVolume());
  written = true;
}

// A progress reporter that never stops the work, so that full evaluations take the reporting path.
class CountingProgress : public Progress {
public:
  void setProgress(double) override { ++reports; }
  bool shouldStop() override { return false; }
  int reports = 0;
};

// ---------------------------------------------------------------------------------------------

void BM_FullReadGetElementIterator(benchmark::State& state) {
  Dataset* d = volumes().float256.get();
  for (auto _ : state) {
    double sum = 0.0;
    for (DatasetCoordinatesIterator it = d->getStartCoordinatesIterator(); it.valid; d->incrementCoordinatesIterator(it))
      sum += d->getElement<double>(it);
    benchmark::DoNotOptimize(sum);
  }
  state.SetItemsProcessed(state.iterations() * d->getElementCount());
}

void BM_Memcpy512(benchmark::State& state) {
  Dataset* source = float512();
  const std::size_t bytes = std::size_t(source->getElementCount()) * sizeof(float);
  std::vector<float> from(source->getElementCount()), to(source->getElementCount());
  std::memset(from.data(), 1, bytes);
  std::memset(to.data(), 0, bytes);
  for (auto _ : state) {
    std::memcpy(to.data(), from.data(), bytes);
    benchmark::ClobberMemory();
  }
  state.SetBytesProcessed(state.iterations() * static_cast<std::int64_t>(bytes));
}

// Into a dataset that already has the source's shape (a repeated copy into a working dataset).
void BM_CopyFrom512(benchmark::State& state) {
  Dataset* source = float512();
  Dataset target(true);
  target.copyFrom(source);
  for (auto _ : state) target.copyFrom(source);
  state.SetBytesProcessed(state.iterations() * std::int64_t(source->getElementCount()) * 4);
}

// Into an empty dataset: the copy lands in fresh memory, which the kernel maps and clears first.
void BM_CopyFrom512Fresh(benchmark::State& state) {
  Dataset* source = float512();
  for (auto _ : state) {
    state.PauseTiming();
    auto target = std::make_unique<Dataset>(true);
    state.ResumeTiming();
    target->copyFrom(source);
    state.PauseTiming();
    target.reset();
    state.ResumeTiming();
  }
  state.SetBytesProcessed(state.iterations() * std::int64_t(source->getElementCount()) * 4);
}

// The peer of the fresh copy: malloc and memcpy into the new block.
void BM_MallocMemcpy512(benchmark::State& state) {
  Dataset* source = float512();
  const std::size_t bytes = std::size_t(source->getElementCount()) * sizeof(float);
  std::vector<float> from(source->getElementCount());
  std::memset(from.data(), 1, bytes);
  for (auto _ : state) {
    void* to = std::malloc(bytes);
    std::memcpy(to, from.data(), bytes);
    benchmark::DoNotOptimize(to);
    state.PauseTiming();
    std::free(to);
    state.ResumeTiming();
  }
  state.SetBytesProcessed(state.iterations() * static_cast<std::int64_t>(bytes));
}

void BM_ConvertPartFrom512(benchmark::State& state) {
  Dataset* source = float512();
  Dataset target(true);
  for (auto _ : state) target.convertPartFrom(source, TARV_ELEMENT_TYPE_SIGNED_SHORT_INT, source->getVoxelBoundingBox());
  state.SetItemsProcessed(state.iterations() * source->getElementCount());
}

void BM_Smooth5x5x5(benchmark::State& state) {
  SmoothDataset smooth;
  smooth.setSourceDataset(volumes().float256.get());
  smooth.setParameters(5, 5, 5, 0.0);
  CountingProgress progress;
  for (auto _ : state) {
    state.PauseTiming();
    smooth.resetCache();
    state.ResumeTiming();
    smooth.calculateFullDataset(&progress);
  }
  state.SetItemsProcessed(state.iterations() * smooth.getElementCount());
}

void BM_Gradients3AndVectorLength(benchmark::State& state) {
  Dataset* source = volumes().float256.get();
  GradientDataset g[3];
  for (int i = 0; i < 3; ++i) {
    g[i].setSourceDataset(source);
    g[i].setParameters(3, i, 3, false, 0.0);
  }
  VectorLengthDataset length;
  length.setSourceDatasets({&g[0], &g[1], &g[2]});
  CountingProgress progress;
  for (auto _ : state) {
    state.PauseTiming();
    for (auto& gi : g) gi.resetCache();
    state.ResumeTiming();
    for (auto& gi : g) gi.calculateFullDataset(&progress);
    length.calculateFullDataset(&progress);
  }
  state.SetItemsProcessed(state.iterations() * length.getElementCount());
}

// Three point-wise filters over a lazily read TARV1 file, computed slab by slab of 16 slices; after
// each slab the caches are dropped, so memory stays bounded by the slab, not by the file.
void BM_Tarv1LazyChain(benchmark::State& state) {
  ensureTarv1File();
  FileReadDataset file;
  file.setFileReadModule(new TARV1DatasetFileReadModule());
  if (!file.openFile(tarv1Path())) {
    state.SkipWithError("cannot open the TARV1 file");
    return;
  }
  LinearTransformationDataset linear;
  linear.setSourceDataset(&file);
  linear.setParameters(0.5, 10.0);
  IntervalThresholdDataset threshold;
  threshold.setSourceDataset(&linear);
  threshold.setParameters(20.0, 400.0, 1.0, 0.0, false, true);
  IntervalPlateauDataset plateau;
  plateau.setSourceDataset(&threshold);
  plateau.setParameters(100.0, 300.0);
  Dataset* chain[] = {&file, &linear, &threshold, &plateau};
  const DatasetCoordinates size = file.getSize();
  const int slab = 16;
  double peak = 0.0;
  double checksum = 0.0;
  for (auto _ : state) {
    checksum = 0.0;
    for (int z = 0; z < size.z; z += slab) {
      const DatasetBoundingBox box(DatasetCoordinates(0, 0, z, 0, 0),
                                   DatasetCoordinates(size.x - 1, size.y - 1, std::min(z + slab, size.z) - 1, 0, 0));
      for (Dataset* d : chain) d->announceAccess(box);
      plateau.calculate(box);
      double usage = 0.0;
      for (Dataset* d : chain) usage += d->getMemoryUsage();
      peak = std::max(peak, usage);
      checksum += plateau.getElement<double>(DatasetCoordinates(300, 200, z, 0, 0));
      file.resetCache();
    }
  }
  benchmark::DoNotOptimize(checksum);
  state.SetBytesProcessed(state.iterations() * std::int64_t(size.x) * size.y * size.z * 2);
  state.counters["peak_cache_MB"] = peak / 1048576.0;
  state.counters["file_MB"] = double(size.x) * size.y * size.z * 2 / 1048576.0;
}

void BM_TiffPagedWrite(benchmark::State& state) {
  auto d = datasetOf(shortVolume());
  TiffDatasetFileWrite writer;
  writer.fileName = tiffPath();
  for (auto _ : state) writer.write(d.get());
  state.SetBytesProcessed(state.iterations() * std::int64_t(d->getElementCount()) * 2);
}

void BM_TiffPagedLazyRead(benchmark::State& state) {
  {
    auto d = datasetOf(shortVolume());
    TiffDatasetFileWrite writer;
    writer.fileName = tiffPath();
    writer.write(d.get());
  }
  std::int64_t count = 0;
  for (auto _ : state) {
    auto file = std::make_unique<FileReadDataset>();
    file->setFileReadModule(new TiffFileReadModule());
    if (!file->openFile(tiffPath())) {
      state.SkipWithError("cannot open the TIFF file");
      return;
    }
    file->calculateFullDataset(nullptr);
    count = file->getElementCount();
    state.PauseTiming();
    file.reset();
    state.ResumeTiming();
  }
  state.SetBytesProcessed(state.iterations() * count * 2);
}

// The peer of the two TIFF rows: the same file layout (64 x 64 x 1 tiles, LZW) written and read
// by a bare loop over libtiff's tile calls, gathering and scattering the tiles of a plain array.
void setLibtiffTags(TIFF* tif) {
  TIFFSetField(tif, TIFFTAG_IMAGEWIDTH, 512);
  TIFFSetField(tif, TIFFTAG_IMAGELENGTH, 512);
  TIFFSetField(tif, TIFFTAG_IMAGEDEPTH, 256);
  TIFFSetField(tif, TIFFTAG_BITSPERSAMPLE, 16);
  TIFFSetField(tif, TIFFTAG_SAMPLEFORMAT, SAMPLEFORMAT_UINT);
  TIFFSetField(tif, TIFFTAG_SAMPLESPERPIXEL, 1);
  TIFFSetField(tif, TIFFTAG_PHOTOMETRIC, PHOTOMETRIC_MINISBLACK);
  TIFFSetField(tif, TIFFTAG_TILEWIDTH, 64);
  TIFFSetField(tif, TIFFTAG_TILELENGTH, 64);
  TIFFSetField(tif, TIFFTAG_TILEDEPTH, 1);
  TIFFSetField(tif, TIFFTAG_COMPRESSION, COMPRESSION_LZW);
}

void libtiffWrite(const std::vector<std::uint16_t>& v) {
  TIFF* tif = TIFFOpen(libtiffPath().c_str(), "w");
  setLibtiffTags(tif);
  std::vector<std::uint16_t> tile(64 * 64);
  for (int z = 0; z < 256; ++z)
    for (int ty = 0; ty < 512; ty += 64)
      for (int tx = 0; tx < 512; tx += 64) {
        for (int y = 0; y < 64; ++y)
          std::memcpy(&tile[std::size_t(y) * 64], &v[(std::size_t(z) * 512 + ty + y) * 512 + tx], 64 * 2);
        TIFFWriteTile(tif, tile.data(), tx, ty, z, 0);
      }
  TIFFClose(tif);
}

void BM_LibtiffTileWrite(benchmark::State& state) {
  const auto& v = shortVolume();
  for (auto _ : state) libtiffWrite(v);
  state.SetBytesProcessed(state.iterations() * std::int64_t(v.size()) * 2);
}

// Reads the file into a new volume, as the lazy read does.
void BM_LibtiffTileRead(benchmark::State& state) {
  libtiffWrite(shortVolume());
  const std::size_t count = std::size_t(512) * 512 * 256;
  for (auto _ : state) {
    std::unique_ptr<std::uint16_t[]> v(new std::uint16_t[count]);
    TIFF* tif = TIFFOpen(libtiffPath().c_str(), "r");
    std::vector<std::uint16_t> tile(64 * 64);
    for (int z = 0; z < 256; ++z)
      for (int ty = 0; ty < 512; ty += 64)
        for (int tx = 0; tx < 512; tx += 64) {
          TIFFReadTile(tif, tile.data(), tx, ty, z, 0);
          for (int y = 0; y < 64; ++y)
            std::memcpy(&v[(std::size_t(z) * 512 + ty + y) * 512 + tx], &tile[std::size_t(y) * 64], 64 * 2);
        }
    TIFFClose(tif);
    benchmark::DoNotOptimize(v.get());
    state.PauseTiming();
    v.reset();
    state.ResumeTiming();
  }
  state.SetBytesProcessed(state.iterations() * std::int64_t(count) * 2);
}

void BM_HausdorffAndAverageBorderDistance(benchmark::State& state) {
  Dataset* a = volumes().blobA.get();
  Dataset* b = volumes().blobB.get();
  double h = 0.0, avg = 0.0;
  for (auto _ : state) {
    h = BinarySegmentations::getHausdorffDistance(a, b, 0);
    avg = BinarySegmentations::getAverageBorderDistance(a, b, 0);
  }
  state.counters["hausdorff"] = h;
  state.counters["average_border"] = avg;
}

void BM_RemoveSmallVoxelGroups(benchmark::State& state) {
  Dataset* pristine = volumes().mask.get();
  Dataset mask(true);
  for (auto _ : state) {
    state.PauseTiming();
    mask.copyFrom(pristine);
    state.ResumeTiming();
    BinarySegmentations::removeSmallVoxelGroups(&mask, 1.0, 9);
  }
  state.counters["remaining"] = BinarySegmentations::getSegmentationVoxelCount(&mask, 0);
}

void writeVolumes(const std::string& dir) {
  Volumes& v = volumes();
  const auto f = elementsOf<float>(v.float256.get());
  writeRaw(dir + "/float256.raw", f.data(), f.size());
  const auto f512 = elementsOf<float>(float512());
  writeRaw(dir + "/float512.raw", f512.data(), f512.size());
  const auto a = elementsOf<unsigned char>(v.blobA.get());
  writeRaw(dir + "/blobA.raw", a.data(), a.size());
  const auto b = elementsOf<unsigned char>(v.blobB.get());
  writeRaw(dir + "/blobB.raw", b.data(), b.size());
  const auto m = elementsOf<unsigned char>(v.mask.get());
  writeRaw(dir + "/mask256.raw", m.data(), m.size());
  writeTarv1(dir + "/tarv_bench_chain.tarv1", shortVolume());
}

}  // namespace

BENCHMARK(BM_FullReadGetElementIterator)->Unit(benchmark::kMillisecond)->Iterations(1)->Repetitions(3);
BENCHMARK(BM_Memcpy512)->Unit(benchmark::kMillisecond)->Iterations(1)->Repetitions(5);
BENCHMARK(BM_CopyFrom512)->Unit(benchmark::kMillisecond)->Iterations(1)->Repetitions(5);
BENCHMARK(BM_CopyFrom512Fresh)->Unit(benchmark::kMillisecond)->Iterations(1)->Repetitions(3);
BENCHMARK(BM_MallocMemcpy512)->Unit(benchmark::kMillisecond)->Iterations(1)->Repetitions(3);
BENCHMARK(BM_ConvertPartFrom512)->Unit(benchmark::kMillisecond)->Iterations(1)->Repetitions(1);
BENCHMARK(BM_Smooth5x5x5)->Unit(benchmark::kMillisecond)->Iterations(1)->Repetitions(5);
BENCHMARK(BM_Gradients3AndVectorLength)->Unit(benchmark::kMillisecond)->Iterations(1)->Repetitions(5);
BENCHMARK(BM_Tarv1LazyChain)->Unit(benchmark::kMillisecond)->Iterations(1)->Repetitions(5);
BENCHMARK(BM_TiffPagedWrite)->Unit(benchmark::kMillisecond)->Iterations(1)->Repetitions(3);
BENCHMARK(BM_LibtiffTileWrite)->Unit(benchmark::kMillisecond)->Iterations(1)->Repetitions(3);
BENCHMARK(BM_TiffPagedLazyRead)->Unit(benchmark::kMillisecond)->Iterations(1)->Repetitions(3);
BENCHMARK(BM_LibtiffTileRead)->Unit(benchmark::kMillisecond)->Iterations(1)->Repetitions(3);
BENCHMARK(BM_HausdorffAndAverageBorderDistance)->Unit(benchmark::kMillisecond)->Iterations(1)->Repetitions(1);
BENCHMARK(BM_RemoveSmallVoxelGroups)->Unit(benchmark::kMillisecond)->Iterations(1)->Repetitions(3);

int main(int argc, char** argv) {
  if (argc == 3 && std::string(argv[1]) == "--write-volumes") {
    writeVolumes(argv[2]);
    return 0;
  }
  // The rows are single-threaded unless they say otherwise (engine_bench.cpp).
  tarv::engine::setThreadCount(1);
  benchmark::Initialize(&argc, argv);
  if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 1;
  benchmark::RunSpecifiedBenchmarks();
  benchmark::Shutdown();
  return 0;
}
