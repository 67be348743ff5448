// Host-supplied platform objects that the framework may use (resource headers,
// networking, threads). The library only stores and hands them over; hosts derive
// from these bases.
#pragma once

namespace Vantor {

class VantorHeaderProvider {
public:
    virtual ~VantorHeaderProvider() = default;
};

class VantorNetworkDelegate {
public:
    virtual ~VantorNetworkDelegate() = default;
};

class VantorThreadDelegate {
public:
    virtual ~VantorThreadDelegate() = default;
};

}  // namespace Vantor
