// qimgconv: loads a picture the way the simulator loads a texture and writes it out again, so that
// a texture can be checked from the command line.
//
//   qimgconv <in> <out> [quality | grey]
//
// The reader is picked by the input name as QImage picks it (.rgb .tga .bmp .jpg .jpe .psd .mip),
// the writer by the output name in the same way: .rgb, .tga (32 bits, or 8-bit grey with "grey"),
// .jpg or .jpe (quality 1 to 100, 80 by default, as the screen shots take it). Failures are the
// log's own reports on standard error, and the exit status is 1; nothing goes to QLOG.txt. The
// output is written whole or not at all: a failed write leaves the file that was there. An output
// that is the input itself is refused before anything is read or written.
#include "images/qimage.h"

#include "foundation/qmessage.h"
#include "platform/platform.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>

using namespace tarvik;

namespace {

const int defaultQuality = 80;

int Usage()
{
    std::fprintf(stderr, "usage: qimgconv <in.rgb|tga|bmp|jpg|psd|mip> <out.rgb|tga|jpg> [quality 1-100 | grey]\n");
    return 2;
}

// Output format and quality from the name and the optional word; false if they don't go together.
bool PickFormat(const char* out, const char* option, int* format, int* quality)
{
    *quality = defaultQuality;
    switch (QImage::GetImageFileType(out)) {
    case QIMAGE_RGB: *format = QBM_FORMAT_RGB; return !option;
    case QIMAGE_TGA:
        *format = option ? QBM_FORMAT_TGA_GREY : QBM_FORMAT_TGA;
        return !option || std::strcmp(option, "grey") == 0;
    case QIMAGE_JPG: {
        *format = QBM_FORMAT_JPG;
        if (!option) return true;
        char* end = nullptr;
        long q = std::strtol(option, &end, 10);
        *quality = int(q);
        return *end == 0 && end != option && q >= 1 && q <= 100;
    }
    default: return false;
    }
}

} // namespace

int main(int argc, char** argv)
{
    if (argc < 3 || argc > 4) return Usage();
    const char* in = argv[1];
    const char* out = argv[2];
    int format, quality;
    if (!PickFormat(out, argc == 4 ? argv[3] : nullptr, &format, &quality)) return Usage();

    qmsgSetLogFile(false); // a tool for the command line leaves no log file behind
    if (PlatformSameFile(in, out)) {
        QWARNING("qimgconv: '%s' is the input '%s'; it is not written over", out, in);
        return 1;
    }
    QImage image(in);
    if (!image.IsOK()) return 1; // the reader and the constructor have said why
    if (!image.GetMemory()) {
        QWARNING("qimgconv: '%s' holds no pixels", in);
        return 1;
    }
    if (!image.Write(out, format, quality)) {
        QWARNING("qimgconv: can't write '%s'", out);
        return 1;
    }
    return 0;
}
