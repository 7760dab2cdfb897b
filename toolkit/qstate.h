// States and their recorder. An application is a set of named states (a menu, a screen, a dialog);
// QStateManager, reached through app->sm, knows them all, holds the current one and an optional
// global one, and gives them events. Each recorded change of state writes a frame to a tape that can
// be stepped back and forth, saved and loaded; the application adds its own data to each frame
// through vcrWrite and vcrRead.
//
// The tape is frames back to back from offset 0, with no header and no count. One frame: the state
// name in 32 bytes (at most 31 characters, zero-filled), the application's bytes, then the frame's
// own start offset as a signed 32-bit little-endian word. Walking back needs only those trailing
// words; walking forward needs vcrRead to read exactly what vcrWrite wrote.
//
// A tape is outside input. VCR_UseFile checks the whole chain of trailing words (each points back by
// a frame's least size, 36 bytes, and the walk ends exactly at 0) and every name's terminator before
// it lets go of the tape in use; a damaged file is refused and the old tape stays as it was. Steps on
// the tape in use check again what they read: a link that does not point back, a name without its
// zero byte, or a frame whose trailing word does not name its own start (a vcrRead that read more or
// less than its vcrWrite wrote) is reported and the step fails with the tape where it stood.
#pragma once

#include "foundation/qobject.h"

#include <cstdint>
#include <vector>

namespace tarvik {

class QFile;
class QWindow;
struct QEvent;

class QState : public QObject {
public:
    typedef bool (*EventProc)(QEvent* e);
    typedef void (*Proc)();

    // Registers with app->sm; 'name' is not copied and must outlive the state.
    QState(const char* name, EventProc eventProc, Proc frameProc, Proc enterProc, Proc leaveProc);
    ~QState() override; // states leave in the reverse order of their construction

    const char* ClassName() const override { return "QState"; }

    EventProc eventProc;
    Proc frameProc;
    Proc enterProc;
    Proc leaveProc;
    const char* name;
};

class QStateManager {
public:
    typedef void (*TapeProc)(QFile* tape);
    enum { NAME_BYTES = 32 };

    QStateManager();
    QStateManager(const QStateManager&) = delete;
    QStateManager& operator=(const QStateManager&) = delete;
    ~QStateManager(); // closes the tape

    void Add(QState* state);    // a second state of one name ends the process
    void Remove(QState* state); // only the last added
    QState* FindState(const char* name) const;
    void GotoState(QState* s, bool noRecord);
    void SetGlobalState(QState* s) { globalState = s; }
    QState* GetCurrent() const { return current; }
    QState* GetGlobalState() const { return globalState; }
    int GetStateCount() const { return int(states.size()); }

    bool ProcessEvent(QEvent* e);

    bool VCR_FrameWrite();
    bool VCR_FrameRead();
    bool VCR_StepBack();
    bool VCR_StepForward();
    bool VCR_SaveAs(const char* fileName);
    bool VCR_UseFile(const char* fileName);

    // Opens 'fileName' as a new, empty tape (the first tape is "temptape.vcr", opened when the first
    // frame is recorded). False, with a warning, if it can't be made.
    bool VCR_NewTape(const char* fileName);
    QFile* GetTape() const { return tape; }
    int GetFrames() const { return frames; }
    int GetFrame() const { return frame; }

    void SetTapeProcs(TapeProc read, TapeProc write) { vcrRead = read; vcrWrite = write; }
    // The control panel's buttons; clicks on the first and the last step the tape.
    void SetPanelButtons(QWindow* forward, QWindow* play, QWindow* rewind, QWindow* reverse);

    QState* current;
    QState* globalState;
    std::vector<QState*> states; // in order of construction; borrowed
    QWindow* forwardButton;
    QWindow* playButton;
    QWindow* rewindButton;
    QWindow* reverseButton;
    TapeProc vcrRead;
    TapeProc vcrWrite;
    QFile* tape; // owned
    int32_t frames;
    int32_t frame;

private:
    bool StepOneBack(); // to the start of the frame before the position; false at offset 0 or on a damaged word
    // Walks a tape back from its end to offset 0, checking every link and name on the way; false,
    // with the offset of the first fault in 'bad', if it is damaged. Reads each byte about once.
    static bool CountFrames(QFile* file, int32_t* count, long* bad);
    void Resync(); // a seek to where the tape stands, which a stream needs between reading and writing
    enum ReadResult { READ_OK, READ_NOTHING, READ_DAMAGED, READ_UNKNOWN };
    ReadResult ReadFrame(); // VCR_FrameRead; a damaged frame leaves the tape at its start
};

} // namespace tarvik
