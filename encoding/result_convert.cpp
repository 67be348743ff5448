#include "encoding/result_convert.h"

#include "encoding/blob_encoders.h"

namespace VQFeature {

void* encodeResult(Vantor::AlgorithmType type, void* buffer, unsigned long* size) {
    switch (type) {
#define VQFE_RESULT_KIND(kind, number, cliName, Buffer, Message, name) \
    case Vantor::AlgorithmType::kind:                                   \
        return convertToBlob(static_cast<Vantor::Buffer*>(buffer), size);
#include "encoding/result_kinds.def"
        default: return nullptr;
    }
}

}  // namespace VQFeature
