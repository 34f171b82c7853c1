#include "settings/SettingsWords.h"

#include <map>

const std::vector<const char*>& SettingWords(SettingWordList list) {
    using L = SettingWordList;
    static const std::map<L, std::vector<const char*>> lists = {
        {L::EvalUnits, {"Points", "Inches", "Millimeters", "Centimeters"}},
        {L::RemoveAction, {"None", "Remove"}},
        {L::PageLabelAction, {"None", "Remove", "RemoveUnused"}},
        {L::AnnotAction, {"None", "Flatten", "Remove"}},
        {L::PageMode, {"None", "Thumbs", "Bookmarks", "FullScreen"}},
        {L::PageLayout, {"None", "Single", "Continuous", "ContinuousFacing"}},
        {L::ZoomFit, {"None", "FitWindow", "FitWidth", "FitHeight", "FitPage"}},
        {L::TransitionStyle, {"None", "Split", "Blinds", "Box", "Wipe", "Dissolve", "Glitter", "R"}},
        {L::TransitionDimension, {"H", "V"}},
        {L::TransitionMotion, {"I", "O"}},
        {L::Downsample, {"none", "None", "triangle", "Bicubic", "Average", "point", "Subsample"}},
        {L::ImageFilter, {"Original", "LZW", "Flate", "JPEG", "CCITTG3", "CCITTG4", "Packbits", "JBIG2"}},
        {L::JpegQuality, {"Minimum", "Low", "Medium", "High", "Maximum"}},
        {L::ColorType, {"None", "Gray", "RGB", "CMYK"}},
        {L::Intent, {"Perceptual", "RelativeColorimetric", "Saturation", "AbsoluteColorimetric"}},
        {L::GrayReduction, {"None", "DeviceGray", "CalGray"}},
        {L::LayoutType, {"None", "NUp", "Booklet", "StepAndRepeat"}},
        {L::PageBox, {"MediaBox", "CropBox", "BleedBox", "TrimBox", "ArtBox"}},
        {L::PageScaling, {"None", "Fit", "Shrink", "Scale"}},
        {L::PagePosition,
         {"Center", "Top", "Bottom", "Left", "Right", "TopLeft", "TopRight", "BottomLeft", "BottomRight"}},
        {L::StampX, {"Left", "Right", "Center", "Fit"}},
        {L::StampY, {"Bottom", "Top", "Center", "Fit"}},
        {L::StampRangeType, {"all", "even", "odd"}},
        {L::ObjectStreams, {"Preserve", "Generate", "Disable"}},
    };
    return lists.at(list);
}

bool IsSettingWord(SettingWordList list, std::string_view word) {
    for (const char* w : SettingWords(list))
        if (word == w) return true;
    return false;
}
