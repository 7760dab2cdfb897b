// Reading a racing simulator's binary disk telemetry (.ibt) into a PSignals.
//
// Layout, all little-endian: a 112-byte header (version, status, tick rate, session text
// update/length/offset, variable count, variable table offset, buffer count, record length, 8
// spare bytes, four buffer entries of 16 bytes each holding the records' offset at +4), a 32-byte
// disk header at 112 (start date as int64 seconds since 1970 UTC, start and end session time as
// doubles, lap count, record count), a table of 144-byte variable entries (type, offset in the
// record, element count, a flag word, then name 32, description 64 and unit 32 bytes, each
// NUL-padded), the session text in YAML, and fixed-length records at the tick rate.
//
// Every offset and count is checked against the file in 64-bit arithmetic before anything is
// allocated; a header that doesn't fit the file is refused. The session text is never trusted: it
// is scanned line by line for a few keys, with bounded copies, and ends at its first NUL.
#include "telemetry/analyse_import_logger.h"

#include "foundation/qmessage.h"
#include "telemetry/analyse_signals.h"
#include "telemetry/analyse_signaltypes.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>

namespace tarvik {

namespace {

const uint64_t headerBytes = 144; // main header and disk header
const uint64_t varEntryBytes = 144;
const int32_t fileVersion = 2;
const int32_t maxVars = 4096;      // real files hold a few hundred
const int32_t maxTickRate = 10000; // per second
const int32_t maxRecordBytes = 1 << 20;
const int maxSectors = 64;
const int maxValueChars = 127; // a session text value is cut to this

enum { IBT_CHAR, IBT_BOOL, IBT_INT, IBT_BITFIELD, IBT_FLOAT, IBT_DOUBLE, IBT_TYPES };
const int typeBytes[IBT_TYPES] = {1, 1, 4, 4, 4, 8};

// Reads at fixed positions of the whole file; past the end a read yields 0 and sets 'overrun'.
struct Bytes {
    const uint8_t* data;
    uint64_t size;
    bool overrun;

