#include "toolkit/qstate.h"

#include "foundation/qfile.h"
#include "foundation/qhelpers.h"
#include "foundation/qmessage.h"
#include "toolkit/qapp.h"
#include "toolkit/qevent.h"

#include <climits>
#include <cstring>
#include <vector>

namespace tarvik {

namespace {

// The least frame: a name and the trailing word, with no application data.
const long MIN_FRAME = QStateManager::NAME_BYTES + 4;

// The two key codes the recorder answers itself: control plus S and control plus L.
const uint32_t KEY_SAVE = QMOD_CTRL | 'S';
const uint32_t KEY_LOAD = QMOD_CTRL | 'L';

const char* const SAVED_TAPE = "bc.vcr";
const char* const TEMP_TAPE = "temptape.vcr";

int32_t GetLE32(const uint8_t* b)
{
    return int32_t(uint32_t(b[0]) | uint32_t(b[1]) << 8 | uint32_t(b[2]) << 16 | uint32_t(b[3]) << 24);
}

bool HasTerminator(const uint8_t* name) { return std::memchr(name, 0, QStateManager::NAME_BYTES) != nullptr; }

// Reads a file from its end towards its start through one window, so that walking a tape of many
// small frames back reads each byte about once; a seek per frame would make the stream refill its
// buffer for every 36 bytes.
class BackReader {
public:
    BackReader(QFile* f, long fileSize) : file(f), size(fileSize), start(0), len(0), window(WINDOW) {}

