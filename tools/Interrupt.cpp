#include "Interrupt.h"

#include <unistd.h>

#include <csignal>

#include "formats/AtomicFile.h"

namespace tarv::tool {

namespace {

volatile std::sig_atomic_t interruptRequested = 0;
volatile std::sig_atomic_t cancellableDepth = 0;

void handleSignal(int) {
  if (cancellableDepth > 0 && interruptRequested == 0) {
    interruptRequested = 1;
    return;
  }
  formats::AtomicFile::removeAllTemporaryFiles();
  static const char message[] = "tarv: interrupted, nothing written\n";
  const ssize_t written = ::write(STDERR_FILENO, message, sizeof message - 1);
  static_cast<void>(written);
  ::_exit(130);
}

}  // namespace

void Interrupt::install() {
  struct sigaction action {};
  action.sa_handler = handleSignal;
  sigemptyset(&action.sa_mask);
  action.sa_flags = 0;
  sigaction(SIGINT, &action, nullptr);
  sigaction(SIGTERM, &action, nullptr);
}

bool Interrupt::requested() { return interruptRequested != 0; }

Interrupt::CancellableWork::CancellableWork() { cancellableDepth = cancellableDepth + 1; }

Interrupt::CancellableWork::~CancellableWork() { cancellableDepth = cancellableDepth - 1; }

}  // namespace tarv::tool
