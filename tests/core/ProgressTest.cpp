#include "core/Progress.h"

#include <gtest/gtest.h>

#include <vector>

using tarv::Progress;

namespace {

// Records the reports and asks to stop once half is done.
class RecordingProgress : public Progress {
public:
  std::vector<double> reports;
  void setProgress(double fractionDone) override { reports.push_back(fractionDone); }
  bool shouldStop() override { return !reports.empty() && reports.back() >= 0.5; }
};

// A long operation as the library runs one: report, then ask whether to go on.
int work(Progress& progress, int steps) {
  int done = 0;
  for (int i = 0; i < steps; ++i) {
    progress.setProgress(static_cast<double>(i) / steps);
    if (progress.shouldStop()) break;
    ++done;
  }
  return done;
}

}  // namespace

TEST(ProgressTest, DefaultNeverStops) {
  Progress progress;
  EXPECT_FALSE(progress.shouldStop());
  progress.setProgress(0.0);
  progress.setProgress(0.99);
  EXPECT_FALSE(progress.shouldStop()) << "reports must not make the default cancel";
  EXPECT_EQ(work(progress, 10), 10);
}

TEST(ProgressTest, OverridesAreCalledThroughTheBase) {
  RecordingProgress recording;
  Progress& progress = recording;
  EXPECT_EQ(work(progress, 10), 5) << "the work must stop when asked";
  EXPECT_EQ(recording.reports, (std::vector<double>{0.0, 0.1, 0.2, 0.3, 0.4, 0.5}));
}
