#include "telemetry/analyse_signals.h"

#include "foundation/qhelpers.h"
#include "foundation/qmessage.h"
#include "telemetry/analyse_signaltypes.h"

#include <cmath>
#include <cstring>

namespace tarvik {

PSignal::PSignal(int samples, PSignalTypeDef* typeDef, uint32_t signalFlags)
{
    std::memset(banks, 0, sizeof banks);
    if (!typeDef) QERROR("PSignal ctor; def may not be 0");
    if (samples < 0) samples = 0;
    flags = signalFlags;
    def = typeDef;
    capacity = samples;
    reserved = 0;
    data = static_cast<float*>(qcalloc(size_t(samples) * sizeof(float)));
    if (!data) {
        QERROR("PSignal ctor; out of memory for %d samples (%s)", samples, GetId());
        capacity = 0;
    }
    count = 0;
    // A lap signal reads as a lap that doesn't exist wherever nothing was stored.
    if (data && def && def->id == "lap")
        for (int i = 0; i < capacity; i++) data[i] = -1.0f;
    timestep = 0.0f;
    bank = 0;
    banks[0] = Bank{data, count, capacity, reserved, timestep};
}

PSignal::~PSignal()
{
    for (int b = 2; b >= 0; b--) {
        SelectBank(b);
        if (data) qfree(data);
        data = nullptr;
        count = capacity = 0;
    }
    if ((flags & PSF_OWN_DEF) && def) delete def;
    def = nullptr;
}

void PSignal::SelectBank(int newBank)
{
    if (newBank < 0 || newBank > 2) return;
    banks[bank] = Bank{data, count, capacity, reserved, timestep};
    bank = newBank;
    const Bank& b = banks[bank];
    data = b.data;
    count = b.count;
    capacity = b.capacity;
    reserved = b.reserved;
    timestep = b.timestep;
}

const char* PSignal::GetId() const
{
    return def ? def->id.cstr() : "<no_signaltypedef>";
}

float PSignal::GetValue(int index) const
{
    if (index >= 0 && index < count) return data[index];
    QERROR("GetValue index (%d) out of range 0..%d (%s)", index, count - 1, GetId());
    return 0.0f;
}

float PSignal::GetTriggerValue(int index) const
{
    if (index < 0 || index >= count) {
        QERROR("GetTriggerValue index (%d) out of range 0..%d (%s)", index, count - 1, GetId());
        return 0.0f;
    }
    if (index == 0) return 0.0f;
    return std::fabs(data[index - 1] - data[index]) > 0.00001f ? 1.0f : 0.0f;
}

PSignals::PSignals() : signalCount(0), propertyCount(0), metaCount(0)
{
    std::memset(signals, 0, sizeof signals);
    LoadTypeDefs();
}

PSignals::~PSignals()
{
    for (int i = 0; i < signalCount; i++) {
        delete signals[i];
        signals[i] = nullptr;
    }
}

void PSignals::LoadTypeDefs()
{
    if (signalTypeDefs) return;
    signalTypeDefs = new PSignalTypeDefs;
    signalTypeDefs->Load("telemetry_signals.ini");
}

PSignal* PSignals::AddSignal(const char* name, int samples)
{
    if (signalCount >= MAX_SIGNALS) {
        QERROR("PSignals:AddSignal(); out of signals (max=%d)", int(MAX_SIGNALS));
        return nullptr;
    }
    LoadTypeDefs();
    int index = signalTypeDefs->Find(name);
    PSignal* signal;
    if (index >= 0) {
        signal = new PSignal(samples, signalTypeDefs->Get(index), 0);
    } else {
        PSignalTypeDef* def = new PSignalTypeDef;
        def->id = name;
        def->unit = "?";
        signal = new PSignal(samples, def, PSignal::PSF_OWN_DEF);
    }
    signals[signalCount++] = signal;
    return signal;
}

void PSignals::AddProperty(const char* name, const char* value)
{
    if (propertyCount >= MAX_PROPERTIES) {
        QWARNING("PSignals::AddProperty(%s,%s) out of space", name, value);
        return;
    }
    propertyName[propertyCount] = name;
    propertyValue[propertyCount] = value;
    propertyCount++;
}

PSignal* PSignals::FindSignal(const char* name) const
{
    for (int i = 0; i < signalCount; i++)
        if (signals[i] && signals[i]->def && signals[i]->def->id == name) return signals[i];
    return nullptr;
}

bool PSignals::Import(const char* name)
{
    qstring lower(name);
    lower.ToLower();
    if (lower.Contains(".sgf")) return ImportSGF(name);
    return ImportASCII(name);
}

} // namespace tarvik