    // False if [offset, offset + n) is not all inside the file or can't be read.
    bool Get(long offset, int n, uint8_t* out)
    {
        if (offset < 0 || n > WINDOW || offset > size - n) return false;
        if (offset < start || offset + n > start + len) {
            long end = offset + n; // the window ends here: what is read next lies in front
            start = end > WINDOW ? end - WINDOW : 0;
            len = end - start;
            if (!file->Seek(start, QFile::SEEK_FROM_START) || file->Read(window.data(), int(len)) != int(len)) {
                len = 0;
                return false;
            }
        }
        std::memcpy(out, window.data() + (offset - start), size_t(n));
        return true;
    }

private:
    enum { WINDOW = 1 << 16 };
    QFile* file;
    long size;
    long start, len; // what 'window' holds
    std::vector<uint8_t> window;
};

} // namespace

// ---- QState -----------------------------------------------------------------------------------

QState::QState(const char* stateName, EventProc onEvent, Proc onFrame, Proc onEnter, Proc onLeave)
    : eventProc(onEvent), frameProc(onFrame), enterProc(onEnter), leaveProc(onLeave), name(stateName)
{
    SetName(stateName);
    if (app && app->sm) app->sm->Add(this);
    else QERROR("QState '%s': no state manager to join", stateName ? stateName : "");
}

QState::~QState()
{
    if (app && app->sm) app->sm->Remove(this);
}

// ---- QStateManager ----------------------------------------------------------------------------

QStateManager::QStateManager()
    : current(nullptr), globalState(nullptr), forwardButton(nullptr), playButton(nullptr),
      rewindButton(nullptr), reverseButton(nullptr), vcrRead(nullptr), vcrWrite(nullptr), tape(nullptr),
      frames(0), frame(0)
{
}

QStateManager::~QStateManager()
{
    delete tape;
    tape = nullptr;
}

void QStateManager::Add(QState* state)
{
    if (!state) return;
    if (state->name && FindState(state->name)) {
        QERROR("Multiply defined state named '%s'\n", state->name);
        qexit(0);
    }
    states.push_back(state);
}

void QStateManager::Remove(QState* state)
{
    if (states.empty()) {
        QERROR("QStateManager:Remove without states");
        return;
    }
    if (states.back() != state) {
        QERROR("QStateManager:Remove: state must be the last added");
        return;
    }
    states.pop_back();
    // No pointer to a state that is gone may stay behind.
    if (current == state) current = nullptr;
    if (globalState == state) globalState = nullptr;
}

QState* QStateManager::FindState(const char* name) const
{
    if (!name) return nullptr;
    for (QState* s : states)
        if (s->name && std::strcmp(s->name, name) == 0) return s;
    return nullptr;
}

void QStateManager::GotoState(QState* s, bool noRecord)
{
    if (current && current->leaveProc) current->leaveProc();
    current = s;
    if (s && s->enterProc) s->enterProc();
    if (!noRecord) VCR_FrameWrite();
}

void QStateManager::SetPanelButtons(QWindow* forward, QWindow* play, QWindow* rewind, QWindow* reverse)
{
    forwardButton = forward;
    playButton = play;
    rewindButton = rewind;
    reverseButton = reverse;
}

bool QStateManager::ProcessEvent(QEvent* e)
{
    if (!e) return false;
    if (e->type == QEVENT_CLICK && e->win) {
        if (e->win == reverseButton) {
            QINFO("Reverse 1 frame\n");
            VCR_StepBack();
        } else if (e->win == forwardButton) {
            VCR_StepForward();
        }
    } else if (e->type == QEVENT_KEYPRESS) {
        if (e->n == KEY_SAVE) {
            VCR_SaveAs(SAVED_TAPE);
            return true;
        }
        if (e->n == KEY_LOAD) {
            // The saved recording is played from a copy, so that recording on does not change it.
            if (!VCR_UseFile(SAVED_TAPE)) return true;
            VCR_SaveAs(TEMP_TAPE);
            VCR_UseFile(TEMP_TAPE);
            return true;
        }
    }
    if (globalState && globalState->eventProc && globalState->eventProc(e)) return true;
    if (current && current->eventProc) return current->eventProc(e);
    return false;
}

// ---- The tape ---------------------------------------------------------------------------------

void QStateManager::Resync()
{
    tape->Seek(tape->Tell(), QFile::SEEK_FROM_START);
}

bool QStateManager::VCR_NewTape(const char* fileName)
{
    QFile* made = new QFile(fileName, QFile::WRITE_READ);
    if (!made->IsOpen()) {
        QWARNING("QStateManager:VCR_NewTape(); can't make tape '%s'", fileName ? fileName : "");
        delete made;
        return false;
    }
    delete tape;
    tape = made;
    frames = frame = 0;
    return true;
}

bool QStateManager::VCR_FrameWrite()
{
    if (!current) return true;
    if (!tape && !VCR_NewTape(TEMP_TAPE)) return false;
    Resync();
    long pos = tape->Tell();
    if (pos < 0 || pos > INT32_MAX - MIN_FRAME) {
        QWARNING("QStateManager:VCR_FrameWrite(); tape '%s' is full", tape->GetName());
        return false;
    }
    uint8_t name[NAME_BYTES] = {};
    if (current->name) {
        size_t n = std::strlen(current->name);
        std::memcpy(name, current->name, n < NAME_BYTES - 1 ? n : NAME_BYTES - 1);
    }
    bool ok = tape->Write(name, NAME_BYTES) == NAME_BYTES;
    if (vcrWrite) vcrWrite(tape);
    uint8_t word[4] = {uint8_t(pos), uint8_t(pos >> 8), uint8_t(pos >> 16), uint8_t(pos >> 24)};
    ok = tape->Write(word, 4) == 4 && ok;
    if (!ok) {
        QWARNING("QStateManager:VCR_FrameWrite(); can't write to tape '%s'", tape->GetName());
        return false;
    }
    frame++;
    frames = frame; // what stood behind the position is no longer part of the recording
    return true;
}

QStateManager::ReadResult QStateManager::ReadFrame()
{
    if (!tape) return READ_NOTHING;
    Resync();
    long start = tape->Tell();
    long size = tape->Size();
    if (start < 0 || start >= size) return READ_NOTHING;

    uint8_t name[NAME_BYTES + 1] = {};
    if (tape->Read(name, NAME_BYTES) != NAME_BYTES || !HasTerminator(name)) {
        QWARNING("QStateManager:VCR_FrameRead(); damaged state name at %ld in '%s'", start, tape->GetName());
        tape->Seek(start, QFile::SEEK_FROM_START);
        return READ_DAMAGED;
    }
    QState* s = FindState(reinterpret_cast<const char*>(name));
    if (!s) {
        QERROR("State '%s' was not found in this application.", reinterpret_cast<const char*>(name));
        return READ_UNKNOWN; // the tape stays behind the name
    }
    if (vcrRead) vcrRead(tape);
    // The trailing word must name this frame's start; anything else means that vcrRead read more or
    // less than vcrWrite wrote, and every read after it would be off.
    uint8_t word[4];
    if (tape->Read(word, 4) != 4 || GetLE32(word) != start) {
        QWARNING("QStateManager:VCR_FrameRead(); frame at %ld in '%s' does not end where its data does", start,
                 tape->GetName());
        tape->Seek(start, QFile::SEEK_FROM_START);
        return READ_DAMAGED;
    }
    frame++;
    current = s; // no leaveProc: the state shown before is not left, it is replaced
    if (s->enterProc) s->enterProc();
    if (s->frameProc) s->frameProc();
    if (app) app->Refresh();
    QINFO("new pos=%d\n", int(tape->Tell()));
    return READ_OK;
}

bool QStateManager::VCR_FrameRead() { return ReadFrame() == READ_OK; }

bool QStateManager::StepOneBack()
{
    long pos = tape->Tell();
    if (pos <= 0) return false;
    uint8_t word[4];
    long start = -1;
    if (pos >= MIN_FRAME && pos <= tape->Size() && tape->Seek(pos - 4, QFile::SEEK_FROM_START) &&
        tape->Read(word, 4) == 4)
        start = GetLE32(word);
    if (start < 0 || start > pos - MIN_FRAME) {
        QWARNING("QStateManager:VCR_StepBack(); damaged frame link at %ld in '%s'", pos - 4, tape->GetName());
        tape->Seek(pos, QFile::SEEK_FROM_START);
        return false;
    }
    tape->Seek(start, QFile::SEEK_FROM_START);
    return true;
}

bool QStateManager::VCR_StepBack()
{
    if (!tape) return false;
    long pos = tape->Tell();
    int32_t oldFrame = frame;
    // Back over the frame shown, then over the one before it, which is read again; at the first
    // frame the second pass stands at 0 and the first frame is shown again.
    for (int pass = 0; pass < 2; pass++) {
        if (tape->Tell() <= 0) continue;
        if (!StepOneBack()) {
            tape->Seek(pos, QFile::SEEK_FROM_START);
            frame = oldFrame;
            return false;
        }
        frame--;
    }
    ReadResult r = ReadFrame();
    if (r == READ_DAMAGED || r == READ_NOTHING) {
        tape->Seek(pos, QFile::SEEK_FROM_START);
        frame = oldFrame;
    }
    return r == READ_OK;
}

bool QStateManager::VCR_StepForward()
{
    // Past the last recorded frame the file may still hold frames that a recording after a step
    // back wrote over only in part: the tape ends at 'frames'.
    if (!tape || frame >= frames || tape->Tell() >= tape->Size()) return false;
    return VCR_FrameRead();
}

bool QStateManager::VCR_SaveAs(const char* fileName)
{
    long pos = tape ? tape->Tell() : 0;
    QINFO("> Saving VCR recording as '%s'", fileName ? fileName : "");
    // The bytes are taken before the file is opened, so that saving under the tape's own name
    // keeps them.
    uint8_t* bytes = nullptr;
    long got = 0;
    if (pos > 0 && pos <= INT_MAX) {
        bytes = static_cast<uint8_t*>(qmalloc(size_t(pos)));
        if (bytes && tape->Seek(0, QFile::SEEK_FROM_START)) got = tape->Read(bytes, int(pos));
    }
    FILE* out = (pos <= 0 || bytes) && fileName ? qfopen(fileName, "wb") : nullptr;
    bool ok = out && (got <= 0 || std::fwrite(bytes, 1, size_t(got), out) == size_t(got));
    if (out && qfclose(out) != 0) ok = false;
    if (bytes) qfree(bytes);
    if (tape) tape->Seek(pos, QFile::SEEK_FROM_START);
    if (!ok) {
        QWARNING("** VCR Save failed");
        return false;
    }
    QINFO("\n");
    return true;
}

bool QStateManager::CountFrames(QFile* file, int32_t* count, long* bad)
{
    long size = file->Size();
    *count = 0;
    *bad = 0;
    if (size < 0 || size > INT32_MAX) return false; // no trailing word could reach such a place
    BackReader reader(file, size);
    long boundary = size;
    int32_t n = 0;
    while (boundary > 0) {
        uint8_t word[4], name[NAME_BYTES];
        long start = -1;
        if (boundary >= MIN_FRAME && reader.Get(boundary - 4, 4, word)) start = GetLE32(word);
        // Strictly back by at least a frame's least size: the walk ends, at 0 or at a fault.
        if (start < 0 || start > boundary - MIN_FRAME) {
            *bad = boundary - 4 < 0 ? 0 : boundary - 4;
            return false;
        }
        if (!reader.Get(start, NAME_BYTES, name) || !HasTerminator(name)) {
            *bad = start;
            return false;
        }
        boundary = start;
        n++;
    }
    *count = n;
    return true;
}

bool QStateManager::VCR_UseFile(const char* fileName)
{
    if (tape) tape->Flush(); // the tape's last frames must be in the file, should it be the same one
    QFile* file = new QFile(fileName, QFile::READ_WRITE);
    if (!file->IsOpen()) {
        QWARNING("VCR file not found");
        delete file;
        return false;
    }
    int32_t count = 0;
    long bad = 0;
    if (!CountFrames(file, &count, &bad)) {
        QWARNING("VCR file '%s' is damaged at offset %ld; the tape in use stays", fileName, bad);
        delete file;
        return false;
    }
    delete tape;
    tape = file;
    frames = count;
    QINFO("VCR_UseFile: %d states in '%s'\n", frames, fileName);
    tape->Seek(0, QFile::SEEK_FROM_END);
    frame = frames;
    if (tape->Tell() < 1) return true;
    if (StepOneBack()) {
        frame--;
        VCR_FrameRead(); // the last frame on the tape is shown
    }
    return true;
}

} // namespace tarvik
