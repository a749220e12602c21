#ifndef TARV_TOOLS_PROGRESSBAR_H
#define TARV_TOOLS_PROGRESSBAR_H

#include <string>

#include "core/Progress.h"
#include "dataset/Dataset.h"

namespace tarv::tool {

// A progress bar on the standard error stream, redrawn in place; its shouldStop() answers the
// user's Ctrl-C. A disabled bar draws nothing but still passes the interruption on.
class ProgressBar : public Progress {
public:
  ProgressBar(std::string label, bool enabled);
  ~ProgressBar() override;

  void setProgress(double fractionDone) override;
  bool shouldStop() override;
  // Draws the full bar and ends its line.
  void finish();

  // Whether bars are drawn when the user did not say: only on a terminal.
  static bool enabledByDefault();

private:
  void draw(int percent);

  std::string label;
  bool enabled;
  bool drawn = false;
  int lastPercent = -1;
};

// Computes every element of the dataset (calculateFullDataset) under a progress bar that Ctrl-C
// stops. Throws ToolInterrupted when the user stopped it.
void calculateWithProgress(Dataset* dataset, const std::string& label, bool showBar);

}  // namespace tarv::tool

#endif
