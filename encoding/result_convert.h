// The encoder dispatch: algorithm kind -> framework buffer type -> blob encoder.
#pragma once

#include "Vantor/AlgorithmType.h"

namespace VQFeature {

// Encodes one framework output of kind type into a new malloc blob of *size bytes.
// Null (and *size untouched) for a kind without encoder or an unusable buffer.
void* encodeResult(Vantor::AlgorithmType type, void* buffer, unsigned long* size);

}  // namespace VQFeature
