#include "kernels/InstructionSets.h"

namespace tarv::kernels {

bool isSupported(InstructionSet set) {
  switch (set) {
    case InstructionSet::Generic:
      return true;
#if defined(__x86_64__) || defined(__i386__)
    case InstructionSet::SSE2:
      return __builtin_cpu_supports("sse2");
    case InstructionSet::AVX:
      return __builtin_cpu_supports("avx");
#endif
    default:
      return false;
  }
}

InstructionSet fastestSupported() {
  static const InstructionSet fastest = isSupported(InstructionSet::AVX)    ? InstructionSet::AVX
                                        : isSupported(InstructionSet::SSE2) ? InstructionSet::SSE2
                                                                            : InstructionSet::Generic;
  return fastest;
}

}  // namespace tarv::kernels
