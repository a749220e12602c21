#include "ProgressBar.h"

#include <unistd.h>

#include <cstdio>
#include <utility>

#include "Interrupt.h"
#include "ToolError.h"
#include "dataset/Dataset.h"

namespace tarv::tool {

ProgressBar::ProgressBar(std::string labelText, bool enabledFlag) : label(std::move(labelText)), enabled(enabledFlag) {}

ProgressBar::~ProgressBar() {
  if (drawn) std::fputc('\n', stderr);
}

void ProgressBar::setProgress(double fractionDone) {
  if (!enabled) return;
  int percent = static_cast<int>(fractionDone * 100.0);
  if (percent < 0) percent = 0;
  if (percent > 99) percent = 99;
  if (percent != lastPercent) draw(percent);
}

bool ProgressBar::shouldStop() { return Interrupt::requested(); }

void ProgressBar::finish() {
  if (enabled) draw(100);
  if (drawn) std::fputc('\n', stderr);
  drawn = false;
}

bool ProgressBar::enabledByDefault() { return ::isatty(STDERR_FILENO) == 1; }

void ProgressBar::draw(int percent) {
  constexpr int width = 40;
  const int filled = percent * width / 100;
  std::string bar(static_cast<std::size_t>(filled), '#');
  bar.append(static_cast<std::size_t>(width - filled), ' ');
  std::fprintf(stderr, "\r%s [%s] %3d%%", label.c_str(), bar.c_str(), percent);
  std::fflush(stderr);
  drawn = true;
  lastPercent = percent;
}

void calculateWithProgress(Dataset* dataset, const std::string& label, bool showBar) {
  ProgressBar bar(label, showBar);
  {
    Interrupt::CancellableWork work;
    dataset->calculateFullDataset(&bar);
  }
  if (Interrupt::requested()) throw ToolInterrupted("interrupted while " + label + ", nothing written");
  bar.finish();
}

}  // namespace tarv::tool
