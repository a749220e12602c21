#ifndef TARV_CORE_PROGRESS_H
#define TARV_CORE_PROGRESS_H

namespace tarv {

// Receives progress reports from long operations and may ask them to stop.
class Progress {
public:
  virtual ~Progress();
  // fractionDone runs from 0 up to below 1; the default does nothing.
  virtual void setProgress(double fractionDone);
  // The cancellation query; the default never cancels.
  virtual bool shouldStop();
};

}  // namespace tarv

#endif
