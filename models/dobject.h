// DObject: the root of the render objects, which paint themselves.
#pragma once

#include <cstdint>

namespace tarvik {

class DObject {
public:
    DObject() : transform{0, 0, 0, 0, 0, 0, 1, 1, 1}, word(0) {}
    virtual ~DObject() {}
    virtual void Paint() {}

    float transform[9]; // position and angles at 0, scales at 1; nothing in the tree reads them
    uint32_t word;      // 0, not read
};

} // namespace tarvik
