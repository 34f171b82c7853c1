// Reduction of one image XObject: downsampling to a target resolution and
// recompression, replacing the image's data only when the result is smaller.
//
// The rules that keep an image looking as it did:
//  - an image that is not downsampled is only re-encoded when the settings
//    name a filter; a JPEG is re-encoded as JPEG only when the quality asked
//    for is below the quality it was made with;
//  - the colour space, Decode array and soft mask stay; a soft mask of the
//    image's size is resampled with it, so the two stay aligned;
//  - colour-keyed images keep their key: masked samples are left out of
//    the averages and written back as the key colour, and visible samples
//    that would fall into the key range are moved just outside it; since a
//    lossy encoding would break the key, such images are stored losslessly
//    (Flate) even when JPEG is asked for;
//  - an Indexed image keeps its palette unless it is downsampled; then it
//    becomes an image in the palette's base space, which can be averaged;
//  - images with a colour space of more than four components, JPX and
//    external-file images are left alone, as are
//    JPEGs holding inverted CMYK unless they go back to JPEG (the inverted
//    values are stored as they were, with the marker that says so);
//  - Lab, Separation, DeviceN and 4-component images are never put through
//    the RGB-to-YCbCr transform;
//  - 16-bit images stay 16-bit unless they become JPEG (8-bit); images of
//    1, 2 or 4 bits per component become 8-bit when they are touched.
//
// Images with damaged data, data shorter than their size says, absurd
// sizes, unknown colour spaces or soft masks of another size are left as
// they are, with a reason the caller logs as a warning.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

#include "pdfcore/CosObj.h"

namespace images {

enum class ImageClass { Color, Grayscale, Mono };

// The class an image XObject falls in: image masks and 1-bit single-
// component images (1-bit Indexed ones too) are Mono; one-component images
// (an Indexed image by its base) are Grayscale; everything else is Color.
ImageClass ClassifyImage(CosObj image);

enum class ImageCompression { Original, JPEG, Flate, LZW, Packbits, Other };

// What to do with the images of one class.
struct ReductionParams {
    bool downsample = false;
    std::string resampleFilter;  // a name CreateResampleFilter knows
    double thresholdPpi = 0;     // downsample images above this...
    double targetPpi = 0;        // ...to this
    ImageCompression compression = ImageCompression::Original;
    int jpegQuality = 80;
    int flateLevel = 9;
    bool flatePrediction = true;
    bool rgbToYCbCr = true;
    bool interpolate = false;
    // Largest decoded image (samples in bytes) that is taken on.
    uint64_t maxDecodedBytes = uint64_t(512) << 20;

    // True when the class asks for any work on its images.
    bool Active() const {
        return downsample || interpolate || (compression != ImageCompression::Original &&
                                             compression != ImageCompression::Other);
    }
};

enum class ReductionOutcome {
    Replaced,    // the image (and its soft mask) now hold the smaller result
    NotSmaller,  // the result was not smaller; the image is as it was
    Unchanged,   // nothing asked for applies to this image
    LeftAlone,   // the image cannot be reduced without changing how it looks
    Bad,         // the image's data or dictionary is damaged
};

struct ReductionResult {
    ReductionOutcome outcome = ReductionOutcome::Unchanged;
    std::string reason;     // why, for LeftAlone and Bad
    size_t bytesBefore = 0;  // encoded bytes of the image and a replaced soft mask
    size_t bytesAfter = 0;
    int newWidth = 0, newHeight = 0;
};

// Reduces `image` (an image XObject stream) drawn at most at ppiX x ppiY
// (pixels per inch along its width and height; 0 when unknown, which
// rules out downsampling).  Never raises for bad image data: that is a Bad
// result.  Sets the Interpolate flag when asked, whatever the outcome.
ReductionResult ReduceImage(CosObj image, double ppiX, double ppiY, const ReductionParams& params);

}  // namespace images
