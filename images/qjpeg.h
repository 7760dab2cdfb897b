// The JPEG library's error manager for the reader and the writer, and the reader's bounds.
//
// The library's own handler ends the process on a fatal error. This one reports the library's text
// with the caller's words in front and jumps back to the setjmp of the caller, which returns false.
// Warnings go to the log, the first one of a run only: a broken stream can warn on every line. A
// stream that ends early ends the run at once, as a fatal error does: the library would otherwise
// decode the whole rest of the picture from nothing.
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
};

// Installs the handlers in 'err' and gives the manager for the library's 'err' field.
jpeg_error_mgr* QJpegErrorManager(QJpegError* err, const char* who, const char* fileName);

// A progressive (or otherwise multi-scan) picture is decoded whole into coefficients first, 128
// bytes a block of 8x8, and each scan walks the blocks of its components again. The scan that
// brings a block's first coefficients spends at least a bit on it, so a file of n bytes can code
// no more than 8n blocks; a picture of more is refused before anything is decoded. The scans are
// watched as they come: more than QJPEG_MAX_SCANS of them, or more walking than QJPEG_MAX_PASSES
// passes over the largest picture the file could hold, ends the run through the error manager.
enum {
    QJPEG_MAX_SCANS = 100,  // common encoders write 10 or so
    QJPEG_MAX_PASSES = 32,  // blocks walked, in pictures of the largest size the file allows
};

struct QJpegLimits {
    jpeg_progress_mgr mgr;   // first: the library sees a jpeg_progress_mgr*
    QJpegError* err;         // borrowed: where the run ends
    long long maxBlocks;     // the most blocks the file could code
    long long walked;        // blocks walked by the scans counted so far
    int scan;                // the last scan counted
};

// After jpeg_read_header: false, with a report, if a multi-scan picture has more blocks than a file
// of 'size' bytes could code. Otherwise installs 'limits' as the progress monitor, which watches
// the scans, and caps the library's memory for coefficients at the same size.
bool QJpegLimitDecompress(jpeg_decompress_struct* cinfo, QJpegLimits* limits, QJpegError* err, long size);

} // namespace tarvik
