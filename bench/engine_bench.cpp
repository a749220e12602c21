// Rows of the evaluation engine for the table of bench/run_benchmarks.sh: the demo's edge graph on
// one and two threads, a graph with one filter of every type against its most expensive filter
// alone. Volumes in memory, 256^3; the tool's streamed rows are run by bench/tool_rows.py.
#include <benchmark/benchmark.h>

#include <cmath>
#include <memory>

#include "dataset/CastDataset.h"
#include "dataset/ConstantDataset.h"
#include "dataset/Dataset.h"
#include "dataset/DirectionFilteredVectorLengthDataset.h"
#include "dataset/GradientDataset.h"
#include "dataset/IntervalPlateauDataset.h"
#include "dataset/IntervalThresholdDataset.h"
#include "dataset/LinearTransformationDataset.h"
#include "dataset/ScaleDataset.h"
#include "dataset/SmoothDataset.h"
#include "dataset/VectorLengthDataset.h"
#include "engine/Evaluation.h"

namespace tarv {
namespace {

// 256^3 int16, CT-like: air, a body of soft tissue, a dense core, and noise.
Dataset* ctVolume() {
  static std::unique_ptr<Dataset> volume = [] {
    auto d = std::make_unique<Dataset>(true);
    const int n = 256;
    d->newDataset<short>(DatasetCoordinates(n, n, n, 1, 1),
                         DatasetWorldEmbedding(WorldCoordinates(0, 0, 0, 0), WorldCoordinates(0.8, 0.8, 1.0, 1)));
    std::uint64_t state = 7;
    DatasetCoordinatesIterator it = d->getStartCoordinatesIterator();
    for (int z = 0; z < n; ++z)
      for (int y = 0; y < n; ++y)
        for (int x = 0; x < n; ++x, d->incrementCoordinatesIterator(it)) {
          state = state * 6364136223846793005ULL + 1442695040888963407ULL;
          const double noise = static_cast<double>(state >> 40) / static_cast<double>(1 << 24) * 40.0 - 20.0;
          const double r = std::sqrt((x - 128.0) * (x - 128.0) + (y - 128.0) * (y - 128.0) + (z - 128.0) * (z - 128.0));
          const double value = (r < 100 ? 40.0 : -1000.0) + (r < 40 ? 1000.0 : 0.0) + noise;
          d->setElement<int>(it, static_cast<int>(value));
        }
    return d;
  }();
  return volume.get();
}

// The edge graph of tarv demo: smoothing, three gradients, their length, a threshold, 8 bits.
struct EdgeGraph {
  SmoothDataset smooth;
  GradientDataset gradients[3];
  VectorLengthDataset length;
  IntervalThresholdDataset threshold;
  CastDataset bytes;
  explicit EdgeGraph(Dataset* input) {
    smooth.setSourceDataset(input);
    smooth.setParameters(3, 3, 3, -1000.0);
    for (int i = 0; i < 3; ++i) {
      gradients[i].setSourceDataset(&smooth);
      gradients[i].setParameters(3, i, 3, false, 0.0);
    }
    length.setSourceDatasets({&gradients[0], &gradients[1], &gradients[2]});
    threshold.setSourceDataset(&length);
    threshold.setParameters(200.0, 1e300, 1.0, 0.0, true, true);
    bytes.setParameters(TARV_ELEMENT_TYPE_UNSIGNED_CHAR);
    bytes.setSourceDataset(&threshold);
  }
};

// Full evaluation of the edge graph, wall time, on state.range(0) threads.
void BM_EdgeGraphThreads(benchmark::State& state) {
  engine::setThreadCount(static_cast<int>(state.range(0)));
  for (auto _ : state) {
    state.PauseTiming();
    EdgeGraph graph(ctVolume());
    state.ResumeTiming();
    graph.bytes.calculateFullDataset(nullptr);
  }
  engine::setThreadCount(1);
}

// One filter of every type: point-wise ones in a chain, the neighbourhood ones on the chain, the
// vector lengths over both, a constant as one of their sources.
struct EveryFilterType {
  LinearTransformationDataset linear;
  ScaleDataset scale;
  IntervalPlateauDataset plateau;
  IntervalThresholdDataset threshold;
  CastDataset cast;
  SmoothDataset smooth;
  GradientDataset gradient;
  ConstantDataset constant;
  VectorLengthDataset length;
  DirectionFilteredVectorLengthDataset directed;
  explicit EveryFilterType(Dataset* input) {
    linear.setParameters(0.5, 10.0);
    linear.setSourceDataset(input);
    scale.setParameters(0.0, 1000.0, false, -600.0, 800.0);
    scale.setSourceDataset(&linear);
    plateau.setParameters(100.0, 900.0);
    plateau.setSourceDataset(&scale);
    threshold.setParameters(50.0, 950.0, 1000.0, 0.0, false, true);
    threshold.setSourceDataset(&plateau);
    cast.setParameters(TARV_ELEMENT_TYPE_SIGNED_SHORT_INT);
    cast.setSourceDataset(&threshold);
    smooth.setParameters(3, 3, 3, 0.0);
    smooth.setSourceDataset(&cast);
    gradient.setParameters(3, 0, 3, false, 0.0);
    gradient.setSourceDataset(&smooth);
    constant.setParameters(3.0);
    constant.setSourceDataset(&smooth);
    length.setSourceDatasets({&gradient, &constant});
    Vector direction(3);
    direction[0] = 1.0;
    directed.setParameters(false, direction, false);
    directed.setSourceDatasets({&length, &gradient, &smooth});
  }
};

// Reads nothing: the slabs are only computed.
class Discard : public engine::SlabConsumer {
public:
  bool consumeSlab(Dataset&, const DatasetBoundingBox&) override { return true; }
};

// The graph streamed (each node keeps only its slab), and each filter alone streamed the same way.
void BM_EveryFilterType(benchmark::State& state) {
  engine::setThreadCount(1);
  for (auto _ : state) {
    state.PauseTiming();
    EveryFilterType graph(ctVolume());
    Discard discard;
    state.ResumeTiming();
    engine::streamDataset(&graph.directed, discard);
  }
}

// The most expensive filters of that graph alone, on plain inputs.
void BM_SmoothAlone(benchmark::State& state) {
  engine::setThreadCount(1);
  for (auto _ : state) {
    state.PauseTiming();
    SmoothDataset smooth;
    smooth.setSourceDataset(ctVolume());
    smooth.setParameters(3, 3, 3, 0.0);
    Discard discard;
    state.ResumeTiming();
    engine::streamDataset(&smooth, discard);
  }
}

void BM_GradientAlone(benchmark::State& state) {
  engine::setThreadCount(1);
  for (auto _ : state) {
    state.PauseTiming();
    GradientDataset gradient;
    gradient.setSourceDataset(ctVolume());
    gradient.setParameters(3, 0, 3, false, 0.0);
    Discard discard;
    state.ResumeTiming();
    engine::streamDataset(&gradient, discard);
  }
}

void BM_DirectionFilteredAlone(benchmark::State& state) {
  engine::setThreadCount(1);
  for (auto _ : state) {
    state.PauseTiming();
    DirectionFilteredVectorLengthDataset directed;
    Vector direction(3);
    direction[0] = 1.0;
    directed.setParameters(false, direction, false);
    directed.setSourceDatasets({ctVolume(), ctVolume(), ctVolume()});
    Discard discard;
    state.ResumeTiming();
    engine::streamDataset(&directed, discard);
  }
}

}  // namespace
}  // namespace tarv

BENCHMARK(tarv::BM_EdgeGraphThreads)->Arg(1)->Arg(2)->Unit(benchmark::kMillisecond)->Iterations(1)->Repetitions(5)->UseRealTime();
BENCHMARK(tarv::BM_EveryFilterType)->Unit(benchmark::kMillisecond)->Iterations(1)->Repetitions(3);
BENCHMARK(tarv::BM_SmoothAlone)->Unit(benchmark::kMillisecond)->Iterations(1)->Repetitions(3);
BENCHMARK(tarv::BM_GradientAlone)->Unit(benchmark::kMillisecond)->Iterations(1)->Repetitions(3);
BENCHMARK(tarv::BM_DirectionFilteredAlone)->Unit(benchmark::kMillisecond)->Iterations(1)->Repetitions(3);
