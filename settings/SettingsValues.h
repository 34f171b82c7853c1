// Shared helpers of the settings readers: number conversion in the "C"
// locale and warnings for values a setting does not accept.
#pragma once

#include <string>

#include "pdfcore/CosObj.h"
#include "settings/SettingsWords.h"

class Log;

namespace settingsvalues {

// Decimal conversions; throw std::runtime_error naming the setting when the
// whole text is not a number (surrounding blanks and a leading '+' allowed).
ASInt32 ToInt(const std::string& text, const char* setting);
double ToNumber(const std::string& text, const char* setting);

// Logs "Warning: ignoring value '%s' for setting '%s'\n" (on the Warning channel).
void WarnValue(Log& log, const char* setting, const std::string& value);

// Stores the word when the list accepts it, else warns; true when stored.
bool SetWord(Log& log, ASAtom& target, SettingWordList list, const std::string& word, const char* setting);
// Stores `value` when it lies in [lo, hi], else warns.
bool SetIntInRange(Log& log, ASInt32& target, ASInt32 value, ASInt32 lo, ASInt32 hi, const char* setting);
bool SetNumberInRange(Log& log, double& target, double value, double lo, double hi, const char* setting);

}  // namespace settingsvalues
