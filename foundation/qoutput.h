// QOutput: a file of the user's written whole or not at all.
//
// The bytes go to a temporary file beside the target, which takes the target's name only on
// Commit, once everything was written; an output that is abandoned, or destroyed without Commit,
// leaves the old file as it was. Devices and pipes are written directly (see PlatformOutputOpen).
// Reports are the caller's: Open and Commit only say whether they worked, and errno why.
#pragma once

#include "platform/platform.h"

#include <cstdio>

namespace tarvik {

class QOutput {
public:
    QOutput() = default;
    ~QOutput() { Abandon(); }
    QOutput(const QOutput&) = delete;
    QOutput& operator=(const QOutput&) = delete;

    bool Open(const char* name, int flags = 0); // PlatformOutputFlags
    FILE* Stream() const { return PlatformOutputStream(out); } // null unless open
    const char* WorkName() const { return PlatformOutputWorkName(out); }
    bool IsOpen() const { return out != nullptr; }
    bool Commit(); // false if a write, the close or the rename failed; the old file then stands
    void Abandon();

private:
    PlatformOutput* out = nullptr; // owned until Commit or Abandon
};

} // namespace tarvik
