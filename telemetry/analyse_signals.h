// The signal set: one recording in memory.
//
// A PSignal is one channel of 32-bit float samples in one flat array, so that an import reads a
// whole channel with one call straight into it. It carries no name of its own: its type entry's
// identifier is its name in every lookup. PSignals holds up to 1000 signals, 30 properties and
// 1000 meta-properties in fixed arrays inside the object, and owns its signals.
#pragma once

#include "foundation/qstring.h"

#include <cstdint>

namespace tarvik {

class QFile;
class PTextOut;
class AsciiExportModifier;
struct PSignalTypeDef;
struct PExportOptions;

class PSignal {
public:
    enum { PSF_OWN_DEF = 2 }; // the signal owns its type entry and deletes it with itself

    PSignal(int samples, PSignalTypeDef* def, uint32_t flags);
    ~PSignal();
    PSignal(const PSignal&) = delete;
    PSignal& operator=(const PSignal&) = delete;

    float GetValue(int index) const;        // 0.0 and an error report outside 0..count-1
    float GetTriggerValue(int index) const; // 1.0 where the signal changed by more than 1e-5
    void SelectBank(int newBank);           // saves the active bank and loads another (0..2)
    const char* GetId() const;              // the type identifier, "<no_signaltypedef>" without a type

    // The active bank. The caller of PSignals::AddSignal fills data, count and timestep.
    uint32_t flags;
    int32_t bank;
    float* data; // owned, 'capacity' samples from qcalloc
    int32_t count;
    int32_t capacity;
    int32_t reserved;
    float timestep; // seconds between two samples
    PSignalTypeDef* def; // shared table entry, or owned if PSF_OWN_DEF

private:
    struct Bank {
        float* data;
        int32_t count;
        int32_t capacity;
        int32_t reserved;
        float timestep;
    };
    Bank banks[3];
};

class PSignals {
public:
    enum { MAX_SIGNALS = 1000, MAX_PROPERTIES = 30, MAX_METAPROPERTIES = 1000 };

    PSignals();
    ~PSignals();
    PSignals(const PSignals&) = delete;
    PSignals& operator=(const PSignals&) = delete;

    static void LoadTypeDefs(); // makes the process's type table on first use

    PSignal* AddSignal(const char* name, int samples); // null when the set is full
    void AddProperty(const char* name, const char* value);
    PSignal* FindSignal(const char* name) const; // first signal whose identifier equals name exactly

    bool Import(const char* fileName); // ".sgf" anywhere in the lower-cased name: ImportSGF, else ImportASCII
    bool ImportSGF(const char* fileName);
    bool ReadSGF(QFile& file); // the reader behind ImportSGF, on an open file; fileName set by the caller
    bool ImportASCII(const char* fileName);
    bool ReadASCII(QFile& file); // the reader behind ImportASCII, on an open file; fileName set by the caller
    bool ExportASCII(const PExportOptions& options); // never over the file it was imported from
    // The table behind ExportASCII, into a stream: head, column line and rows. 'modifier' may be
    // null; options.fileName only names the table in reports. False without a signal 'distance'.
    bool WriteASCII(PTextOut& out, const PExportOptions& options, const AsciiExportModifier* modifier);

    PSignal* signals[MAX_SIGNALS]; // owned, in file order, which is the order of output columns
    int32_t signalCount;
    qstring propertyName[MAX_PROPERTIES];
    qstring propertyValue[MAX_PROPERTIES];
    int32_t propertyCount;
    qstring metaName[MAX_METAPROPERTIES];
    qstring metaValue[MAX_METAPROPERTIES];
    int32_t metaCount;
    qstring fileName; // the file last imported, as the caller spelled it
};

} // namespace tarvik
