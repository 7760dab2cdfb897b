// The message log: every report of the tree goes through here.
//
// Info reports reach standard error only, as their text stands. Errors and warnings reach standard
// error (a line feed ensured) and QLOG.txt in the current directory. The log file stays open between
// reports and every line is flushed, so a line is on disk when the report returns, whatever follows;
// a change of directory or of the file behind the name opens it anew. Runs of the same message fold
// into one "[%dx repeat] %s" line; the file rotates to QLOG_OLD.txt past 10000000 bytes, one attempt
// per report. A line that can't be written is said on standard error once per run of failures.
// Fatal reports end the process. All state is static and assumes one reporting thread.
#pragma once

namespace tarvik {

// Flags of qmsgwrite. The severity word comes from the first set bit in the order of the list.
enum {
    QMSG_ERR = 1,
    QMSG_WARN = 2,
    QMSG_CRIT = 4,
    QMSG_NOTE = 8,
    QMSG_INFO = 16,
    QMSG_FATAL = 64,
    QMSG_NOMIRROR = 128, // not passed to the network mirror
    QMSG_NOECHO = 256,   // the reporter has echoed it on standard error already
    QMSG_RESERVED = 512,
    QMSG_BOX = 1024,     // also shown in a modal box
    QMSG_INFO2 = 2048,
};

enum { QMSG_MAX = 10240 }; // a message is cut to this many characters, terminator included

void qmsginfo(const char* file, const char* function, int line, const char* format, ...)
    __attribute__((format(printf, 4, 5)));
void qmsgerror(const char* file, const char* function, int line, const char* format, ...)
    __attribute__((format(printf, 4, 5)));
void qmsgwarning(const char* file, const char* function, int line, const char* format, ...)
    __attribute__((format(printf, 4, 5)));
void qmsgdebug(const char* file, const char* function, int line, const char* format, ...)
    __attribute__((format(printf, 4, 5)));
[[noreturn]] void qfatal(const char* format, ...) __attribute__((format(printf, 1, 2)));
[[noreturn]] void qmsgexit(const char* format, ...) __attribute__((format(printf, 1, 2)));
void qmsgwrite(int flags, const char* location, const char* format, ...) __attribute__((format(printf, 3, 4)));

[[noreturn]] void QCrash(const char* reason); // reports and ends the process at once, without clean-up
[[noreturn]] void qexit(int code);            // shuts the network layer down, then exit(code)

// Seams for the network layer, which stands above the foundation. Both are null until it sets them.
// The mirror gets each log line (without line feed) that is not flagged QMSG_NOMIRROR, after the line
// is written, but none that is reported while the mirror itself runs, so that it can report its own
// failures without being called for them again.
void QSetNetworkShutdown(void (*shutdown)());
void QSetLogMirror(void (*mirror)(const char* message));

// Switches the log file off (and on again): reports then reach standard error only. For tools and
// fuzzing, which must not leave a QLOG.txt behind; the command keeps it on.
void qmsgSetLogFile(bool enabled);

// Forgets the repeat state and the start line and closes the log file, as in a fresh process.
// For tests.
void qmsgReset();

// Turns a compiler's function signature into "Class::Method", without return type, arguments, the
// tree's namespace or an unnamed one, the same for every compiler's spelling; a lambda gives the
// function it stands in. Writes at most 'size' bytes, terminated.
void qmsgFunctionName(const char* signature, char* out, int size);

} // namespace tarvik

#define QINFO(...) ::tarvik::qmsginfo(__FILE__, __PRETTY_FUNCTION__, __LINE__, __VA_ARGS__)
#define QERROR(...) ::tarvik::qmsgerror(__FILE__, __PRETTY_FUNCTION__, __LINE__, __VA_ARGS__)
#define QWARNING(...) ::tarvik::qmsgwarning(__FILE__, __PRETTY_FUNCTION__, __LINE__, __VA_ARGS__)
#define QDEBUG(...) ::tarvik::qmsgdebug(__FILE__, __PRETTY_FUNCTION__, __LINE__, __VA_ARGS__)
