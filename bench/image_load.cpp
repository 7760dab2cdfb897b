// Image load speed: constructs a QImage from one file N times and prints the best load.
//   image_load <file> [N]      (N defaults to 10)
// One line out: "<file> <width>x<height> best <ms> ms <Mpx/s> Mpx/s". The file is read from the
// page cache after the first load, so the figure is the reader's decode plus one file read.
#include "foundation/qmessage.h"
#include "images/qimage.h"

#include <chrono>
#include <cstdio>
#include <cstdlib>

using namespace tarvik;

int main(int argc, char** argv)
{
    if (argc < 2) {
        std::fprintf(stderr, "usage: image_load <file> [N]\n");
        return 2;
    }
    const int runs = argc > 2 ? std::atoi(argv[2]) : 10;
    if (runs < 1) {
        std::fprintf(stderr, "image_load: N must be 1 or more\n");
        return 2;
    }
    qmsgSetLogFile(false);

    double bestSeconds = 1e30;
    int w = 0, h = 0;
    for (int i = 0; i < runs; i++) {
        auto start = std::chrono::steady_clock::now();
        QImage* image = new QImage(argv[1]);
        double seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
        if (!image->IsOK()) {
            std::fprintf(stderr, "image_load: can't load %s\n", argv[1]);
            delete image;
            return 1;
        }
        w = image->GetWidth();
        h = image->GetHeight();
        delete image; // freeing the pixels is not part of the load
        if (seconds < bestSeconds) bestSeconds = seconds;
    }
    std::printf("%s %dx%d best %.2f ms %.1f Mpx/s\n", argv[1], w, h, bestSeconds * 1e3,
                double(w) * h / 1e6 / bestSeconds);
    return 0;
}