    uint32_t U32(uint64_t at)
    {
        if (at > size || size - at < 4) {
            overrun = true;
            return 0;
        }
        const uint8_t* p = data + at;
        return uint32_t(p[0]) | uint32_t(p[1]) << 8 | uint32_t(p[2]) << 16 | uint32_t(p[3]) << 24;
    }
    int32_t I32(uint64_t at) { return int32_t(U32(at)); }
    int64_t I64(uint64_t at) { return int64_t(uint64_t(U32(at)) | uint64_t(U32(at + 4)) << 32); }
    // A NUL-padded text field of 'width' bytes into 'out' (width + 1 bytes). Bytes outside the
    // printable ASCII range become '_', so that a name never breaks a line or column of the export.
    void Text(uint64_t at, int width, char* out)
    {
        int n = 0;
        if (at <= size && size - at >= uint64_t(width))
            for (; n < width && data[at + n]; n++)
                out[n] = data[at + n] > ' ' && data[at + n] < 127 ? char(data[at + n]) : '_';
        else
            overrun = true;
        out[n] = 0;
    }
};

struct Header {
    int32_t version, tickRate, infoLength, infoOffset, varCount, varOffset, bufferCount, recordBytes,
        recordOffset;
    int64_t startDate;
    int32_t recordCount;
};

struct Var {
    int32_t type, offset, count;
    char name[33];
    char unit[33];
};

// A variable of the file under this system's name, unit and factor.
struct ChannelMap {
    const char* var;
    const char* signal;
    const char* unit;
    float factor;
};

// The order here is the order of the first columns of the export. Lateral acceleration is acc_x,
// longitudinal acc_z and vertical acc_y, signs as the file has them.
const ChannelMap channelMap[] = {
    {"LapDist", "distance", "m", 1.0f},     {"Speed", "velocity", "m/s", 1.0f},
    {"RPM", "rpm", "1/min", 1.0f},          {"Gear", "gear", "-", 1.0f},
    {"Throttle", "throttle", "0..1", 1.0f}, {"Brake", "brake", "0..1", 1.0f},
    {"Clutch", "clutch", "0..1", 1.0f},     {"SteeringWheelAngle", "steering", "deg", 57.2957795f},
    {"LatAccel", "acc_x", "m/s^2", 1.0f},   {"VertAccel", "acc_y", "m/s^2", 1.0f},
    {"LongAccel", "acc_z", "m/s^2", 1.0f},  {"Lap", "lap", "-", 1.0f},
};
const int mappedCount = int(sizeof channelMap / sizeof channelMap[0]);

// What the session text says, each value cut to maxValueChars.
struct SessionInfo {
    char track[maxValueChars + 1] = "";
    char config[maxValueChars + 1] = "";
    char trackLength[maxValueChars + 1] = "";
    char event[maxValueChars + 1] = "";
    char car[maxValueChars + 1] = "";
    char driver[maxValueChars + 1] = "";
    float sectorStart[maxSectors];
    int sectorCount = 0;
};

void CopyValue(char* out, const char* from, const char* end)
{
    while (from < end && *from == ' ')
        from++;
    while (end > from && (end[-1] == ' ' || end[-1] == '\r'))
        end--;
    if (end - from >= 2 && *from == '"' && end[-1] == '"') {
        from++;
        end--;
    }
    int n = 0;
    for (; from < end && n < maxValueChars; from++) {
        const unsigned char c = static_cast<unsigned char>(*from);
        out[n++] = c >= ' ' && c != 127 ? *from : '_'; // Latin-1 or UTF-8 names pass, controls don't
    }
    out[n] = 0;
}

// Scans the session text: one pass over its lines, each looked at only up to the first ':' and the
// value copied bounded. The car and driver come from the entry of the driver list whose CarIdx is
// DriverCarIdx, or the first entry when that can't be told.
void ScanSessionInfo(const char* text, size_t length, SessionInfo& info)
{
    const char* p = text;
    const char* end = text + length;
    const void* nul = std::memchr(text, 0, length);
    if (nul) end = static_cast<const char*>(nul);

    enum { OTHER, WEEKEND, DRIVERS, SPLITS } section = OTHER;
    char driverIdx[maxValueChars + 1] = "";
    char entryIdx[maxValueChars + 1] = "";
    bool haveEntry = false, tookOwn = false;
    while (p < end) {
        const char* lineEnd = static_cast<const char*>(std::memchr(p, '\n', size_t(end - p)));
        if (!lineEnd) lineEnd = end;
        const char* k = p;
        while (k < lineEnd && *k == ' ')
            k++;
        const bool topLevel = k == p;
        if (k < lineEnd && *k == '-') {
            k++;
            while (k < lineEnd && *k == ' ')
                k++;
        }
        const char* colon = k;
        while (colon < lineEnd && *colon != ':')
            colon++;
        if (colon < lineEnd) {
            const size_t keyLength = size_t(colon - k);
            auto Is = [&](const char* key) {
                return std::strlen(key) == keyLength && std::memcmp(k, key, keyLength) == 0;
            };
            char* target = nullptr;
            if (topLevel) {
                section = Is("WeekendInfo")     ? WEEKEND
                          : Is("DriverInfo")    ? DRIVERS
                          : Is("SplitTimeInfo") ? SPLITS
                                                : OTHER;
            } else if (section == WEEKEND) {
                target = Is("TrackDisplayName")  ? info.track
                         : Is("TrackConfigName") ? info.config
                         : Is("TrackLength")     ? info.trackLength
                         : Is("EventType")       ? info.event
                                                 : nullptr;
            } else if (section == DRIVERS) {
                if (Is("DriverCarIdx")) {
                    CopyValue(driverIdx, colon + 1, lineEnd);
                } else if (Is("CarIdx")) {
                    CopyValue(entryIdx, colon + 1, lineEnd);
                    // A later entry is taken only when it is the driver's own.
                    bool own = driverIdx[0] && std::strcmp(driverIdx, entryIdx) == 0;
                    haveEntry = !tookOwn && (own || (!info.car[0] && !info.driver[0]));
                    if (own) tookOwn = true;
                } else if (haveEntry) {
                    target = Is("UserName") ? info.driver : Is("CarScreenName") ? info.car : nullptr;
                }
            } else if (section == SPLITS && Is("SectorStartPct") && info.sectorCount < maxSectors) {
                char value[maxValueChars + 1];
                CopyValue(value, colon + 1, lineEnd);
                char* stop = nullptr;
                float start = std::strtof(value, &stop);
                if (stop != value && start >= 0.0f && start <= 1.0f)
                    info.sectorStart[info.sectorCount++] = start;
            }
            if (target) CopyValue(target, colon + 1, lineEnd);
        }
        p = lineEnd + (lineEnd < end ? 1 : 0);
    }
    std::sort(info.sectorStart, info.sectorStart + info.sectorCount);
}

bool ReadHeader(Bytes& b, const char* name, Header& h)
{
    if (b.size < headerBytes) {
        QWARNING("PImportIbt(%s): %llu bytes are too few for the header (%llu)", name,
                 (unsigned long long)b.size, (unsigned long long)headerBytes);
        return false;
    }
    h.version = b.I32(0);
    h.tickRate = b.I32(8);
    h.infoLength = b.I32(16);
    h.infoOffset = b.I32(20);
    h.varCount = b.I32(24);
    h.varOffset = b.I32(28);
    h.bufferCount = b.I32(32);
    h.recordBytes = b.I32(36);
    h.recordOffset = b.I32(52); // the first buffer's; a disk file writes its records there
    h.startDate = b.I64(112);
    h.recordCount = b.I32(140);

    if (h.version != fileVersion) {
        QWARNING("PImportIbt(%s): version %d, only %d is read", name, h.version, fileVersion);
        return false;
    }
    if (h.tickRate < 1 || h.tickRate > maxTickRate) {
        QWARNING("PImportIbt(%s): tick rate %d outside 1..%d", name, h.tickRate, maxTickRate);
        return false;
    }
    if (h.varCount < 1 || h.varCount > maxVars) {
        QWARNING("PImportIbt(%s): %d variables, expected 1..%d", name, h.varCount, maxVars);
        return false;
    }
    if (h.varOffset < 0 || uint64_t(h.varOffset) + uint64_t(h.varCount) * varEntryBytes > b.size) {
        QWARNING("PImportIbt(%s): the table of %d variables at %d lies outside the file of %llu bytes", name,
                 h.varCount, h.varOffset, (unsigned long long)b.size);
        return false;
    }
    if (h.infoOffset < 0 || h.infoLength < 0 || uint64_t(h.infoOffset) + uint64_t(h.infoLength) > b.size) {
        QWARNING("PImportIbt(%s): the session text (%d bytes at %d) lies outside the file of %llu bytes",
                 name, h.infoLength, h.infoOffset, (unsigned long long)b.size);
        return false;
    }
    if (h.bufferCount < 1 || h.bufferCount > 4) {
        QWARNING("PImportIbt(%s): %d buffers, expected 1..4", name, h.bufferCount);
        return false;
    }
    if (h.recordBytes < 1 || h.recordBytes > maxRecordBytes) {
        QWARNING("PImportIbt(%s): record length %d outside 1..%d", name, h.recordBytes, maxRecordBytes);
        return false;
    }
    if (h.recordOffset < 0 || uint64_t(h.recordOffset) > b.size) {
        QWARNING("PImportIbt(%s): records at %d, outside the file of %llu bytes", name, h.recordOffset,
                 (unsigned long long)b.size);
        return false;
    }
    const uint64_t present = (b.size - uint64_t(h.recordOffset)) / uint64_t(h.recordBytes);
    if (h.recordCount < 1 || uint64_t(h.recordCount) > present) {
        QWARNING("PImportIbt(%s): %d records announced, the file holds %llu of %d bytes", name, h.recordCount,
                 (unsigned long long)present, h.recordBytes);
        return false;
    }
    return true;
}

bool ReadVars(Bytes& b, const char* name, const Header& h, Var* vars)
{
    for (int i = 0; i < h.varCount; i++) {
        const uint64_t at = uint64_t(h.varOffset) + uint64_t(i) * varEntryBytes;
        Var& v = vars[i];
        v.type = b.I32(at);
        v.offset = b.I32(at + 4);
        v.count = b.I32(at + 8);
        b.Text(at + 16, 32, v.name);
        b.Text(at + 112, 32, v.unit);
        if (v.type < 0 || v.type >= IBT_TYPES) {
            QWARNING("PImportIbt(%s): variable %d (%s) has the unknown type %d", name, i, v.name, v.type);
            return false;
        }
        if (v.count < 1 || v.offset < 0 ||
            uint64_t(v.offset) + uint64_t(v.count) * uint64_t(typeBytes[v.type]) > uint64_t(h.recordBytes)) {
            QWARNING("PImportIbt(%s): variable %d (%s), %d values at %d, doesn't fit a record of %d bytes",
                     name, i, v.name, v.count, v.offset, h.recordBytes);
            return false;
        }
    }
    return true;
}

// The first element of variable 'v' of every record into 'out', times 'factor'.
void ReadColumn(const uint8_t* records, int32_t recordBytes, int32_t count, const Var& v, float factor,
                float* out)
{
    const uint8_t* p = records + v.offset;
    for (int32_t r = 0; r < count; r++, p += recordBytes) {
        float value;
        switch (v.type) {
        case IBT_BOOL:
            value = p[0] ? 1.0f : 0.0f;
            break;
        case IBT_INT:
            value = float(
                int32_t(uint32_t(p[0]) | uint32_t(p[1]) << 8 | uint32_t(p[2]) << 16 | uint32_t(p[3]) << 24));
            break;
        case IBT_BITFIELD:
            value = float(uint32_t(p[0]) | uint32_t(p[1]) << 8 | uint32_t(p[2]) << 16 | uint32_t(p[3]) << 24);
            break;
        case IBT_FLOAT: {
            uint32_t bits =
                uint32_t(p[0]) | uint32_t(p[1]) << 8 | uint32_t(p[2]) << 16 | uint32_t(p[3]) << 24;
            std::memcpy(&value, &bits, 4);
            break;
        }
        case IBT_DOUBLE: {
            uint64_t bits = 0;
            for (int k = 7; k >= 0; k--)
                bits = bits << 8 | p[k];
            double d;
            std::memcpy(&d, &bits, 8);
            value = float(d);
            break;
        }
        default:
            value = 0.0f;
            break;
        }
        out[r] = value * factor;
    }
}

// Seconds since 1970 as day, month, year; false outside the years 1970..9999.
bool CivilDate(int64_t seconds, int* day, int* month, int* year, int* secondOfDay)
{
    if (seconds < 0 || seconds > 253402300799LL) return false;
    int64_t days = seconds / 86400;
    *secondOfDay = int(seconds % 86400);
    days += 719468; // days from 0000-03-01 to 1970-01-01
    const int64_t era = days / 146097;
    const int64_t doe = days - era * 146097;
    const int64_t yoe = (doe - doe / 1460 + doe / 36524 - doe / 146096) / 365;
    const int64_t doy = doe - (365 * yoe + yoe / 4 - yoe / 100);
    const int64_t mp = (5 * doy + 2) / 153;
    *day = int(doy - (153 * mp + 2) / 5 + 1);
    *month = int(mp < 10 ? mp + 3 : mp - 9);
    *year = int(yoe + era * 400 + (*month <= 2 ? 1 : 0));
    return true;
}

void AddMeta(PSignals& set, const char* name, const char* value)
{
    if (set.metaCount >= PSignals::MAX_METAPROPERTIES) return;
    set.metaName[set.metaCount] = name;
    set.metaValue[set.metaCount] = value;
    set.metaCount++;
}

// One signal to make: from variable 'var' (or derived when -1) under 'signal' with 'unit'.
struct Plan {
    int var;
    const char* signal;
    const char* unit;
    float factor;
};
enum { DERIVED_TIME = -1, DERIVED_SECTOR = -2 };

} // namespace

bool PLooksLikeIbt(const uint8_t* data, size_t size)
{
    if (!data || size < headerBytes) return false;
    Bytes b{data, size, false};
    const int32_t rate = b.I32(8), vars = b.I32(24), recordBytes = b.I32(36);
    return b.I32(0) == fileVersion && rate >= 1 && rate <= maxTickRate && vars >= 1 && vars <= maxVars &&
           recordBytes >= 1 && recordBytes <= maxRecordBytes;
}

bool PImportIbt(PSignals& set, const char* name, const uint8_t* data, size_t size)
{
    if (!name) name = "";
    Bytes b{data, data ? uint64_t(size) : 0, false};
    Header h;
    if (!ReadHeader(b, name, h)) return false;

    Var* vars = new Var[size_t(h.varCount)]; // varCount <= maxVars, checked against the file
    Plan* plan = new Plan[size_t(h.varCount) + 2];
    bool ok = ReadVars(b, name, h, vars);
    SessionInfo info;
    int planned = 0;
    if (ok) {
        ScanSessionInfo(reinterpret_cast<const char*>(data) + h.infoOffset, size_t(h.infoLength), info);

        // time first, the mapped channels in the map's order, the sector, then every other scalar
        // numeric variable in file order under its own name. Arrays give their first element (a
        // faster channel sampled once per record); char variables are text and left out. A name
        // taken already (a duplicate, or a variable called like a mapped signal) is left out too.
        plan[planned++] = Plan{DERIVED_TIME, "time", "s", 1.0f};
        int mapped[mappedCount];
        for (int m = 0; m < mappedCount; m++) {
            mapped[m] = -1;
            for (int i = 0; i < h.varCount && mapped[m] < 0; i++)
                if (vars[i].type != IBT_CHAR && std::strcmp(vars[i].name, channelMap[m].var) == 0)
                    mapped[m] = i;
            if (mapped[m] >= 0)
                plan[planned++] =
                    Plan{mapped[m], channelMap[m].signal, channelMap[m].unit, channelMap[m].factor};
        }
        int pct = -1;
        for (int i = 0; i < h.varCount && pct < 0; i++)
            if (vars[i].type == IBT_FLOAT && std::strcmp(vars[i].name, "LapDistPct") == 0) pct = i;
        const bool sectors = pct >= 0 && info.sectorCount > 0;
        if (sectors) plan[planned++] = Plan{DERIVED_SECTOR, "sector", "-", 1.0f};
        const int derived = sectors ? 2 : 1;
        const int room = PSignals::MAX_SIGNALS - set.signalCount;
        int left = 0;
        for (int i = 0; i < h.varCount; i++) {
            const Var& v = vars[i];
            if (v.type == IBT_CHAR || !v.name[0]) continue;
            if (std::find(mapped, mapped + mappedCount, i) != mapped + mappedCount) continue;
            bool taken = false;
            for (int k = 0; k < planned && !taken; k++)
                taken = std::strcmp(plan[k].signal, v.name) == 0 ||
                        (plan[k].var >= 0 && std::strcmp(vars[plan[k].var].name, v.name) == 0);
            if (taken) continue;
            if (planned >= room) {
                left++;
                continue;
            }
            plan[planned++] = Plan{i, v.name, v.unit[0] ? v.unit : "-", 1.0f};
        }
        if (planned > room) planned = room; // a set nearly full already loses even mapped channels
        // Each variable of an honest file has at least one byte of the record to itself; more
        // signals than record bytes would allocate many times the file's size from aliases.
        if (planned - derived > h.recordBytes) {
            QWARNING("PImportIbt(%s): %d variables share a record of %d bytes", name, planned - derived,
                     h.recordBytes);
            ok = false;
        }
        if (planned < 1) {
            QWARNING("PImportIbt(%s): no room for a signal in the set", name);
            ok = false;
        }
        if (ok && left > 0)
            QWARNING("PImportIbt(%s): %d variables left out, a set holds %d signals", name, left,
                     int(PSignals::MAX_SIGNALS));

        const int before = set.signalCount;
        const uint8_t* records = data + h.recordOffset;
        const float step = 1.0f / float(h.tickRate);
        for (int k = 0; k < planned && ok; k++) {
            PSignal* s = set.AddSignal(plan[k].signal, h.recordCount);
            if (!s || !s->data) {
                QWARNING("PImportIbt(%s): no memory for %d samples of %s", name, h.recordCount,
                         plan[k].signal);
                ok = false;
                break;
            }
            if (plan[k].var >= 0) {
                ReadColumn(records, h.recordBytes, h.recordCount, vars[plan[k].var], plan[k].factor, s->data);
            } else if (plan[k].var == DERIVED_TIME) {
                for (int32_t r = 0; r < h.recordCount; r++)
                    s->data[r] = float(double(r) / double(h.tickRate));
            } else {
                // The sector whose start is the last at or below the lap fraction; a fraction below
                // the first start (off the lap, -1) counts as the first sector.
                ReadColumn(records, h.recordBytes, h.recordCount, vars[pct], 1.0f, s->data);
                for (int32_t r = 0; r < h.recordCount; r++) {
                    const float* at =
                        std::upper_bound(info.sectorStart, info.sectorStart + info.sectorCount, s->data[r]);
                    s->data[r] = float(std::max(int(at - info.sectorStart) - 1, 0));
                }
            }
            s->count = h.recordCount;
            s->timestep = step;
        }
        if (!ok) {
            while (set.signalCount > before) {
                set.signalCount--;
                delete set.signals[set.signalCount];
                set.signals[set.signalCount] = nullptr;
            }
        }
    }

    if (ok) {
        char text[2 * maxValueChars + 8];
        for (int k = 0; k < planned; k++) {
            std::snprintf(text, sizeof text, "unit.%s", plan[k].signal);
            AddMeta(set, text, plan[k].unit);
        }
        if (info.track[0]) {
            std::snprintf(text, sizeof text, info.config[0] ? "%s - %s" : "%s", info.track, info.config);
            set.AddProperty("track", text);
        }
        if (info.car[0]) set.AddProperty("car", info.car);
        if (info.driver[0]) set.AddProperty("driver", info.driver);
        int day, month, year, second;
        if (CivilDate(h.startDate, &day, &month, &year, &second)) {
            std::snprintf(text, sizeof text, "%02d-%02d-%04d", day, month, year);
            set.AddProperty("date", text);
            std::snprintf(text, sizeof text, "%02d:%02d:%02d", second / 3600, second / 60 % 60, second % 60);
            set.AddProperty("time", text);
        }
        if (info.event[0]) set.AddProperty("session", info.event);
        if (info.trackLength[0]) set.AddProperty("tracklength", info.trackLength);
        std::snprintf(text, sizeof text, "%d Hz", h.tickRate);
        set.AddProperty("samplerate", text);
        QINFO("PImportIbt(%s): %d signals of %d samples at %d Hz\n", name, planned, h.recordCount,
              h.tickRate);
    }
    delete[] plan;
    delete[] vars;
    return ok;
}

} // namespace tarvik
