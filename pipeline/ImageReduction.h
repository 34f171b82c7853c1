// The image reduction step: every image the document draws is looked at
// once, with the settings of its class (colour, grayscale or mono),
// downsampled and recompressed.
#pragma once

#include <functional>
#include <memory>
#include <vector>

#include "images/ImageFinder.h"
#include "images/MonoReduce.h"
#include "images/Palette.h"
#include "pipeline/Operations.h"

struct ImageClassParams;
struct ImageParams;

namespace pipeline {

// The reduction parameters for one image class of the settings.
images::ReductionParams ReductionParamsFor(const ImageClassParams& params);
// The parameters of the mono class, with the section-wide despeckle and
// descreen choices and the JBIG2 generic-region coder.
images::MonoParams MonoParamsFor(const ImageParams& params);

// The palettisation and quantisation parameters for one image class: the
// section-wide switches with the class's lossless encoding.
images::ColourReductionParams ColourReductionParamsFor(const ImageParams& images, const images::ReductionParams& cls);

// Finds the images of a document with their placements.
using ImageFinderFn = std::function<std::vector<images::FoundImage>(PDDoc, Log&)>;

// The step, with the finder it uses.  It counts Images_Total (every image
// found), Images_ToBeProcessed (those whose class asks for work) and
// Images_Processed (those replaced by a smaller result), Images_Palettized
// and Images_Quantized (those stored with a colour table in the end), and moves the
// progress sink through the image share of the work (from 0.4 to 1.0 of
// the document) as the images are done.
std::unique_ptr<DocumentOperation> MakeImageReduction(ImageFinderFn finder);

}  // namespace pipeline
