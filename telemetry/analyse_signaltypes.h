// The signal type table: what a signal of a given name is (its name for people, unit, range,
// factor, colour, decimals). One table per process, made by the first PSignals and never freed.
// The conversion only needs the identifier; the other fields are stored for the tools that draw.
#pragma once

#include "foundation/qstring.h"

#include <cstdint>

namespace tarvik {

struct PSignalTypeDef {
    enum { PSTF_LIVE = 1, PSTF_SELECTABLE = 2 };

    uint32_t flags = 0;
    qstring id;   // the name recordings use for the signal
    qstring name; // the name for people
    qstring unit;
    float factor = 1.0f;
    float offset = 0.0f;
    float min = 0.0f;
    float max = 1.0f;
    float color[3] = {1.0f, 1.0f, 1.0f};
    int32_t decimals = 2;
};

class PSignalTypeDefs {
public:
    enum { MAX_TYPES = 1000 };

    PSignalTypeDefs() : count(0) {}
    PSignalTypeDefs(const PSignalTypeDefs&) = delete;
    PSignalTypeDefs& operator=(const PSignalTypeDefs&) = delete;

    bool Load(const char* fileName);   // true if the file was found
    int Find(const char* name) const;  // index of the first entry with this id, -1 if none
    int GetCount() const { return count; }
    PSignalTypeDef* Get(int index) { return &defs[index]; }

private:
    PSignalTypeDef defs[MAX_TYPES];
    int count;
};

extern PSignalTypeDefs* signalTypeDefs; // the process's table; null until the first PSignals

} // namespace tarvik
