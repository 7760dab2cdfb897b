// The state recorder on any tape. The first two bytes are a program of eight steps, two bits each
// from the low end: step back, step forward, record a frame, or save the tape and load the copy.
// The rest is the tape, loaded through VCR_UseFile. The application data of a frame is 4 bytes.
#include "fuzz/fuzz.h"

#include "foundation/qfile.h"
#include "platform/platform.h"
#include "toolkit/qapp.h"
#include "toolkit/qstate.h"

#include <cstdlib>
#include <string>

using namespace tarvik;

namespace {

void WriteData(QFile* tape)
{
    static const uint8_t data[4] = {1, 2, 3, 4};
    tape->Write(data, 4);
}

void ReadData(QFile* tape)
{
    uint8_t data[4];
    tape->Read(data, 4);
}

QStateManager* Setup()
{
    static QStateManager* sm = nullptr;
    if (sm) return sm;
    FuzzSetup();
    new QApp("fuzz_vcr"); // lives as long as the process
    sm = app->sm = new QStateManager();
    sm->SetTapeProcs(ReadData, WriteData);
    static const char* const names[] = {"", "a", "menu", "race", "a name of thirty-one characters"};
    for (const char* name : names) new QState(name, nullptr, nullptr, nullptr, nullptr);
    return sm;
}

// What must hold after every step, whatever the tape held.
void Check(QStateManager* sm)
{
    QFile* tape = sm->GetTape();
    if (!tape) return;
    long pos = tape->Tell();
    if (pos < 0 || pos > tape->Size()) std::abort();
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    QStateManager* sm = Setup();
    if (size < 2 || size > (1u << 20)) return 0;
    static const std::string saved = "/tmp/tarvik-fuzz-" + std::to_string(PlatformProcessId()) + "-saved.vcr";

    // Every input starts from no tape, so that a refused tape leaves nothing of an earlier input.
    delete sm->tape;
    sm->tape = nullptr;
    sm->frames = sm->frame = 0;
    sm->current = nullptr;

    unsigned program = unsigned(data[0]) | unsigned(data[1]) << 8;
    const char* name = FuzzWriteFile(".vcr", data + 2, size - 2);
    sm->VCR_UseFile(name);
    Check(sm);
    for (int step = 0; step < 8; step++, program >>= 2) {
        switch (program & 3) {
        case 0: sm->VCR_StepBack(); break;
        case 1: sm->VCR_StepForward(); break;
        case 2: // records only onto the loaded tape, never onto a new one in the working directory
            if (sm->GetTape()) sm->GotoState(sm->states[size_t(step) % sm->states.size()], false);
            break;
        case 3:
            if (sm->GetTape() && sm->VCR_SaveAs(saved.c_str())) sm->VCR_UseFile(saved.c_str());
            break;
        }
        Check(sm);
    }
    return 0;
}
