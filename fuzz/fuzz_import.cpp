// libFuzzer target for the image files trimora takes as input: the first
// byte picks JPEG (even) or TIFF (odd), the rest is the file.  A JPEG's
// header and markers (JFIF, APP14, Exif) and a TIFF's directories are read
// and the page made; any outcome but a crash, a hang or unbounded memory
// is fine.
#include <cstddef>
#include <cstdint>
#include <span>

#include "base/ASError.h"
#include "base/ASMem.h"
#include "images/ImageImport.h"
#include "pdfcore/CosDoc.h"
#include "pdfcore/PDDoc.h"
#include "fuzz/FuzzInit.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    StartCoreOnce();
    if (size < 1) return 0;
    std::span<const uint8_t> file(data + 1, size - 1);
    try {
        PDDoc pd = (data[0] & 1) ? images::ImportTiff(file) : images::ImportJpeg(file);
        if (pd) PDDocClose(pd);
    } catch (const CVellumError&) {
        // Refusing a file with the core's error is what bad input gets.
    }
    return 0;
}
