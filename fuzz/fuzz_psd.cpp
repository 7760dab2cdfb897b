// The layered paint file reader on any bytes: through QPSD on the bytes in memory, and through
// QImage on a file, the road of a texture. The file is written once per input under a .psd name.
#include "fuzz/fuzz.h"

#include "foundation/qfile.h"
#include "images/qbitmap.h"
#include "images/qimage.h"
#include "images/qpsd.h"

#include "platform/platform.h"

#include <cstdio>
#include <filesystem>
#include <string>

using namespace tarvik;

namespace {

const std::string& TempName()
{
    // One name per process, so that parallel fuzzing jobs keep to their own file.
    static const std::string name =
        (std::filesystem::temp_directory_path() / ("fuzz_psd_" + std::to_string(PlatformProcessId()) + ".psd")).string();
    return name;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    FuzzSetup();
    if (size > (1u << 22)) return 0;

    QFile memory("fuzz.psd", const_cast<uint8_t*>(data), int(size));
    QPSD psd(nullptr);
    psd.Load(memory);
    if (psd.GetRows() > 0 && psd.GetColumns() > 0) {
        QBitMap canvas(32, psd.GetColumns(), psd.GetRows(), 0);
        psd.Render(&canvas);
    }

    FILE* f = std::fopen(TempName().c_str(), "wb");
    if (!f) return 0;
    std::fwrite(data, 1, size, f);
    std::fclose(f);
    QImage image(TempName().c_str());
    (void)image.IsOK();
    std::remove(TempName().c_str());
    return 0;
}
