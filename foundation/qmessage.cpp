#include "foundation/qmessage.h"

#include "foundation/qapphooks.h"
#include "foundation/qhelpers.h"
#include "platform/platform.h"

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

void qmsgSetLogFile(bool enabled) { logFileEnabled = enabled; }

void qmsgReset()
{
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

    // The name ends at the first '(' outside template brackets; it starts after the last blank
    // before that at the same depth (what stands before is the return type).
    const char* start = signature;
    const char* end = signature + std::strlen(signature);
    int depth = 0;
    for (const char* p = signature; *p; p++) {
        if (std::strncmp(p, "operator", 8) == 0) {
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
    static const char ns[] = "tarvik::";
    if (end - start > int(sizeof ns - 1) && std::strncmp(start, ns, sizeof ns - 1) == 0) start += sizeof ns - 1;
    int n = int(end - start);
    if (n > size - 1) n = size - 1;
    std::memcpy(out, start, size_t(n));
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

static void WriteLogLine(const char* severity, const char* message, const char* location)
{
    if (!logFileEnabled) return;
    FILE* f = qfopen(logName, "a");
    if (!f) {
        char text[256];
        std::snprintf(text, sizeof text, "[%s/%d] Can't open log file (QLOG)", AppName(), PlatformProcessId());
        std::fprintf(stderr, "** %s\n", text);
        return;
    }
    for (;;) {
        std::fseek(f, 0, SEEK_END);
        if (std::ftell(f) <= maxLogBytes) break;
        qfclose(f);
        RotateLog();
        f = qfopen(logName, "a");
        if (!f) return;
    }
    char when[64];
    std::time_t now = std::time(nullptr);
    const std::tm* local = std::localtime(&now);
    if (!local || !std::strftime(when, sizeof when, "%a %b %d %H:%M:%S", local)) when[0] = 0;
    if (location)
        std::fprintf(f, "%s (%-5s): [%s] %s [%s]\n", when, severity, AppName(), message, location);
    else
        std::fprintf(f, "%s (%-5s): [%s] %s\n", when, severity, AppName(), message);
    qfclose(f);
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
    std::memcpy(lastMessage, message, sizeof lastMessage);
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
