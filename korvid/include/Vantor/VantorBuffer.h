// Vantor::VantorBuffer: base of every result buffer the framework hands out.
//
// Result buffers belong to the framework: they stay valid until the next execute(),
// releaseGraph() or uninit() of the system that produced them. Callers only read them.
#pragma once

#include <cstdint>
#include <vector>

#include "Glintcore/SharePtr.h"

namespace Vantor {

// Buffer type codes returned by VantorBuffer::getType(). Typed buffers report the
// algorithm kind that produced them; generic buffers report what their infos hold.
enum VantorBufferType : int32_t {
    BUFFER_TYPE_GENERIC = 0,
    BUFFER_TYPE_SALIENCY_SEG = 47,  // generic buffer whose infos are SaliencySegInfo
};

// Base of the records held in a generic buffer's info list.
class VantorBufferInfo : public Glintcore::RefObject {};

class VantorBuffer {
public:
    explicit VantorBuffer(int32_t type = BUFFER_TYPE_GENERIC) : type_(type) {}
    virtual ~VantorBuffer() = default;

    int32_t getType() const { return type_; }

    // Generic buffers carry their records here; typed buffers leave it empty.
    std::vector<Glintcore::SharePtr<VantorBufferInfo>> infos;

private:
    int32_t type_;
};

}  // namespace Vantor
