// The codec baseline: Google's C++ protobuf messages of the result schema, built from
// the same framework buffers with the same field mapping as the library's encoders
// (rectangles flipped to a bottom-left origin, bytes widened to uint32), so that both
// sides serialise identical bytes. Benchmark-only; not thread-safe beyond protobuf's own rules.
#pragma once

#include "Vantor/Vantor.h"
#include "vqfe_results.pb.h"

namespace VQFeature {
namespace bench {

void buildMessage(const Vantor::FaceBuffer& buffer, C_FaceBuffer* message);
void buildMessage(const Vantor::NHClassificationBuffer& buffer, C_NHClassificationBuffer* message);
void buildMessage(const Vantor::MattingBuffer& buffer, C_MattingResult* message);

}  // namespace bench
}  // namespace VQFeature
