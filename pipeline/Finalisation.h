// The last changes before saving: information fields and the initial view.
#pragma once

#include <ctime>
#include <string>

#include "pdfcore/PDDoc.h"

class CTrimoraPreferences;
class Log;

namespace pipeline {

// A PDF text string for UTF-8 text: the bytes themselves when they are
// plain ASCII, else UTF-16BE with a byte-order mark.
std::string PdfTextString(const std::string& utf8);

// When the settings carry metadata: "Setting Info Fields\n", the configured
// entries (Title, Producer, any other key), the touched dates as of `now`,
// and Enhanced = "By <producer text>".  Then "Setting Additional Settings (if
// any) \n" and the initial-view settings.  Core errors propagate.
void Finalise(PDDoc doc, CTrimoraPreferences& prefs, Log& log, const std::tm& now);

}  // namespace pipeline
