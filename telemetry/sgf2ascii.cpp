// sgf2ascii <sgffile> <textfile>: converts one telemetry recording into a text table.
//
// One straight road: banner, Read, Convert, ReleaseRecording. The exit code is 0 on every road;
// failures show as reports on standard error and in QLOG.txt.
#include "foundation/qmessage.h"
#include "telemetry/analyse_export.h"
#include "telemetry/analyse_signals.h"

#include <cstdio>
#include <new>

using namespace tarvik;

static PSignals* recording; // owned; null before Read and after ReleaseRecording

static bool Read(const char* fileName)
{
    QINFO("Loading '%s'...\n", fileName);
    recording = new PSignals; // stored before the import, so that a failed import is released too
    if (!recording->Import(fileName)) {
        QERROR("Failed to load '%s'", fileName);
        return false;
    }
    return true;
}

static void Convert(const char* fileName)
{
    QINFO("Converting to '%s'...\n", fileName);
    PExportOptions options;
    options.fileName = fileName;
    options.lap = -1;
    options.triggerFlags = 0;
    options.reserved = 1;
    if (!recording->ExportASCII(options)) QERROR("Failed to export ASCII");
    else QINFO("Exporting to ASCII succesful.\n");
}

static void ReleaseRecording()
{
    delete recording;
    recording = nullptr;
}

// An allocation of the tree's own objects that fails ends the run with a report rather than an
// uncaught exception; sample buffers fail softly on their own (see PSignal).
static void OutOfMemory()
{
    qfatal("sgf2ascii: out of memory");
}

int main(int argc, char** argv)
{
    std::set_new_handler(OutOfMemory);
    std::printf("SGF2ASCII v7.7.0\n");
    if (argc < 3) {
        std::printf("Usage: sgf2ascii <sgffile> <textfile>\n");
        std::printf("Converts Tarvik SGF (Tarvik Telemetry Data) binary files to ASCII files.\n");
        std::printf("An input whose name holds no \".sgf\" is read as a measuring tool's tab-separated table.\n");
        return 0;
    }
    std::fflush(stdout);
    if (Read(argv[1])) Convert(argv[2]);
    ReleaseRecording();
    return 0;
}
