// The words accepted by the name-valued settings.  Readers keep a setting's
// previous value (and warn) when a file gives a word outside its list.
#pragma once

#include <string_view>
#include <vector>

enum class SettingWordList {
    EvalUnits,          // Points Inches Millimeters Centimeters
    RemoveAction,       // None Remove            (remove-threads, remove-named-dests)
    PageLabelAction,    // None Remove RemoveUnused
    AnnotAction,        // None Flatten Remove    (annot-processing, acroform-processing)
    PageMode,           // None Thumbs Bookmarks FullScreen
    PageLayout,         // None Single Continuous ContinuousFacing
    ZoomFit,            // None FitWindow FitWidth FitHeight FitPage
    TransitionStyle,    // None Split Blinds Box Wipe Dissolve Glitter R
    TransitionDimension,// H V
    TransitionMotion,   // I O
    Downsample,         // none None triangle Bicubic Average point Subsample
    ImageFilter,        // Original LZW Flate JPEG CCITTG3 CCITTG4 Packbits JBIG2
    JpegQuality,        // Minimum Low Medium High Maximum
    ColorType,          // None Gray RGB CMYK
    Intent,             // Perceptual RelativeColorimetric Saturation AbsoluteColorimetric
    GrayReduction,      // None DeviceGray CalGray
    LayoutType,         // None NUp Booklet StepAndRepeat
    PageBox,            // MediaBox CropBox BleedBox TrimBox ArtBox
    PageScaling,        // None Fit Shrink Scale
    PagePosition,       // Center Top Bottom Left Right TopLeft TopRight BottomLeft BottomRight
    StampX,             // Left Right Center Fit
    StampY,             // Bottom Top Center Fit
    StampRangeType,     // all even odd
    ObjectStreams,      // Preserve Generate Disable
};

const std::vector<const char*>& SettingWords(SettingWordList list);
bool IsSettingWord(SettingWordList list, std::string_view word);
