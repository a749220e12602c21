#ifndef TARV_PYTHON_PROGRESSFROMPYTHON_H
#define TARV_PYTHON_PROGRESSFROMPYTHON_H

#include <pybind11/pybind11.h>

#include <atomic>
#include <optional>

#include "core/Progress.h"

namespace tarv::python {

namespace py = pybind11;

// Progress of the library's long operations, reported to a Python callable (which may be None),
// and stopped by Ctrl-C or by an exception of the callable. Used while the GIL is released: it
// takes the GIL for its calls. raiseIfStopped() re-raises the exception (KeyboardInterrupt for
// Ctrl-C) once the operation has returned.
class ProgressFromPython : public Progress {
public:
  explicit ProgressFromPython(py::object callback) : callback(std::move(callback)) {}
  ~ProgressFromPython() override {
    py::gil_scoped_acquire gil;
    callback = py::object();
    error.reset();
  }

  void setProgress(double fractionDone) override {
    if (stopped) return;
    py::gil_scoped_acquire gil;
    if (!callback.is_none()) {
      try {
        callback(fractionDone);
      } catch (py::error_already_set& raised) {
        stop(std::move(raised));
        return;
      }
    }
    checkSignals();
  }

  bool shouldStop() override {
    if (!stopped) {
      py::gil_scoped_acquire gil;
      checkSignals();
    }
    return stopped;
  }

  bool wasStopped() const { return stopped; }

  void raiseIfStopped() {
    if (!stopped) return;
    if (error) {
      py::error_already_set raised = std::move(*error);
      error.reset();
      throw raised;
    }
    PyErr_SetString(PyExc_KeyboardInterrupt, "stopped");
    throw py::error_already_set();
  }

private:
  // Ctrl-C reaches Python's handler only on the main thread; elsewhere this does nothing.
  void checkSignals() {
    if (PyErr_CheckSignals() != 0) stop(py::error_already_set());
  }
  void stop(py::error_already_set raised) {
    if (!error) error.emplace(std::move(raised));
    stopped = true;
  }

  py::object callback;
  std::optional<py::error_already_set> error;
  std::atomic<bool> stopped{false};
};

}  // namespace tarv::python

#endif
