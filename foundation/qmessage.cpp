#include "foundation/qmessage.h"

#include "foundation/qapphooks.h"
#include "foundation/qhelpers.h"
#include "platform/platform.h"

#include <cctype>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>

namespace tarvik {

static const int routingMask = 14; // 2: errors reach the log file, 4: warnings, 8: debug notes
static const long maxLogBytes = 10000000;
static const char* const logName = "QLOG.txt";
static const char* const oldLogName = "QLOG_OLD.txt";

static bool started;
static char lastMessage[QMSG_MAX];
static int lastFlags;
static char lastLocation[QMSG_MAX];
static int repeatCount;

static bool logFileEnabled = true;
static void (*networkShutdown)();
static void (*logMirror)(const char* message);
static bool mirroring; // the mirror runs: what it reports on the way is not passed to it again

void QSetNetworkShutdown(void (*shutdown)()) { networkShutdown = shutdown; }
void QSetLogMirror(void (*mirror)(const char* message)) { logMirror = mirror; }

// The log file stays open between reports, each line flushed, so that a report costs a write
// rather than an open and a close. It is opened anew when the process has changed its directory,
// or when QLOG.txt there is no longer the file it writes (removed, replaced, truncated, or written
// by someone else): its size then differs from the bytes this stream has seen. The stream is a
// plain fopen: it is the log's own and lives beyond any count of open files.
static FILE* logFile;
static long logBytes;        // the file's size as this stream knows it
static char logDirectory[1024]; // the current directory when it was opened
static bool writeFailed;     // a lost line was reported; the next line that stands clears it

static void CloseLog()
{
    if (logFile) std::fclose(logFile);
    logFile = nullptr;
}

void qmsgSetLogFile(bool enabled)
{
    logFileEnabled = enabled;
    if (!enabled) CloseLog();
}

void qmsgReset()
{
    CloseLog();
    writeFailed = false;
    started = false;
    lastMessage[0] = 0;
    lastLocation[0] = 0;
    lastFlags = 0;
    repeatCount = 0;
}

void qmsgFunctionName(const char* signature, char* out, int size)
{
    if (size <= 0) return;
    out[0] = 0;
    if (!signature) return;

    // One compiler spells an unnamed namespace "{anonymous}", the other "(anonymous namespace)",
    // with a bracket and a blank that would otherwise end the name.
    static const char unnamed[] = "(anonymous namespace)";
    const size_t unnamedLen = sizeof unnamed - 1;
    // The name ends at the first '(' outside template brackets; it starts after the last blank
    // before that at the same depth (what stands before is the return type). So a lambda gives the
    // function that holds it, whether it is spelled "F()::<lambda(int)>" or "F()::(anonymous
    // class)::operator()(int)".
    const char* start = signature;
    const char* end = signature + std::strlen(signature);
    int depth = 0;
    for (const char* p = signature; *p; p++) {
        if (std::strncmp(p, unnamed, unnamedLen) == 0) {
            p += unnamedLen - 1;
            continue;
        }
        bool wordStart = p == signature || !(std::isalnum(static_cast<unsigned char>(p[-1])) || p[-1] == '_');
        if (wordStart && std::strncmp(p, "operator", 8) == 0) {
            // Operator names hold brackets of their own: "operator<", "operator()".
            p += 8;
            if (p[0] == '(' && p[1] == ')') p += 2;
            // A conversion operator's type, or new and delete, follow a blank, and the type may hold
            // blanks of its own ("operator const char*"): the name runs to the argument list.
            else if (p[0] == ' ') {
                while (*p && *p != '(') p++;
            }
            while (*p && *p != '(' && *p != ' ') p++;
            if (*p == '(') {
                end = p;
                break;
            }
            if (!*p) break;
            continue; // a longer word that only begins with "operator"
        }
        if (*p == '<') depth++;
        else if (*p == '>') depth--;
        else if (depth == 0 && *p == ' ') start = p + 1;
        else if (depth == 0 && *p == '(') {
            end = p;
            break;
        }
    }
    // Pointer or reference return types leave their mark at the front.
    while (start < end && (*start == '*' || *start == '&')) start++;
    // The tree's namespace and an unnamed one go, in front of what remains.
    static const char* const namespaces[] = {"tarvik::", "{anonymous}::", "(anonymous namespace)::"};
    for (bool cut = true; cut;) {
        cut = false;
        for (const char* ns : namespaces) {
            size_t len = std::strlen(ns);
            if (size_t(end - start) > len && std::strncmp(start, ns, len) == 0) {
                start += len;
                cut = true;
            }
        }
    }
    // Without the blank that one compiler sets before a '*' or '&' ("operator const char *").
    int n = 0;
    for (const char* p = start; p < end && n < size - 1; p++)
        if (!(*p == ' ' && (p[1] == '*' || p[1] == '&'))) out[n++] = *p;
    out[n] = 0;
}

// "file.cpp:123 / Class::Method": the file's own name, never a path of the build machine.
static void FormatLocation(char* out, int size, const char* file, const char* function, int line)
{
    const char* base = file ? file : "?";
    for (const char* p = base; *p; p++)
        if (*p == '/' || *p == '\\') base = p + 1;
    char name[256];
    qmsgFunctionName(function, name, sizeof name);
    std::snprintf(out, size_t(size), "%s:%d / %s", base, line, name);
}

static const char* SeverityWord(int flags)
{
    if (flags & QMSG_ERR) return "ERR";
    if (flags & QMSG_WARN) return "WARN";
    if (flags & QMSG_CRIT) return "CRIT";
    if (flags & QMSG_NOTE) return "NOTE";
    if (flags & QMSG_INFO) return "INFO";
    if (flags & QMSG_FATAL) return "FATAL";
    if (flags & QMSG_INFO2) return "INFO";
    return "?";
}

static const char* AppName()
{
    if (qappHooks && qappHooks->GetName) {
        const char* name = qappHooks->GetName();
        if (name) return name;
    }
    return "-";
}

static void RotateLog()
{
    std::remove(oldLogName);
    std::rename(logName, oldLogName);
    std::remove(logName);
    FILE* f = qfopen(logName, "ab");
    if (f) qfclose(f);
}

static void ShowBox(int flags, const char* message)
{
    const char* title = (flags & QMSG_FATAL) ? "Fatal error - the program will exit" : "Error";
    void* owner = nullptr;
    if (qappHooks) {
        if (qappHooks->GetBoxOwner) owner = qappHooks->GetBoxOwner();
        if (owner && qappHooks->PrepareForBox) qappHooks->PrepareForBox();
    }
    PlatformMessageBox(title, message, owner);
}

static bool OpenLog()
{
    CloseLog();
    logFile = std::fopen(logName, "a");
    if (!logFile) return false;
    std::fseek(logFile, 0, SEEK_END);
    logBytes = std::ftell(logFile);
    if (logBytes < 0) logBytes = 0;
    PlatformCurrentDirectory(logDirectory, sizeof logDirectory);
    return true;
}

static bool LogIsCurrent()
{
    char cwd[sizeof logDirectory];
    PlatformCurrentDirectory(cwd, sizeof cwd);
    PlatformFileStatus st;
    return std::strcmp(cwd, logDirectory) == 0 && PlatformStat(logName, &st) && !st.isDirectory &&
           st.size == logBytes;
}

static void SayLog(const char* what)
{
    char text[256];
    std::snprintf(text, sizeof text, "[%s/%d] %s", AppName(), PlatformProcessId(), what);
    std::fprintf(stderr, "** %s\n", text);
}

// The time stamp of a line, formatted once per second.
static const char* LogTime()
{
    static std::time_t shown = -1;
    static char when[64];
    std::time_t now = std::time(nullptr);
    if (now != shown) {
        shown = now;
        const std::tm* local = std::localtime(&now);
        if (!local || !std::strftime(when, sizeof when, "%a %b %d %H:%M:%S", local)) when[0] = 0;
    }
    return when;
}

static void WriteLogLine(const char* severity, const char* message, const char* location)
{
    if (!logFileEnabled) return;
    if (!(logFile && LogIsCurrent()) && !OpenLog()) {
        SayLog("Can't open log file (QLOG)");
        return;
    }
    // One rotation per report: where it can't be done (a folder that can't be written) the line
    // goes to the big file all the same, and the next report tries again.
    if (logBytes > maxLogBytes) {
        CloseLog();
        RotateLog();
        if (!OpenLog()) {
            SayLog("Can't open log file (QLOG)");
            return;
        }
    }
    int n;
    if (location)
        n = std::fprintf(logFile, "%s (%-5s): [%s] %s [%s]\n", LogTime(), severity, AppName(), message,
                         location);
    else
        n = std::fprintf(logFile, "%s (%-5s): [%s] %s\n", LogTime(), severity, AppName(), message);
    // Flushed at once: the line is on disk when the report returns, whatever happens next.
    if (n < 0 || std::fflush(logFile) != 0 || std::ferror(logFile)) {
        // A full disk or a size limit: said once until a line stands again, not once per line.
        if (!writeFailed) SayLog("Can't write log file (QLOG)");
        writeFailed = true;
        CloseLog(); // what stands in the file is unknown now: the next report opens it afresh
        return;
    }
    writeFailed = false;
    logBytes += n;
}

static void WriteV(int flags, const char* location, const char* format, va_list args)
{
    if (!started) {
        started = true;
        int startFlags = (flags & (QMSG_INFO | QMSG_NOMIRROR | QMSG_NOECHO | QMSG_RESERVED | QMSG_INFO2)) | QMSG_INFO;
        qmsgwrite(startFlags, nullptr, "%s", "--- application start ---\n");
    }
    const char* severity = SeverityWord(flags);

    char message[QMSG_MAX];
    std::vsnprintf(message, sizeof message, format, args);
    message[QMSG_MAX - 1] = 0;

    if (std::strcmp(message, lastMessage) == 0) {
        repeatCount++;
        return;
    }
    if (repeatCount > 0) {
        // The stored message and location are about to be replaced: pass copies.
        static char repeatMessage[QMSG_MAX];
        static char repeatLocation[QMSG_MAX];
        std::memcpy(repeatMessage, lastMessage, sizeof repeatMessage);
        std::memcpy(repeatLocation, lastLocation, sizeof repeatLocation);
        int count = repeatCount;
        repeatCount = 0;
        qmsgwrite(lastFlags, repeatLocation[0] ? repeatLocation : nullptr, "[%dx repeat] %s", count, repeatMessage);
    }
    std::memcpy(lastMessage, message, std::strlen(message) + 1);
    lastFlags = flags;
    std::snprintf(lastLocation, sizeof lastLocation, "%s", location ? location : "");

    size_t len = std::strlen(message);
    if (len > 0 && message[len - 1] == '\n') message[len - 1] = 0;

    if (!(flags & QMSG_NOECHO)) std::fprintf(stderr, "%s\n", message);
    if (flags & QMSG_BOX) ShowBox(flags, message);
    WriteLogLine(severity, message, location && location[0] ? location : nullptr);
    // Last, so that a failure the mirror reports stands below the line that it failed to send.
    if (logMirror && !mirroring && !(flags & QMSG_NOMIRROR)) {
        mirroring = true;
        logMirror(message);
        mirroring = false;
    }
}

void qmsgwrite(int flags, const char* location, const char* format, ...)
{
    va_list args;
    va_start(args, format);
    WriteV(flags, location, format, args);
    va_end(args);
}

// Formats the message of a reporter into 'message', which has room for QMSG_MAX + 1 characters,
// so that a line feed can still be added to a message cut at the limit.
static void FormatMessage(char* message, const char* format, va_list args)
{
    std::vsnprintf(message, QMSG_MAX, format, args);
    message[QMSG_MAX - 1] = 0;
}

void qmsginfo(const char* file, const char* function, int line, const char* format, ...)
{
    char location[512];
    FormatLocation(location, sizeof location, file, function, line);
    char message[QMSG_MAX + 1];
    va_list args;
    va_start(args, format);
    FormatMessage(message, format, args);
    va_end(args);
    std::fputs(message, stderr);
}

static void ReportToLog(int severity, int maskBit, const char* file, const char* function, int line,
                        const char* format, va_list args)
{
    char location[512];
    FormatLocation(location, sizeof location, file, function, line);
    char message[QMSG_MAX + 1];
    FormatMessage(message, format, args);
    size_t len = std::strlen(message);
    if (len > 0 && message[len - 1] != '\n') {
        message[len] = '\n';
        message[len + 1] = 0;
    }
    std::fputs(message, stderr);
    if (routingMask & maskBit) qmsgwrite(severity | QMSG_NOECHO, location, "%s", message);
}

void qmsgerror(const char* file, const char* function, int line, const char* format, ...)
{
    va_list args;
    va_start(args, format);
    ReportToLog(QMSG_ERR, 2, file, function, line, format, args);
    va_end(args);
}

void qmsgwarning(const char* file, const char* function, int line, const char* format, ...)
{
    va_list args;
    va_start(args, format);
    ReportToLog(QMSG_WARN, 4, file, function, line, format, args);
    va_end(args);
}

void qmsgdebug(const char* file, const char* function, int line, const char* format, ...)
{
    char location[512];
    FormatLocation(location, sizeof location, file, function, line);
    char message[QMSG_MAX + 1];
    va_list args;
    va_start(args, format);
    FormatMessage(message, format, args);
    va_end(args);
    if (routingMask & 8) qmsgwrite(QMSG_INFO, location, "%s", message);
}

void qfatal(const char* format, ...)
{
    static char message[QMSG_MAX];
    va_list args;
    va_start(args, format);
    FormatMessage(message, format, args);
    va_end(args);
    qmsgwrite(QMSG_FATAL | QMSG_BOX, nullptr, "%s", message);
    QCrash("qfatal");
}

void qmsgexit(const char* format, ...)
{
    static char message[QMSG_MAX];
    va_list args;
    va_start(args, format);
    FormatMessage(message, format, args);
    va_end(args);
    qmsgwrite(QMSG_FATAL | QMSG_BOX, nullptr, "%s", message);
    qexit(0);
}

void QCrash(const char* reason)
{
    QDEBUG("Going to crash, reason: %s", reason);
    std::fflush(nullptr);
    // No destructors, no atexit handlers: the state of the program is not to be trusted any more.
    std::_Exit(3);
}

void qexit(int code)
{
    if (networkShutdown) networkShutdown();
    std::exit(code);
}

} // namespace tarvik
