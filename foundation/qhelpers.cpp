#include "foundation/qhelpers.h"

#include "foundation/qmessage.h"
#include "platform/platform.h"

#include <cctype>
#include <cstdlib>
#include <cstring>

namespace tarvik {

static int allocCount;
static int openFileCount;
static int failCountdown;

static bool InjectedFailure()
{
    if (failCountdown <= 0) return false;
    return --failCountdown == 0;
}

void qSetAllocFailure(int nth) { failCountdown = nth; }

void* qmalloc(size_t size)
{
    allocCount++; // a failed allocation counts as well
    if (InjectedFailure()) return nullptr;
    return std::malloc(size ? size : 1);
}

void* qcalloc(size_t size)
{
    allocCount++;
    if (InjectedFailure()) return nullptr;
    return std::calloc(size ? size : 1, 1);
}

void qfree(void* p)
{
    allocCount--;
    std::free(p);
}

char* qstrdup(const char* text)
{
    if (!text) text = "";
    size_t n = std::strlen(text);
    char* p = static_cast<char*>(qcalloc(n + 1));
    if (p) std::memcpy(p, text, n);
    return p;
}

int qstrlen(const char* text) { return text ? int(std::strlen(text)) : 0; }

char* qstrlwr(char* text)
{
    if (!text) return text;
    for (unsigned char* p = reinterpret_cast<unsigned char*>(text); *p; p++) *p = (unsigned char)std::tolower(*p);
    return text;
}

int qtoupper(int ch)
{
    int c = ch & 0xFF;
    // Latin-1 lower-case letters map 32 down; 240 (eth) has no upper case here and becomes '?',
    // and 230, 247, 254 and 255 are left to the C library.
    if (c >= 224 && c <= 229) return c - 32;
    if (c >= 231 && c <= 239) return c - 32;
    if (c == 240) return '?';
    if (c >= 241 && c <= 246) return c - 32;
    if (c >= 248 && c <= 253) return c - 32;
    return std::toupper(c);
}

char* qstrupr(char* text)
{
    if (!text) return text;
    for (unsigned char* p = reinterpret_cast<unsigned char*>(text); *p; p++) *p = (unsigned char)qtoupper(*p);
    return text;
}

FILE* qfopen(const char* name, const char* mode)
{
    FILE* f = std::fopen(name, mode);
    if (f) openFileCount++;
    return f;
}

FILE* qfopenmem(const void* data, size_t size)
{
    FILE* f = PlatformOpenMemory(data, size);
    if (f) openFileCount++;
    return f;
}

int qfclose(FILE* stream)
{
    if (!stream) {
        QERROR("qfclose(0) called");
        return EOF;
    }
    openFileCount--;
    return std::fclose(stream);
}

int qGetAllocCount() { return allocCount; }
int qGetOpenFileCount() { return openFileCount; }

} // namespace tarvik
