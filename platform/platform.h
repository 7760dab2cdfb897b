// The operating system as the rest of the tree sees it. Everything here is small and synchronous;
// nothing outside this folder includes a system header beyond the C and C++ standard libraries.
//
// Message boxes and questions go to a box provider when a windowed program has installed one
// (PlatformSetBoxProvider); otherwise, and always while a test has preset the answer, they are a
// console layer: the title and text go to standard error, and a question is answered from the
// terminal when one is attached, or else takes the answer that loses nothing.
#pragma once

#include <cstdint>
#include <cstddef>
#include <cstdio>

namespace tarvik {

// A modal box with one OK button. 'owner' is the native window it belongs to, or null.
void PlatformMessageBox(const char* title, const char* text, void* owner);

// Answers of the questions, and what a test may preset with PlatformSetAnswer. OK answers YES.
enum PlatformAnswer {
    PLATFORM_ANSWER_NONE = 0,
    PLATFORM_ANSWER_YES,
    PLATFORM_ANSWER_NO,
    PLATFORM_ANSWER_CANCEL,
    PLATFORM_ANSWER_OK = PLATFORM_ANSWER_YES,
};

// The buttons of a question.
enum PlatformButtons { PLATFORM_BUTTONS_OK = 0, PLATFORM_BUTTONS_OK_CANCEL, PLATFORM_BUTTONS_YES_NO_CANCEL };

// Asks a question with the buttons given. 'owner' as above. Without a provider and a terminal the
// answer is 'safeAnswer'.
PlatformAnswer PlatformQuestion(const char* title, const char* text, PlatformButtons buttons, void* owner,
                                PlatformAnswer safeAnswer);
// A yes/no/cancel question without owner.
PlatformAnswer PlatformAsk(const char* title, const char* text, PlatformAnswer safeAnswer);
// Fixes the answer of every following question (PLATFORM_ANSWER_NONE returns to asking). While an
// answer is preset, boxes and questions stay on the console.
void PlatformSetAnswer(PlatformAnswer answer);

// Where a windowed program shows boxes: real windows. A provider may give up on one box (no
// display at hand) by returning false; the console layer then takes it.
struct PlatformBoxProvider {
    bool (*Question)(const char* title, const char* text, PlatformButtons buttons, void* owner,
                     PlatformAnswer* answer);
};
void PlatformSetBoxProvider(const PlatformBoxProvider* provider); // null: the console again

// ---- Questions for a file name ------------------------------------------------------------------

// Flags of a file question; the values are those the file dialog's callers have always passed.
enum PlatformFileFlags : uint32_t {
    PLATFORM_FILE_OVERWRITE_PROMPT = 2, // a save question asks before an existing file is chosen
    PLATFORM_FILE_HIDE_READONLY = 4,
    PLATFORM_FILE_MULTI = 0x200,        // several files may be chosen
    PLATFORM_FILE_EXPLORER = 0x80000,
};

// A modal question for a file name. On a choice the provider fills 'file' and 'fileTitle' and
// leaves the process's current directory at the folder of the choice.
struct PlatformFileRequest {
    const char* title;
    void* owner;            // native window, or null
    const char* initialDir; // null or empty: the current directory
    const char* filter;     // label, zero, pattern, zero, ..., and one more zero; null: all files
    uint32_t flags;         // PlatformFileFlags
    bool save;              // a name to write to, which need not exist yet
    char* file;             // in: the initial name; out: the full path, or with several files
    int fileSize;           //   "folder\0name\0name\0\0"; always ends in two zeros
    char* fileTitle;        // out: the chosen name without its folder (the first, with several)
    int fileTitleSize;
};
typedef bool (*PlatformFileDialogProc)(PlatformFileRequest* request);

// Asks through the installed procedure. Without one: on a terminal the name is read from it (an
// empty line cancels); without a terminal the question is cancelled. False on cancel.
bool PlatformFileDialog(PlatformFileRequest* request);
// The procedure of the program's toolkit; null: the console again. Tests install their own.
void PlatformSetFileDialog(PlatformFileDialogProc proc);
PlatformFileDialogProc PlatformGetFileDialog();

int PlatformProcessId();

// The last-write time of a file in nanoseconds since the epoch; false if the file isn't there.
bool PlatformFileTime(const char* name, int64_t* time);

// The process's current directory; an empty text if it can't be told.
void PlatformCurrentDirectory(char* out, int size);
bool PlatformSetCurrentDirectory(const char* path, int* error); // 'error' gets errno on failure
bool PlatformMakeDirectory(const char* path);   // true also if it exists already
bool PlatformRemoveDirectory(const char* path); // only an empty one
bool PlatformRemoveFile(const char* path);

// What a file's status says. Times in seconds since the epoch; 'created' is the status-change time.
struct PlatformFileStatus {
    int64_t size;
    bool isDirectory;
    int64_t modified;
    int64_t created;
};
bool PlatformStat(const char* path, PlatformFileStatus* status);

// Opens a file to read ("rb") only if it is a regular file, a link to one included. Anything else
// (a pipe, a socket, a device, a folder, or a link to one) is refused without being read, and a
// pipe put in its place meanwhile is never waited on: reading a name found in a folder can't block
// or run on without end. Null on failure, with '*notRegular' true when the refusal is for what
// stands at the name (errno says why otherwise). The stream is closed with fclose.
FILE* PlatformOpenRegularFile(const char* path, bool* notRegular);

// A stream that reads the given bytes, which must outlive it; closed with fclose. Null if it can't
// be made. For readers that take a stream, so that they can run on a block in memory.
FILE* PlatformOpenMemory(const void* data, size_t size);

// Reading a directory: the entries in the order of the operating system, "." and ".." included.
struct PlatformDir;
PlatformDir* PlatformOpenDir(const char* path); // null if it can't be read
bool PlatformReadDir(PlatformDir* dir, char* name, int size); // false at the end
void PlatformCloseDir(PlatformDir* dir);

void PlatformSleepMs(int milliseconds); // 0 gives up the time slice

// A monotonic high-resolution counter and its ticks per second.
uint64_t PlatformCounter();
uint64_t PlatformCounterFrequency();

// True if the file descriptor of the stream's number refers to a terminal.
bool PlatformIsTerminal(int fd);

// True if both names reach the same file (same device and inode, links followed). False if either
// is missing.
bool PlatformSameFile(const char* a, const char* b);

// Writing a file whole or not at all.
//
// A regular file, or a name that doesn't exist yet, is written under a temporary name in the same
// folder and renamed into place by PlatformOutputCommit only when every byte stood; until then the
// old file is untouched, and a failed or abandoned output leaves nothing behind. A replaced file
// keeps its permissions; one it can't write is refused, as opening it would be. A link to a regular
// file is followed unless PLATFORM_OUTPUT_NO_LINKS is given.
//
// Anything else (a device such as /dev/null, a pipe, a terminal) is opened and written directly:
// there is nothing to replace. With PLATFORM_OUTPUT_NO_LINKS such a thing is refused instead, and
// so is a link: that is the mode for names that come out of a file rather than from the user.
//
// Writes past the process's file size limit fail with EFBIG like any other write: the layer
// ignores the signal that would otherwise end the process.
enum PlatformOutputFlags {
    PLATFORM_OUTPUT_BINARY = 1,   // "wb"; otherwise "w" (the same bytes on this system)
    PLATFORM_OUTPUT_NO_LINKS = 2, // only a regular file or nothing may stand at the name
};
struct PlatformOutput;
PlatformOutput* PlatformOutputOpen(const char* path, int flags); // null on failure, errno says why
FILE* PlatformOutputStream(PlatformOutput* out);
// The name the bytes go to while the output is open: the temporary file, or the path itself when
// it is written directly. For callers that must not read their own output (an archive of a folder).
const char* PlatformOutputWorkName(PlatformOutput* out);
// Flushes, closes and renames into place; false if any of it failed (errno says why), and then the
// temporary file is gone and the old file stands. Frees 'out' in every case.
bool PlatformOutputCommit(PlatformOutput* out);
// Closes and removes the temporary file; the old file stands. Frees 'out'; null is ignored.
void PlatformOutputAbandon(PlatformOutput* out);

// Runs work(index, context) for every index from 0 to count-1 in at most 'parallel' child
// processes. Each child takes every parallel-th index and keeps its memory from one work to the
// next (fresh memory costs page faults, which one core at a time serves on some machines); a work
// succeeds when it returns 0. 'done' (may be null) runs in this process as each result comes in,
// with its index and whether it succeeded. A child that can't be started has its works run here
// instead, after a warning; the works of a child that dies unreported count as failed. Returns the
// number of works that failed.
int PlatformRunChildren(int count, int parallel, int (*work)(int index, void* context),
                        void (*done)(int index, bool ok, void* context), void* context);

} // namespace tarvik
