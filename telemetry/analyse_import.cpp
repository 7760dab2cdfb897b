// Reading recordings into a PSignals.
//
// The .sgf reader is strict towards the head of a file and tolerant towards its end: what stands
// before the signals has to be right, while a recording that stops early still loads. All numbers
// are little-endian; a channel's samples are read with one call straight into the signal's buffer.
#include "telemetry/analyse_signals.h"

#include "foundation/qfile.h"
#include "foundation/qmessage.h"
#include "telemetry/analyse_signaltypes.h"

#include <climits>
#include <cmath>
#include <cstring>

namespace tarvik {

namespace {

// A cut-short last chunk keeps its announced length (the missing samples stay at the buffer's
// initial value) as long as that is plausible for a recording that was cut off: no longer than
// a signal already loaded, or missing no more than this many samples. A count past that is a lie,
// and the load stops there rather than allocate and export what the file never held.
const long maxMissingSamples = 1L << 20;
// One channel is read in one call of at most INT_MAX bytes.
const int maxSamples = INT_MAX / 4;

bool ReadTag(QFile& file, const char* expected)
{
    char tag[4] = {0, 0, 0, 0};
    file.Read(tag, 4);
    return std::memcmp(tag, expected, 4) == 0;
}

int32_t ReadInt32(QFile& file)
{
    uint8_t b[4] = {0, 0, 0, 0};
    file.Read(b, 4);
    return int32_t(uint32_t(b[0]) | uint32_t(b[1]) << 8 | uint32_t(b[2]) << 16 | uint32_t(b[3]) << 24);
}

float ReadFloat32(QFile& file)
{
    uint32_t bits = uint32_t(ReadInt32(file));
    float f;
    std::memcpy(&f, &bits, 4);
    return f;
}

// Cuts the fraction off, towards zero. Values outside the int range and NaN give INT_MIN, which is
// what the processor's own conversion yields for them.
int32_t WholeNumber(float f)
{
    if (!(f > -2147483904.0f && f < 2147483648.0f)) return INT32_MIN;
    return int32_t(f);
}

// Reads 'count' pairs of counted strings. Stops at a text whose length is negative, which the
// format has no use for: that file is damaged. Returns the pairs read completely.
int ReadPairs(QFile& file, qstring* names, qstring* values, int count, int* badLength)
{
    for (int i = 0; i < count; i++) {
        int n = file.Read(names[i]);
        if (n >= 0) n = file.Read(values[i]);
        if (n < 0) {
            *badLength = n;
            return i;
        }
    }
    return count;
}

// A table of text pairs: an int32 count, then the pairs. 'count' gets the pairs read; false, with
// the warning, for a count above 'max' (then 0), a negative one, or a text of negative length.
bool ReadTable(QFile& file, const char* fileName, const char* plural, const char* singular, int max,
               qstring* names, qstring* values, int32_t* count)
{
    int32_t announced = ReadInt32(file);
    if (announced > max) {
        QWARNING("PSignals:ImportSGF(%s): too many %s defined (%d defined, max %d)", fileName, plural, announced, max);
        *count = 0;
        return false;
    }
    if (announced < 0) {
        QWARNING("PSignals:ImportSGF(%s): negative number of %s (%d)", fileName, plural, announced);
        *count = 0;
        return false;
    }
    int badLength = 0;
    *count = ReadPairs(file, names, values, announced, &badLength);
    if (*count < announced) {
        QWARNING("PSignals:ImportSGF(%s): text of negative length (%d) in %s %d", fileName, badLength, singular,
                 *count + 1);
        return false;
    }
    return true;
}

} // namespace

bool PSignals::ImportSGF(const char* name)
{
    fileName = name;
    QFile file(name, QFile::READ);
    if (!file.GetStream()) {
        QWARNING("PSignals:ImportSGF(); can't open file (%s)", name);
        return false;
    }
    return ReadSGF(file);
}

bool PSignals::ReadSGF(QFile& file)
{
    const char* name = fileName.cstr();
    const long fileSize = file.Size();

    if (!ReadTag(file, "SGF0")) {
        QWARNING("PSignals:ImportSGF(); unknown file header (%s)", name);
        return false;
    }
    int32_t chunks = ReadInt32(file);
    if (chunks > MAX_SIGNALS) {
        QWARNING("PSignals:ImportSGF(); too many signals in file (%s, max=%d, file has %d)", fileName.cstr(),
                 int(MAX_SIGNALS), chunks);
        chunks = MAX_SIGNALS;
    }
    // Only the whole seconds of the stored step count; anything below a second is repaired below.
    const int32_t step = WholeNumber(ReadFloat32(file));
    QINFO("PSignals:Load() timestep %f, %d signals\n", double(step), chunks);

    if (!ReadTag(file, "PROP")) {
        QWARNING("PSignals:ImportSGF(); no properties found");
        return false;
    }
    if (!ReadTable(file, name, "properties", "property", MAX_PROPERTIES, propertyName, propertyValue, &propertyCount))
        return false;

    if (!ReadTag(file, "MPRP")) {
        QWARNING("PSignals:ImportSGF(); no meta-properties found (old file format)");
        metaCount = 0;
        // Old files hold 8 bytes between the properties and the first chunk: the 4 just compared
        // with the tag and 4 more.
        file.Seek(4, QFile::SEEK_FROM_HERE);
    } else if (!ReadTable(file, name, "meta-properties", "meta-property", MAX_METAPROPERTIES, metaName, metaValue,
                          &metaCount)) {
        return false;
    }

    int32_t longest = 0; // the most samples of a signal loaded so far
    for (int i = 0; i < chunks; i++) {
        char tag[4] = {0, 0, 0, 0};
        file.Read(tag, 4);
        if (file.IsEOF()) break;
        if (std::memcmp(tag, "SGNL", 4) != 0) {
            QWARNING("PSignals:ImportSGF(); no SGNL found - aborting load (%s)", fileName.cstr());
            break;
        }
        ReadInt32(file); // not used
        int32_t samples = ReadInt32(file);
        char signalName[32] = {0};
        file.Read(signalName, 32);
        if (file.IsEOF()) break; // the file ends inside the chunk's head: nothing of it is there
        signalName[31] = 0;
        QINFO("Load signal %d: %s (%d samples)\n", i, signalName, samples);

        if (samples < 0) {
            QWARNING("PSignals:ImportSGF(); negative sample count %d for signal %s - aborting load (%s)", samples,
                     signalName, fileName.cstr());
            break;
        }
        long left = fileSize - file.Tell();
        long inFile = left > 0 ? left / 4 : 0;
        if (samples > maxSamples ||
            (samples > inFile && samples > longest && samples - inFile > maxMissingSamples)) {
            QWARNING("PSignals:ImportSGF(); signal %s claims %d samples, the file holds %ld - aborting load (%s)",
                     signalName, samples, inFile, fileName.cstr());
            break;
        }

        PSignal* signal = AddSignal(signalName, samples);
        if (signal && signal->data) {
            signal->timestep = float(step);
            file.Read(signal->data, samples * 4);
#if __BYTE_ORDER__ == __ORDER_BIG_ENDIAN__
            for (int k = 0; k < samples; k++) {
                uint32_t v;
                std::memcpy(&v, &signal->data[k], 4);
                v = __builtin_bswap32(v);
                std::memcpy(&signal->data[k], &v, 4);
            }
#endif
            signal->count = samples; // samples past a cut-off end keep the buffer's initial value
            if (samples > longest) longest = samples;
        } else {
            file.Seek(long(samples) * 4, QFile::SEEK_FROM_HERE);
        }
    }
    // The QFile closes with the end of this scope; the repair below needs no file.

    if (step == 0) {
        QINFO("Timestep is 0 - fixing by time signal\n");
        float fixed;
        PSignal* time = FindSignal("time");
        if (time && time->count > 1) {
            fixed = time->data[1] - time->data[0];
            QINFO("Timestep corrected to %.4f\n", double(fixed));
        } else {
            QWARNING("No 'time' signal found to fix timestep; using 0.1 seconds (10 Hz)");
            fixed = 0.1f;
        }
        for (int i = 0; i < signalCount; i++) signals[i]->timestep = fixed;
    }
    return true;
}

} // namespace tarvik
