#ifndef TARV_KERNELS_INSTRUCTIONSETS_H
#define TARV_KERNELS_INSTRUCTIONSETS_H

namespace tarv::kernels {

// The instruction sets the kernels are built for (Packet.h).
enum class InstructionSet { Generic, SSE2, AVX };

// Whether this build has the instruction set and the processor runs it. Generic always.
bool isSupported(InstructionSet set);
// The fastest supported one.
InstructionSet fastestSupported();

}  // namespace tarv::kernels

#endif
