// The JPEG library's error manager for the reader and the writer.
//
// The library's own handler ends the process on a fatal error. This one reports the library's text
// with the caller's words in front and jumps back to the setjmp of the caller, which returns false.
// Warnings go to the log, the first one of a run only: a broken stream can warn on every line.
#pragma once

#include <csetjmp>
#include <cstdio>

#include <jpeglib.h>

namespace tarvik {

struct QJpegError {
    jpeg_error_mgr mgr; // first: the library sees a jpeg_error_mgr*
    jmp_buf jump;
    const char* who;      // "QImage:ReadJPG", put in front of each report
    const char* fileName;
    bool truncated;       // the stream ended early
};

// Installs the handlers in 'err' and gives the manager for the library's 'err' field.
jpeg_error_mgr* QJpegErrorManager(QJpegError* err, const char* who, const char* fileName);

} // namespace tarvik
