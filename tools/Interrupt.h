#ifndef TARV_TOOLS_INTERRUPT_H
#define TARV_TOOLS_INTERRUPT_H

namespace tarv::tool {

// Ctrl-C (SIGINT) and SIGTERM. Inside a CancellableWork scope the first signal only sets a flag
// that the running computation polls (through its Progress object) and stops at; anywhere else,
// and on a second signal, the temporary files of unfinished writes are removed and the program
// exits with status 130 at once. Either way no output file is left half written.
class Interrupt {
public:
  static void install();
  static bool requested();

  // Marks a computation that polls requested() and stops cleanly.
  class CancellableWork {
  public:
    CancellableWork();
    ~CancellableWork();
    CancellableWork(const CancellableWork&) = delete;
    CancellableWork& operator=(const CancellableWork&) = delete;
  };
};

}  // namespace tarv::tool

#endif
